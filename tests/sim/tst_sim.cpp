#include "fixture.h"
#include "sandbox.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

// Whole updates of sticks on a simulated panel, through the simulator as an integrator runs it.
class TestSim : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void sampleStickSucceeds();
    void outsidePathsStayInTheSeal();
    void twoRunsAtOnce();
    void exitStatus_data();
    void exitStatus();
    void stubbornRuntimeIsKilled();
    void interactiveRunCountsDownAndRestarts();
    void failingPackageTurnsTheScreenRed();
    void garbageLanguageFileFallsBackToBuiltInTexts();
    void hostilePackageFailsCleanly_data();
    void hostilePackageFailsCleanly();

private:
    // Runs kelsim on stick with extra simulator options and program options; its exit status
    // lands in status.
    QString simulate(const QString& stick, const QStringList& simOptions,
                     const QStringList& programOptions = {});
    // Rewrites a scrambled manifest of the stick with one byte string replaced.
    void editManifest(const QString& relativePath, const QByteArray& from, const QByteArray& to);
    QString log() const;
    QString stick; // a fresh copy of the sample stick
    QString dir;
    int status = -1;
};

namespace {
// The same random bytes on every run, so that a failure can be repeated.
QByteArray garbage(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator(42).fillRange(reinterpret_cast<quint32*>(bytes.data()), size / 4);
    return bytes;
}
} // namespace

void TestSim::initTestCase()
{
    SANDBOX_REQUIRED();
    TOOLS_REQUIRED("Xvfb");
}

void TestSim::init()
{
    dir = sandbox::makeScratchDir("sim");
    stick = dir + "/stick";
    QVERIFY(fixture::copySampleStick(stick));
}

void TestSim::cleanup()
{
    QDir(dir).removeRecursively();
}

namespace {
const QString kKelsim = QStringLiteral(KEL_SOURCE_DIR) + "/sim/kelsim";
} // namespace

QString TestSim::simulate(const QString& stickDir, const QStringList& simOptions,
                          const QStringList& programOptions)
{
    QByteArray out;
    status = fixture::run(kKelsim,
                          QStringList{"--panel", dir + "/panel", "--timeout", "90"} + simOptions +
                              QStringList{stickDir} + programOptions,
                          &out, &out);
    return QString::fromUtf8(out);
}

void TestSim::editManifest(const QString& relativePath, const QByteArray& from,
                           const QByteArray& to)
{
    QVERIFY2(fixture::editScrambled(stick + "/" + relativePath, from, to), from.constData());
}

QString TestSim::log() const
{
    return QString::fromUtf8(fixture::readFile(stick + "/update.log"));
}

void TestSim::sampleStickSucceeds()
{
    const QString out = simulate(stick, {"--screenshots", dir + "/shots"}, {"-s", "-nr"});
    QCOMPARE(status, 0);
    QCOMPARE(fixture::section(out, "report"), QString::fromUtf8("[成功]\n"));
    const QStringList expected{
        "added    /etc/systemd/system/multi-user.target.wants/usr_kellogger.service (link "
        "/etc/systemd/system/usr_kellogger.service)",
        "added    /etc/systemd/system/usr_kellogger.service",
        "added    /usr/vorn_app/config/command.out",
        "removed  /usr/vorn_app/config/obsolete.conf",
        "replaced /usr/vorn_app/config/panel.conf",
        "added    /usr/vorn_app/etc/\n",
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
    const QStringList changes =
        fixture::section(out, "panel changes").split('\n', Qt::SkipEmptyParts);
    QCOMPARE(changes.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i)
        QVERIFY2((changes[i] + "\n").startsWith(expected[i]), qPrintable(changes[i]));
    // The panel keeps its start-up image, and the runtime directory holds a plain manifest.
    QVERIFY(QFile::exists(dir + "/panel/usr/vorn_app/startBarLoadGnd.bmp"));
    QVERIFY(fixture::readFile(dir + "/panel/usr/vorn_app/update.ini").contains("[UPDATEINFO]"));
    const QString actions = fixture::section(out, "panel actions");
    QVERIFY(actions.contains("panel: runtime exit requested"));
    QVERIFY(actions.contains("panel: clear saved data (mask 5, 0)"));
    QVERIFY(!actions.contains("restart"));
    QVERIFY(!actions.contains("beep"));
    // The system item's helper lies outside the panel's directories: the seal keeps it.
    QVERIFY2(fixture::section(out, "changes elsewhere")
                 .contains("added    /usr/local/bin/kelhelper (755 "),
             qPrintable(out));
    QVERIFY(!QFile::exists("/usr/local/bin/kelhelper"));
    // The last screen: the dialog over the background as the program closed it, although a
    // quiet run ends well within the first periodic screenshot.
    const QImage end(dir + "/shots/end.png");
    QVERIFY(!end.isNull());
    QVERIFY(end.pixelColor(end.width() / 2, end.height() / 2) != end.pixelColor(5, 5));
    // A second run on the same panel fails on the file the first one deleted; the log section
    // shows that run alone, though the log holds both.
    const QString again = simulate(stick, {"--screenshots", "none"}, {"-s", "-nr"});
    QCOMPARE(status, 1);
    QCOMPARE(log().count(QString::fromUtf8("开始升级...")), 2);
    QCOMPARE(fixture::section(again, "log").count(QString::fromUtf8("开始升级...")), 1);
    QVERIFY(fixture::section(again, "log").startsWith("------"));
}

void TestSim::outsidePathsStayInTheSeal()
{
    QTemporaryDir outside("/var/tmp/kelsim-outside-XXXXXX");
    const QString folder = outside.path();
    fixture::writeFile(folder + "/old.conf", "old\n");
    const QString etcFile = "/etc/kelsim-" + QFileInfo(folder).fileName() + ".conf";
    const QByteArray cacheBefore = fixture::readFile("/etc/ld.so.cache");
    editManifest("update/update.ini", "DESTPATH=/usr/vorn_app/config/panel.conf",
                 "DESTPATH=" + folder.toUtf8() + "/modbus.conf");
    editManifest("update/update.ini", "SRCPATH=/usr/vorn_app/config/obsolete.conf",
                 "SRCPATH=" + folder.toUtf8() + "/old.conf");
    editManifest("update/update.ini",
                 "COMMAND=echo sample command ran > /usr/vorn_app/config/command.out",
                 "COMMAND=echo ran > " + etcFile.toUtf8());
    const QString out = simulate(stick, {"--runtime", "absent"}, {"-s", "-nr"});
    QCOMPARE(status, 0);
    // Nothing outside the panel changed on this machine...
    QCOMPARE(fixture::readFile(folder + "/old.conf"), QByteArray("old\n"));
    QVERIFY(!QFile::exists(folder + "/modbus.conf"));
    QVERIFY(!QFile::exists(etcFile));
    QVERIFY(fixture::readFile("/etc/ld.so.cache") == cacheBefore);
    // ...and the report shows all of it.
    const QString elsewhere = fixture::section(out, "changes elsewhere");
    for (const QString& line :
         {"added    " + folder + "/modbus.conf (644 ", "removed  " + folder + "/old.conf",
          "added    " + etcFile + " (644 "})
        QVERIFY2(elsewhere.contains(line), qPrintable(elsewhere));
}

void TestSim::twoRunsAtOnce()
{
    // Different screen sizes: a program that reached the other run's display would show in the
    // size of its last screen.
    const QStringList screens{"800x480", "480x272"};
    QProcess runs[2];
    for (int i = 0; i < 2; ++i) {
        const QString copy = dir + QString("/stick%1").arg(i);
        QCOMPARE(QProcess::execute("cp", {"-R", stick, copy}), 0);
        runs[i].setProcessChannelMode(QProcess::MergedChannels);
        runs[i].start(kKelsim, {"--panel", dir + QString("/panel%1").arg(i), "--timeout", "90",
                                "--screen", screens[i], copy, "-s", "-nr"});
    }
    for (int i = 0; i < 2; ++i) {
        QVERIFY(runs[i].waitForFinished(180000));
        const QString out = QString::fromUtf8(runs[i].readAll());
        QVERIFY2(runs[i].exitCode() == 0 &&
                     fixture::section(out, "report") == QString::fromUtf8("[成功]\n"),
                 qPrintable(out));
        const QImage end(dir + QString("/panel%1/screenshots/end.png").arg(i));
        QCOMPARE(QString("%1x%2").arg(end.width()).arg(end.height()), screens[i]);
    }
}

void TestSim::exitStatus_data()
{
    QTest::addColumn<QStringList>("simOptions");
    QTest::addColumn<QStringList>("programOptions");
    QTest::addColumn<int>("expected");
    QTest::newRow("no end in time") << QStringList{"--timeout", "4"} << QStringList{"-s"} << 3;
    QTest::newRow("unknown option") << QStringList{"--panl", "x"} << QStringList() << 2;
    QTest::newRow("screenshots into a full folder")
        << QStringList{"--screenshots", QStringLiteral(KEL_SOURCE_DIR)} << QStringList() << 2;
    QTest::newRow("help") << QStringList{"--help"} << QStringList() << 0;
    QTest::newRow("version") << QStringList{"--version"} << QStringList() << 0;
}

void TestSim::exitStatus()
{
    QFETCH(QStringList, simOptions);
    QFETCH(QStringList, programOptions);
    QFETCH(int, expected);
    simulate(stick, QStringList{"--runtime", "absent"} + simOptions, programOptions);
    QCOMPARE(status, expected);
}

void TestSim::stubbornRuntimeIsKilled()
{
    // A program option with its value after a space reaches the program whole.
    const QString out =
        simulate(stick, {"--runtime", "ignore"}, {"-s", "-nr", "-p /media/usb0/runtime.log"});
    QVERIFY(QFile::exists(stick + "/runtime.log"));
    const QString actions = fixture::section(out, "panel actions");
    QVERIFY(actions.contains("panel: runtime exit requested"));
    QVERIFY(actions.contains("panel: runtime kill requested"));
    QVERIFY(actions.contains("runtime after the run: stopped"));
    QCOMPARE(fixture::section(out, "report"), QString::fromUtf8("[成功]\n"));
}

void TestSim::interactiveRunCountsDownAndRestarts()
{
    const QString out = simulate(stick, {"--interactive"});
    QVERIFY(fixture::section(out, "report").contains("no log"));
    const QString actions = fixture::section(out, "panel actions");
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
    QVERIFY(!fixture::section(out, "panel actions").contains("restart"));

    QCOMPARE(status, 1); // the red screen of an interactive run is its failure
}

void TestSim::garbageLanguageFileFallsBackToBuiltInTexts()
{
    fixture::writeFile(stick + "/language/0000.lan", garbage(5000));
    const QString out = simulate(stick, {}, {"-s", "-nr"});
    QCOMPARE(fixture::section(out, "report"), QString::fromUtf8("[成功]\n"));
    QVERIFY2(log().contains(QString::fromUtf8("开始升级...")), qPrintable(log()));
}

namespace {
enum Damage
{
    Garbage,
    Truncated,
    Replaced
};
} // namespace
Q_DECLARE_METATYPE(Damage)

void TestSim::hostilePackageFailsCleanly_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<Damage>("damage");
    QTest::addColumn<QByteArray>("from");
    QTest::addColumn<QByteArray>("to");
    QTest::addColumn<QString>("redLine");

    const QString top = "update/update.ini", system = "update/system/update.ini";
    const QString unreadable = QString::fromUtf8("配置文件update.ini解析失败...");
    const QString checkFailed = QString::fromUtf8("升级系统校验:校验失败！");
    QTest::newRow("garbage manifest")
        << top << Garbage << QByteArray() << QByteArray() << unreadable;
    QTest::newRow("garbage item manifest") << system << Garbage << QByteArray() << QByteArray()
                                           << QString::fromUtf8("升级系统校验:配置信息解析失败!");
    QTest::newRow("truncated item manifest")
        << system << Truncated << QByteArray() << QByteArray() << checkFailed;
    QTest::newRow("non-UTF-8 source name")
        << system << Replaced << QByteArray("./payload/time.conf")
        << QByteArray("./payload/\xff\xfe.conf") << checkFailed;
    QTest::newRow("4,000-character destination")
        << system << Replaced << QByteArray("/usr/vorn_app/etc/time.conf")
        << "/usr/vorn_app/etc/" + QByteArray(4000, 'a')
        << QString::fromUtf8("升级系统:升级系统失败");
    QTest::newRow("unknown mode") << system << Replaced << QByteArray("MODE=0")
                                  << QByteArray("MODE=7") << checkFailed;
}

void TestSim::hostilePackageFailsCleanly()
{
    QFETCH(QString, file);
    QFETCH(Damage, damage);
    QFETCH(QByteArray, from);
    QFETCH(QByteArray, to);
    QFETCH(QString, redLine);

    const QString path = stick + "/" + file;
    QByteArray bytes = fixture::readFile(path);
    switch (damage) {
    case Garbage:
        fixture::writeFile(path, garbage(3000));
        break;
    case Truncated:
        fixture::writeFile(path, bytes.left(bytes.size() * 2 / 3));
        break;
    case Replaced:
        editManifest(file, from, to);
        if (to.contains('\xff')) { // the file exists on the stick under its raw name
            const QByteArray raw = QFile::encodeName(stick + "/update/system/") + to.mid(2);
            const int fd = ::open(raw.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            QVERIFY(fd >= 0);
            ::close(fd);
        }
        break;
    }
    const QString out = simulate(stick, {"--runtime", "absent"}, {"-s", "-nr"});
    QCOMPARE(fixture::section(out, "report"), QString::fromUtf8("[失败]\n"));
    QVERIFY2(log().contains(redLine), qPrintable(log()));
    QCOMPARE(status, 1);
    // No file of the panel changed (a folder made on the way may stay).
    for (const QString& line :
         fixture::section(out, "panel changes").split('\n', Qt::SkipEmptyParts))
        QVERIFY2(line.startsWith("added    ") && line.endsWith('/'), qPrintable(line));
    // Only the program's scratch files, nothing of the package, anywhere.
    for (const QString& line :
         fixture::section(out, "changes elsewhere").split('\n', Qt::SkipEmptyParts))
        QVERIFY2(line.contains(" /tmp/"), qPrintable(line));
    QVERIFY(fixture::section(out, "panel actions").contains("program exit status: 0"));
}

QTEST_GUILESS_MAIN(TestSim)
#include "tst_sim.moc"
