#pragma once

#include <QString>
#include <QtGlobal>
#include <map>

// Tells before anything is removed whether new files will fit where old ones go: per file
// system, the bytes needed against the free bytes plus those the removal will free.
class DiskRoom
{
public:
    // Accounts for newBytes to be written under destDir and oldBytes to be removed there.
    void add(const QString& destDir, qint64 newBytes, qint64 oldBytes);
    // False when some file system lacks room; neededKb and availableKb then describe it.
    bool enough(qint64* neededKb, qint64* availableKb) const;

    // Size of a regular file (0 when missing).
    static qint64 fileSize(const QString& path);

private:
    struct Volume
    {
        qint64 needed = 0;
        qint64 available = 0;
    };
    std::map<quint64, Volume> m_volumes;
};
