#include "def.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"
#include "stick_tree.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>
#include <fcntl.h>
#include <unistd.h>

// Whole updates through the sealed simulator with the panel's gate in front of the stick's
// program: a signed stick is applied; every damaged, foreign or outdated stick, and every stick
// that tries a way around the check (links for the gate to write through, sources outside the
// signed files, names that are markup or not UTF-8, a key folder that would fail open), is
// refused with its own text before the program starts, and the panel stays untouched.
class TestSimGate : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void init();
    void signedStickIsApplied();
    void refusedStickNeverStarts_data();
    void refusedStickNeverStarts();
    void withoutKeysAStickWithoutManifestRunsAsBefore();

private:
    void sign(const QString& key);
    // Runs the stick through the simulator, the gate in front of the program, on a panel of
    // model with installed version that trusts the keys in keysDir.
    QString simulate(const QString& keysDir, const QString& model, const QString& installed);
    QByteArray installedVersion() const;
    QString dir;
    QString stick;
    int status = -1;
};

void TestSimGate::initTestCase()
{
    SANDBOX_REQUIRED();
    TOOLS_REQUIRED("Xvfb");
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    dir = sandbox::makeScratchDir("simgate");
    for (const char* name : {"vendor", "other"}) {
        QCOMPARE(fixture::kelpack({"keygen", dir + "/" + name}), 0);
        QDir().mkpath(dir + "/" + name + "-keys");
        QVERIFY(QFile::copy(dir + "/" + name + ".pub", dir + "/" + name + "-keys/key.pub"));
    }
    QDir().mkpath(dir + "/no-keys");
    // The only key file misnamed: the panel must not take its folder for an empty one.
    QDir().mkpath(dir + "/stray-keys");
    QVERIFY(QFile::copy(dir + "/vendor.pub", dir + "/stray-keys/vendor.pub.orig"));
}

void TestSimGate::init()
{
    stick = dir + "/stick";
    // A name that is not UTF-8 has no QString that reaches it.
    QProcess::execute("rm", {"-rf", stick});
    QDir(dir + "/panel").removeRecursively();
    QVERIFY(fixture::copySampleStick(stick));
    fixture::writeFile(stick + "/language/0001.lan", "[1000]\nstring=Warning\n");
}

void TestSimGate::sign(const QString& key)
{
    QCOMPARE(fixture::kelpack({"sign", stick + "/update",
                               key.isEmpty() ? "--unsigned" : dir + "/" + key, "--version", "1.2.0",
                               "--models", "KEL-700,KEL-1000", "--replaces", "1.0.0"}),
             0);
}

QString TestSimGate::simulate(const QString& keysDir, const QString& model,
                              const QString& installed)
{
    // The gate's files in the panel directory, which the simulator binds over the panel's own.
    const QString panel = dir + "/panel";
    QDir(panel + "/etc/kelgate/keys").removeRecursively();
    QDir().mkpath(panel + "/etc/kelgate");
    QProcess::execute("cp", {"-R", dir + "/" + keysDir, panel + "/etc/kelgate/keys"});
    fixture::writeFile(panel + "/etc/kelgate/model", model.toUtf8() + "\n");
    fixture::writeFile(panel + "/var/lib/kelgate/version", installed.toUtf8() + "\n");
    QByteArray out;
    status = fixture::run(QStringLiteral(KEL_SOURCE_DIR) + "/sim/kelsim",
                          {"--panel", panel, "--timeout", "90", "--gate",
                           QStringLiteral(KEL_BINARY_DIR) + "/tools/kelgate/kelgate", stick, "-s",
                           "-nr"},
                          &out, &out);
    return QString::fromUtf8(out);
}

QByteArray TestSimGate::installedVersion() const
{
    return fixture::readFile(dir + "/panel/var/lib/kelgate/version");
}

void TestSimGate::signedStickIsApplied()
{
    sign("vendor.key");
    const QString out = simulate("vendor-keys", "KEL-700", "1.1.0");
    QCOMPARE(status, 0);
    QCOMPARE(fixture::section(out, "report"), QString::fromUtf8("[成功]\n"));
    const QString changes = fixture::section(out, "panel changes");
    QVERIFY2(changes.contains("replaced /usr/vorn_app/vorn_app "), qPrintable(out));
    QVERIFY(changes.contains("replaced /var/lib/kelgate/version "));
    QVERIFY(fixture::section(out, "panel actions").contains("panel: runtime exit requested"));
    QCOMPARE(installedVersion(), QByteArray("1.2.0\n"));
}

namespace {
enum Damage
{
    Intact,
    ChangeByte,
    LogLinkTo,    // the stick's update.log is a link to path
    LogHardLink,  // the stick's update.log is a second name of path on the stick
    ExtraNamed,   // an extra file in the package folder, named path
    SourceOutside // a copy whose source lies beside the signed folders
};
} // namespace
Q_DECLARE_METATYPE(Damage)

void TestSimGate::refusedStickNeverStarts_data()
{
    QTest::addColumn<QString>("key"); // signing key; empty: unsigned
    QTest::addColumn<Damage>("damage");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("keys"); // the panel's
    QTest::addColumn<QString>("model");
    QTest::addColumn<QString>("installed");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<bool>("english"); // the panel's project speaks English

    const QString v = "vendor.key", keys = "vendor-keys", model = "KEL-700", old = "1.1.0";
    auto q = [](const QByteArray& name) { return StickTree::quoted(name); };
    for (const char* file : {"update/kelloadui.bin", "update/vorn_app/libvornui.so.1.2.0",
                             "update/update.ini", "language/0001.lan"})
        QTest::newRow(qPrintable(QString("changed byte in ") + file))
            << v << ChangeByte << file << keys << model << old << kel::text(2228).arg(q(file))
            << false;
    QTest::newRow("wrong key") << "other.key" << Intact << "" << keys << model << old
                               << kel::text(2227) << false;
    QTest::newRow("wrong key, on a panel that speaks English")
        << "other.key" << Intact << "" << keys << model << old
        << "The package signature is invalid, or its key is not trusted by this panel" << true;
    QTest::newRow("another model") << v << Intact << "" << keys << "KEL-430" << old
                                   << kel::text(2232).arg("KEL-1000, KEL-700", "KEL-430") << false;
    QTest::newRow("lower version") << v << Intact << "" << keys << model << "1.3.0"
                                   << kel::text(2233).arg("1.2.0", "1.3.0") << false;
    QTest::newRow("unsigned stick on a panel with a key")
        << "" << Intact << "" << keys << model << old << kel::text(2226) << false;
    QTest::newRow("no key: damaged unsigned stick")
        << "" << ChangeByte << "update/update.ini"
        << "no-keys" << model << old << kel::text(2228).arg(q("update/update.ini")) << false;

    // Ways around the check.
    QTest::newRow("log links to the version file")
        << "" << LogLinkTo << "/var/lib/kelgate/version" << keys << model << old << kel::text(2226)
        << false;
    QTest::newRow("log links to the loader's preload list")
        << "" << LogLinkTo << "/etc/ld.so.preload" << keys << model << old << kel::text(2226)
        << false;
    QTest::newRow("log is a second name of a stick file")
        << "" << LogHardLink << "language/0001.lan" << keys << model << old << kel::text(2226)
        << false;
    QTest::newRow("source outside the signed folders")
        << v << SourceOutside << "extra/panel.conf" << keys << model << old
        << kel::text(2240).arg(q("update.ini COPYFILE1/SRCPATH"), q("../extra/panel.conf"))
        << false;
    const QByteArray markup = "<font color=#00ff00 size=7>UPDATE COMPLETE";
    QTest::newRow("name that is markup")
        << v << ExtraNamed << QString::fromUtf8(markup) << keys << model << old
        << kel::text(2230).arg(q("update/" + markup)) << false;
    QTest::newRow("name that is not UTF-8")
        << v << ExtraNamed << QString("\\xff") << keys << model << old
        << kel::text(2231).arg(q("update/\xff")) << false;
    QTest::newRow("key folder holding no key file")
        << "" << Intact << ""
        << "stray-keys" << model << old
        << kel::text(2241).arg(q("/etc/kelgate/keys/vendor.pub.orig")) << false;
}

void TestSimGate::refusedStickNeverStarts()
{
    QFETCH(QString, key);
    QFETCH(Damage, damage);
    QFETCH(QString, path);
    QFETCH(QString, keys);
    QFETCH(QString, model);
    QFETCH(QString, installed);
    QFETCH(QString, reason);
    QFETCH(bool, english);

    if (english) {
        // The gate reads the panel's own language choice, never the stick's.
        QVERIFY(fixture::seedPanel(dir + "/panel"));
        fixture::writeFile(dir + "/panel/usr/vorn_app/project/lan_setup.ini",
                           "[current_language]\ntype=1\n");
    }
    if (damage != SourceOutside)
        sign(key);
    const QString target = stick + "/" + path;
    QByteArray bytes = fixture::readFile(target);
    switch (damage) {
    case Intact:
        break;
    case ChangeByte:
        bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x20);
        fixture::writeFile(target, bytes);
        break;
    case LogLinkTo:
        QVERIFY(QFile::link(path, stick + "/update.log"));
        break;
    case LogHardLink:
        QCOMPARE(::link(QFile::encodeName(target), QFile::encodeName(stick + "/update.log")), 0);
        break;
    case ExtraNamed: {
        // The name's raw bytes: "\\xff" stands for the one byte.
        const QByteArray name = path == "\\xff" ? QByteArray("\xff") : path.toUtf8();
        const int fd =
            ::open(QFile::encodeName(stick + "/update/") + name, O_CREAT | O_WRONLY, 0644);
        QVERIFY(fd >= 0);
        ::close(fd);
        break;
    }
    case SourceOutside: {
        // The package names a file beside the signed folders; what lies there is the stick's.
        QVERIFY(fixture::editScrambled(stick + "/update/update.ini", "SRCPATH=./files/panel.conf",
                                       "SRCPATH=../extra/panel.conf"));
        fixture::writeFile(target, fixture::readFile(stick + "/update/files/panel.conf"));
        QVERIFY(fixture::signUnchecked(stick + "/update", dir + "/vendor.key",
                                       {"KEL-1000", "KEL-700"}));
        break;
    }
    }
    const QByteArray linkedBefore = fixture::readFile(stick + "/language/0001.lan");
    const QString out = simulate(keys, model, installed);
    // The gate's report and its one line, and nothing of the program's log.
    QCOMPARE(status, 1);
    QCOMPARE(fixture::section(out, "report"), QString::fromUtf8("[失败]\n"));
    const QString log = fixture::section(out, "log");
    const QString refused =
        english ? "Update refused: the package on the USB stick failed this panel's check"
                : kel::text(2224);
    QVERIFY2(log.startsWith(refused + ": " + reason), qPrintable(out));
    QCOMPARE(log.count('\n'), 1);
    QCOMPARE(fixture::section(out, "panel changes"), QString());
    QCOMPARE(fixture::section(out, "changes elsewhere"), QString());
    const QString actions = fixture::section(out, "panel actions");
    QVERIFY2(!actions.contains("runtime exit requested"), qPrintable(actions));
    QVERIFY(actions.contains("panel: beep 1000 ms"));
    QVERIFY(actions.contains("runtime after the run: running"));
    QVERIFY(actions.contains("program exit status: 1"));
    QCOMPARE(installedVersion(), installed.toUtf8() + "\n");
    // Nothing was written through a link: the stick's log is a file of its own.
    QVERIFY(!QFileInfo(stick + "/update.log").isSymLink());
    QCOMPARE(fixture::readFile(stick + "/language/0001.lan"), linkedBefore);
    // The gate's red notice is on the screen while it waits.
    const QDir shots(dir + "/panel/screenshots");
    bool red = false;
    for (const QString& shot : shots.entryList({"screen-*.png"}))
        red = red || QImage(shots.filePath(shot)).pixelColor(5, 5) == QColor(Qt::red);
    QVERIFY(red);
}

void TestSimGate::withoutKeysAStickWithoutManifestRunsAsBefore()
{
    const QString out = simulate("no-keys", "KEL-700", "1.1.0");
    QCOMPARE(status, 0);
    QCOMPARE(fixture::section(out, "report"), QString::fromUtf8("[成功]\n"));
    QVERIFY(fixture::section(out, "panel changes").contains("replaced /usr/vorn_app/vorn_app "));
    QCOMPARE(installedVersion(), QByteArray("1.1.0\n"));
}

QTEST_GUILESS_MAIN(TestSimGate)
#include "tst_sim_gate.moc"
