#include "clogger.h"
#include "def.h"
#include "fake_panel_library.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"
#include "udiskupwin.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QPushButton>
#include <QTextBlock>
#include <QTextEdit>
#include <QtTest>

// The update dialog driven headless on temporary packages, inside a sandbox whose
// /usr/vorn_app and /etc/systemd/system are private.
class TestUDiskUpWin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void messagesShowAndLog();
    void progressClamp_data();
    void progressClamp();
    void runtimeDirectory_data();
    void runtimeDirectory();
    void quietRuns_data();
    void quietRuns();
    void servicesAndCommand();
    void stubbornProcessStopsTheRun();
    void countdownRestarts();
    void rebootAtOnce();

private:
    // Runs a whole update of the package in dir/pkg with the given options.
    void run(const QStringList& args);
    // The pane's lines with their colours: "text" or "RED text".
    QStringList pane() const;
    QString log() const { return QString::fromUtf8(fixture::readFile(dir + "/update.log")); }

    QString dir;
    std::unique_ptr<UDiskUpWin> dialog;
    std::unique_ptr<CLogger> logger;
    std::unique_ptr<FakePanelLibrary> panel;
    int redScreens = 0;
};

void TestUDiskUpWin::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    qputenv("VORN_WORK_DIR", kel::kVornAppDir);
}

void TestUDiskUpWin::init()
{
    INSIDE_SANDBOX_REQUIRED();
    dir = sandbox::makeScratchDir("dialog");
    QDir(kel::kVornAppDir).removeRecursively();
    QDir().mkpath(kel::kVornAppDir);
    QDir(kel::kSystemdUnitDir).removeRecursively();
    QDir().mkpath(QString(kel::kSystemdUnitDir) + "multi-user.target.wants");
    panel.reset(new FakePanelLibrary);
    panel->exitedState = 1;
    panel->rebootResult = 0;
    redScreens = 0;
}

void TestUDiskUpWin::cleanup()
{
    dialog.reset();
    logger.reset();
    panel.reset();
    QDir::setCurrent("/");
    if (!dir.isEmpty())
        QDir(dir).removeRecursively();
}

void TestUDiskUpWin::run(const QStringList& args)
{
    QVERIFY(QDir::setCurrent(dir + "/pkg"));
    QuietUpdateParam param;
    QVector<QByteArray> bytes{"kelloadui.bin"};
    for (const QString& arg : args)
        bytes << arg.toUtf8();
    QVector<char*> argv;
    for (QByteArray& b : bytes)
        argv << b.data();
    param.parseCmdParam(argv.size(), argv.data());
    dialog.reset(new UDiskUpWin(nullptr));
    dialog->setParamInfo(param);
    logger.reset(new CLogger(param.quiet ? dir + "/update.log" : QString(), CLogger::ReadWrite));
    logger->write(kel::text(2054));
    dialog->setLogger(logger.get());
    connect(dialog.get(), &UDiskUpWin::setErrorBackgrnd, this, [this] { ++redScreens; });
    dialog->startUpdate();
}

QStringList TestUDiskUpWin::pane() const
{
    QStringList lines;
    const QTextDocument* document = dialog->findChild<QTextEdit*>("textEdit")->document();
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        if (block.text().isEmpty())
            continue;
        const QColor colour = block.begin().fragment().charFormat().foreground().color();
        lines << (colour == QColor(Qt::red) ? "RED " : "") + block.text();
    }
    return lines;
}

void TestUDiskUpWin::messagesShowAndLog()
{
    QDir().mkpath(dir + "/pkg");
    logger.reset(new CLogger(dir + "/update.log", CLogger::ReadWrite));
    dialog.reset(new UDiskUpWin(nullptr));
    dialog->setLogger(logger.get());
    connect(dialog.get(), &UDiskUpWin::setErrorBackgrnd, this, [this] { ++redScreens; });
    dialog->updateOutMessage("copy /usr/vorn_app/bin/x and /usr/vorn_app/lib", Qt::black);
    QCOMPARE(redScreens, 0);
    dialog->updateOutMessage("broken", Qt::red);
    dialog->updateOutMessage("later", Qt::black);
    QCOMPARE(redScreens, 1);
    QCOMPARE(dialog->palette().color(QPalette::Window),
             QPalette(QColor(Qt::red)).color(QPalette::Window));
    QCOMPARE(pane(), (QStringList{"copy ./bin/x and ./lib", "RED broken", "later"}));
    QCOMPARE(log(), QString("copy ./bin/x and ./lib\nbroken\nlater\n"));
}

void TestUDiskUpWin::progressClamp_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("shown");
    QTest::newRow("full bar never on failure") << 100 << 80;
    QTest::newRow("above") << 150 << 80;
    QTest::newRow("kept") << 91 << 91;
    QTest::newRow("99") << 99 << 99;
    QTest::newRow("negative") << -5 << 0;
}

void TestUDiskUpWin::progressClamp()
{
    QFETCH(int, value);
    QFETCH(int, shown);
    UDiskUpWin win(nullptr);
    QCOMPARE(win.getProcessValue(value), shown);
}

void TestUDiskUpWin::runtimeDirectory_data()
{
    QTest::addColumn<QByteArray>("value"); // "-" for unset
    QTest::addColumn<QString>("expected");
    QTest::newRow("set") << QByteArray("/usr/vorn_app") << "/usr/vorn_app/";
    QTest::newRow("unset") << QByteArray("-") << "VORN_WORK_DIR";
}

void TestUDiskUpWin::runtimeDirectory()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, expected);
    if (value == "-")
        qunsetenv("VORN_WORK_DIR");
    else
        qputenv("VORN_WORK_DIR", value);
    UDiskUpWin win(nullptr);
    qputenv("VORN_WORK_DIR", kel::kVornAppDir);
    QCOMPARE(win.vornDir(), expected);
}

void TestUDiskUpWin::quietRuns_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<bool>("corruptSource");
    QTest::addColumn<QString>("report");
    QTest::addColumn<int>("progress");
    QTest::addColumn<QStringList>("mustShow"); // in order; "RED " marks red lines
    QTest::addColumn<bool>("copied");

    const QByteArray copy = "[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\nSRCPATH=./files/a.conf\n"
                            "DESTPATH=/usr/vorn_app/config/a.conf\nCRC32=@CRC@\n";
    const QStringList checked{"-s", "-nr"};
    QTest::newRow("everything off still copies")
        << checked << QByteArray("[UPDATE]\nUPSYSTEM=false\nUPSYSCONFIG=true\n" + copy) << false
        << QString::fromUtf8("[成功]\n") << 100
        << QStringList{kel::text(2080), kel::text(2088), kel::text(2098), kel::text(2099)} << true;
    QTest::newRow("unreadable manifest")
        << checked << QByteArray() << false << QString::fromUtf8("[失败]\n") << 1
        << QStringList{kel::text(2100), "RED " + kel::text(2218).arg("./update.ini"),
                       "RED " + kel::text(2081)}
        << false;
    // Items not requested still count their progress steps.
    QTest::newRow("pre-check finds a corrupt file")
        << checked << copy << true << QString::fromUtf8("[失败]\n") << 36
        << QStringList{kel::text(2084), "RED " + kel::text(2211).arg("./files/a.conf"),
                       "RED " + kel::text(2086)}
        << false;
    QTest::newRow("system item without manifest")
        << QStringList{"-nr"} << QByteArray("[UPDATE]\nUPSYSTEM=true\n" + copy) << false
        << QString::fromUtf8("[失败]\n") << 5
        << QStringList{kel::text(2107), "RED " + kel::text(2129), "RED " + kel::text(2109),
                       "RED " + kel::text(2083)}
        << false;
}

void TestUDiskUpWin::quietRuns()
{
    QFETCH(QStringList, args);
    QFETCH(QByteArray, ini);
    QFETCH(bool, corruptSource);
    QFETCH(QString, report);
    QFETCH(int, progress);
    QFETCH(QStringList, mustShow);
    QFETCH(bool, copied);
    fixture::writeFile(dir + "/pkg/files/a.conf", "level=3\n");
    ini.replace("@CRC@", fixture::crcText("level=3\n").toUtf8());
    if (corruptSource)
        fixture::writeFile(dir + "/pkg/files/a.conf", "level=4\n");
    if (ini.isEmpty())
        fixture::writeFile(dir + "/pkg/update.ini", "not scrambled at all");
    else
        fixture::writeScrambledIni(dir + "/pkg/update.ini", ini);
    QDir().mkpath(dir + "/pkg/system");

    run(args);
    QVERIFY(dialog->isFinished());
    QCOMPARE(dialog->progress(), progress);
    QVERIFY(log().startsWith(report));
    QVERIFY(dialog->findChild<QPushButton*>("btnRestart")->isEnabled());
    QCOMPARE(QFileInfo::exists("/usr/vorn_app/config/a.conf"), copied);
    QCOMPARE(redScreens > 0, !copied);
    const QStringList lines = pane();
    int at = -1;
    for (const QString& line : mustShow) {
        const int found = lines.indexOf(line, at + 1);
        QVERIFY2(found > at, qPrintable("missing or out of order: " + line));
        at = found;
    }
    // Quiet runs with "-nr" never beep or restart.
    QCOMPARE(panel->count("beep"), 0);
    QCOMPARE(panel->count("reboot"), 0);
}

void TestUDiskUpWin::servicesAndCommand()
{
    const QString units = kel::kSystemdUnitDir;
    for (const char* name : {"a", "b", "x"})
        fixture::writeFile(units + "usr_" + name + ".service", "[Service]\n");
    QVERIFY(QFile::link(units + "usr_x.service", units + "multi-user.target.wants/usr_x.service"));
    fixture::writeScrambledIni(dir + "/pkg/update.ini",
                               "[RESTART]\nAUTOSTART=a, ,b, missing\nAUTOSTOP=x\n"
                               "COMMAND=echo ran > /usr/vorn_app/command.out\n");
    run({"-s", "-nr"});
    for (const char* name : {"a", "b"})
        QVERIFY(QFileInfo(units + "multi-user.target.wants/usr_" + name + ".service").isSymLink());
    QVERIFY(!QFileInfo::exists(units + "usr_x.service"));
    QVERIFY(!QFileInfo(units + "multi-user.target.wants/usr_x.service").isSymLink());
    // Every entry is processed, then the missing unit fails the run before the command.
    QCOMPARE(pane().filter(kel::text(2102)).size(), 2);
    QVERIFY(pane().contains("RED " + kel::text(2146)));
    QVERIFY(pane().contains("RED " + kel::text(2101)));
    QVERIFY(pane().contains(kel::text(2104)));
    QVERIFY(!QFileInfo::exists("/usr/vorn_app/command.out"));
    QVERIFY(log().startsWith(QString::fromUtf8("[失败]\n")));

    fixture::writeScrambledIni(dir + "/pkg/update.ini",
                               "[RESTART]\nCOMMAND=echo ran > /usr/vorn_app/command.out\n");
    run({"-s", "-nr"});
    QCOMPARE(fixture::readFile("/usr/vorn_app/command.out"), QByteArray("ran\n"));
    QVERIFY(dialog->isSucceeded());
}

void TestUDiskUpWin::stubbornProcessStopsTheRun()
{
    // A zombie stays in the process list whatever killall sends it.
    fixture::writeFile(dir + "/kelstubborn", "#!/bin/sh\nexit 0\n");
    QFile::setPermissions(dir + "/kelstubborn", QFile::ReadOwner | QFile::ExeOwner);
    QProcess parent;
    parent.start("sh", {"-c", dir + "/kelstubborn & exec sleep 60"});
    QVERIFY(parent.waitForStarted());
    QTest::qWait(300);
    fixture::writeFile(dir + "/pkg/files/a.conf", "x");
    fixture::writeScrambledIni(dir + "/pkg/update.ini",
                               "[PREPARE1]\nSTOPPROC=kelstubborn, keltwo\n[COPYFILE]\n"
                               "COPYFILENUM=1\n[COPYFILE1]\nSRCPATH=./files/a.conf\n"
                               "DESTPATH=/usr/vorn_app/a.conf\n");
    run({"-s", "-nr"});
    parent.kill();
    parent.waitForFinished();
    QCOMPARE(pane().filter("RED "), QStringList{"RED " + kel::text(2221).arg("kelstubborn")});
    QVERIFY(!QFileInfo::exists("/usr/vorn_app/a.conf"));
    QVERIFY(log().startsWith(QString::fromUtf8("[失败]\n")));
}

void TestUDiskUpWin::countdownRestarts()
{
    fixture::writeScrambledIni(dir + "/pkg/update.ini", "[RESTART]\nBEEPNUM=3\nREBOOT=2\n");
    run({});
    QVERIFY(dialog->isSucceeded());
    QCOMPARE(panel->count("reboot"), 0);
    QCOMPARE(dialog->countdownValue(), 10);
    for (int tick = 0; tick < 10; ++tick)
        dialog->onTimer();
    QCOMPARE(panel->count("reboot"), 0);
    dialog->onTimer(); // the tick that shows 0 restarts
    QStringList expected;
    for (int second = 10; second >= 0; --second)
        expected << kel::text(2220).arg(second);
    QCOMPARE(pane().mid(pane().size() - 11), expected);
    QVERIFY(panel->count("reboot") >= 1);
    QCOMPARE(panel->calls.filter("beep").last(), QString("beep 1000"));
    // The beeper sounds BEEPNUM times, a second apart, after success.
    QTRY_COMPARE_WITH_TIMEOUT(panel->count("beep 500"), 3, 5000);
}

void TestUDiskUpWin::rebootAtOnce()
{
    fixture::writeScrambledIni(dir + "/pkg/update.ini", "[RESTART]\nREBOOT=1\n");
    run({});
    QVERIFY(panel->count("reboot") >= 1);
    QVERIFY(dialog->isSucceeded());
    // A quiet run ignores the key.
    panel->calls.clear();
    run({"-s", "-nr"});
    QCOMPARE(panel->count("reboot"), 0);
}

KEL_SANDBOXED_TEST_MAIN(TestUDiskUpWin)
#include "tst_udiskupwin.moc"
