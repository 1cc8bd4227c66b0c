#include "def.h"
#include "file_operation_c.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QtTest>

// The engine on real files: staging, checks, commit with backups, roll-back, deletions, grants.
class TestFileOperation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        MultilingualManager::GetInstance()->loadMultilingualFile({}, kel::kDefaultLanguageFile);
    }
    void init() { dir = sandbox::makeScratchDir("fileop"); }
    void cleanup() { fixture::removeTree(dir); }
    void crcChecks_data();
    void crcChecks();
    void directoryModes();
    void leftOverBackupKeepsOldFile();
    void removeBySuffix_data();
    void removeBySuffix();
    void linksAreNeverFollowed_data();
    void linksAreNeverFollowed();
    void unremovableTree();
    void grants();

private:
    copyFileInfo_s record(const QString& src, const QString& dest, const QString& crc = {},
                          int mode = 0, int priority = 0);
    QString dir;
};

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
    fixture::writeFile(dir + "/out/dest", "old");
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    CopyFileSet set{record(dir + "/src", dir + "/out/new/first"),
                    record(dir + "/src", dir + "/out/dest", crc.toUpper(), 0, 1)};
    QCOMPARE(op.checkCopyFile(set), passes);
    QCOMPARE(op.copyFile(set), passes);
    QCOMPARE(fixture::readFile(dir + "/out/dest"), passes ? content : QByteArray("old"));
    // A failed set is rolled back; a committed one leaves neither staged copies nor backups.
    QCOMPARE(QDir(dir + "/out").entryList(QDir::Files), QStringList{"dest"});
    QCOMPARE(QDir(dir + "/out/new").entryList(QDir::Files),
             passes ? QStringList{"first"} : QStringList());
    if (passes)
        QVERIFY(fixture::texts(spy).contains(kel::text(2182).arg(dir + "/out/dest.bak")));
    else
        QVERIFY(fixture::redTexts(spy).contains(kel::text(2209).arg(dir + "/src")) &&
                fixture::texts(spy).last() == kel::text(2177));
}

void TestFileOperation::directoryModes()
{
    fixture::writeFile(dir + "/tree/top.txt", "top");
    fixture::writeFile(dir + "/tree/.hidden", "h");
    fixture::writeFile(dir + "/tree/sub/deep.txt", "deep");
    fixture::writeFile(dir + "/panel1/top.txt", "old top");
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    // A backslash path makes its directory up to the last backslash; an unknown mode does nothing.
    QDir::setCurrent(dir);
    QVERIFY(op.copyFile(
        CopyFileSet{record("tree/top.txt", "a\\b\\c.txt"), record("nothing", "nowhere", "", 3)}));
    QVERIFY(QFileInfo(dir + "/a\\b").isDir() && QFileInfo::exists(dir + "/a\\b\\c.txt"));
    QVERIFY(!QFileInfo::exists(dir + "/nowhere"));
    QVERIFY(op.copyFile(CopyFileSet{record(dir + "/tree", dir + "/panel1", "", 1)}));
    QCOMPARE(fixture::readFile(dir + "/panel1/top.txt"), QByteArray("top"));
    QCOMPARE(fixture::readFile(dir + "/panel1/.hidden"), QByteArray("h"));
    QCOMPARE(
        QDir(dir + "/panel1").entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden),
        (QStringList{".hidden", "top.txt"}));
    QCOMPARE(fixture::redTexts(spy), QStringList());
    QVERIFY(op.copyFile(CopyFileSet{record(dir + "/tree", dir + "/panel2", "", 2)}));
    QCOMPARE(fixture::readFile(dir + "/panel2/sub/deep.txt"), QByteArray("deep"));
    QVERIFY(!QFileInfo::exists(dir + "/panel2/sub/deep.txt.tmp"));

    QVERIFY(!op.checkCopyFile(CopyFileSet{record(dir + "/nodir", dir + "/x", "", 2)}));
    QVERIFY(!op.copyFile(CopyFileSet{record(dir + "/nodir", dir + "/x", "", 2)}));
    QVERIFY(fixture::redTexts(spy).contains(kel::text(2200).arg(dir + "/nodir")));
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
}

void TestFileOperation::linksAreNeverFollowed_data()
{
    QTest::addColumn<QString>("link"); // "path>target", both under dir
    QTest::addColumn<int>("mode");     // of the deletion of dir/named; -1: a copy to dir/p/f
    QTest::addColumn<QString>("named");
    QTest::addColumn<int>("line"); // black line naming dir/named (+ ".bak" for copies)
    QTest::newRow("deletion names a dangling link") << "p/f>gone" << 0 << "p/f" << 2182;
    QTest::newRow("mode 2 names a directory link") << "p/d>outside" << 2 << "p/d" << 2182;
    QTest::newRow("mode 1 names a directory link") << "p/d>outside" << 1 << "p/d" << 2182;
    QTest::newRow("tree holds a link to a directory") << "p/t/d>outside" << 2 << "p/t" << 2191;
    QTest::newRow("tree holds a dangling link") << "p/t/d>gone" << 2 << "p/t" << 2191;
    QTest::newRow("copy over a link to a file") << "p/f>outside/f" << -1 << "p/f" << 2182;
    // A dangling link at the final path is the old file too: it goes with the backups.
    QTest::newRow("copy over a dangling link") << "p/f>gone" << -1 << "p/f" << 2182;
    QTest::newRow("staged name taken by a link") << "p/f.tmp>outside/f" << -1 << "" << 0;
}

void TestFileOperation::linksAreNeverFollowed()
{
    QFETCH(QString, link);
    QFETCH(int, mode);
    QFETCH(QString, named);
    QFETCH(int, line);
    fixture::writeFile(dir + "/outside/f", "outside");
    fixture::writeFile(dir + "/p/t/plain", "p");
    QVERIFY(QFile::link(dir + "/" + link.section('>', 1), dir + "/" + link.section('>', 0, 0)));
    file_operation_c op("w");
    QSignalSpy spy(&op, &file_operation_c::emitMessage);
    if (mode < 0) {
        fixture::writeFile(dir + "/new", "new");
        QVERIFY(op.copyFile(CopyFileSet{record(dir + "/new", dir + "/p/f")}));
        QCOMPARE(fixture::readFile(dir + "/p/f"), QByteArray("new"));
        QVERIFY(!QFileInfo(dir + "/p/f").isSymLink());
        QCOMPARE(QDir(dir + "/p").entryList(QDir::Files | QDir::System), QStringList{"f"});
        named += ".bak";
    } else {
        delFileInfo_s info;
        info.srcPath = dir + "/" + named;
        info.mode = mode;
        QVERIFY(op.checkDelFile(DelFileSet{info}));
        QVERIFY(op.removeFile(info, ""));
        QVERIFY(!QFileInfo(info.srcPath).exists() && !QFileInfo(info.srcPath).isSymLink());
    }
    QCOMPARE(fixture::readFile(dir + "/outside/f"), QByteArray("outside"));
    QVERIFY(fixture::redTexts(spy).isEmpty());
    if (line)
        QVERIFY(fixture::texts(spy).contains(kel::text(line).arg(dir + "/" + named)));
}

void TestFileOperation::unremovableTree()
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
}

KEL_SANDBOXED_TEST_MAIN(TestFileOperation)
#include "tst_file_operation_c.moc"
