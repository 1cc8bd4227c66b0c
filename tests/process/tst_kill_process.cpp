#include "kill_process.h"
#include "sandbox.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QtTest>

#include <csignal>
#include <unistd.h>

// Process lookup and killing against real processes, inside a private PID namespace.
class TestKillProcess : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void lookupByName_data();
    void lookupByName();
    void zombiesNeverMatch();
    void killing();
    void killallSubstringNeverGone();

private:
    // Starts a copy of sleep named name, by relative or full path.
    QProcess* start(const QString& name, bool relative);
    QString dir;
    QList<QProcess*> processes;
};

void TestKillProcess::init()
{
    INSIDE_SANDBOX_REQUIRED();
    dir = sandbox::makeScratchDir("procs");
}

void TestKillProcess::cleanup()
{
    for (QProcess* p : processes) {
        p->kill();
        p->waitForFinished();
        delete p;
    }
    processes.clear();
    QDir(dir).removeRecursively();
}

QProcess* TestKillProcess::start(const QString& name, bool relative)
{
    QFile::copy("/bin/sleep", dir + "/" + name);
    auto* process = new QProcess;
    process->setWorkingDirectory(dir);
    process->start(relative ? "./" + name : dir + "/" + name, {"60"});
    process->waitForStarted();
    processes << process;
    return process;
}

void TestKillProcess::lookupByName_data()
{
    QTest::addColumn<bool>("relative");
    QTest::newRow("relative path") << true;
    QTest::newRow("full path") << false;
}

void TestKillProcess::lookupByName()
{
    QFETCH(bool, relative);
    QProcess* p = start("kelloadui.bin", relative);
    int pids[4] = {};
    QCOMPARE(my_kill_process::get_pid_by_name("kelloadui.bin", pids, 4), 1);
    QCOMPARE(pids[0], int(p->processId()));
    QCOMPARE(my_kill_process::get_pid_by_name("/any/dir/kelloadui.bin", pids, 4), 1);
    QCOMPARE(my_kill_process::get_pid_by_name("kelloadui", pids, 4), 0);
    QCOMPARE(my_kill_process::get_pid_by_name("dir/", pids, 4), -22);
    QCOMPARE(my_kill_process::get_pid_by_name(nullptr, pids, 4), -22);
    QVERIFY(my_kill_process::is_process_exist("kelloadui.bin"));
    start("kelloadui.bin", !relative);
    QCOMPARE(my_kill_process::get_pid_by_name("kelloadui.bin", pids, 1), 1); // room for one
}

void TestKillProcess::zombiesNeverMatch()
{
    QFile::copy("/bin/true", dir + "/kelzombie");
    auto* parent = new QProcess;
    processes << parent;
    parent->start("sh", {"-c", dir + "/kelzombie & exec sleep 60"});
    QVERIFY(parent->waitForStarted());
    QTest::qWait(300);
    int pids[4];
    QCOMPARE(my_kill_process::get_pid_by_name("kelzombie", pids, 4), 0);
}

void TestKillProcess::killing()
{
    QVERIFY(my_kill_process::kill_process("kelnothing", SIGTERM));
    QProcess* a = start("kelworker", true);
    QVERIFY(my_kill_process::kill_process("kelworker", SIGTERM));
    QVERIFY(a->waitForFinished(2000));
    // Only earlier instances are signalled, never the caller.
    QProcess* b = start("tst_kill_process", true);
    my_kill_process::kill_Self_Previous("tst_kill_process", SIGTERM);
    QVERIFY(b->waitForFinished(2000));
}

void TestKillProcess::killallSubstringNeverGone()
{
    start("kelviewer_long", true);
    QVERIFY(my_kill_process::killall("kelnotrunning"));
    QElapsedTimer clock;
    clock.start();
    // "ps | grep kelviewer" also finds kelviewer_long: three tries, then false.
    QVERIFY(!my_kill_process::killall("kelviewer"));
    QVERIFY(clock.elapsed() >= 1000);
}

KEL_SANDBOXED_TEST_MAIN(TestKillProcess)
#include "tst_kill_process.moc"
