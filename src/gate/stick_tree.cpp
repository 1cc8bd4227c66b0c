#include "stick_tree.h"

#include "stick_manifest.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const int kReadBlockBytes = 256 * 1024;

// A link or special file at path, or one below it; empty when the tree holds only regular
// files and directories.
bool walk(const QString& top, const QString& root, QStringList* files, QString* unsafe)
{
    const QFileInfo rootInfo(root);
    if (rootInfo.isSymLink() || (rootInfo.exists() && !rootInfo.isDir())) {
        *unsafe = QDir(top).relativeFilePath(root);
        return false;
    }
    if (!rootInfo.exists())
        return true;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        if (info.isSymLink() || !(info.isFile() || info.isDir())) {
            *unsafe = QDir(top).relativeFilePath(path);
            return false;
        }
        if (info.isFile())
            files->append(QDir(top).relativeFilePath(path));
    }
    return true;
}

} // namespace

QString StickTree::topDir(const QString& packageDir)
{
    return QFileInfo(QDir(packageDir).absolutePath()).path();
}

bool StickTree::list(const QString& packageDir, QStringList* files, QString* unsafe)
{
    const QString package = QDir(packageDir).absolutePath();
    const QString top = topDir(package);
    const QString folder = QFileInfo(package).fileName();
    files->clear();
    if (!walk(top, package, files, unsafe))
        return false;
    for (const QString& side : StickManifest::sideFolders()) {
        if (!walk(top, top + "/" + side, files, unsafe))
            return false;
    }
    files->removeOne(folder + "/" + StickManifest::kFileName);
    files->removeOne(folder + "/" + StickManifest::kSignatureName);
    return true;
}

bool StickTree::hash(const QString& path, qint64* size, QByteArray* sha256)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status;
    QFile file;
    const bool regular = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    if (!regular || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return false;
    }
    QCryptographicHash sum(QCryptographicHash::Sha256);
    QByteArray block(kReadBlockBytes, Qt::Uninitialized);
    qint64 total = 0;
    for (;;) {
        const qint64 n = file.read(block.data(), block.size());
        if (n < 0)
            return false;
        if (n == 0)
            break;
        sum.addData(QByteArray::fromRawData(block.constData(), int(n)));
        total += n;
    }
    *size = total;
    *sha256 = sum.result().toHex();
    return true;
}
