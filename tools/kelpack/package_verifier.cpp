#include "package_verifier.h"

#include "downLoadPro.h"
#include "downLoadVorn_app.h"
#include "file_operation_c.h"
#include "generateconfiginfo.h"
#include "package_signer.h"
#include "qsettingsfactory.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <algorithm>
#include <cstring>
#include <memory>

namespace {

// Collects the failure lines a class of the updater reports, as the panel would show them.
class MessageCollector : public QObject
{
public:
    QStringList lines;
    void take(QString text, QColor colour)
    {
        if (colour == QColor(Qt::red))
            lines << text.simplified();
    }
};

template <typename Worker> void collect(Worker* worker, MessageCollector* collector)
{
    QObject::connect(worker, &Worker::emitMessage, collector, &MessageCollector::take);
}

bool shellSafe(const QString& path)
{
    static const QRegularExpression unsafe("[\\s;&|<>()$`\\\\\"'*?\\[\\]#~]");
    return !path.contains(unsafe);
}

QString crcRule(const QString& crc, bool lowerCase)
{
    if (crc.isEmpty())
        return QString();
    if (crc.size() > 1 && crc.startsWith('0'))
        return "has a leading zero, which never matches: write it without leading zeros";
    if (lowerCase && crc != crc.toLower())
        return "must be lower case for the project check";
    if (!QRegularExpression("^[0-9A-Fa-f]{1,8}$").match(crc).hasMatch())
        return "is not a CRC-32 in hexadecimal";
    return QString();
}

} // namespace

PackageVerifier::PackageVerifier(const QString& packageDir) : m_dir(QDir(packageDir).absolutePath())
{
}

void PackageVerifier::add(bool error, const QString& file, const QString& key,
                          const QString& message)
{
    m_findings.append({error, file, key, message});
}

bool PackageVerifier::hasErrors() const
{
    for (const Finding& finding : m_findings) {
        if (finding.error)
            return true;
    }
    return false;
}

QSettings* PackageVerifier::openScrambled(const QString& path)
{
    const QString plain = m_scratch + "/m" + QString::number(++m_opened) + ".ini";
    if (!QSettingsFactory::decryptFile(path, plain, QSettingsFactory::CRYPT_CHECKED))
        return nullptr;
    checkRawText(QDir(m_dir).relativeFilePath(path), plain);
    auto* settings = new QSettings(plain, QSettings::IniFormat);
    settings->setIniCodec("UTF-8");
    return settings;
}

void PackageVerifier::checkRawText(const QString& file, const QString& plainPath)
{
    QFile plain(plainPath);
    plain.open(QIODevice::ReadOnly);
    for (const QString& line : QString::fromUtf8(plain.readAll()).split('\n')) {
        const QString trimmed = line.trimmed();
        const int equals = trimmed.indexOf('=');
        if (equals < 0 || trimmed.startsWith('#') || trimmed.startsWith(';'))
            continue;
        const QString key = trimmed.left(equals).trimmed();
        const QString value = trimmed.mid(equals + 1).trimmed();
        if (value.startsWith('"'))
            continue;
        if (value.contains(';'))
            add(true, file, key, "the value is cut at \";\": put the whole value in double quotes");
        else if (key == "COMMAND" && value.contains(','))
            add(true, file, key,
                "the command is split at \",\" and only its first part runs: put it in double "
                "quotes");
    }
}

void PackageVerifier::checkCounts(const QString& file, QSettings& settings, const char* section,
                                  const char* countKey)
{
    const int count = settings.value(QString(section) + "/" + countKey).toInt();
    if (count > 100000) {
        add(true, file, QString(section) + "/" + countKey,
            "the count is absurd and the updater refuses the whole manifest");
        return;
    }
    QList<int> present;
    for (const QString& group : settings.childGroups()) {
        bool numeric = false;
        const int n = group.mid(int(strlen(section))).toInt(&numeric);
        if (group.startsWith(section) && numeric)
            present << n;
    }
    for (int n : present) {
        if (n > count || n < 1)
            add(false, file, QString("%1%2").arg(section).arg(n),
                QString("is ignored: %1 is %2. Raise the count or remove the section")
                    .arg(countKey)
                    .arg(count));
    }
    for (int n = 1; n <= count; ++n) {
        if (!present.contains(n))
            add(true, file, QString("%1%2").arg(section).arg(n),
                QString("is missing although %1 is %2: the updater makes an empty record of it")
                    .arg(countKey)
                    .arg(count));
    }
}

bool PackageVerifier::itemRequested(QSettings& settings, const char* key) const
{
    return settings.value(QString("UPDATE/") + key).toBool();
}

void PackageVerifier::checkOperationManifest(const QString& folder, const QString& file,
                                             bool packageWide)
{
    const QString path = m_dir + "/" + file;
    if (!QFileInfo::exists(path)) {
        add(true, file, "", "is missing");
        return;
    }
    std::unique_ptr<QSettings> raw(openScrambled(path));
    if (!raw) {
        add(true, file, "",
            "is not a scrambled manifest (BOM and \"#\" first line): build it with kelpack");
        return;
    }
    checkCounts(file, *raw, "COPYFILE", "COPYFILENUM");
    checkCounts(file, *raw, "DELFILE", "DELFILENUM");
    checkCounts(file, *raw, "EXEFILE", "EXEFILENUM");

    GenerateConfigInfo reader;
    MessageCollector messages;
    collect(&reader, &messages);
    const bool read = packageWide ? reader.readIni(path) : reader.readFileOpConfig(path);
    if (!read) {
        add(true, file, "", messages.lines.join("; "));
        return;
    }
    const QString back = QDir::currentPath();
    QDir::setCurrent(m_dir + "/" + folder);
    file_operation_c engine("verify");
    collect(&engine, &messages);
    int n = 0;
    for (const copyFileInfo_s& info : reader.getCopyFileSet()) {
        const QString key = "COPYFILE (" + info.srcPath + ")";
        ++n;
        if (info.mode < 0 || info.mode > 2) {
            add(true, file, key,
                QString("MODE %1 does nothing on the panel: use 0, 1 or 2").arg(info.mode));
            continue;
        }
        if (!info.destPath.startsWith('/'))
            add(true, file, key, "DESTPATH " + info.destPath + " is not absolute");
        const QString rule =
            crcRule(raw->value(QString("COPYFILE%1/CRC32").arg(n)).toString(), false);
        if (!rule.isEmpty())
            add(true, file, key, "CRC32 " + rule);
        messages.lines.clear();
        if (!engine.checkCopyFile(CopyFileSet{info}))
            add(true, file, key,
                (messages.lines.isEmpty() ? QString("the source is missing or not of its mode")
                                          : messages.lines.join("; ")) +
                    ": fix the file or the record");
    }
    for (const delFileInfo_s& info : reader.getDelFileSet()) {
        if (info.mode < 0 || info.mode > 2)
            add(true, file, "DELFILE (" + info.srcPath + ")",
                QString("MODE %1 does nothing on the panel: use 0, 1 or 2").arg(info.mode));
        if (!info.srcPath.startsWith('/'))
            add(true, file, "DELFILE (" + info.srcPath + ")", "SRCPATH is not absolute");
    }
    for (const exeFileInfo_s& info : reader.getExeFileSet()) {
        if (!shellSafe(info.srcPath))
            add(true, file, "EXEFILE (" + info.srcPath + ")",
                "the shell would split or expand this path: rename the file");
        if (!info.srcPath.startsWith('/'))
            add(true, file, "EXEFILE (" + info.srcPath + ")", "SRCPATH is not absolute");
    }
    if (packageWide) {
        const VariantTable restart = reader.getReStartInfo();
        for (const char* key : {"AUTOSTART", "AUTOSTOP"}) {
            for (auto range = restart.equal_range(key); range.first != range.second;
                 ++range.first) {
                if (!shellSafe(range.first->second.toString()))
                    add(true, file, QString("RESTART/") + key,
                        "service name " + range.first->second.toString() +
                            " would be split by the shell");
            }
        }
    }
    QDir::setCurrent(back);
}

void PackageVerifier::checkRuntime()
{
    const QString file = "vorn_app/update.ini";
    const QString back = QDir::currentPath();
    if (!QDir::setCurrent(m_dir + "/vorn_app")) {
        add(true, "vorn_app", "", "the runtime folder is missing although UPVORN_APP is set");
        return;
    }
    downLoadVorn_app runtime;
    MessageCollector messages;
    collect(&runtime, &messages);
    if (!runtime.checkFile(downLoadVorn_app::CHECK_PACKAGE))
        add(true, "vorn_app/" + runtime.versionFile(), "", messages.lines.join("; "));
    messages.lines.clear();
    if (!runtime.parseIniFile()) {
        add(true, file, "", messages.lines.join("; "));
        QDir::setCurrent(back);
        return;
    }
    std::unique_ptr<QSettings> raw(openScrambled("update.ini"));
    int n = 0;
    for (downLoadVorn_app::FILE_INFO info : runtime.fileInfos()) {
        const QString key = QString("FILE%1").arg(++n);
        if (!info.des_path.startsWith('/') || !info.des_path.endsWith('/'))
            add(true, file, key, "des_path must be absolute and end with \"/\"");
        if (!info.src_path.endsWith('/'))
            add(true, file, key, "src_path must end with \"/\"");
        if (info.file_name != "*") {
            if (!info.delaycopy_file.isEmpty())
                add(false, file, key, "delaycopy_file only works on a \"*\" record");
            continue;
        }
        const QStringList names = QDir(info.src_path).entryList(QDir::Files | QDir::Hidden);
        for (const QString& pattern : info.delaycopy_file) {
            const bool prefix = pattern.endsWith('+');
            const bool matched = std::any_of(names.begin(), names.end(), [&](const QString& name) {
                return prefix ? name.startsWith(pattern.chopped(1)) : name == pattern;
            });
            if (!matched)
                add(true, file, key + "/delaycopy_file",
                    "pattern \"" + pattern + "\" matches no file of " + info.src_path +
                        ": the installation fails after copying");
        }
    }
    for (const QString& exe : runtime.exeFiles()) {
        if (!shellSafe(exe))
            add(true, file, "EXE (" + exe + ")", "the shell would split or expand this path");
    }
    QDir::setCurrent(back);
}

void PackageVerifier::checkProject()
{
    const QString back = QDir::currentPath();
    if (!QDir::setCurrent(m_dir + "/project")) {
        add(true, "project", "", "the project folder is missing although UPPROJECT is set");
        return;
    }
    QSettings raw("project.ini", QSettings::IniFormat);
    raw.setIniCodec("UTF-8");
    const int count = raw.value("GLOBAL/FILENUM").toInt();
    for (int n = 1; n <= count && n <= 100000; ++n) {
        const QString key = QString("FILE%1/CRC").arg(n);
        const QString rule = crcRule(raw.value(key).toString(), true);
        if (!rule.isEmpty())
            add(true, "project/project.ini", key, "CRC " + rule);
        const QString dest = raw.value(QString("FILE%1/DESPATH").arg(n)).toString();
        if (!dest.startsWith('/') && !dest.startsWith('$'))
            add(true, "project/project.ini", QString("FILE%1/DESPATH").arg(n), "is not absolute");
    }
    downLoadPro project("/usr/vorn_app/");
    MessageCollector messages;
    collect(&project, &messages);
    if (!project.init())
        add(true, "project/project.ini", "", messages.lines.join("; "));
    QDir::setCurrent(back);
}

void PackageVerifier::verify()
{
    QTemporaryDir scratch;
    m_scratch = scratch.path();
    QSettingsFactory::setScratchPath(m_scratch + "/opened.ini");
    checkOperationManifest(".", "update.ini", true);
    std::unique_ptr<QSettings> manifest;
    if (QFileInfo::exists(m_dir + "/update.ini"))
        manifest.reset(openScrambled(m_dir + "/update.ini"));
    if (manifest) {
        if (itemRequested(*manifest, "UPSYSTEM"))
            checkOperationManifest("system", "system/update.ini", false);
        if (itemRequested(*manifest, "UPVORN_APP"))
            checkRuntime();
        if (itemRequested(*manifest, "UPPROJECT"))
            checkProject();
        if (itemRequested(*manifest, "UPKELINFO"))
            checkOperationManifest("kelinfo", "kelinfo/update.ini", false);
    }
    if (!QFileInfo::exists(m_dir + "/kelloadui.bin"))
        add(false, "kelloadui.bin", "", "the program is not in the package folder");
    PackageSigner::audit(m_dir, m_keysDir,
                         [this](bool error, const QString& file, const QString& message) {
                             add(error, file, "", message);
                         });
}

QString PackageVerifier::text() const
{
    QString out;
    for (const Finding& f : m_findings)
        out += QString("%1 %2%3: %4\n")
                   .arg(f.error ? "error:  " : "warning:", f.file,
                        f.key.isEmpty() ? QString() : ": " + f.key, f.message);
    return out;
}

QString PackageVerifier::json() const
{
    QJsonArray list;
    for (const Finding& f : m_findings)
        list.append(QJsonObject{{"severity", f.error ? "error" : "warning"},
                                {"file", f.file},
                                {"key", f.key},
                                {"message", f.message}});
    return QString::fromUtf8(
        QJsonDocument(QJsonObject{{"package", m_dir}, {"ok", !hasErrors()}, {"findings", list}})
            .toJson());
}
