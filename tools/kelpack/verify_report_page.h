#pragma once

#include "verify_report.h"

#include <QString>

// The findings of kelpack verify as one web page that needs nothing else (no script, no network),
// in the look of kelsim's report so that the two read as one product: the outcome first, then the
// findings grouped by manifest in line order, each with the manifest's lines around it. It reads
// on a phone and prints on A4. Manifests and names come from a stick and may hold markup and
// bytes that are not UTF-8: every text is escaped.
class VerifyReportPage
{
public:
    // package: the path the check was given; panel: the --panel one, empty for the default panel.
    VerifyReportPage(const VerifyReport& report, const QString& package, const QString& panel);

    QString html() const;
    // Writes the page to path, which must not exist, through a file beside it renamed when whole:
    // a half-written page never appears, and nothing already there is replaced.
    bool write(const QString& path, QString* error) const;

    // Text as HTML: markup characters as entities, control characters as \xHH and U+FFFD (a byte
    // that was not UTF-8) marked, unless plain, where no markup may stand (the title).
    static QString escape(const QString& text, bool plain = false);

private:
    QString outcome() const;
    QString overview(const QStringList& files) const;
    QString fileSection(int number, const QString& file) const;
    QString finding(const VerifyReport::Finding& f) const;
    QString context(const VerifyReport::Finding& f) const;

    const VerifyReport& m_report;
    QString m_package;
    QString m_panel;
};
