#include "def.h"
#include "multilingual_management.h"
#include "package_signer.h"
#include "package_verifier.h"
#include "package_writer.h"
#include "starter_tree.h"
#include "stick_builder.h"
#include "swu_verifier.h"
#include "swu_writer.h"
#include "verify_report_page.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>
#include <QTextStream>
#include <cstdio>

namespace {

const char kUsage[] =
    "usage: kelpack init NEW_TREE [--language en|zh]\n"
    "       kelpack build PACKAGE_TREE OUTDIR [--program PATH] [--arch ARCH] [--force]\n"
    "                     [--sign SECRET_KEY] [--despite-errors]\n"
    "       kelpack verify PACKAGE_TREE|STICK_PACKAGE_DIR [--json] [--keys PUBLIC_KEY_DIR]\n"
    "                      [--panel DIR|LISTING] [--report FILE.html]\n"
    "       kelpack verify IMAGE.swu --cms-cert CERT [--json] [--keys PUBLIC_KEY_DIR]\n"
    "                      [--panel DIR|LISTING] [--report FILE.html]\n"
    "       kelpack plan PACKAGE_TREE|STICK_PACKAGE_DIR [--panel DIR|LISTING] [--json|--files]\n"
    "       kelpack info PACKAGE_TREE|STICK_PACKAGE_DIR [--json]   (the same as plan)\n"
    "       kelpack scramble PLAIN_INI SCRAMBLED_INI\n"
    "       kelpack unscramble SCRAMBLED_INI PLAIN_INI\n"
    "       kelpack crc FILE...   (prints: upper-case CRC, lower-case CRC, size, file)\n"
    "       kelpack keygen NAME   (writes NAME.key, owner-only, and NAME.pub)\n"
    "       kelpack sign STICK_PACKAGE_DIR SECRET_KEY|--unsigned [--version V] [--models M,...]\n"
    "                    [--replaces V]\n"
    "       kelpack swu STICK OUT.swu --cms-key KEY --cms-cert CERT [--force]\n"
    "       kelpack --help | --version\n"
    "\n"
    "init writes a commented starter tree whose stick speaks English on the panel (zh: the\n"
    "updater's built-in Chinese). plan prints every step the panel takes and what it\n"
    "adds, replaces and removes there, on the simulator's default panel or on the one --panel\n"
    "names: a copy of a panel's root folder, or a file listing its paths; --files prints only\n"
    "\"PATH<tab>SOURCE\" for each file left installed. verify predicts what the panel meets:\n"
    "errors fail or harm every panel, warnings depend on the panel; with --panel, what that\n"
    "panel lacks is an error and what it has is no warning; --report writes the findings\n"
    "besides as a web page, grouped by file with their lines in context (FILE must be new).\n"
    "build checks the same and writes a new stick into OUTDIR only without errors; OUTDIR\n"
    "must be new or empty, --force replaces only the stick's own entries there (the package\n"
    "folder, language/, config/, qws/).\n"
    "--despite-errors writes a stick that has errors, to show on a test panel what they do.\n"
    "--arch (or [stick] arch in kelpack.ini) names the panel's processor (armhf, arm64, amd64):\n"
    "the program must be built for it, and without --program the installed one for it is taken.\n"
    "swu makes an SWUpdate image of a signed stick (its manifest names version and models),\n"
    "its sw-description signed by CMS with KEY and CERT (PEM); OUT.swu must be new unless\n"
    "--force. verify of an .swu checks that signature against CERT, every part's sha256,\n"
    "then the stick inside.\n"
    "The package format: docs/package-format.md.\n"
    "Exit status: 0 done, 1 the work failed or verify found errors, 2 wrong usage.\n";

int usageError(const QString& why = QString())
{
    if (!why.isEmpty())
        fprintf(stderr, "kelpack: %s\n", why.toUtf8().constData());
    fputs(kUsage, stderr);
    return 2;
}

int fail(const QString& error)
{
    fprintf(stderr, "kelpack: %s\n", error.toUtf8().constData());
    return 1;
}

// A fatal error of a command asked for JSON: still one JSON object on standard output.
int fail(const QString& error, bool json, const QString& package)
{
    if (json)
        fputs(QJsonDocument(QJsonObject{{"package", QDir(package).absolutePath()},
                                        {"ok", false},
                                        {"error", error}})
                  .toJson()
                  .constData(),
              stdout);
    return fail(error);
}

// A command's words: its positional arguments, its flags and its options with a value.
struct Arguments
{
    QStringList positional;
    QMap<QString, QString> options; // flags map to an empty value
    QString error;
};

Arguments parse(const QStringList& words, const QStringList& flags, const QStringList& valueOptions)
{
    Arguments parsed;
    for (int i = 0; i < words.size(); ++i) {
        const QString& word = words[i];
        if (!word.startsWith("--") || word == "--") {
            parsed.positional << word;
        } else if (flags.contains(word)) {
            parsed.options.insert(word, QString());
        } else if (valueOptions.contains(word) && i + 1 < words.size()) {
            parsed.options.insert(word, words[++i]);
        } else {
            parsed.error =
                valueOptions.contains(word) ? word + " needs a value" : "unknown option " + word;
            break;
        }
    }
    return parsed;
}

int build(const Arguments& args)
{
    if (args.positional.size() != 2)
        return usageError("build needs PACKAGE_TREE and OUTDIR");
    StickBuilder builder(args.positional[0], args.positional[1], args.options.value("--program"),
                         args.options.contains("--force"));
    builder.setDespiteErrors(args.options.contains("--despite-errors"));
    builder.setSigningKey(args.options.value("--sign"));
    builder.setArch(args.options.value("--arch"));
    const bool built = builder.build();
    for (const QString& warning : builder.warnings())
        fprintf(stderr, "kelpack: warning: %s\n", warning.toUtf8().constData());
    fputs(builder.report().text().toUtf8().constData(), stderr);
    if (!built)
        return fail(builder.error());
    printf("stick built in %s\n", qPrintable(args.positional[1]));
    return 0;
}

// Checks a package tree (built into a scratch folder first) or a stick's package folder, with
// the panels' public keys when given; signing receives what the stick manifest says.
bool check(const QString& path, const QString& keysDir, VerifyReport* report, QString* error,
           QString* signing = nullptr, const QString& panel = QString())
{
    if (!QFileInfo(path).isDir()) {
        *error = path + (QFileInfo::exists(path) ? ": is not a folder" : ": no such folder") +
                 ": name a package tree (with kelpack.ini) or a stick's package folder";
        return false;
    }
    const bool tree = QFileInfo(path + "/" + recipe::kFile).isFile();
    QTemporaryDir scratch;
    QString package = path;
    StickBuilder builder(path, QString(), QString(), false);
    if (tree && !builder.stage(scratch.path() + "/stick", &package)) {
        *error = builder.error();
        return false;
    }
    PackageVerifier verifier(package, tree ? path : QString());
    verifier.setTrustedKeys(keysDir);
    // Without a panel of their own, plans are made on the one the simulator seeds, which
    // decides nothing the package leaves to the panel.
    if (!verifier.setPanel(panel.isEmpty() ? ":/kelpack/default-panel.txt" : panel, error,
                           !panel.isEmpty()))
        return false;
    verifier.setSignatureAudited(!tree);
    verifier.verify();
    *report = verifier.report();
    if (signing)
        *signing = PackageSigner::describe(package);
    return true;
}

int verify(const Arguments& args)
{
    if (args.positional.size() != 1)
        return usageError("verify needs PACKAGE_TREE, STICK_PACKAGE_DIR or IMAGE.swu");
    QString target = args.positional[0];
    const bool json = args.options.contains("--json");
    const QString page = args.options.value("--report");
    if (!page.isEmpty() && (QFileInfo::exists(page) || QFileInfo(page).isSymLink()))
        return usageError("--report " + page + " exists; name a new file");
    const bool image = target.endsWith(".swu") && QFileInfo(target).isFile();
    if (image != args.options.contains("--cms-cert"))
        return usageError(image ? "verify of an .swu needs --cms-cert CERT"
                                : "--cms-cert belongs to the verify of an .swu");
    QTemporaryDir unpacked;
    if (image) {
        const QString stick = unpacked.path() + "/stick";
        QDir().mkpath(stick);
        SwuVerifier swu(target, args.options.value("--cms-cert"));
        if (!swu.verify(stick))
            return fail(swu.error(), json, target);
        fputs(swu.summary().toUtf8().constData(), json ? stderr : stdout);
        const QString folder = SwuWriter::packageFolder(stick);
        if (folder.isEmpty())
            return fail(target + ": the stick inside has no package folder with kelloadui.bin",
                        json, target);
        target = stick + "/" + folder;
    }
    VerifyReport report;
    QString error;
    if (!check(target, args.options.value("--keys"), &report, &error, nullptr,
               args.options.value("--panel")))
        return fail(error, json, target);
    const QString package = QDir(target).absolutePath();
    if (args.options.contains("--json")) {
        fputs(report.json(package).toUtf8().constData(), stdout);
    } else {
        fputs(report.text().toUtf8().constData(), stdout);
        const int errors = report.errorCount();
        const int warnings = report.findings().size() - errors;
        if (errors == 0 && warnings == 0)
            puts("no errors, no warnings: the panel meets nothing that fails or surprises");
        else
            printf("%d errors, %d warnings%s\n", errors, warnings,
                   errors || args.options.contains("--panel")
                       ? ""
                       : ": the outcome depends on the panel");
    }
    if (!page.isEmpty()) {
        const QString checked =
            image ? QFileInfo(args.positional[0]).absoluteFilePath() + " (the stick inside)"
                  : package;
        const VerifyReportPage html(report, checked, args.options.value("--panel"));
        if (!html.write(page, &error))
            return fail(error);
    }
    return report.hasErrors() ? 1 : 0;
}

// info and plan: the steps the panel will take.
int info(const QString& command, const Arguments& args)
{
    if (args.positional.size() != 1)
        return usageError(command + " needs PACKAGE_TREE or STICK_PACKAGE_DIR");
    VerifyReport report;
    QString error;
    QString signing;
    const bool json = args.options.contains("--json");
    if (!check(args.positional[0], QString(), &report, &error, &signing,
               args.options.value("--panel")))
        return fail(error, json, args.positional[0]);
    const QString package = QDir(args.positional[0]).absolutePath();
    if (args.options.contains("--files")) {
        fputs(report.installedFiles().toUtf8().constData(), stdout);
        return 0;
    }
    fputs(
        (json ? report.planJson(package) : report.planText(package) + signing).toUtf8().constData(),
        stdout);
    if (!json && report.hasErrors())
        printf("%d errors: see kelpack verify\n", report.errorCount());
    return report.steps().isEmpty() ? 1 : 0;
}

int swu(const Arguments& args)
{
    if (args.positional.size() != 2)
        return usageError("swu needs STICK and OUT.swu");
    if (!args.options.contains("--cms-key") || !args.options.contains("--cms-cert"))
        return usageError("swu needs --cms-key KEY and --cms-cert CERT");
    SwuWriter writer(args.positional[0], args.positional[1], args.options.contains("--force"));
    writer.setSigner(args.options.value("--cms-key"), args.options.value("--cms-cert"));
    if (!writer.write())
        return fail(writer.error());
    printf("SWUpdate image written to %s\n", qPrintable(args.positional[1]));
    return 0;
}

int init(const Arguments& args)
{
    if (args.positional.size() != 1)
        return usageError("init needs the folder of the new tree");
    QString error;
    const QString language = args.options.value("--language", StarterTree::languages().first());
    if (!StarterTree::languages().contains(language))
        return usageError("--language " + language + ": no such language; use " +
                          StarterTree::languages().join(" or "));
    if (!StarterTree::write(args.positional[0], language, &error))
        return fail(error);
    printf("starter tree written to %s: see its update.ini, then kelpack verify %s\n",
           qPrintable(args.positional[0]), qPrintable(args.positional[0]));
    if (language == "en")
        printf("its stick speaks English on the panel (tool_language=1 in kelpack.ini); "
               "kelpack init --language zh writes one that speaks the built-in Chinese\n");
    return 0;
}

int scramble(const QString& command, const Arguments& args)
{
    if (args.positional.size() != 2)
        return usageError(command + " needs an input and an output file");
    QString error;
    const bool ok = command == "scramble"
                        ? PackageWriter::scramble(args.positional[0], args.positional[1], &error)
                        : PackageWriter::unscramble(args.positional[0], args.positional[1], &error);
    return ok ? 0 : fail(error);
}

int crc(const Arguments& args)
{
    if (args.positional.isEmpty())
        return usageError("crc needs at least one file");
    QTextStream out(stdout);
    for (const QString& path : args.positional) {
        QString upper, lower, error;
        if (!PackageWriter::crcTexts(path, &upper, &lower, &error))
            return fail(error);
        out << upper << ' ' << lower << ' ' << QFileInfo(path).size() << ' ' << path << '\n';
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The updater's own messages explain what fails, in English.
    MultilingualManager::GetInstance()->loadMultilingualFile(":/kelpack/languages/english.lan",
                                                             kel::kDefaultLanguageFile);
    const QStringList words = app.arguments().mid(1);
    if (words.isEmpty())
        return usageError();
    const QString command = words.first();
    if (command == "--help" || command == "-h" || words.contains("--help")) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (command == "--version") {
        printf("kelpack %s\n", KEL_VERSION);
        return 0;
    }
    const QStringList rest = words.mid(1);
    Arguments args;
    if (command == "build")
        args = parse(rest, {"--force", "--despite-errors"}, {"--program", "--arch", "--sign"});
    else if (command == "verify")
        args = parse(rest, {"--json"}, {"--keys", "--cms-cert", "--panel", "--report"});
    else if (command == "swu")
        args = parse(rest, {"--force"}, {"--cms-key", "--cms-cert"});
    else if (command == "info" || command == "plan")
        args = parse(rest, {"--json", "--files"}, {"--panel"});
    else if (command == "keygen" || command == "sign")
        return PackageSigner::run(words);
    else if (command == "init")
        args = parse(rest, {}, {"--language"});
    else if (command == "scramble" || command == "unscramble" || command == "crc")
        args = parse(rest, {}, {});
    else
        return usageError("unknown command " + command);
    if (!args.error.isEmpty())
        return usageError(args.error);
    if (command == "build")
        return build(args);
    if (command == "verify")
        return verify(args);
    if (command == "info" || command == "plan")
        return info(command, args);
    if (command == "swu")
        return swu(args);
    if (command == "init")
        return init(args);
    if (command == "crc")
        return crc(args);
    return scramble(command, args);
}
