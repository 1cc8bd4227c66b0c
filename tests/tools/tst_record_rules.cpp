#include "record_rules.h"

#include <QtTest>

// One record at a time against the table: the finding a mistake gets, and whether the plan still
// applies the record.
class TestRecordRules : public QObject
{
    Q_OBJECT

private slots:
    void judge_data();
    void judge();
    void placeholders();
};

void TestRecordRules::judge_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("values");   // name=value|name=value, keys and the walker's facts
    QTest::addColumn<QString>("findings"); // "error KEY: fragment" or "warning KEY: ...", "|"
    QTest::addColumn<bool>("applied");

    const QString file = "SRCPATH=./a.bin|DESTPATH=/usr/a.bin|mode=0|found=1|srcName=a.bin|";
    QTest::newRow("correct copy") << int(RecordRules::Copy)
                                  << file + "CRC32=1A2B|actualCrc=1A2B|SIZE=4|actualSize=4"
                                  << "" << true;
    QTest::newRow("mode 3 is skipped") << int(RecordRules::Copy) << "SRCPATH=./a|DESTPATH=/a|mode=3"
                                       << "error MODE: 3 is no mode" << false;
    QTest::newRow("negative delete mode") << int(RecordRules::Delete) << "SRCPATH=/a|mode=-1"
                                          << "error MODE: -1 is no mode" << false;
    QTest::newRow("no source") << int(RecordRules::Copy) << "DESTPATH=/a|mode=0"
                               << "error SRCPATH: is missing or empty" << true;
    QTest::newRow("missing source, a near name")
        << int(RecordRules::Copy)
        << "SRCPATH=./a.bni|DESTPATH=/a|mode=0|kind=file|looked=system/a.bni|near=./a.bin"
        << "error SRCPATH: ./a.bni is not a file of the package (looked for system/a.bni)" << true;
    QTest::newRow("missing folder, nothing near")
        << int(RecordRules::Copy)
        << "SRCPATH=./x|DESTPATH=/a|mode=2|kind=folder|looked=system/x|folder=system"
        << "error SRCPATH: ./x is not a folder" << true;
    QTest::newRow("source outside the signed folders: already reported")
        << int(RecordRules::Copy) << "SRCPATH=../x|DESTPATH=/a|mode=0|outside=1|unusable=1"
        << "" << true;
    QTest::newRow("relative destination")
        << int(RecordRules::Copy) << QString(file).replace("DESTPATH=/usr", "DESTPATH=usr")
        << "error DESTPATH: usr/a.bin is relative" << false;
    QTest::newRow("no destination") << int(RecordRules::Copy) << "SRCPATH=./a.bin|mode=0|found=1"
                                    << "error DESTPATH: is missing or empty" << false;
    QTest::newRow("file copy into a folder name")
        << int(RecordRules::Copy) << "SRCPATH=./a.bin|DESTPATH=/usr/|mode=0|found=1"
        << "error DESTPATH: ends with \"/\"" << false;
    QTest::newRow("folder copy into a folder name")
        << int(RecordRules::Copy) << "SRCPATH=./d|DESTPATH=/usr/|mode=1|found=1"
        << "" << true;
    QTest::newRow("second record to one destination")
        << int(RecordRules::Copy) << file + "CRC32=AUTO|writtenBy=COPYFILE1"
        << "error DESTPATH: /usr/a.bin is also written by [COPYFILE1]" << false;
    QTest::newRow("empty CRC") << int(RecordRules::Copy) << file
                               << "warning CRC32: is empty: the file is copied without any check"
                               << true;
    QTest::newRow("CRC of other bytes, size out of date")
        << int(RecordRules::Copy) << file + "CRC32=1A2B|actualCrc=FFFF|SIZE=9|actualSize=4"
        << "error CRC32: does not match the file: the panel refuses the copy|"
           "warning SIZE: does not match the file"
        << true;
    QTest::newRow("CRC with a leading zero")
        << int(RecordRules::Copy) << file + "CRC32=0A2B|actualCrc=A2B"
        << "error CRC32: does not match the file (the program never matches a leading zero)"
        << true;
    QTest::newRow("CRC of an unreadable source is not judged")
        << int(RecordRules::Copy) << file + "CRC32=1A2B|unusable=1"
        << "" << true;
    QTest::newRow("relative delete")
        << int(RecordRules::Delete) << "SRCPATH=usr/a|mode=0"
        << "error SRCPATH: usr/a is relative: the program deletes it inside the package folder"
        << false;
    QTest::newRow("delete of nothing") << int(RecordRules::Delete) << "mode=0"
                                       << "error SRCPATH: is missing or empty" << false;
    QTest::newRow("grant of nothing") << int(RecordRules::Grant) << ""
                                      << "error SRCPATH: is missing or empty" << false;
    QTest::newRow("grant of a name with a blank")
        << int(RecordRules::Grant) << "SRCPATH=/usr/my tool"
        << "error SRCPATH: /usr/my tool reaches the shell unquoted" << false;
    QTest::newRow("relative grant") << int(RecordRules::Grant) << "SRCPATH=bin/tool"
                                    << "error SRCPATH: bin/tool is relative" << false;
    QTest::newRow("long process name")
        << int(RecordRules::StopProc)
        << "STOPPROC=plc_gateway_daemon|length=18|shown=15|cut=plc_gateway_dae"
        << "error STOPPROC: \"plc_gateway_daemon\" has 18 characters, but the process list shows "
           "at most 15"
        << true;
    QTest::newRow("process name that splits, said once")
        << int(RecordRules::StopProc) << "STOPPROC=a;reboot long name|length=20|cut=x"
        << "error STOPPROC: \"a;reboot long name\" reaches the shell unquoted" << false;
    QTest::newRow("runtime record of three mistakes")
        << int(RecordRules::RuntimeRecord) << "des_path=usr/vorn_app|src_path=./bin"
        << "error des_path: \"usr/vorn_app\" must be an absolute folder ending with \"/\"|"
           "error src_path: \"./bin\" must end with \"/\"|"
           "error file_name: is missing or empty"
        << true;
    QTest::newRow("delayed copy of a named file")
        << int(RecordRules::RuntimeFile) << "file_name=a|delaycopy_file=a|found=1"
        << "error delaycopy_file: works only on a file_name=* record" << true;
    QTest::newRow("named runtime file missing")
        << int(RecordRules::RuntimeFile) << "file_name=a|src_path=./bin/|inPackage=bin/"
        << "error file_name: ./bin/a is not a file of vorn_app/" << false;
    QTest::newRow("runtime file in a folder nothing makes")
        << int(RecordRules::RuntimeFile)
        << "file_name=lib/a.so|des_path=/usr/vorn_app/|found=1|folderMissing=/usr/vorn_app/lib"
        << "error file_name: names a file in a folder" << true;
    QTest::newRow("runtime folder missing") << int(RecordRules::RuntimeFolder) << "src_path=./x/"
                                            << "error src_path: ./x/ is not a folder" << false;
    QTest::newRow("runtime grant that splits")
        << int(RecordRules::RuntimeGrant) << "file_name=a b"
        << "error file_name: \"a b\" reaches the shell unquoted" << false;
    QTest::newRow("project record without a name")
        << int(RecordRules::ProjectFile) << "resolved=/usr/p|CRC=auto"
        << "error NAME: is missing or empty" << false;
    QTest::newRow("project file in a folder nothing makes")
        << int(RecordRules::ProjectPlace)
        << "NAME=s/a.scr|DESPATH=/p|folderMissing=/p/s|baseName=a.scr|subfolder=s"
        << "error NAME: names a file in a folder" << true;
    QTest::newRow("project file missing")
        << int(RecordRules::ProjectFile) << "NAME=x.scr|resolved=/usr/p|CRC=auto"
        << "error NAME: x.scr is not a file of project/" << false;
    QTest::newRow("project variable misspelled")
        << int(RecordRules::ProjectFile)
        << "NAME=a|found=1|CRC=auto|variable=$VORN_WORKDIR|resolved=$VORN_WORKDIR/p"
        << "error DESPATH: $VORN_WORKDIR is no variable the updater sets" << false;
    QTest::newRow("project path relative")
        << int(RecordRules::ProjectFile) << "NAME=a|found=1|CRC=auto|resolved=project"
        << "error DESPATH: \"project\" is relative" << false;
    QTest::newRow("project CRC and size of other bytes")
        << int(RecordRules::ProjectFile)
        << "NAME=a|found=1|resolved=/p|CRC=1a|actualCrc=2b|SIZE=1|actualSize=2"
        << "error CRC: does not match the file|error SIZE: does not match the file" << true;
    QTest::newRow("project file twice")
        << int(RecordRules::ProjectPlace) << "NAME=a|dest=/p/a|writtenBy=FILE1"
        << "error NAME: /p/a is also written by [FILE1]" << true;
}

void TestRecordRules::judge()
{
    QFETCH(int, kind);
    QFETCH(QString, values);
    QFETCH(QString, findings);
    QFETCH(bool, applied);
    ManifestRecord record("SECTION1");
    for (const QString& pair : values.split('|', Qt::SkipEmptyParts))
        record.set(pair.section('=', 0, 0), pair.section('=', 1));
    QStringList reported;
    const bool applies = RecordRules::check(
        RecordRules::Kind(kind), record,
        [&](bool error, const QString& key, const QString& problem, const QString&, const QString&,
            const QString&) {
            reported << QString("%1 %2: %3").arg(error ? "error" : "warning", key, problem);
        });
    const QStringList expected = findings.split('|', Qt::SkipEmptyParts);
    QCOMPARE(reported.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i)
        QVERIFY2(reported[i].startsWith(expected[i]), qPrintable(reported.join('\n')));
    QCOMPARE(applies, applied);
}

void TestRecordRules::placeholders()
{
    // The fix shows the real CRC against the written one, and names the key it belongs to.
    ManifestRecord record("COPYFILE1");
    for (const auto& [name, value] : {std::pair<const char*, const char*>{"SRCPATH", "./a.bin"},
                                      {"DESTPATH", "/a.bin"},
                                      {"mode", "0"},
                                      {"found", "1"},
                                      {"CRC32", "1A2B"},
                                      {"actualCrc", "FFFF"}})
        record.set(name, value);
    QStringList fixes;
    RecordRules::check(
        RecordRules::Copy, record,
        [&](bool, const QString&, const QString&, const QString& fix, const QString& expected,
            const QString& actual) { fixes << fix + " " + expected + "/" + actual; });
    QCOMPARE(fixes, QStringList{"CRC32=auto 1A2B/FFFF"});
    QCOMPARE(record.fill("{DESTPATH}: {nothing}{mode}"), QString("/a.bin: 0"));
}

QTEST_GUILESS_MAIN(TestRecordRules)
#include "tst_record_rules.moc"
