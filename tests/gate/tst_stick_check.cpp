#include "fixture.h"
#include "panel_identity.h"
#include "sandbox.h"
#include "stick_check.h"
#include "stick_tree.h"
#include "trust_store.h"

#include <QDir>
#include <QProcess>
#include <QtTest>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The gate's verdict on sticks signed by the package tool and then damaged, on panels with
// other keys, models and versions: each refusal names its reason and what it found.
class TestStickCheck : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void init();
    void verdict_data();
    void verdict();

private:
    QString dir;
    QString stick;
    QString package;
};

namespace {

enum Damage
{
    Intact,
    Grow,
    AddFile,
    RemoveFile,
    CutManifest,
    AlterManifest,
    RemoveManifest,
    LinkAt,
    FifoAt,
    RemoveSignature,
    FlipLastByte,
    AddRawName,
    SecondName
};

} // namespace
Q_DECLARE_METATYPE(Damage)
Q_DECLARE_METATYPE(StickCheck::Result)

void TestStickCheck::initTestCase()
{
    dir = sandbox::makeScratchDir("stickcheck");
    QCOMPARE(fixture::kelpack({"keygen", dir + "/vendor"}), 0);
    QCOMPARE(fixture::kelpack({"keygen", dir + "/other"}), 0);
    fixture::writeFile(dir + "/elsewhere/passwd", "root:x:0:0\n");
    for (const char* key : {"vendor", "other"}) {
        QDir().mkpath(dir + "/" + key + "-keys");
        QVERIFY(QFile::copy(dir + "/" + key + ".pub", dir + "/" + key + "-keys/" + key + ".pub"));
    }
    // Key folders that must trust nothing: a damaged only key, a stray file beside a good key.
    fixture::writeFile(dir + "/broken-keys/vendor.pub", "ed25519-public AAAA\n");
    QDir().mkpath(dir + "/stray-keys");
    QVERIFY(QFile::copy(dir + "/vendor.pub", dir + "/stray-keys/vendor.pub"));
    QVERIFY(QFile::copy(dir + "/vendor.pub", dir + "/stray-keys/vendor.pub.orig"));
}

void TestStickCheck::init()
{
    stick = dir + "/stick";
    package = stick + "/update";
    // A name that is not UTF-8 has no QString that reaches it.
    QProcess::execute("rm", {"-rf", stick});
    QDir(dir + "/panel").removeRecursively();
    fixture::writeFile(package + "/kelloadui.bin", "#!/bin/sh\n");
    fixture::writeScrambledIni(package + "/update.ini", "[UPDATE]\nUPPROJECT=true\n");
    fixture::writeFile(package + "/project/main.pro", "[project]\n");
    fixture::writeFile(stick + "/language/0001.lan", "[1000]\nstring=Warning\n");
    fixture::writeFile(stick + "/config/vornUpdateSet.ini", "[tool_language]\ntype=1\n");
    fixture::writeFile(stick + "/qws/qwsserver", "server");
    // Larger than one read block, so that a sum over the first block alone differs.
    fixture::writeFile(package + "/vorn_app/libbig.so", QByteArray(600 * 1024, 'x'));
    // Beside the folders the updater reads, anything may lie on a stick.
    fixture::writeFile(stick + "/photos/holiday.jpg", "jpeg");
}

void TestStickCheck::verdict_data()
{
    QTest::addColumn<Damage>("damage");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("signedStick");
    QTest::addColumn<QString>("keys"); // the panel's: vendor, other or none
    QTest::addColumn<QString>("model");
    QTest::addColumn<QString>("installed");
    QTest::addColumn<StickCheck::Result>("result");
    QTest::addColumn<QString>("argument");

    using R = StickCheck::Result;
    const QString none;
    auto q = [](const char* path) { return StickTree::quoted(path); };
    auto row = [&](const char* name, Damage damage, const QString& path, R result,
                   const QString& argument) {
        QTest::newRow(name) << damage << path << true << "vendor"
                            << "KEL-700"
                            << "1.1.0" << result << argument;
    };
    row("signed stick passes", Intact, none, R::Passed, none);
    row("grown file", Grow, "qws/qwsserver", R::FileChanged, q("qws/qwsserver"));
    row("extra file in the package", AddFile, "update/project/evil.sh", R::ExtraFile,
        q("update/project/evil.sh"));
    row("missing file", RemoveFile, "update/project/main.pro", R::FileMissing,
        q("update/project/main.pro"));
    row("extra hidden file beside it", AddFile, "config/.profile", R::ExtraFile,
        q("config/.profile"));
    row("manifest altered after signing", AlterManifest, none, R::BadSignature, none);
    row("manifest removed, signature kept", RemoveManifest, none, R::ManifestUnreadable,
        q("update/kelgate.manifest"));
    row("signature removed", RemoveSignature, none, R::Unsigned, none);
    row("link in the package", LinkAt, "update/project/data", R::UnsafeEntry,
        q("update/project/data"));
    row("side folder is a link", LinkAt, "language", R::UnsafeEntry, q("language"));
    row("manifest is a link", LinkAt, "update/kelgate.manifest", R::UnsafeEntry,
        q("update/kelgate.manifest"));
    row("pipe in the package", FifoAt, "update/pipe", R::UnsafeEntry, q("update/pipe"));
    row("file with a second name outside", SecondName, "update/project/main.pro", R::UnsafeEntry,
        q("update/project/main.pro"));
    row("last byte of a large file", FlipLastByte, "update/vorn_app/libbig.so", R::FileChanged,
        q("update/vorn_app/libbig.so"));
    // A name that is not UTF-8 would read as U+FFFD and could pass for a listed one.
    row("name that is not UTF-8", AddRawName, "update/\xff", R::UnsafeEntry, "\"update/\\xff\"");

    // The panel's side: keys, model and installed version.
    auto panel = [&](const char* name, Damage damage, bool signedStick, const QString& keys,
                     const QString& model, const QString& installed, R result,
                     const QString& argument) {
        QTest::newRow(name) << damage << none << signedStick << keys << model << installed << result
                            << argument;
    };
    panel("model unknown", Intact, true, "vendor", none, "1.1.0", R::ModelUnknown,
          StickTree::quoted((dir + "/panel/model").toUtf8()));
    panel("another model", Intact, true, "vendor", "KEL-430", "1.1.0", R::OtherModel,
          "KEL-1000, KEL-700");
    panel("panel exactly at the lowest replaced", Intact, true, "vendor", "KEL-700", "1.0.0",
          R::Passed, none);
    panel("versions compared as numbers", Intact, true, "vendor", "KEL-700", "1.10.0",
          R::OlderVersion, "1.2.0");
    panel("version file that does not parse", Intact, true, "vendor", "KEL-700", "1.x",
          R::VersionUnreadable, StickTree::quoted((dir + "/state/version").toUtf8()));
    panel("only key unreadable", Intact, true, "broken", "KEL-700", "1.1.0", R::KeysUnusable,
          StickTree::quoted((dir + "/broken-keys/vendor.pub").toUtf8()));
    panel("stray file beside the key", Intact, true, "stray", "KEL-700", "1.1.0", R::KeysUnusable,
          StickTree::quoted((dir + "/stray-keys/vendor.pub.orig").toUtf8()));
    panel("key folder missing", Intact, true, "missing", "KEL-700", "1.1.0", R::KeysUnusable,
          StickTree::quoted((dir + "/missing-keys").toUtf8()));
    panel("same version again", Intact, true, "vendor", "KEL-700", "1.2", R::Passed, none);
    panel("panel too old to replace", Intact, true, "vendor", "KEL-700", "0.9.9", R::PanelTooOld,
          "0.9.9");
    panel("nothing installed is too old", Intact, true, "vendor", "KEL-700", none, R::PanelTooOld,
          "0");
    panel("no key: unsigned stick passes", Intact, false, "none", "KEL-700", "1.1.0", R::Passed,
          none);
    panel("no key: cut-short unsigned manifest", CutManifest, false, "none", "KEL-700", "1.1.0",
          R::ManifestUnreadable, StickTree::quoted("update/kelgate.manifest"));
    panel("no key, no manifest: runs as before", RemoveManifest, false, "none", "KEL-700", "1.1.0",
          R::NoManifest, none);
    panel("empty key folder: no signing", RemoveManifest, false, "empty", "KEL-700", "1.1.0",
          R::NoManifest, none);
    panel("key, no manifest", RemoveManifest, false, "vendor", "KEL-700", "1.1.0", R::Unsigned,
          none);
}

void TestStickCheck::verdict()
{
    QFETCH(Damage, damage);
    QFETCH(QString, path);
    QFETCH(bool, signedStick);
    QFETCH(QString, keys);
    QFETCH(QString, model);
    QFETCH(QString, installed);
    QFETCH(StickCheck::Result, result);
    QFETCH(QString, argument);

    QCOMPARE(fixture::kelpack({"sign", package, signedStick ? dir + "/vendor.key" : "--unsigned",
                               "--version", "1.2.0", "--models", "KEL-700,KEL-1000", "--replaces",
                               "1.0.0"}),
             0);
    const QString target = stick + "/" + path;
    const QString manifest = package + "/kelgate.manifest";
    QByteArray bytes =
        fixture::readFile(damage == CutManifest || damage == AlterManifest ? manifest : target);
    switch (damage) {
    case Intact:
        break;
    case Grow:
        fixture::writeFile(target, bytes + "!");
        break;
    case AddFile:
        fixture::writeFile(target, "echo owned\n");
        break;
    case RemoveFile:
        QVERIFY(QFile::remove(target));
        break;
    case CutManifest:
        fixture::writeFile(manifest, bytes.left(bytes.size() * 2 / 3));
        break;
    case AlterManifest:
        fixture::writeFile(manifest, bytes.replace("replaces 1.0.0", "replaces 0.0.0"));
        break;
    case RemoveManifest:
        QVERIFY(QFile::remove(manifest));
        break;
    case RemoveSignature:
        QVERIFY(QFile::remove(package + "/kelgate.sig"));
        break;
    case LinkAt:
        QDir(target).removeRecursively();
        QFile::remove(target);
        QVERIFY(QFile::link(dir + "/elsewhere", target));
        break;
    case FifoAt:
        QCOMPARE(mkfifo(QFile::encodeName(target).constData(), 0644), 0);
        break;
    case FlipLastByte:
        bytes[bytes.size() - 1] = 'y';
        fixture::writeFile(target, bytes);
        break;
    case SecondName:
        QCOMPARE(::link(QFile::encodeName(target), QFile::encodeName(stick + "/photos/main.pro")),
                 0);
        break;
    case AddRawName: {
        const int fd = ::open(QFile::encodeName(package) + "/\xff", O_CREAT | O_WRONLY, 0644);
        QVERIFY(fd >= 0);
        ::close(fd);
        break;
    }
    }
    if (!model.isEmpty())
        fixture::writeFile(dir + "/panel/model", model.toUtf8() + "\n");
    if (!installed.isEmpty())
        fixture::writeFile(dir + "/state/version", installed.toUtf8() + "\n");
    else
        QFile::remove(dir + "/state/version");

    const PanelIdentity panel(dir + "/panel", dir + "/state");
    StickCheck check(package);
    QDir().mkpath(dir + "/empty-keys");
    QCOMPARE(check.run(TrustStore(keys == "none" ? QString() : dir + "/" + keys + "-keys"), &panel),
             result);
    QCOMPARE(check.arguments().value(0), argument);
    QCOMPARE(check.detail().isEmpty(), result != StickCheck::ManifestUnreadable);
}

QTEST_GUILESS_MAIN(TestStickCheck)
#include "tst_stick_check.moc"
