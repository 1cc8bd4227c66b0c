#include "def.h"
#include "fixture.h"
#include "qsettingsfactory.h"
#include "sandbox.h"

#include <QDir>
#include <QtTest>
#include <memory>

// Scrambled settings files: the byte transformation, the block loop and the plausibility check.
class TestQSettingsFactory : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { dir = sandbox::makeScratchDir("scramble"); }
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void everyByteRoundTrips();
    void blockBoundaries_data();
    void blockBoundaries();
    void refusedFiles_data();
    void refusedFiles();
    void opensChineseValues();

private:
    QString dir;
};

void TestQSettingsFactory::everyByteRoundTrips()
{
    QSet<int> images;
    for (int b = 0; b < 256; ++b) {
        const unsigned char scrambled =
            QSettingsFactory::scrambleByte(static_cast<unsigned char>(b));
        QCOMPARE(int(QSettingsFactory::unscrambleByte(scrambled)), b);
        images.insert(scrambled);
    }
    QCOMPARE(images.size(), 256);
    QVERIFY(QSettingsFactory::scrambleByte('#') != '#');
}

void TestQSettingsFactory::blockBoundaries_data()
{
    QTest::addColumn<int>("size");
    for (int size : {4, 254, 255, 256, 510, 511, 4096 + 3})
        QTest::newRow(qPrintable(QString::number(size))) << size;
}

void TestQSettingsFactory::blockBoundaries()
{
    QFETCH(int, size);
    QByteArray plain("\xEF\xBB\xBF#");
    for (int i = 0; plain.size() < size; ++i)
        plain += char(i * 7 + 1);
    fixture::writeFile(dir + "/plain", plain);
    QVERIFY(QSettingsFactory::encryptFile(dir + "/plain", dir + "/scrambled"));
    const QByteArray scrambled = fixture::readFile(dir + "/scrambled");
    QCOMPARE(scrambled.size(), plain.size());
    QCOMPARE(int(static_cast<unsigned char>(scrambled[3])),
             int(QSettingsFactory::scrambleByte('#')));
    QVERIFY(QSettingsFactory::decryptFile(dir + "/scrambled", dir + "/back", 0));
    QCOMPARE(fixture::readFile(dir + "/back"), plain);
}

void TestQSettingsFactory::refusedFiles_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("scramble");
    QTest::newRow("plain INI") << QByteArray("\xEF\xBB\xBF# plain\n[A]\nb=1\n") << false;
    QTest::newRow("three bytes") << QByteArray("\xEF\xBB\xBF") << true;
    QTest::newRow("empty") << QByteArray() << true;
    QTest::newRow("no comment line") << QByteArray("\xEF\xBB\xBF[A]\nb=1\n") << true;
}

void TestQSettingsFactory::refusedFiles()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, scramble);
    fixture::writeFile(dir + "/in", content);
    if (scramble)
        QVERIFY(QSettingsFactory::encryptFile(dir + "/in", dir + "/in.s"));
    else
        QFile::copy(dir + "/in", dir + "/in.s");
    QVERIFY(!QSettingsFactory::decryptFile(dir + "/in.s", dir + "/out", 0));
    std::unique_ptr<QSettings> settings(
        QSettingsFactory::createQSettings(dir + "/in.s", QSettings::IniFormat));
    QVERIFY(!settings);
    QFile::remove(dir + "/in.s");
}

void TestQSettingsFactory::opensChineseValues()
{
    INSIDE_SANDBOX_REQUIRED();
    fixture::writeScrambledIni(dir + "/update.ini",
                               "[PREPARE]\ntip=运行环境升级包\n[FILE1]\nfile_name=配方.csv\n");
    std::unique_ptr<QSettings> settings(
        QSettingsFactory::createQSettings(dir + "/update.ini", QSettings::IniFormat));
    QVERIFY(settings);
    QCOMPARE(settings->value("/PREPARE/tip").toString(), QString::fromUtf8("运行环境升级包"));
    QCOMPARE(settings->value("/FILE1/file_name").toString(), QString::fromUtf8("配方.csv"));
    // A second file through the same scratch path must not read back the first one.
    fixture::writeScrambledIni(dir + "/other.ini", "[PREPARE]\ntip=second\n");
    settings.reset(QSettingsFactory::createQSettings(dir + "/other.ini", QSettings::IniFormat));
    QCOMPARE(settings->value("/PREPARE/tip").toString(), QString("second"));
    QVERIFY(QFile::exists(kel::kDecryptFilePath));
}

// In a sandbox: opening uses a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestQSettingsFactory)
#include "tst_qsettingsfactory.moc"
