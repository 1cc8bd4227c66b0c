#include "downLoadPro.h"

#include "checksum_memo.h"
#include "def.h"
#include "disk_room.h"
#include "file_copier.h"
#include "link_safe.h"
#include "multilingual_management.h"
#include "package_keys.h"
#include "panel_library.h"
#include "utf8_text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>

namespace {

const char* const kManifest = kel::keys::kProjectManifest;

// "$NAME" references replaced by the environment's values; unknown names stay as written.
QString expandEnvironment(QString value)
{
    if (!value.contains('$'))
        return value;
    for (const QString& entry : QProcess::systemEnvironment()) {
        const QStringList parts = entry.split('=');
        if (parts.size() != 2)
            continue;
        const QString reference = "$" + parts.at(0);
        if (value.contains(reference))
            value.replace(reference, parts.at(1));
    }
    return value;
}

} // namespace

downLoadPro::downLoadPro(QString dir, QObject* parent)
    : QObject(parent), m_projectDir(dir + "project"), m_loadDir(dir)
{
}

bool downLoadPro::init()
{
    return checkProjectFiles() && parseIniFile() && checkFileCRC(CHECK_PACKAGE);
}

bool downLoadPro::startLoadProject(int& progress)
{
    if (!init())
        return false;
    ++progress;
    // A project that does not fit changes nothing on the panel, its saved data included.
    if (!hasRoomForProject())
        return false;
    removeOldSaveData();
    ++progress;
    if (!removeOldProjectFiles())
        return false;
    PanelLibrary::instance().sync();
    ++progress;
    if (!updateProjectFile())
        return false;
    PanelLibrary::instance().sync();
    ++progress;
    if (!checkFileCRC(CHECK_INSTALLED))
        return false;
    PanelLibrary::instance().sync();
    return true;
}

bool downLoadPro::checkProjectFiles()
{
    if (QFileInfo::exists(kManifest))
        return true;
    emit emitMessage(kel::text(kel::kProjectFileMissingOnStick).arg(kManifest), Qt::red);
    return false;
}

bool downLoadPro::parseIniFile()
{
    QSettings settings(kManifest, QSettings::IniFormat);
    kel::useUtf8Ini(settings);
    const int count =
        settings.value(QString(kel::keys::kGlobal) + "/" + kel::keys::kFileCount).toInt();
    // An absurd count is a corrupt manifest: treat it as missing before making any record.
    if (count > kel::kMaxManifestCount) {
        emit emitMessage(kel::text(kel::kProjectFileMissingOnStick).arg(kManifest), Qt::red);
        return false;
    }
    if (count > 0) {
        for (int n = 1; n <= count; ++n) {
            const QString group = kel::keys::kProjectFile + QString::number(n) + "/";
            FILE_INFO info;
            info.name = settings.value(group + kel::keys::kName).toString();
            info.crc = settings.value(group + kel::keys::kCrc).toString();
            info.size = settings.value(group + kel::keys::kSize).toUInt();
            info.desPath =
                expandEnvironment(settings.value(group + kel::keys::kDesPathProject).toString()) +
                "/";
            info.srcPath = "./";
            m_fileInfos.append(info);
        }
    } else {
        emit emitMessage(kel::text(kel::kProjectNoFiles), Qt::black);
    }
    const QString download = QString(kel::keys::kDownload) + "/";
    m_clearRecipe = settings.value(download + kel::keys::kClearRecipe).toInt() != 0;
    m_clearHistory = settings.value(download + kel::keys::kClearHistory).toInt() != 0;
    m_clearAlarm = settings.value(download + kel::keys::kClearAlarm).toInt() != 0;
    m_clearInitValue = settings.value(download + kel::keys::kClearInitValue).toInt() != 0;
    return true;
}

bool downLoadPro::checkFileCRC(downLoadStatus status)
{
    const bool installed = status == CHECK_INSTALLED;
    if (installed)
        emit emitMessage(kel::text(kel::kProjectCheckingNewData), Qt::black);
    for (const FILE_INFO& info : m_fileInfos) {
        const QString path = (installed ? info.desPath : info.srcPath) + info.name;
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            emit emitMessage(kel::text(installed ? kel::kProjectNewFileMissing
                                                 : kel::kProjectDataFileMissingOnStick)
                                 .arg(path),
                             Qt::red);
            return false;
        }
        const qint64 size = file.size();
        file.close();
        if (size > 0xFFFFFFFFLL || quint32(size) != info.size) {
            emit emitMessage(
                kel::text(installed ? kel::kProjectNewFileWrongSize : kel::kProjectStickFileWrong)
                    .arg(path),
                Qt::red);
            return false;
        }
        // The package's files are checked before the update and again here: an unchanged one is
        // not read twice. The installed files are always read.
        quint32 crc = 0;
        const bool computed = installed ? CalcFileCrc(QFile::encodeName(path), crc)
                                        : ChecksumMemo::crc32Of(path, &crc);
        if (!computed || QString::number(crc, 16) != info.crc) {
            emit emitMessage(kel::text(installed ? kel::kProjectNewFileCrcFailed
                                                 : kel::kProjectStickFileCrcFailed)
                                 .arg(path),
                             Qt::red);
            return false;
        }
    }
    if (installed)
        emit emitMessage(kel::text(kel::kProjectNewDataChecked), Qt::black);
    return true;
}

bool downLoadPro::CalcFileCrc(const QByteArray& path, quint32& crc)
{
    crc = 0;
    quint32 value = 0;
    if (!FileCopier::crc32Of(QFile::decodeName(path), &value))
        return false;
    crc = value;
    return true;
}

bool downLoadPro::removeOldSaveData()
{
    const int mask = (m_clearRecipe ? 1 : 0) | (m_clearHistory ? 2 : 0) | (m_clearAlarm ? 4 : 0) |
                     (m_clearInitValue ? 8 : 0);
    const int failed = PanelLibrary::instance().delSaveData(mask, 0);
    struct Kind
    {
        bool requested;
        int bit;
        kel::TextId success, failure;
        Qt::GlobalColor failureColour;
    };
    // Only a failed recipe clearing is shown in red.
    const Kind kinds[] = {
        {m_clearRecipe, 1, kel::kProjectRecipeDeleted, kel::kProjectRecipeNotDeleted, Qt::red},
        {m_clearHistory, 2, kel::kProjectHistoryDeleted, kel::kProjectHistoryNotDeleted, Qt::black},
        {m_clearAlarm, 4, kel::kProjectAlarmsDeleted, kel::kProjectAlarmsNotDeleted, Qt::black},
        {m_clearInitValue, 8, kel::kProjectInitialValuesDeleted,
         kel::kProjectInitialValuesNotDeleted, Qt::black}};
    for (const Kind& kind : kinds) {
        if (!kind.requested)
            continue;
        if (failed & kind.bit)
            emit emitMessage(kel::text(kind.failure), kind.failureColour);
        else
            emit emitMessage(kel::text(kind.success), Qt::black);
    }
    return true;
}

bool downLoadPro::hasRoomForProject()
{
    DiskRoom room;
    room.addOld(m_projectDir);
    for (const FILE_INFO& info : m_fileInfos) {
        room.addNew(info.desPath + info.name, QFileInfo(info.srcPath + info.name).size());
        room.addOld(info.desPath + info.name);
    }
    QString shortage;
    if (room.enough(&shortage))
        return true;
    emit emitMessage(shortage, Qt::red);
    return false;
}

bool downLoadPro::removeOldProjectFiles()
{
    emit emitMessage(kel::text(kel::kProjectDeletingOldData), Qt::black);
    if (removeDir(m_projectDir) && QDir().mkdir(m_projectDir)) {
        emit emitMessage(kel::text(kel::kProjectOldDataDeleted), Qt::black);
        return true;
    }
    emit emitMessage(kel::text(kel::kProjectOldDataNotDeleted), Qt::red);
    return false;
}

bool downLoadPro::removeDir(const QString& path)
{
    // A linked project folder or a link inside it goes as a link; its target stays as it is.
    if (LinkSafe::isLink(path))
        return LinkSafe::remove(path);
    if (!QDir(path).exists())
        return true;
    const QFileInfoList entries = LinkSafe::entries(
        path, QDir::Files | QDir::AllDirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        const bool removed = LinkSafe::isDir(entry) ? removeDir(entry.absoluteFilePath())
                                                    : LinkSafe::remove(entry.absoluteFilePath());
        if (!removed)
            return false;
    }
    return QDir().rmdir(path);
}

bool downLoadPro::updateProjectFile()
{
    emit emitMessage(kel::text(kel::kProjectCopyingNewData), Qt::black);
    for (const FILE_INFO& info : m_fileInfos) {
        const QString source = info.srcPath + info.name;
        const QString destination = info.desPath + info.name;
        if (!QFileInfo::exists(info.desPath))
            QDir().mkpath(info.desPath);
        switch (FileCopier::copy(source, destination)) {
        case FileCopier::Ok:
            break;
        case FileCopier::SourceUnreadable:
        case FileCopier::ReadFailed:
            emit emitMessage(kel::text(kel::kProjectStickDisconnected), Qt::red);
            return false;
        default:
            emit emitMessage(kel::text(kel::kCannotWriteFile).arg(destination), Qt::red);
            return false;
        }
        emit emitMessage(kel::text(kel::kProjectFileCopied).arg(destination), Qt::black);
    }
    emit emitMessage(kel::text(kel::kProjectNewDataCopied), Qt::black);
    return true;
}

bool downLoadPro::checkVersion(QString version)
{
    if (QString("1.0.0.0") < version) {
        emit emitMessage(kel::text(kel::kProjectUpdateSystemFirst), Qt::black);
        return false;
    }
    return true;
}
