#include "generateconfiginfo.h"

#include "def.h"
#include "multilingual_management.h"
#include "package_keys.h"
#include "qsettingsfactory.h"

#include <QFile>
#include <QSettings>
#include <memory>

using namespace kel::keys;

namespace {

// The path of a key in a group, as QSettings takes it.
QString at(const QString& group, const char* key)
{
    return group + "/" + key;
}

int readInt(QSettings* settings, const QString& key)
{
    return settings->value(key).toString().toInt(nullptr, 10);
}

// Each non-blank element of a comma-separated value becomes its own entry; other values one.
void insertSplit(VariantTable& table, const QString& key, const QVariant& value)
{
    if (value.userType() != QMetaType::QStringList) {
        table.insert({key, value});
        return;
    }
    for (const QString& element : value.toStringList()) {
        const QString trimmed = element.trimmed();
        if (!trimmed.isEmpty())
            table.insert({key, trimmed});
    }
}

void readGroupSplit(QSettings* settings, const QString& group, VariantTable& table)
{
    table.clear();
    settings->beginGroup(group);
    for (const QString& key : settings->childKeys())
        insertSplit(table, key, settings->value(key));
    settings->endGroup();
}

void readGroupBool(QSettings* settings, const QString& group, BoolTable& table)
{
    table.clear();
    settings->beginGroup(group);
    for (const QString& key : settings->childKeys())
        table.insert({key, settings->value(key).toBool()});
    settings->endGroup();
}

} // namespace

GenerateConfigInfo::GenerateConfigInfo()
    : m_prepareInfo({VariantTable(), VariantTable(), VariantTable()})
{
}

std::unique_ptr<QSettings> GenerateConfigInfo::openManifest(const QString& path)
{
    if (!QFile::exists(path)) {
        emit emitMessage(kel::text(kel::kIniFileMissing).arg(path), Qt::red);
        return nullptr;
    }
    std::unique_ptr<QSettings> settings(
        QSettingsFactory::createQSettings(path, QSettings::IniFormat));
    if (!settings || !countsPlausible(settings.get())) {
        emit emitMessage(kel::text(kel::kIniFileMissingOrInvalid).arg(path), Qt::red);
        return nullptr;
    }
    return settings;
}

bool GenerateConfigInfo::countsPlausible(QSettings* settings)
{
    for (const auto& count :
         {at(kCopy, kCopyCount), at(kDelete, kDeleteCount), at(kExe, kExeCount)}) {
        if (settings->value(count).toInt() > kel::kMaxManifestCount)
            return false;
    }
    return true;
}

bool GenerateConfigInfo::readIni(QString path)
{
    std::unique_ptr<QSettings> settings = openManifest(path);
    if (!settings)
        return false;
    readPrepareConfig(settings.get());
    readFileOpConfig(settings.get());
    readUpdateConfig(settings.get());
    readBackUpconfig(settings.get());
    readRestartConfig(settings.get());
    return true;
}

bool GenerateConfigInfo::readFileOpConfig(QString path)
{
    m_delFileSet.clear();
    m_copyFileSet.clear();
    m_exeFileSet.clear();
    std::unique_ptr<QSettings> settings = openManifest(path);
    if (!settings)
        return false;
    readFileOpConfig(settings.get());
    return true;
}

void GenerateConfigInfo::readFileOpConfig(QSettings* settings)
{
    // The grant-execute set is deliberately not emptied here.
    m_copyFileSet.clear();
    m_delFileSet.clear();

    const int copyCount = settings->value(at(kCopy, kCopyCount)).toInt();
    for (int n = 1; n <= copyCount; ++n) {
        const QString group = kCopy + QString::number(n);
        copyFileInfo_s info;
        info.srcPath = settings->value(at(group, kSrcPath)).toString();
        info.destPath = settings->value(at(group, kDestPath)).toString();
        const QVariant size = settings->value(at(group, kSize));
        info.size = size.toUInt();
        info.crc32 = settings->value(at(group, kCrc32)).toString().toUpper();
        info.sizeText = size.toString();
        info.mode = readInt(settings, at(group, kMode));
        info.authority = readInt(settings, at(group, kAuthority));
        info.priority = readInt(settings, at(group, kPriority));
        m_copyFileSet.insert(info);
    }

    const int delCount = settings->value(at(kDelete, kDeleteCount)).toInt();
    for (int n = 1; n <= delCount; ++n) {
        const QString group = kDelete + QString::number(n);
        delFileInfo_s info;
        info.srcPath = settings->value(at(group, kSrcPath)).toString();
        info.mode = readInt(settings, at(group, kMode));
        info.authority = readInt(settings, at(group, kAuthority));
        info.priority = readInt(settings, at(group, kPriority));
        m_delFileSet.insert(info);
    }

    const int exeCount = settings->value(at(kExe, kExeCount)).toInt();
    for (int n = 1; n <= exeCount; ++n) {
        exeFileInfo_s info;
        info.srcPath = settings->value(at(kExe + QString::number(n), kSrcPath)).toString();
        m_exeFileSet.insert(info);
    }
}

void GenerateConfigInfo::readUpdateConfig(QSettings* settings)
{
    readGroupBool(settings, kUpdate, m_updateInfo);
}

void GenerateConfigInfo::readBackUpconfig(QSettings* settings)
{
    readGroupBool(settings, kBackup, m_backUpInfo);
}

void GenerateConfigInfo::readPrepareConfig(QSettings* settings)
{
    settings->value(at(kPrepare, kPrepareCount)).toInt();
    // Always the three groups, whatever the count says.
    for (int n = 1; n <= kPrepareTables; ++n)
        readGroupSplit(settings, kPrepare + QString::number(n), m_prepareInfo[n - 1]);
}

void GenerateConfigInfo::readRestartConfig(QSettings* settings)
{
    readGroupSplit(settings, kRestart, m_restartInfo);
}
