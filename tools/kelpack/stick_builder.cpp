#include "stick_builder.h"

#include "package_signer.h"
#include "package_verifier.h"
#include "package_writer.h"
#include "program_arch.h"
#include "qsettingsfactory.h"
#include "stick_output.h"
#include "tree_copier.h"
#include "utf8_text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <memory>

namespace {

const char* const kRecipe = recipe::kFile;
// Language files that ship with the tool, for [language] file= names the tree does not hold.
const char kShippedLanguages[] = ":/kelpack/languages/";

QSettings* openPlain(const QString& path)
{
    auto* settings = new QSettings(path, QSettings::IniFormat);
    kel::useUtf8Ini(*settings);
    return settings;
}

} // namespace

StickBuilder::StickBuilder(const QString& treeDir, const QString& outDir, const QString& program,
                           bool force)
    : m_tree(QDir(treeDir).absolutePath()), m_out(QDir(outDir).absolutePath()), m_program(program),
      m_force(force)
{
}

bool StickBuilder::fail(const QString& message)
{
    m_error = message;
    return false;
}

bool StickBuilder::build()
{
    if (!QFileInfo(m_tree).isDir())
        return fail(m_tree + ": the package tree does not exist or is not a folder");
    StickOutput output(m_out, m_force);
    if (!output.check(m_tree) || !output.prepare())
        return fail(output.error());
    // A half-built stick, or one the panel would fail on, must never reach the output folder.
    QStringList entries;
    if (buildStick(output.stagingDir(), &entries) &&
        verifyStaged(output.stagingDir() + "/" + entries.value(0)) && output.commit(entries))
        return true;
    if (m_error.isEmpty())
        m_error = output.error();
    output.discard();
    return false;
}

bool StickBuilder::stage(const QString& stick, QString* packageDir)
{
    if (!QFileInfo(m_tree).isDir())
        return fail(m_tree + ": the package tree does not exist or is not a folder");
    m_checkOnly = true;
    QStringList entries;
    if (!QDir().mkpath(stick))
        return fail(stick + ": cannot be written");
    if (!buildStick(stick, &entries))
        return false;
    *packageDir = stick + "/" + entries.value(0);
    return true;
}

bool StickBuilder::verifyStaged(const QString& packageDir)
{
    PackageVerifier verifier(packageDir, m_tree);
    verifier.verify();
    m_report = verifier.report();
    if (!m_report.hasErrors() || m_despiteErrors)
        return true;
    return fail(
        QString("%1 errors in %2: nothing was written").arg(m_report.errorCount()).arg(m_tree));
}

bool StickBuilder::copyLanguageFile(QSettings& recipe, const QString& languageDir)
{
    const QString group = QString(recipe::kLanguage) + "/";
    const QString name = recipe.value(group + recipe::kLanguageFile).toString();
    if (name.isEmpty())
        return true;
    bool numeric = false;
    const int number = recipe.value(group + recipe::kLanguageNumber).toString().toInt(&numeric);
    if (!numeric || number < 1)
        return fail(m_tree + "/" + kRecipe +
                    ": [language] number must be a language number from "
                    "1 on (0 is the built-in Chinese table)");
    const QString inTree = QDir(m_tree).absoluteFilePath(name);
    const QString source = QFileInfo(inTree).isFile() ? inTree : kShippedLanguages + name;
    if (!QFileInfo(source).isFile())
        return fail(m_tree + "/" + kRecipe + ": [language] file=" + name +
                    " is neither a file of the tree nor a language shipped with kelpack");
    // The program names language files by their number, at least four digits.
    const QString target = languageDir + QString("/%1.lan").arg(number, 4, 10, QChar('0'));
    if (!QFile::copy(source, target))
        return fail(target + ": cannot be written");
    QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                      QFile::ReadOther);
    return true;
}

bool StickBuilder::buildStick(const QString& stick, QStringList* entries)
{
    const QString recipePath = m_tree + "/" + kRecipe;
    if (!QFileInfo::exists(recipePath))
        return fail(recipePath + ": no recipe (kelpack.ini) in the package tree");
    QSettings recipe(recipePath, QSettings::IniFormat);
    kel::useUtf8Ini(recipe);
    const QString stickGroup = QString(recipe::kStick) + "/";
    const QString folder = recipe.value(stickGroup + recipe::kFolder, "update").toString();
    if (folder.isEmpty() || folder.contains('/') || folder.startsWith('.') ||
        folder == "language" || folder == "config" || folder == "qws")
        return fail(recipePath + ": [stick] folder=" + folder +
                    " must be one plain folder name other than language, config and qws");
    QString programArch;
    if (!resolveProgram(recipe, &programArch))
        return false;
    *entries = QStringList{folder, "language", "config", "qws"};

    const QString package = stick + "/" + folder;
    m_package = package;
    if (!QDir().mkdir(package) || !QDir().mkdir(stick + "/config") ||
        !QDir().mkdir(stick + "/language"))
        return fail(stick + ": cannot be written");
    TreeCopier copier(m_tree);
    const bool copied = copier.copyTo(package, m_checkOnly ? QString() : "copying onto the stick");
    m_warnings = copier.warnings();
    if (!copied)
        return fail(copier.error());
    QFile::remove(package + "/" + kRecipe);
    if (!m_checkOnly) {
        if (!QFile::copy(m_program, package + "/kelloadui.bin"))
            return fail(package + "/kelloadui.bin: cannot be written");
        QFile::setPermissions(package + "/kelloadui.bin", QFile::permissions(m_program) |
                                                              QFile::ExeOwner | QFile::ExeGroup |
                                                              QFile::ExeOther);
    }
    if (!writeLanguages(recipe, stick))
        return false;
    // The program's processor: the one asked for, if any (checked above).
    QString why;
    if (!programArch.isEmpty() && !ProgramArch::writeRecord(stick, programArch, &why))
        return fail(why);
    // The stick manifest comes last: it lists every file written before it.
    return writeManifests(package) && PackageSigner::signBuild(recipe, recipePath, package,
                                                               m_signingKey, m_checkOnly, &m_error);
}

bool StickBuilder::resolveProgram(QSettings& recipe, QString* programArch)
{
    const QString stickGroup = QString(recipe::kStick) + "/";
    const QString arch =
        m_arch.isEmpty() ? recipe.value(stickGroup + recipe::kArch).toString() : m_arch;
    if (!m_checkOnly && m_program.isEmpty() && !recipe.contains(stickGroup + recipe::kProgram) &&
        !arch.isEmpty()) {
        m_program = ProgramArch::installedProgram(arch);
        if (!QFileInfo(m_program).isFile())
            return fail("no panel program for " + arch + " is installed (" + m_program +
                        "): give --program PATH");
    }
    if (m_program.isEmpty())
        m_program =
            QDir(m_tree).absoluteFilePath(recipe.value(stickGroup + recipe::kProgram).toString());
    if (!m_checkOnly && !QFileInfo(m_program).isFile())
        return fail("the program " + m_program + " does not exist (give --program PATH)");
    QString why;
    if (!m_checkOnly) {
        *programArch = ProgramArch::of(m_program, &why);
        if (!arch.isEmpty() && *programArch != arch)
            return fail((programArch->isEmpty() ? why : m_program + ": built for " + *programArch) +
                        ", but the stick is for " + arch +
                        " ([stick] arch or --arch): give the program built for " + arch);
    }
    return true;
}

bool StickBuilder::writeLanguages(QSettings& recipe, const QString& stick)
{
    const QString stickGroup = QString(recipe::kStick) + "/";
    if (!copyLanguageFile(recipe, stick + "/language"))
        return false;
    const QString languages = recipe.value(stickGroup + recipe::kLanguages).toString();
    if (!languages.isEmpty()) {
        QDir lanDir(QDir(m_tree).absoluteFilePath(languages));
        for (const QString& name : lanDir.entryList({"*.lan"}, QDir::Files)) {
            if (!QFile::copy(lanDir.filePath(name), stick + "/language/" + name))
                return fail(stick + "/language/" + name + ": cannot be written");
        }
        QFile::remove(m_package + "/" + languages); // copied with the tree, belongs beside it
        QDir(m_package + "/" + languages).removeRecursively();
    }
    QFile config(stick + "/config/vornUpdateSet.ini");
    if (!config.open(QIODevice::WriteOnly))
        return fail(config.fileName() + ": cannot be written");
    config.write("[tool_language]\ntype=" +
                 QByteArray::number(recipe.value(stickGroup + recipe::kToolLanguage, 0).toInt()) +
                 "\n");
    config.close();
    return true;
}

bool StickBuilder::writeManifests(const QString& package)
{
    // Items first: the package-wide manifest may name files inside them.
    for (const char* item : {"system", "kelinfo"}) {
        if (QFileInfo::exists(package + "/" + item + "/update.ini") &&
            !writeManifest(package + "/" + item, "update.ini", true, false))
            return false;
    }
    if (QFileInfo::exists(package + "/vorn_app/update.ini") &&
        (!writeManifest(package + "/vorn_app", "update.ini", true, false) ||
         !writeChecksumList(package + "/vorn_app")))
        return false;
    if (QFileInfo::exists(package + "/project/project.ini") &&
        !writeManifest(package + "/project", "project.ini", false, true))
        return false;
    if (!QFileInfo::exists(package + "/update.ini"))
        return fail(m_tree + "/update.ini: the package manifest is missing");
    return writeManifest(package, "update.ini", true, false);
}

bool StickBuilder::fillAuto(QSettings& source, const QString& dir, bool projectStyle,
                            QVector<QPair<QString, QString>>* values)
{
    const QStringList groups = source.childGroups();
    for (const QString& group : groups) {
        const bool copyRecord =
            !projectStyle && group.startsWith("COPYFILE") && group != "COPYFILE";
        const bool projectRecord = projectStyle && group.startsWith("FILE");
        if (!copyRecord && !projectRecord)
            continue;
        source.beginGroup(group);
        const QString crcKey = projectStyle ? "CRC" : "CRC32";
        const bool wantsSize = source.value("SIZE").toString() == "auto";
        const bool wantsCrc = source.value(crcKey).toString() == "auto";
        const QString file =
            projectStyle ? source.value("NAME").toString() : source.value("SRCPATH").toString();
        source.endGroup();
        if (wantsSize || wantsCrc) {
            const QString path = QDir(dir).absoluteFilePath(file);
            QString upper, lower, error;
            // A record without its file keeps "auto"; verify names the missing file.
            if (!QFileInfo(path).isFile())
                continue;
            if (!PackageWriter::crcTexts(path, &upper, &lower, &error))
                return fail(error);
            if (wantsSize)
                values->append({group + "/SIZE", QString::number(QFileInfo(path).size())});
            if (wantsCrc)
                values->append({group + "/" + crcKey, projectStyle ? lower : upper});
        }
    }
    return true;
}

bool StickBuilder::writeManifest(const QString& dir, const QString& name, bool scramble,
                                 bool projectStyle)
{
    const QString path = dir + "/" + name;
    QTemporaryDir scratch;
    const QString plain = scratch.path() + "/plain.ini";
    if (QSettingsFactory::decryptFile(path, scratch.path() + "/already.ini",
                                      QSettingsFactory::CRYPT_CHECKED)) {
        const QString inTree = m_tree + "/" + QDir(m_package).relativeFilePath(path);
        return fail(inTree +
                    ": is already scrambled (a manifest taken from a stick), but a "
                    "tree holds plain text. Write instead: kelpack unscramble " +
                    inTree + " " + inTree + ".plain, then put the plain file in its place");
    }
    {
        std::unique_ptr<QSettings> source(openPlain(path));
        if (source->status() != QSettings::NoError)
            return fail(path + ": not a readable INI file");
        // Checksums first: computing them serves the event queue, and a written settings object
        // rewrites its whole file on every event it gets, thousands of records at a time.
        QVector<QPair<QString, QString>> autoValues;
        if (!fillAuto(*source, dir, projectStyle, &autoValues))
            return false;
        std::unique_ptr<QSettings> out(openPlain(plain));
        for (const QString& key : source->allKeys())
            out->setValue(key, source->value(key));
        for (const auto& value : autoValues)
            out->setValue(value.first, value.second);
        out->sync();
        // A manifest without a key (an item with nothing to do) is written as an empty file.
        QFile written(plain);
        if (out->status() != QSettings::NoError ||
            (!written.exists() && !written.open(QIODevice::WriteOnly)))
            return fail(plain + ": cannot be written");
    }
    QString error;
    if (scramble)
        return PackageWriter::scramble(plain, path, &error) || fail(error);
    QFile::remove(path);
    return QFile::copy(plain, path) || fail(path + ": cannot be written");
}

bool StickBuilder::writeChecksumList(const QString& runtimeDir)
{
    QTemporaryDir scratch;
    QString error;
    if (!PackageWriter::unscramble(runtimeDir + "/update.ini", scratch.path() + "/m.ini", &error))
        return fail(error);
    std::unique_ptr<QSettings> manifest(openPlain(scratch.path() + "/m.ini"));
    const QString version =
        manifest->value("PREPARE/version").toString().split(' ', Qt::KeepEmptyParts).last();
    const QString listName = "version." + version;
    // Every file the runtime records install, named as the installed copy will be checked.
    QStringList names;
    const int count = manifest->value("UPDATEINFO/file_num").toInt();
    for (int n = 1; n <= count; ++n) {
        const QString group = "FILE" + QString::number(n) + "/";
        const QString fileName = manifest->value(group + "file_name").toString();
        QString srcPath = manifest->value(group + "src_path").toString();
        if (srcPath.startsWith("./"))
            srcPath = srcPath.mid(2);
        // Joined as the program joins them; a name that is no file is verify's to report.
        const QStringList candidates =
            fileName == "*" ? QDir(runtimeDir + "/" + srcPath).entryList(QDir::Files | QDir::Hidden)
                            : QStringList{fileName};
        for (const QString& name : candidates) {
            if (QFileInfo(runtimeDir + "/" + srcPath + name).isFile())
                names << srcPath + name;
        }
    }
    names.removeAll(listName);
    names.removeDuplicates();
    names.sort();
    if (names.isEmpty()) {
        // Nothing to list (verify says why); md5sum would read standard input instead.
        QFile empty(runtimeDir + "/" + listName);
        return empty.open(QIODevice::WriteOnly) || fail(empty.fileName() + ": cannot be written");
    }
    QProcess md5;
    md5.setWorkingDirectory(runtimeDir);
    md5.setStandardOutputFile(runtimeDir + "/" + listName);
    md5.start("md5sum", QStringList{"--"} + names);
    if (!md5.waitForFinished(-1) || md5.exitCode() != 0)
        return fail(runtimeDir + "/" + listName +
                    ": md5sum failed: " + QString::fromLocal8Bit(md5.readAllStandardError()));
    return true;
}
