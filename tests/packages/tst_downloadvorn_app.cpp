#include "def.h"
#include "downLoadVorn_app.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QtTest>

// The runtime-application installer on real package trees, with the real md5sum.
class TestDownLoadVornApp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        MultilingualManager::GetInstance()->loadMultilingualFile({}, kel::kDefaultLanguageFile);
    }
    void init();
    void cleanup() { fixture::removeTree(dir); }
    void manifest_data();
    void manifest();
    void installation_data();
    void installation();
    void room_data();
    void room();
    void linksAreReplacedNotFollowed();
    void checksumList_data();
    void checksumList();

private:
    // A manifest of records "name|src_path|des_path|delaycopy_file".
    void writeManifest(const QStringList& records);
    QString dir;
};

void TestDownLoadVornApp::init()
{
    dir = sandbox::makeScratchDir("runtime");
    QVERIFY(QDir::setCurrent(dir));
}

void TestDownLoadVornApp::writeManifest(const QStringList& records)
{
    QString ini = QString("[UPDATEINFO]\nfile_num=%1\n").arg(records.size());
    for (int i = 0; i < records.size(); ++i) {
        const QStringList f = records[i].split('|');
        ini += QString("[FILE%1]\nfile_name=%2\nsrc_path=%3\ndes_path=%4\ndelaycopy_file=\"%5\"\n")
                   .arg(i + 1)
                   .arg(f.value(0), f.value(1), f.value(2), f.value(3));
    }
    fixture::writeScrambledIni("update.ini", ini.toUtf8());
}

void TestDownLoadVornApp::manifest_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<int>("records"); // -1: refused with this red text
    QTest::addColumn<int>("redText");
    QTest::newRow("three records, the second missing")
        << QByteArray("[UPDATEINFO]\nfile_num=3\n[FILE1]\nfile_name=a\ndelaycopy_file=a.so,,lib+\n"
                      "[FILE3]\nfile_name=*\n[ACCESSRIGHT]\nfile_num=1\n")
        << 3 << 0;
    QTest::newRow("no records") << QByteArray("[UPDATEINFO]\nfile_num=0\n") << -1 << 2020;
    QTest::newRow("exactly the caps")
        << QByteArray("[UPDATEINFO]\nfile_num=100000\n[ACCESSRIGHT]\nfile_num=100000\n") << 100000
        << 0;
    QTest::newRow("one record over the cap")
        << QByteArray("[UPDATEINFO]\nfile_num=100001\n") << -1 << 2019;
    QTest::newRow("one grant over the cap")
        << QByteArray("[UPDATEINFO]\nfile_num=1\n[ACCESSRIGHT]\nfile_num=100001\n") << -1 << 2019;
}

void TestDownLoadVornApp::manifest()
{
    QFETCH(QByteArray, ini);
    QFETCH(int, records);
    QFETCH(int, redText);
    fixture::writeScrambledIni("update.ini", ini + "[EXE1]\nfile_name=bin/运行\n");
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QCOMPARE(app.parseIniFile(), records >= 0);
    QCOMPARE(app.fileInfos().size(), qMax(records, 0));
    QCOMPARE(fixture::redTexts(spy), redText ? QStringList{kel::text(redText)} : QStringList());
    if (records < 0)
        return;
    QCOMPARE(fixture::texts(spy), (QStringList{kel::text(2018), kel::text(2021).arg(records)}));
    QCOMPARE(app.exeFiles().first(), QString("bin/运行"));
    if (records == 3) // an unquoted list keeps its empty element
        QCOMPARE(app.fileInfos().first().delaycopy_file, (QStringList{"a.so", "", "lib+"}));
}

void TestDownLoadVornApp::installation_data()
{
    QTest::addColumn<QString>("patterns");
    QTest::addColumn<QString>("redLine");
    QTest::addColumn<QStringList>("copyOrder"); // delayed files come after every other one
    QTest::newRow("exact and prefix")
        << "a.so,lib+" << QString() << QStringList{"main", "new/x", "a.so", "lib1.so", "lib2.so"};
    QTest::newRow("pattern naming no file")
        << "a.so,b.so" << kel::text(2041).arg("./pkg/", "b.so")
        << QStringList{"lib1.so", "lib2.so", "main", "new/x", "a.so"};
    QTest::newRow("unreadable source") << "" << kel::text(2042).arg("./missing") << QStringList();
}

void TestDownLoadVornApp::installation()
{
    QFETCH(QString, patterns);
    QFETCH(QString, redLine);
    QFETCH(QStringList, copyOrder);
    for (const char* name : {"a.so", "lib1.so", "lib2.so", "main"})
        fixture::writeFile(QString("pkg/") + name, name);
    fixture::writeFile("x", "x");
    const QString panel = dir + "/panel/";
    for (const char* name : {"old.so", "startBarLoadGnd.bmp", "my_progress_bar_start.png", "sub/k"})
        fixture::writeFile(panel + name, "old");
    if (patterns.isEmpty())
        writeManifest({"missing|./|" + panel});
    else
        writeManifest({"*|./pkg/|" + panel + "|" + patterns, "x|./|" + panel + "new/"});
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(app.parseIniFile());
    QVERIFY(app.removeOldProjectFiles());
    QCOMPARE(app.updateProjectFile(), redLine.isEmpty());
    QCOMPARE(fixture::redTexts(spy), redLine.isEmpty() ? QStringList() : QStringList{redLine});
    QStringList copied;
    for (const QString& line : fixture::texts(spy)) {
        if (line.startsWith(kel::text(2043).arg(panel)))
            copied << line.mid(kel::text(2043).arg(panel).size());
    }
    QCOMPARE(copied, copyOrder);
    if (patterns.isEmpty())
        return;
    // The clearing keeps the start-up images and subdirectories; a new directory is made.
    QStringList left = QDir(panel).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot);
    left.removeAll("a.so");
    QCOMPARE(left, (QStringList{"lib1.so", "lib2.so", "main", "my_progress_bar_start.png", "new",
                                "startBarLoadGnd.bmp", "sub"}));
    QVERIFY(fixture::texts(spy).contains(kel::text(2024).arg(2).arg(panel + "new/")));
}

void TestDownLoadVornApp::room_data()
{
    QTest::addColumn<QStringList>("panelFiles"); // "name:KiB" on a 128 KiB file system
    QTest::addColumn<QStringList>("records");    // name|source|destination, under the stick
    QTest::addColumn<bool>("fits");
    const QStringList all{"*|./pkg/|@"};
    QTest::newRow("protected image replaces its old copy")
        << QStringList{"startBarLoadGnd.bmp:80"} << all << true;
    QTest::newRow("a file named twice counts once")
        << QStringList() << QStringList{"*|./pkg/|@", "a.so|./pkg/|@"} << true;
    QTest::newRow("cleared files make room") << QStringList{"old.so:96"} << all << true;
    QTest::newRow("a link frees nothing")
        << QStringList{"old.so:32", "link.so>"} << QStringList{"*|./huge/|@"} << false;
}

void TestDownLoadVornApp::room()
{
    INSIDE_SANDBOX_REQUIRED();
    QFETCH(QStringList, panelFiles);
    QFETCH(QStringList, records);
    QFETCH(bool, fits);
    const QString panel = dir + "/small/";
    QVERIFY(fixture::mountTmpfs(panel, "128k"));
    fixture::writeFile(dir + "/outside", QByteArray(200 * 1024, 'o'));
    for (const QString& file : panelFiles) {
        if (file.endsWith('>'))
            QVERIFY(QFile::link(dir + "/outside", panel + file.chopped(1)));
        else
            fixture::writeFile(panel + file.section(':', 0, 0),
                               QByteArray(file.section(':', 1).toInt() * 1024, 'o'));
    }
    fixture::writeFile("pkg/startBarLoadGnd.bmp", QByteArray(80 * 1024, 'n'));
    fixture::writeFile("pkg/a.so", QByteArray(40 * 1024, 'n'));
    fixture::writeFile("huge/big", QByteArray(136 * 1024, 'n'));
    writeManifest(records.replaceInStrings("@", panel));
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(app.parseIniFile());
    QCOMPARE(app.removeOldProjectFiles() && app.updateProjectFile(), fits);
    if (fits) {
        QVERIFY(fixture::redTexts(spy).isEmpty());
        QCOMPARE(fixture::readFile(panel + "startBarLoadGnd.bmp"), QByteArray(80 * 1024, 'n'));
        return;
    }
    // Refused before anything is removed.
    QCOMPARE(fixture::redTexts(spy).size(), 1);
    QVERIFY(fixture::redTexts(spy).first().startsWith(kel::text(2223).section("%1", 0, 0)));
    QVERIFY(QFileInfo::exists(panel + "old.so"));
}

void TestDownLoadVornApp::checksumList_data()
{
    QTest::addColumn<QByteArray>("list"); // the md5sum list of the package; "-": none
    QTest::addColumn<bool>("passes");
    QTest::addColumn<QString>("redLine");
    QTest::newRow("every file as listed") << QByteArray("60b725f10c9c85c70d97880dfe8191b3  ./a\n"
                                                        "3b5d5c3712955042212316173ccf37be  ./b\n")
                                          << true << QString();
    QTest::newRow("one file changed") << QByteArray("60b725f10c9c85c70d97880dfe8191b3  ./a\n"
                                                    "00000000000000000000000000000000  ./b\n")
                                      << false << kel::text(2034).arg("./b: FAILED");
    QTest::newRow("no list") << QByteArray("-") << false << kel::text(2030).arg("version.1.2.0");
}

void TestDownLoadVornApp::checksumList()
{
    QFETCH(QByteArray, list);
    QFETCH(bool, passes);
    QFETCH(QString, redLine);
    fixture::writeFile("a", "a\n");
    fixture::writeFile("b", "b\n");
    fixture::writeScrambledIni("update.ini",
                               "[PREPARE]\nversion=1.2.0\n[UPDATEINFO]\nfile_num=0\n");
    if (list != "-")
        fixture::writeFile("version.1.2.0", list);
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QCOMPARE(app.checkFile(downLoadVorn_app::CHECK_PACKAGE), passes);
    QCOMPARE(fixture::redTexts(spy), redLine.isEmpty() ? QStringList() : QStringList{redLine});
    if (passes)
        QCOMPARE(fixture::texts(spy).last(), kel::text(2036).arg("version.1.2.0"));
}

void TestDownLoadVornApp::linksAreReplacedNotFollowed()
{
    const QString panel = dir + "/panel/";
    fixture::writeFile(dir + "/outside/f", "outside");
    QDir().mkpath(panel);
    QVERIFY(QFile::link(dir + "/nowhere", panel + "gone.so"));
    QVERIFY(QFile::link(dir + "/outside/f", panel + "cleared.so"));
    QVERIFY(QFile::link(dir + "/outside/f", panel + "startBarLoadGnd.bmp"));
    fixture::writeFile("pkg/startBarLoadGnd.bmp", "image");
    fixture::writeFile("pkg/gone.so", "so");
    writeManifest({"*|./pkg/|" + panel, "gone.so|./pkg/|" + panel});
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(app.parseIniFile());
    QVERIFY(app.removeOldProjectFiles());
    QVERIFY(fixture::texts(spy).contains(kel::text(2050).arg(panel + "gone.so")));
    QVERIFY(fixture::texts(spy).contains(kel::text(2050).arg(panel + "cleared.so")));
    QVERIFY(app.updateProjectFile());
    QCOMPARE(fixture::readFile(dir + "/outside/f"), QByteArray("outside"));
    QCOMPARE(fixture::readFile(panel + "startBarLoadGnd.bmp"), QByteArray("image"));
    QVERIFY(!QFileInfo(panel + "startBarLoadGnd.bmp").isSymLink());
    QCOMPARE(QDir(panel).entryList(QDir::Files | QDir::System),
             (QStringList{"gone.so", "startBarLoadGnd.bmp"}));
}

// In a sandbox: manifests are opened through a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestDownLoadVornApp)
#include "tst_downloadvorn_app.moc"
