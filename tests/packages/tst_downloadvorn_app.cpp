#include "def.h"
#include "downLoadVorn_app.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QtTest>

// The runtime-application installer on real package trees, with the real md5sum.
class TestDownLoadVornApp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void manifest();
    void patterns_data();
    void patterns();
    void checksumList_data();
    void checksumList();
    void clearingKeepsStartImages();
    void delayedCopy_data();
    void delayedCopy();
    void unreadableSource();
    void shortLibraryNames();
    void noRoomRemovesNothing();
    void absurdCountIsUnreadable();

private:
    void writeManifest(const QByteArray& text) { fixture::writeScrambledIni("update.ini", text); }
    QString dir;
};

void TestDownLoadVornApp::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
}

void TestDownLoadVornApp::init()
{
    dir = sandbox::makeScratchDir("runtime");
    QVERIFY(QDir::setCurrent(dir));
}

void TestDownLoadVornApp::cleanup()
{
    QDir::setCurrent("/");
    QDir(dir).removeRecursively();
}

void TestDownLoadVornApp::manifest()
{
    writeManifest("[UPDATEINFO]\nfile_num=3\n[FILE1]\nfile_name=a\ndes_path=/d/\nsrc_path=./\n"
                  "delaycopy_file=\"a.so,,lib+\"\n[FILE3]\nfile_name=*\n"
                  "[ACCESSRIGHT]\nfile_num=1\n[EXE1]\nfile_name=bin/运行\n"
                  "[PREPARE]\ntip=运行环境 1.2\nversion=V 1.2.3\n");
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(app.parseIniFile());
    QCOMPARE(app.fileInfos().size(), 3);
    QCOMPARE(app.fileInfos()[0].delaycopy_file, (QStringList{"a.so", "", "lib+"}));
    QCOMPARE(app.fileInfos()[1].file_name, QString());
    QCOMPARE(app.fileInfos()[2].file_name, QString("*"));
    QCOMPARE(app.exeFiles(), QStringList{"bin/运行"});
    QCOMPARE(fixture::texts(spy), (QStringList{kel::text(2018), kel::text(2021).arg(3)}));
    QString tip;
    QVERIFY(app.checkProjectFiles(tip));
    QCOMPARE(tip, QString("运行环境 1.2"));
    QCOMPARE(app.versionFile(), QString("version.1.2.3"));

    writeManifest("[UPDATEINFO]\nfile_num=0\n[PREPARE]\nversion=\n");
    downLoadVorn_app empty;
    QSignalSpy emptySpy(&empty, &downLoadVorn_app::emitMessage);
    QVERIFY(!empty.parseIniFile());
    QCOMPARE(fixture::redTexts(emptySpy), QStringList{kel::text(2020)});
    QVERIFY(!empty.checkProjectFiles(tip));
    QCOMPARE(tip, kel::text(2017));
    QCOMPARE(empty.versionFile(), QString("version."));
}

void TestDownLoadVornApp::patterns_data()
{
    QTest::addColumn<QStringList>("patterns");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("selected");
    QTest::addColumn<QStringList>("hits");
    const QStringList mixed{"a.so", "", "lib+"};
    QTest::newRow("prefix") << mixed << "libx.so" << true << QStringList{"lib+"};
    QTest::newRow("exact") << mixed << "a.so" << true << QStringList();
    QTest::newRow("no match") << mixed << "a.so.1" << false << QStringList();
    QTest::newRow("empty pattern, empty name") << mixed << "" << true << QStringList();
    QTest::newRow("plus alone") << QStringList{"+"} << "anything" << true << QStringList{"+"};
    QTest::newRow("case-sensitive") << QStringList{"Lib+"} << "libx" << false << QStringList();
}

void TestDownLoadVornApp::patterns()
{
    QFETCH(QStringList, patterns);
    QFETCH(QString, name);
    QFETCH(bool, selected);
    QFETCH(QStringList, hits);
    downLoadVorn_app app;
    downLoadVorn_app::FILE_INFO record;
    record.delaycopy_file = patterns;
    downLoadVorn_app::FILE_INFO* info = &record;
    QCOMPARE(app.judgeFilenameRegExp(name, info), selected);
    QCOMPARE(record.delaycopy_hit, hits);
}

void TestDownLoadVornApp::checksumList_data()
{
    QTest::addColumn<QByteArray>("list");
    QTest::addColumn<bool>("passes");
    QTest::addColumn<QString>("redLine"); // the argument of the red line, if any
    const QByteArray good = QCryptographicHash::hash("payload", QCryptographicHash::Md5).toHex();
    QTest::newRow("all OK") << QByteArray(good + "  data.bin\n") << true << "";
    QTest::newRow("FAILED line") << QByteArray("00000000000000000000000000000000  data.bin\n")
                                 << false << "data.bin: FAILED";
    QTest::newRow("malformed list warns without OK")
        << QByteArray("this is not a checksum line\n") << false
        << "md5sum: version.1: no properly formatted checksum lines found";
    QTest::newRow("nothing printed") << QByteArray() << true << "";
}

void TestDownLoadVornApp::checksumList()
{
    QFETCH(QByteArray, list);
    QFETCH(bool, passes);
    QFETCH(QString, redLine);
    fixture::writeFile("data.bin", "payload");
    fixture::writeFile("version.1", list);
    writeManifest("[PREPARE]\nversion=V 1\n");
    const QByteArray path = qgetenv("PATH");
    if (list.isEmpty()) {
        // Only the output lines count: a checker that prints nothing passes.
        fixture::writeFile(dir + "/bin/md5sum", "#!/bin/sh\nexit 1\n");
        QFile::setPermissions(dir + "/bin/md5sum", QFile::ReadOwner | QFile::ExeOwner);
        qputenv("PATH", (dir + "/bin:").toUtf8() + path);
    }
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    const bool result = app.checkFile(downLoadVorn_app::CHECK_PACKAGE);
    qputenv("PATH", path);
    QCOMPARE(result, passes);
    QCOMPARE(fixture::redTexts(spy),
             redLine.isEmpty() ? QStringList() : QStringList{kel::text(2034).arg(redLine)});
    QCOMPARE(fixture::texts(spy).first(), kel::text(2028).arg("version.1"));
}

void TestDownLoadVornApp::clearingKeepsStartImages()
{
    const QString panel = dir + "/panel/";
    for (const char* name : {"old.so", "startBarLoadGnd.bmp", "my_progress_bar_start.png", "run"})
        fixture::writeFile(panel + name, "x");
    fixture::writeFile(panel + "sub/keep", "x");
    writeManifest(
        ("[UPDATEINFO]\nfile_num=2\n[FILE1]\nfile_name=*\nsrc_path=./pkg/\ndes_path=" + panel +
         "\n[FILE2]\nfile_name=gone.txt\nsrc_path=./\ndes_path=" + dir + "/new/dir/\n")
            .toUtf8());
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(app.parseIniFile());
    QVERIFY(app.removeOldProjectFiles());
    QStringList left = QDir(panel).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(left, (QStringList{"my_progress_bar_start.png", "startBarLoadGnd.bmp", "sub"}));
    QVERIFY(QFileInfo(dir + "/new/dir").isDir());
    QVERIFY(fixture::texts(spy).contains(kel::text(2024).arg(2).arg(dir + "/new/dir/")));
    QVERIFY(fixture::redTexts(spy).isEmpty());
}

void TestDownLoadVornApp::delayedCopy_data()
{
    QTest::addColumn<QString>("patterns");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<QStringList>("copyOrder"); // delayed files come after every other one
    QTest::newRow("exact and prefix")
        << "a.so,lib+" << true << QStringList{"main", "a.so", "lib1.so", "lib2.so"};
    QTest::newRow("pattern naming no file")
        << "a.so,b.so" << false << QStringList{"lib1.so", "lib2.so", "main", "a.so"};
}

void TestDownLoadVornApp::delayedCopy()
{
    QFETCH(QString, patterns);
    QFETCH(bool, succeeds);
    QFETCH(QStringList, copyOrder);
    for (const char* name : {"a.so", "lib1.so", "lib2.so", "main"})
        fixture::writeFile(QString("pkg/") + name, name);
    const QString panel = dir + "/panel/";
    writeManifest(("[UPDATEINFO]\nfile_num=1\n[FILE1]\nfile_name=*\nsrc_path=./pkg/\ndes_path=" +
                   panel + "\ndelaycopy_file=\"" + patterns + "\"\n")
                      .toUtf8());
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(app.parseIniFile());
    QVERIFY(app.removeOldProjectFiles());
    QCOMPARE(app.updateProjectFile(), succeeds);
    QStringList copied;
    for (const QString& line : fixture::texts(spy)) {
        if (line.startsWith(kel::text(2043).arg(panel)))
            copied << line.mid(kel::text(2043).arg(panel).size());
    }
    QCOMPARE(copied, copyOrder);
    if (!succeeds)
        QCOMPARE(fixture::redTexts(spy), QStringList{kel::text(2041).arg("./pkg/", "b.so")});
}

void TestDownLoadVornApp::unreadableSource()
{
    writeManifest(("[UPDATEINFO]\nfile_num=1\n[FILE1]\nfile_name=missing\nsrc_path=./\ndes_path=" +
                   dir + "/p/\n")
                      .toUtf8());
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(app.parseIniFile());
    QVERIFY(!app.updateProjectFile());
    QCOMPARE(fixture::redTexts(spy), QStringList{kel::text(2042).arg("./missing")});
}

void TestDownLoadVornApp::shortLibraryNames()
{
    for (const char* name : {"libQt.so.4.8.7", "libQt.so.4", "libQt.so", "a.b.so.1", "plain"})
        fixture::writeFile(name, name);
    QFile::remove("libQt.so.4");
    downLoadVorn_app app;
    QVERIFY(app.creatLink());
    QStringList names = QDir(".").entryList(QDir::Files);
    names.removeAll("update.ini");
    QCOMPARE(names, (QStringList{"a.b.so", "libQt.so", "libQt.so.4", "plain"}));
    QCOMPARE(fixture::readFile("libQt.so.4"), QByteArray("libQt.so.4.8.7"));
}

void TestDownLoadVornApp::noRoomRemovesNothing()
{
    INSIDE_SANDBOX_REQUIRED();
    const QString panel = dir + "/small/";
    QDir().mkpath(panel);
    QCOMPARE(QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=128k", "tmpfs", panel}), 0);
    fixture::writeFile(panel + "old", QByteArray(16 * 1024, 'o'));
    fixture::writeFile("pkg/new", QByteArray(512 * 1024, 'n'));
    writeManifest(("[UPDATEINFO]\nfile_num=1\n[FILE1]\nfile_name=*\nsrc_path=./pkg/\ndes_path=" +
                   panel + "\n")
                      .toUtf8());
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(app.parseIniFile());
    QVERIFY(!app.removeOldProjectFiles());
    QVERIFY(QFileInfo::exists(panel + "old"));
    QCOMPARE(fixture::redTexts(spy).size(), 1);
    QVERIFY(fixture::redTexts(spy).first().startsWith(kel::text(2223).section("%1", 0, 0)));
    QVERIFY(fixture::redTexts(spy).first().contains("512"));
    QProcess::execute("umount", {panel});
}

void TestDownLoadVornApp::absurdCountIsUnreadable()
{
    writeManifest("[UPDATEINFO]\nfile_num=4000000000\n");
    downLoadVorn_app app;
    QSignalSpy spy(&app, &downLoadVorn_app::emitMessage);
    QVERIFY(!app.parseIniFile());
    QCOMPARE(fixture::redTexts(spy), QStringList{kel::text(2019)});
    QVERIFY(app.fileInfos().isEmpty());
}

// In a sandbox: manifests are opened through a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestDownLoadVornApp)
#include "tst_downloadvorn_app.moc"
