#pragma once

#include <QDir>
#include <QFileInfoList>
#include <QString>

// File-system steps that meet a symbolic link as the link itself, whether or not its target
// exists: a removal, a replacement or a walk through a tree that is removed never enters, empties
// or removes what a link points to. Without this a package, or a link left on the panel, could
// empty a directory outside the one being replaced.
class LinkSafe
{
public:
    // Something stands at path: a file, a directory or a link, even one whose target is gone.
    static bool exists(const QString& path);
    static bool isLink(const QString& path);
    // A directory itself, not a link to one.
    static bool isDir(const QString& path);
    static bool isDir(const QFileInfo& entry);

    // Removes the file or the link at path.
    static bool remove(const QString& path);
    // Moves the entry at from to to; fails rather than replace anything that stands at to. On
    // failure errno tells why: ENOENT when nothing stands at from, EEXIST when something is at to.
    static bool rename(const QString& from, const QString& to);

    // The entries of dir that filters select, by name, and every link in it whatever its target
    // (QDir would judge a link by its target and leave a dangling one out).
    static QFileInfoList entries(const QString& dir, QDir::Filters filters);

    // Size of the regular file at path; 0 for a link, a directory or nothing.
    static qint64 fileSize(const QString& path);
};
