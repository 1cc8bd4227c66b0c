#include "verify_report_page.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

// kelsim's report's styles (sim/report-html.sh), with the findings' own.
const char kStyle[] = R"css(<style>
:root { --red: #d00000; --amber: #a65a00; --green: #17752a; --line: #d6d6d6; }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 0.8rem; max-width: 62rem; color: #111; background: #fff;
       font: 15px/1.4 "DejaVu Sans", "WenQuanYi Zen Hei", sans-serif; }
h1 { font-size: 1.4rem; margin: 0.2rem 0; }
h2 { font-size: 1.1rem; margin: 1.4rem 0 0.4rem; border-bottom: 2px solid #222; overflow-wrap: anywhere; }
h2 .count { font-size: 0.9rem; font-weight: normal; color: #555; }
.sub { margin: 0 0 0.6rem; color: #555; overflow-wrap: anywhere; }
.outcome { border: 3px solid var(--green); border-radius: 6px; padding: 0.4rem 0.8rem; }
.outcome.failed { border-color: var(--red); }
.outcome.warned { border-color: var(--amber); }
.outcome .meaning { font-size: 1.15rem; font-weight: bold; margin: 0.2rem 0; }
.outcome dl { display: grid; grid-template-columns: max-content 1fr; gap: 0.1rem 1rem; margin: 0.3rem 0; }
.outcome dt { color: #555; }
.outcome dd { margin: 0; font-weight: bold; overflow-wrap: anywhere; }
.ok { color: var(--green); }
.fail, .error .severity { color: var(--red); }
.warn, .warning .severity { color: var(--amber); }
table { border-collapse: collapse; width: 100%; font-size: 0.85rem; table-layout: fixed; }
th, td { text-align: left; padding: 0.15rem 0.4rem; border-bottom: 1px solid var(--line); vertical-align: top; }
thead th { border-bottom: 2px solid #222; }
td { overflow-wrap: anywhere; }
.files th:nth-child(n+2), .files td:nth-child(n+2) { width: 6em; text-align: right; }
a { color: inherit; }
code, .context { font-family: "DejaVu Sans Mono", "WenQuanYi Zen Hei Mono", monospace; }
code { overflow-wrap: anywhere; }
.finding { border-left: 4px solid var(--red); padding: 0.1rem 0 0.1rem 0.6rem; margin: 0.7rem 0; }
.finding.warning { border-left-color: var(--amber); }
.finding p { margin: 0.1rem 0; }
.where .severity { font-weight: bold; text-transform: uppercase; margin-right: 0.4rem; }
.where .line { color: #555; margin-right: 0.4rem; }
.where code { font-weight: bold; }
.fix span { color: var(--green); font-weight: bold; }
.values { display: grid; grid-template-columns: max-content 1fr; gap: 0 0.8rem; margin: 0.1rem 0; }
.values dt { color: #555; }
.values dd { margin: 0; }
.context { font-size: 0.8rem; background: #f5f5f5; margin: 0.3rem 0 0; }
.context td { border: none; padding: 0 0.4rem; white-space: pre-wrap; word-break: break-all; }
.context td.n { width: 3.5em; text-align: right; color: #777; user-select: none; }
.context tr.here td { background: #fbdada; font-weight: bold; }
.warning .context tr.here td { background: #fbe8c4; }
.context tr.here td.n { color: #111; }
.raw { background: #ffe9a8; color: #000; }
@media (max-width: 40rem) {
  body { font-size: 14px; padding: 0.5rem; }
  .context td.n { width: 2.8em; }
}
@page { size: A4; margin: 12mm; }
@media print {
  body { max-width: none; padding: 0; font-size: 10pt; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  h2 { break-after: avoid; }
  .finding, tr, .outcome { break-inside: avoid; }
}
</style>
)css";

const int kContext = 2; // lines shown before and after a finding's line

QString counted(int count, const char* thing)
{
    return QString("%1 %2%3").arg(count).arg(thing).arg(count == 1 ? "" : "s");
}

// The errors (or the warnings) among the findings of file.
int countOf(const QVector<VerifyReport::Finding>& findings, const QString& file, bool error)
{
    return int(std::count_if(findings.begin(), findings.end(),
                             [&](const auto& f) { return f.file == file && f.error == error; }));
}

} // namespace

VerifyReportPage::VerifyReportPage(const VerifyReport& report, const QString& package,
                                   const QString& panel)
    : m_report(report), m_package(package), m_panel(panel)
{
}

QString VerifyReportPage::escape(const QString& text, bool plain)
{
    const auto raw = [plain](const QString& shown) {
        return plain ? shown : "<span class=\"raw\">" + shown + "</span>";
    };
    QString out;
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        const ushort code = c.unicode();
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '"')
            out += "&quot;";
        else if ((code < 0x20 && c != '\t') || (code >= 0x7f && code < 0xa0))
            out += raw(QString("\\x%1").arg(code, 2, 16, QChar('0')));
        else if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
            out += text.mid(i++, 2);
        else if (c.isSurrogate() || code == 0xfffd)
            out += raw(QChar(0xfffd));
        else
            out += c;
    }
    return out;
}

QString VerifyReportPage::html() const
{
    QStringList files; // in the order the check met them
    for (const VerifyReport::Finding& f : m_report.findings()) {
        if (!files.contains(f.file))
            files << f.file;
    }
    QString out = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                  "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n";
    out += kStyle;
    out += "<title>kelpack verify: " + escape(QFileInfo(m_package).fileName(), true) +
           "</title>\n</head>\n<body>\n<h1>kelpack verify report</h1>\n";
    out += "<p class=\"sub\">Package " + escape(m_package) + ", checked " +
           QDateTime::currentDateTime().toString("yyyy-MM-dd HH:mm:ss") + "</p>\n";
    out += outcome();
    if (files.isEmpty()) {
        out += "<section><h2>Findings</h2><p>None: the panel meets nothing that fails or "
               "surprises.</p></section>\n";
    } else {
        out += overview(files);
        for (int i = 0; i < files.size(); ++i)
            out += fileSection(i + 1, files[i]);
    }
    out += "</body>\n</html>\n";
    return out;
}

QString VerifyReportPage::outcome() const
{
    const int errors = m_report.errorCount();
    const int warnings = m_report.findings().size() - errors;
    QString meaning;
    if (errors == 0 && warnings == 0)
        meaning = "No errors, no warnings: the panel meets nothing that fails or surprises";
    else if (errors > 0)
        meaning = counted(errors, "error") + ", " + counted(warnings, "warning") +
                  ": the update fails or harms every panel";
    else
        meaning = "No errors, " + counted(warnings, "warning") +
                  (m_panel.isEmpty() ? ": the outcome depends on the panel" : "");
    const QString state = errors ? "fail" : warnings ? "warn" : "ok";
    const QString panel = m_panel.isEmpty() ? "default: the simulator's, which decides nothing "
                                              "the package leaves to the panel"
                                            : escape(m_panel);
    QString out = QString("<div class=\"outcome%1\">\n")
                      .arg(errors     ? " failed"
                           : warnings ? " warned"
                                      : "");
    out += "<p class=\"meaning " + state + "\">" + escape(meaning) + "</p>\n<dl>\n";
    out += "<dt>Package</dt><dd>" + escape(m_package) + "</dd>\n";
    out += "<dt>Panel</dt><dd>" + panel + "</dd>\n";
    out += QString("<dt>Errors</dt><dd class=\"%1\">%2</dd>\n")
               .arg(errors ? "fail" : "ok")
               .arg(errors);
    out += QString("<dt>Warnings</dt><dd class=\"%1\">%2</dd>\n")
               .arg(warnings ? "warn" : "ok")
               .arg(warnings);
    const QString end = m_report.endState().summary;
    out += "<dt>End state</dt><dd>" + escape(end.isEmpty() ? "(not planned)" : end) + "</dd>\n";
    out += "</dl>\n</div>\n";
    return out;
}

QString VerifyReportPage::overview(const QStringList& files) const
{
    QString out = "<section><h2>Findings by file</h2><table class=\"files\">\n"
                  "<thead><tr><th>File</th><th>Errors</th><th>Warnings</th></tr></thead><tbody>\n";
    for (int i = 0; i < files.size(); ++i) {
        const int errors = countOf(m_report.findings(), files[i], true);
        const int warnings = countOf(m_report.findings(), files[i], false);
        out += QString("<tr><td><a href=\"#file-%1\"><code>").arg(i + 1) + escape(files[i]) +
               QString("</code></a></td><td class=\"%1\">%2</td><td class=\"%3\">%4</td></tr>\n")
                   .arg(errors ? "fail" : "")
                   .arg(errors)
                   .arg(warnings ? "warn" : "")
                   .arg(warnings);
    }
    return out + "</tbody></table></section>\n";
}

QString VerifyReportPage::fileSection(int number, const QString& file) const
{
    QVector<VerifyReport::Finding> findings;
    for (const VerifyReport::Finding& f : m_report.findings()) {
        if (f.file == file)
            findings << f;
    }
    // Findings of the file as a whole first, then down the file.
    std::stable_sort(findings.begin(), findings.end(),
                     [](const auto& a, const auto& b) { return a.line < b.line; });
    const int errors = countOf(findings, file, true);
    QString out = QString("<section class=\"file\"><h2 id=\"file-%1\"><code>").arg(number) +
                  escape(file) + "</code> <span class=\"count\">" + counted(errors, "error") +
                  ", " + counted(findings.size() - errors, "warning") + "</span></h2>\n";
    for (const VerifyReport::Finding& f : findings)
        out += finding(f);
    return out + "</section>\n";
}

QString VerifyReportPage::finding(const VerifyReport::Finding& f) const
{
    QString where = f.section.isEmpty() ? QString() : "[" + f.section + "]";
    if (!f.key.isEmpty())
        where += (where.isEmpty() ? "" : " ") + f.key;
    QString out = QString("<article class=\"finding %1\">\n<p class=\"where\">"
                          "<span class=\"severity\">%1</span>")
                      .arg(f.error ? "error" : "warning");
    if (f.line > 0)
        out += QString("<span class=\"line\">line %1</span>").arg(f.line);
    if (!where.isEmpty())
        out += "<code>" + escape(where) + "</code>";
    out += "</p>\n<p class=\"problem\">" + escape(f.problem) + "</p>\n";
    if (!f.fix.isEmpty())
        out += "<p class=\"fix\"><span>Write instead:</span> " + escape(f.fix) + "</p>\n";
    if (!f.expected.isEmpty() || !f.actual.isEmpty())
        out += "<dl class=\"values\"><dt>Expected</dt><dd><code>" + escape(f.expected) +
               "</code></dd><dt>Actual</dt><dd><code>" + escape(f.actual) + "</code></dd></dl>\n";
    return out + context(f) + "</article>\n";
}

QString VerifyReportPage::context(const VerifyReport::Finding& f) const
{
    const QStringList lines = m_report.lines(f.file);
    if (f.line <= 0 || f.line > lines.size())
        return QString();
    QString out = "<table class=\"context\"><tbody>\n";
    const int last = std::min<int>(lines.size(), f.line + kContext);
    for (int number = std::max(1, f.line - kContext); number <= last; ++number)
        out += QString("<tr%1><td class=\"n\">%2</td><td>%3</td></tr>\n")
                   .arg(number == f.line ? " class=\"here\"" : "")
                   .arg(number)
                   .arg(escape(lines[number - 1]));
    return out + "</tbody></table>\n";
}

bool VerifyReportPage::write(const QString& path, QString* error) const
{
    const QFileInfo target(path);
    if (target.exists() || target.isSymLink()) {
        *error = path + " exists; name a new file";
        return false;
    }
    QFile partial(target.absolutePath() + "/." + target.fileName() + "." +
                  QString::number(QCoreApplication::applicationPid()) + ".part");
    if (!partial.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        *error = path + ": cannot write the report (" + partial.errorString() +
                 "): name a new file in a folder you can write to";
        return false;
    }
    const QByteArray bytes = html().toUtf8();
    const bool written = partial.write(bytes) == bytes.size() && partial.flush();
    partial.close();
    // rename never replaces a file that appeared meanwhile.
    if (!written || !partial.rename(path)) {
        *error = path + ": cannot write the report (" + partial.errorString() +
                 "): name a new file in a folder with room";
        partial.remove();
        return false;
    }
    return true;
}
