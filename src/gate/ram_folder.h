#pragma once

#include <QString>

class StickManifest;

// The private RAM folder that the gate copies a stick's checked files into and starts the
// program from, so that nothing the stick or a later mount over it does can change what runs.
// Where the gate may mount, it is a tmpfs of its own, sized for the stick and visible to the
// gate and its children only; elsewhere (a gate without the right to mount) it is a folder only
// root may enter on a RAM file system that is already there.
class RamFolder
{
public:
    enum Result
    {
        Ready,
        NoRoom,
        Failed
    };

    // Room for what the program and the update write beside the program (the log, a
    // command's scratch files).
    static constexpr qint64 kWorkingRoomBytes = qint64(16) << 20;

    explicit RamFolder(const QString& dir) : m_dir(dir) {}
    ~RamFolder();
    RamFolder(const RamFolder&) = delete;
    RamFolder& operator=(const RamFolder&) = delete;

    // The bytes a folder needs to hold the manifest's files (whole pages each) and extraBytes.
    static qint64 needed(const StickManifest& manifest, qint64 extraBytes);
    // The room the panel allows: limitMib when it is positive, otherwise half of the memory
    // available now.
    static qint64 allowed(qint64 limitMib);

    // Makes the folder for bytes; NoRoom when the RAM file system it falls back to has less
    // free room (then *room is that room), Failed with the reason in *error.
    Result prepare(qint64 bytes, qint64* room, QString* error);
    const QString& dir() const { return m_dir; }

    // Makes a read-only file system at dir writable again (the stick, to carry its log back).
    static bool remountWritable(const QString& dir);

private:
    QString m_dir;
    bool m_shared = false; // a folder on a RAM file system that outlives the gate
};
