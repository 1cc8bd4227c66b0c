#include "def.h"
#include "fixture.h"
#include "generateconfiginfo.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QProcess>
#include <QtTest>

// The package tool as integrators use it: what it writes is read back by the updater's reader.
class TestKelpack : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void scrambledManifestReadsBack_data();
    void scrambledManifestReadsBack();
    void crcRenderings();
    void refusals_data();
    void refusals();

private:
    int kelpack(const QStringList& args, QByteArray* out = nullptr);
    QString dir;
};

void TestKelpack::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    dir = sandbox::makeScratchDir("kelpack");
}

int TestKelpack::kelpack(const QStringList& args, QByteArray* out)
{
    QProcess tool;
    tool.start(QStringLiteral(KEL_BINARY_DIR) + "/tools/kelpack", args);
    tool.waitForFinished();
    if (out)
        *out = tool.readAllStandardOutput();
    return tool.exitStatus() == QProcess::NormalExit ? tool.exitCode() : -1;
}

void TestKelpack::scrambledManifestReadsBack_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::newRow("bare INI gets its BOM and comment line")
        << QByteArray("[RESTART]\nCOMMAND=\"echo a; echo b\"\n[PREPARE1]\nSTOPPROC=a\n");
    QTest::newRow("already with BOM and comment")
        << QByteArray("\xEF\xBB\xBF# mine\n[RESTART]\nCOMMAND=\"echo a; echo b\"\n"
                      "[PREPARE1]\nSTOPPROC=a\n");
}

void TestKelpack::scrambledManifestReadsBack()
{
    QFETCH(QByteArray, plain);
    INSIDE_SANDBOX_REQUIRED();
    fixture::writeFile(dir + "/plain.ini", plain);
    QCOMPARE(kelpack({"scramble", dir + "/plain.ini", dir + "/update.ini"}), 0);
    QVERIFY(fixture::readFile(dir + "/update.ini") != plain);
    GenerateConfigInfo reader;
    QVERIFY(reader.readIni(dir + "/update.ini"));
    QCOMPARE(reader.getReStartInfo().find("COMMAND")->second.toString(), QString("echo a; echo b"));
    QCOMPARE(reader.getPrepareInfo()[0].find("STOPPROC")->second.toString(), QString("a"));
    QCOMPARE(kelpack({"unscramble", dir + "/update.ini", dir + "/back.ini"}), 0);
    QVERIFY(fixture::readFile(dir + "/back.ini").endsWith(plain.mid(plain.indexOf('['))));
}

void TestKelpack::crcRenderings()
{
    QByteArray payload;
    for (int i = 0; fixture::crcText(payload).size() == 8 ||
                    !fixture::crcText(payload).contains(QRegularExpression("[A-F]"));
         ++i)
        payload = "payload " + QByteArray::number(i);
    fixture::writeFile(dir + "/p.bin", payload);
    QByteArray out;
    QCOMPARE(kelpack({"crc", dir + "/p.bin"}, &out), 0);
    const QString upper = fixture::crcText(payload);
    QCOMPARE(QString::fromUtf8(out), QString("%1 %2 %3 %4\n")
                                         .arg(upper, upper.toLower())
                                         .arg(payload.size())
                                         .arg(dir + "/p.bin"));
}

void TestKelpack::refusals_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("status");
    QTest::newRow("no command") << QStringList() << 2;
    QTest::newRow("unknown command") << QStringList{"explode"} << 2;
    QTest::newRow("missing input") << QStringList{"scramble", "/nonexistent", "/dev/null"} << 1;
    QTest::newRow("not scrambled") << QStringList{"unscramble", "/etc/hostname", "/dev/null"} << 1;
    QTest::newRow("unreadable file for crc") << QStringList{"crc", "/nonexistent"} << 1;
}

void TestKelpack::refusals()
{
    QFETCH(QStringList, args);
    QFETCH(int, status);
    QCOMPARE(kelpack(args), status);
}

// In a sandbox: the reader opens manifests through a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestKelpack)
#include "tst_kelpack.moc"
