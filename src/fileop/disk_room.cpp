#include "disk_room.h"

#include <QFile>
#include <QFileInfo>
#include <sys/stat.h>
#include <sys/statvfs.h>

void DiskRoom::add(const QString& destDir, qint64 newBytes, qint64 oldBytes)
{
    // A directory that does not exist yet will be made under its nearest existing parent.
    QString dir = QFileInfo(destDir).absoluteFilePath();
    struct stat st;
    while (stat(QFile::encodeName(dir).constData(), &st) != 0 && dir.size() > 1)
        dir = QFileInfo(dir).absolutePath();
    const quint64 device = static_cast<quint64>(st.st_dev);
    auto inserted = m_volumes.emplace(device, Volume());
    Volume& volume = inserted.first->second;
    if (inserted.second) {
        struct statvfs vfs;
        if (statvfs(QFile::encodeName(dir).constData(), &vfs) == 0)
            volume.available =
                static_cast<qint64>(vfs.f_bavail) * static_cast<qint64>(vfs.f_frsize);
    }
    volume.needed += newBytes;
    volume.available += oldBytes;
}

bool DiskRoom::enough(qint64* neededKb, qint64* availableKb) const
{
    for (const auto& entry : m_volumes) {
        if (entry.second.needed > entry.second.available) {
            *neededKb = (entry.second.needed + 1023) / 1024;
            *availableKb = entry.second.available / 1024;
            return false;
        }
    }
    return true;
}

qint64 DiskRoom::fileSize(const QString& path)
{
    const QFileInfo info(path);
    return info.isFile() ? info.size() : 0;
}
