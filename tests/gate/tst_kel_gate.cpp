#include "def.h"
#include "fixture.h"
#include "gate_notice.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QProcess>
#include <QtTest>

// The gate program in front of a stand-in updater: it starts the stick's program only after
// the check, passes the options and exit status through, records the installed version after a
// reported success only, and refuses in the log, the journal, the beeper and a red notice.
class TestKelGate : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void programRunsOnlyAfterTheCheck_data();
    void programRunsOnlyAfterTheCheck();
    void onlyTheUpdaterIsStarted();
    void programThatCannotStartIsReported();
    void noticeShowsTheReasonInRed();

private:
    int gate(const QStringList& args, const QProcessEnvironment& env, QByteArray* err = nullptr);
    QString dir;
    QString stick;
};

void TestKelGate::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    dir = sandbox::makeScratchDir("kelgate");
    stick = dir + "/stick";
    QCOMPARE(fixture::kelpack({"keygen", dir + "/vendor"}), 0);
    QDir().mkpath(dir + "/panel/keys");
    QVERIFY(QFile::copy(dir + "/vendor.pub", dir + "/panel/keys/vendor.pub"));
    fixture::writeFile(dir + "/panel/model", "KEL-700\n");
}

int TestKelGate::gate(const QStringList& args, const QProcessEnvironment& env, QByteArray* err)
{
    QProcess gate;
    gate.setProcessEnvironment(env);
    gate.setWorkingDirectory(stick + "/update");
    gate.start(QStringLiteral(KEL_BINARY_DIR) + "/tools/kelgate/kelgate",
               QStringList{"--config", dir + "/panel", "--state", dir + "/state",
                           "--notice-seconds", "0"} +
                   args);
    gate.waitForFinished(60000);
    if (err)
        *err = gate.readAllStandardError();
    return gate.exitStatus() == QProcess::NormalExit ? gate.exitCode() : -1;
}

void TestKelGate::programRunsOnlyAfterTheCheck_data()
{
    QTest::addColumn<bool>("damaged");
    QTest::addColumn<QByteArray>("oldLog"); // the stick's log before the run
    QTest::addColumn<QString>("report");    // what the stand-in writes; empty: nothing
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("version"); // installed afterwards
    QTest::newRow("success is recorded") << false << QByteArray() << "[成功]" << 7 << "1.2.0";
    QTest::newRow("failure is not") << false << QByteArray() << "[失败]" << 7 << "1.1.0";
    QTest::newRow("run cut short after an older success")
        << false << QByteArray("[成功]\n[报告]\n") << "" << 7 << "1.1.0";
    QTest::newRow("changed file is refused")
        << true << QByteArray("[成功]\nold\n") << "[成功]" << 1 << "1.1.0";
}

void TestKelGate::programRunsOnlyAfterTheCheck()
{
    QFETCH(bool, damaged);
    QFETCH(QByteArray, oldLog);
    QFETCH(QString, report);
    QFETCH(int, status);
    QFETCH(QString, version);

    QDir(stick).removeRecursively();
    QDir(dir + "/state").removeRecursively();
    fixture::writeFile(dir + "/state/version", "1.1.0\n");
    const QString program = stick + "/update/kelloadui.bin";
    fixture::writeFile(program, "#!/bin/sh\ncd \"$(dirname \"$0\")\"\n"
                                "echo \"$*\" > ../ran.txt\n"
                                "[ -z \"$REPORT\" ] || echo \"$REPORT\" > ../update.log\n"
                                "exit 7\n");
    QFile::setPermissions(program, QFile::permissions(program) | QFile::ExeOwner);
    fixture::writeFile(stick + "/language/0001.lan", "[1000]\nstring=Warning\n");
    QCOMPARE(fixture::kelpack({"sign", stick + "/update", dir + "/vendor.key", "--version", "1.2.0",
                               "--models", "KEL-700", "--replaces", "1.0.0"}),
             0);
    if (damaged)
        fixture::writeFile(stick + "/language/0001.lan", "[1000]\nstring=Warnin9\n");
    if (!oldLog.isEmpty())
        fixture::writeFile(stick + "/update.log", oldLog);

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("REPORT", report);
    QByteArray err;
    QCOMPARE(gate({"./kelloadui.bin", "-s", "-nr", "-p ../update.log"}, env, &err), status);
    QCOMPARE(fixture::readFile(dir + "/state/version"), version.toUtf8() + "\n");
    QVERIFY(!QFile::exists(dir + "/state/pending"));
    const QString log = QString::fromUtf8(fixture::readFile(stick + "/update.log"));
    if (!damaged) {
        QCOMPARE(fixture::readFile(stick + "/ran.txt"), QByteArray("-s -nr -p ../update.log\n"));
        return;
    }
    QVERIFY(!QFile::exists(stick + "/ran.txt"));
    const QString reason = kel::text(2228).arg("language/0001.lan");
    QVERIFY2(log.startsWith(QString::fromUtf8("[失败]\n")), qPrintable(log));
    QVERIFY2(log.contains(kel::text(2224) + ": " + reason + "\n"), qPrintable(log));
    QVERIFY(QString::fromUtf8(err).contains(reason));
    QVERIFY(err.contains("panel: beep"));
}

void TestKelGate::onlyTheUpdaterIsStarted()
{
    fixture::writeFile(stick + "/update/evil.sh", "#!/bin/sh\ntouch ../ran-evil\n");
    QCOMPARE(gate({"./evil.sh"}, QProcessEnvironment::systemEnvironment()), 2);
    QCOMPARE(gate({}, QProcessEnvironment::systemEnvironment()), 2);
    QVERIFY(!QFile::exists(stick + "/ran-evil"));
}

void TestKelGate::programThatCannotStartIsReported()
{
    QDir(stick).removeRecursively();
    fixture::writeFile(stick + "/update/kelloadui.bin", "not a program\n");
    QCOMPARE(fixture::kelpack({"sign", stick + "/update", dir + "/vendor.key", "--version", "1.2.0",
                               "--models", "KEL-700"}),
             0);
    QCOMPARE(gate({"./kelloadui.bin", "-s", "-nr"}, QProcessEnvironment::systemEnvironment()), 1);
    const QString log = QString::fromUtf8(fixture::readFile(stick + "/update.log"));
    QVERIFY2(log.contains(kel::text(2237).arg(stick + "/update/kelloadui.bin")), qPrintable(log));
    QVERIFY(!QFile::exists(dir + "/state/pending"));
}

void TestKelGate::noticeShowsTheReasonInRed()
{
    QDir().mkpath(dir + "/pulled/update");
    GateNotice notice("the reason", dir + "/pulled/update", 30);
    notice.show();
    QVERIFY(QTest::qWaitForWindowExposed(&notice));
    QCOMPARE(notice.text(), kel::text(2224) + "\nthe reason\n" + kel::text(2238));
    QCOMPARE(notice.grab().toImage().pixelColor(2, 2), QColor(Qt::red));
    // Pulling the stick out closes it.
    QDir(dir + "/pulled").removeRecursively();
    QTRY_VERIFY_WITH_TIMEOUT(!notice.isVisible(), 3000);
}

QTEST_MAIN(TestKelGate)
#include "tst_kel_gate.moc"
