#include "def.h"
#include "fixture.h"
#include "generateconfiginfo.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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
    void buildRefusesCutValues();
    void buildWritesWhatReadsBack();
    void verifyFindings_data();
    void verifyFindings();

private:
    int kelpack(const QStringList& args, QByteArray* out = nullptr);
    // A copy of the sample package tree with one text replaced in one of its files.
    QString sampleTree(const QString& file = {}, const QString& from = {}, const QString& to = {});
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

QString TestKelpack::sampleTree(const QString& file, const QString& from, const QString& to)
{
    const QString tree = dir + "/tree";
    QDir(tree).removeRecursively();
    QProcess::execute("cp",
                      {"-R", QStringLiteral(KEL_SOURCE_DIR) + "/examples/sample/package", tree});
    if (!file.isEmpty()) {
        QString text = QString::fromUtf8(fixture::readFile(tree + "/" + file));
        if (!text.contains(from))
            qWarning("sample text %s not found in %s", qPrintable(from), qPrintable(file));
        fixture::writeFile(tree + "/" + file, text.replace(from, to).toUtf8());
    }
    return tree;
}

void TestKelpack::buildRefusesCutValues()
{
    const QString tree = sampleTree("system/update.ini", "PRIORITY=2", "PRIORITY=2; first");
    QCOMPARE(kelpack({"build", tree, dir + "/out", "--program", KEL_PROGRAM_PATH}), 1);
    QVERIFY(!QFileInfo::exists(dir + "/out/update/update.ini"));
}

void TestKelpack::buildWritesWhatReadsBack()
{
    INSIDE_SANDBOX_REQUIRED();
    const QString tree = sampleTree("update.ini", "REBOOT=0", "REBOOT=0\nNOTE=\"  a, b; c  \"");
    QCOMPARE(kelpack({"build", tree, dir + "/out", "--program", KEL_PROGRAM_PATH}), 0);
    const QString package = dir + "/out/update";
    GenerateConfigInfo reader;
    QVERIFY(reader.readIni(package + "/update.ini"));
    const VariantTable restart = reader.getReStartInfo();
    QCOMPARE(restart.find("NOTE")->second.toString(), QString("  a, b; c  "));
    QCOMPARE(restart.find("COMMAND")->second.toString(),
             QString("echo sample command ran > /usr/vorn_app/config/command.out"));
    const copyFileInfo_s first = *reader.getCopyFileSet().begin();
    QCOMPARE(first.crc32, fixture::crcText(fixture::readFile(tree + "/files/panel.conf")));
    QCOMPARE(first.size, quint32(QFileInfo(tree + "/files/panel.conf").size()));
    // The project wants lower-case checksums, the md5 list checks out, the program is in place.
    const QString projectCrc = fixture::crcText(fixture::readFile(tree + "/project/main.pro"));
    QVERIFY(fixture::readFile(package + "/project/project.ini")
                .contains("CRC=" + projectCrc.toLower().toUtf8() + "\n"));
    QProcess md5;
    md5.setWorkingDirectory(package + "/vorn_app");
    md5.start("md5sum", {"-c", "version.1.2.0"});
    QVERIFY(md5.waitForFinished());
    QCOMPARE(md5.exitCode(), 0);
    QVERIFY(QFileInfo(package + "/kelloadui.bin").isExecutable());
    QCOMPARE(kelpack({"verify", package}), 0);
}

void TestKelpack::verifyFindings_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QString>("finding");
    QTest::addColumn<bool>("raw");   // edit the built, scrambled manifest instead of the tree
    QTest::addColumn<int>("status"); // 1 for errors, 0 for warnings only
    QTest::newRow("leading zero crc") << "update.ini"
                                      << "CRC32=auto\nMODE=0\nAUTHORITY=1\nPRIORITY=1"
                                      << "CRC32=0ABC\nMODE=0\nAUTHORITY=1\nPRIORITY=1"
                                      << "leading zero" << false << 1;
    QTest::newRow("unknown mode") << "update.ini"
                                  << "MODE=0\nAUTHORITY=1\nPRIORITY=1"
                                  << "MODE=7\nAUTHORITY=1\nPRIORITY=1"
                                  << "MODE 7 does nothing" << false << 1;
    QTest::newRow("count below sections") << "update.ini"
                                          << "COPYFILENUM=2"
                                          << "COPYFILENUM=1"
                                          << "is ignored" << false << 0;
    QTest::newRow("count above sections") << "update.ini"
                                          << "DELFILENUM=1"
                                          << "DELFILENUM=2"
                                          << "is missing" << false << 1;
    QTest::newRow("unquoted semicolon") << "update.ini"
                                        << "COMMAND=echo sample command ran > "
                                           "/usr/vorn_app/config/command.out"
                                        << "COMMAND=echo a; echo b"
                                        << "cut at" << true << 1;
    QTest::newRow("exec path with a blank") << "update.ini"
                                            << "SRCPATH=/usr/vorn_app/kellogger"
                                            << "SRCPATH=/usr/vorn_app/kel logger"
                                            << "shell" << false << 1;
    QTest::newRow("relative destination") << "kelinfo/update.ini"
                                          << "DESTPATH=/usr/vorn_app/kelinfo/panel.id"
                                          << "DESTPATH=kelinfo/panel.id"
                                          << "not absolute" << false << 1;
    QTest::newRow("pattern without file") << "vorn_app/update.ini"
                                          << "delaycopy_file=libvornui+"
                                          << "delaycopy_file=libvornui+,libgone.so"
                                          << "matches no file" << false << 1;
    QTest::newRow("upper-case project crc") << "project/project.ini"
                                            << "CRC=auto"
                                            << "CRC=ABCDEF"
                                            << "lower case" << false << 1;
}

void TestKelpack::verifyFindings()
{
    QFETCH(QString, file);
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QString, finding);
    QFETCH(bool, raw);
    QFETCH(int, status);
    INSIDE_SANDBOX_REQUIRED();
    const QString tree = raw ? sampleTree() : sampleTree(file, from, to);
    QCOMPARE(kelpack({"build", tree, dir + "/out", "--program", KEL_PROGRAM_PATH}), 0);
    if (raw) {
        const QString manifest = dir + "/out/update/" + file;
        QCOMPARE(kelpack({"unscramble", manifest, dir + "/plain.ini"}), 0);
        QString text = QString::fromUtf8(fixture::readFile(dir + "/plain.ini"));
        QVERIFY(text.contains(from));
        fixture::writeFile(dir + "/plain.ini", text.replace(from, to).toUtf8());
        QCOMPARE(kelpack({"scramble", dir + "/plain.ini", manifest}), 0);
    }
    QByteArray out;
    QCOMPARE(kelpack({"verify", dir + "/out/update", "--json"}, &out), status);
    const QJsonObject report = QJsonDocument::fromJson(out).object();
    QCOMPARE(report.value("ok").toBool(), status == 0);
    bool found = false;
    for (const QJsonValue& value : report.value("findings").toArray())
        found = found || (value.toObject().value("file").toString() == file &&
                          value.toObject().value("message").toString().contains(finding));
    QVERIFY2(found, out.constData());
}

// In a sandbox: the reader opens manifests through a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestKelpack)
#include "tst_kelpack.moc"
