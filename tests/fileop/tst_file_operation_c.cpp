#include "def.h"
#include "file_operation_c.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QtTest>

// The engine on real files: staging, checks, commit with backups, roll-back, deletions, grants.
class TestFileOperation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void crcChecks_data();
    void crcChecks();
    void setCommitsWithBackupsRemoved();
    void failingRecordRollsBackTheSet();
    void directoryModes();
    void backslashDestinationAndUnknownMode();
    void leftOverBackupKeepsOldFile();
    void removeBySuffix_data();
    void removeBySuffix();
    void removeTreeWithUnremovableFile();
    void grants();
    void fullDiskFailsTheCopy();

private:
    copyFileInfo_s record(const QString& src, const QString& dest, const QString& crc = QString(),
                          int mode = 0, int priority = 0);
    QString dir;
};

void TestFileOperation::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
}

void TestFileOperation::init()
{
    dir = sandbox::makeScratchDir("fileop");
}

void TestFileOperation::cleanup()
{
    QDir(dir).removeRecursively();
}

copyFileInfo_s TestFileOperation::record(const QString& src, const QString& dest,
                                         const QString& crc, int mode, int priority)
{
    copyFileInfo_s info;
    info.srcPath = src;
    info.destPath = dest;
    info.crc32 = crc;
    info.mode = mode;
    info.priority = priority;
    return info;
}

void TestFileOperation::crcChecks_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("crc");
    QTest::addColumn<bool>("passes");
    // crc32("a") = E8B7BE43; crc32 of these 3 bytes starts with a zero nibble.
    const QByteArray zeroLed("\x00\x00\x07", 3);
    const QString zeroLedCrc = fixture::crcText(zeroLed);
    QTest::newRow("match") << QByteArray("a") << "E8B7BE43" << true;
    QTest::newRow("lower case in manifest") << QByteArray("a") << "e8b7be43" << true;
    QTest::newRow("mismatch") << QByteArray("b") << "E8B7BE43" << false;
    QTest::newRow("empty crc passes anything") << QByteArray("b") << "" << true;
    QTest::newRow("no leading zero") << zeroLed << zeroLedCrc << true;
    QTest::newRow("leading zero never matches")
        << zeroLed << zeroLedCrc.rightJustified(8, '0') << (zeroLedCrc.size() == 8);
    QTest::newRow("empty file") << QByteArray() << "0" << true;
}

void TestFileOperation::crcChecks()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, crc);
    QFETCH(bool, passes);
    fixture::writeFile(dir + "/src", content);
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    CopyFileSet set{record(dir + "/src", dir + "/out/dest", crc.toUpper())};
    QCOMPARE(op.checkCopyFile(set), passes);
    QCOMPARE(op.copyFile(set), passes);
    QCOMPARE(QFileInfo::exists(dir + "/out/dest"), passes);
    QVERIFY(!QFileInfo::exists(dir + "/out/dest.tmp"));
    if (!passes)
        QVERIFY(fixture::redTexts(spy).contains(kel::text(2209).arg(dir + "/src")));
}

void TestFileOperation::setCommitsWithBackupsRemoved()
{
    fixture::writeFile(dir + "/a", "new a");
    fixture::writeFile(dir + "/lib.so.1", "new lib");
    fixture::writeFile(dir + "/panel/lib.so.1", "old lib");
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    const CopyFileSet set{record(dir + "/a", dir + "/panel/new/app", fixture::crcText("new a")),
                          record(dir + "/lib.so.1", dir + "/panel/lib.so.1")};
    QVERIFY(op.copyFile(set));
    QCOMPARE(fixture::readFile(dir + "/panel/new/app"), QByteArray("new a"));
    QCOMPARE(fixture::readFile(dir + "/panel/lib.so.1"), QByteArray("new lib"));
    QCOMPARE(QDir(dir + "/panel").entryList(QDir::Files), QStringList{"lib.so.1"});
    QVERIFY(fixture::redTexts(spy).isEmpty());
    QVERIFY(fixture::texts(spy).contains(kel::text(2182).arg(dir + "/panel/lib.so.1.bak")));
}

void TestFileOperation::failingRecordRollsBackTheSet()
{
    fixture::writeFile(dir + "/one", "1");
    fixture::writeFile(dir + "/two", "2");
    fixture::writeFile(dir + "/panel/one", "old 1");
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    const CopyFileSet set{record(dir + "/one", dir + "/panel/one", "", 0, 1),
                          record(dir + "/two", dir + "/panel/two", "", 0, 2),
                          record(dir + "/missing", dir + "/panel/three", "", 0, 3)};
    QVERIFY(!op.copyFile(set));
    QCOMPARE(fixture::readFile(dir + "/panel/one"), QByteArray("old 1"));
    QCOMPARE(QDir(dir + "/panel").entryList(QDir::Files), QStringList{"one"});
    const QStringList lines = fixture::texts(spy);
    const int failed = lines.indexOf(kel::text(2176));
    QVERIFY(failed > 0);
    QCOMPARE(lines.at(failed - 1), kel::text(2193).arg(dir + "/missing"));
    QCOMPARE(lines.last(), kel::text(2177));
    QCOMPARE(fixture::messages(spy).last().second, QColor(Qt::black));
}

void TestFileOperation::directoryModes()
{
    fixture::writeFile(dir + "/tree/top.txt", "top");
    fixture::writeFile(dir + "/tree/.hidden", "h");
    fixture::writeFile(dir + "/tree/sub/deep.txt", "deep");
    fixture::writeFile(dir + "/panel1/top.txt", "old top");
    file_operation_c op("w");
    QVERIFY(op.copyFile(CopyFileSet{record(dir + "/tree", dir + "/panel1", "", 1)}));
    QCOMPARE(fixture::readFile(dir + "/panel1/top.txt"), QByteArray("top"));
    QCOMPARE(fixture::readFile(dir + "/panel1/.hidden"), QByteArray("h"));
    QVERIFY(!QFileInfo::exists(dir + "/panel1/sub"));
    QVERIFY(!QFileInfo::exists(dir + "/panel1/top.txt.bak"));

    QVERIFY(op.copyFile(CopyFileSet{record(dir + "/tree", dir + "/panel2", "", 2)}));
    QCOMPARE(fixture::readFile(dir + "/panel2/sub/deep.txt"), QByteArray("deep"));
    QVERIFY(!QFileInfo::exists(dir + "/panel2/sub/deep.txt.tmp"));

    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    QVERIFY(!op.checkCopyFile(CopyFileSet{record(dir + "/nodir", dir + "/x", "", 2)}));
    QVERIFY(!op.copyFile(CopyFileSet{record(dir + "/nodir", dir + "/x", "", 2)}));
    QVERIFY(fixture::redTexts(spy).contains(kel::text(2200).arg(dir + "/nodir")));
}

void TestFileOperation::backslashDestinationAndUnknownMode()
{
    fixture::writeFile(dir + "/src.txt", "x");
    QDir::setCurrent(dir);
    file_operation_c op("w");
    QVERIFY(op.copyFile(CopyFileSet{record("src.txt", "a\\b\\c.txt")}));
    QVERIFY(QFileInfo(dir + "/a\\b").isDir());
    QVERIFY(QFileInfo::exists(dir + "/a\\b\\c.txt"));
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    QVERIFY(op.copyFile(CopyFileSet{record("nothing", "nowhere", "", 3)}));
    QVERIFY(spy.isEmpty());
    QVERIFY(!QFileInfo::exists(dir + "/nowhere"));
}

void TestFileOperation::leftOverBackupKeepsOldFile()
{
    fixture::writeFile(dir + "/new", "new");
    fixture::writeFile(dir + "/panel/f", "old");
    fixture::writeFile(dir + "/panel/f.bak", "older");
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    QVERIFY(op.copyFile(CopyFileSet{record(dir + "/new", dir + "/panel/f")}));
    // Neither rename may overwrite: the old file stays in use and says so in red.
    QCOMPARE(fixture::readFile(dir + "/panel/f"), QByteArray("old"));
    QVERIFY(fixture::redTexts(spy).contains(
        kel::text(2203).arg(dir + "/panel/f.tmp", dir + "/panel/f")));
}

void TestFileOperation::removeBySuffix_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QStringList>("left");
    QTest::newRow("file, matching suffix") << 0 << ".bak" << QStringList{"d/keep", "d/sub/x.bak"};
    QTest::newRow("directory files, empty suffix") << 1 << "" << QStringList{"d/sub/x.bak"};
    QTest::newRow("directory files, .bak") << 1 << ".bak" << QStringList{"d/keep", "d/sub/x.bak"};
    QTest::newRow("tree, .bak") << 2 << ".bak" << QStringList{"d/keep"};
    QTest::newRow("tree, empty suffix") << 2 << "" << QStringList();
}

void TestFileOperation::removeBySuffix()
{
    QFETCH(int, mode);
    QFETCH(QString, suffix);
    QFETCH(QStringList, left);
    fixture::writeFile(dir + "/d/keep", "k");
    fixture::writeFile(dir + "/d/a.bak", "a");
    fixture::writeFile(dir + "/d/sub/x.bak", "x");
    delFileInfo_s info;
    info.srcPath = mode == 0 ? dir + "/d/a.bak" : dir + "/d";
    info.mode = mode;
    file_operation_c op("w");
    QVERIFY(op.removeFile(DelFileSet{info}, suffix));
    QStringList actual;
    QDirIterator it(dir, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        actual << it.next().mid(dir.size() + 1);
    actual.sort();
    QCOMPARE(actual, left);

    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    delFileInfo_s gone;
    gone.srcPath = dir + "/gone";
    QVERIFY(op.removeRegularFile(gone, ""));
    QCOMPARE(fixture::redTexts(spy), QStringList{kel::text(2180).arg(dir + "/gone")});
    gone.srcPath = dir + "/x.so";
    fixture::writeFile(gone.srcPath, "x");
    QVERIFY(op.removeRegularFile(gone, ".bak"));
    QVERIFY(QFileInfo::exists(gone.srcPath));
}

void TestFileOperation::removeTreeWithUnremovableFile()
{
    INSIDE_SANDBOX_REQUIRED();
    fixture::writeFile(dir + "/t/locked/file", "f");
    fixture::writeFile(dir + "/t/free", "f");
    // Root ignores permission bits: a read-only bind mount refuses the removal.
    QCOMPARE(
        QProcess::execute("mount", {"--bind", "-o", "ro", dir + "/t/locked", dir + "/t/locked"}),
        0);
    delFileInfo_s info;
    info.srcPath = dir + "/t";
    info.mode = 2;
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    QVERIFY(!op.removeDirRecursive(info, ""));
    QVERIFY(op.removeFile(DelFileSet{info}, "")); // the set ignores single results
    QVERIFY(QFileInfo::exists(dir + "/t/locked/file"));
    QVERIFY(!QFileInfo::exists(dir + "/t/free"));
    // A directory that cannot be written is not even listed: it stays, and so does its parent.
    QCOMPARE(fixture::redTexts(spy),
             (QStringList{kel::text(2192).arg(dir + "/t"), kel::text(2192).arg(dir + "/t")}));
    QProcess::execute("umount", {dir + "/t/locked"});
}

void TestFileOperation::grants()
{
    fixture::writeFile(dir + "/a", "#!/bin/sh\n");
    fixture::writeFile(dir + "/c", "#!/bin/sh\n");
    exeFileInfo_s a, b, c;
    a.srcPath = dir + "/a";
    b.srcPath = dir + "/b";
    c.srcPath = dir + "/c";
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    QVERIFY(!op.checkExeFile(ExeFileSet{c, b, a}));
    QVERIFY(!op.grantExeFile(ExeFileSet{c, b, a}));
    QVERIFY(QFileInfo(dir + "/a").isExecutable());
    QVERIFY(!QFileInfo(dir + "/c").isExecutable());
    QCOMPARE(fixture::texts(spy),
             (QStringList{kel::text(2179).arg(dir + "/a"), kel::text(2178).arg(dir + "/b")}));
    QVERIFY(op.checkExeFile(ExeFileSet{c, a}));
    QVERIFY(op.grantExeFile(ExeFileSet{}));
}

void TestFileOperation::fullDiskFailsTheCopy()
{
    INSIDE_SANDBOX_REQUIRED();
    QDir().mkpath(dir + "/small");
    QCOMPARE(QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=64k", "tmpfs", dir + "/small"}),
             0);
    fixture::writeFile(dir + "/small/app", "old");
    fixture::writeFile(dir + "/big", QByteArray(256 * 1024, 'x'));
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    QVERIFY(!op.copyFile(CopyFileSet{record(dir + "/big", dir + "/small/app")}));
    QCOMPARE(fixture::readFile(dir + "/small/app"), QByteArray("old"));
    QCOMPARE(QDir(dir + "/small").entryList(QDir::Files), QStringList{"app"});
    const QStringList red = fixture::redTexts(spy);
    QVERIFY(red.contains(kel::text(2222).arg(dir + "/small/app.tmp")));
    QVERIFY(red.contains(kel::text(2195).arg(dir + "/big", dir + "/small/app")));
    QProcess::execute("umount", {dir + "/small"});
}

KEL_SANDBOXED_TEST_MAIN(TestFileOperation)
#include "tst_file_operation_c.moc"
