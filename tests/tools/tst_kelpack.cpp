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
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>
#include <QtTest>

// The package tool as integrators use it: what it writes is read back by the updater's reader,
// and what verify predicts for a tree is what the simulated panel does with the same tree.
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
    void buildNeverLosesFiles_data();
    void buildNeverLosesFiles();
    void buildWritesWhatReadsBack();
    void verifyPredicts_data() { mistakes(); }
    void verifyPredicts();
    void panelConfirms_data() { mistakes(); }
    void panelConfirms();
    void starterTreeUpdatesThePanel();
    void englishTextsAreComplete();
    void panelSpeaksEnglish_data();
    void panelSpeaksEnglish();

private:
    // One tree per mistake, the correct tree first: the tree's edits, the finding verify must
    // report, and what the simulated panel does with a stick of the same tree.
    void mistakes();
    int kelpack(const QStringList& args, QByteArray* out = nullptr, QByteArray* err = nullptr,
                const QString& workDir = QString());
    // The sample tree without its delete record (a correct tree that verify finds nothing in),
    // changed by edits: triples of file, text and replacement; an empty text writes the file.
    QString tree(const QStringList& edits = {});
    // Runs kelsim on stick, runs times on one panel, with simulator options and environment
    // entries; the last run's output.
    QString simulate(const QString& stick, int runs, const QStringList& simOptions = {},
                     const QStringList& environment = {});
    static QString section(const QString& out, const QString& name);
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

QString TestKelpack::tree(const QStringList& edits)
{
    const QString tree = dir + "/tree";
    QDir(tree).removeRecursively();
    QDir(dir + "/out").removeRecursively(); // the stick of the previous case
    QProcess::execute("cp",
                      {"-R", QStringLiteral(KEL_SOURCE_DIR) + "/examples/sample/package", tree});
    const QStringList all =
        QStringList{"update.ini",
                    "[DELFILE]\nDELFILENUM=1\n\n[DELFILE1]\nSRCPATH=/usr/vorn_app/config/"
                    "obsolete.conf\nMODE=0\nAUTHORITY=1\nPRIORITY=1\n\n",
                    ""} +
        edits;
    for (int i = 0; i + 2 < all.size(); i += 3) {
        const QString path = tree + "/" + all[i];
        if (all[i + 1].isEmpty()) {
            fixture::writeFile(path, all[i + 2].toUtf8());
            continue;
        }
        QString text = QString::fromUtf8(fixture::readFile(path));
        if (!text.contains(all[i + 1]))
            qWarning("tree text %s not found in %s", qPrintable(all[i + 1]), qPrintable(all[i]));
        fixture::writeFile(path, text.replace(all[i + 1], all[i + 2]).toUtf8());
    }
    return tree;
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
    QTest::newRow("init over files") << QStringList{"init", "/etc"} << 1;
    QTest::newRow("verify of nothing") << QStringList{"verify", "/nonexistent"} << 1;
}

void TestKelpack::refusals()
{
    QFETCH(QStringList, args);
    QFETCH(int, status);
    QCOMPARE(kelpack(args), status);
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
    QTest::newRow("a tree with errors")
        << "sed -i 's/UPPROJECT=true/UPPROJECT=no/' tree/update.ini"
        << "." << QStringList{"tree", "out"} << 1
        << QStringList{"update.ini:6: error: [UPDATE] UPPROJECT:", "nothing was written"}
        << QStringList();
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
    const QString source = tree(
        {"update.ini", "COMMAND=\"echo sample command ran > /usr/vorn_app/config/command.out\"",
         "COMMAND=\"  echo a, b; echo c  \""});
    QCOMPARE(kelpack({"build", source, dir + "/out", "--program", KEL_PROGRAM_PATH}), 0);
    const QString package = dir + "/out/update";
    GenerateConfigInfo reader;
    QVERIFY(reader.readIni(package + "/update.ini"));
    QCOMPARE(reader.getReStartInfo().find("COMMAND")->second.toString(),
             QString("  echo a, b; echo c  "));
    const copyFileInfo_s first = *reader.getCopyFileSet().begin();
    QCOMPARE(first.crc32, fixture::crcText(fixture::readFile(source + "/files/panel.conf")));
    QCOMPARE(first.size, quint32(QFileInfo(source + "/files/panel.conf").size()));
    // The project wants lower-case checksums, the md5 list checks out, the program is in place.
    const QString projectCrc = fixture::crcText(fixture::readFile(source + "/project/main.pro"));
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

void TestKelpack::mistakes()
{
    QTest::addColumn<QStringList>("edits");
    // The finding: severity, file, line, section and key, a phrase of the problem and of the fix.
    QTest::addColumn<QString>("severity");
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("line");
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("problem");
    QTest::addColumn<QString>("fix");
    QTest::addColumn<int>("status");
    // The panel: the report line of the last of runs, and a pattern its output holds ("!": lacks);
    // simulator options and environment for the run.
    QTest::addColumn<int>("runs");
    QTest::addColumn<QString>("report");
    QTest::addColumn<QString>("evidence");
    QTest::addColumn<QStringList>("simOptions");
    QTest::addColumn<QStringList>("environment");

    const QString ok = QString::fromUtf8("[成功]");
    const QString failed = QString::fromUtf8("[失败]");
    const QString command =
        "COMMAND=\"echo sample command ran > /usr/vorn_app/config/command.out\"";
    QTest::newRow("correct tree") << QStringList() << ""
                                  << "" << 0 << ""
                                  << ""
                                  << ""
                                  << "" << 0 << 1 << ok << "replaced /usr/vorn_app/project"
                                  << QStringList() << QStringList();
    QTest::newRow("runtime record that does not mirror /usr/vorn_app")
        << QStringList{"vorn_app/update.ini",
                       "file_num=1\n\n[FILE1]",
                       "file_num=2\n\n[FILE2]\nfile_name=plcgw\nsrc_path=./bin/\n"
                       "des_path=/usr/vorn_app/\n\n[FILE1]",
                       "vorn_app/bin/plcgw",
                       "",
                       "#!/bin/sh\n"}
        << "error"
        << "vorn_app/update.ini" << 9 << "FILE2"
        << "des_path"
        << "looks for /usr/vorn_app/bin/plcgw"
        << "des_path=/usr/vorn_app/bin/" << 1 << 1 << failed
        << "removed  /usr/vorn_app/libvornui.so.1" << QStringList() << QStringList();
    QTest::newRow("runtime manifest not installed")
        << QStringList{"vorn_app/update.ini", "des_path=/usr/vorn_app/",
                       "des_path=/usr/vorn_app/rt/"}
        << "error"
        << "vorn_app/update.ini" << 4 << "UPDATEINFO"
        << "file_num"
        << "reads /usr/vorn_app/update.ini"
        << "des_path=/usr/vorn_app/" << 1 << 1 << failed << "" << QStringList() << QStringList();
    QTest::newRow("project file named with a folder")
        << QStringList{"project/project.ini",
                       "NAME=screen1.scr\nCRC=auto\nSIZE=auto\nDESPATH=$VORN_WORK_DIR/project/"
                       "screens",
                       "NAME=screens/screen1.scr\nCRC=auto\nSIZE=auto\nDESPATH=$VORN_WORK_DIR/"
                       "project",
                       "project/screens/screen1.scr",
                       "",
                       "screen=1\n"}
        << "error"
        << "project/project.ini" << 12 << "FILE2"
        << "NAME"
        << "the program creates only DESPATH"
        << "DESPATH=$VORN_WORK_DIR/project/screens" << 1 << 1 << failed
        << "removed  /usr/vorn_app/project/screens/screen1.scr" << QStringList() << QStringList();
    QTest::newRow("unit no copy ships")
        << QStringList{"update.ini", "AUTOSTART=kellogger", "AUTOSTART=kellogger,plcgw"}
        << "warning"
        << "update.ini" << 43 << "RESTART"
        << "AUTOSTART"
        << "usr_plcgw.service is a unit no copy ships"
        << "DESTPATH=/etc/systemd/system/usr_plcgw" << 0 << 1 << failed << "" << QStringList()
        << QStringList();
    QTest::newRow("delete of a file a previous run removed")
        << QStringList{"update.ini", "[EXEFILE]",
                       "[DELFILE]\nDELFILENUM=1\n\n[DELFILE1]\nSRCPATH=/usr/vorn_app/config/"
                       "obsolete.conf\nMODE=0\nAUTHORITY=1\nPRIORITY=1\n\n[EXEFILE]"}
        << "warning"
        << "update.ini" << 40 << "DELFILE1"
        << "SRCPATH"
        << "a second run of this stick included, the run fails under -s"
        << "every panel still has the file" << 0 << 2 << failed << "" << QStringList()
        << QStringList();
    QTest::newRow("UPPROJECT=no") << QStringList{"update.ini", "UPPROJECT=true", "UPPROJECT=no"}
                                  << "error"
                                  << "update.ini" << 6 << "UPDATE"
                                  << "UPPROJECT"
                                  << "\"no\" is read as true"
                                  << "UPPROJECT=false" << 1 << 1 << ok
                                  << "replaced /usr/vorn_app/project/main.pro" << QStringList()
                                  << QStringList();
    QTest::newRow("UPVORN_APP misspelled")
        << QStringList{"update.ini", "UPVORN_APP=true", "UPVORN_AP=true"} << "error"
        << "update.ini" << 5 << "UPDATE"
        << "UPVORN_AP"
        << "reads no key of this name"
        << "did you mean UPVORN_APP?" << 1 << 1 << ok << "!libvornui" << QStringList()
        << QStringList();
    QTest::newRow("$VORN_WORKDIR in DESPATH")
        << QStringList{"project/project.ini", "DESPATH=$VORN_WORK_DIR/project\n",
                       "DESPATH=$VORN_WORKDIR/project\n"}
        << "error"
        << "project/project.ini" << 9 << "FILE1"
        << "DESPATH"
        << "written onto the stick"
        << "did you mean $VORN_WORK_DIR?" << 1 << 1 << ok
        << "removed  /usr/vorn_app/project/main.pro" << QStringList() << QStringList();
    QTest::newRow("ACCESSRIGHT names a file nothing installs")
        << QStringList{"vorn_app/update.ini", "file_name=vorn_app", "file_name=vorn_ap"} << "error"
        << "vorn_app/update.ini" << 16 << "EXE1"
        << "file_name"
        << "/usr/vorn_app/vorn_ap is not there when the right is granted"
        << "a file the records install" << 1 << 1 << ok << "/usr/vorn_app/vorn_app \\(644"
        << QStringList() << QStringList();
    QTest::newRow("EXEFILE names a file the runtime removed")
        << QStringList{"update.ini", "SRCPATH=/usr/vorn_app/kellogger",
                       "SRCPATH=/usr/vorn_app/kelloger"}
        << "error"
        << "update.ini" << 40 << "EXEFILE1"
        << "SRCPATH"
        << "/usr/vorn_app/kelloger is gone when the right is granted"
        << "grant only files the package installs" << 1 << 1 << failed << "" << QStringList()
        << QStringList();
    QTest::newRow("EXEFILE names a file nothing installs")
        << QStringList{"update.ini", "SRCPATH=/usr/vorn_app/kellogger",
                       "SRCPATH=/usr/local/bin/kellogger"}
        << "warning"
        << "update.ini" << 40 << "EXEFILE1"
        << "SRCPATH"
        << "not installed by the package"
        << "copy the file in the same package" << 0 << 1 << failed << "" << QStringList()
        << QStringList();
    QTest::newRow("unknown section [ACCESRIGHT]")
        << QStringList{"vorn_app/update.ini", "[ACCESSRIGHT]", "[ACCESRIGHT]"} << "error"
        << "vorn_app/update.ini" << 12 << "ACCESRIGHT"
        << ""
        << "reads no section of this name"
        << "did you mean [ACCESSRIGHT]?" << 1 << 1 << ok << "/usr/vorn_app/vorn_app \\(644"
        << QStringList() << QStringList();
    QTest::newRow("unknown key SRCPAHT")
        << QStringList{"update.ini", "SRCPATH=./files/usr_kellogger.service",
                       "SRCPAHT=./files/usr_kellogger.service"}
        << "error"
        << "update.ini" << 28 << "COPYFILE2"
        << "SRCPAHT"
        << "reads no key of this name in [COPYFILE2]"
        << "did you mean SRCPATH?" << 1 << 1 << failed << "" << QStringList() << QStringList();
    QTest::newRow("DESPATH for DESTPATH")
        << QStringList{"update.ini", "DESTPATH=/usr/vorn_app/config/panel.conf",
                       "DESPATH=/usr/vorn_app/config/panel.conf"}
        << "error"
        << "update.ini" << 20 << "COPYFILE1"
        << "DESPATH"
        << "reads no key of this name in [COPYFILE1]"
        << "did you mean DESTPATH?" << 1 << 1 << ok << "!replaced /usr/vorn_app/config/panel.conf"
        << QStringList() << QStringList();
    QTest::newRow("unquoted comma in DESTPATH")
        << QStringList{"update.ini", "DESTPATH=/usr/vorn_app/config/panel.conf",
                       "DESTPATH=/usr/vorn_app/config/modbus,line4.conf"}
        << "error"
        << "update.ini" << 20 << "COPYFILE1"
        << "DESTPATH"
        << "splits the value at the unquoted \",\""
        << "DESTPATH=\"/usr/vorn_app/config/modbus,line4.conf\"" << 1 << 1 << ok
        << "!replaced /usr/vorn_app/config/panel.conf" << QStringList() << QStringList();
    QTest::newRow("COMMAND script with CR LF")
        << QStringList{"update.ini",     command, "COMMAND=\"sh ./files/setup.sh\"",
                       "files/setup.sh", "",      "touch /usr/vorn_app/config/setup.out\r\n"}
        << "error"
        << "update.ini" << 44 << "RESTART"
        << "COMMAND"
        << "has CR LF line ends"
        << "LF line ends" << 1 << 1 << ok << "!config/setup.out \\(" << QStringList()
        << QStringList();
    QTest::newRow("COMMAND that fails")
        << QStringList{"update.ini", command, "COMMAND=\"sh ./files/setup.sh\""} << "error"
        << "update.ini" << 44 << "RESTART"
        << "COMMAND"
        << "is not a file of the package folder, where the command runs"
        << "the path of a file of the package" << 1 << 1 << ok << "" << QStringList()
        << QStringList();
    QTest::newRow("two copies to one destination")
        << QStringList{"update.ini", "DESTPATH=/usr/vorn_app/config/panel.conf",
                       "DESTPATH=/etc/systemd/system/usr_kellogger.service"}
        << "error"
        << "update.ini" << 29 << "COPYFILE2"
        << "DESTPATH"
        << "is also written by [COPYFILE1]"
        << "one record per destination" << 1 << 1 << ok << QString::fromUtf8("无法完成更名操作")
        << QStringList() << QStringList();
    QTest::newRow("STOPPROC of 16 characters")
        << QStringList{"update.ini", "STOPPROC=kelsample_view", "STOPPROC=kelsample_viewer"}
        << "error"
        << "update.ini" << 13 << "PREPARE1"
        << "STOPPROC"
        << "the process list shows at most 15"
        << "STOPPROC=kelsample_viewe" << 1 << 0 << ""
        << "" << QStringList{"--runtime", "absent"}
        << QStringList{"KELSIM_SETUP=cp /bin/sleep /tmp/kelsample_viewer && (setpriv "
                       "--reuid=65534 --regid=65534 --clear-groups "
                       "/tmp/kelsample_viewer 1000 &)",
                       "KELSIM_WRAPPER=setpriv --bounding-set=-kill --inh-caps=-kill"};
    QTest::newRow("project CRC that does not match")
        << QStringList{"project/project.ini", "CRC=auto", "CRC=1234abcd"} << "error"
        << "project/project.ini" << 7 << "FILE1"
        << "CRC"
        << "(expected 1234abcd, actual cbc567ad)"
        << "CRC=auto" << 1 << 1 << failed << "" << QStringList() << QStringList();
    QTest::newRow("copy CRC32 that does not match")
        << QStringList{"update.ini", "CRC32=auto", "CRC32=1234ABCD"} << "error"
        << "update.ini" << 22 << "COPYFILE1"
        << "CRC32"
        << "(expected 1234ABCD, actual 98785066)"
        << "CRC32=auto" << 1 << 1 << failed << "" << QStringList() << QStringList();
    QTest::newRow("project SIZE that does not match")
        << QStringList{"project/project.ini", "SIZE=auto", "SIZE=1"} << "error"
        << "project/project.ini" << 8 << "FILE1"
        << "SIZE"
        << "(expected 1, actual 42)"
        << "SIZE=auto" << 1 << 1 << failed << "" << QStringList() << QStringList();
    QTest::newRow("src_path without /")
        << QStringList{"vorn_app/update.ini", "src_path=./", "src_path=."} << "error"
        << "vorn_app/update.ini" << 9 << "FILE1"
        << "src_path"
        << "must end with \"/\""
        << "src_path=./" << 1 << 1 << failed << "" << QStringList() << QStringList();
}

void TestKelpack::verifyPredicts()
{
    QFETCH(QStringList, edits);
    QFETCH(QString, severity);
    QFETCH(QString, file);
    QFETCH(int, line);
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QString, problem);
    QFETCH(QString, fix);
    QFETCH(int, status);
    const QString source = tree(edits);
    QByteArray text;
    QCOMPARE(kelpack({"verify", source}, &text), status);
    QByteArray out;
    QCOMPARE(kelpack({"verify", source, "--json"}, &out), status);
    const QJsonObject report = QJsonDocument::fromJson(out).object();
    QCOMPARE(report.value("ok").toBool(), status == 0);
    const QJsonArray findings = report.value("findings").toArray();
    // The JSON holds every finding the text shows, in the same words.
    QStringList lines = QString::fromUtf8(text).split('\n', Qt::SkipEmptyParts);
    lines.removeLast(); // the summary
    QCOMPARE(findings.size(), lines.size());
    for (int i = 0; i < findings.size(); ++i)
        QCOMPARE(findings[i].toObject().value("text").toString(), lines[i]);
    if (severity.isEmpty()) {
        QVERIFY2(findings.isEmpty(), text.constData());
    } else {
        bool found = false;
        for (const QJsonValue& value : findings) {
            const QJsonObject f = value.toObject();
            found =
                found ||
                (f.value("severity").toString() == severity && f.value("file").toString() == file &&
                 f.value("line").toInt() == line && f.value("section").toString() == section &&
                 f.value("key").toString() == key && f.value("text").toString().contains(problem) &&
                 f.value("fix").toString().contains(fix));
        }
        QVERIFY2(found, text.constData());
    }
    // build runs the same checks: errors refuse the stick, warnings let it through.
    QByteArray err;
    QCOMPARE(kelpack({"build", source, dir + "/out", "--program", KEL_PROGRAM_PATH}, nullptr, &err),
             status);
    for (const QString& finding : lines)
        QVERIFY2(err.contains(finding.toUtf8()), err.constData());
    QCOMPARE(QFileInfo::exists(dir + "/out/update/update.ini"), status == 0);
    // The stick it wrote tells the same, without the tree.
    if (status == 0) {
        QByteArray stick;
        QCOMPARE(kelpack({"verify", dir + "/out/update", "--json"}, &stick), 0);
        const auto where = [](const QJsonArray& list) {
            QStringList places;
            for (const QJsonValue& value : list) {
                const QJsonObject f = value.toObject();
                places << QStringList{f.value("severity").toString(), f.value("file").toString(),
                                      f.value("section").toString(), f.value("key").toString()}
                              .join(' ');
            }
            return places;
        };
        QCOMPARE(where(QJsonDocument::fromJson(stick).object().value("findings").toArray()),
                 where(findings));
    }
    // info walks the same steps: every step of its JSON is a line of its text.
    QByteArray plan, planJson;
    QCOMPARE(kelpack({"info", source}, &plan), 0);
    QCOMPARE(kelpack({"info", source, "--json"}, &planJson), 0);
    const QJsonArray steps = QJsonDocument::fromJson(planJson).object().value("steps").toArray();
    QVERIFY(steps.size() > 10);
    for (const QJsonValue& value : steps) {
        const QJsonObject step = value.toObject();
        QString line = "   " + step.value("action").toString();
        for (const char* field : {"target", "source"})
            if (!step.value(field).toString().isEmpty())
                line += QString(field) == "source" ? " from " + step.value(field).toString()
                                                   : " " + step.value(field).toString();
        QVERIFY2(plan.contains(line.toUtf8()), qPrintable(line));
    }
}

QString TestKelpack::simulate(const QString& stick, int runs, const QStringList& simOptions,
                              const QStringList& environment)
{
    QString out;
    for (int run = 0; run < runs; ++run) {
        QProcess sim;
        sim.setProcessChannelMode(QProcess::MergedChannels);
        sim.setEnvironment(QProcess::systemEnvironment() + environment);
        sim.start(
            QStringLiteral(KEL_SOURCE_DIR) + "/sim/kelsim",
            QStringList{"--panel", dir + "/panel", "--screenshots", "none", "--timeout", "90"} +
                simOptions + (run == 0 ? QStringList{"--fresh"} : QStringList()) +
                QStringList{stick, "-s", "-nr"});
        if (!sim.waitForFinished(180000))
            sim.kill();
        out = QString::fromUtf8(sim.readAll());
    }
    return out;
}

QString TestKelpack::section(const QString& out, const QString& name)
{
    const int start = out.indexOf("== " + name + "\n");
    if (start < 0)
        return QString();
    const int body = start + name.size() + 4;
    const int end = out.indexOf("\n== ", body - 1);
    return out.mid(body, end < 0 ? -1 : end - body + 1);
}

void TestKelpack::panelConfirms()
{
    QFETCH(QStringList, edits);
    QFETCH(int, runs);
    QFETCH(QString, report);
    QFETCH(QString, evidence);
    QFETCH(QStringList, simOptions);
    QFETCH(QStringList, environment);
    SANDBOX_REQUIRED();
    if (QStandardPaths::findExecutable("Xvfb").isEmpty())
        QSKIP("Xvfb is not installed (scripts/install-deps.sh installs it)");
    QCOMPARE(kelpack({"build", tree(edits), dir + "/out", "--program", KEL_PROGRAM_PATH,
                      "--despite-errors"}),
             0);
    const QString out = simulate(dir + "/out", runs, simOptions, environment);
    QCOMPARE(section(out, "report").trimmed(), report);
    if (evidence.startsWith('!'))
        QVERIFY2(!out.contains(QRegularExpression(evidence.mid(1))), qPrintable(out));
    else
        QVERIFY2(out.contains(QRegularExpression(evidence)), qPrintable(out));
}

void TestKelpack::starterTreeUpdatesThePanel()
{
    const QString starter = dir + "/starter";
    QDir(starter).removeRecursively();
    QCOMPARE(kelpack({"init", starter}), 0);
    QByteArray out;
    QCOMPARE(kelpack({"verify", starter}, &out), 0);
    QVERIFY2(out.startsWith("no errors, no warnings"), out.constData());
    // Each item's example is correct too, once switched on.
    QSettings manifest(starter + "/update.ini", QSettings::IniFormat);
    QString text = QString::fromUtf8(fixture::readFile(starter + "/update.ini"));
    fixture::writeFile(starter + "/update.ini", text.replace("=false", "=true").toUtf8());
    QCOMPARE(kelpack({"verify", starter}, &out), 0);
    QVERIFY2(out.startsWith("no errors, no warnings"), out.constData());
    fixture::writeFile(starter + "/update.ini", text.replace("=true", "=false").toUtf8());
    QDir(dir + "/out").removeRecursively();
    QCOMPARE(kelpack({"build", starter, dir + "/out", "--program", KEL_PROGRAM_PATH}), 0);
    SANDBOX_REQUIRED();
    if (QStandardPaths::findExecutable("Xvfb").isEmpty())
        QSKIP("Xvfb is not installed (scripts/install-deps.sh installs it)");
    const QString sim = simulate(dir + "/out", 1);
    QCOMPARE(section(sim, "report").trimmed(), QString::fromUtf8("[成功]"));
    QVERIFY2(sim.contains("added    /usr/vorn_app/config/hello.conf"), qPrintable(sim));
}

void TestKelpack::englishTextsAreComplete()
{
    const auto table = [](const QString& path) {
        QSettings lan(path, QSettings::IniFormat);
        lan.setIniCodec("UTF-8");
        QMap<int, QString> texts;
        for (const QString& group : lan.childGroups())
            texts.insert(group.toInt(), lan.value(group + "/string").toString());
        return texts;
    };
    const QMap<int, QString> chinese = table(kel::kDefaultLanguageFile);
    const QMap<int, QString> english =
        table(QStringLiteral(KEL_SOURCE_DIR) + "/src/app/resource/lan/english.lan");
    QCOMPARE(chinese.size(), 243);
    const QRegularExpression placeholder("%\\d?");
    for (auto zh = chinese.begin(); zh != chinese.end(); ++zh) {
        QVERIFY2(english.contains(zh.key()), qPrintable(QString::number(zh.key())));
        const QString en = english.value(zh.key());
        QVERIFY2(!en.isEmpty() && !en.contains(QRegularExpression("[\\x{4e00}-\\x{9fff}]")),
                 qPrintable(QString::number(zh.key())));
        QStringList zhMarks, enMarks;
        for (auto it = placeholder.globalMatch(zh.value()); it.hasNext();)
            zhMarks << it.next().captured();
        for (auto it = placeholder.globalMatch(en); it.hasNext();)
            enMarks << it.next().captured();
        zhMarks.sort();
        enMarks.sort();
        QCOMPARE(enMarks, zhMarks);
        QCOMPARE(en.count('\n'), zh.value().count('\n'));
    }
    // The report line is written over the log's first line: all three are as long.
    const QByteArray head = english.value(2054).toUtf8();
    QCOMPARE(english.value(2055).toUtf8().size(), head.size());
    QCOMPARE((english.value(2059) + "\n").toUtf8().size(), head.size());
}

void TestKelpack::panelSpeaksEnglish_data()
{
    QTest::addColumn<int>("toolLanguage");
    QTest::addColumn<QStringList>("options");
    QTest::newRow("-lanID") << 0 << QStringList{"-s", "-nr", "-lanID 0001"};
    QTest::newRow("tool setting") << 1 << QStringList{"-s", "-nr"};
}

void TestKelpack::panelSpeaksEnglish()
{
    QFETCH(int, toolLanguage);
    QFETCH(QStringList, options);
    INSIDE_SANDBOX_REQUIRED();
    const QString source = tree({"kelpack.ini", "tool_language=0",
                                 QString("tool_language=%1\n[language]\nfile=english.lan\n"
                                         "number=1")
                                     .arg(toolLanguage)});
    QCOMPARE(kelpack({"build", source, dir + "/out", "--program", KEL_PROGRAM_PATH}), 0);
    QVERIFY(QFileInfo(dir + "/out/language/0001.lan").isFile());
    QFile::remove("/usr/vorn_app/project/lan_setup.ini");
    QProcess run;
    run.setWorkingDirectory("/");
    run.start(dir + "/out/update/kelloadui.bin", options);
    QVERIFY(run.waitForFinished(60000));
    const QString log = QString::fromUtf8(fixture::readFile(dir + "/out/update.log"));
    QVERIFY2(log.startsWith("[Passed]\n"), qPrintable(log));
    QVERIFY2(log.contains("Starting the update...") && log.contains("Project update: copied "),
             qPrintable(log));
}

// In a sandbox: the reader opens manifests through a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestKelpack)
#include "tst_kelpack.moc"
