#include "def.h"
#include "fixture.h"
#include "gate_notice.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QProcess>
#include <QtTest>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

// The gate program in front of a stand-in updater: it starts a copy of the stick's program only
// after the check, passes the options and exit status through, records the installed version
// after a reported success only, keeps its floor across a restart, and refuses in the log, the
// journal, the beeper and a red notice whatever the stick or the panel's state does.
class TestKelGate : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void programRunsOnlyAfterTheCheck_data();
    void programRunsOnlyAfterTheCheck();
    void floorSurvivesARestart();
    void onlyTheUpdaterIsStarted();
    void programThatCannotStartIsReported();
    void noticeShowsTheReasonInRed_data();
    void noticeShowsTheReasonInRed();

private:
    // A signed stick whose stand-in program runs the shell line script.
    void makeStick(const QByteArray& script, const QString& version = "1.2.0");
    int gate(const QStringList& args, const QProcessEnvironment& env, QByteArray* err = nullptr,
             const QStringList& gateOptions = {});
    QString dir;
    QString stick;
};

namespace {

enum Attack
{
    None,
    ChangedFile,
    StickSwappedAfterCheck,
    SourceOutside,
    SecondInstance,
    NoRoom,
    StateUnwritable,
    LogByStickPath,
    LogFolderIsALink,
    LogNamedTwice // the program writes the last log it is given
};

} // namespace
Q_DECLARE_METATYPE(Attack)

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

void TestKelGate::makeStick(const QByteArray& script, const QString& version)
{
    QDir(stick).removeRecursively();
    const QString program = stick + "/update/kelloadui.bin";
    fixture::writeFile(program, "#!/bin/sh\ncd \"$(dirname \"$0\")\"\n" + script + "\n");
    QFile::setPermissions(program, QFile::permissions(program) | QFile::ExeOwner);
    fixture::writeFile(stick + "/update/payload.conf", "signed\n");
    fixture::writeFile(stick + "/language/0001.lan", "[1000]\nstring=Warning\n");
    QCOMPARE(fixture::kelpack({"sign", stick + "/update", dir + "/vendor.key", "--version", version,
                               "--models", "KEL-700", "--replaces", "1.0.0"}),
             0);
}

int TestKelGate::gate(const QStringList& args, const QProcessEnvironment& env, QByteArray* err,
                      const QStringList& gateOptions)
{
    QProcess gate;
    gate.setProcessEnvironment(env);
    gate.setWorkingDirectory(stick + "/update");
    gate.start(QStringLiteral(KEL_BINARY_DIR) + "/tools/kelgate/kelgate",
               QStringList{"--config", dir + "/panel", "--state", dir + "/state", "--run",
                           dir + "/run", "--notice-seconds", "0"} +
                   gateOptions + args);
    gate.waitForFinished(60000);
    if (err)
        *err = gate.readAllStandardError();
    return gate.exitStatus() == QProcess::NormalExit ? gate.exitCode() : -1;
}

void TestKelGate::programRunsOnlyAfterTheCheck_data()
{
    QTest::addColumn<Attack>("attack");
    QTest::addColumn<QByteArray>("oldLog"); // the stick's log before the run
    QTest::addColumn<QString>("report");    // what the stand-in writes; empty: nothing
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("version"); // installed afterwards
    QTest::addColumn<QString>("refusal"); // the refusal's text, when refused
    QTest::newRow("success is recorded")
        << None << QByteArray() << "[成功]" << 7 << "1.2.0" << QString();
    QTest::newRow("failure is not")
        << None << QByteArray() << "[失败]" << 7 << "1.1.0" << QString();
    QTest::newRow("run cut short after an older success")
        << None << QByteArray("[成功]\n[报告]\n") << "" << 7 << "1.1.0" << QString();
    QTest::newRow("log named by its path on the stick")
        << LogByStickPath << QByteArray() << "[成功]" << 7 << "1.2.0" << QString();
    QTest::newRow("log in a stick folder that links to the panel")
        << LogFolderIsALink << QByteArray() << "[成功]" << 7 << "1.2.0" << QString();
    QTest::newRow("log named twice")
        << LogNamedTwice << QByteArray() << "[成功]" << 7 << "1.2.0" << QString();
    QTest::newRow("stick changed after the check")
        << StickSwappedAfterCheck << QByteArray() << "[成功]" << 7 << "1.2.0" << QString();
    QTest::newRow("changed file") << ChangedFile << QByteArray("[成功]\nold\n") << "[成功]" << 1
                                  << "1.1.0" << kel::text(2228).arg("\"language/0001.lan\"");
    QTest::newRow("source outside the signed files")
        << SourceOutside << QByteArray() << "[成功]" << 1 << "1.1.0"
        << kel::text(2240).arg("\"update.ini COPYFILE1/SRCPATH\"", "\"../extra/panel.conf\"");
    QTest::newRow("second stick while one runs")
        << SecondInstance << QByteArray() << "[成功]" << 1 << "1.1.0" << kel::text(2244);
    QTest::newRow("stick larger than the room allowed")
        << NoRoom << QByteArray() << "[成功]" << 1 << "1.1.0"
        << kel::text(2239).section("%1", 0, 0);
    QTest::newRow("state folder cannot be written")
        << StateUnwritable << QByteArray() << "[成功]" << 1 << ""
        << kel::text(2242).section("%1", 0, 0);
}

void TestKelGate::programRunsOnlyAfterTheCheck()
{
    QFETCH(Attack, attack);
    QFETCH(QByteArray, oldLog);
    QFETCH(QString, report);
    QFETCH(int, status);
    QFETCH(QString, version);
    QFETCH(QString, refusal);

    QDir(dir + "/state").removeRecursively();
    QDir(dir + "/run").removeRecursively();
    QFile::remove(dir + "/ran.txt");
    fixture::writeFile(dir + "/state/version", "1.1.0\n");
    // The stand-in records its options and the payload it reads beside itself, after the stick
    // changed under it where the row says so.
    makeStick("echo \"$*\" > \"$RAN\"\n"
              "[ -z \"$SWAP\" ] || echo evil > \"$SWAP\"\n"
              "cat payload.conf >> \"$RAN\"\n"
              "eval \"log=\\${$#}\"\n"
              "[ -z \"$REPORT\" ] || echo \"$REPORT\" > \"${log#-p }\"\n"
              "exit 7");
    QStringList options;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    int lock = -1;
    QString logOption = "-p ../update.log";
    QStringList programOptions{"./kelloadui.bin", "-s", "-nr"};
    switch (attack) {
    case None:
        break;
    case ChangedFile:
        fixture::writeFile(stick + "/language/0001.lan", "[1000]\nstring=Warnin9\n");
        break;
    case StickSwappedAfterCheck:
        env.insert("SWAP", stick + "/update/payload.conf");
        break;
    case SourceOutside:
        fixture::writeScrambledIni(
            stick + "/update/update.ini",
            "[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\nSRCPATH=../extra/panel.conf\n"
            "DESTPATH=/etc/panel.conf\nMODE=0\n");
        fixture::writeFile(stick + "/extra/panel.conf", "unsigned\n");
        QVERIFY(fixture::signUnchecked(stick + "/update", dir + "/vendor.key", {"KEL-700"}));
        break;
    case SecondInstance:
        QDir().mkpath(dir + "/run");
        lock = ::open(QFile::encodeName(dir + "/run/lock"), O_RDWR | O_CREAT, 0600);
        QCOMPARE(flock(lock, LOCK_EX), 0);
        break;
    case NoRoom:
        options << "--ram-limit"
                << "1";
        break;
    case LogByStickPath:
        logOption = "-p " + stick + "/update.log";
        break;
    case LogNamedTwice:
        programOptions << "-p ../first.log";
        break;
    case LogFolderIsALink:
        QDir().mkpath(dir + "/elsewhere");
        QVERIFY(QFile::link(dir + "/elsewhere", stick + "/logs"));
        logOption = "-p ../logs/update.log";
        break;
    case StateUnwritable:
        QDir(dir + "/state").removeRecursively();
        fixture::writeFile(dir + "/state", "a file where the folder should be\n");
        break;
    }
    if (!oldLog.isEmpty())
        fixture::writeFile(stick + "/update.log", oldLog);

    env.insert("REPORT", report);
    env.insert("RAN", dir + "/ran.txt");
    QByteArray err;
    QCOMPARE(gate(programOptions + QStringList{logOption}, env, &err, options), status);
    if (lock >= 0)
        ::close(lock);
    if (attack == StateUnwritable)
        QFile::remove(dir + "/state");
    else
        QCOMPARE(fixture::readFile(dir + "/state/version"), version.toUtf8() + "\n");
    QVERIFY(!QFile::exists(dir + "/state/pending"));
    if (attack == LogFolderIsALink) {
        // The run's log stays on the panel; nothing is written through the stick's link.
        QVERIFY(QDir(dir + "/elsewhere").isEmpty());
        QVERIFY(fixture::readFile(dir + "/state/update.log").startsWith(report.toUtf8()));
        return;
    }
    const QString log = QString::fromUtf8(fixture::readFile(stick + "/update.log"));
    if (refusal.isEmpty()) {
        // The program ran from a copy: the stick's later bytes never reached it.
        // An option naming the log on the stick names the copy's log instead.
        const QString seen =
            attack == LogByStickPath ? "-p " + dir + "/run/stick/update.log" : logOption;
        QCOMPARE(fixture::readFile(dir + "/ran.txt"),
                 (programOptions.mid(1) + QStringList{seen}).join(' ').toUtf8() + "\nsigned\n");
        QVERIFY2(log.startsWith(report), qPrintable(log));
        QVERIFY(QFileInfo(stick + "/update.log").isFile() &&
                !QFileInfo(stick + "/update.log").isSymLink());
        return;
    }
    QVERIFY(!QFile::exists(dir + "/ran.txt"));
    QVERIFY2(log.startsWith(QString::fromUtf8("[失败]\n")), qPrintable(log));
    QVERIFY2(log.contains(kel::text(2224) + ": " + refusal), qPrintable(log));
    QVERIFY2(QString::fromUtf8(err).contains(refusal), err.constData());
}

void TestKelGate::floorSurvivesARestart()
{
    QDir(dir + "/state").removeRecursively();
    QDir(dir + "/run").removeRecursively();
    fixture::writeFile(dir + "/state/version", "1.1.0\n");
    // The update succeeds, then the panel's restart ends the gate before it records anything.
    makeStick("[ -z \"$REPORT\" ] || echo \"$REPORT\" > ../update.log\nkill -KILL $PPID\nexit 0");
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("REPORT", "[成功]");
    QCOMPARE(gate({"./kelloadui.bin", "-s", "-r"}, env), -1);
    QCOMPARE(fixture::readFile(dir + "/state/version"), QByteArray("1.1.0\n"));
    QVERIFY(!QFile::exists(stick + "/update.log"));
    // The panel starts again with the stick still in: the run is settled, its log goes back.
    env.insert("REPORT", "");
    QCOMPARE(gate({"./kelloadui.bin", "-s", "-r"}, env), -1);
    QCOMPARE(fixture::readFile(dir + "/state/version"), QByteArray("1.2.0\n"));
    QVERIFY(fixture::readFile(stick + "/update.log").startsWith("[成功]"));
    // An older signed stick after the restart: the floor is the version that was installed.
    makeStick("exit 0", "1.1.5");
    QByteArray err;
    QCOMPARE(gate({"./kelloadui.bin", "-s", "-r"}, env, &err), 1);
    QCOMPARE(fixture::readFile(dir + "/state/version"), QByteArray("1.2.0\n"));
    QVERIFY2(QString::fromUtf8(err).contains(kel::text(2233).arg("1.1.5", "1.2.0")),
             err.constData());
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

void TestKelGate::noticeShowsTheReasonInRed_data()
{
    QTest::addColumn<QString>("reason");
    QTest::newRow("plain") << "the reason";
    // A stick-chosen name that is markup stays text: no green "complete" on a refusal.
    QTest::newRow("markup in a name")
        << kel::text(2230).arg("\"<font color=#00ff00 size=7>UPDATE COMPLETE</font>\"");
}

void TestKelGate::noticeShowsTheReasonInRed()
{
    QFETCH(QString, reason);
    QDir().mkpath(dir + "/pulled/update");
    GateNotice notice(reason, dir + "/pulled/update", 30);
    notice.show();
    QVERIFY(QTest::qWaitForWindowExposed(&notice));
    QCOMPARE(notice.text(), kel::text(2224) + "\n" + reason + "\n" + kel::text(2238));
    const QImage shot = notice.grab().toImage();
    QCOMPARE(shot.pixelColor(2, 2), QColor(Qt::red));
    for (int y = 0; y < shot.height(); y += 2) {
        for (int x = 0; x < shot.width(); x += 2)
            QVERIFY(shot.pixelColor(x, y).green() < 128);
    }
    // Pulling the stick out closes it.
    QDir(dir + "/pulled").removeRecursively();
    QTRY_VERIFY_WITH_TIMEOUT(!notice.isVisible(), 3000);
}

QTEST_MAIN(TestKelGate)
#include "tst_kel_gate.moc"
