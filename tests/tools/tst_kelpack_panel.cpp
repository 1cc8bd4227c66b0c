#include "def.h"
#include "fixture.h"
#include "kelpack_trees.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

using fixture::kelpack;

// What verify predicts, shown on the simulated panel: a stick of each mistaken tree fails there
// or does harm, a stick of the correct tree and of the starter tree updates the panel.
class TestKelpackPanel : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void panelConfirms_data() { trees::addMistakes(); }
    void panelConfirms();
    void starterTreeUpdatesThePanel_data();
    void starterTreeUpdatesThePanel();
    void healthFindsTheRuntimeLibraries_data();
    void healthFindsTheRuntimeLibraries();

private:
    // The plan's end state of the stick's package on a freshly seeded panel against the changes
    // a simulated run of it listed.
    void comparePlan(const QString& package, const QString& simulated);
    // Runs kelsim on stick runs times on one fresh panel, quiet with -s -nr, with simulator
    // options and environment entries; the last run's exit status and output.
    int simulate(const QString& stick, int runs, QString* out, const QStringList& simOptions = {},
                 const QStringList& environment = {});
    QString dir;
};

void TestKelpackPanel::initTestCase()
{
    SANDBOX_REQUIRED();
    TOOLS_REQUIRED("Xvfb");
    dir = sandbox::makeScratchDir("kelpack-panel");
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
}

int TestKelpackPanel::simulate(const QString& stick, int runs, QString* out,
                               const QStringList& simOptions, const QStringList& environment)
{
    int status = -1;
    for (int run = 0; run < runs; ++run) {
        // env puts the case's variables in front of the simulator.
        QStringList args = environment;
        args << QStringLiteral(KEL_SOURCE_DIR) + "/sim/kelsim"
             << "--panel" << dir + "/panel"
             << "--screenshots"
             << "none"
             << "--timeout"
             << "90" << simOptions;
        if (run == 0)
            args << "--fresh";
        args << stick << "-s"
             << "-nr";
        QByteArray output;
        status = fixture::run("/usr/bin/env", args, &output, &output);
        *out = QString::fromUtf8(output);
    }
    return status;
}

void TestKelpackPanel::panelConfirms()
{
    QFETCH(trees::Mistake, c);
    QCOMPARE(kelpack({"build", trees::tree(dir, c.edits), dir + "/out", "--program",
                      KEL_PROGRAM_PATH, "--despite-errors"}),
             0);
    QString out;
    const int status = simulate(dir + "/out", c.runs, &out, c.simOptions, c.environment);
    QCOMPARE(fixture::section(out, "report").trimmed(), c.report);
    QCOMPARE(status, c.report == QString::fromUtf8("[成功]") ? (c.unhealthy ? 4 : 0) : 1);
    const bool lacks = c.evidence.startsWith('!');
    QVERIFY2(out.contains(QRegularExpression(c.evidence.mid(lacks ? 1 : 0))) != lacks,
             qPrintable(out));
    // A whole run does to the panel's files exactly what the plan says.
    if (c.runs == 1 && status == 0)
        comparePlan(dir + "/out/update", out);
}

void TestKelpackPanel::comparePlan(const QString& package, const QString& simulated)
{
    const QString panel = dir + "/seeded";
    QVERIFY(fixture::seedPanel(panel));
    QByteArray json;
    QCOMPARE(kelpack({"plan", package, "--panel", panel, "--json"}, &json), 0);
    QCOMPARE(trees::plannedChanges(json), trees::simulatedChanges(simulated));
}

void TestKelpackPanel::starterTreeUpdatesThePanel_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("copying"); // the panel's line as the copies start
    QTest::newRow("English unless asked") << QStringList() << "Copying the listed files...";
    QTest::newRow("the built-in Chinese") << QStringList{"--language", "zh"} << kel::text(2084);
}

void TestKelpackPanel::starterTreeUpdatesThePanel()
{
    QFETCH(QStringList, options);
    QFETCH(QString, copying);
    const QString starter = dir + "/starter";
    QDir(starter).removeRecursively();
    QCOMPARE(kelpack(QStringList{"init", starter} + options), 0);
    QByteArray out;
    QCOMPARE(kelpack({"verify", starter}, &out), 0);
    QVERIFY2(out.startsWith("no errors, no warnings"), out.constData());
    // Each item's example is correct too, once switched on.
    QString text = QString::fromUtf8(fixture::readFile(starter + "/update.ini"));
    fixture::writeFile(starter + "/update.ini", text.replace("=false", "=true").toUtf8());
    QCOMPARE(kelpack({"verify", starter}, &out), 0);
    QVERIFY2(out.startsWith("no errors, no warnings"), out.constData());
    fixture::writeFile(starter + "/update.ini", text.replace("=true", "=false").toUtf8());
    QDir(dir + "/out").removeRecursively();
    QCOMPARE(kelpack({"build", starter, dir + "/out", "--program", KEL_PROGRAM_PATH}), 0);
    QString sim;
    QCOMPARE(simulate(dir + "/out", 1, &sim), 0);
    QCOMPARE(fixture::section(sim, "report").trimmed(), QString::fromUtf8("[成功]"));
    QVERIFY2(sim.contains("added    /usr/vorn_app/config/hello.conf"), qPrintable(sim));
    QVERIFY2(fixture::section(sim, "log").contains(copying), qPrintable(sim));
}

// A runtime program that needs a library of its package: verify sees where the run leaves it,
// and so does the simulated panel's health.
void TestKelpackPanel::healthFindsTheRuntimeLibraries_data()
{
    QTest::addColumn<QString>("folder"); // where the runtime's library lies in vorn_app/
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("health");
    QTest::addColumn<bool>("refused"); // by verify, before any panel
    QTest::newRow("installed beside the program")
        << "" << 0 << "ok   its libraries resolve" << false;
    QTest::newRow("in a folder no record installs")
        << "lib/" << 4 << "bad  its libraries: not found: libplc.so.1" << true;
}

void TestKelpackPanel::healthFindsTheRuntimeLibraries()
{
    QFETCH(QString, folder);
    QFETCH(int, status);
    QFETCH(QString, health);
    QFETCH(bool, refused);
    const QString cc = QStandardPaths::findExecutable("cc");
    if (cc.isEmpty())
        QSKIP("no C compiler to make a runtime program that needs a library");
    // A runtime program of this machine that needs a library of the package.
    const QString tree = trees::tree(dir), runtime = tree + "/vorn_app/";
    QDir().mkpath(runtime + folder);
    fixture::writeFile(dir + "/plc.c", "int plc(void) { return 0; }\n");
    fixture::writeFile(dir + "/main.c", "int plc(void);\nint main(void) { return plc(); }\n");
    QCOMPARE(fixture::run(cc, {"-shared", "-fPIC", "-Wl,-soname,libplc.so.1", "-o",
                               runtime + folder + "libplc.so.1", dir + "/plc.c"}),
             0);
    QCOMPARE(fixture::run(cc, {"-o", runtime + "vorn_app", dir + "/main.c", "-L", runtime + folder,
                               "-l:libplc.so.1"}),
             0);
    QByteArray verdict;
    kelpack({"verify", tree}, &verdict);
    QCOMPARE(verdict.contains("the runtime program needs libplc.so.1, which the package ships as "
                              "vorn_app/lib/libplc.so.1"),
             refused);
    QCOMPARE(
        kelpack({"build", tree, dir + "/out", "--program", KEL_PROGRAM_PATH, "--despite-errors"}),
        0);
    QString out;
    QCOMPARE(simulate(dir + "/out", 1, &out), status);
    QVERIFY2(fixture::section(out, "panel health").contains(health), qPrintable(out));
}

QTEST_GUILESS_MAIN(TestKelpackPanel)
#include "tst_kelpack_panel.moc"
