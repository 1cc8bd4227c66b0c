#include "ram_folder.h"

#include "stick_manifest.h"

#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstring>
#include <linux/magic.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>

namespace {

const qint64 kPageBytes = 4096;
const qint64 kMib = qint64(1) << 20;

qint64 memoryAvailable()
{
    QFile info("/proc/meminfo");
    if (!info.open(QIODevice::ReadOnly))
        return 0;
    for (QByteArray line = info.readLine(); !line.isEmpty(); line = info.readLine()) {
        if (line.startsWith("MemAvailable:"))
            return line.mid(13).trimmed().split(' ').value(0).toLongLong() * 1024;
    }
    return 0;
}

} // namespace

qint64 RamFolder::needed(const StickManifest& manifest, qint64 extraBytes)
{
    qint64 total = extraBytes;
    for (const StickManifest::File& file : manifest.files)
        total += (file.size + kPageBytes - 1) / kPageBytes * kPageBytes + kPageBytes;
    return total;
}

qint64 RamFolder::allowed(qint64 limitMib)
{
    return limitMib > 0 ? limitMib * kMib : memoryAvailable() / 2;
}

RamFolder::~RamFolder()
{
    if (m_shared)
        QDir(m_dir).removeRecursively();
}

RamFolder::Result RamFolder::prepare(qint64 bytes, qint64* room, QString* error)
{
    const QByteArray path = QFile::encodeName(m_dir);
    const QByteArray options =
        "size=" + QByteArray::number((bytes + kPageBytes - 1) / kPageBytes * kPageBytes) +
        ",mode=0700";
    if (!QDir().mkpath(m_dir)) {
        *error = m_dir + ": cannot be made";
        return Failed;
    }
    if (unshare(CLONE_NEWNS) == 0) {
        if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            ::mount("kelgate", path.constData(), "tmpfs", MS_NOSUID | MS_NODEV,
                    options.constData()) == 0)
            return Ready;
        *error = m_dir + ": " + strerror(errno);
        return Failed;
    }
    if (errno != EPERM) {
        *error = QString("private mounts: ") + strerror(errno);
        return Failed;
    }
    // Without the right to mount: a fresh folder on the RAM file system below it.
    QDir(m_dir).removeRecursively();
    struct statfs system;
    if (mkdir(path.constData(), 0700) != 0 || statfs(path.constData(), &system) != 0 ||
        (quint32(system.f_type) != TMPFS_MAGIC && quint32(system.f_type) != RAMFS_MAGIC)) {
        *error = m_dir + ": not a folder of its own on a RAM file system";
        return Failed;
    }
    m_shared = true;
    *room = qint64(system.f_bavail) * qint64(system.f_bsize);
    return bytes > *room ? NoRoom : Ready;
}

bool RamFolder::remountWritable(const QString& dir)
{
    const QByteArray path = QFile::encodeName(dir);
    struct stat self, parent;
    // Only a file system mounted right there: never the one a folder of it lies on.
    if (stat(path.constData(), &self) != 0 || stat(path + "/..", &parent) != 0 ||
        self.st_dev == parent.st_dev)
        return false;
    return ::mount(nullptr, path.constData(), nullptr,
                   MS_REMOUNT | MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_NOSYMFOLLOW, nullptr) == 0;
}
