#include "def.h"
#include "multilingual_management.h"
#include "package_plan.h"
#include "package_signer.h"
#include "package_verifier.h"
#include "package_writer.h"
#include "stick_builder.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QMap>
#include <QTextStream>
#include <cstdio>

namespace {

const char kUsage[] =
    "usage: kelpack build PACKAGE_TREE OUTDIR [--program PATH] [--force] [--sign SECRET_KEY]\n"
    "       kelpack verify STICK_PACKAGE_DIR [--json] [--keys PUBLIC_KEY_DIR]\n"
    "       kelpack info STICK_PACKAGE_DIR\n"
    "       kelpack scramble PLAIN_INI SCRAMBLED_INI\n"
    "       kelpack unscramble SCRAMBLED_INI PLAIN_INI\n"
    "       kelpack crc FILE...   (prints: upper-case CRC, lower-case CRC, size, file)\n"
    "       kelpack keygen NAME   (writes NAME.key, owner-only, and NAME.pub)\n"
    "       kelpack sign STICK_PACKAGE_DIR SECRET_KEY|--unsigned [--version V] [--models M,...]\n"
    "                    [--replaces V]\n"
    "       kelpack --help | --version\n"
    "\n"
    "build writes a new stick into OUTDIR, which must be new or empty; --force replaces only\n"
    "the stick's own entries there (the package folder, language/, config/, qws/).\n"
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
    builder.setSigningKey(args.options.value("--sign"));
    const bool built = builder.build();
    for (const QString& warning : builder.warnings())
        fprintf(stderr, "kelpack: warning: %s\n", warning.toUtf8().constData());
    if (!built)
        return fail(builder.error());
    printf("stick built in %s\n", qPrintable(args.positional[1]));
    return 0;
}

int verify(const Arguments& args)
{
    if (args.positional.size() != 1)
        return usageError("verify needs STICK_PACKAGE_DIR");
    const bool json = args.options.contains("--json");
    PackageVerifier verifier(args.positional[0]);
    verifier.setTrustedKeys(args.options.value("--keys"));
    verifier.verify();
    fputs((json ? verifier.json() : verifier.text()).toUtf8().constData(), stdout);
    if (!json && !verifier.hasErrors())
        puts("no errors: the package passes every check the updater makes before it starts");
    return verifier.hasErrors() ? 1 : 0;
}

int info(const Arguments& args)
{
    if (args.positional.size() != 1)
        return usageError("info needs STICK_PACKAGE_DIR");
    QString plan;
    const bool ok = PackagePlan(args.positional[0]).describe(&plan);
    plan += PackageSigner::describe(args.positional[0]);
    fputs(plan.toUtf8().constData(), stdout);
    return ok ? 0 : 1;
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
    // The updater's own messages explain what fails.
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    const QStringList words = app.arguments().mid(1);
    if (words.isEmpty())
        return usageError();
    const QString command = words.first();
    if (command == "--help" || command == "-h") {
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
        args = parse(rest, {"--force"}, {"--program", "--sign"});
    else if (command == "verify")
        args = parse(rest, {"--json"}, {"--keys"});
    else if (command == "keygen" || command == "sign")
        return PackageSigner::run(words);
    else if (command == "info" || command == "scramble" || command == "unscramble" ||
             command == "crc")
        args = parse(rest, {}, {});
    else
        return usageError("unknown command " + command);
    if (!args.error.isEmpty())
        return usageError(args.error);
    if (command == "build")
        return build(args);
    if (command == "verify")
        return verify(args);
    if (command == "info")
        return info(args);
    if (command == "crc")
        return crc(args);
    return scramble(command, args);
}
