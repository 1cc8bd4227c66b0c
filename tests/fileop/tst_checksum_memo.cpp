#include "checksum_memo.h"
#include "fixture.h"

#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <zlib.h>

// A remembered checksum may only ever stand for the bytes the file holds now: any change of the
// file must lead to a fresh read, and an unchanged file must not be read again.
class TestChecksumMemo : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void changedFileIsReadAgain_data();
    void changedFileIsReadAgain();
    void unchangedFileIsNotReadAgain();

private:
    QTemporaryDir dir;
};

namespace {
quint32 zlibCrc(const QByteArray& bytes)
{
    return static_cast<quint32>(::crc32(::crc32(0L, Z_NULL, 0),
                                        reinterpret_cast<const Bytef*>(bytes.constData()),
                                        static_cast<uInt>(bytes.size())));
}

// Bytes this process has read so far, by any means.
qint64 bytesRead()
{
    QFile io("/proc/self/io");
    if (!io.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : io.readAll().split('\n')) {
        if (line.startsWith("rchar:"))
            return line.mid(6).trimmed().toLongLong();
    }
    return -1;
}
} // namespace

void TestChecksumMemo::init()
{
    ChecksumMemo::clear();
}

enum Change
{
    RewrittenSameSize,
    RewrittenTimesRestored,
    ReplacedByRename,
    Grown,
    Removed
};
Q_DECLARE_METATYPE(Change)

void TestChecksumMemo::changedFileIsReadAgain_data()
{
    QTest::addColumn<Change>("change");
    QTest::newRow("rewritten in place, same size") << RewrittenSameSize;
    QTest::newRow("rewritten, modification time put back") << RewrittenTimesRestored;
    QTest::newRow("replaced by a rename") << ReplacedByRename;
    QTest::newRow("grown") << Grown;
    QTest::newRow("removed") << Removed;
}

void TestChecksumMemo::changedFileIsReadAgain()
{
    QFETCH(Change, change);
    const QString path = dir.filePath("package.bin");
    const QByteArray oldBytes(300000, 'a');
    QByteArray newBytes = oldBytes;
    newBytes[150000] = 'b';
    fixture::writeFile(path, oldBytes);
    struct stat original;
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &original), 0);
    quint32 crc = 0;
    QVERIFY(ChecksumMemo::crc32Of(path, &crc));
    QCOMPARE(crc, zlibCrc(oldBytes));

    // File times have a coarse clock: let it move on, as it has between a package's making and
    // any change on the panel.
    QThread::msleep(30);
    switch (change) {
    case RewrittenSameSize:
        fixture::writeFile(path, newBytes);
        break;
    case RewrittenTimesRestored: {
        fixture::writeFile(path, newBytes);
        const timespec times[2] = {original.st_atim, original.st_mtim};
        QCOMPARE(::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0), 0);
        break;
    }
    case ReplacedByRename:
        fixture::writeFile(path + ".new", newBytes);
        QVERIFY(::rename(QFile::encodeName(path + ".new").constData(),
                         QFile::encodeName(path).constData()) == 0);
        break;
    case Grown:
        newBytes = oldBytes + "tail";
        fixture::writeFile(path, newBytes);
        break;
    case Removed:
        QVERIFY(QFile::remove(path));
        QVERIFY(!ChecksumMemo::crc32Of(path, &crc));
        return;
    }
    QVERIFY(ChecksumMemo::crc32Of(path, &crc));
    QCOMPARE(crc, zlibCrc(newBytes));
}

void TestChecksumMemo::unchangedFileIsNotReadAgain()
{
    const QString path = dir.filePath("big.bin");
    const QByteArray bytes(4 * 1024 * 1024, 'x');
    fixture::writeFile(path, bytes);
    quint32 first = 0, second = 0;
    qint64 before = bytesRead();
    QVERIFY(before >= 0);
    QVERIFY(ChecksumMemo::crc32Of(path, &first));
    QVERIFY(bytesRead() - before >= bytes.size());

    before = bytesRead();
    QVERIFY(ChecksumMemo::crc32Of(path, &second));
    QVERIFY2(bytesRead() - before < bytes.size() / 100,
             qPrintable(QString::number(bytesRead() - before)));
    QCOMPARE(second, first);
    QCOMPARE(second, zlibCrc(bytes));
}

QTEST_GUILESS_MAIN(TestChecksumMemo)
#include "tst_checksum_memo.moc"
