// Copy and verification speed of the file-operation engine against plain tools on the same data:
//   bench_file_operation [WORK_DIR]   (default: ./bench-data, which should not be on tmpfs)
#include "def.h"
#include "file_copier.h"
#include "file_operation_c.h"
#include "multilingual_management.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace {

double seconds(const std::function<void()>& work)
{
    QElapsedTimer clock;
    clock.start();
    work();
    return clock.nsecsElapsed() / 1e9;
}

// The best of three runs, so that one disturbed run does not decide.
double best(const std::function<void()>& prepare, const std::function<void()>& work)
{
    double result = 1e9;
    for (int i = 0; i < 3; ++i) {
        prepare();
        result = std::min(result, seconds(work));
    }
    return result;
}

void shell(const QString& command)
{
    if (system(command.toUtf8().constData()) != 0)
        fprintf(stderr, "failed: %s\n", command.toUtf8().constData());
}

void writeRandom(const QString& path, qint64 size)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    std::vector<char> block(1 << 20);
    quint32 x = 2463534242u;
    for (qint64 done = 0; done < size; done += qint64(block.size())) {
        for (char& c : block) {
            x ^= x << 13;
            x ^= x >> 17;
            x ^= x << 5;
            c = char(x);
        }
        file.write(block.data(), std::min<qint64>(qint64(block.size()), size - done));
    }
}

QString crcOf(const QString& path)
{
    quint32 crc = 0;
    FileCopier::crc32Of(path, &crc);
    return QString::number(crc, 16).toUpper();
}

// A bare zlib loop over the file, read in large blocks: the fastest plain verification.
double bareCrc(const QStringList& files)
{
    return seconds([&] {
        std::vector<char> buffer(1 << 20);
        for (const QString& path : files) {
            QFile file(path);
            file.open(QIODevice::ReadOnly);
            uLong crc = crc32(0, Z_NULL, 0);
            qint64 n;
            while ((n = file.read(buffer.data(), qint64(buffer.size()))) > 0)
                crc = crc32(crc, reinterpret_cast<const Bytef*>(buffer.data()), uInt(n));
            if (crc == 1)
                puts("");
        }
    });
}

void report(const char* what, double program, double floor, double target, bool higherIsBetter)
{
    const double ratio = higherIsBetter ? floor / program : program / floor;
    printf("%-52s program %8.3f s  floor %8.3f s  ratio %5.2f  (target %s %.2f) %s\n", what,
           program, floor, ratio, higherIsBetter ? ">=" : "<=", target,
           (higherIsBetter ? ratio >= target : ratio <= target) ? "ok" : "MISSED");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    const QString work = QDir(argc > 1 ? argv[1] : "bench-data").absolutePath();
    QDir(work).removeRecursively();
    QDir().mkpath(work + "/src/many");
    printf("work directory %s (%d cores)\n", qPrintable(work), QThread::idealThreadCount());

    const qint64 bigSize = 256LL << 20;
    writeRandom(work + "/src/big.bin", bigSize);
    QStringList manyFiles;
    for (int i = 0; i < 2000; ++i) {
        const QString path = QString("%1/src/many/f%2.dat").arg(work).arg(i, 4, 10, QChar('0'));
        writeRandom(path, 16 * 1024);
        manyFiles << path;
    }
    shell("cat " + work + "/src/big.bin " + work + "/src/many/* > /dev/null"); // warm the cache

    const auto clearDest = [&] {
        QDir(work + "/dst").removeRecursively();
        QDir().mkpath(work + "/dst/many");
    };

    // One large file.
    copyFileInfo_s big;
    big.srcPath = work + "/src/big.bin";
    big.destPath = work + "/dst/big.bin";
    const double cpBig = best(clearDest, [&] { shell("cp " + big.srcPath + " " + big.destPath); });
    const double engineBig = best(clearDest, [&] {
        file_operation_c op("bench");
        op.copyFile(CopyFileSet{big});
    });
    report("256 MiB file, no CRC, vs cp", engineBig, cpBig, 0.8, true);

    big.crc32 = crcOf(big.srcPath);
    const double crcFloorBig = cpBig + 2 * bareCrc({big.srcPath}) + seconds([] { sync(); });
    const double engineBigCrc = best(clearDest, [&] {
        file_operation_c op("bench");
        op.checkCopyFile(CopyFileSet{big}); // the "-s" pre-check reads the source once more
        op.copyFile(CopyFileSet{big});
    });
    report("256 MiB file, CRC-32 (+pre-check), vs cp+3 crc+sync", engineBigCrc,
           crcFloorBig + bareCrc({big.srcPath}), 0.8, true);

    // Many small files, as one mode-1 directory record.
    copyFileInfo_s many;
    many.srcPath = work + "/src/many";
    many.destPath = work + "/dst/many";
    many.mode = 1;
    const double cpMany =
        best(clearDest, [&] { shell("cp " + work + "/src/many/* " + many.destPath); });
    const double engineMany = best(clearDest, [&] {
        file_operation_c op("bench");
        op.copyFile(CopyFileSet{many});
    });
    report("2,000 x 16 KiB files, vs cp", engineMany, cpMany, 0.8, true);

    // Many small files with a CRC each, as mode-0 records.
    CopyFileSet records;
    for (const QString& path : manyFiles) {
        copyFileInfo_s info;
        info.srcPath = path;
        info.destPath = work + "/dst/many/" + QFileInfo(path).fileName();
        info.crc32 = crcOf(path);
        records.insert(info);
    }
    const double floorManyCrc = cpMany + 2 * bareCrc(manyFiles) + seconds([] { sync(); });
    const double engineManyCrc = best(clearDest, [&] {
        file_operation_c op("bench");
        op.copyFile(records);
    });
    report("2,000 x 16 KiB files, CRC-32, vs cp+2 crc+sync", engineManyCrc, floorManyCrc, 0.8,
           true);

    // Verification alone.
    const double verify = best([] {},
                               [&] {
                                   file_operation_c op("bench");
                                   op.checkCopyFile(CopyFileSet{big});
                               });
    report("CRC-32 verification of 256 MiB, vs bare zlib loop", verify, bareCrc({big.srcPath}), 0.9,
           true);

    QDir(work).removeRecursively();
    return 0;
}
