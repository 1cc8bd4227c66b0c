#include "package_writer.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>
#include <cstdio>

namespace {

int usage()
{
    fputs("usage: kelpack scramble PLAIN_INI SCRAMBLED_INI\n"
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
