#include "link_safe.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool lstatOf(const QString& path, struct stat* st)
{
    return ::lstat(QFile::encodeName(path).constData(), st) == 0;
}

} // namespace

bool LinkSafe::exists(const QString& path)
{
    struct stat st;
    return lstatOf(path, &st);
}

bool LinkSafe::isLink(const QString& path)
{
    struct stat st;
    return lstatOf(path, &st) && S_ISLNK(st.st_mode);
}

bool LinkSafe::isDir(const QString& path)
{
    struct stat st;
    return lstatOf(path, &st) && S_ISDIR(st.st_mode);
}

bool LinkSafe::isDir(const QFileInfo& entry)
{
    return entry.isDir() && !entry.isSymLink();
}

bool LinkSafe::remove(const QString& path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0;
}

bool LinkSafe::rename(const QString& from, const QString& to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    // One step where the file system can refuse to replace; a test first where it cannot.
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) ==
        0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    struct stat st;
    if (::lstat(target.constData(), &st) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::rename(source.constData(), target.constData()) == 0;
}

QFileInfoList LinkSafe::entries(const QString& dir, QDir::Filters filters)
{
    QFileInfoList result;
    for (const QFileInfo& entry : QDir(dir).entryInfoList(filters, QDir::Name)) {
        if (!entry.isSymLink())
            result << entry;
    }
    const QDir::Filters everything =
        QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot | (filters & QDir::Hidden);
    for (const QFileInfo& entry : QDir(dir).entryInfoList(everything, QDir::Name)) {
        if (entry.isSymLink())
            result << entry;
    }
    std::sort(result.begin(), result.end(),
              [](const QFileInfo& a, const QFileInfo& b) { return a.fileName() < b.fileName(); });
    return result;
}

qint64 LinkSafe::fileSize(const QString& path)
{
    struct stat st;
    return lstatOf(path, &st) && S_ISREG(st.st_mode) ? static_cast<qint64>(st.st_size) : 0;
}
