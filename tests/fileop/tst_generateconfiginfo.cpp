#include "def.h"
#include "fixture.h"
#include "generateconfiginfo.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QtTest>

// The manifest reader on scrambled manifests: orderings, conversions, tables and refusals.
class TestGenerateConfigInfo : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { fixture::removeTree(dir); }
    void copyRecords_data();
    void copyRecords();
    void deleteAndGrantOrder();
    void refusals_data();
    void refusals();

private:
    QString manifest(const QByteArray& text);
    QString dir;
};

void TestGenerateConfigInfo::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile({}, kel::kDefaultLanguageFile);
    dir = sandbox::makeScratchDir("manifest");
}

QString TestGenerateConfigInfo::manifest(const QByteArray& text)
{
    fixture::writeScrambledIni(dir + "/update.ini", text);
    return dir + "/update.ini";
}

void TestGenerateConfigInfo::copyRecords_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<QStringList>("expected"); // "src|crc|size|mode|priority" in processing order

    QTest::newRow("priorities sort, equals keep numbering order")
        << QByteArray("[COPYFILE]\nCOPYFILENUM=4\n"
                      "[COPYFILE1]\nSRCPATH=a\nPRIORITY=10\n[COPYFILE2]\nSRCPATH=b\nPRIORITY=-1\n"
                      "[COPYFILE3]\nSRCPATH=c\nPRIORITY=2\n[COPYFILE4]\nSRCPATH=d\nPRIORITY=2\n")
        << QStringList{"b||0|0|-1", "c||0|0|2", "d||0|0|2", "a||0|0|10"};
    QTest::newRow("crc upper-cased, odd mode reads 0, size kept")
        << QByteArray("[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\nSRCPATH=x\nCRC32=abcd12ef\n"
                      "SIZE=4096\nMODE=x\nPRIORITY=z\n")
        << QStringList{"x|ABCD12EF|4096|0|0"};
}

void TestGenerateConfigInfo::copyRecords()
{
    QFETCH(QByteArray, ini);
    QFETCH(QStringList, expected);
    GenerateConfigInfo reader;
    QVERIFY(reader.readIni(manifest(ini)));
    QStringList actual;
    for (const copyFileInfo_s& info : reader.getCopyFileSet())
        actual << QString("%1|%2|%3|%4|%5")
                      .arg(info.srcPath, info.crc32)
                      .arg(info.size)
                      .arg(info.mode)
                      .arg(info.priority);
    QCOMPARE(actual, expected);
}

void TestGenerateConfigInfo::deleteAndGrantOrder()
{
    GenerateConfigInfo reader;
    const QString path = manifest(
        "[DELFILE]\nDELFILENUM=3\n[DELFILE1]\nSRCPATH=/p5\nPRIORITY=5\n[DELFILE2]\nSRCPATH=/p1\n"
        "PRIORITY=1\nMODE=2\n[DELFILE3]\nSRCPATH=/q5\nPRIORITY=5\n"
        "[EXEFILE]\nEXEFILENUM=3\n[EXEFILE1]\nSRCPATH=/a/c\n[EXEFILE2]\nSRCPATH=/a/b\n"
        "[EXEFILE3]\nSRCPATH=/B\n[PREPARE3]\nSTOPPROC=c\n[PREPARE4]\nSTOPPROC=d\n");
    QVERIFY(reader.readFileOpConfig(path));
    QStringList deletions;
    for (const delFileInfo_s& info : reader.getDelFileSet())
        deletions << info.srcPath + ":" + QString::number(info.mode);
    QCOMPARE(deletions, (QStringList{"/p1:2", "/p5:0", "/q5:0"}));
    QStringList grants;
    for (const exeFileInfo_s& info : reader.getExeFileSet())
        grants << info.srcPath;
    QCOMPARE(grants, (QStringList{"/B", "/a/b", "/a/c"}));
    // Reading the whole manifest again empties copies and deletions, never the grants.
    QVERIFY(reader.readIni(path));
    QVERIFY(reader.readIni(path));
    QCOMPARE(reader.getPrepareInfo().size(), 3); // always three groups, the fourth is ignored
    QCOMPARE(reader.getPrepareInfo()[2].find("STOPPROC")->second.toString(), QString("c"));
    QCOMPARE(reader.getDelFileSet().size(), size_t(3));
    QCOMPARE(reader.getExeFileSet().size(), size_t(9));
}

void TestGenerateConfigInfo::refusals_data()
{
    QTest::addColumn<QByteArray>("content"); // empty: no file at all
    QTest::addColumn<bool>("scrambled");
    QTest::addColumn<int>("text"); // 0: accepted
    QTest::newRow("missing") << QByteArray() << false << 2217;
    QTest::newRow("exactly the cap") << QByteArray("[EXEFILE]\nEXEFILENUM=100000\n") << true << 0;
    QTest::newRow("one over the cap")
        << QByteArray("[DELFILE]\nDELFILENUM=100001\n") << true << 2218;
    QTest::newRow("absurd copy count")
        << QByteArray("[COPYFILE]\nCOPYFILENUM=2000000000\n") << true << 2218;
}

void TestGenerateConfigInfo::refusals()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, scrambled);
    QFETCH(int, text);
    const QString path = dir + "/refused.ini";
    QFile::remove(path);
    if (scrambled)
        fixture::writeScrambledIni(path, content);
    else if (!content.isEmpty())
        fixture::writeFile(path, content);
    for (bool whole : {true, false}) {
        GenerateConfigInfo reader;
        QSignalSpy spy(&reader, &GenerateConfigInfo::emitMessage);
        QCOMPARE(whole ? reader.readIni(path) : reader.readFileOpConfig(path), text == 0);
        QCOMPARE(fixture::redTexts(spy),
                 text ? QStringList{kel::text(text).arg(path)} : QStringList());
        QCOMPARE(reader.getExeFileSet().size(), size_t(text ? 0 : 100000));
        QVERIFY(reader.getDelFileSet().empty());
    }
}

// In a sandbox: opening a manifest uses a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestGenerateConfigInfo)
#include "tst_generateconfiginfo.moc"
