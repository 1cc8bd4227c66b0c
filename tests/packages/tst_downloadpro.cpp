#include "def.h"
#include "downLoadPro.h"
#include "fake_panel_library.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QtTest>

// The project installer on real package trees, with a fake of the saved-data library.
class TestDownLoadPro : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void packageChecks_data();
    void packageChecks();
    void destinations_data();
    void destinations();
    void savedDataClearing_data();
    void savedDataClearing();
    void wholeInstallation();
    void installedSizeMismatch();
    void absurdCountIsMissing();
    void noRoomKeepsOldProject();

private:
    // A package with the given files; crc/size of each entry overridable.
    void writePackage(const QList<QPair<QString, QByteArray>>& files, const QString& dest,
                      const QByteArray& extra = QByteArray(), const QString& crcOverride = {},
                      int sizeDelta = 0);
    QString dir;
};

void TestDownLoadPro::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
}

void TestDownLoadPro::init()
{
    dir = sandbox::makeScratchDir("project");
    QDir().mkpath(dir + "/stick");
    QVERIFY(QDir::setCurrent(dir + "/stick"));
}

void TestDownLoadPro::cleanup()
{
    QDir::setCurrent("/");
    QDir(dir).removeRecursively();
}

void TestDownLoadPro::writePackage(const QList<QPair<QString, QByteArray>>& files,
                                   const QString& dest, const QByteArray& extra,
                                   const QString& crcOverride, int sizeDelta)
{
    QByteArray ini = "[GLOBAL]\nFILENUM=" + QByteArray::number(files.size()) + "\n";
    int n = 0;
    for (const auto& file : files) {
        fixture::writeFile(file.first, file.second);
        const QString crc =
            crcOverride.isEmpty() ? fixture::crcText(file.second).toLower() : crcOverride;
        ini += "[FILE" + QByteArray::number(++n) + "]\nNAME=" + file.first.toUtf8() +
               "\nCRC=" + crc.toUtf8() +
               "\nSIZE=" + QByteArray::number(file.second.size() + sizeDelta) +
               "\nDESPATH=" + dest.toUtf8() + "\n";
    }
    fixture::writeFile("project.ini", ini + extra);
}

void TestDownLoadPro::packageChecks_data()
{
    QTest::addColumn<QString>("crc"); // empty: the right one
    QTest::addColumn<int>("sizeDelta");
    QTest::addColumn<int>("redText"); // 0: passes
    QTest::newRow("right crc") << QString() << 0 << 0;
    QTest::newRow("upper case crc") << "UPPER" << 0 << 2170;
    QTest::newRow("leading zero crc") << "LEADING" << 0 << 2170;
    QTest::newRow("size on the stick") << QString() << 1 << 2168;
}

void TestDownLoadPro::packageChecks()
{
    QFETCH(QString, crc);
    QFETCH(int, sizeDelta);
    QFETCH(int, redText);
    // A payload whose CRC-32 has a leading zero nibble and a letter.
    QByteArray payload;
    for (int i = 0; fixture::crcText(payload).size() == 8 ||
                    !fixture::crcText(payload).contains(QRegularExpression("[A-F]"));
         ++i)
        payload = "screen " + QByteArray::number(i);
    const QString right = fixture::crcText(payload).toLower();
    QString manifestCrc = right;
    if (crc == "UPPER")
        manifestCrc = right.toUpper();
    else if (crc == "LEADING")
        manifestCrc = "0" + right;
    writePackage({{"画面.scr", payload}}, dir + "/panel", QByteArray(), manifestCrc, sizeDelta);
    downLoadPro pro(dir + "/", nullptr);
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    QCOMPARE(pro.init(), redText == 0);
    QCOMPARE(fixture::redTexts(spy),
             redText ? QStringList{kel::text(redText).arg("./画面.scr")} : QStringList());
}

void TestDownLoadPro::destinations_data()
{
    QTest::addColumn<QString>("despath");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << "/usr/vorn_app/project"
                           << "/usr/vorn_app/project/";
    QTest::newRow("HOME") << "$HOME/data" << qEnvironmentVariable("HOME") + "/data/";
    QTest::newRow("unset variable") << "$KEL_NOT_SET_ANYWHERE/x"
                                    << "$KEL_NOT_SET_ANYWHERE/x/";
    QTest::newRow("twice") << "$HOME$HOME" << qEnvironmentVariable("HOME").repeated(2) + "/";
}

void TestDownLoadPro::destinations()
{
    QFETCH(QString, despath);
    QFETCH(QString, expected);
    writePackage({{"a", "a"}}, despath);
    downLoadPro pro(dir + "/", nullptr);
    QVERIFY(pro.parseIniFile());
    QCOMPARE(pro.fileInfos().first().desPath, expected);
    QCOMPARE(pro.fileInfos().first().srcPath, QString("./"));
    QCOMPARE(pro.projectDir(), dir + "/project");
}

void TestDownLoadPro::savedDataClearing_data()
{
    QTest::addColumn<QByteArray>("flags");
    QTest::addColumn<int>("failures");
    QTest::addColumn<int>("mask");
    QTest::addColumn<QStringList>("lines"); // "id:colour"
    QTest::newRow("none requested") << QByteArray("") << 0 << 0 << QStringList();
    QTest::newRow("all cleared") << QByteArray("CLEARRECIPE=1\nCLEARHISTORY=1\nCLEARALARM=1\n"
                                               "CLEARINITVALUE=1\n")
                                 << 0 << 15 << QStringList{"2149:b", "2151:b", "2153:b", "2155:b"};
    QTest::newRow("all fail, only recipe red")
        << QByteArray("CLEARRECIPE=1\nCLEARHISTORY=1\nCLEARALARM=1\nCLEARINITVALUE=1\n") << 15 << 15
        << QStringList{"2150:r", "2152:b", "2154:b", "2156:b"};
    QTest::newRow("alarm only, failure elsewhere ignored")
        << QByteArray("CLEARALARM=7\n") << 1 << 4 << QStringList{"2153:b"};
}

void TestDownLoadPro::savedDataClearing()
{
    QFETCH(QByteArray, flags);
    QFETCH(int, failures);
    QFETCH(int, mask);
    QFETCH(QStringList, lines);
    FakePanelLibrary panel;
    panel.delSaveDataResult = failures;
    writePackage({}, dir, "[DOWNLOAD]\n" + flags);
    downLoadPro pro(dir + "/", nullptr);
    QVERIFY(pro.parseIniFile());
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    QVERIFY(pro.removeOldSaveData());
    QCOMPARE(panel.calls, QStringList{QString("delSaveData %1 0").arg(mask)});
    QMap<QString, int> ids;
    for (int id = 2149; id <= 2156; ++id)
        ids.insert(kel::text(id), id);
    QStringList actual;
    for (const auto& message : fixture::messages(spy))
        actual << QString::number(ids.value(message.first)) +
                      (message.second == QColor(Qt::red) ? ":r" : ":b");
    QCOMPARE(actual, lines);
}

void TestDownLoadPro::wholeInstallation()
{
    FakePanelLibrary panel;
    fixture::writeFile(dir + "/project/old.pro", "old");
    fixture::writeFile(dir + "/project/sub/old.scr", "old");
    writePackage({{"main.pro", "main"}, {"s1.scr", "screen 1"}}, dir + "/project",
                 "[DOWNLOAD]\nCLEARRECIPE=1\n");
    downLoadPro pro(dir + "/", nullptr);
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    int progress = 10;
    QVERIFY(pro.startLoadProject(progress));
    QCOMPARE(progress, 14);
    QCOMPARE(QDir(dir + "/project").entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot),
             (QStringList{"main.pro", "s1.scr"}));
    QCOMPARE(fixture::readFile(dir + "/project/s1.scr"), QByteArray("screen 1"));
    QVERIFY(fixture::redTexts(spy).isEmpty());
    QCOMPARE(fixture::texts(spy).last(), kel::text(2171));
}

void TestDownLoadPro::installedSizeMismatch()
{
    writePackage({{"a.pro", "abc"}}, dir + "/panel");
    fixture::writeFile(dir + "/panel/a.pro", "abcd");
    downLoadPro pro(dir + "/", nullptr);
    QVERIFY(pro.parseIniFile());
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    QVERIFY(!pro.checkFileCRC(downLoadPro::CHECK_INSTALLED));
    QCOMPARE(fixture::redTexts(spy), QStringList{kel::text(2167).arg(dir + "/panel/a.pro")});
}

void TestDownLoadPro::absurdCountIsMissing()
{
    fixture::writeFile("project.ini", "[GLOBAL]\nFILENUM=100001\n");
    downLoadPro pro(dir + "/", nullptr);
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    QVERIFY(!pro.init());
    QCOMPARE(fixture::redTexts(spy), QStringList{kel::text(2157).arg("./project.ini")});
    QVERIFY(pro.fileInfos().isEmpty());
}

void TestDownLoadPro::noRoomKeepsOldProject()
{
    INSIDE_SANDBOX_REQUIRED();
    FakePanelLibrary panel;
    const QString small = dir + "/small/";
    QDir().mkpath(small);
    QCOMPARE(QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=128k", "tmpfs", small}), 0);
    fixture::writeFile(small + "project/old.pro", "old");
    writePackage({{"big.pro", QByteArray(400 * 1024, 'b')}}, small + "project");
    downLoadPro pro(small, nullptr);
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    int progress = 0;
    QVERIFY(!pro.startLoadProject(progress));
    QCOMPARE(fixture::readFile(small + "project/old.pro"), QByteArray("old"));
    QCOMPARE(fixture::redTexts(spy).size(), 1);
    QVERIFY(fixture::redTexts(spy).first().contains("400"));
    QProcess::execute("umount", {small});
}

KEL_SANDBOXED_TEST_MAIN(TestDownLoadPro)
#include "tst_downloadpro.moc"
