#include "fixture.h"
#include "sandbox.h"

#include <QtTest>

// The built program, started like the panel starts it, inside a sandbox (it stops processes).
class TestMain : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { fixture::removeTree(dir); }
    void secondInstanceEndsTheFirst();
    void languageChoice_data();
    void languageChoice();
    void oddArgumentsAndTheCommandsEnvironment();

private:
    // A stick with the program in its package folder "pkg".
    QString program() const { return dir + "/stick/pkg/kelloadui.bin"; }
    QString dir;
};

void TestMain::init()
{
    INSIDE_SANDBOX_REQUIRED();
    dir = sandbox::makeScratchDir("main");
    QDir().mkpath(dir + "/stick/pkg");
    QVERIFY(QFile::copy(KEL_PROGRAM_PATH, program()));
}

void TestMain::secondInstanceEndsTheFirst()
{
    // Under qemu-user, another emulated process's /proc/PID/cmdline names qemu, not the program.
    if (qEnvironmentVariableIsSet("QEMU_LD_PREFIX"))
        QSKIP("emulated: the first instance cannot be found by its name");
    QProcess first;
    first.setWorkingDirectory(dir + "/stick/pkg");
    first.start(program(), QStringList());
    QVERIFY(first.waitForStarted());
    QVERIFY(!first.waitForFinished(1500)); // interactive: it waits for the user
    QProcess second;
    second.start(program(), {"-s", "-nr"});
    QVERIFY(first.waitForFinished(5000));
    QCOMPARE(first.exitStatus(), QProcess::NormalExit);
    QCOMPARE(first.exitCode(), 0);
    QVERIFY(second.waitForFinished(20000));
    QCOMPARE(second.exitCode(), 0);
    // The quiet one reports its failure (no package here) in the log beside the package.
    QVERIFY(fixture::readFile(dir + "/stick/update.log").startsWith("[失败]\n"));
}

void TestMain::languageChoice_data()
{
    QTest::addColumn<QString>("lanOption");       // empty: none
    QTest::addColumn<QByteArray>("projectSetup"); // lan_setup.ini; empty: none
    QTest::addColumn<QByteArray>("toolSetting");  // vornUpdateSet.ini; empty: none
    QTest::addColumn<QString>("expected");
    QTest::newRow("command line") << "-lanID 0001" << QByteArray("[current_language]\ntype=2\n")
                                  << QByteArray() << "[FAIL one]";
    QTest::newRow("project's choice")
        << "" << QByteArray("[current_language]\ntype=2\n") << QByteArray() << "[FAIL two]";
    QTest::newRow("project says none, tool decides")
        << "" << QByteArray("[current_language]\ntype=-1\n")
        << QByteArray("[tool_language]\ntype=1\n") << "[FAIL one]";
}

void TestMain::languageChoice()
{
    QFETCH(QString, lanOption);
    QFETCH(QByteArray, projectSetup);
    QFETCH(QByteArray, toolSetting);
    QFETCH(QString, expected);
    fixture::writeFile(dir + "/stick/language/0001.lan", "[2055]\nstring=\"[FAIL one]\\n\"\n");
    fixture::writeFile(dir + "/stick/language/0002.lan", "[2055]\nstring=\"[FAIL two]\\n\"\n");
    if (!toolSetting.isEmpty())
        fixture::writeFile(dir + "/stick/config/vornUpdateSet.ini", toolSetting);
    QFile::remove("/usr/vorn_app/project/lan_setup.ini");
    if (!projectSetup.isEmpty())
        fixture::writeFile("/usr/vorn_app/project/lan_setup.ini", projectSetup);
    QStringList args{"-s", "-nr"};
    if (!lanOption.isEmpty())
        args << lanOption;
    QProcess run;
    run.setWorkingDirectory("/");
    run.start(program(), args);
    QVERIFY(run.waitForFinished(20000));
    QCOMPARE(run.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(fixture::readFile(dir + "/stick/update.log")).section('\n', 0, 0),
             expected);
}

void TestMain::oddArgumentsAndTheCommandsEnvironment()
{
    // The toolkit's own settings stay out of the children: the command prints what it inherits.
    fixture::writeScrambledIni(dir + "/stick/pkg/update.ini",
                               "[RESTART]\nCOMMAND=env > " + dir.toUtf8() + "/env.txt\n");
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("QT_XCB_GL_INTEGRATION");
    QProcess run;
    run.setProcessEnvironment(env);
    run.start(program(), {"", "a b c", "\xe4\xb8\xad\xff", "-p " + dir + "/日志.log", "-s-nr"});
    QVERIFY(run.waitForFinished(20000));
    QCOMPARE(run.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.exitCode(), 0);
    QVERIFY(fixture::readFile(dir + "/日志.log").startsWith("[成功]\n"));
    const QByteArray inherited = fixture::readFile(dir + "/env.txt");
    QVERIFY(inherited.contains("\nVORN_WORK_DIR=/usr/vorn_app\n"));
    QVERIFY(!inherited.contains("QT_XCB_GL_INTEGRATION"));
}

KEL_SANDBOXED_TEST_MAIN(TestMain)
#include "tst_main.moc"
