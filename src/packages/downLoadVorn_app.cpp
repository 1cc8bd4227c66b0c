#include "downLoadVorn_app.h"

#include "def.h"
#include "disk_room.h"
#include "do_cmd.h"
#include "file_copier.h"
#include "link_safe.h"
#include "multilingual_management.h"
#include "package_keys.h"
#include "qsettingsfactory.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

using namespace kel::keys;

namespace {

const char* const kProtectedNames[] = {
    "startBarBackGnd.bmp", "startBarBackGndH.bmp", "startBarLoadGnd.bmp", "startBarLoadGndH.bmp",
    "startProBackGnd.bmp", "startProBackGndH.bmp", "progress_bar_start"};

constexpr QDir::Filters kListFlags = QDir::Dirs | QDir::Files | QDir::Readable | QDir::Writable |
                                     QDir::Hidden | QDir::NoDotAndDotDot;

bool isProtected(const QString& name)
{
    for (const char* protectedName : kProtectedNames) {
        if (name.contains(QLatin1String(protectedName)))
            return true;
    }
    return false;
}

// The lines of a command's output as a reader with a 1,024-byte line buffer takes them: a longer
// line comes in pieces of 1,023 bytes, each judged on its own; the line end is dropped and a NUL
// ends the text of its piece.
QList<QByteArray> outputLines(const std::string& output)
{
    constexpr size_t kPieceBytes = 1023;
    QList<QByteArray> lines;
    size_t start = 0;
    while (start < output.size()) {
        const size_t newline = output.find('\n', start);
        const size_t end = std::min(newline == std::string::npos ? output.size() : newline + 1,
                                    start + kPieceBytes);
        QByteArray line(output.substr(start, end - start).c_str());
        if (line.endsWith('\n'))
            line.chop(1);
        lines << line;
        start = end;
    }
    return lines;
}

QFileInfoList regularFiles(const QString& dir)
{
    QFileInfoList files;
    for (const QFileInfo& entry : QDir(dir).entryInfoList(kListFlags, QDir::Name)) {
        if (entry.isFile())
            files << entry;
    }
    return files;
}

std::unique_ptr<QSettings> openManifest()
{
    return std::unique_ptr<QSettings>(
        QSettingsFactory::createQSettings(kManifest, QSettings::IniFormat));
}

QString versionFileOf(QSettings* settings)
{
    return kVersionListPrefix + settings->value(QString(kPrepare) + "/" + kVersion)
                                    .toString()
                                    .split(' ', Qt::KeepEmptyParts)
                                    .last();
}

} // namespace

downLoadVorn_app::downLoadVorn_app() {}

bool downLoadVorn_app::parseIniFile()
{
    emit emitMessage(kel::text(kel::kRuntimeReadingManifest), Qt::black);
    std::unique_ptr<QSettings> settings = openManifest();
    const uint fileCount =
        settings ? settings->value(QString(kUpdateInfo) + "/" + kFileNum).toUInt() : 0;
    const uint exeCount =
        settings ? settings->value(QString(kAccessRight) + "/" + kFileNum).toUInt() : 0;
    // An absurd count is a corrupt manifest, not a request for billions of records.
    if (!settings || fileCount > uint(kel::kMaxManifestCount) ||
        exeCount > uint(kel::kMaxManifestCount)) {
        emit emitMessage(kel::text(kel::kRuntimeManifestInvalid), Qt::red);
        return false;
    }
    if (fileCount == 0) {
        emit emitMessage(kel::text(kel::kRuntimeNoFilesListed), Qt::red);
        return false;
    }
    for (uint n = 1; n <= fileCount; ++n) {
        const QString group = kRuntimeFile + QString::number(n) + "/";
        FILE_INFO info;
        info.file_name = settings->value(group + kFileName).toString();
        info.des_path = settings->value(group + kDesPath).toString();
        info.src_path = settings->value(group + kSrcPathRuntime).toString();
        const QVariant delayed = settings->value(group + kDelayCopy);
        // An unquoted "a,b" arrives as a list already; rejoin it to split it by our own rule.
        const QString patterns = delayed.userType() == QMetaType::QStringList
                                     ? delayed.toStringList().join(',')
                                     : delayed.toString();
        if (!patterns.isEmpty())
            info.delaycopy_file = patterns.split(',', Qt::KeepEmptyParts, Qt::CaseSensitive);
        m_fileInfos.append(info);
    }
    for (uint m = 1; m <= exeCount; ++m)
        m_exeFiles
            << settings->value(kRuntimeExe + QString::number(m) + "/" + kFileName).toString();
    emit emitMessage(kel::text(kel::kRuntimeManifestRead).arg(m_fileInfos.size()), Qt::black);
    return true;
}

bool downLoadVorn_app::judgeFilenameRegExp(const QString& fileName, FILE_INFO*& info)
{
    for (const QString& pattern : info->delaycopy_file) {
        if (pattern.endsWith('+')) {
            if (fileName.startsWith(pattern.left(pattern.size() - 1))) {
                info->delaycopy_hit.append(pattern);
                return true;
            }
        } else if (fileName == pattern) {
            return true;
        }
    }
    return false;
}

bool downLoadVorn_app::keptWhenClearing(const QString& name)
{
    return isProtected(name);
}

bool downLoadVorn_app::decryptIniFile()
{
    if (!QSettingsFactory::decryptFile(kManifest, "./updatetmp.ini", 0))
        return false;
    QFile::remove(kManifest);
    QFile::rename("./updatetmp.ini", kManifest);
    return true;
}

bool downLoadVorn_app::checkProjectFiles(QString& tip)
{
    std::unique_ptr<QSettings> settings = openManifest();
    if (!settings) {
        tip = kel::text(kel::kRuntimeNoPackage);
        return false;
    }
    const QString text = settings->value(QString(kPrepare) + "/" + kTip).toString();
    m_versionFile = versionFileOf(settings.get());
    settings.reset();
    if (text.isEmpty()) {
        tip = kel::text(kel::kRuntimeNoPackage);
        return false;
    }
    tip = QString::fromUtf8(text.toUtf8());
    return true;
}

bool downLoadVorn_app::checkFile(downLoadStatus status)
{
    const bool package = status == CHECK_PACKAGE;
    const bool installed = status == CHECK_INSTALLED;
    {
        std::unique_ptr<QSettings> settings = openManifest();
        if (!settings) {
            if (package || installed)
                emit emitMessage(kel::text(package ? kel::kRuntimeStickManifestInvalid
                                                   : kel::kRuntimeInstalledManifestInvalid),
                                 Qt::red);
            return false;
        }
        m_versionFile = versionFileOf(settings.get());
    }
    const bool listExists = QFileInfo::exists(m_versionFile);
    if (package) {
        emit emitMessage(kel::text(kel::kRuntimeCheckingStickList).arg(m_versionFile), Qt::black);
        if (!listExists) {
            emit emitMessage(kel::text(kel::kRuntimeStickListMissing).arg(m_versionFile), Qt::red);
            return false;
        }
    } else if (installed) {
        emit emitMessage(kel::text(kel::kRuntimeCheckingInstalledList).arg(m_versionFile),
                         Qt::black);
        if (!listExists) {
            // Deliberately black, and its text has no place for the name.
            emit emitMessage(kel::text(kel::kRuntimeInstalledListMissing), Qt::black);
            return false;
        }
    } else if (!listExists) {
        return false;
    }

    std::string output;
    int shellStatus = 0;
    if (!DoCmd::collect(("md5sum -c " + m_versionFile + " 2>&1").toUtf8().toStdString(), output,
                        shellStatus)) {
        if (package || installed)
            emit emitMessage(kel::text(package ? kel::kRuntimeStickListCannotOpen
                                               : kel::kRuntimeInstalledListCannotOpen)
                                 .arg(m_versionFile),
                             Qt::red);
        return false;
    }
    QString transcript;
    int number = 0;
    for (const QByteArray& text : outputLines(output)) {
        const QString shown = QString::fromUtf8(text);
        transcript += QString::number(++number) + "." + shown + "\n\n";
        if (!text.contains("OK")) {
            if (package || installed)
                emit emitMessage(kel::text(package ? kel::kRuntimeStickFileCheckFailed
                                                   : kel::kRuntimeInstalledFileCheckFailed)
                                     .arg(shown),
                                 Qt::red);
            return false;
        }
    }
    if (shellStatus == -1)
        perror("checkFile pclose failed!\n");
    emit emitMessage(kel::text(kel::kRuntimeListChecked).arg(m_versionFile), Qt::black);
    return true;
}

bool downLoadVorn_app::hasRoomForUpdate()
{
    DiskRoom room;
    for (const FILE_INFO& info : m_fileInfos) {
        if (info.file_name != "*") {
            room.addNew(info.des_path + info.file_name,
                        QFileInfo(info.src_path + info.file_name).size());
            room.addOld(info.des_path + info.file_name);
            continue;
        }
        // The clearing removes the unprotected files; a new file replaces its old copy, a
        // protected start-up image included.
        for (const QFileInfo& file : regularFiles(info.des_path)) {
            if (!isProtected(file.fileName()))
                room.addOld(file.filePath());
        }
        for (const QFileInfo& file : regularFiles(info.src_path)) {
            room.addNew(info.des_path + file.fileName(), file.size());
            room.addOld(info.des_path + file.fileName());
        }
    }
    QString shortage;
    if (room.enough(&shortage))
        return true;
    emit emitMessage(shortage, Qt::red);
    return false;
}

bool downLoadVorn_app::removeOldProjectFiles()
{
    emit emitMessage(kel::text(kel::kRuntimeRemovingOldFiles), Qt::black);
    // Nothing is removed unless everything new will fit.
    if (!hasRoomForUpdate())
        return false;
    for (int i = 0; i < m_fileInfos.size(); ++i) {
        const FILE_INFO& info = m_fileInfos.at(i);
        const int number = i + 1;
        if (!QFileInfo::exists(info.des_path)) {
            if (!QDir().mkpath(info.des_path)) {
                emit emitMessage(
                    kel::text(kel::kRuntimeEntryFolderNotCreated).arg(number).arg(info.des_path),
                    Qt::red);
                return false;
            }
            emit emitMessage(
                kel::text(kel::kRuntimeEntryFolderCreated).arg(number).arg(info.des_path),
                Qt::black);
            continue;
        }
        if (info.file_name != "*") {
            if (!delFile(info.des_path + info.file_name))
                return false;
        } else {
            for (const QFileInfo& entry :
                 QDir(info.des_path).entryInfoList(kListFlags, QDir::Name)) {
                if (entry.isFile() && !isProtected(entry.fileName()) && !delFile(entry.filePath()))
                    return false;
                FileCopier::serveEvents();
            }
        }
        emit emitMessage(
            kel::text(kel::kRuntimeEntryCleared).arg(number).arg(info.des_path + info.file_name),
            Qt::black);
    }
    return true;
}

bool downLoadVorn_app::delFile(const QString& path)
{
    if (!LinkSafe::exists(path)) {
        emit emitMessage(kel::text(kel::kRuntimeAlreadyRemoved).arg(path), Qt::black);
        return true;
    }
    if (LinkSafe::remove(path)) {
        emit emitMessage(kel::text(kel::kRuntimeRemoved).arg(path), Qt::black);
        return true;
    }
    emit emitMessage(kel::text(kel::kRuntimeCannotRemove).arg(path), Qt::red);
    return false;
}

bool downLoadVorn_app::updateProjectFile()
{
    emit emitMessage(kel::text(kel::kRuntimeUpdatingFiles), Qt::black);
    for (int i = 0; i < m_fileInfos.size(); ++i) {
        FILE_INFO* info = &m_fileInfos[i];
        if (info->file_name != "*") {
            if (!copyFile(info->des_path + info->file_name, info->src_path + info->file_name))
                return false;
        } else {
            if (!QFileInfo::exists(info->src_path)) {
                emit emitMessage(kel::text(kel::kRuntimeUpdateDataMissing).arg(info->src_path),
                                 Qt::red);
                return false;
            }
            for (const QFileInfo& file : regularFiles(info->src_path)) {
                if (!judgeFilenameRegExp(file.fileName(), info) &&
                    !copyFile(info->des_path + file.fileName(), file.absoluteFilePath()))
                    return false;
            }
        }
        emit emitMessage(
            kel::text(kel::kRuntimeEntryUpdated).arg(i + 1).arg(info->src_path + info->file_name),
            Qt::black);
    }

    for (int i = 0; i < m_fileInfos.size(); ++i) {
        FILE_INFO* info = &m_fileInfos[i];
        if (info->file_name != "*")
            continue;
        if (!QFileInfo::exists(info->src_path)) {
            emit emitMessage(kel::text(kel::kRuntimeDelayedDataMissing).arg(info->src_path),
                             Qt::red);
            return false;
        }
        for (const QFileInfo& file : regularFiles(info->src_path)) {
            if (!judgeFilenameRegExp(file.fileName(), info))
                continue;
            if (!copyFile(info->des_path + file.fileName(), file.absoluteFilePath()))
                return false;
            info->delaycopy_file.removeAll(file.fileName());
        }
    }

    for (FILE_INFO& info : m_fileInfos) {
        for (const QString& hit : info.delaycopy_hit)
            info.delaycopy_file.removeAll(hit);
    }
    for (const FILE_INFO& info : m_fileInfos) {
        if (!info.delaycopy_file.isEmpty()) {
            emit emitMessage(kel::text(kel::kRuntimeDelayedCopyMissing)
                                 .arg(info.src_path, info.delaycopy_file.first()),
                             Qt::red);
            return false;
        }
    }
    return true;
}

bool downLoadVorn_app::copyFile(QString dest, QString src)
{
    switch (FileCopier::copy(src, dest)) {
    case FileCopier::Ok:
        emit emitMessage(kel::text(kel::kRuntimeFileUpdated).arg(dest), Qt::black);
        return true;
    case FileCopier::SourceUnreadable:
        emit emitMessage(kel::text(kel::kRuntimeFileMissing).arg(src), Qt::red);
        return false;
    default:
        emit emitMessage(kel::text(kel::kCannotWriteFile).arg(dest), Qt::red);
        return false;
    }
}

bool downLoadVorn_app::creatLink()
{
    emit emitMessage(kel::text(kel::kRuntimeUpdatingSettings), Qt::black);
    for (const QFileInfo& file : regularFiles("./")) {
        const QString name = file.fileName();
        if (!name.contains(".so."))
            continue;
        const QString shortName = name.section('.', 0, 2);
        if (shortName == name)
            continue;
        if (::rename(QFile::encodeName(name).constData(),
                     QFile::encodeName(shortName).constData()) != 0) {
            emit emitMessage(kel::text(kel::kRuntimeSettingsNotUpdated).arg(name), Qt::red);
            return false;
        }
    }
    emit emitMessage(kel::text(kel::kRuntimeSettingsUpdated), Qt::black);
    return true;
}

bool downLoadVorn_app::changeFileRight()
{
    for (const QString& name : m_exeFiles) {
        if (DoCmd::run(("chmod a+x " + name).toUtf8().toStdString()) == -1) {
            emit emitMessage(kel::text(kel::kCannotMakeExecutable).arg(name), Qt::red);
            return false;
        }
    }
    emit emitMessage(kel::text(kel::kRuntimeFilesMadeExecutable).arg(QString()), Qt::black);
    return true;
}
