#pragma once

#include <QString>
#include <QtGlobal>

// Block copies and checksums shared by the engine and the installers. Long operations serve the
// event queue on a clock, so that the window stays alive without the pump costing more than the
// copy.
class FileCopier
{
public:
    enum Result
    {
        Ok,
        SourceUnreadable,
        DestinationUnwritable,
        ReadFailed,
        WriteFailed
    };

    // Copies src to dest (created or truncated; a link at dest is replaced by the file). A failure
    // leaves dest incomplete.
    static Result copy(const QString& src, const QString& dest);

    // zlib's CRC-32 of a whole file, fed in pieces of at most 4,096 bytes. False when the file
    // cannot be opened or read.
    static bool crc32Of(const QString& path, quint32* crc);

    // Serves the event queue when at least 10 ms have passed since it was last served.
    static void serveEvents();
};
