#include "do_cmd.h"
#include "fixture.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/wait.h>

// Shell commands run to their end whatever they print, and a daemon they leave behind holding
// the output does not hold the caller.
class TestDoCmd : public QObject
{
    Q_OBJECT

private slots:
    void run_data();
    void run();
};

void TestDoCmd::run_data()
{
    QTest::addColumn<QString>("command"); // DONE: a file the command's last step writes
    QTest::addColumn<int>("exitCode");
    // Printing after the caller could have closed the pipe is the fault a closed pipe shows.
    QTest::newRow("prints before its work") << "sleep 0.3; echo migrating; echo ok > DONE" << 0;
    QTest::newRow("prints more than a pipe holds")
        << "head -c 1000000 /dev/zero && echo ok > DONE" << 0;
    QTest::newRow("leaves a daemon holding the pipe")
        << "(sleep 30; echo late) 2>/dev/null & echo ok > DONE" << 0;
    QTest::newRow("exit status is the shell's") << "echo ok > DONE; exit 3" << 3;
}

void TestDoCmd::run()
{
    QFETCH(QString, command);
    QFETCH(int, exitCode);
    QTemporaryDir dir;
    const QString done = dir.filePath("done");
    command.replace("DONE", done);
    QElapsedTimer clock;
    clock.start();
    const int status = DoCmd::run(command.toStdString());
    // Far below the daemon's sleep: the caller must not wait for it.
    QVERIFY2(clock.elapsed() < 15000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), exitCode);
    QCOMPARE(fixture::readFile(done), QByteArray("ok\n"));
}

QTEST_GUILESS_MAIN(TestDoCmd)
#include "tst_do_cmd.moc"
