#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The files of a stick that the updater reads: its package folder and the folders beside it
// (language/, config/, qws/), walked without following links.
class StickTree
{
public:
    // Every regular file under those folders, as paths relative to the stick's top directory,
    // leaving out the package folder's manifest and signature. False at the first entry that
    // is neither a regular file nor a directory (a link, device, pipe or socket), named in
    // *unsafe relative to the top directory.
    static bool list(const QString& packageDir, QStringList* files, QString* unsafe);

    // Size and SHA-256 (lower-case hex) of a regular file, opened without following a link.
    // False when it cannot be opened or read to its end.
    static bool hash(const QString& path, qint64* size, QByteArray* sha256);

    // The stick's top directory: the parent of the package folder.
    static QString topDir(const QString& packageDir);
};
