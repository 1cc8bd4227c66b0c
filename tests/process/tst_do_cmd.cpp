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
    void commands_data();
    void commands();
};

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

void TestDoCmd::commands_data()
{
    QTest::addColumn<bool>("collects");   // run() throws the output away, collect() keeps it
    QTest::addColumn<QString>("command"); // DONE: a file the command's last step writes
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("exitCode");
    // Printing after the caller could have closed the pipe is the fault a closed pipe shows.
    QTest::newRow("run: prints before its work")
        << false << "sleep 0.3; echo migrating; echo ok > DONE" << QByteArray() << 0;
    QTest::newRow("run: prints more than a pipe holds")
        << false << "head -c 1000000 /dev/zero && echo ok > DONE" << QByteArray() << 0;
    QTest::newRow("run: leaves a daemon holding the pipe")
        << false << "(sleep 30; echo late) 2>/dev/null & echo ok > DONE" << QByteArray() << 0;
    QTest::newRow("run: exit status is the shell's")
        << false << "echo ok > DONE; exit 3" << QByteArray() << 3;
    QTest::newRow("collect: output and exit status")
        << true << "echo one; printf 'two'; echo ok > DONE; exit 4" << QByteArray("one\ntwo") << 4;
    QTest::newRow("collect: prints more than a pipe holds")
        << true << "seq 1 15000; echo ok > DONE" << countedLines() << 0;
    QTest::newRow("collect: prints before its work")
        << true << "echo migrating; sleep 0.3; echo ok > DONE" << QByteArray("migrating\n") << 0;
    // What the shell printed is kept; what the daemon prints after the shell has ended is not.
    QTest::newRow("collect: leaves a daemon holding the pipe")
        << true << "(sleep 30; echo late) 2>/dev/null & echo ok > DONE; echo last"
        << QByteArray("last\n") << 0;
}

void TestDoCmd::commands()
{
    QFETCH(bool, collects);
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
    if (collects)
        QVERIFY(DoCmd::collect(command.toStdString(), out, status));
    else
        status = DoCmd::run(command.toStdString());
    // Far below the daemon's sleep: the caller must not wait for it.
    QVERIFY2(clock.elapsed() < 15000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), exitCode);
    QCOMPARE(fixture::readFile(done), QByteArray("ok\n"));
    if (!collects)
        return;
    QCOMPARE(QByteArray::fromStdString(out), output);
    // The ps pipelines of the process lookup read their output through the same machinery.
    QFile::remove(done);
    std::string synced = "left from before";
    QVERIFY(DoCmd::do_cmd_sync(command.toStdString(), synced));
    QCOMPARE(QByteArray::fromStdString(synced), output);
    QCOMPARE(fixture::readFile(done), QByteArray("ok\n"));
}

QTEST_GUILESS_MAIN(TestDoCmd)
#include "tst_do_cmd.moc"
