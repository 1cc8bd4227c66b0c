#include "fixture.h"
#include "sandbox.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

// Whole updates of sticks on a simulated panel, through the simulator as an integrator runs it.
class TestSim : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void sampleStickSucceeds();
    void stubbornRuntimeIsKilled();
    void interactiveRunCountsDownAndRestarts();
    void failingPackageTurnsTheScreenRed();

private:
    // Runs kelsim on stick with extra simulator options and program options.
    QString simulate(const QString& stick, const QStringList& simOptions,
                     const QStringList& programOptions = {});
    QString section(const QString& out, const QString& name) const;
    QString stick; // a fresh copy of the sample stick
    QString dir;
};

void TestSim::initTestCase()
{
    SANDBOX_REQUIRED();
    if (QStandardPaths::findExecutable("Xvfb").isEmpty())
        QSKIP("Xvfb is not installed (scripts/install-deps.sh installs it)");
}

void TestSim::init()
{
    dir = sandbox::makeScratchDir("sim");
    stick = dir + "/stick";
    QCOMPARE(
        QProcess::execute("cp", {"-R", QStringLiteral(KEL_BINARY_DIR) + "/examples/stick", stick}),
        0);
}

void TestSim::cleanup()
{
    QDir(dir).removeRecursively();
}

QString TestSim::simulate(const QString& stickDir, const QStringList& simOptions,
                          const QStringList& programOptions)
{
    QProcess sim;
    sim.setProcessChannelMode(QProcess::MergedChannels);
    sim.start(QStringLiteral(KEL_SOURCE_DIR) + "/sim/kelsim",
              QStringList{"--panel", dir + "/panel", "--timeout", "90"} + simOptions +
                  QStringList{stickDir} + programOptions);
    if (!sim.waitForFinished(180000))
        sim.kill();
    return QString::fromUtf8(sim.readAll());
}

QString TestSim::section(const QString& out, const QString& name) const
{
    const int start = out.indexOf("== " + name + "\n");
    if (start < 0)
        return QString();
    const int body = start + name.size() + 4;
    const int end = out.indexOf("\n== ", body);
    return out.mid(body, end < 0 ? -1 : end - body + 1);
}

void TestSim::sampleStickSucceeds()
{
    const QString out = simulate(stick, {}, {"-s", "-nr"});
    QCOMPARE(section(out, "report"), QString::fromUtf8("[成功]\n"));
    const QStringList expected{
        "added    /etc/systemd/system/multi-user.target.wants/usr_kellogger.service (link "
        "/etc/systemd/system/usr_kellogger.service)",
        "added    /etc/systemd/system/usr_kellogger.service",
        "added    /usr/local/bin/kelhelper (755",
        "added    /usr/vorn_app/config/command.out",
        "removed  /usr/vorn_app/config/obsolete.conf",
        "replaced /usr/vorn_app/config/panel.conf",
        "added    /usr/vorn_app/etc/time.conf",
        "replaced /usr/vorn_app/kelinfo/panel.id",
        "replaced /usr/vorn_app/kellogger (755",
        "added    /usr/vorn_app/libvorndata.so.1",
        "replaced /usr/vorn_app/libvornui.so.1",
        "replaced /usr/vorn_app/project/main.pro",
        "replaced /usr/vorn_app/project/screens/screen1.scr",
        "added    /usr/vorn_app/project/screens/screen2.scr",
        "added    /usr/vorn_app/update.ini",
        "added    /usr/vorn_app/version.1.2.0",
        "replaced /usr/vorn_app/vorn_app (755"};
    const QStringList changes = section(out, "panel changes").split('\n', Qt::SkipEmptyParts);
    QCOMPARE(changes.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i)
        QVERIFY2(changes[i].startsWith(expected[i]), qPrintable(changes[i]));
    // The panel keeps its start-up image, and the runtime directory holds a plain manifest.
    QVERIFY(QFile::exists(dir + "/panel/usr/vorn_app/startBarLoadGnd.bmp"));
    QVERIFY(fixture::readFile(dir + "/panel/usr/vorn_app/update.ini").contains("[UPDATEINFO]"));
    const QString actions = section(out, "panel actions");
    QVERIFY(actions.contains("panel: runtime exit requested"));
    QVERIFY(actions.contains("panel: clear saved data (mask 5, 0)"));
    QVERIFY(!actions.contains("restart"));
    QVERIFY(!actions.contains("beep"));
}

void TestSim::stubbornRuntimeIsKilled()
{
    const QString out = simulate(stick, {"--runtime", "ignore"}, {"-s", "-nr"});
    const QString actions = section(out, "panel actions");
    QVERIFY(actions.contains("panel: runtime exit requested"));
    QVERIFY(actions.contains("panel: runtime kill requested"));
    QVERIFY(actions.contains("runtime after the run: stopped"));
    QCOMPARE(section(out, "report"), QString::fromUtf8("[成功]\n"));
}

void TestSim::interactiveRunCountsDownAndRestarts()
{
    const QString out = simulate(stick, {"--interactive"});
    QVERIFY(section(out, "report").contains("no log"));
    const QString actions = section(out, "panel actions");
    QCOMPARE(actions.count("panel: beep 500 ms"), 2);
    QVERIFY(actions.contains("panel: restart requested (RB_AUTOBOOT)"));
    QVERIFY(actions.contains("program exit status: 0"));
    // The countdown takes eleven ticks after the start: about a dozen screenshots.
    QVERIFY(QDir(dir + "/panel/screenshots").entryList({"screen-*.png"}).size() >= 10);
}

void TestSim::failingPackageTurnsTheScreenRed()
{
    // A corrupt payload: the package-wide copy finds its checksum wrong.
    fixture::writeFile(stick + "/update/files/panel.conf", "bright=100\n");
    const QString out = simulate(stick, {"--interactive", "--timeout", "6"});
    const QStringList shots = QDir(dir + "/panel/screenshots").entryList({"screen-*.png"});
    QVERIFY(!shots.isEmpty());
    const QImage last(dir + "/panel/screenshots/" + shots.last());
    QVERIFY(!last.isNull());
    QCOMPARE(last.pixelColor(5, 5), QColor(Qt::red)); // the background window
    QVERIFY(!section(out, "panel actions").contains("restart"));

    fixture::writeFile(stick + "/update/files/panel.conf", "bright=100\n");
    const QString quiet = simulate(stick, {}, {"-s", "-nr"});
    QCOMPARE(section(quiet, "report"), QString::fromUtf8("[失败]\n"));
}

QTEST_GUILESS_MAIN(TestSim)
#include "tst_sim.moc"
