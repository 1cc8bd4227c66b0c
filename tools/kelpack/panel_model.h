#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>
#include <functional>

// The panel's files as a package leaves them, step by step: what a step put in place (and from
// which file of the stick), what it removed, and what nothing in the package decides, so that a
// later step knows whether the file it needs is certainly there, certainly gone, or up to the
// panel.
class PanelModel
{
public:
    enum State
    {
        Unknown, // the package neither makes nor removes it: it depends on the panel
        Present,
        Absent
    };

    // Why a file is gone: a record that names it, one that removes what lies around it, or a
    // rename that carried it to another name.
    enum Removal
    {
        Named,
        Swept,
        Moved
    };

    struct File
    {
        State state = Unknown;
        QString source;          // the stick file it came from, for Present
        QString by;              // the record that put it there or removed it
        Removal removal = Swept; // for Present: Moved when a rename put it there
    };

    // One file a step put in place, in the order of the steps.
    struct Installed
    {
        QString path, source, by;
    };

    void install(const QString& path, const QString& source, const QString& by);
    void remove(const QString& path, const QString& by, Removal removal = Named);
    // Everything at and under dir is gone.
    void removeTree(const QString& dir, const QString& by);
    // The regular files directly in dir are gone, except those whose name keep accepts.
    void clearFiles(const QString& dir, const std::function<bool(const QString&)>& keep,
                    const QString& by);
    void makeDir(const QString& dir);
    // A file the program rewrites in place: still there, but no longer a file of the stick.
    void rewrite(const QString& path);
    // A file renamed in place (the runtime's short library names).
    void rename(const QString& from, const QString& to, const QString& by);

    File file(const QString& path) const;
    State dirState(const QString& dir) const;
    // Files in place directly in dir.
    QStringList presentIn(const QString& dir) const;
    const QVector<Installed>& installed() const { return m_installed; }
    // Every file the package puts in place that is there at the end, sorted.
    QStringList present() const;

    static QString clean(const QString& path);

private:
    struct Rule
    {
        int order;
        QString dir;
        bool tree; // false: the files directly in dir
        std::function<bool(const QString&)> keep;
        QString by;
    };
    struct Known
    {
        int order;
        File file;
    };

    int m_order = 0;
    QMap<QString, Known> m_files;
    QMap<QString, int> m_dirs; // made, with the order
    QVector<Rule> m_rules;
    QVector<Installed> m_installed;
};
