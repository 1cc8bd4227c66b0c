#include "verify_report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

void VerifyReport::add(const Finding& finding)
{
    for (const Finding& known : m_findings) {
        if (known.file == finding.file && known.section == finding.section &&
            known.key == finding.key && known.problem == finding.problem)
            return;
    }
    m_findings.append(finding);
}

int VerifyReport::errorCount() const
{
    int count = 0;
    for (const Finding& finding : m_findings)
        count += finding.error ? 1 : 0;
    return count;
}

QString VerifyReport::text(const Finding& f)
{
    QString out = f.file;
    if (f.line > 0)
        out += ":" + QString::number(f.line);
    out += f.error ? ": error: " : ": warning: ";
    if (!f.section.isEmpty())
        out += "[" + f.section + "] ";
    if (!f.key.isEmpty())
        out += f.key + ": ";
    out += f.problem;
    if (!f.expected.isEmpty() || !f.actual.isEmpty())
        out += " (expected " + f.expected + ", actual " + f.actual + ")";
    if (!f.fix.isEmpty())
        out += ". Write instead: " + f.fix;
    return out;
}

QString VerifyReport::text() const
{
    QString out;
    for (const Finding& finding : m_findings)
        out += text(finding) + "\n";
    return out;
}

QString VerifyReport::json(const QString& package) const
{
    QJsonArray list;
    for (const Finding& f : m_findings)
        list.append(QJsonObject{{"severity", f.error ? "error" : "warning"},
                                {"file", f.file},
                                {"line", f.line > 0 ? QJsonValue(f.line) : QJsonValue()},
                                {"section", f.section},
                                {"key", f.key},
                                {"problem", f.problem},
                                {"fix", f.fix},
                                {"expected", f.expected},
                                {"actual", f.actual},
                                {"text", text(f)}});
    const int errors = errorCount();
    return QString::fromUtf8(QJsonDocument(QJsonObject{{"package", package},
                                                       {"ok", errors == 0},
                                                       {"errors", errors},
                                                       {"warnings", m_findings.size() - errors},
                                                       {"findings", list}})
                                 .toJson());
}

QString VerifyReport::planText(const QString& package) const
{
    QString out = "Package " + package + "\n";
    QString phase;
    int number = 0;
    for (const Step& step : m_steps) {
        if (step.phase != phase) {
            phase = step.phase;
            out += QString("%1. %2\n").arg(++number).arg(phase);
        }
        out += "   " + step.action;
        if (!step.target.isEmpty())
            out += " " + step.target;
        if (!step.source.isEmpty())
            out += " from " + step.source;
        if (!step.detail.isEmpty())
            out += " (" + step.detail + ")";
        if (!step.change.isEmpty())
            out += ": " + step.change;
        out += "\n";
    }
    if (!m_end.summary.isEmpty())
        out += "End: " + m_end.summary + "\n";
    return out;
}

QString VerifyReport::planJson(const QString& package) const
{
    QJsonArray list;
    int number = 0;
    for (const Step& step : m_steps)
        list.append(QJsonObject{{"step", ++number},
                                {"phase", step.phase},
                                {"action", step.action},
                                {"target", step.target},
                                {"source", step.source},
                                {"detail", step.detail},
                                {"change", step.change}});
    return QString::fromUtf8(
        QJsonDocument(
            QJsonObject{
                {"package", package},
                {"steps", list},
                {"end", QJsonObject{{"summary", m_end.summary},
                                    {"added", QJsonArray::fromStringList(m_end.added)},
                                    {"replaced", QJsonArray::fromStringList(m_end.replaced)},
                                    {"installed", QJsonArray::fromStringList(m_end.installed)},
                                    {"removed", QJsonArray::fromStringList(m_end.removed)}}}})
            .toJson());
}

QString VerifyReport::installedFiles() const
{
    QString out;
    for (int i = 0; i < m_end.installed.size(); ++i)
        out += m_end.installed[i] + '\t' + m_end.sources.value(i) + '\n';
    return out;
}
