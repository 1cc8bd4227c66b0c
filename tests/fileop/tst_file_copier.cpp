#include "checksum_memo.h"
#include "file_copier.h"
#include "fixture.h"

#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>

// Block copies and checksums: every size around the block boundary, and sources the kernel
// cannot copy by itself, must give the same bytes and the same CRC-32 as a plain read. A
// remembered checksum may only ever stand for the bytes the file holds now.
class TestFileCopier : public QObject
{
    Q_OBJECT

private slots:
    void copiesEveryByte_data();
    void copiesEveryByte();
    void oddSourcesFailuresAndModes();
    void memoReadsChangedFilesAgain_data();
    void memoReadsChangedFilesAgain();

private:
    QTemporaryDir dir;
};

void TestFileCopier::copiesEveryByte_data()
{
    QTest::addColumn<int>("size");
    const int block = 1024 * 1024;
    QTest::newRow("empty") << 0;
    QTest::newRow("one byte") << 1;
    QTest::newRow("one CRC piece and one byte") << 4097;
    QTest::newRow("one block less one") << block - 1;
    QTest::newRow("one block") << block;
    QTest::newRow("three blocks and a tail") << 3 * block + 17;
}

void TestFileCopier::copiesEveryByte()
{
    QFETCH(int, size);
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 131 + i / 4099) & 0xff);
    const QString src = dir.filePath("src.bin"), dest = dir.filePath("dest.bin");
    fixture::writeFile(src, bytes);
    fixture::writeFile(dest, "older and longer content that must go" + QByteArray(5000, 'x'));
    QCOMPARE(FileCopier::copy(src, dest), FileCopier::Ok);
    QCOMPARE(fixture::readFile(dest), bytes);
    quint32 crc = 0;
    QVERIFY(FileCopier::crc32Of(dest, &crc));
    QCOMPARE(QString::number(crc, 16).toUpper(), fixture::crcText(bytes));
}

void TestFileCopier::oddSourcesFailuresAndModes()
{
    // /proc files report a size of 0 but have content.
    QCOMPARE(FileCopier::copy("/proc/self/cmdline", dir.filePath("cmdline")), FileCopier::Ok);
    QVERIFY(fixture::readFile(dir.filePath("cmdline")).contains("tst_file_copier"));

    const QString src = dir.filePath("present.bin");
    fixture::writeFile(src, "x");
    QCOMPARE(FileCopier::copy(dir.filePath("absent.bin"), dir.filePath("out.bin")),
             FileCopier::SourceUnreadable);
    QCOMPARE(FileCopier::copy(src, dir.filePath("no/such/dir/out.bin")),
             FileCopier::DestinationUnwritable);
    QCOMPARE(FileCopier::copy(dir.path(), dir.filePath("out.bin")), FileCopier::ReadFailed);
    QCOMPARE(FileCopier::copy(src, "/dev/full"), FileCopier::WriteFailed);
    quint32 crc = 0;
    QVERIFY(!FileCopier::crc32Of(dir.filePath("absent.bin"), &crc));

    // A new file gets 0666 less the umask, as the panel's own tools make them.
    const mode_t previous = umask(002);
    const FileCopier::Result result = FileCopier::copy(src, dir.filePath("group.bin"));
    umask(previous);
    QCOMPARE(result, FileCopier::Ok);
    struct stat st;
    QCOMPARE(stat(QFile::encodeName(dir.filePath("group.bin")).constData(), &st), 0);
    QCOMPARE(st.st_mode & 0777, mode_t(0664));
}

void TestFileCopier::memoReadsChangedFilesAgain_data()
{
    QTest::addColumn<QString>("change");
    for (const char* change : {"rewritten, same size", "rewritten, times put back", "removed"})
        QTest::newRow(change) << change;
}

void TestFileCopier::memoReadsChangedFilesAgain()
{
    QFETCH(QString, change);
    const QString path = dir.filePath("package.bin");
    const QByteArray oldBytes(300000, 'a'), newBytes = QByteArray(300000, 'a').replace(0, 1, "b");
    fixture::writeFile(path, oldBytes);
    struct stat original;
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &original), 0);
    quint32 crc = 0;
    QVERIFY(ChecksumMemo::crc32Of(path, &crc) && ChecksumMemo::crc32Of(path, &crc)); // remembered
    QCOMPARE(QString::number(crc, 16).toUpper(), fixture::crcText(oldBytes));
    // File times have a coarse clock: let it move on, as it has between a package's making and
    // any change on the panel.
    QThread::msleep(30);
    if (change == "removed") {
        QVERIFY(QFile::remove(path));
        QVERIFY(!ChecksumMemo::crc32Of(path, &crc));
        return;
    }
    fixture::writeFile(path, newBytes);
    if (change.contains("put back")) {
        const timespec times[2] = {original.st_atim, original.st_mtim};
        QCOMPARE(::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0), 0);
    }
    QVERIFY(ChecksumMemo::crc32Of(path, &crc));
    QCOMPARE(QString::number(crc, 16).toUpper(), fixture::crcText(newBytes));
}

QTEST_GUILESS_MAIN(TestFileCopier)
#include "tst_file_copier.moc"
