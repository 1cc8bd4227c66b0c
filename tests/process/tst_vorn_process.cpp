#include "app_exit_failed_dlg.h"
#include "fake_panel_library.h"
#include "kill_process.h"
#include "sandbox.h"
#include "vorn_process.h"

#include <QApplication>
#include <QPushButton>
#include <QtTest>

// Runtime control against every behaviour of the process-control library the fake can play.
class TestVornProcess : public QObject
{
    Q_OBJECT

private slots:
    void exitProcess_data();
    void exitProcess();
    void killallStopsByName_data();
    void killallStopsByName();
};

void TestVornProcess::exitProcess_data()
{
    QTest::addColumn<int>("exitedAfterPolls"); // state 0 reported from this call on
    QTest::addColumn<int>("refused");          // 1: the exit request, 2: the kill request too
    QTest::addColumn<unsigned>("timeout");
    QTest::addColumn<bool>("quiet");
    QTest::addColumn<QStringList>("requests"); // "dialog": a wait dialog was shown
    QTest::newRow("already gone") << 0 << 0 << 3000u << true << QStringList();
    QTest::newRow("leaves in time") << 3 << 0 << 3000u << true << QStringList{"exit"};
    // Polled every 100 ms: ten polls take a second, well inside the time given.
    QTest::newRow("leaves after a second") << 10 << 0 << 3000u << true << QStringList{"exit"};
    QTest::newRow("refused exit goes to kill")
        << 3 << 1 << 3000u << true << QStringList{"exit", "kill 0"};
    QTest::newRow("no time given") << 2 << 0 << 0u << true << QStringList{"exit", "kill 0"};
    QTest::newRow("refused kill, quiet") << 4 << 2 << 0u << true << QStringList{"exit", "kill 0"};
    QTest::newRow("refused kill, interactive")
        << 4 << 2 << 0u << false << QStringList{"exit", "kill 0", "dialog"};
}

void TestVornProcess::exitProcess()
{
    QFETCH(int, exitedAfterPolls);
    QFETCH(int, refused);
    QFETCH(unsigned, timeout);
    QFETCH(bool, quiet);
    QFETCH(QStringList, requests);
    FakePanelLibrary panel;
    panel.exitResult = refused >= 1;
    panel.killResult = refused >= 2;
    int polls = 0;
    panel.stateHook = [&](int state) { return state == 0 && polls++ >= exitedAfterPolls ? 1 : 0; };
    // The wait dialog appears only when asked to; "force" is pressed on every one.
    QTimer presser;
    connect(&presser, &QTimer::timeout, [&panel] {
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (auto* dialog = qobject_cast<app_exit_failed_dlg*>(w);
                dialog && dialog->isVisible()) {
                panel.calls << "dialog";
                dialog->findChild<QPushButton*>("forceExecBtn")->click();
            }
        }
    });
    presser.start(50);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(vorn_process::exitProcess(timeout, nullptr, quiet));
    QVERIFY(clock.elapsed() < 5000);
    QStringList sent = panel.calls;
    sent.removeAll("state 0");
    QCOMPARE(sent, requests);
}

void TestVornProcess::killallStopsByName_data()
{
    QTest::addColumn<QString>("running"); // the name of a process started for the case, or none
    QTest::addColumn<QString>("stopped"); // the name given to killall
    QTest::addColumn<bool>("gone");
    QTest::newRow("the named process leaves") << "kelstopme"
                                              << "kelstopme" << true;
    // killall stops only the exact name, but the process list still shows the longer one.
    QTest::newRow("a longer name never leaves") << "kelstopmelater"
                                                << "kelstopme" << false;
    QTest::newRow("nothing runs") << QString() << "kelstopme" << true;
}

void TestVornProcess::killallStopsByName()
{
    QFETCH(QString, running);
    QFETCH(QString, stopped);
    QFETCH(bool, gone);
    const QString dir = sandbox::makeScratchDir("killall");
    // Like the runtime, the process is not the updater's child: a shell waits for it and reaps
    // it at once, so that a killed one leaves no zombie in the process list.
    QProcess waiter;
    if (!running.isEmpty()) {
        QVERIFY(QFile::copy("/bin/sleep", dir + "/" + running));
        QFile::setPermissions(dir + "/" + running, QFile::ReadOwner | QFile::ExeOwner);
        waiter.start("/bin/sh", {"-c", "\"$0\" 30 & wait", dir + "/" + running});
        QVERIFY(waiter.waitForStarted());
        QTRY_VERIFY(my_kill_process::is_process_exist(qPrintable(running)));
    }
    QCOMPARE(my_kill_process::killall(stopped), gone);
    if (!running.isEmpty())
        QCOMPARE(waiter.waitForFinished(gone ? 3000 : 0), gone);
    // The survivor goes the same way, so that the next case does not find it.
    if (!running.isEmpty())
        QProcess::execute("pkill", {"-KILL", "-x", running});
    waiter.waitForFinished();
    QDir(dir).removeRecursively();
}

// The fake stands in for the library; the process list is checked inside a private namespace.
KEL_SANDBOXED_TEST_MAIN(TestVornProcess)
#include "tst_vorn_process.moc"
