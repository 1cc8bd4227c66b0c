#include "def.h"
#include "downLoadPro.h"
#include "fake_panel_library.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QtTest>

// The project installer on real package trees, with a fake of the saved-data library.
class TestDownLoadPro : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        MultilingualManager::GetInstance()->loadMultilingualFile({}, kel::kDefaultLanguageFile);
    }
    void init();
    void cleanup() { fixture::removeTree(dir); }
    void packageChecks_data();
    void packageChecks();
    void countCap_data();
    void countCap();
    void installation_data();
    void installation();
    void savedDataClearing_data();
    void savedDataClearing();

private:
    // A package of files (name, bytes), the i-th bound for dests[i] (or the last of dests).
    void writePackage(const QList<QPair<QString, QByteArray>>& files, const QStringList& dests,
                      const QByteArray& extra = {}, const QString& crc = {}, int sizeDelta = 0);
    QString dir;
};

void TestDownLoadPro::init()
{
    dir = sandbox::makeScratchDir("project");
    QDir().mkpath(dir + "/stick");
    QVERIFY(QDir::setCurrent(dir + "/stick"));
}

void TestDownLoadPro::writePackage(const QList<QPair<QString, QByteArray>>& files,
                                   const QStringList& dests, const QByteArray& extra,
                                   const QString& crc, int sizeDelta)
{
    QString ini = QString("[GLOBAL]\nFILENUM=%1\n").arg(files.size());
    for (int n = 0; n < files.size(); ++n) {
        const QByteArray& bytes = files[n].second;
        fixture::writeFile(files[n].first, bytes);
        ini += QString("[FILE%1]\nNAME=%2\nCRC=%3\nSIZE=%4\nDESPATH=%5\n")
                   .arg(n + 1)
                   .arg(files[n].first, crc.isEmpty() ? fixture::crcText(bytes).toLower() : crc)
                   .arg(bytes.size() + sizeDelta)
                   .arg(dests.value(n, dests.last()));
    }
    fixture::writeFile("project.ini", ini.toUtf8() + extra);
}

void TestDownLoadPro::packageChecks_data()
{
    QTest::addColumn<QString>("crc"); // CRC-32 of "screen 10" is 0x006F1AFE
    QTest::addColumn<int>("sizeDelta");
    QTest::addColumn<int>("redText"); // 0: passes
    QTest::newRow("right crc") << "6f1afe" << 0 << 0;
    QTest::newRow("upper case crc") << "6F1AFE" << 0 << 2170;
    QTest::newRow("leading zeros") << "006f1afe" << 0 << 2170;
    QTest::newRow("size on the stick") << "6f1afe" << 1 << 2168;
}

void TestDownLoadPro::packageChecks()
{
    QFETCH(QString, crc);
    QFETCH(int, sizeDelta);
    QFETCH(int, redText);
    const QByteArray payload = "screen 10";
    writePackage({{"画面.scr", payload}}, {dir + "/panel"}, {}, crc, sizeDelta);
    downLoadPro pro(dir + "/", nullptr);
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    QCOMPARE(pro.init(), redText == 0);
    QCOMPARE(fixture::redTexts(spy),
             redText ? QStringList{kel::text(redText).arg("./画面.scr")} : QStringList());
    if (redText)
        return;
    // The installed copy is checked from its own bytes.
    fixture::writeFile(dir + "/panel/画面.scr", payload + "x");
    QVERIFY(!pro.checkFileCRC(downLoadPro::CHECK_INSTALLED));
    QCOMPARE(fixture::redTexts(spy), QStringList{kel::text(2167).arg(dir + "/panel/画面.scr")});
}

void TestDownLoadPro::countCap_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("exactly the cap") << 100000;
    QTest::newRow("one over the cap") << 100001;
}

void TestDownLoadPro::countCap()
{
    QFETCH(int, count);
    fixture::writeFile("project.ini", "[GLOBAL]\nFILENUM=" + QByteArray::number(count) + "\n");
    downLoadPro pro(dir + "/", nullptr);
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    const bool accepted = count <= 100000;
    QCOMPARE(pro.parseIniFile(), accepted);
    QCOMPARE(pro.fileInfos().size(), accepted ? count : 0);
    QCOMPARE(fixture::redTexts(spy),
             accepted ? QStringList() : QStringList{kel::text(2157).arg("./project.ini")});
}

void TestDownLoadPro::installation_data()
{
    QTest::addColumn<QString>("name"); // of the package's file in the project folder
    QTest::addColumn<int>("newKiB");
    QTest::addColumn<bool>("linked"); // the panel's project folder is a link to a folder elsewhere
    QTest::addColumn<bool>("fits");
    QTest::newRow("fits once the old project is gone") << "main.pro" << 100 << false << true;
    QTest::newRow("does not fit") << "main.pro" << 160 << false << false;
    QTest::newRow("linked project folder") << "main.pro" << 100 << true << true;
    // The old file it replaces lies inside the old project: its room is freed once, not twice.
    QTest::newRow("replacing a file of the old project") << "old.pro" << 150 << false << false;
}

void TestDownLoadPro::installation()
{
    INSIDE_SANDBOX_REQUIRED();
    QFETCH(QString, name);
    QFETCH(int, newKiB);
    QFETCH(bool, linked);
    QFETCH(bool, fits);
    FakePanelLibrary panel;
    const QString small = dir + "/small/";
    QVERIFY(fixture::mountTmpfs(small, "128k"));
    // The old project: 80 KiB of 128 KiB, with links that must go as links.
    const QString project = linked ? dir + "/elsewhere/" : small + "project/";
    fixture::writeFile(project + "old.pro", QByteArray(80 * 1024, 'o'));
    fixture::writeFile(dir + "/saved/recipe", "recipe");
    QVERIFY(QFile::link(dir + "/saved", project + "data"));
    QVERIFY(QFile::link(dir + "/gone", project + "dangling"));
    if (linked)
        QVERIFY(QFile::link(project, small + "project"));
    // A file outside the project replaces its old copy, which is a link.
    QVERIFY(QFile::link(dir + "/saved/recipe", small + "shared.cfg"));
    writePackage({{name, QByteArray(newKiB * 1024, 'n')}, {"shared.cfg", "cfg"}},
                 {small + "project", small}, "[DOWNLOAD]\nCLEARRECIPE=1\n");
    downLoadPro pro(small, nullptr);
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    int progress = 10;
    QCOMPARE(pro.startLoadProject(progress), fits);
    QCOMPARE(fixture::readFile(dir + "/saved/recipe"), QByteArray("recipe"));
    if (fits) {
        QCOMPARE(progress, 14);
        QCOMPARE(panel.calls, QStringList{"delSaveData 1 0"});
        QCOMPARE(QDir(small + "project")
                     .entryList(QDir::Files | QDir::System | QDir::Dirs | QDir::NoDotAndDotDot),
                 QStringList{"main.pro"});
        QCOMPARE(fixture::readFile(small + "shared.cfg"), QByteArray("cfg"));
        QCOMPARE(QFileInfo::exists(dir + "/elsewhere/old.pro"), linked);
        QCOMPARE(fixture::texts(spy).last(), kel::text(2171));
        return;
    }
    // Refused before anything changes on the panel, the saved data included.
    QCOMPARE(panel.calls.filter("delSaveData"), QStringList());
    QCOMPARE(fixture::redTexts(spy).size(), 1);
    QVERIFY(fixture::redTexts(spy).first().startsWith(kel::text(2223).section("%1", 0, 0)));
    QCOMPARE(fixture::readFile(project + "old.pro"), QByteArray(80 * 1024, 'o'));
}

void TestDownLoadPro::savedDataClearing_data()
{
    QTest::addColumn<QByteArray>("download"); // the manifest's [DOWNLOAD] keys
    QTest::addColumn<int>("failing");         // the kinds the panel cannot clear
    QTest::addColumn<QString>("call");
    QTest::addColumn<QStringList>("shown"); // "RED " marks a red line
    QTest::newRow("recipes and alarms")
        << QByteArray("CLEARRECIPE=1\nCLEARALARM=1\n") << 0 << "delSaveData 5 0"
        << QStringList{kel::text(2149), kel::text(2153)};
    QTest::newRow("history and initial values")
        << QByteArray("CLEARHISTORY=1\nCLEARINITVALUE=1\n") << 0 << "delSaveData 10 0"
        << QStringList{kel::text(2151), kel::text(2155)};
    // Only a failed recipe clearing is a red line; the others fail in black.
    QTest::newRow("every kind fails")
        << QByteArray("CLEARRECIPE=1\nCLEARHISTORY=1\nCLEARALARM=1\nCLEARINITVALUE=1\n") << 15
        << "delSaveData 15 0"
        << QStringList{"RED " + kel::text(2150), kel::text(2152), kel::text(2154), kel::text(2156)};
    QTest::newRow("nothing asked")
        << QByteArray("CLEARRECIPE=0\n") << 0 << "delSaveData 0 0" << QStringList();
}

void TestDownLoadPro::savedDataClearing()
{
    QFETCH(QByteArray, download);
    QFETCH(int, failing);
    QFETCH(QString, call);
    QFETCH(QStringList, shown);
    FakePanelLibrary panel;
    panel.saveDataFailed = failing;
    writePackage({{"main.pro", "p"}}, {dir + "/panel/project"}, "[DOWNLOAD]\n" + download);
    downLoadPro pro(dir + "/panel/", nullptr);
    QVERIFY(pro.parseIniFile());
    QSignalSpy spy(&pro, &downLoadPro::emitMessage);
    QVERIFY(pro.removeOldSaveData());
    QCOMPARE(panel.calls, QStringList{call});
    QStringList lines;
    for (const QList<QVariant>& message : spy)
        lines << (message[1].value<QColor>() == QColor(Qt::red) ? "RED " : "") +
                     message[0].toString();
    QCOMPARE(lines, shown);
}

KEL_SANDBOXED_TEST_MAIN(TestDownLoadPro)
#include "tst_downloadpro.moc"
