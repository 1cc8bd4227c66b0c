#pragma once

#include "panel_model.h"

#include <QString>
#include <QStringList>
#include <functional>

// Rules over the panel a whole package leaves behind: every file a step installed is still
// there with the package's bytes, and the runtime can still start. Each rule is a row of a
// table with its texts; findings name the record to change (as "file [SECTION]").
class EndStateCheck
{
public:
    // One finding: error or warning, the record it belongs to, what happens, what to write.
    using Report = std::function<void(bool error, const QString& record, const QString& problem,
                                      const QString& fix)>;

    // A rule's text with %1, %2, ... replaced by values in their order; an empty second value
    // (the record that removed a file, when none is known) leaves out its parenthesis.
    static QString fill(const char* text, const QStringList& values);
    // The unit that starts the HMI runtime at boot.
    static QString runtimeUnit();

    explicit EndStateCheck(const PanelModel& panel) : m_panel(panel) {}
    void run(const Report& report) const;

private:
    const PanelModel& m_panel;
};
