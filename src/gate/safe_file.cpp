#include "safe_file.h"

#include <QFile>
#include <QRandomGenerator>
#include <QStringList>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray kTempSuffix = ".kelgate-XXXXXX";

bool writeAll(int fd, const QByteArray& bytes)
{
    const char* data = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, data, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        left -= n;
    }
    return true;
}

} // namespace

SafeFile::Read SafeFile::read(const QString& path, qint64 limit, QByteArray* bytes)
{
    return open(path, limit, true, bytes);
}

SafeFile::Read SafeFile::head(const QString& path, qint64 limit, QByteArray* bytes)
{
    return open(path, limit, false, bytes);
}

SafeFile::Read SafeFile::open(const QString& path, qint64 limit, bool whole, QByteArray* bytes)
{
    bytes->clear();
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return errno == ENOENT ? Missing : errno == ELOOP ? Unsafe : Unreadable;
    struct stat status;
    Read result = Ok;
    if (fstat(fd, &status) != 0)
        result = Unreadable;
    else if (!S_ISREG(status.st_mode) || status.st_nlink != 1)
        result = Unsafe;
    else if (whole && status.st_size > limit)
        result = Unreadable;
    for (char block[65536]; result == Ok && bytes->size() < limit;) {
        const ssize_t n =
            ::read(fd, block, size_t(std::min<qint64>(sizeof block, limit + 1 - bytes->size())));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || (whole && bytes->size() + n > limit))
            result = Unreadable;
        if (n <= 0 || result != Ok)
            break;
        bytes->append(block, int(n));
    }
    if (!whole)
        bytes->truncate(int(limit));
    ::close(fd);
    if (result != Ok)
        bytes->clear();
    return result;
}

bool SafeFile::replaceBelow(const QString& top, const QString& relative, const QByteArray& bytes)
{
    QStringList parts = relative.split('/', Qt::SkipEmptyParts);
    if (parts.isEmpty() || parts.contains("..") || parts.contains("."))
        return false;
    const QByteArray name = QFile::encodeName(parts.takeLast());
    int dir = ::open(QFile::encodeName(top).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (const QString& part : parts) {
        const int next = dir < 0 ? -1
                                 : openat(dir, QFile::encodeName(part).constData(),
                                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (dir >= 0)
            ::close(dir);
        dir = next;
    }
    if (dir < 0)
        return false;
    const QByteArray temp = name + kTempSuffix.left(kTempSuffix.size() - 6) +
                            QByteArray::number(QRandomGenerator::system()->generate(), 36);
    const int fd =
        openat(dir, temp.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    bool done = false;
    if (fd >= 0) {
        const bool written = writeAll(fd, bytes) && fsync(fd) == 0;
        done = ::close(fd) == 0 && written &&
               renameat(dir, temp.constData(), dir, name.constData()) == 0;
        const int error = errno;
        if (!done)
            unlinkat(dir, temp.constData(), 0);
        errno = error;
    }
    const int error = errno;
    ::close(dir);
    errno = error;
    return done;
}

bool SafeFile::replace(const QString& path, const QByteArray& bytes)
{
    QByteArray temp = QFile::encodeName(path) + kTempSuffix;
    const int fd = mkostemp(temp.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool written = fchmod(fd, 0644) == 0 && writeAll(fd, bytes) && fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    if (written && closed && rename(temp.constData(), QFile::encodeName(path).constData()) == 0)
        return true;
    unlink(temp.constData());
    return false;
}
