#include "fixture.h"
#include "qsettingsfactory.h"
#include "sandbox.h"

#include <QtTest>

// Scrambled settings files: the byte transformation, the block loop and the plausibility check.
class TestQSettingsFactory : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { dir = sandbox::makeScratchDir("scramble"); }
    void cleanupTestCase() { fixture::removeTree(dir); }
    void knownAnswer();
    void blockBoundaries_data();
    void blockBoundaries();

private:
    QString dir;
};

void TestQSettingsFactory::knownAnswer()
{
    // As the panel's own packaging tool scrambles it: each byte XOR 0x5A, rotated left by 5.
    const QByteArray plain("\xEF\xBB\xBF# KEL\n[A]\nb=1\n");
    const QByteArray scrambled(
        "\xb6\x3c\xbc\x2f\x4f\x22\xe3\xc2\x0a\x20\x63\xe0\x0a\x07\xec\x6d\x0a");
    fixture::writeFile(dir + "/plain", plain);
    QVERIFY(QSettingsFactory::encryptFile(dir + "/plain", dir + "/scrambled"));
    QCOMPARE(fixture::readFile(dir + "/scrambled"), scrambled);
    fixture::writeFile(dir + "/stick.ini", scrambled);
    QVERIFY(QSettingsFactory::decryptFile(dir + "/stick.ini", dir + "/back", 0));
    QCOMPARE(fixture::readFile(dir + "/back"), plain);
}

void TestQSettingsFactory::blockBoundaries_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<bool>("opens"); // the fourth unscrambled byte must be "#"
    for (int size : {4, 254, 255, 256, 510, 511, 4096 + 3}) {
        QByteArray plain("\xEF\xBB\xBF#");
        for (int i = 0; plain.size() < size; ++i)
            plain += char(i * 7 + 1);
        QTest::newRow(qPrintable(QString::number(size))) << plain << true;
    }
    QTest::newRow("three bytes") << QByteArray("\xEF\xBB\xBF") << false;
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("no comment line") << QByteArray("\xEF\xBB\xBF[A]\nb=1\n") << false;
}

void TestQSettingsFactory::blockBoundaries()
{
    QFETCH(QByteArray, plain);
    QFETCH(bool, opens);
    fixture::writeFile(dir + "/plain", plain);
    QFile::remove(dir + "/back");
    QVERIFY(QSettingsFactory::encryptFile(dir + "/plain", dir + "/scrambled"));
    QCOMPARE(fixture::readFile(dir + "/scrambled").size(), plain.size());
    QCOMPARE(QSettingsFactory::decryptFile(dir + "/scrambled", dir + "/back", 0), opens);
    if (opens)
        QCOMPARE(fixture::readFile(dir + "/back"), plain);
}

QTEST_GUILESS_MAIN(TestQSettingsFactory)
#include "tst_qsettingsfactory.moc"
