#include "fixture.h"
#include "sandbox.h"

#include <QDir>
#include <QFileInfo>
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
                                  << "language/0001.lan" << QByteArray("language/0001.lan differs");
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

KEL_SANDBOXED_TEST_MAIN(TestKelpackSign)
#include "tst_kelpack_sign.moc"
