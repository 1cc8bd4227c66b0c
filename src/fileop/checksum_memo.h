#pragma once

#include <QString>
#include <QtGlobal>

// CRC-32s of the package's own files, which an update checks more than once (a pre-flight check of
// every item, one of every set, one before each copy). A file is read again only when its identity
// (device, inode, size, modification and change times) differs from when it was last read. The
// update never writes the package's files, and staged copies are always checked from their bytes,
// so a remembered checksum can never stand in for bytes that reach the panel unverified.
class ChecksumMemo
{
public:
    // As FileCopier::crc32Of, served from the memo while the file is unchanged.
    static bool crc32Of(const QString& path, quint32* crc);

    // Forgets every checksum (tests).
    static void clear();
};
