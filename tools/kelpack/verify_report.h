#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

// What a check of a package found and what the package will do on a panel, for people (text) and
// for programs (JSON, one object per finding and per step).
class VerifyReport
{
public:
    struct Finding
    {
        bool error = true; // false: a warning, the outcome depends on the panel
        QString file;      // relative to the package tree, "update.ini", "vorn_app/update.ini"
        int line = 0;      // 0 when the finding belongs to no line
        QString section;
        QString key;
        QString problem; // what is wrong and what the panel would do
        QString fix;     // what to write instead
        QString expected;
        QString actual;
    };

    struct Step
    {
        QString phase;  // "prepare", "system", "runtime", "project", "kelinfo", "package", "end"
        QString action; // "copy", "delete", "make executable", "replace folder", ...
        QString target; // the path on the panel, or the name acted on
        QString source; // the file on the stick, relative to the package folder
        QString detail;
        QString change; // on the panel: "adds", "replaces", "adds or replaces", "removes"
    };

    void add(const Finding& finding);
    void addStep(const Step& step) { m_steps.append(step); }
    // What the panel holds at the end: one line for people, and the files the run adds,
    // replaces and removes (added and replaced together as "installed" without a panel).
    struct EndState
    {
        QString summary;
        QStringList added, replaced, installed, removed;
        // Of each installed file, relative to the package folder; empty for a file the program
        // rewrites in place.
        QStringList sources;
    };
    void setEndState(const EndState& end) { m_end = end; }
    const EndState& endState() const { return m_end; }
    // The lines of a manifest that findings point into, so that a report can show them in
    // context after the manifest itself (a stick's unscrambled copy) is gone.
    void setLines(const QString& file, const QStringList& lines) { m_lines.insert(file, lines); }
    QStringList lines(const QString& file) const { return m_lines.value(file); }

    const QVector<Finding>& findings() const { return m_findings; }
    const QVector<Step>& steps() const { return m_steps; }
    int errorCount() const;
    bool hasErrors() const { return errorCount() > 0; }

    // One line per finding: "FILE:LINE: error: [SECTION] KEY: problem (expected X, actual Y).
    // Write instead: fix"
    QString text() const;
    static QString text(const Finding& finding);
    QString json(const QString& package) const;
    QString planText(const QString& package) const;
    QString planJson(const QString& package) const;
    // One "PATH<tab>SOURCE" line per file the run leaves installed, for scripts (an empty
    // SOURCE: the program rewrote the file).
    QString installedFiles() const;

private:
    QVector<Finding> m_findings;
    QVector<Step> m_steps;
    EndState m_end;
    QMap<QString, QStringList> m_lines;
};
