#include "clogger.h"
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

QTEST_GUILESS_MAIN(TestCLogger)
#include "tst_clogger.moc"
