#include "generateconfiginfo.h"

#include "def.h"
#include "multilingual_management.h"
#include "qsettingsfactory.h"

#include <QFile>
#include <QSettings>
#include <memory>

namespace {

int readInt(QSettings* settings, const QString& key)
{
    return settings->value(key).toString().toInt(nullptr, 10);
}

// Each non-blank element of a comma-separated value becomes its own entry; other values one.
void insertSplit(VariantTable& table, const QString& key, const QVariant& value)
{
    if (value.type() != QVariant::StringList) {
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
        emit emitMessage(kel::text(2217).arg(path), Qt::red);
        return nullptr;
    }
    std::unique_ptr<QSettings> settings(
        QSettingsFactory::createQSettings(path, QSettings::IniFormat));
    if (!settings || !countsPlausible(settings.get())) {
        emit emitMessage(kel::text(2218).arg(path), Qt::red);
        return nullptr;
    }
    return settings;
}

bool GenerateConfigInfo::countsPlausible(QSettings* settings)
{
    for (const char* key :
         {"/COPYFILE/COPYFILENUM", "/DELFILE/DELFILENUM", "/EXEFILE/EXEFILENUM"}) {
        if (settings->value(key).toInt() > kel::kMaxManifestCount)
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

    const int copyCount = settings->value("/COPYFILE/COPYFILENUM").toInt();
    for (int n = 1; n <= copyCount; ++n) {
        const QString group = "/COPYFILE" + QString::number(n);
        copyFileInfo_s info;
        info.srcPath = settings->value(group + "/SRCPATH").toString();
        info.destPath = settings->value(group + "/DESTPATH").toString();
        info.size = settings->value(group + "/SIZE").toUInt();
        info.crc32 = settings->value(group + "/CRC32").toString().toUpper();
        info.sizeText = settings->value(group + "/SIZE").toString();
        info.mode = readInt(settings, group + "/MODE");
        info.authority = readInt(settings, group + "/AUTHORITY");
        info.priority = readInt(settings, group + "/PRIORITY");
        m_copyFileSet.insert(info);
    }

    const int delCount = settings->value("/DELFILE/DELFILENUM").toInt();
    for (int n = 1; n <= delCount; ++n) {
        const QString group = "/DELFILE" + QString::number(n);
        delFileInfo_s info;
        info.srcPath = settings->value(group + "/SRCPATH").toString();
        info.mode = readInt(settings, group + "/MODE");
        info.authority = readInt(settings, group + "/AUTHORITY");
        info.priority = readInt(settings, group + "/PRIORITY");
        m_delFileSet.insert(info);
    }

    const int exeCount = settings->value("/EXEFILE/EXEFILENUM").toInt();
    for (int n = 1; n <= exeCount; ++n) {
        exeFileInfo_s info;
        info.srcPath = settings->value("/EXEFILE" + QString::number(n) + "/SRCPATH").toString();
        m_exeFileSet.insert(info);
    }
}

void GenerateConfigInfo::readUpdateConfig(QSettings* settings)
{
    readGroupBool(settings, "/UPDATE", m_updateInfo);
}

void GenerateConfigInfo::readBackUpconfig(QSettings* settings)
{
    readGroupBool(settings, "/BACKUP", m_backUpInfo);
}

void GenerateConfigInfo::readPrepareConfig(QSettings* settings)
{
    settings->value("/PREPARE/PREPARENUM").toInt();
    // Always the three groups, whatever the count says.
    for (int n = 1; n <= 3; ++n)
        readGroupSplit(settings, "/PREPARE" + QString::number(n), m_prepareInfo[n - 1]);
}

void GenerateConfigInfo::readRestartConfig(QSettings* settings)
{
    readGroupSplit(settings, "RESTART", m_restartInfo);
}
