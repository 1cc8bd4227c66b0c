#include "package_verifier.h"

#include "def.h"
#include "downLoadPro.h"
#include "downLoadVorn_app.h"
#include "elf_needed.h"
#include "end_state_check.h"
#include "file_copier.h"
#include "file_operation_c.h"
#include "folder_run.h"
#include "generateconfiginfo.h"
#include "manifest_lint.h"
#include "package_keys.h"
#include "package_signer.h"
#include "program_arch.h"
#include "qsettingsfactory.h"
#include "record_rules.h"
#include "stick_builder.h"
#include "stick_manifest.h"
#include "stick_sources.h"
#include "text_encoding.h"
#include "utf8_text.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <algorithm>
#include <memory>

using namespace kel::keys;

namespace {

const char kRootManifest[] = "update.ini";
const char kRuntimeFolder[] = "vorn_app";
const char kProjectFolderName[] = "project";

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

// Direct: the updater's checks may run on the thread of their package folder.
template <typename Worker> void collect(Worker* worker, MessageCollector* collector)
{
    QObject::connect(worker, &Worker::emitMessage, collector, &MessageCollector::take,
                     Qt::DirectConnection);
}

QString modeText(int mode)
{
    switch (mode) {
    case 0:
        return "file";
    case 1:
        return "the files of a folder";
    default:
        return "a folder tree";
    }
}

QByteArray md5Of(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Md5);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return QByteArray();
    return hash.result();
}

bool sameContent(const QString& a, const QString& b)
{
    if (QFileInfo(a).canonicalFilePath() == QFileInfo(b).canonicalFilePath())
        return true;
    return QFileInfo(a).size() == QFileInfo(b).size() && md5Of(a) == md5Of(b) &&
           !md5Of(a).isEmpty();
}

QString crcOf(const QString& path)
{
    quint32 crc = 0;
    return FileCopier::crc32Of(path, &crc) ? QString::number(crc, 16) : QString();
}

QString unitFile(const QString& name)
{
    return QString(kel::kSystemdUnitDir) + kel::kServiceUnitPrefix + name + kel::kServiceUnitSuffix;
}

QStringList entries(const VariantTable& table, const char* key)
{
    QStringList values;
    for (auto range = table.equal_range(key); range.first != range.second; ++range.first)
        values << range.first->second.toString();
    return values;
}

const bool* firstBool(const BoolTable& table, const char* key)
{
    const auto it = table.find(key);
    return it == table.end() ? nullptr : &it->second;
}

// The file a shell runs first in a command line: the program, or the script given to a shell.
QStringList commandFiles(const QString& command, bool* runDirectly)
{
    static const QStringList shells{"sh", "bash", "ash", "/bin/sh", "/bin/bash", "/bin/ash"};
    const QStringList words = command.split(QRegularExpression("\\s+"), Qt::SkipEmptyParts);
    *runDirectly = false;
    if (words.isEmpty())
        return {};
    if (shells.contains(words[0]))
        return words.size() > 1 && !words[1].startsWith('-') ? QStringList{words[1]}
                                                             : QStringList();
    if (!words[0].contains('/'))
        return {};
    *runDirectly = true;
    return {words[0]};
}

// What a step finds at its target, as the plan has the panel at that moment: a target already
// gone fails every panel (error), one the package does not make is up to the panel (warning),
// unless the panel is given: then it is there or missing for certain.
// %1: the target, %2: the record that removed it, %3: what the step names, %4: the key.
struct TargetRule
{
    const char* gone;
    const char* goneFix;
    const char* unknown;
    const char* unknownFix;
    const char* missing; // from a panel named with --panel, which is certain
};
const TargetRule kTargetRules[] = {
    // PackageVerifier::Delete
    {"%1 is already gone when the delete runs (%2 removed it): under -s the check of the delete "
     "set fails the run, without -s the panel shows a red line",
     "remove the record",
     "%1 is not a file the package creates: whether it exists depends on the panel. On a panel "
     "without it, a second run of this stick included, the run fails under -s and shows a red "
     "line without -s",
     "keep the record only if every panel still has the file",
     "%1 is not on the panel: under -s the check of the delete set fails the run, without -s the "
     "panel shows a red line"},
    // PackageVerifier::Grant
    {"%1 is gone when the right is granted (%2 removed it): the run fails",
     "grant only files the package installs",
     "%1 is not installed by the package: the run fails on a panel without it",
     "copy the file in the same package, or keep the record only if every panel has it",
     "%1 is neither on the panel nor installed by the package: the run fails"},
    // PackageVerifier::RuntimeGrant
    {"%1 is not there when the right is granted (%2 removed it): chmod fails unseen and the "
     "program reports success",
     "the name of a file the records install in %3",
     "%1 is not installed by the package: it is made executable only if the panel has it",
     "the name of a file the records install in %3",
     "%1 is neither on the panel nor installed by the package: chmod fails unseen and the "
     "program reports success"},
    // PackageVerifier::Start
    {"%1 is gone by then (%2 removed it): the run fails", "remove %3 from %4",
     "%1 is a unit no copy ships: the run fails at its last step on a panel without it",
     "a copy of the unit with DESTPATH=%1",
     "%1 is neither on the panel nor shipped by a copy: the run fails at its last step"},
    // PackageVerifier::Stop
    {"%1 is gone by then (%2 removed it): the run fails", "remove %3 from %4",
     "%1 is not shipped by the package: the run fails on a panel without it, a second run of "
     "this stick included",
     "keep it only if every panel has the unit", "%1 is not on the panel: the run fails"},
    // PackageVerifier::Command
    {"%1 is gone when the command runs (%2 removed it): the command fails and the program "
     "reports it as run",
     "a command that names a file the package installs",
     "%1 is not installed by the package: on a panel without it the command fails and the "
     "program still reports it as run",
     "copy %1 in the same package",
     "%1 is neither on the panel nor installed by the package: the command fails and the "
     "program still reports it as run"},
};

// A program the shell cannot run unless the file may be executed: a script or a binary.
bool isExecutable(const QString& path, const QString& name)
{
    QFile file(path);
    // No path: a file the program rewrote, no longer the stick's.
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray head = file.read(4);
    return head.startsWith("#!") || (head == "\x7f"
                                             "ELF" &&
                                     !name.contains(".so"));
}

} // namespace

PackageVerifier::PackageVerifier(const QString& packageDir, const QString& treeDir)
    : m_dir(QDir(packageDir).absolutePath()),
      m_tree(treeDir.isEmpty() ? QString() : QDir(treeDir).absolutePath())
{
}

void PackageVerifier::add(bool error, const QString& file, const QString& section,
                          const QString& key, const QString& problem, const QString& fix,
                          const QString& expected, const QString& actual)
{
    VerifyReport::Finding finding;
    finding.error = error;
    finding.file = file;
    const ManifestText* manifest = text(file);
    finding.line = manifest ? manifest->lineOf(section, key) : 0;
    finding.section = section;
    finding.key = key;
    finding.problem = problem;
    finding.fix = fix;
    finding.expected = expected;
    finding.actual = actual;
    m_report.add(finding);
}

PanelModel::State PackageVerifier::checkTarget(TargetStep kind, const QString& file,
                                               const QString& section, const QString& key,
                                               const QString& target, PanelModel::State state,
                                               const QString& remover, const QString& named)
{
    const TargetRule& rule = kTargetRules[kind];
    const QStringList values{target, remover, named, key};
    if (state == PanelModel::Unknown && m_panelCertain) {
        if (m_panelFiles.contains(PanelModel::clean(target)))
            return PanelModel::Present;
        add(true, file, section, key, EndStateCheck::fill(rule.missing, values),
            EndStateCheck::fill(rule.unknownFix, values));
        return PanelModel::Absent;
    }
    if (state == PanelModel::Absent)
        add(true, file, section, key, EndStateCheck::fill(rule.gone, values),
            EndStateCheck::fill(rule.goneFix, values));
    else if (state == PanelModel::Unknown)
        add(false, file, section, key, EndStateCheck::fill(rule.unknown, values),
            EndStateCheck::fill(rule.unknownFix, values));
    return state;
}

void PackageVerifier::step(const QString& action, const QString& target, const QString& source,
                           const QString& detail)
{
    QString change;
    if (action.startsWith("copy") && !target.isEmpty())
        change = changeOf(target);
    else if (action.startsWith("delete") || action.startsWith("remove"))
        change = "removes";
    else if (action == "replace folder")
        change = "replaces";
    m_report.addStep({m_phase, action, target, source, detail, change});
}

PanelModel::State PackageVerifier::dirState(const QString& dir) const
{
    const PanelModel::State state = m_panel.dirState(dir);
    if (state != PanelModel::Unknown || !m_panelCertain)
        return state;
    return m_panelDirs.contains(PanelModel::clean(dir)) ? PanelModel::Present : PanelModel::Absent;
}

QString PackageVerifier::changeOf(const QString& path) const
{
    switch (m_panel.file(path).state) {
    case PanelModel::Present:
        return "replaces";
    case PanelModel::Absent:
        return "adds";
    case PanelModel::Unknown:
        break;
    }
    if (!m_panelGiven)
        return "adds or replaces";
    return m_panelFiles.contains(PanelModel::clean(path)) ? "replaces" : "adds";
}

bool PackageVerifier::setPanel(const QString& copyOrListing, QString* error, bool certain)
{
    m_panelCertain = certain;
    const QFileInfo given(copyOrListing);
    m_panelFiles.clear();
    if (given.isDir()) {
        const QString root = given.absoluteFilePath();
        QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next().mid(root.size());
            m_panelFiles.insert(path);
            if (it.fileInfo().isDir() && !it.fileInfo().isSymLink())
                m_panelDirs.insert(path);
        }
    } else if (given.isFile()) {
        QFile listing(copyOrListing);
        if (!listing.open(QIODevice::ReadOnly)) {
            *error = copyOrListing + ": cannot be read";
            return false;
        }
        // A listing names a folder by the entries below it, or with a trailing "/".
        for (const QByteArray& line : listing.readAll().split('\n')) {
            const QString path = QString::fromUtf8(line).trimmed();
            if (!path.startsWith('/'))
                continue;
            m_panelFiles.insert(PanelModel::clean(path));
            if (path.endsWith('/'))
                m_panelDirs.insert(PanelModel::clean(path));
            for (QString dir = PanelModel::clean(path).section('/', 0, -2); !dir.isEmpty();
                 dir = dir.section('/', 0, -2))
                m_panelDirs.insert(dir);
        }
    } else {
        *error = copyOrListing + ": no such folder or listing: name a copy of the panel's root "
                                 "folder, or a file listing its paths (find / -xdev > panel.txt)";
        return false;
    }
    m_panelGiven = true;
    return true;
}

void PackageVerifier::summarizeEndState()
{
    VerifyReport::EndState end;
    end.installed = m_panel.present();
    for (const QString& path : end.installed)
        end.sources << (m_panel.file(path).source.isEmpty()
                            ? QString()
                            : QDir(m_dir).relativeFilePath(m_panel.file(path).source));
    if (m_panelGiven) {
        for (const QString& path : end.installed)
            (m_panelFiles.contains(path) ? end.replaced : end.added) << path;
        for (const QString& path : m_panelFiles) {
            if (!m_panelDirs.contains(path) && m_panel.file(path).state == PanelModel::Absent)
                end.removed << path;
        }
        end.removed.sort();
    }
    end.summary = QString("%1 files installed").arg(end.installed.size());
    if (m_panelGiven)
        end.summary += QString(" (%1 new, %2 replaced), %3 of the panel's files removed")
                           .arg(end.added.size())
                           .arg(end.replaced.size())
                           .arg(end.removed.size());
    const PanelModel::File program = m_panel.file(kel::kVornAppProgram);
    if (program.state == PanelModel::Absent)
        end.summary += "; the runtime program is gone";
    else if (program.state == PanelModel::Present)
        end.summary += "; the runtime program is the package's";
    else if (!m_panelCertain)
        end.summary += "; the runtime program stays as it was";
    else
        end.summary += m_panelFiles.contains(kel::kVornAppProgram)
                           ? "; the runtime program stays the panel's own"
                           : "; the panel has no runtime program";
    m_report.setEndState(end);
}

const ManifestText* PackageVerifier::text(const QString& file)
{
    if (file.isEmpty() || !file.endsWith(".ini"))
        return nullptr;
    auto known = m_texts.find(file);
    if (known != m_texts.end())
        return &known.value();
    ManifestText manifest;
    QString path = (m_tree.isEmpty() ? m_dir : m_tree) + "/" + file;
    if (m_tree.isEmpty() && file.endsWith(kRootManifest)) {
        path = m_scratch + "/text" + QString::number(m_texts.size()) + ".ini";
        if (!QSettingsFactory::decryptFile(m_dir + "/" + file, path,
                                           QSettingsFactory::CRYPT_CHECKED))
            return nullptr;
    }
    if (!QFileInfo(path).isFile() || !manifest.load(path))
        return nullptr;
    return &m_texts.insert(file, manifest).value();
}

QSettings* PackageVerifier::openScrambled(const QString& file)
{
    // A file of its own for each: the settings reader caches files by their path.
    const QString plain = m_scratch + "/read" + QString::number(++m_opened) + ".ini";
    if (!QSettingsFactory::decryptFile(m_dir + "/" + file, plain, QSettingsFactory::CRYPT_CHECKED))
        return nullptr;
    auto* settings = new QSettings(plain, QSettings::IniFormat);
    kel::useUtf8Ini(*settings);
    return settings;
}

bool PackageVerifier::hasErrorIn(const QString& file) const
{
    for (const VerifyReport::Finding& finding : m_report.findings()) {
        if (finding.error && finding.file == file)
            return true;
    }
    return false;
}

QString PackageVerifier::stickPath(const QString& folder, const QString& relative) const
{
    return QDir::cleanPath(QDir(m_dir + "/" + folder).absoluteFilePath(relative));
}

void PackageVerifier::lintAll()
{
    const struct
    {
        const char* file;
        ManifestLint::Kind kind;
    } manifests[] = {{"update.ini", ManifestLint::PackageManifest},
                     {"system/update.ini", ManifestLint::ItemManifest},
                     {"kelinfo/update.ini", ManifestLint::ItemManifest},
                     {"vorn_app/update.ini", ManifestLint::RuntimeManifest},
                     {"project/project.ini", ManifestLint::ProjectManifest},
                     {recipe::kFile, ManifestLint::Recipe}};
    for (const auto& manifest : manifests) {
        if (!checkEncoding(manifest.file))
            continue;
        if (const ManifestText* plain = text(manifest.file))
            ManifestLint(manifest.kind, manifest.file, !m_tree.isEmpty(), &m_report).check(*plain);
    }
}

bool PackageVerifier::checkEncoding(const QString& file)
{
    // A stick's scrambled manifests were checked as the tree they were built from.
    if (m_tree.isEmpty() && file.endsWith(kRootManifest))
        return true;
    QFile plain((m_tree.isEmpty() ? m_dir : m_tree) + "/" + file);
    if (!plain.open(QIODevice::ReadOnly))
        return true;
    const TextEncoding encoding(plain.readAll());
    if (encoding.kind() == TextEncoding::Utf8)
        return true;
    const bool error = encoding.kind() == TextEncoding::Utf16 ||
                       (encoding.kind() == TextEncoding::EightBit && !encoding.onlyInComments());
    VerifyReport::Finding finding;
    finding.error = error;
    finding.file = file;
    finding.line = encoding.firstBadLine();
    finding.problem = encoding.problem();
    finding.fix = encoding.kind() == TextEncoding::Utf8WithMark
                      ? QString("save it as UTF-8 without a byte order mark")
                      : QString("save it as UTF-8 (iconv -f %1 -t UTF-8)")
                            .arg(encoding.kind() == TextEncoding::Utf16 ? "UTF-16" : "LATIN1");
    m_report.add(finding);
    return encoding.kind() != TextEncoding::Utf16;
}

void PackageVerifier::verify()
{
    QTemporaryDir scratch;
    m_scratch = scratch.path();
    QSettingsFactory::setScratchPath(m_scratch + "/opened.ini");
    checkAll();
    // While the scratch folder still holds the stick's unscrambled manifests.
    keepFindingLines();
}

void PackageVerifier::keepFindingLines()
{
    for (const VerifyReport::Finding& finding : m_report.findings()) {
        if (finding.line <= 0 || !m_report.lines(finding.file).isEmpty())
            continue;
        if (const ManifestText* manifest = text(finding.file))
            m_report.setLines(finding.file, manifest->lines());
    }
}

void PackageVerifier::checkAll()
{
    lintAll();
    checkLanguages();
    checkSources();
    if (m_tree.isEmpty() && QFileInfo::exists(m_dir + "/" + kel::kProgramName))
        checkProgramArch();
    GenerateConfigInfo root;
    MessageCollector messages;
    collect(&root, &messages);
    if (!root.readIni(m_dir + "/" + kRootManifest)) {
        add(true, kRootManifest, QString(), QString(),
            QFileInfo::exists(m_dir + "/" + kRootManifest)
                ? "is not a scrambled manifest (UTF-8 BOM and \"#\" first line): the update fails "
                  "at once"
                : "is missing: the update fails at once",
            "build the stick with kelpack build");
        return;
    }
    const BoolTable items = root.getUpdateInfo();
    const auto requested = [&items](const char* key) {
        const bool* value = firstBool(items, key);
        return value && *value;
    };
    walkPrepare(root);
    if (requested(kUpSystem)) {
        m_phase = "system files (system/)";
        walkOperations("system", "system/update.ini");
    }
    if (requested(kUpVornApp))
        walkRuntime();
    if (requested(kUpProject))
        walkProject();
    if (requested(kUpKelInfo)) {
        m_phase = "panel identity (kelinfo/)";
        walkOperations("kelinfo", "kelinfo/update.ini");
    }
    m_phase = "package-wide files";
    walkOperations(".", kRootManifest);
    walkServices(root);
    walkCommand(root);
    checkEndState();
    summarizeEndState();
    checkItemFolders(root);
    if (m_tree.isEmpty() && !QFileInfo::exists(m_dir + "/" + kel::kProgramName))
        add(false, kel::kProgramName, QString(), QString(),
            "is not in the package folder: nothing runs the update",
            "build the stick with "
            "kelpack build");
    if (!m_signatureAudited)
        return;
    PackageSigner::audit(m_dir, m_keysDir,
                         [this](bool error, const QString& file, const QString& message) {
                             add(error, file, QString(), QString(), message);
                         });
}

void PackageVerifier::verifySources()
{
    QTemporaryDir scratch;
    m_scratch = scratch.path();
    checkSources();
}

void PackageVerifier::checkLanguages()
{
    // The report's first line is read by programs (the gate, the simulator, the fleet handler).
    const int markers[] = {2055, 2059};
    QSettings builtIn(kel::kDefaultLanguageFile, QSettings::IniFormat);
    kel::useUtf8Ini(builtIn);
    const QDir languages(QFileInfo(m_dir).path() + "/language");
    // In a tree, the file the stick's language file was copied from.
    QSettings recipe(m_tree + "/" + recipe::kFile, QSettings::IniFormat);
    kel::useUtf8Ini(recipe);
    const QString folder =
        recipe.value(QString(recipe::kStick) + "/" + recipe::kLanguages).toString();
    const QString single =
        recipe.value(QString(recipe::kLanguage) + "/" + recipe::kLanguageFile).toString();
    for (const QString& name : languages.entryList({"*.lan"}, QDir::Files, QDir::Name)) {
        QString file = "language/" + name;
        if (!m_tree.isEmpty() && QFileInfo(m_tree + "/" + folder + "/" + name).isFile())
            file = QDir::cleanPath(folder + "/" + name);
        else if (!m_tree.isEmpty() && QFileInfo(m_tree + "/" + single).isFile())
            file = QDir::cleanPath(single);
        QFile bytes(languages.filePath(name));
        if (bytes.open(QIODevice::ReadOnly)) {
            const TextEncoding encoding(bytes.readAll());
            if (encoding.kind() == TextEncoding::Utf16 || encoding.kind() == TextEncoding::EightBit)
                add(!encoding.onlyInComments() || encoding.kind() == TextEncoding::Utf16, file,
                    QString(), QString(), encoding.problem(), "save it as UTF-8");
        }
        QSettings texts(languages.filePath(name), QSettings::IniFormat);
        kel::useUtf8Ini(texts);
        for (int id : markers) {
            const QString key = QString::number(id) + "/string";
            const QString wanted = builtIn.value(key).toString();
            if (!texts.contains(key) || texts.value(key).toString() == wanted)
                continue;
            add(true, file, QString::number(id), "string",
                QString("translates the report marker \"%1\" as \"%2\": the panel's report "
                        "then no longer reads as a result, and the gate, the simulator and the "
                        "fleet handler take every run for a failure")
                    .arg(wanted.trimmed(), texts.value(key).toString().trimmed()),
                QString("leave [%1] out of the language file, or keep string = \"%2\"")
                    .arg(id)
                    .arg(QString(wanted).replace("\n", "\\n")));
        }
    }
}

void PackageVerifier::checkSources()
{
    StickSources sources;
    QString why;
    if (!sources.read(m_dir, &why)) {
        const QString where = why.mid(m_dir.size() + 1); // "system/update.ini: why"
        add(true, where.section(": ", 0, 0), QString(), QString(), where.section(": ", 1),
            "build the stick with kelpack build");
        return;
    }
    const QString folder = QFileInfo(m_dir).fileName();
    for (const StickSources::Source& source : sources.outside()) {
        const QString section = source.key.section('/', 0, 0);
        const QString key = source.key.section('/', 1);
        m_outside.insert(source.manifest + " [" + section + "]");
        QString where;
        if (source.value.startsWith('/'))
            where = "is absolute";
        else if (source.path.isEmpty())
            where = "leads out of the stick";
        else
            where = "is " + source.path + " on the stick, outside " + folder +
                    "/ and the folders beside it (" + StickManifest::sideFolders().join("/, ") +
                    "/)";
        // What to write: the same file or folder moved into the manifest's own folder.
        const bool folderKey = key == kSrcPathRuntime;
        const bool pathKey = key == kSrcPath;
        QString name = pathKey && !source.path.isEmpty() && source.path != "."
                           ? source.path
                           : QFileInfo(QDir::cleanPath(source.value)).fileName();
        if (name.isEmpty() || name == "..")
            name = "files";
        const QString itemFolder = QFileInfo(source.manifest).path();
        const QString moved = itemFolder == "." ? name : itemFolder + "/" + name;
        add(true, source.manifest, section, key,
            "\"" + source.value + "\" " + where +
                ": the stick manifest does not cover it, so the panel would install whatever is "
                "there unchecked",
            QString("%1=%2, with the %3 moved to %4 in the package folder")
                .arg(key, (folderKey || pathKey ? "./" : "") + name + (folderKey ? "/" : ""),
                     folderKey ? "folder" : "file", moved));
    }
}

void PackageVerifier::walkPrepare(GenerateConfigInfo& root)
{
    m_phase = "prepare";
    step("stop the HMI runtime", kel::kVornAppProgram, QString(),
         "asked to exit, killed after 3 s");
    // ps shows a program name cut to this many characters.
    const int commLength = 15;
    for (const QString& name : entries(root.getPrepareInfo().value(0), kStopProc)) {
        step("kill", name);
        ManifestRecord record(kPrepare + QString("1"));
        record.set(kStopProc, name);
        if (name.size() > commLength) {
            record.set("length", QString::number(name.size()));
            record.set("shown", QString::number(commLength));
            record.set("cut", name.left(commLength));
        }
        judge(RecordRules::StopProc, kRootManifest, record);
    }
}

bool PackageVerifier::judge(RecordRules::Kind kind, const QString& file, ManifestRecord& record)
{
    return RecordRules::check(
        kind, record,
        [&](bool error, const QString& key, const QString& problem, const QString& fix,
            const QString& expected, const QString& actual) {
            add(error, file, record.section(), key, problem, fix, expected, actual);
        });
}

void PackageVerifier::walkOperations(const QString& folder, const QString& file)
{
    if (!QFileInfo::exists(m_dir + "/" + file)) {
        add(true, kRootManifest, kUpdate, folder == "system" ? kUpSystem : kUpKelInfo,
            file + " is missing: the item fails before it changes anything",
            "add " + file + ", or set the item to false");
        return;
    }
    std::unique_ptr<QSettings> manifest(openScrambled(file));
    if (!manifest) {
        add(true, file, QString(), QString(), "is not a scrambled manifest: the item fails",
            "build the stick with kelpack build");
        return;
    }
    walkCopies(folder, file, *manifest);
    walkDeletes(file, *manifest);
    walkGrants(file, *manifest);
    // The program's own check of the copy set, in case a failure escaped the ones above.
    GenerateConfigInfo reader;
    file_operation_c engine(QString(kel::kVornAppDir) + "/");
    MessageCollector messages;
    collect(&reader, &messages);
    collect(&engine, &messages);
    bool failed = false;
    FolderRun::run(m_dir + "/" + folder, [&] {
        failed = reader.readFileOpConfig(m_dir + "/" + file) &&
                 !engine.checkCopyFile(reader.getCopyFileSet());
    });
    if (failed && !hasErrorIn(file))
        add(true, file, kCopy, QString(),
            "the updater's own check of the copy set fails: " + messages.lines.join("; "),
            "correct the record the message names");
}

void PackageVerifier::walkCopies(const QString& folder, const QString& file, QSettings& manifest)
{
    QVector<CopyRecord> records;
    const int count = manifest.value(QString(kCopy) + "/" + kCopyCount).toInt();
    for (int n = 1; n <= count && n <= kel::kMaxManifestCount; ++n) {
        const QString group = kCopy + QString::number(n) + "/";
        records.append({n, manifest.value(group + kSrcPath).toString(),
                        manifest.value(group + kDestPath).toString(),
                        manifest.value(group + kCrc32).toString().toUpper(),
                        manifest.value(group + kSize).toString(),
                        manifest.value(group + kMode).toString().toInt(nullptr, 10),
                        manifest.value(group + kPriority).toString().toInt(nullptr, 10)});
    }
    std::stable_sort(records.begin(), records.end(), [](const CopyRecord& a, const CopyRecord& b) {
        return a.priority < b.priority;
    });
    QMap<QString, QString> written; // destination -> the record that writes it
    for (const CopyRecord& r : records) {
        ManifestRecord record = copyRecord(folder, file, r);
        if (written.contains(r.dest))
            record.set("writtenBy", written.value(r.dest));
        if (!judge(RecordRules::Copy, file, record))
            continue;
        written.insert(r.dest, record.section());
        const QString source = stickPath(folder, r.src);
        step("copy " + modeText(r.mode), r.dest, QDir(m_dir).relativeFilePath(source),
             r.mode == 0 && !r.crc.isEmpty() ? "CRC-32 " + r.crc : QString());
        if (record.has("unusable"))
            continue;
        const QString by = file + " [" + record.section() + "]";
        if (r.mode == 0) {
            m_panel.install(r.dest, source, by);
            continue;
        }
        QDirIterator it(source, QDir::Files | QDir::Hidden,
                        r.mode == 2 ? QDirIterator::Subdirectories : QDirIterator::NoIteratorFlags);
        while (it.hasNext()) {
            const QString from = it.next();
            m_panel.install(r.dest + "/" + QDir(source).relativeFilePath(from), from, by);
        }
    }
}

ManifestRecord PackageVerifier::copyRecord(const QString& folder, const QString& file,
                                           const CopyRecord& r) const
{
    ManifestRecord record(kCopy + QString::number(r.number));
    record.set(kSrcPath, r.src);
    record.set(kDestPath, r.dest);
    record.set(kCrc32, r.crc);
    record.set(kSize, r.sizeText);
    record.set("mode", QString::number(r.mode));
    record.set("folder", folder);
    record.set("srcName", QFileInfo(r.src).fileName());
    record.set("kind", r.mode == 0 ? "file" : "folder");
    const QString source = stickPath(folder, r.src);
    record.set("looked", QDir(m_dir).relativeFilePath(source));
    if (m_outside.contains(file + " [" + record.section() + "]")) {
        record.set("outside", "1");
        record.set("unusable", "1");
    } else if (r.mode == 0 ? QFileInfo(source).isFile() : QFileInfo(source).isDir()) {
        record.set("found", "1");
    } else if (!r.src.isEmpty()) {
        QStringList candidates;
        QDirIterator it(m_dir + "/" + folder, QDir::Files | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            candidates << "./" + QDir(m_dir + "/" + folder).relativeFilePath(it.next());
        record.set("near", ManifestLint::nearest(r.src, candidates));
    }
    if (r.mode == 0 && record.has("found") && !r.crc.isEmpty() && r.crc != "AUTO") {
        record.set("actualCrc", crcOf(source).toUpper());
        record.set("actualSize", QString::number(QFileInfo(source).size()));
    }
    return record;
}

void PackageVerifier::walkDeletes(const QString& file, QSettings& manifest)
{
    QVector<DeleteRecord> records;
    const int count = manifest.value(QString(kDelete) + "/" + kDeleteCount).toInt();
    for (int n = 1; n <= count && n <= kel::kMaxManifestCount; ++n) {
        const QString group = kDelete + QString::number(n) + "/";
        records.append({n, manifest.value(group + kSrcPath).toString(),
                        manifest.value(group + kMode).toString().toInt(nullptr, 10),
                        manifest.value(group + kPriority).toString().toInt(nullptr, 10)});
    }
    std::stable_sort(
        records.begin(), records.end(),
        [](const DeleteRecord& a, const DeleteRecord& b) { return a.priority < b.priority; });
    for (const DeleteRecord& r : records) {
        const QString section = kDelete + QString::number(r.number);
        ManifestRecord record(section);
        record.set(kSrcPath, r.path);
        record.set("mode", QString::number(r.mode));
        if (!judge(RecordRules::Delete, file, record))
            continue;
        step("delete " + modeText(r.mode), r.path);
        const QString by = file + " [" + section + "]";
        checkTarget(Delete, file, section, kSrcPath, r.path,
                    r.mode == 0 ? m_panel.file(r.path).state : m_panel.dirState(r.path),
                    m_panel.file(r.path).by);
        if (r.mode == 0)
            m_panel.remove(r.path, by);
        else if (r.mode == 1)
            m_panel.clearFiles(r.path, nullptr, by);
        else
            m_panel.removeTree(r.path, by);
    }
}

void PackageVerifier::walkGrants(const QString& file, QSettings& manifest)
{
    QMultiMap<QString, int> paths; // in path order, as the program grants them
    const int count = manifest.value(QString(kExe) + "/" + kExeCount).toInt();
    for (int n = 1; n <= count && n <= kel::kMaxManifestCount; ++n)
        paths.insert(manifest.value(kExe + QString::number(n) + "/" + kSrcPath).toString(), n);
    for (auto it = paths.constBegin(); it != paths.constEnd(); ++it) {
        const QString section = kExe + QString::number(it.value());
        const QString& path = it.key();
        ManifestRecord record(section);
        record.set(kSrcPath, path);
        if (!judge(RecordRules::Grant, file, record))
            continue;
        step("make executable", path);
        const PanelModel::File target = m_panel.file(path);
        checkTarget(Grant, file, section, kSrcPath, path, target.state, target.by);
        m_granted.insert(PanelModel::clean(path));
    }
}

void PackageVerifier::walkRuntime()
{
    m_phase = "runtime application (vorn_app/)";
    const QString file = QString(kRuntimeFolder) + "/" + kRootManifest;
    downLoadVorn_app runtime;
    MessageCollector messages;
    collect(&runtime, &messages);
    QStringList checking;
    bool checked = false, parsed = false;
    const bool entered = FolderRun::run(m_dir + "/" + kRuntimeFolder, [&] {
        checked = runtime.checkFile(downLoadVorn_app::CHECK_PACKAGE);
        checking.swap(messages.lines);
        parsed = runtime.parseIniFile();
    });
    if (!entered) {
        add(true, kRootManifest, kUpdate, kUpVornApp,
            "is true, but the package has no vorn_app/ folder: the item fails",
            "add vorn_app/ or set UPVORN_APP=false");
        return;
    }
    if (!checked)
        add(true, file, kPrepare, kVersion,
            "the check of the package on the stick fails: " + checking.join("; "),
            "build the stick with kelpack build and leave its vorn_app/ as it is");
    if (!parsed) {
        add(true, file, kUpdateInfo, kFileNum,
            "the program cannot use the manifest: " + messages.lines.join("; "),
            QString(kFileNum) + "=the number of [FILEn] sections");
        return;
    }
    QVector<downLoadVorn_app::FILE_INFO> records = runtime.fileInfos();
    const QVector<bool> usable = clearRuntime(file, records);
    copyRuntime(file, runtime, records, usable);
    checkInstalledRuntime(runtime.versionFile());
    checkUnshippedRuntime(file, runtime.versionFile());
    const QString vornDir = QString(kel::kVornAppDir) + "/";
    step("unscramble in place", vornDir + kRootManifest);
    m_panel.rewrite(vornDir + kRootManifest);
    shortenRuntimeLibraries(file);
    checkRuntimeLibraries(file);
    grantRuntime(file, runtime.exeFiles());
}

QVector<bool> PackageVerifier::clearRuntime(const QString& file,
                                            const QVector<downLoadVorn_app::FILE_INFO>& records)
{
    // Every record's old files go before anything is copied.
    QVector<bool> usable(records.size(), true);
    for (int i = 0; i < records.size(); ++i) {
        const downLoadVorn_app::FILE_INFO& r = records[i];
        ManifestRecord record = runtimeRecord(i, r);
        usable[i] = judge(RecordRules::RuntimeRecord, file, record) && !record.has("unusable");
        if (!usable[i])
            continue;
        const QString by = file + " [" + record.section() + "]";
        if (r.file_name == "*") {
            step("remove old files", r.des_path, QString(),
                 "every file directly in it but the start-up images");
            m_panel.clearFiles(r.des_path, &downLoadVorn_app::keptWhenClearing, by);
        } else {
            step("remove old file", r.des_path + r.file_name);
            m_panel.remove(r.des_path + r.file_name, by);
        }
        m_panel.makeDir(r.des_path);
    }
    return usable;
}

ManifestRecord PackageVerifier::runtimeRecord(int index, const downLoadVorn_app::FILE_INFO& r)
{
    ManifestRecord record(kRuntimeFile + QString::number(index + 1));
    record.set(kDesPath, r.des_path);
    record.set(kSrcPathRuntime, r.src_path);
    record.set(kFileName, r.file_name);
    record.set(kDelayCopy, r.delaycopy_file.join(','));
    record.set("runtimeDir", QString(kel::kVornAppDir) + "/");
    return record;
}

void PackageVerifier::copyRuntime(const QString& file, downLoadVorn_app& runtime,
                                  QVector<downLoadVorn_app::FILE_INFO>& records,
                                  const QVector<bool>& usable)
{
    // The first pass leaves the files the delayed patterns select for the second.
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < records.size(); ++i) {
            downLoadVorn_app::FILE_INFO* r = &records[i];
            ManifestRecord record = runtimeRecord(i, *r);
            if (!usable[i] || m_outside.contains(file + " [" + record.section() + "]"))
                continue;
            if (r->file_name != "*") {
                if (pass == 0)
                    copyRuntimeFile(file, record);
                continue;
            }
            const QString sourceDir = stickPath(kRuntimeFolder, r->src_path);
            if (QFileInfo(sourceDir).isDir())
                record.set("found", "1");
            else if (pass == 1)
                continue;
            if (!judge(RecordRules::RuntimeFolder, file, record))
                continue;
            const QStringList names =
                QDir(sourceDir).entryList(QDir::Files | QDir::Hidden, QDir::Name);
            for (const QString& name : names) {
                const bool late = runtime.judgeFilenameRegExp(name, r);
                if (late != (pass == 1))
                    continue;
                step(pass == 1 ? "copy last" : "copy", r->des_path + name,
                     QDir(m_dir).relativeFilePath(sourceDir + "/" + name));
                m_panel.install(r->des_path + name, sourceDir + "/" + name,
                                file + " [" + record.section() + "]");
            }
            if (pass == 1)
                checkDelayPatterns(file, record.section(), *r, names);
        }
    }
}

void PackageVerifier::copyRuntimeFile(const QString& file, ManifestRecord& record)
{
    const QString name = record.value(kFileName);
    const QString target = record.value(kDesPath) + name;
    const QString source = stickPath(kRuntimeFolder, record.value(kSrcPathRuntime) + name);
    const QString folder = target.section('/', 0, -2);
    if (QFileInfo(source).isFile())
        record.set("found", "1");
    if (name.contains('/') && dirState(folder) != PanelModel::Present)
        record.set("folderMissing", folder);
    record.set("inPackage", record.value(kSrcPathRuntime).mid(2));
    record.set("baseName", QFileInfo(name).fileName());
    if (!judge(RecordRules::RuntimeFile, file, record))
        return;
    step("copy", target, QDir(m_dir).relativeFilePath(source));
    m_panel.install(target, source, file + " [" + record.section() + "]");
}

void PackageVerifier::checkDelayPatterns(const QString& file, const QString& section,
                                         const downLoadVorn_app::FILE_INFO& r,
                                         const QStringList& names)
{
    for (const QString& pattern : r.delaycopy_file) {
        const bool matched =
            pattern.endsWith('+') ? r.delaycopy_hit.contains(pattern) : names.contains(pattern);
        if (!matched)
            add(true, file, section, kDelayCopy,
                "the pattern \"" + pattern + "\" selects no file of " + r.src_path +
                    ": the program fails the installation after copying everything",
                "a file name of that folder, or a prefix followed by \"+\"");
    }
}

void PackageVerifier::shortenRuntimeLibraries(const QString& file)
{
    // Versioned libraries get their short names before the listed files are made executable.
    const QString vornDir = QString(kel::kVornAppDir) + "/";
    QMap<QString, QString> shortened; // short name -> the file renamed to it
    for (const QString& path : m_panel.presentIn(vornDir)) {
        const QString name = QFileInfo(path).fileName();
        const QString shortName = name.section('.', 0, 2);
        if (!name.contains(".so.") || shortName == name)
            continue;
        step("rename", vornDir + name, QString(), "to " + shortName);
        if (shortened.contains(shortName))
            add(true, file, m_panel.file(path).by.section('[', 1).section(']', 0, 0), kFileName,
                QString("%1 and %2 both get the short name %3: one rename replaces the other's "
                        "file, so the panel may keep the wrong one as %3")
                    .arg(shortened.value(shortName), name, shortName),
                "ship only one file whose name begins with " + shortName);
        shortened.insert(shortName, name);
        m_panel.rename(path, vornDir + shortName, file + " (short library names)");
    }
}

void PackageVerifier::grantRuntime(const QString& file, const QStringList& names)
{
    const QString vornDir = QString(kel::kVornAppDir) + "/";
    QSet<QString> granted;
    for (int m = 0; m < names.size(); ++m) {
        const QString& name = names[m];
        const QString path = name.startsWith('/') ? name : vornDir + name;
        ManifestRecord record(kRuntimeExe + QString::number(m + 1));
        record.set(kFileName, name);
        step("make executable", path);
        const PanelModel::File target = m_panel.file(path);
        if (judge(RecordRules::RuntimeGrant, file, record))
            checkTarget(RuntimeGrant, file, record.section(), kFileName, path,
                        name.isEmpty() ? PanelModel::Absent : target.state, target.by, vornDir);
        granted.insert(PanelModel::clean(path));
        m_granted.insert(PanelModel::clean(path));
    }
    for (const QString& path : m_panel.presentIn(vornDir)) {
        const PanelModel::File installed = m_panel.file(path);
        if (!installed.by.startsWith(file) || granted.contains(path) ||
            !isExecutable(installed.source, QFileInfo(path).fileName()))
            continue;
        const bool program = path == kel::kVornAppProgram;
        add(program, file, kAccessRight, kFileNum,
            path +
                " is a program, but copies are never executable and [ACCESSRIGHT] does not "
                "list it" +
                (program ? QString(": the panel cannot start its runtime") : QString()),
            QString("[%1%2] %3=%4 and %5=%2")
                .arg(kRuntimeExe)
                .arg(names.size() + 1)
                .arg(kFileName, QFileInfo(path).fileName(), kFileNum));
    }
}

void PackageVerifier::checkInstalledRuntime(const QString& versionFile)
{
    const QString file = QString(kRuntimeFolder) + "/" + kRootManifest;
    const QString vornDir = QString(kel::kVornAppDir) + "/";
    const QString package = m_dir + "/" + kRuntimeFolder + "/";
    step("check the installed copy", kel::kVornAppDir, QString(), "md5sum -c " + versionFile);
    const auto installedAs = [&](const QString& relative) {
        const PanelModel::File installed = m_panel.file(vornDir + relative);
        return installed.state == PanelModel::Present &&
               sameContent(installed.source, package + relative);
    };
    if (!installedAs(kRootManifest))
        add(true, file, kUpdateInfo, kFileNum,
            "the check of the installed copy reads " + vornDir + kRootManifest +
                ", but the records do not install this manifest there: the check fails after "
                "the records' old files were removed",
            QString("a record %1=* %2=./ %3=%4")
                .arg(kFileName, kSrcPathRuntime, kDesPath, vornDir));
    if (!installedAs(versionFile))
        add(true, file, kPrepare, kVersion,
            "the check of the installed copy runs " + vornDir + versionFile +
                ", but the records do not install that list there: the check fails after the "
                "records' old files were removed",
            QString("a record %1=* %2=./ %3=%4")
                .arg(kFileName, kSrcPathRuntime, kDesPath, vornDir));
    QFile list(package + versionFile);
    if (!list.open(QIODevice::ReadOnly))
        return;
    QSet<QString> reported;
    std::unique_ptr<QSettings> manifest(openScrambled(file));
    for (const QByteArray& line : list.readAll().split('\n')) {
        const QString listed = QString::fromUtf8(line.mid(34)).trimmed();
        if (listed.isEmpty() || installedAs(listed))
            continue;
        // The record that copies this file, to name where it really goes.
        const int count =
            manifest ? manifest->value(QString(kUpdateInfo) + "/" + kFileNum).toInt() : 0;
        QString section = QString(kPrepare), key = QString(kVersion), lands;
        for (int n = 1; n <= count; ++n) {
            const QString group = kRuntimeFile + QString::number(n) + "/";
            QString src = manifest->value(group + kSrcPathRuntime).toString();
            const QString name = manifest->value(group + kFileName).toString();
            if (src.startsWith("./"))
                src = src.mid(2);
            const QString listedDir = listed.section('/', 0, -2);
            const QString srcDir = src.endsWith('/') ? src.chopped(1) : src;
            if ((name == "*" && srcDir == listedDir) || src + name == listed) {
                section = kRuntimeFile + QString::number(n);
                key = kDesPath;
                lands = manifest->value(group + kDesPath).toString() +
                        (name == "*" ? listed.section('/', -1) : name);
                break;
            }
        }
        if (reported.contains(section))
            continue;
        reported.insert(section);
        add(true, file, section, key,
            "the check of the installed copy looks for " + vornDir + listed + " (" + versionFile +
                " lists " + listed + ")" +
                (lands.isEmpty() ? QString(", which nothing installs")
                                 : ", but this record puts the file at " + lands) +
                ": the check fails after the records' old files were removed",
            QString(kDesPath) + "=" + vornDir +
                (listed.contains('/') ? listed.section('/', 0, -2) + "/" : QString()) +
                ", the folder under " + kel::kVornAppDir + " that mirrors src_path");
    }
}

void PackageVerifier::checkRuntimeLibraries(const QString& file)
{
    const PanelModel::File program = m_panel.file(kel::kVornAppProgram);
    if (program.state != PanelModel::Present)
        return;
    // The libraries the package ships, by the names the panel gives them.
    const QString package = m_dir + "/" + kRuntimeFolder;
    QMap<QString, QString> shipped; // name on the panel -> file of the package
    QDirIterator it(package, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString name = it.fileName();
        shipped.insert(name.contains(".so.") ? name.section('.', 0, 2) : name,
                       QDir(package).relativeFilePath(path));
    }
    const QString vornDir = QString(kel::kVornAppDir) + "/";
    for (const QString& needed : ElfNeeded::of(program.source)) {
        // A library the package does not ship is the panel's own.
        if (!shipped.contains(needed) ||
            m_panel.file(vornDir + needed).state == PanelModel::Present)
            continue;
        add(true, file, kUpdateInfo, kFileNum,
            QString("the runtime program needs %1, which the package ships as vorn_app/%2, but "
                    "the run leaves no %3%1: the runtime does not start")
                .arg(needed, shipped.value(needed), vornDir),
            QString("a record that installs vorn_app/%1 in %2")
                .arg(shipped.value(needed), vornDir));
    }
}

void PackageVerifier::checkUnshippedRuntime(const QString& file, const QString& versionFile)
{
    QSet<QString> installed;
    for (const PanelModel::Installed& copy : m_panel.installed())
        installed.insert(QDir::cleanPath(copy.source));
    const QString package = m_dir + "/" + kRuntimeFolder;
    QDirIterator it(package, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    QMap<QString, QStringList> left; // folder of the package -> files no record installs
    while (it.hasNext()) {
        const QString path = QDir::cleanPath(it.next());
        const QString relative = QDir(package).relativeFilePath(path);
        if (!installed.contains(path) && relative != kRootManifest && relative != versionFile)
            left[QFileInfo(relative).path()] << relative;
    }
    for (auto folder = left.constBegin(); folder != left.constEnd(); ++folder) {
        bool needed = false;
        for (const QString& relative : folder.value())
            needed = needed || relative.contains(".so") ||
                     isExecutable(package + "/" + relative, relative);
        const QString where = folder.key() == "." ? QString("./") : "./" + folder.key() + "/";
        add(needed, file, kUpdateInfo, kFileNum,
            QString("%1 of vorn_app/%2 %3 installed by no record%4")
                .arg(folder.value().first(),
                     folder.value().size() > 1
                         ? QString(" (and %1 more files)").arg(folder.value().size() - 1)
                         : QString(),
                     folder.value().size() > 1 ? "are" : "is",
                     needed ? QString(": the runtime starts without the libraries and programs "
                                      "the package ships")
                            : QString(": the panel never gets it")),
            QString("a record %1=* %2=%3 %4=%5/%6")
                .arg(kFileName, kSrcPathRuntime, where, kDesPath, kel::kVornAppDir,
                     folder.key() == "." ? QString() : folder.key() + "/"));
    }
}

void PackageVerifier::walkProject()
{
    m_phase = "HMI project (project/)";
    const QString file = QString(kProjectFolderName) + "/project.ini";
    const QString folder = m_dir + "/" + kProjectFolderName;
    const QString projectDir = QString(kel::kVornAppDir) + "/" + kProjectFolderName;
    if (!QFileInfo(folder + "/project.ini").isFile()) {
        add(true, kRootManifest, kUpdate, kUpProject,
            "is true, but the package has no project/project.ini: the item fails",
            "add the project or set UPPROJECT=false");
        return;
    }
    QSettings manifest(folder + "/project.ini", QSettings::IniFormat);
    kel::useUtf8Ini(manifest);
    QStringList cleared;
    const char* const kinds[] = {"recipes", "history", "alarms", "initial values"};
    for (int k = 0; k < 4; ++k) {
        if (manifest.value(QString(kDownload) + "/" + kDownloadKeys[k]).toInt() != 0)
            cleared << kinds[k];
    }
    if (!cleared.isEmpty())
        step("clear saved data", cleared.join(", "));
    step("replace folder", projectDir, QString(), "the old project is removed first");
    m_panel.removeTree(projectDir, file);
    m_panel.makeDir(projectDir);
    QMap<QString, QString> written; // destination -> the record that writes it
    const int count = manifest.value(QString(kGlobal) + "/" + kFileCount).toInt();
    for (int n = 1; n <= count && n <= kel::kMaxManifestCount; ++n) {
        ManifestRecord record(kProjectFile + QString::number(n));
        if (m_outside.contains(file + " [" + record.section() + "]"))
            continue;
        for (const char* key : kProjectRecordKeys)
            record.set(key, manifest.value(record.section() + "/" + key).toString());
        const QString source = QDir::cleanPath(folder + "/" + record.value(kName));
        readProjectRecord(source, record);
        if (!judge(RecordRules::ProjectFile, file, record))
            continue;
        // Placed only now: a record that lands nowhere makes no folder.
        const QString name = record.value(kName);
        const QString desPath = record.value("resolved");
        const QString dest = QDir::cleanPath(desPath + "/" + name);
        m_panel.makeDir(desPath);
        const QString destDir = dest.section('/', 0, -2);
        if (name.contains('/') && dirState(destDir) != PanelModel::Present)
            record.set("folderMissing", destDir);
        record.set("dest", dest);
        record.set("writtenBy", written.value(dest));
        judge(RecordRules::ProjectPlace, file, record);
        written.insert(dest, record.section());
        step("copy", dest, QDir(m_dir).relativeFilePath(source));
        m_panel.install(dest, source, file + " [" + record.section() + "]");
    }
    step("check the installed copy", projectDir, QString(), "sizes and CRC-32");
    downLoadPro project(QString(kel::kVornAppDir) + "/");
    MessageCollector messages;
    collect(&project, &messages);
    bool accepted = true;
    FolderRun::run(folder, [&] { accepted = project.init(); });
    if (!accepted && !hasErrorIn(file))
        add(true, file, QString(), QString(),
            "the updater's own check of the project fails: " + messages.lines.join("; "),
            "correct the record the message names");
}

void PackageVerifier::readProjectRecord(const QString& source, ManifestRecord& record) const
{
    static const QRegularExpression reference("\\$([A-Za-z_][A-Za-z0-9_]*)");
    const QString known = QString("$") + kel::kVornWorkDirVariable;
    const QString name = record.value(kName);
    if (!name.isEmpty() && QFileInfo(source).isFile())
        record.set("found", "1");
    // The program replaces its one variable and leaves any other as written.
    QString meant = record.value(kDesPathProject);
    QRegularExpressionMatchIterator references = reference.globalMatch(meant);
    while (references.hasNext()) {
        const QRegularExpressionMatch match = references.next();
        if (match.captured(1) == kel::kVornWorkDirVariable)
            continue;
        if (!record.has("variable"))
            record.set("variable", match.captured());
        meant.replace(match.captured(), known);
    }
    record.set("known", known);
    record.set("meant", meant);
    record.set("resolved", QString(record.value(kDesPathProject)).replace(known, kel::kVornAppDir));
    record.set("baseName", QFileInfo(name).fileName());
    record.set("subfolder", name.section('/', 0, -2));
    if (record.has("found") && record.value(kCrc) != "auto") {
        record.set("actualCrc", crcOf(source));
        record.set("actualSize", QString::number(QFileInfo(source).size()));
    }
}

void PackageVerifier::walkServices(GenerateConfigInfo& root)
{
    m_phase = "boot services";
    const VariantTable restart = root.getReStartInfo();
    for (const char* key : {kAutoStart, kAutoStop}) {
        const bool start = QString(key) == kAutoStart;
        for (const QString& name : entries(restart, key)) {
            QString bare = name;
            if (bare.startsWith(kel::kServiceUnitPrefix))
                bare = bare.mid(int(strlen(kel::kServiceUnitPrefix)));
            if (bare.endsWith(kel::kServiceUnitSuffix))
                bare.chop(int(strlen(kel::kServiceUnitSuffix)));
            if (!RecordRules::shellSafe(name) || bare != name) {
                add(true, kRootManifest, kRestart, key,
                    "\"" + name + "\" names the unit " + unitFile(name) +
                        (bare != name ? QString(": the program adds \"usr_\" and \".service\" "
                                                "itself")
                                      : QString(", and the shell splits or expands it")),
                    QString(key) + "=" + bare);
                continue;
            }
            const QString unit = unitFile(name);
            step(start ? "enable boot service" : "remove boot service (unit and link)", unit);
            if (!start && unit == EndStateCheck::runtimeUnit()) {
                m_panel.remove(unit, kRootManifest + QString(" [RESTART] AUTOSTOP"));
                continue;
            }
            const PanelModel::File state = m_panel.file(unit);
            checkTarget(start ? Start : Stop, kRootManifest, kRestart, key, unit, state.state,
                        state.by, name);
            if (!start)
                m_panel.remove(unit, kRootManifest + QString(" [RESTART] AUTOSTOP"));
        }
    }
}

void PackageVerifier::walkCommand(GenerateConfigInfo& root)
{
    m_phase = "end of the update";
    step("run ldconfig", kel::kVornAppDir);
    const QStringList commands = entries(root.getReStartInfo(), kCommand);
    const QString command = commands.isEmpty() ? QString() : commands.first();
    if (!command.isEmpty()) {
        step("run", command);
        QProcess shell;
        shell.start("sh", {"-n", "-c", command});
        shell.waitForFinished();
        if (shell.exitCode() != 0)
            add(true, kRootManifest, kRestart, kCommand,
                "the shell cannot parse it (" +
                    QString::fromLocal8Bit(shell.readAllStandardError()).simplified() +
                    "), and the program still reports the command as run",
                "a command line that \"sh -n -c\" accepts");
        bool direct = false;
        for (const QString& path : commandFiles(command, &direct))
            checkCommandFile(path, direct);
        checkCommandPaths(command);
    }
    const VariantTable restart = root.getReStartInfo();
    const QStringList reboot = entries(restart, kReboot);
    const QStringList beeps = entries(restart, kBeepNum);
    if (!reboot.isEmpty() && reboot.first().toInt() == 1)
        step("restart at once", QString(), QString(), "interactive runs");
    else
        step(
            "beep and restart after 10 s", QString(), QString(),
            QString("%1 beeps, interactive runs").arg(beeps.isEmpty() ? 0 : beeps.first().toInt()));
}

void PackageVerifier::checkCommandPaths(const QString& command)
{
    // Words that name a path, and the targets of redirections, relative to the working folder.
    static const QRegularExpression word("(?:^|\\s)(?:\\d?[<>]+\\s*)?([^\\s;&|<>()\"']+)");
    QStringList relative;
    QRegularExpressionMatchIterator words = word.globalMatch(command);
    while (words.hasNext()) {
        const QRegularExpressionMatch match = words.next();
        const QString path = match.captured(1);
        const bool target = match.captured(0).contains(QRegularExpression("[<>]"));
        if (path.startsWith('/') || path.startsWith('-') || path.contains("://") ||
            path.startsWith('$') || (!path.contains('/') && !target) ||
            QFileInfo(m_dir + "/" + path).exists())
            continue;
        relative << path;
    }
    if (relative.isEmpty())
        return;
    const QString folder = QFileInfo(m_dir).fileName();
    add(false, kRootManifest, kRestart, kCommand,
        QString("runs in the package folder on the stick (%1/), not in %2: \"%3\" %4 "
                "there, and what the command writes stays on the stick")
            .arg(folder, kel::kVornAppDir, relative.join("\", \""),
                 relative.size() > 1 ? "name paths" : "names a path"),
        QString("absolute paths on the panel, such as %1/%2")
            .arg(kel::kVornAppDir, QDir::cleanPath(relative.first())));
}

void PackageVerifier::checkCommandFile(const QString& path, bool direct)
{
    QString source;
    if (path.startsWith('/')) {
        const PanelModel::File target = m_panel.file(path);
        if (checkTarget(Command, kRootManifest, kRestart, kCommand, path, target.state,
                        target.by) != PanelModel::Present)
            return;
        source = target.source;
        if (direct && !m_granted.contains(PanelModel::clean(path)))
            add(true, kRootManifest, kRestart, kCommand,
                path + " is run directly, but copies are never executable and no EXEFILE "
                       "grants it: \"Permission denied\", and the program reports the command "
                       "as run",
                "COMMAND=\"sh " + path + "\", or an [EXEFILEn] with SRCPATH=" + path);
    } else {
        source = m_dir + "/" + path;
        if (!QFileInfo(source).isFile()) {
            add(true, kRootManifest, kRestart, kCommand,
                path + " is not a file of the package folder, where the command runs: the "
                       "command fails and the program reports it as run",
                "the path of a file of the package");
            return;
        }
    }
    QFile script(source);
    if (!script.open(QIODevice::ReadOnly))
        return;
    const QByteArray bytes = script.readAll();
    if (bytes.startsWith("\x7f"
                         "ELF"))
        return;
    const int cr = bytes.indexOf("\r\n");
    if (cr >= 0) {
        add(true, kRootManifest, kRestart, kCommand,
            QString("%1 (from %2) has CR LF line ends (line %3): the shell takes the carriage "
                    "return as part of each command, which fails (\"not found\"), and the "
                    "program reports the command as run")
                .arg(path, QDir(m_tree.isEmpty() ? m_dir : m_tree)
                               .relativeFilePath(QDir(m_dir).relativeFilePath(source)))
                .arg(bytes.left(cr).count('\n') + 1),
            "save " + QFileInfo(source).fileName() + " with LF line ends (dos2unix)");
        return;
    }
    QProcess shell;
    shell.start("sh", {"-n", source});
    shell.waitForFinished();
    if (shell.exitCode() != 0)
        add(true, kRootManifest, kRestart, kCommand,
            path + ": the shell cannot parse the script (" +
                QString::fromLocal8Bit(shell.readAllStandardError()).simplified() + ")",
            "a script that \"sh -n\" accepts");
}

void PackageVerifier::checkEndState()
{
    // Records are named as "file [SECTION] KEY" or "file (what)".
    static const QRegularExpression record("^(\\S+)(?: \\[([^\\]]+)\\](?: (\\S+))?)?");
    EndStateCheck(m_panel).run(
        [this](bool error, const QString& by, const QString& problem, const QString& fix) {
            const QRegularExpressionMatch parts = record.match(by);
            add(error, parts.captured(1), parts.captured(2), parts.captured(3), problem, fix);
        });
}

void PackageVerifier::checkItemFolders(GenerateConfigInfo& root)
{
    const BoolTable items = root.getUpdateInfo();
    const struct
    {
        const char* key;
        const char* folder;
    } folders[] = {{kUpSystem, "system"},
                   {kUpVornApp, kRuntimeFolder},
                   {kUpProject, kProjectFolderName},
                   {kUpKelInfo, "kelinfo"}};
    for (const auto& item : folders) {
        if (!firstBool(items, item.key) && QFileInfo(m_dir + "/" + item.folder).isDir())
            add(false, kRootManifest, kUpdate, QString(),
                QString("the package has %1/, but [UPDATE] has no %2: the folder is not applied")
                    .arg(item.folder, item.key),
                QString("%1=true to apply it, %1=false to leave it out on purpose").arg(item.key));
    }
}

void PackageVerifier::checkProgramArch()
{
    m_phase = "program";
    const QString wanted = ProgramArch::recorded(m_dir);
    QString why;
    const QString arch = ProgramArch::of(m_dir + "/" + kel::kProgramName, &why);
    step("start", kel::kProgramName, QString(),
         (arch.isEmpty() ? why : "built for " + arch) +
             (wanted.isEmpty() ? QString() : "; the stick was built for " + wanted));
    if (!wanted.isEmpty() && arch != wanted)
        add(false, kel::kProgramName, QString(), QString(),
            (arch.isEmpty() ? why : "is built for " + arch) + ", but the stick was built for " +
                wanted + " (" + ProgramArch::recordOfPackage(m_dir) +
                "): a panel of that processor cannot start it",
            "put the program built for " + wanted +
                " there, or rebuild the stick with kelpack build --arch " + wanted,
            wanted, arch.isEmpty() ? "unknown" : arch);
}
