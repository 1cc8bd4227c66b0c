#include "disk_room.h"

#include "link_safe.h"
#include "multilingual_management.h"

#include <QFile>
#include <QFileInfo>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace {

struct Volume
{
    qint64 needed = 0;
    qint64 available = 0;
};

QString absolute(const QString& path)
{
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

// The volume that holds dir, or that a missing dir will be made on (its nearest existing parent).
Volume& volumeOf(std::map<quint64, Volume>& volumes, QString dir)
{
    struct stat st;
    while (stat(QFile::encodeName(dir).constData(), &st) != 0 && dir.size() > 1)
        dir = QFileInfo(dir).absolutePath();
    auto inserted = volumes.emplace(static_cast<quint64>(st.st_dev), Volume());
    if (inserted.second) {
        struct statvfs vfs;
        if (statvfs(QFile::encodeName(dir).constData(), &vfs) == 0)
            inserted.first->second.available =
                static_cast<qint64>(vfs.f_bavail) * static_cast<qint64>(vfs.f_frsize);
    }
    return inserted.first->second;
}

// Bytes that removing path frees: a regular file's size, or a directory's files, never
// entering a link.
qint64 bytesFreed(const QString& path)
{
    if (!LinkSafe::isDir(path))
        return LinkSafe::fileSize(path);
    qint64 total = 0;
    for (const QFileInfo& entry : LinkSafe::entries(path, QDir::AllEntries | QDir::Hidden |
                                                              QDir::System | QDir::NoDotAndDotDot))
        total += bytesFreed(entry.absoluteFilePath());
    return total;
}

} // namespace

void DiskRoom::addNew(const QString& path, qint64 bytes)
{
    qint64& needed = m_new[absolute(path)];
    needed = qMax(needed, bytes);
}

void DiskRoom::addOld(const QString& path)
{
    m_old.insert(absolute(path));
}

bool DiskRoom::enough(qint64* neededKb, qint64* availableKb) const
{
    std::map<quint64, Volume> volumes;
    for (const auto& file : m_new)
        volumeOf(volumes, QFileInfo(file.first).absolutePath()).needed += file.second;
    for (const QString& path : m_old) {
        bool insideOldTree = false;
        for (QString dir = QFileInfo(path).absolutePath(); !insideOldTree && dir.size() > 1;
             dir = QFileInfo(dir).absolutePath())
            insideOldTree = m_old.count(dir) != 0;
        if (!insideOldTree)
            volumeOf(volumes, QFileInfo(path).absolutePath()).available += bytesFreed(path);
    }
    for (const auto& entry : volumes) {
        if (entry.second.needed > entry.second.available) {
            *neededKb = (entry.second.needed + 1023) / 1024;
            *availableKb = entry.second.available / 1024;
            return false;
        }
    }
    return true;
}

bool DiskRoom::enough(QString* shortage) const
{
    qint64 needed = 0;
    qint64 available = 0;
    if (enough(&needed, &available))
        return true;
    *shortage = kel::text(kel::kNotEnoughRoom).arg(needed).arg(available);
    return false;
}
