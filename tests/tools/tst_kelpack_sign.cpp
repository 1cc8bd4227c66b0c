#include "fixture.h"
#include "sandbox.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

// Keys and signed sticks as an integrator makes them with the package tool.
class TestKelpackSign : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void keygenWritesAPrivateKeyOnce();
    void buildSigns_data();
    void buildSigns();
    void verifyFindsWhatThePanelWouldRefuse_data();
    void verifyFindsWhatThePanelWouldRefuse();
    void sourcesOutsideTheStickManifestAreRefused_data();
    void sourcesOutsideTheStickManifestAreRefused();

private:
    int kelpack(const QStringList& args, QByteArray* out = nullptr);
    QString dir;
};

void TestKelpackSign::initTestCase()
{
    dir = sandbox::makeScratchDir("kelpack-sign");
    for (const char* name : {"vendor", "other"}) {
        QCOMPARE(kelpack({"keygen", dir + "/" + name}), 0);
        QDir().mkpath(dir + "/" + name + "-keys");
        QVERIFY(QFile::copy(dir + "/" + name + ".pub", dir + "/" + name + "-keys/key.pub"));
    }
}

int TestKelpackSign::kelpack(const QStringList& args, QByteArray* out)
{
    return fixture::kelpack(args, out, out);
}

void TestKelpackSign::keygenWritesAPrivateKeyOnce()
{
    QCOMPARE(QFileInfo(dir + "/vendor.key").permissions() & 0x7777,
             QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser);
    QVERIFY(QFileInfo(dir + "/vendor.pub").permissions() & QFile::ReadOther);
    const QByteArray key = fixture::readFile(dir + "/vendor.key");
    QByteArray out;
    QCOMPARE(kelpack({"keygen", dir + "/vendor"}, &out), 1);
    QVERIFY(out.contains("already exists"));
    QCOMPARE(fixture::readFile(dir + "/vendor.key"), key);
    // A copy that others may read is refused before it signs anything.
    fixture::writeFile(dir + "/shared.key", key);
    QFile::setPermissions(dir + "/shared.key", QFile::ReadOwner | QFile::WriteOwner |
                                                   QFile::ReadGroup | QFile::ReadOther);
    fixture::writeFile(dir + "/loose/update/kelloadui.bin", "#!/bin/sh\n");
    QCOMPARE(kelpack({"sign", dir + "/loose/update", dir + "/shared.key", "--version", "1.0",
                      "--models", "KEL-700"},
                     &out),
             1);
    QVERIFY2(out.contains("chmod 600"), out.constData());
    QVERIFY(!QFileInfo::exists(dir + "/loose/update/kelgate.manifest"));
}

void TestKelpackSign::buildSigns_data()
{
    QTest::addColumn<QByteArray>("recipe"); // added to the sample's [stick] section
    QTest::addColumn<bool>("sign");
    QTest::addColumn<QByteArray>("result"); // "signed", "unsigned", "none" or an error
    QTest::newRow("signed") << QByteArray("version=1.2.0\nmodels=KEL-700, KEL-1000\n") << true
                            << QByteArray("signed");
    QTest::newRow("recipe with a version, no key")
        << QByteArray("version=1.2.0\nmodels=KEL-700\nreplaces=1.0\n") << false
        << QByteArray("unsigned");
    QTest::newRow("no version, no key: as before") << QByteArray() << false << QByteArray("none");
    QTest::newRow("key without a version")
        << QByteArray() << true << QByteArray("[stick] version is missing");
    QTest::newRow("model with a blank") << QByteArray("version=1.2.0\nmodels=KEL 700\n") << true
                                        << QByteArray("[stick] models: \"KEL 700\"");
}

void TestKelpackSign::buildSigns()
{
    QFETCH(QByteArray, recipe);
    QFETCH(bool, sign);
    QFETCH(QByteArray, result);
    INSIDE_SANDBOX_REQUIRED();
    const QString tree = dir + "/tree", out = dir + "/out";
    QDir(tree).removeRecursively();
    QDir(out).removeRecursively();
    QVERIFY(fixture::copySampleTree(tree));
    fixture::writeFile(tree + "/kelpack.ini", fixture::readFile(tree + "/kelpack.ini") + recipe);
    QStringList args{"build", tree, out, "--program", KEL_PROGRAM_PATH};
    if (sign)
        args << "--sign" << dir + "/vendor.key";
    QByteArray output;
    const int status = kelpack(args, &output);
    const bool built = result == "signed" || result == "unsigned" || result == "none";
    QCOMPARE(status, built ? 0 : 1);
    if (!built) {
        QVERIFY2(output.contains(result) && output.contains("kelpack.ini"), output.constData());
        QVERIFY(!QFileInfo::exists(out)); // no half-built stick
        return;
    }
    QCOMPARE(QFileInfo::exists(out + "/update/kelgate.manifest"), result != "none");
    QCOMPARE(QFileInfo::exists(out + "/update/kelgate.sig"), result == "signed");
    QCOMPARE(kelpack({"verify", out + "/update", "--keys", dir + "/vendor-keys"}, &output),
             result == "signed" ? 0 : 1);
    QCOMPARE(kelpack({"info", out + "/update"}, &output), 0);
    QVERIFY2(output.contains("stick manifest" + QByteArray(result == "none" ? ": none" : "")),
             output.constData());
    if (result == "signed")
        QVERIFY2(output.contains("(signed)\n  package version 1.2.0 for the models KEL-1000, "
                                 "KEL-700\n  replaces panels from version 0 on\n"),
                 output.constData());
}

void TestKelpackSign::verifyFindsWhatThePanelWouldRefuse_data()
{
    QTest::addColumn<QString>("keys");
    QTest::addColumn<QString>("changed"); // a file of the stick changed after signing
    QTest::addColumn<QByteArray>("finding");
    QTest::newRow("other key") << "other-keys" << QString() << QByteArray("verifies with no key");
    QTest::newRow("changed file") << "vendor-keys"
                                  << "language/0001.lan"
                                  << QByteArray("\"language/0001.lan\" differs");
    QTest::newRow("no key given") << QString() << QString()
                                  << QByteArray("signature was not checked");
}

void TestKelpackSign::verifyFindsWhatThePanelWouldRefuse()
{
    QFETCH(QString, keys);
    QFETCH(QString, changed);
    QFETCH(QByteArray, finding);
    INSIDE_SANDBOX_REQUIRED();
    const QString stick = dir + "/stick";
    QDir(stick).removeRecursively();
    QVERIFY(fixture::copySampleStick(stick));
    fixture::writeFile(stick + "/language/0001.lan", "[1000]\nstring=Warning\n");
    QCOMPARE(kelpack({"sign", stick + "/update", dir + "/vendor.key", "--version", "1.2.0",
                      "--models", "KEL-700"}),
             0);
    if (!changed.isEmpty())
        fixture::writeFile(stick + "/" + changed, "[1000]\nstring=Warnin9\n");
    QStringList args{"verify", stick + "/update"};
    if (!keys.isEmpty())
        args << "--keys" << dir + "/" + keys;
    QByteArray out;
    QCOMPARE(kelpack(args, &out), keys.isEmpty() ? 0 : 1);
    QVERIFY2(out.contains(finding), out.constData());
}

void TestKelpackSign::sourcesOutsideTheStickManifestAreRefused_data()
{
    QTest::addColumn<QStringList>("edit"); // a file of the sample tree, a text and its replacement
    QTest::addColumn<QString>("where");    // how the finding starts
    QTest::addColumn<QString>("fix");
    QTest::newRow("sibling folder of the package")
        << QStringList{"update.ini", "./files/panel.conf", "../extra/panel.conf"}
        << "update.ini:19: error: [COPYFILE1] SRCPATH: "
        << "SRCPATH=./extra/panel.conf, with the file moved to extra/panel.conf";
    QTest::newRow("absolute") << QStringList{"system/update.ini", "./payload/time.conf",
                                             "/media/usb0/extra/time.conf"}
                              << "system/update.ini:15: error: [COPYFILE2] SRCPATH: "
                              << "SRCPATH=./time.conf, with the file moved to system/time.conf";
    QTest::newRow("runtime src_path")
        << QStringList{"vorn_app/update.ini", "src_path=./", "src_path=../../rt/"}
        << "vorn_app/update.ini:9: error: [FILE1] src_path: "
        << "src_path=./rt/, with the folder moved to vorn_app/rt";
    QTest::newRow("project NAME") << QStringList{"project/project.ini", "NAME=main.pro",
                                                 "NAME=../../extra/main.pro"}
                                  << "project/project.ini:6: error: [FILE1] NAME: "
                                  << "NAME=main.pro, with the file moved to project/main.pro";
}

void TestKelpackSign::sourcesOutsideTheStickManifestAreRefused()
{
    QFETCH(QStringList, edit);
    QFETCH(QString, where);
    QFETCH(QString, fix);
    INSIDE_SANDBOX_REQUIRED();
    const QString tree = dir + "/tree", out = dir + "/out";
    QDir(tree).removeRecursively();
    QDir(out).removeRecursively();
    QVERIFY(fixture::copySampleTree(tree));
    QByteArray manifest = fixture::readFile(tree + "/" + edit[0]);
    QVERIFY(manifest.contains(edit[1].toUtf8()));
    fixture::writeFile(tree + "/" + edit[0], manifest.replace(edit[1].toUtf8(), edit[2].toUtf8()));

    QByteArray json;
    QCOMPARE(kelpack({"verify", tree, "--json"}, &json), 1);
    QString finding;
    for (const QJsonValue& value :
         QJsonDocument::fromJson(json).object().value("findings").toArray()) {
        if (value.toObject().value("text").toString().startsWith(where))
            finding = value.toObject().value("text").toString();
    }
    QVERIFY2(finding.contains(fix), json.constData());

    // build refuses what verify refuses; a stick written despite it cannot be signed.
    const QStringList build{"build", tree, out, "--program", KEL_PROGRAM_PATH};
    QByteArray output;
    QCOMPARE(kelpack(build, &output), 1);
    QVERIFY2(output.contains(finding.toUtf8()) && !QFileInfo::exists(out), output.constData());
    QCOMPARE(kelpack(build + QStringList{"--despite-errors"}), 0);
    QCOMPARE(kelpack({"sign", out + "/update", dir + "/vendor.key", "--version", "1.2.0",
                      "--models", "KEL-700"},
                     &output),
             1);
    QVERIFY2(output.contains((out + "/update/" + edit[0] + ":").toUtf8()) &&
                 output.contains(where.section(": error: ", 1).toUtf8()),
             output.constData());
    QVERIFY(!QFileInfo::exists(out + "/update/kelgate.manifest"));

    // With a release in the recipe, verify still reports and build --sign names the tree's line.
    QDir(out).removeRecursively();
    fixture::writeFile(tree + "/kelpack.ini", fixture::readFile(tree + "/kelpack.ini") +
                                                  "version=1.2.0\nmodels=KEL-700\n");
    QByteArray again;
    QCOMPARE(kelpack({"verify", tree, "--json"}, &again), 1);
    QCOMPARE(again, json);
    QCOMPARE(kelpack(build + QStringList{"--sign", dir + "/vendor.key"}, &output), 1);
    QVERIFY2(output.contains((tree + "/" + where).toUtf8()) && !QFileInfo::exists(out),
             output.constData());
}

KEL_SANDBOXED_TEST_MAIN(TestKelpackSign)
#include "tst_kelpack_sign.moc"
