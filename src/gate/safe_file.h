#pragma once

#include <QByteArray>
#include <QString>

// Files that the gate reads or writes on a stick or on the panel, where a link planted by the
// stick must never redirect a read or a write. Reads take only a regular file with one link,
// opened without following a link; writes go to a new file beside the target that then replaces
// it by rename, so a link or a hard-linked file at the target is replaced, never written through.
class SafeFile
{
public:
    enum Read
    {
        Ok,
        Missing,
        Unsafe,    // a link, a special file, a directory or a file with more than one link
        Unreadable // an error, or larger than the limit
    };

    // The whole file, which may hold at most limit bytes.
    static Read read(const QString& path, qint64 limit, QByteArray* bytes);
    // Up to limit bytes from the start of the file, however long it is.
    static Read head(const QString& path, qint64 limit, QByteArray* bytes);
    // False when the new file cannot be made, written whole or put in place.
    static bool replace(const QString& path, const QByteArray& bytes);
    // The same for a file below top, whose folders on the way are entered without following a
    // link: no folder that a stick makes a link can lead the write elsewhere.
    static bool replaceBelow(const QString& top, const QString& relative, const QByteArray& bytes);

private:
    static Read open(const QString& path, qint64 limit, bool whole, QByteArray* bytes);
};
