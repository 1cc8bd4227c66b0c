#include "file_operation_c.h"

#include "checksum_memo.h"
#include "do_cmd.h"
#include "file_copier.h"
#include "link_safe.h"
#include "multilingual_management.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>

namespace {

constexpr QDir::Filters kListFlags =
    QDir::Readable | QDir::Writable | QDir::Hidden | QDir::NoDotAndDotDot;

// A record of a file the engine made itself (a staged copy or a backup).
delFileInfo_s madeFile(const QString& path)
{
    delFileInfo_s info;
    info.srcPath = path;
    info.mode = 0;
    info.authority = 1;
    info.priority = 5;
    return info;
}

// File names may arrive as UTF-8 bytes; a UTF-8 round trip shows them as they are.
QString Gbk2Utf8(const QString& text)
{
    return QString::fromUtf8(text.toUtf8());
}

QString crcText(quint32 crc)
{
    return QString::number(crc, 16).toUpper();
}

} // namespace

file_operation_c::file_operation_c(QString workDir, QObject* parent)
    : QObject(parent), m_workDir(workDir)
{
}

bool file_operation_c::checkCopyFile(CopyFileSet set)
{
    for (const copyFileInfo_s& info : set) {
        if (info.mode != 0) {
            if (!QFileInfo(info.srcPath).isDir())
                return false;
        } else if (!QFileInfo(info.srcPath).isFile() || !isFileChecked(info, CHECK_SOURCE)) {
            return false;
        }
    }
    return true;
}

bool file_operation_c::copyFile(CopyFileSet set)
{
    for (const copyFileInfo_s& info : set) {
        if (!copyFile(info)) {
            emit emitMessage(kel::text(kel::kCopyFailedRestoring), Qt::red);
            removeFile(m_stagingList, ".tmp");
            emit emitMessage(kel::text(kel::kCopyFailedRestored), Qt::black);
            return false;
        }
    }
    for (const copyFileInfo_s& info : set)
        renameFile(info, ".tmp");
    removeFile(m_backupList, ".bak");
    return true;
}

bool file_operation_c::copyFile(const copyFileInfo_s& info)
{
    switch (info.mode) {
    case 0:
        return copyRegualFile(info);
    case 1:
        return copyDirFile(info);
    case 2:
        return copyDirRecursive(info);
    default:
        return true;
    }
}

bool file_operation_c::copyRegualFile(const copyFileInfo_s& info)
{
    if (!QFileInfo::exists(info.srcPath)) {
        emit emitMessage(kel::text(kel::kCopySourceMissing).arg(info.srcPath), Qt::red);
        return false;
    }
    if (!isFileChecked(info, CHECK_SOURCE))
        return false;
    QString dir = info.destPath.left(info.destPath.lastIndexOf('/'));
    if (info.destPath.contains('\\'))
        dir = info.destPath.left(info.destPath.lastIndexOf('\\'));
    if (!QDir(dir).exists() && !QDir().mkpath(dir)) {
        emit emitMessage(kel::text(kel::kCopyCannotCreateFolder).arg(dir), Qt::red);
        return false;
    }
    if (!copyBaseFile(info.srcPath, info.destPath)) {
        emit emitMessage(kel::text(kel::kCopyFileToFileFailed).arg(info.srcPath, info.destPath),
                         Qt::red);
        return false;
    }
    m_stagingList.insert(madeFile(info.destPath + ".tmp"));
    return isFileChecked(info, CHECK_STAGED);
}

bool file_operation_c::copyBaseFile(QString src, QString dest)
{
    if (!QFileInfo::exists(src) || dest.endsWith('/'))
        return false;
    const QString staged = dest + ".tmp";
    switch (FileCopier::copy(src, staged)) {
    case FileCopier::Ok:
        emit emitMessage(kel::text(kel::kFileCopied).arg(src), Qt::black);
        return true;
    case FileCopier::SourceUnreadable:
        return false;
    default:
        // A truncated staged file must not reach the commit, whatever its checksum rule says.
        emit emitMessage(kel::text(kel::kCannotWriteFile).arg(staged), Qt::red);
        QFile::remove(staged);
        return false;
    }
}

bool file_operation_c::isFileCheckedCRC32(const copyFileInfo_s& info, downLoadStatus status)
{
    if (info.crc32.isEmpty())
        return true;
    const QString path = status == CHECK_SOURCE ? info.srcPath : info.destPath + ".tmp";
    quint32 crc = 0;
    const bool read = status == CHECK_SOURCE ? ChecksumMemo::crc32Of(path, &crc)
                                             : FileCopier::crc32Of(path, &crc);
    const bool match = read && crcText(crc) == info.crc32.toUpper();
    if (!match)
        emit emitMessage(kel::text(kel::kCrc32Mismatch).arg(path), Qt::red);
    return match;
}

bool file_operation_c::isFileChecked(const copyFileInfo_s& info, downLoadStatus status)
{
    if (isFileCheckedCRC32(info, status))
        return true;
    if (status == CHECK_SOURCE)
        emit emitMessage(kel::text(kel::kSourceCrcCheckFailed).arg(info.srcPath), Qt::red);
    else
        emit emitMessage(kel::text(kel::kStagedCrcCheckFailed).arg(info.destPath + ".tmp"),
                         Qt::red);
    return false;
}

bool file_operation_c::copyDirFile(const copyFileInfo_s& info)
{
    QDir src(info.srcPath);
    if (!src.exists()) {
        emit emitMessage(kel::text(kel::kCopyFolderMissing).arg(info.srcPath), Qt::red);
        return false;
    }
    if (!QDir(info.destPath).exists() && !QDir().mkpath(info.destPath)) {
        emit emitMessage(kel::text(kel::kCannotCreateFolder).arg(info.destPath), Qt::red);
        return false;
    }
    for (const QFileInfo& file : src.entryInfoList(QDir::Files | kListFlags, QDir::Name)) {
        const QString dest = info.destPath + "/" + file.fileName();
        if (!copyBaseFile(file.absoluteFilePath(), dest)) {
            emit emitMessage(
                kel::text(kel::kCopyFileIntoFolderFailed).arg(file.absoluteFilePath(), dest),
                Qt::red);
            return false;
        }
        m_stagingList.insert(madeFile(dest + ".tmp"));
    }
    return true;
}

bool file_operation_c::copyDirRecursive(const copyFileInfo_s& info)
{
    if (!QDir(info.srcPath).exists()) {
        emit emitMessage(kel::text(kel::kCopyTreeFolderMissing).arg(info.srcPath), Qt::red);
        return false;
    }
    if (!copyDirFile(info))
        return false;
    const QStringList subdirs = QDir(info.srcPath).entryList(QDir::Dirs | kListFlags, QDir::Name);
    for (const QString& name : subdirs) {
        copyFileInfo_s sub = info;
        sub.srcPath += "/" + name;
        sub.destPath += "/" + name;
        if (!copyDirRecursive(sub))
            return false;
    }
    return true;
}

bool file_operation_c::checkDelFile(DelFileSet set)
{
    for (const delFileInfo_s& info : set) {
        // A link is removed as the link itself, whatever its target: it always can be.
        const QFileInfo target(info.srcPath);
        if (!LinkSafe::isLink(info.srcPath) &&
            (info.mode != 0 ? !target.isDir() : !target.isFile()))
            return false;
    }
    return true;
}

bool file_operation_c::removeFile(DelFileSet set, QString suffix)
{
    for (const delFileInfo_s& info : set)
        removeFile(info, suffix);
    return true;
}

bool file_operation_c::removeFile(const delFileInfo_s& info, QString suffix)
{
    switch (info.mode) {
    case 0:
        return removeRegularFile(info, suffix);
    case 1:
        return removeDirFile(info, suffix);
    case 2:
        return removeDirRecursive(info, suffix);
    default:
        return true;
    }
}

bool file_operation_c::removeRegularFile(const delFileInfo_s& info, QString suffix)
{
    if (!info.srcPath.endsWith(suffix))
        return true;
    if (!LinkSafe::exists(info.srcPath)) {
        emit emitMessage(kel::text(kel::kDeleteFileMissing).arg(info.srcPath), Qt::red);
        return true;
    }
    if (LinkSafe::remove(info.srcPath)) {
        emit emitMessage(kel::text(kel::kFileDeleted).arg(info.srcPath), Qt::black);
        return true;
    }
    emit emitMessage(kel::text(kel::kDeleteFileFailed).arg(info.srcPath), Qt::red);
    return false;
}

bool file_operation_c::removeDirFile(const delFileInfo_s& info, QString suffix)
{
    if (!LinkSafe::exists(info.srcPath)) {
        emit emitMessage(kel::text(kel::kDeleteFolderMissing).arg(info.srcPath), Qt::red);
        return true;
    }
    if (!LinkSafe::isDir(info.srcPath)) {
        if (!QFileInfo(info.srcPath).fileName().endsWith(suffix))
            return true;
        return removeRegularFile(info, QString());
    }
    bool all = true;
    QDir dir(info.srcPath);
    for (const QString& name : dir.entryList(QDir::Files | kListFlags, QDir::Name)) {
        if (!name.endsWith(suffix))
            continue;
        const QString path = dir.filePath(name);
        if (!LinkSafe::exists(path)) {
            emit emitMessage(kel::text(kel::kDeleteInFolderFileMissing).arg(name), Qt::red);
        } else if (LinkSafe::remove(path)) {
            emit emitMessage(kel::text(kel::kFileInFolderDeleted).arg(name), Qt::black);
        } else {
            emit emitMessage(kel::text(kel::kDeleteInFolderFailed).arg(name), Qt::red);
            all = false;
        }
    }
    return all;
}

bool file_operation_c::removeDirRecursive(const delFileInfo_s& info, QString suffix)
{
    if (!LinkSafe::exists(info.srcPath)) {
        emit emitMessage(kel::text(kel::kDeleteTreeMissing).arg(Gbk2Utf8(info.srcPath)), Qt::red);
        return true;
    }
    if (!LinkSafe::isDir(info.srcPath)) {
        if (!QFileInfo(info.srcPath).fileName().endsWith(suffix))
            return true;
        return removeRegularFile(info, QString());
    }
    for (const QFileInfo& entry :
         LinkSafe::entries(info.srcPath, QDir::Files | QDir::Dirs | kListFlags)) {
        if (LinkSafe::isDir(entry)) {
            delFileInfo_s sub = info;
            sub.srcPath = entry.filePath();
            removeDirRecursive(sub, suffix);
            continue;
        }
        if (!entry.fileName().endsWith(suffix))
            continue;
        const QString name = Gbk2Utf8(entry.filePath());
        if (!LinkSafe::exists(entry.filePath()))
            emit emitMessage(kel::text(kel::kDeleteInTreeFileMissing).arg(name), Qt::red);
        else if (LinkSafe::remove(entry.filePath()))
            emit emitMessage(kel::text(kel::kFileInTreeDeleted).arg(name), Qt::black);
        else
            emit emitMessage(kel::text(kel::kDeleteInTreeFailed).arg(name), Qt::red);
    }
    const bool removed = QDir().rmdir(info.srcPath);
    emit emitMessage(kel::text(removed ? kel::kFolderDeleted : kel::kFolderDeleteFailed)
                         .arg(Gbk2Utf8(info.srcPath)),
                     removed ? Qt::black : Qt::red);
    return removed;
}

bool file_operation_c::renameFile(CopyFileSet set, QString suffix)
{
    for (const copyFileInfo_s& info : set)
        renameFile(info, suffix);
    return true;
}

bool file_operation_c::renameFile(const copyFileInfo_s& info, QString suffix)
{
    switch (info.mode) {
    case 0:
        return renameRegualrFile(info, suffix);
    case 1:
        return renameDirName(info, suffix);
    case 2:
        return renameDirRecursive(info, suffix);
    default:
        return true;
    }
}

bool file_operation_c::commitStaged(const QString& staged, kel::TextId failureText)
{
    const QFileInfo stagedInfo(staged);
    const QString final = stagedInfo.absolutePath() + "/" + stagedInfo.completeBaseName();
    // Whatever stands at the final path is the old file, a link included (even a dangling one):
    // it moves aside to ".bak" and goes with the other backups, with their removal line. The
    // renames themselves tell what stood where: thousands of files need no extra probes.
    if (LinkSafe::rename(final, final + ".bak") || errno != ENOENT)
        m_backupList.insert(madeFile(final + ".bak"));
    if (!LinkSafe::rename(staged, final)) {
        const bool stagedMissing = errno == ENOENT;
        emit emitMessage(stagedMissing ? kel::text(kel::kRenameFileMissing).arg(staged)
                                       : kel::text(failureText).arg(staged, final),
                         Qt::red);
        return false;
    }
    return true;
}

bool file_operation_c::renameRegualrFile(const copyFileInfo_s& info, QString suffix)
{
    const QString staged = info.destPath + suffix;
    if (!LinkSafe::exists(staged)) {
        emit emitMessage(kel::text(kel::kRenameTargetMissing).arg(staged), Qt::red);
        return false;
    }
    commitStaged(staged, kel::kRenameFileFailed);
    return true;
}

bool file_operation_c::renameDirName(const copyFileInfo_s& info, QString suffix)
{
    QDir dir(info.destPath);
    if (!dir.exists()) {
        emit emitMessage(kel::text(kel::kRenameFolderMissing).arg(info.destPath), Qt::red);
        return false;
    }
    for (const QString& name : dir.entryList(QDir::Files | kListFlags, QDir::Name)) {
        if (name.endsWith(suffix))
            commitStaged(dir.filePath(name), kel::kRenameInFolderFailed);
    }
    return true;
}

bool file_operation_c::renameDirRecursive(const copyFileInfo_s& info, QString suffix)
{
    if (!QDir(info.destPath).exists()) {
        emit emitMessage(kel::text(kel::kRenameTreeFolderMissing).arg(info.destPath), Qt::red);
        return false;
    }
    if (!renameDirName(info, suffix))
        return false;
    for (const QString& name : QDir(info.destPath).entryList(QDir::Dirs | kListFlags, QDir::Name)) {
        copyFileInfo_s sub = info;
        sub.srcPath += "/" + name;
        sub.destPath += "/" + name;
        if (!QDir(sub.destPath).isReadable()) {
            emit emitMessage(kel::text(kel::kRenameSubfolderMissing).arg(sub.destPath), Qt::red);
            continue;
        }
        renameDirRecursive(sub, suffix);
    }
    return true;
}

bool file_operation_c::checkExeFile(ExeFileSet set)
{
    for (const exeFileInfo_s& info : set) {
        if (!QFileInfo(info.srcPath).isFile())
            return false;
    }
    return true;
}

bool file_operation_c::grantExeFile(ExeFileSet set)
{
    for (const exeFileInfo_s& info : set) {
        if (!QFileInfo::exists(info.srcPath)) {
            emit emitMessage(kel::text(kel::kExecutableFileMissing).arg(info.srcPath), Qt::red);
            return false;
        }
        emit emitMessage(kel::text(kel::kMakingFileExecutable).arg(info.srcPath), Qt::black);
        if (!DoCmd::do_cmd_only(("chmod a+x " + info.srcPath).toUtf8().toStdString()))
            return false;
    }
    return true;
}
