#include "def.h"
#include "fixture.h"
#include "generateconfiginfo.h"
#include "multilingual_management.h"
#include "sandbox.h"

#include <QDir>
#include <QDirIterator>
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
    void buildNeverLosesFiles_data();
    void buildNeverLosesFiles();
    void buildWritesWhatReadsBack();
    void verifyFindings_data();
    void verifyFindings();

private:
    int kelpack(const QStringList& args, QByteArray* out = nullptr, QByteArray* err = nullptr,
                const QString& workDir = QString());
    // A copy of the sample package tree with one text replaced in one of its files.
    QString sampleTree(const QString& file = {}, const QString& from = {}, const QString& to = {});
    QString dir;
};

void TestKelpack::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    dir = sandbox::makeScratchDir("kelpack");
}

int TestKelpack::kelpack(const QStringList& args, QByteArray* out, QByteArray* err,
                         const QString& workDir)
{
    QProcess tool;
    tool.setWorkingDirectory(workDir);
    tool.start(QStringLiteral(KEL_BINARY_DIR) + "/tools/kelpack", args);
    tool.waitForFinished();
    if (out)
        *out = tool.readAllStandardOutput();
    if (err)
        *err = tool.readAllStandardError();
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
    QTest::newRow("unknown option") << QStringList{"build", "a", "b", "--forse"} << 2;
    QTest::newRow("option without value") << QStringList{"build", "a", "b", "--program"} << 2;
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
    QDir(dir + "/out").removeRecursively(); // the stick of the previous case
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

namespace {
// Every file under root with its bytes, by path relative to root.
QMap<QString, QByteArray> filesUnder(const QString& root)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(path.mid(root.size() + 1), fixture::readFile(path));
    }
    return files;
}
} // namespace

void TestKelpack::buildNeverLosesFiles_data()
{
    QTest::addColumn<QString>("setup"); // shell lines run in the scratch folder first
    QTest::addColumn<QString>("workDir");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("messages");
    QTest::addColumn<QStringList>("gone"); // files expected to be replaced by the build

    const QString notes = "mkdir -p out/old && echo notes > out/notes.txt && echo x > out/old/x";
    QTest::newRow("non-empty folder")
        << notes << "." << QStringList{"tree", "out"} << 1
        << QStringList{"out: the folder is not empty", "give --force"} << QStringList();
    QTest::newRow("the tree itself from inside it")
        << ""
        << "tree" << QStringList{".", "."} << 1
        << QStringList{"tree: the output folder is the package tree or lies inside it"}
        << QStringList();
    QTest::newRow("a folder inside the tree")
        << ""
        << "." << QStringList{"tree", "tree/files/stick"} << 1
        << QStringList{"is the package tree or lies inside it"} << QStringList();
    QTest::newRow("a folder holding the tree")
        << ""
        << "tree" << QStringList{".", ".."} << 1
        << QStringList{"the output folder holds the package tree"} << QStringList();
    QTest::newRow("link out of the tree")
        << "ln -s /etc/passwd tree/files/pw"
        << "." << QStringList{"tree", "out"} << 1
        << QStringList{"tree/files/pw: a link to /etc/passwd outside the package tree"}
        << QStringList();
    QTest::newRow("dangling link")
        << "ln -s gone.conf tree/files/pw"
        << "." << QStringList{"tree", "out"} << 1
        << QStringList{"tree/files/pw: a link to %1/tree/files/gone.conf, which does not exist"}
        << QStringList();
    QTest::newRow("junk of other systems")
        << "touch tree/.DS_Store tree/files/._panel.conf tree/system/Thumbs.db "
           "tree/DESKTOP.INI && mkdir -p tree/__MACOSX/files && touch tree/__MACOSX/files/x"
        << "." << QStringList{"tree", "out"} << 0
        << QStringList{"kelpack: warning: " + QString("%1/tree/.DS_Store: left out"),
                       "tree/files/._panel.conf: left out", "tree/system/Thumbs.db: left out",
                       "tree/DESKTOP.INI: left out", "tree/__MACOSX: left out"}
        << QStringList();
    QTest::newRow("forced over an old stick")
        << notes + " && mkdir -p out/update out/qws && echo a > out/update/old && echo b > "
                   "out/qws/qwsserver"
        << "." << QStringList{"tree", "out", "--force"} << 0 << QStringList()
        << QStringList{"out/update/old", "out/qws/qwsserver"};
}

void TestKelpack::buildNeverLosesFiles()
{
    QFETCH(QString, setup);
    QFETCH(QString, workDir);
    QFETCH(QStringList, args);
    QFETCH(int, status);
    QFETCH(QStringList, messages);
    QFETCH(QStringList, gone);
    const QString scratch = dir + "/safe";
    QDir(scratch).removeRecursively();
    QDir().mkpath(scratch);
    QVERIFY(
        QProcess::execute("cp", {"-R", QStringLiteral(KEL_SOURCE_DIR) + "/examples/sample/package",
                                 scratch + "/tree"}) == 0);
    if (!setup.isEmpty())
        QCOMPARE(QProcess::execute("sh", {"-c", "cd " + scratch + " && " + setup}), 0);
    const QMap<QString, QByteArray> before = filesUnder(scratch);

    QByteArray err;
    QCOMPARE(kelpack(QStringList{"build"} + args + QStringList{"--program", KEL_PROGRAM_PATH},
                     nullptr, &err, scratch + "/" + workDir),
             status);
    for (const QString& message : messages)
        QVERIFY2(err.contains(QString(message).replace("%1", scratch).toUtf8()), err.constData());
    const QMap<QString, QByteArray> after = filesUnder(scratch);
    for (auto file = before.begin(); file != before.end(); ++file) {
        if (!gone.contains(file.key()))
            QVERIFY2(after.value(file.key()) == file.value(), qPrintable(file.key()));
        else
            QVERIFY2(!after.contains(file.key()), qPrintable(file.key()));
    }
    // No staging folder is left behind, and a refused build writes nothing at all.
    for (const QString& path : after.keys())
        QVERIFY2(!path.contains(".kelpack"), qPrintable(path));
    if (status != 0)
        QCOMPARE(after.size(), before.size());
    else
        QVERIFY(!fixture::readFile(scratch + "/out/update/update.ini").isEmpty());
    const QRegularExpression junk(
        "(^|/)(\\.DS_Store|\\._[^/]*|__MACOSX|Thumbs\\.db|desktop\\.ini)(/|$)",
        QRegularExpression::CaseInsensitiveOption);
    for (const QString& path : after.keys())
        QVERIFY2(!path.startsWith("out/") || !junk.match(path).hasMatch(), qPrintable(path));
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
