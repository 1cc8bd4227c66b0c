#include "def.h"
#include "fixture.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QtTest>

// The text table: the built-in Chinese texts with a language file layered over them.
class TestMultilingual : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { dir = sandbox::makeScratchDir("lan"); }
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void builtInTable();
    void layering_data();
    void layering();

private:
    QString dir;
};

void TestMultilingual::builtInTable()
{
    MultilingualManager* texts = MultilingualManager::GetInstance();
    QVERIFY(texts->loadMultilingualFile(dir + "/none.lan", kel::kDefaultLanguageFile));
    for (int id = 1000; id <= 1018; ++id)
        QVERIFY2(!texts->getMultilingualValue(id).isEmpty(), qPrintable(QString::number(id)));
    for (int id = 2000; id <= 2223; ++id)
        QVERIFY2(!texts->getMultilingualValue(id).isEmpty(), qPrintable(QString::number(id)));
    QCOMPARE(texts->getMultilingualValue(1019), QString());
    QCOMPARE(texts->getMultilingualValue(2055), QString::fromUtf8("[失败]\n"));
    QCOMPARE(texts->getMultilingualValue(2031),
             QString::fromUtf8("运行环境:KEL中已升级的%文件不存在，升级失败，请检查后重试！"));
    // The file holds backslash-n pairs; the reader turns them into line ends.
    QCOMPARE(texts->getMultilingualValue(2157).count('\n'), 4);
    QCOMPARE(texts->getMultilingualValue(2222), QString::fromUtf8("写入文件%1失败！"));
    QFile table(kel::kDefaultLanguageFile);
    QVERIFY(table.open(QIODevice::ReadOnly));
    const QByteArray bytes = table.readAll();
    QVERIFY(bytes.contains("\r\n"));
    // The updater's 243 texts and the gate's 15.
    QCOMPARE(bytes.count("\r\n["), 258);
}

void TestMultilingual::layering_data()
{
    QTest::addColumn<QByteArray>("file"); // "-" for no file
    QTest::addColumn<bool>("withDefault");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("text1000");
    QTest::addColumn<QString>("text1001");
    QTest::addColumn<QString>("text0");
    QTest::newRow("one id over the built-in")
        << QByteArray("[1000]\nstring=Warning\n") << true << true << "Warning"
        << "提示"
        << "";
    QTest::newRow("non-numeric group lands on 0")
        << QByteArray("[abc]\nstring=zero\n") << true << true << "警告"
        << "提示"
        << "zero";
    QTest::newRow("garbage file keeps the built-in")
        << QByteArray("\xff\xfe\x00\x01 [[[ = ]]") << true << true << "警告"
        << "提示"
        << "";
    QTest::newRow("file alone") << QByteArray("[1001]\nstring=Hint\n") << false << true << ""
                                << "Hint"
                                << "";
    QTest::newRow("neither file") << QByteArray("-") << false << false << ""
                                  << ""
                                  << "";
}

void TestMultilingual::layering()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, withDefault);
    QFETCH(bool, result);
    QFETCH(QString, text1000);
    QFETCH(QString, text1001);
    QFETCH(QString, text0);
    const QString path = dir + "/0001.lan";
    QFile::remove(path);
    if (file != "-")
        fixture::writeFile(path, file);
    MultilingualManager* texts = MultilingualManager::GetInstance();
    QCOMPARE(texts->loadMultilingualFile(path, withDefault ? kel::kDefaultLanguageFile : ""),
             result);
    QCOMPARE(texts->getMultilingualValue(1000), text1000);
    QCOMPARE(texts->getMultilingualValue(1001), text1001);
    QCOMPARE(texts->getMultilingualValue(0), text0);
}

QTEST_GUILESS_MAIN(TestMultilingual)
#include "tst_multilingual_management.moc"
