#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The files of a stick that the updater reads: its package folder and the folders beside it
// (language/, config/, qws/), walked without following links. Names are the stick's raw bytes:
// a name that is not UTF-8 never stands in for a listed one.
class StickTree
{
public:
    // Every regular file under those folders, as paths relative to the stick's top directory,
    // leaving out the package folder's manifest and signature. False at the first entry that
    // is neither a regular file nor a directory (a link, device, pipe or socket), or whose name
    // is not UTF-8, named in *unsafe relative to the top directory.
    static bool list(const QString& packageDir, QList<QByteArray>* files, QByteArray* unsafe);

    // Size and SHA-256 (lower-case hex) of a regular file, opened without following a link.
    // With a copy path, the bytes read are also written to that new file, so that the sum is
    // the copy's. False when it cannot be opened, read to its end or copied.
    static bool hash(const QString& path, qint64* size, QByteArray* sha256,
                     const QString& copy = QString());

    // The stick's top directory: the parent of the package folder.
    static QString topDir(const QString& packageDir);

    // A stick-chosen name as it may be shown: quoted, with control characters, quotes,
    // backslashes and bytes that are not UTF-8 escaped.
    static QString quoted(const QByteArray& name);
};
