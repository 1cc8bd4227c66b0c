#pragma once

#include <QMap>
#include <QString>
#include <functional>

// One record of a manifest as verify judges it: its keys as written, and what the walker found
// out about it (facts, in lower case: where its source is, the file's real CRC, what wrote the
// same destination before).
class ManifestRecord
{
public:
    explicit ManifestRecord(const QString& section) : m_section(section) {}

    const QString& section() const { return m_section; }
    QString value(const QString& name) const { return m_values.value(name); }
    bool has(const QString& name) const { return !m_values.value(name).isEmpty(); }
    void set(const QString& name, const QString& value) { m_values.insert(name, value); }
    // A rule's text with every {name} replaced by that value.
    QString fill(const char* text) const;

private:
    QString m_section;
    QMap<QString, QString> m_values;
};

// The checks of single records, as a table: each rule names the kind of record it judges, the
// key it reports, how bad a failure is, when it fails, and its texts. A record's rules run in
// the table's order, so a later rule may rely on what an earlier one let through.
class RecordRules
{
public:
    // What verify judges, in the order the program meets it.
    enum Kind
    {
        StopProc = 1 << 0,
        Copy = 1 << 1,
        Delete = 1 << 2,
        Grant = 1 << 3,
        RuntimeRecord = 1 << 4, // a runtime record's paths, before anything is cleared
        RuntimeFile = 1 << 5,   // its one named file, when it is copied
        RuntimeFolder = 1 << 6, // its folder, when file_name is "*"
        RuntimeGrant = 1 << 7,
        ProjectFile = 1 << 8,  // a project record's source and checks
        ProjectPlace = 1 << 9, // where the project record lands on the panel
    };
    enum Verdict
    {
        Warning,  // surprising, but the record does what it says
        Error,    // fails on the panel; the plan still applies the record
        Unusable, // fails; the record's source is not used, later rules still judge the rest
        Skipped,  // fails; the record does nothing and no later rule judges it
    };

    using Report =
        std::function<void(bool error, const QString& key, const QString& problem,
                           const QString& fix, const QString& expected, const QString& actual)>;

    // Judges one record; false when the plan must leave it out. An Unusable failure sets the
    // fact "unusable" for the rules after it.
    static bool check(Kind kind, ManifestRecord& record, const Report& report);
    // Paths reach the shell unquoted: false when a character would split or expand them.
    static bool shellSafe(const QString& text);
};
