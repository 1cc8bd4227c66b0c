#include "def.h"
#include "fixture.h"
#include "generateconfiginfo.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QtTest>

// The manifest reader on scrambled manifests: orderings, conversions, tables and refusals.
class TestGenerateConfigInfo : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void copyRecords_data();
    void copyRecords();
    void deleteAndGrantOrder();
    void tables();
    void refusedManifests_data();
    void refusedManifests();
    void fileOpConfigKeepsGrantsOnReuse();

private:
    QString manifest(const QByteArray& text);
    QString dir;
};

void TestGenerateConfigInfo::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    dir = sandbox::makeScratchDir("manifest");
}

void TestGenerateConfigInfo::cleanupTestCase()
{
    QDir(dir).removeRecursively();
}

QString TestGenerateConfigInfo::manifest(const QByteArray& text)
{
    const QString path = dir + "/update.ini";
    fixture::writeScrambledIni(path, text);
    return path;
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
    QTest::newRow("missing numbered section still makes a record")
        << QByteArray("[COPYFILE]\nCOPYFILENUM=2\n[COPYFILE2]\nSRCPATH=two\nMODE=2\n")
        << QStringList{"||0|0|0", "two||0|2|0"};
    QTest::newRow("count 0 or absent")
        << QByteArray("[COPYFILE]\nCOPYFILENUM=0\n") << QStringList();
    QTest::newRow("Chinese paths") << QByteArray("[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\n"
                                                 "SRCPATH=./文件/配方.csv\n")
                                   << QStringList{"./文件/配方.csv||0|0|0"};
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
    QVERIFY(reader.readFileOpConfig(manifest(
        "[DELFILE]\nDELFILENUM=3\n[DELFILE1]\nSRCPATH=/p5\nPRIORITY=5\n[DELFILE2]\nSRCPATH=/p1\n"
        "PRIORITY=1\nMODE=2\n[DELFILE3]\nSRCPATH=/q5\nPRIORITY=5\n"
        "[EXEFILE]\nEXEFILENUM=3\n[EXEFILE1]\nSRCPATH=/a/c\n[EXEFILE2]\nSRCPATH=/a/b\n"
        "[EXEFILE3]\nSRCPATH=/B\n")));
    QStringList deletions;
    for (const delFileInfo_s& info : reader.getDelFileSet())
        deletions << info.srcPath + ":" + QString::number(info.mode);
    QCOMPARE(deletions, (QStringList{"/p1:2", "/p5:0", "/q5:0"}));
    QStringList grants;
    for (const exeFileInfo_s& info : reader.getExeFileSet())
        grants << info.srcPath;
    QCOMPARE(grants, (QStringList{"/B", "/a/b", "/a/c"}));
}

void TestGenerateConfigInfo::tables()
{
    GenerateConfigInfo reader;
    QVERIFY(reader.readIni(manifest("[UPDATE]\nUPSYSTEM=true\nUPPROJECT=false\n"
                                    "[BACKUP]\nKEEP=1\n"
                                    "[PREPARE]\nPREPARENUM=1\n[PREPARE1]\nSTOPPROC=a\n"
                                    "[PREPARE3]\nSTOPPROC=c\n[PREPARE4]\nSTOPPROC=never\n"
                                    "[RESTART]\nAUTOSTART=\"a, ,b\"\nAUTOSTOP=x, ,y\n"
                                    "COMMAND=echo hi\nBEEPNUM=3\n")));
    const BoolTable update = reader.getUpdateInfo();
    QCOMPARE(update.size(), size_t(2));
    QCOMPARE(update.find("UPSYSTEM")->second, true);
    QCOMPARE(update.find("UPPROJECT")->second, false);
    QCOMPARE(reader.getBackUpInfo().find("KEEP")->second, true);

    const QList<VariantTable> prepare = reader.getPrepareInfo();
    QCOMPARE(prepare.size(), 3);
    QCOMPARE(prepare[0].find("STOPPROC")->second.toString(), QString("a"));
    QVERIFY(prepare[1].empty());
    QCOMPARE(prepare[2].find("STOPPROC")->second.toString(), QString("c"));

    const VariantTable restart = reader.getReStartInfo();
    QStringList stops;
    for (auto range = restart.equal_range("AUTOSTOP"); range.first != range.second; ++range.first)
        stops << range.first->second.toString();
    QCOMPARE(stops, (QStringList{"x", "y"})); // a blank list element is dropped
    // A quoted value is one string, not a list.
    QCOMPARE(restart.find("AUTOSTART")->second.toString(), QString("a, ,b"));
    QCOMPARE(restart.find("COMMAND")->second.toString(), QString("echo hi"));
    QCOMPARE(restart.find("BEEPNUM")->second.toInt(), 3);
}

void TestGenerateConfigInfo::refusedManifests_data()
{
    QTest::addColumn<QByteArray>("content"); // empty: no file at all
    QTest::addColumn<bool>("scrambled");
    QTest::addColumn<int>("text");
    QTest::newRow("missing") << QByteArray() << false << 2217;
    QTest::newRow("plain text") << QByteArray("[COPYFILE]\nCOPYFILENUM=1\n") << false << 2218;
    QTest::newRow("garbage") << QByteArray("\x01\x02\x03\xff\xfe garbage") << false << 2218;
    QTest::newRow("absurd copy count")
        << QByteArray("[COPYFILE]\nCOPYFILENUM=2000000000\n") << true << 2218;
    QTest::newRow("absurd delete count")
        << QByteArray("[DELFILE]\nDELFILENUM=100001\n") << true << 2218;
    QTest::newRow("absurd grant count")
        << QByteArray("[EXEFILE]\nEXEFILENUM=999999\n") << true << 2218;
}

void TestGenerateConfigInfo::refusedManifests()
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
        QVERIFY(!(whole ? reader.readIni(path) : reader.readFileOpConfig(path)));
        QCOMPARE(fixture::redTexts(spy), QStringList{kel::text(text).arg(path)});
        QVERIFY(reader.getCopyFileSet().empty());
        QVERIFY(reader.getDelFileSet().empty());
        QVERIFY(reader.getExeFileSet().empty());
    }
}

void TestGenerateConfigInfo::fileOpConfigKeepsGrantsOnReuse()
{
    GenerateConfigInfo reader;
    const QString path = manifest("[COPYFILE]\nCOPYFILENUM=1\n[EXEFILE]\nEXEFILENUM=1\n"
                                  "[EXEFILE1]\nSRCPATH=/x\n");
    QVERIFY(reader.readIni(path));
    QVERIFY(reader.readIni(path));
    // The open-settings reader empties copies and deletions but never the grants.
    QCOMPARE(reader.getExeFileSet().size(), size_t(2));
    QCOMPARE(reader.getCopyFileSet().size(), size_t(1));
    QVERIFY(reader.readFileOpConfig(path));
    QCOMPARE(reader.getExeFileSet().size(), size_t(1));
}

// In a sandbox: opening a manifest uses a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestGenerateConfigInfo)
#include "tst_generateconfiginfo.moc"
