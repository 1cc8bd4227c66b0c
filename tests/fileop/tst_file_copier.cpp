#include "file_copier.h"
#include "fixture.h"

#include <QTemporaryDir>
#include <QtTest>

#include <zlib.h>

// Block copies and checksums: every size around the block boundary, and sources the kernel
// cannot copy by itself, must give the same bytes and the same CRC-32 as a plain read.
class TestFileCopier : public QObject
{
    Q_OBJECT

private slots:
    void copiesEveryByte_data();
    void copiesEveryByte();
    void pseudoFileIsCopiedByReading();
    void failuresAreTold();

private:
    QTemporaryDir dir;
};

namespace {
QByteArray pattern(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 131 + i / 4099) & 0xff);
    return bytes;
}

quint32 zlibCrc(const QByteArray& bytes)
{
    return static_cast<quint32>(::crc32(::crc32(0L, Z_NULL, 0),
                                        reinterpret_cast<const Bytef*>(bytes.constData()),
                                        static_cast<uInt>(bytes.size())));
}
} // namespace

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
    const QByteArray bytes = pattern(size);
    const QString src = dir.filePath("src.bin"), dest = dir.filePath("dest.bin");
    fixture::writeFile(src, bytes);
    fixture::writeFile(dest, "older and longer content that must go " + pattern(5000));

    QCOMPARE(FileCopier::copy(src, dest), FileCopier::Ok);
    QCOMPARE(fixture::readFile(dest), bytes);
    quint32 crc = 0;
    QVERIFY(FileCopier::crc32Of(dest, &crc));
    QCOMPARE(crc, zlibCrc(bytes));
}

void TestFileCopier::pseudoFileIsCopiedByReading()
{
    // /proc files report a size of 0 but have content.
    const QString dest = dir.filePath("status.txt");
    QCOMPARE(FileCopier::copy("/proc/self/cmdline", dest), FileCopier::Ok);
    QVERIFY(fixture::readFile(dest).contains("tst_file_copier"));
}

void TestFileCopier::failuresAreTold()
{
    const QString src = dir.filePath("present.bin");
    fixture::writeFile(src, "x");
    QCOMPARE(FileCopier::copy(dir.filePath("absent.bin"), dir.filePath("out.bin")),
             FileCopier::SourceUnreadable);
    QCOMPARE(FileCopier::copy(src, dir.filePath("no/such/dir/out.bin")),
             FileCopier::DestinationUnwritable);
    QCOMPARE(FileCopier::copy(dir.path(), dir.filePath("out.bin")), FileCopier::ReadFailed);
    if (QFile::exists("/dev/full"))
        QCOMPARE(FileCopier::copy(src, "/dev/full"), FileCopier::WriteFailed);
    quint32 crc = 0;
    QVERIFY(!FileCopier::crc32Of(dir.filePath("absent.bin"), &crc));
}

QTEST_GUILESS_MAIN(TestFileCopier)
#include "tst_file_copier.moc"
