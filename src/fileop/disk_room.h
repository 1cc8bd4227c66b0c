#pragma once

#include <QString>
#include <QtGlobal>
#include <map>
#include <set>

// Tells before anything is changed whether new files will fit where old ones go: per file system,
// the bytes the new files need against the space available to unprivileged users (the panel's
// system keeps its reserve) plus the bytes the old files free when they are removed or
// overwritten. A path named twice counts once.
class DiskRoom
{
public:
    // A file of bytes written at path; a path written twice needs room for its larger size.
    void addNew(const QString& path, qint64 bytes);
    // A file or a whole tree at path that goes before the new files are written; a link frees
    // nothing, and a path inside a tree already added is not credited twice.
    void addOld(const QString& path);

    // False when some file system lacks room; shortage then holds the line that tells the user
    // what is needed and what is available, which the installers show in red.
    bool enough(QString* shortage) const;

private:
    // False when some file system lacks room; neededKb and availableKb then describe it.
    bool enough(qint64* neededKb, qint64* availableKb) const;

    std::map<QString, qint64> m_new;
    std::set<QString> m_old;
};
