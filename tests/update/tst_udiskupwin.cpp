#include "app_exit_failed_dlg.h"
#include "cevrupdlg.h"
#include "clogger.h"
#include "def.h"
#include "fake_panel_library.h"
#include "fixture.h"
#include "message_pane.h"
#include "multilingual_management.h"
#include "sandbox.h"
#include "udiskupwin.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTextBlock>
#include <QTextEdit>
#include <QtTest>

// The update dialog driven headless on temporary packages, inside a sandbox whose
// /usr/vorn_app and /etc/systemd/system are private. Whole successful updates are the
// simulator's tests; these are the paths it does not take.
class TestUDiskUpWin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        MultilingualManager::GetInstance()->loadMultilingualFile({}, kel::kDefaultLanguageFile);
        qputenv("VORN_WORK_DIR", kel::kVornAppDir);
    }
    void init();
    void cleanup();
    void runs_data();
    void runs();
    void checksLogWhatFailed_data();
    void checksLogWhatFailed();
    void servicesAndCommand();
    void restart_data();
    void restart();
    void windowFlags();
    void everyLineOfABigPackage_data();
    void everyLineOfABigPackage();

private:
    // Runs a whole update of the package in dir/pkg with the given options.
    void run(const QStringList& args);
    // The pane's lines with their colours: "text" or "RED text", once the event queue was served
    // (as the pane waits for it) or as they stand.
    QStringList pane(bool serveEvents = true) const;
    QString log() const { return QString::fromUtf8(fixture::readFile(dir + "/update.log")); }

    QString dir;
    std::unique_ptr<UDiskUpWin> dialog;
    std::unique_ptr<CLogger> logger;
    std::unique_ptr<FakePanelLibrary> panel;
    int redScreens = 0;
};

void TestUDiskUpWin::init()
{
    INSIDE_SANDBOX_REQUIRED();
    dir = sandbox::makeScratchDir("dialog");
    QDir(kel::kVornAppDir).removeRecursively();
    QDir().mkpath(kel::kVornAppDir);
    QDir(kel::kSystemdUnitDir).removeRecursively();
    QDir().mkpath(QString(kel::kSystemdUnitDir) + "multi-user.target.wants");
    QDir().mkpath(dir + "/pkg");
    panel.reset(new FakePanelLibrary);
    panel->runtimeExited = true;
    panel->rebootResult = 0;
    redScreens = 0;
}

void TestUDiskUpWin::cleanup()
{
    dialog.reset();
    logger.reset();
    panel.reset();
    if (!dir.isEmpty())
        fixture::removeTree(dir);
}

void TestUDiskUpWin::run(const QStringList& args)
{
    QVERIFY(QDir::setCurrent(dir + "/pkg"));
    const QuietUpdateParam param = fixture::parseArgs(args);
    dialog.reset(new UDiskUpWin(nullptr));
    dialog->setParamInfo(param);
    logger.reset(new CLogger(param.quiet ? dir + "/update.log" : QString(), CLogger::ReadWrite));
    logger->write(kel::text(2054)); // the header that the report replaces, as main writes it
    dialog->setLogger(logger.get());
    connect(dialog.get(), &UDiskUpWin::setErrorBackgrnd, this, [this] { ++redScreens; });
    dialog->startUpdate();
}

QStringList TestUDiskUpWin::pane(bool serveEvents) const
{
    QStringList lines;
    if (serveEvents)
        QCoreApplication::processEvents();
    const QTextDocument* document = dialog->findChild<QTextEdit*>("textEdit")->document();
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        const QColor colour = block.begin().fragment().charFormat().foreground().color();
        if (!block.text().isEmpty())
            lines << (colour == QColor(Qt::red) ? "RED " : "") + block.text();
    }
    return lines;
}

void TestUDiskUpWin::runs_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<int>("progress");         // 100: succeeds
    QTest::addColumn<QStringList>("mustShow"); // in order; "RED " marks red lines
    const QByteArray copy = "[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\nSRCPATH=./a.conf\n"
                            "DESTPATH=/usr/vorn_app/a.conf\n";
    QTest::newRow("everything off still copies")
        << QStringList{"-s", "-nr"}
        << QByteArray(
               "[UPDATE]\nUPSYSTEM=false\n[RESTART]\nREBOOT=1\nBEEPNUM=2\n"
               "COMMAND=sleep 0.2 && echo migrating && echo ran > /usr/vorn_app/command.out\n" +
               copy)
        << 100
        << QStringList{kel::text(2080), kel::text(2182).arg("./a.conf.bak"), kel::text(2088),
                       kel::text(2098), kel::text(2099)};
    // Items not requested still count their progress steps.
    QTest::newRow("system item without manifest")
        << QStringList{"-nr"} << QByteArray("[UPDATE]\nUPSYSTEM=true\n" + copy) << 5
        << QStringList{kel::text(2107), "RED " + kel::text(2129), "RED " + kel::text(2109),
                       "RED " + kel::text(2083)};
}

void TestUDiskUpWin::runs()
{
    QFETCH(QStringList, args);
    QFETCH(QByteArray, ini);
    QFETCH(int, progress);
    QFETCH(QStringList, mustShow);
    fixture::writeFile(dir + "/pkg/a.conf", "level=3\n");
    fixture::writeFile("/usr/vorn_app/a.conf", "old");
    fixture::writeScrambledIni(dir + "/pkg/update.ini", ini);
    QDir().mkpath(dir + "/pkg/system");
    // Every step that changes files reaches the medium before the next one is reported.
    QStringList syncedAfter;
    panel->syncHook = [&] { syncedAfter << pane().value(pane().size() - 1); };
    run(args);
    const bool succeeds = progress == 100;
    QVERIFY(dialog->isFinished());
    QCOMPARE(dialog->progress(), progress);
    QVERIFY(log().startsWith(QString::fromUtf8(succeeds ? "[成功]\n" : "[失败]\n")));
    QVERIFY(dialog->findChild<QPushButton*>("btnRestart")->isEnabled());
    QCOMPARE(fixture::readFile("/usr/vorn_app/a.conf"), succeeds ? "level=3\n" : "old");
    QCOMPARE(redScreens > 0, !succeeds);
    int at = -1;
    for (const QString& line : mustShow) {
        QVERIFY2(pane().indexOf(line, at + 1) > at, qPrintable("missing or out of order: " + line));
        at = pane().indexOf(line, at + 1);
    }
    // The pane and the log show paths in the runtime directory relative to it.
    QVERIFY(!(log() + pane().join('\n')).contains(kel::kVornAppDir));
    // A command that prints before its work still does all of it.
    QCOMPARE(fixture::readFile("/usr/vorn_app/command.out"), succeeds ? "ran\n" : QByteArray());
    if (succeeds) { // after the copy set's commit and after the delete set
        QVERIFY(syncedAfter.contains(kel::text(2182).arg("./a.conf.bak")));
        QVERIFY(syncedAfter.contains(kel::text(2089)));
    }
    // Quiet runs with "-nr" never beep or restart, whatever the package asks.
    QCOMPARE(panel->calls.filter(QRegularExpression("beep|reboot")), QStringList());
}

void TestUDiskUpWin::checksLogWhatFailed_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QString>("workerLine"); // names what failed
    QTest::addColumn<int>("checkLine");
    QTest::newRow("system file") << "UPSYSTEM" << kel::text(2211).arg("./a.conf") << 2062;
    QTest::newRow("runtime file") << "UPVORN_APP" << kel::text(2034).arg("a.conf: FAILED") << 2064;
    QTest::newRow("project file") << "UPPROJECT" << kel::text(2170).arg("./a.conf") << 2068;
}

void TestUDiskUpWin::checksLogWhatFailed()
{
    QFETCH(QString, item);
    QFETCH(QString, workerLine);
    QFETCH(int, checkLine);
    const QString folder = dir + "/pkg/" + item.mid(2).toLower() + "/";
    fixture::writeScrambledIni(dir + "/pkg/update.ini", "[UPDATE]\n" + item.toUtf8() + "=true\n");
    fixture::writeFile(folder + "a.conf", "corrupt");
    fixture::writeScrambledIni(folder + "update.ini",
                               "[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\nSRCPATH=./a.conf\n"
                               "DESTPATH=/usr/vorn_app/a.conf\nCRC32=1234\n"
                               "[PREPARE]\nversion=V 1\n");
    fixture::writeFile(folder + "version.1",
                       QCryptographicHash::hash("a", QCryptographicHash::Md5).toHex() +
                           "  a.conf\n");
    fixture::writeFile(folder + "project.ini", "[GLOBAL]\nFILENUM=1\n[FILE1]\nNAME=a.conf\n"
                                               "CRC=1234\nSIZE=7\nDESPATH=/usr/vorn_app\n");
    run({"-s", "-nr"});
    QVERIFY(!dialog->isSucceeded());
    const int worker = log().indexOf(workerLine);
    QVERIFY2(worker > 0 && log().indexOf(kel::text(checkLine)) > worker, qPrintable(log()));
    QVERIFY(!pane().join('\n').contains(workerLine));
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
    QCOMPARE(pane().filter("RED "),
             (QStringList{"RED " + kel::text(2146), "RED " + kel::text(2101)}));
    QVERIFY(pane().contains(kel::text(2104)));
    QVERIFY(!QFileInfo::exists("/usr/vorn_app/command.out"));
}

void TestUDiskUpWin::restart_data()
{
    QTest::addColumn<int>("reboot");
    QTest::addColumn<int>("ticks"); // of the one-second countdown before the restart
    QTest::newRow("REBOOT=1: at once") << 1 << 0;
    QTest::newRow("REBOOT=2: after the countdown") << 2 << 11;
}

void TestUDiskUpWin::restart()
{
    QFETCH(int, reboot);
    QFETCH(int, ticks);
    fixture::writeScrambledIni(dir + "/pkg/update.ini",
                               "[RESTART]\nREBOOT=" + QByteArray::number(reboot) + "\nBEEPNUM=2\n");
    run({});
    QVERIFY(dialog->isSucceeded());
    const QRegularExpression restart("beep 1000|reboot");
    for (int tick = 0; tick < ticks; ++tick) {
        QCOMPARE(panel->calls.filter(restart), QStringList());
        QMetaObject::invokeMethod(dialog.get(), "onTimer");
    }
    QCOMPARE(panel->calls.filter(restart).mid(0, 2), (QStringList{"beep 1000", "reboot"}));
    if (ticks > 0)
        QVERIFY2(pane().contains(kel::text(2220).arg(0)), qPrintable(pane().join('\n')));
}

void TestUDiskUpWin::windowFlags()
{
    panel->rebootResult = -1;
    QList<Qt::WindowFlags> seen;
    // Message boxes run modally: their flags are read, then they are accepted.
    QTimer boxReader;
    connect(&boxReader, &QTimer::timeout, [&seen] {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible()) {
                seen << box->windowFlags();
                box->accept();
            }
        }
    });
    boxReader.start(50);
    UDiskUpWin update(nullptr);
    app_exit_failed_dlg wait(nullptr, {});
    seen << update.windowFlags() << wait.windowFlags() << cevrUpDlg(nullptr).windowFlags();
    update.close();      // refused while the update runs
    update.restartKel(); // a refused restart
    wait.findChild<QPushButton*>("rebootBtn")->click();
    QCOMPARE(seen.size(), 6);
    // No system menu and no maximising under any window manager.
    for (const Qt::WindowFlags flags : seen) {
        QVERIFY(flags & Qt::WindowStaysOnTopHint);
        QVERIFY(!(flags & (Qt::WindowSystemMenuHint | Qt::WindowMaximizeButtonHint |
                           Qt::WindowContextHelpButtonHint)));
    }
}

void TestUDiskUpWin::everyLineOfABigPackage_data()
{
    QTest::addColumn<bool>("closing");
    QTest::newRow("the event queue brings them") << false;
    // A closing dialog may never serve the queue again: its last screen must still show them.
    QTest::newRow("closing the dialog brings them") << true;
}

void TestUDiskUpWin::everyLineOfABigPackage()
{
    QFETCH(bool, closing);
    // Lines reach the pane in batches: none may be lost, reordered or take another's colour.
    dialog.reset(new UDiskUpWin(nullptr));
    logger.reset(new CLogger(dir + "/update.log", CLogger::ReadWrite));
    dialog->setLogger(logger.get());
    QStringList expected;
    for (int i = 0; i < 10000; ++i) {
        const bool red = i % 997 == 0;
        const QString line = QString::fromUtf8("拷贝文件./files/f%1成功！").arg(i);
        dialog->updateOutMessage(line, red ? QColor(Qt::red) : QColor(Qt::black));
        expected << (red ? "RED " : "") + line;
        if (i % 1000 == 0)
            QCoreApplication::processEvents(); // as the copies serve the event queue
    }
    if (closing)
        dialog->CloseBySignal();
    QCOMPARE(pane(!closing), expected);
    QCOMPARE(log().split('\n', Qt::SkipEmptyParts),
             QStringList(expected).replaceInStrings("RED ", ""));
}

KEL_SANDBOXED_TEST_MAIN(TestUDiskUpWin)
#include "tst_udiskupwin.moc"
