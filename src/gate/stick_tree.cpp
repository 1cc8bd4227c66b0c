#include "stick_tree.h"

#include "stick_manifest.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const int kReadBlockBytes = 256 * 1024;

struct DirCloser
{
    void operator()(DIR* dir) const { closedir(dir); }
};

bool isUtf8(const QByteArray& bytes)
{
    return QString::fromUtf8(bytes).toUtf8() == bytes;
}

// Adds the regular files below the directory open at fd (relative path prefix) to files.
bool walk(int fd, const QByteArray& prefix, QList<QByteArray>* files, QByteArray* unsafe)
{
    std::unique_ptr<DIR, DirCloser> dir(fdopendir(fd));
    if (!dir) {
        ::close(fd);
        *unsafe = prefix;
        return false;
    }
    // A folder that cannot be read to its end is not a folder listed.
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(dir.get());
        if (!entry) {
            if (errno == 0)
                break;
            *unsafe = prefix;
            return false;
        }
        const QByteArray name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        const QByteArray path = prefix + '/' + name;
        struct stat status;
        if (!isUtf8(name) ||
            fstatat(dirfd(dir.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            *unsafe = path;
            return false;
        }
        // A second name of a file could be changed through the other one.
        if (S_ISREG(status.st_mode) && status.st_nlink == 1) {
            files->append(path);
            continue;
        }
        const int child = S_ISDIR(status.st_mode)
                              ? openat(dirfd(dir.get()), entry->d_name,
                                       O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                              : -1;
        if (child < 0 || !walk(child, path, files, unsafe)) {
            if (child < 0)
                *unsafe = path;
            return false;
        }
    }
    return true;
}

// One of the folders the updater reads; a missing one holds nothing.
bool walkFolder(const QString& top, const QByteArray& folder, QList<QByteArray>* files,
                QByteArray* unsafe)
{
    const int fd = ::open(QFile::encodeName(top + '/' + QString::fromUtf8(folder)).constData(),
                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT)
        return true;
    if (fd < 0) {
        *unsafe = folder;
        return false;
    }
    return walk(fd, folder, files, unsafe);
}

bool writeAll(QFile* file, const char* data, qint64 size)
{
    return file->write(data, size) == size;
}

} // namespace

QString StickTree::topDir(const QString& packageDir)
{
    return QFileInfo(QDir(packageDir).absolutePath()).path();
}

bool StickTree::list(const QString& packageDir, QList<QByteArray>* files, QByteArray* unsafe)
{
    const QString package = QDir(packageDir).absolutePath();
    const QString top = topDir(package);
    const QByteArray folder = QFileInfo(package).fileName().toUtf8();
    files->clear();
    if (!walkFolder(top, folder, files, unsafe))
        return false;
    for (const QString& side : StickManifest::sideFolders()) {
        if (!walkFolder(top, side.toUtf8(), files, unsafe))
            return false;
    }
    files->removeOne(folder + '/' + StickManifest::kFileName);
    files->removeOne(folder + '/' + StickManifest::kSignatureName);
    return true;
}

bool StickTree::hash(const QString& path, qint64* size, QByteArray* sha256, const QString& copy)
{
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return false;
    struct stat status;
    QFile file;
    const bool regular = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    if (!regular || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return false;
    }
    // The copy keeps the permission bits: the update installs some files with the modes they
    // have on the stick.
    QFile target;
    if (!copy.isEmpty()) {
        const int out = ::open(QFile::encodeName(copy).constData(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (out < 0 || fchmod(out, status.st_mode & 0777) != 0 ||
            !target.open(out, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
            if (out >= 0)
                ::close(out);
            return false;
        }
    }
    QCryptographicHash sum(QCryptographicHash::Sha256);
    QByteArray block(kReadBlockBytes, Qt::Uninitialized);
    qint64 total = 0;
    for (;;) {
        const qint64 n = file.read(block.data(), block.size());
        if (n < 0 || (n > 0 && target.isOpen() && !writeAll(&target, block.constData(), n)))
            return false;
        if (n == 0)
            break;
        sum.addData(QByteArray::fromRawData(block.constData(), int(n)));
        total += n;
    }
    if (target.isOpen() && !target.flush())
        return false;
    *size = total;
    *sha256 = sum.result().toHex();
    return true;
}

QString StickTree::quoted(const QByteArray& name)
{
    QString out = "\"";
    const QString text = QString::fromUtf8(name);
    const bool utf8 = text.toUtf8() == name;
    if (!utf8) {
        for (const char c : name) {
            const uchar b = uchar(c);
            out += b >= 0x20 && b < 0x7f && b != '"' && b != '\\'
                       ? QString(QChar(b))
                       : QString("\\x%1").arg(b, 2, 16, QChar('0'));
        }
        return out + '"';
    }
    for (const QChar c : text) {
        if (c == '"' || c == '\\')
            out += QString('\\') + c;
        else if (c.unicode() < 0x20 || c.unicode() == 0x7f || c.category() == QChar::Other_Format)
            out += QString("\\u%1").arg(c.unicode(), 4, 16, QChar('0'));
        else
            out += c;
    }
    return out + '"';
}
