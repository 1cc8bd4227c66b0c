#include "def.h"
#include "host/host_panel_library.h"
#include "sandbox.h"

#include <QApplication>
#include <QFile>
#include <QProcess>
#include <QtTest>

#include <fcntl.h>
#include <sys/reboot.h>
#include <sys/wait.h>
#include <unistd.h>

// The host backend against real processes named like the installed runtime.
class TestHostPanelLibrary : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void runtimeStateFollowsTheProcessList();
    void exitAndKillRequests_data();
    void exitAndKillRequests();
    void recordedActionsGoToStandardError_data();
    void recordedActionsGoToStandardError();

private:
    // A runtime stand-in: a shell that traps SIGTERM when it must ignore the exit request.
    bool startRuntime(bool obeysExit);

    HostPanelLibrary library;
    QProcess runtime;
};

void TestHostPanelLibrary::init()
{
    INSIDE_SANDBOX_REQUIRED();
    QFile::remove(kel::kVornAppProgram);
    QVERIFY(QFile::copy("/bin/sh", kel::kVornAppProgram));
}

void TestHostPanelLibrary::cleanup()
{
    if (runtime.state() != QProcess::NotRunning) {
        runtime.kill();
        runtime.waitForFinished();
    }
}

bool TestHostPanelLibrary::startRuntime(bool obeysExit)
{
    // "ready" tells that the trap is in place, so that no signal can come before it.
    const QString script =
        QString(obeysExit ? "" : "trap '' TERM; ") + "echo ready; sleep 60 & wait";
    runtime.start(kel::kVornAppProgram, {"-c", script});
    return runtime.waitForReadyRead(5000) && runtime.readAll() == "ready\n" &&
           !HostPanelLibrary::runtimeProcesses().empty();
}

void TestHostPanelLibrary::runtimeStateFollowsTheProcessList()
{
    QCOMPARE(library.checkApplicationState(0), 1);
    QCOMPARE(library.checkApplicationState(1), 0);
    QVERIFY(startRuntime(true));
    QCOMPARE(library.checkApplicationState(0), 0);
    QCOMPARE(library.checkApplicationState(1), 0);
    QCOMPARE(library.notifyStopApplication(), -1);
    QCOMPARE(library.notifyLoggerFlush(), 0);
}

void TestHostPanelLibrary::exitAndKillRequests_data()
{
    QTest::addColumn<bool>("obeysExit");
    QTest::addColumn<bool>("kill");
    QTest::addColumn<bool>("gone");
    QTest::newRow("obeys exit") << true << false << true;
    QTest::newRow("ignores exit") << false << false << false;
    QTest::newRow("ignores exit, killed") << false << true << true;
}

void TestHostPanelLibrary::exitAndKillRequests()
{
    QFETCH(bool, obeysExit);
    QFETCH(bool, kill);
    QFETCH(bool, gone);
    QVERIFY(startRuntime(obeysExit));
    QCOMPARE(kill ? library.notifyKillApplication(0) : library.notifyExitApplication(), 0);
    runtime.waitForFinished(2000);
    QCOMPARE(runtime.state() == QProcess::NotRunning, gone);
    QCOMPARE(library.checkApplicationState(0), gone ? 1 : 0);
}

void TestHostPanelLibrary::recordedActionsGoToStandardError_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("status");
    QTest::newRow("beep") << "beep"
                          << "panel: beep 500 ms\n"
                          << 0;
    QTest::newRow("clear") << "clear"
                           << "panel: clear saved data (mask 5, 0)\n"
                           << 0;
    QTest::newRow("exit") << "exit"
                          << "panel: runtime exit requested\n"
                          << 0;
    QTest::newRow("reboot") << "reboot"
                            << "panel: restart requested (RB_AUTOBOOT)\n"
                            << 0;
}

void TestHostPanelLibrary::recordedActionsGoToStandardError()
{
    QFETCH(QString, action);
    QFETCH(QString, line);
    QFETCH(int, status);
    // A restart ends the process, so every action runs in a child of its own.
    const pid_t child = fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        const int fd = ::open("/tmp/stderr.txt", O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, 2);
        HostPanelLibrary host;
        if (action == "beep")
            host.setBeeTime(500);
        else if (action == "clear")
            host.delSaveData(5, 0);
        else if (action == "exit")
            host.notifyExitApplication();
        else
            host.reboot(RB_AUTOBOOT);
        _exit(action == "reboot" ? 3 : 0); // a restart never gets here
    }
    int wstatus = 0;
    QCOMPARE(waitpid(child, &wstatus, 0), child);
    QVERIFY(WIFEXITED(wstatus));
    QCOMPARE(WEXITSTATUS(wstatus), status);
    QFile err("/tmp/stderr.txt"); // private to the sandbox
    QVERIFY(err.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(err.readAll()), line);
}

KEL_SANDBOXED_TEST_MAIN(TestHostPanelLibrary)
#include "tst_host_panel_library.moc"
