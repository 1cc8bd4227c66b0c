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
    QTest::addColumn<QString>("flags"); // quiet,R,Nr,S,pathGiven,lanGiven
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("lanId");
    QTest::addColumn<QStringList>("otherArgs");
    QTest::addColumn<QString>("logPath");

    QTest::newRow("none") << QStringList() << "000000"
                          << ""
                          << "" << QStringList() << "";
    QTest::newRow("display-server option only") << QStringList{"-qws"} << "000000"
                                                << ""
                                                << "" << QStringList() << "";
    QTest::newRow("-nr is not -r") << QStringList{"-nr"} << "101000"
                                   << ""
                                   << "" << QStringList{"-nr"} << "../update.log";
    QTest::newRow("-r and -s stay in otherArgs")
        << QStringList{"-r", "-s"} << "110100"
        << ""
        << "" << QStringList{"-r", "-s"} << "../update.log";
    QTest::newRow("path in the same argument")
        << QStringList{"-p /媒体/日志.log"} << "100010"
        << "/媒体/日志.log"
        << "" << QStringList{"-p /媒体/日志.log"} << "/媒体/日志.log";
    QTest::newRow("path in the next argument is not taken")
        << QStringList{"-p", "/x.log"} << "100000"
        << ""
        << "" << QStringList{"-p", "/x.log"} << "../update.log";
    QTest::newRow("a directory named with -p matches")
        << QStringList{"/media/usb-pack"} << "100000"
        << ""
        << "" << QStringList{"/media/usb-pack"} << "../update.log";
    QTest::newRow("language alone is not quiet") << QStringList{"-lanID 0001"} << "000001"
                                                 << ""
                                                 << "0001" << QStringList() << "";
    QTest::newRow("language without value") << QStringList{"-lanID"} << "000000"
                                            << ""
                                            << "" << QStringList() << "";
    QTest::newRow("one argument, several options") << QStringList{"-s-r -p"} << "110110"
                                                   << "-p"
                                                   << "" << QStringList{"-s-r -p"} << "-p";
    QTest::newRow("empty and spaced arguments")
        << QStringList{"", "a b c", "\xe4\xb8\xad"} << "000000"
        << ""
        << "" << QStringList{"", "a b c", "中"} << "";
}

void TestQuietUpdateParam::parse()
{
    QFETCH(QStringList, args);
    QFETCH(QString, flags);
    QFETCH(QString, path);
    QFETCH(QString, lanId);
    QFETCH(QStringList, otherArgs);
    QFETCH(QString, logPath);
    QVector<QByteArray> bytes{"kelloadui.bin"};
    for (const QString& arg : args)
        bytes << arg.toUtf8();
    QVector<char*> argv;
    for (QByteArray& b : bytes)
        argv << b.data();
    QuietUpdateParam param;
    QVERIFY(!param.parseCmdParam(argv.size(), argv.data()));
    const QString actual = QString("%1%2%3%4%5%6")
                               .arg(param.quiet)
                               .arg(param.optR)
                               .arg(param.optNr)
                               .arg(param.optS)
                               .arg(param.pathGiven)
                               .arg(param.lanGiven);
    QCOMPARE(actual, flags);
    QCOMPARE(param.path, path);
    QCOMPARE(param.lanId, lanId);
    QCOMPARE(param.otherArgs, otherArgs);
    QCOMPARE(param.pathMode, 1);
    QCOMPARE(param.getUpdateFilepath(), logPath);
    param.pathMode = 0;
    if (param.quiet && !param.pathGiven)
        QCOMPARE(param.getUpdateFilepath(), QString("./update.log"));
}

QTEST_GUILESS_MAIN(TestQuietUpdateParam)
#include "tst_slienceupdate.moc"
