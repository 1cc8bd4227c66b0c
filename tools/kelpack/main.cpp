#include "def.h"
#include "multilingual_management.h"
#include "package_plan.h"
#include "package_verifier.h"
#include "package_writer.h"
#include "stick_builder.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>
#include <cstdio>

namespace {

int usage()
{
    fputs("usage: kelpack build PACKAGE_TREE OUTDIR [--program PATH]\n"
          "       kelpack verify STICK_PACKAGE_DIR [--json]\n"
          "       kelpack info STICK_PACKAGE_DIR\n"
          "       kelpack scramble PLAIN_INI SCRAMBLED_INI\n"
          "       kelpack unscramble SCRAMBLED_INI PLAIN_INI\n"
          "       kelpack crc FILE...   (prints: upper-case CRC, lower-case CRC, size, file)\n",
          stderr);
    return 2;
}

int fail(const QString& error)
{
    fprintf(stderr, "kelpack: %s\n", error.toUtf8().constData());
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The updater's own messages explain what fails.
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    const QStringList args = app.arguments().mid(1);
    if (args.isEmpty())
        return usage();
    const QString command = args.first();
    QString error;
    if ((command == "scramble" || command == "unscramble") && args.size() == 3) {
        const bool ok = command == "scramble" ? PackageWriter::scramble(args[1], args[2], &error)
                                              : PackageWriter::unscramble(args[1], args[2], &error);
        return ok ? 0 : fail(error);
    }
    if (command == "build" && (args.size() == 3 || (args.size() == 5 && args[3] == "--program"))) {
        StickBuilder builder(args[1], args[2], args.size() == 5 ? args[4] : QString());
        if (!builder.build())
            return fail(builder.error());
        printf("stick built in %s\n", qPrintable(args[2]));
        return 0;
    }
    if (command == "verify" && (args.size() == 2 || (args.size() == 3 && args[2] == "--json"))) {
        PackageVerifier verifier(args[1]);
        verifier.verify();
        const QString report = args.size() == 3 ? verifier.json() : verifier.text();
        fputs(report.toUtf8().constData(), stdout);
        if (args.size() == 2 && !verifier.hasErrors())
            puts("no errors: the package passes every check the updater makes before it starts");
        return verifier.hasErrors() ? 1 : 0;
    }
    if (command == "info" && args.size() == 2) {
        QString plan;
        const bool ok = PackagePlan(args[1]).describe(&plan);
        fputs(plan.toUtf8().constData(), stdout);
        return ok ? 0 : 1;
    }
    if (command == "crc" && args.size() >= 2) {
        QTextStream out(stdout);
        for (const QString& path : args.mid(1)) {
            QString upper, lower;
            if (!PackageWriter::crcTexts(path, &upper, &lower, &error))
                return fail(error);
            out << upper << ' ' << lower << ' ' << QFileInfo(path).size() << ' ' << path << '\n';
        }
        return 0;
    }
    return usage();
}
