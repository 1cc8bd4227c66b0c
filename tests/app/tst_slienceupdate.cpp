#include "fixture.h"
#include "slienceupdate.h"

#include <QtTest>

// Command-line options: substring tests, values in the same argument, the log location.
class TestQuietUpdateParam : public QObject
{
    Q_OBJECT

private slots:
    void parse_data();
    void parse();
};

void TestQuietUpdateParam::parse_data()
{
    QTest::addColumn<QStringList>("args");
    // quiet, R, Nr, S, pathGiven, lanGiven | path | lanId | log path
    QTest::addColumn<QString>("expected");
    QTest::newRow("display-server option only") << QStringList{"-qws"} << "000000|||";
    QTest::newRow("-nr is not -r") << QStringList{"-nr"} << "101000|||../update.log";
    QTest::newRow("-r and -s") << QStringList{"-r", "-s"} << "110100|||../update.log";
    QTest::newRow("path in the same argument")
        << QStringList{"-p /媒体/日志.log"} << "100010|/媒体/日志.log||/媒体/日志.log";
    QTest::newRow("path in the next argument is not taken")
        << QStringList{"-p", "/x.log"} << "100000|||../update.log";
    QTest::newRow("a directory named with -p matches")
        << QStringList{"/media/usb-pack"} << "100000|||../update.log";
    QTest::newRow("language alone is not quiet") << QStringList{"-lanID 0001"} << "000001||0001|";
    QTest::newRow("one argument, several options") << QStringList{"-s-r -p"} << "110110|-p||-p";
    QTest::newRow("empty and spaced arguments")
        << QStringList{"", "a b c", "\xe4\xb8\xad"} << "000000|||";
}

void TestQuietUpdateParam::parse()
{
    QFETCH(QStringList, args);
    QFETCH(QString, expected);
    QuietUpdateParam param = fixture::parseArgs(args);
    QCOMPARE(QString("%1%2%3%4%5%6|%7|%8|%9")
                 .arg(param.quiet)
                 .arg(param.optR)
                 .arg(param.optNr)
                 .arg(param.optS)
                 .arg(param.pathGiven)
                 .arg(param.lanGiven)
                 .arg(param.path, param.lanId, param.getUpdateFilepath()),
             expected);
    QStringList kept = args.filter(QRegularExpression("^((?!-lanID|-qws).)*$"));
    QCOMPARE(param.otherArgs, kept);
    param.pathMode = 0;
    if (param.quiet && !param.pathGiven)
        QCOMPARE(param.getUpdateFilepath(), QString("./update.log"));
}

QTEST_GUILESS_MAIN(TestQuietUpdateParam)
#include "tst_slienceupdate.moc"
