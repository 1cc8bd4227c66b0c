#include "clogger.h"
#include "fake_panel_library.h"
#include "fixture.h"
#include "sandbox.h"

#include <QDir>
#include <QtTest>

// The log and report file: appends, reports over the first bytes, silent when unusable.
class TestCLogger : public QObject
{
    Q_OBJECT

private slots:
    void init() { dir = sandbox::makeScratchDir("log"); }
    void cleanup() { QDir(dir).removeRecursively(); }
    void reportOverwritesOnlyTheStart();
    void silentLoggers_data();
    void silentLoggers();
    void writeOnlyModeStartsAfresh();
    void linesReachTheMediumInBatches();

private:
    QString dir;
};

void TestCLogger::reportOverwritesOnlyTheStart()
{
    const QString path = dir + "/deep/er/update.log"; // missing directories are made
    {
        CLogger log(path, CLogger::ReadWrite);
        log.write(QString::fromUtf8("[成功]\n"));
        log.write("line 1\n");
    }
    CLogger log(path, CLogger::ReadWrite);
    log.write("line 2\n");
    log.writeReport(QString::fromUtf8("[失败]\n"));
    log.write("line 3\n");
    log.close();
    QCOMPARE(QString::fromUtf8(fixture::readFile(path)),
             QString::fromUtf8("[失败]\nline 1\nline 2\nline 3\n"));
    log.write("after close\n");
    QVERIFY(!fixture::readFile(path).contains("after close"));
}

void TestCLogger::silentLoggers_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("disabled") << "disabled";
    QTest::newRow("empty path") << "empty";
    QTest::newRow("directory path") << "directory";
    QTest::newRow("closed") << "closed";
}

void TestCLogger::silentLoggers()
{
    QFETCH(QString, kind);
    const QString path = kind == "directory" ? dir : kind == "empty" ? QString() : dir + "/x.log";
    CLogger log(path, CLogger::ReadWrite);
    if (kind == "disabled")
        log.toggleLogger(false);
    if (kind == "closed")
        log.close();
    log.write("text\n");
    log.writeReport("report\n");
    QVERIFY(!QFileInfo(dir + "/x.log").exists() || fixture::readFile(dir + "/x.log").isEmpty());
    QCOMPARE(QDir(dir).entryList(QDir::Files).filter("text").size(), 0);
    if (kind == "directory")
        QCOMPARE(log.fileName(), QString());
}

void TestCLogger::writeOnlyModeStartsAfresh()
{
    fixture::writeFile(dir + "/a.log", "old contents\n");
    CLogger log(dir + "/a.log", CLogger::WriteOnly);
    log.write("new\n");
    log.close();
    QCOMPARE(fixture::readFile(dir + "/a.log"), QByteArray("new\n"));
}

void TestCLogger::linesReachTheMediumInBatches()
{
    FakePanelLibrary panel;
    int syncs = 0;
    panel.syncHook = [&] { ++syncs; };
    PanelLibrary* previous = PanelLibrary::replace(&panel);
    const QString path = dir + "/update.log";
    CLogger log(path, CLogger::ReadWrite);
    // Each line is in the file at once, for any reader; the medium waits up to 100 ms.
    for (int i = 0; i < 50; ++i)
        log.write(QString("line %1\n").arg(i));
    QVERIFY(fixture::readFile(path).endsWith("line 49\n"));
    QCOMPARE(panel.datasyncs, 0);
    QTest::qSleep(120);
    log.write("late\n");
    QCOMPARE(panel.datasyncs, 1);
    log.write("soon after\n");
    QCOMPARE(panel.datasyncs, 1);
    // Reports and the close still flush the whole system.
    log.writeReport("[x]\n");
    QCOMPARE(syncs, 1);
    QTest::qSleep(60);
    log.write("after the report\n"); // the report brought the log to the medium just now
    QCOMPARE(panel.datasyncs, 1);
    log.close();
    QCOMPARE(syncs, 2);
    PanelLibrary::replace(previous);
}

QTEST_GUILESS_MAIN(TestCLogger)
#include "tst_clogger.moc"
