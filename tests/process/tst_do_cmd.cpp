#include "do_cmd.h"
#include "fixture.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/wait.h>

// Shell commands run to their end whatever they print, and a daemon they leave behind holding
// the output does not hold the caller; the output is collected whole when asked for.
class TestDoCmd : public QObject
{
    Q_OBJECT

private slots:
    void run_data();
    void run();
    void collect_data();
    void collect();
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

namespace {
// Lines 1 to 15000, one a line: 78,894 bytes, more than a pipe holds at once.
QByteArray countedLines()
{
    QByteArray lines;
    for (int n = 1; n <= 15000; ++n)
        lines += QByteArray::number(n) + "\n";
    return lines;
}
} // namespace

void TestDoCmd::collect_data()
{
    QTest::addColumn<QString>("command"); // DONE: a file the command's last step writes
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("output and exit status")
        << "echo one; printf 'two'; echo ok > DONE; exit 4" << QByteArray("one\ntwo") << 4;
    QTest::newRow("prints more than a pipe holds")
        << "seq 1 15000; echo ok > DONE" << countedLines() << 0;
    QTest::newRow("prints before its work")
        << "echo migrating; sleep 0.3; echo ok > DONE" << QByteArray("migrating\n") << 0;
    // What the shell printed is kept; what the daemon prints after the shell has ended is not.
    QTest::newRow("leaves a daemon holding the pipe")
        << "(sleep 30; echo late) 2>/dev/null & echo ok > DONE; echo last" << QByteArray("last\n")
        << 0;
}

void TestDoCmd::collect()
{
    QFETCH(QString, command);
    QFETCH(QByteArray, output);
    QFETCH(int, exitCode);
    QTemporaryDir dir;
    const QString done = dir.filePath("done");
    command.replace("DONE", done);
    QElapsedTimer clock;
    clock.start();
    std::string out = "left from before";
    int status = -1;
    QVERIFY(DoCmd::collect(command.toStdString(), out, status));
    QVERIFY2(clock.elapsed() < 15000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), exitCode);
    QCOMPARE(QByteArray::fromStdString(out), output);
    QCOMPARE(fixture::readFile(done), QByteArray("ok\n"));

    // The ps pipelines of the process lookup read their output through the same machinery.
    QFile::remove(done);
    std::string synced = "left from before";
    QVERIFY(DoCmd::do_cmd_sync(command.toStdString(), synced));
    QCOMPARE(QByteArray::fromStdString(synced), output);
    QCOMPARE(fixture::readFile(done), QByteArray("ok\n"));
}

QTEST_GUILESS_MAIN(TestDoCmd)
#include "tst_do_cmd.moc"
