#include "def.h"
#include "fixture.h"
#include "generateconfiginfo.h"
#include "kelpack_trees.h"
#include "multilingual_management.h"
#include "sandbox.h"
#include "utf8_text.h"

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

using fixture::kelpack;

// The package tool as integrators use it: what it writes is read back by the updater's reader,
// verify predicts each packaging mistake, and the panel speaks the English texts it ships.
class TestKelpack : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void crcRenderings();
    void exitStatus_data();
    void exitStatus();
    void buildNeverLosesFiles_data();
    void buildNeverLosesFiles();
    void buildWritesWhatReadsBack();
    void verifyPredicts_data() { trees::addMistakes(); }
    void verifyPredicts();
    void fatalErrorsAreNamed_data();
    void fatalErrorsAreNamed();
    void planOnAListedPanel();
    void verifyOnAGivenPanel_data();
    void verifyOnAGivenPanel();
    void progressOnlyOnATerminal_data();
    void progressOnlyOnATerminal();
    void defaultPanelIsTheSimulators();
    void englishTextsAreComplete();
    void panelSpeaksEnglish_data();
    void panelSpeaksEnglish();

private:
    QString dir;
};

void TestKelpack::initTestCase()
{
    MultilingualManager::GetInstance()->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    dir = sandbox::makeScratchDir("kelpack");
}

void TestKelpack::crcRenderings()
{
    // A checksum with a leading zero nibble and letters: both renderings differ from %08X.
    fixture::writeFile(dir + "/p.bin", "payload 13");
    QByteArray out;
    QCOMPARE(kelpack({"crc", dir + "/p.bin"}, &out), 0);
    QCOMPARE(QString::fromUtf8(out), "9A67741 9a67741 10 " + dir + "/p.bin\n");
}

void TestKelpack::exitStatus_data()
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
    QTest::newRow("init in no known language")
        << QStringList{"init", "/tmp/never-written", "--language", "fr"} << 2;
    QTest::newRow("verify of nothing") << QStringList{"verify", "/nonexistent"} << 1;
    QTest::newRow("help") << QStringList{"--help"} << 0;
    QTest::newRow("help of a command") << QStringList{"build", "--help"} << 0;
    QTest::newRow("version") << QStringList{"--version"} << 0;
}

void TestKelpack::exitStatus()
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

namespace {
// A build: shell lines run in the scratch folder first, the folder build runs in, its arguments,
// exit status and messages, and the files it is expected to replace.
struct Build
{
    const char* name;
    QString setup, workDir;
    QStringList args;
    int status;
    QStringList messages, gone = {};
};
} // namespace
Q_DECLARE_METATYPE(Build)

void TestKelpack::buildNeverLosesFiles_data()
{
    const QString notes = "mkdir -p out/old && echo notes > out/notes.txt && echo x > out/old/x";
    const QStringList toOut{"tree", "out"};
    const Build cases[] = {
        {"non-empty folder", notes, ".", toOut, 1,
         QStringList{"out: the folder is not empty", "give --force"}},
        {"the tree itself from inside it", "", "tree", QStringList{".", "."}, 1,
         QStringList{"tree: the output folder is the package tree or lies inside it"}},
        {"a folder inside the tree", "", ".", QStringList{"tree", "tree/files/stick"}, 1,
         QStringList{"is the package tree or lies inside it"}},
        {"a folder holding the tree", "", "tree", QStringList{".", ".."}, 1,
         QStringList{"the output folder holds the package tree"}},
        {"link out of the tree", "ln -s /etc/passwd tree/files/pw", ".", toOut, 1,
         QStringList{"tree/files/pw: a link to /etc/passwd outside the package tree"}},
        // A sibling whose name begins with the tree's is still outside it.
        {"link into a sibling of the tree",
         "mkdir tree-x && echo secret > tree-x/pw && ln -s ../../tree-x/pw tree/files/pw", ".",
         toOut, 1, QStringList{"tree/files/pw: a link to %1/tree-x/pw outside the package tree"}},
        {"dangling link", "ln -s gone.conf tree/files/pw", ".", toOut, 1,
         QStringList{"tree/files/pw: a link to %1/tree/files/gone.conf, which does not exist"}},
        {"junk of other systems",
         "touch tree/.DS_Store tree/files/._panel.conf tree/system/Thumbs.db tree/DESKTOP.INI && "
         "mkdir -p tree/__MACOSX/files && touch tree/__MACOSX/files/x",
         ".", toOut, 0,
         QStringList{"kelpack: warning: %1/tree/.DS_Store: left out",
                     "tree/files/._panel.conf: left out", "tree/system/Thumbs.db: left out",
                     "tree/DESKTOP.INI: left out", "tree/__MACOSX: left out"}},
        {"forced over an old stick",
         notes + " && mkdir -p out/update out/qws && echo a > out/update/old && echo b > "
                 "out/qws/qwsserver",
         ".", QStringList{"tree", "out", "--force"}, 0, QStringList{},
         QStringList{"out/update/old", "out/qws/qwsserver"}},
        {"a tree with errors", "sed -i 's/UPPROJECT=true/UPPROJECT=no/' tree/update.ini", ".",
         toOut, 1, QStringList{"update.ini:6: error: [UPDATE] UPPROJECT:", "nothing was written"}},
    };
    fixture::table(cases);
}

void TestKelpack::buildNeverLosesFiles()
{
    QFETCH(Build, c);
    const QString scratch = dir + "/safe";
    QDir(scratch).removeRecursively();
    QDir().mkpath(scratch);
    QVERIFY(fixture::copySampleTree(scratch + "/tree"));
    if (!c.setup.isEmpty())
        QCOMPARE(QProcess::execute("sh", {"-c", "cd " + scratch + " && " + c.setup}), 0);
    const QMap<QString, QByteArray> before = filesUnder(scratch);

    QByteArray err;
    QCOMPARE(kelpack(QStringList{"build"} + c.args + QStringList{"--program", KEL_PROGRAM_PATH},
                     nullptr, &err, scratch + "/" + c.workDir),
             c.status);
    for (const QString& message : c.messages)
        QVERIFY2(err.contains(QString(message).replace("%1", scratch).toUtf8()), err.constData());
    const QMap<QString, QByteArray> after = filesUnder(scratch);
    for (auto file = before.begin(); file != before.end(); ++file) {
        if (!c.gone.contains(file.key()))
            QVERIFY2(after.value(file.key()) == file.value(), qPrintable(file.key()));
        else
            QVERIFY2(!after.contains(file.key()), qPrintable(file.key()));
    }
    // No staging folder is left behind, and a refused build writes nothing at all.
    for (const QString& path : after.keys())
        QVERIFY2(!path.contains(".kelpack"), qPrintable(path));
    if (c.status != 0)
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
    const QString source =
        trees::tree(dir, {"update.ini",
                          "COMMAND=\"echo sample command ran > /usr/vorn_app/config/command.out\"",
                          "COMMAND=\"  echo a, b; echo c  \""});
    QCOMPARE(kelpack({"build", source, dir + "/out", "--program", KEL_PROGRAM_PATH}), 0);
    const QString package = dir + "/out/update";
    GenerateConfigInfo reader;
    QVERIFY(reader.readIni(package + "/update.ini"));
    QCOMPARE(reader.getReStartInfo().find("COMMAND")->second.toString(),
             QString("  echo a, b; echo c  "));
    QCOMPARE(kelpack({"verify", package}), 0);
}

namespace {
// A finding of verify --json as "SEVERITY FILE[:LINE] [SECTION] KEY".
QString findingOf(const QJsonObject& f, bool withLine = true)
{
    QString text = f.value("severity").toString() + " " + f.value("file").toString();
    if (withLine && !f.value("line").isNull())
        text += ":" + QString::number(f.value("line").toInt(-1));
    if (!f.value("section").toString().isEmpty())
        text += " [" + f.value("section").toString() + "]";
    return text + (f.value("key").toString().isEmpty() ? "" : " " + f.value("key").toString());
}
} // namespace

void TestKelpack::verifyPredicts()
{
    QFETCH(trees::Mistake, c);
    const int status = c.finding.startsWith("error") ? 1 : 0;
    const QString source = trees::tree(dir, c.edits);
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
    QVERIFY2(c.finding.isEmpty() == findings.isEmpty(), text.constData());
    bool found = c.finding.isEmpty();
    for (const QJsonValue& value : findings) {
        const QJsonObject f = value.toObject();
        found =
            found || (findingOf(f) == c.finding && f.value("text").toString().contains(c.problem) &&
                      f.value("fix").toString().contains(c.fix));
    }
    QVERIFY2(found, text.constData());
    // build runs the same checks: errors refuse the stick, warnings let it through.
    QByteArray err;
    QCOMPARE(kelpack({"build", source, dir + "/out", "--program", KEL_PROGRAM_PATH}, nullptr, &err),
             status);
    for (const QString& finding : lines)
        QVERIFY2(err.contains(finding.toUtf8()), err.constData());
    QCOMPARE(QFileInfo::exists(dir + "/out/update/update.ini"), status == 0);
    // The stick it wrote tells the same without the tree, its signature audited besides.
    if (status == 0) {
        QByteArray stick;
        QCOMPARE(kelpack({"verify", dir + "/out/update", "--json"}, &stick), 0);
        const auto where = [](const QJsonArray& list) {
            QStringList places;
            for (const QJsonValue& value : list) {
                if (!value.toObject().value("file").toString().startsWith("kelgate."))
                    places << findingOf(value.toObject(), false);
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

void TestKelpack::fatalErrorsAreNamed_data()
{
    QTest::addColumn<QStringList>("args"); // TREE: the sample tree, edited by edits
    QTest::addColumn<QStringList>("edits");
    QTest::addColumn<QString>("error");
    QTest::newRow("missing folder") << QStringList{"verify", "/nonexistent/tree"} << QStringList()
                                    << "/nonexistent/tree: no such folder";
    QTest::newRow("plan of a missing folder")
        << QStringList{"plan", "/nonexistent/tree"} << QStringList()
        << "/nonexistent/tree: no such folder";
    QTest::newRow("a file for a folder")
        << QStringList{"info", "TREE/update.ini"} << QStringList() << "update.ini: is not a folder";
    QTest::newRow("already scrambled item manifest")
        << QStringList{"verify", "TREE"}
        << QStringList{"system/update.ini", "[COPYFILE]", "SCRAMBLE"}
        << "tree/system/update.ini: is already scrambled";
    QTest::newRow("missing panel")
        << QStringList{"plan", "TREE", "--panel", "/nonexistent/panel"} << QStringList()
        << "/nonexistent/panel: no such folder or listing";
}

void TestKelpack::fatalErrorsAreNamed()
{
    QFETCH(QStringList, args);
    QFETCH(QStringList, edits);
    QFETCH(QString, error);
    const QString source = trees::tree(dir);
    if (!edits.isEmpty()) {
        QCOMPARE(kelpack({"scramble", source + "/" + edits[0], dir + "/scrambled.ini"}), 0);
        QVERIFY(QFile::remove(source + "/" + edits[0]) &&
                QFile::rename(dir + "/scrambled.ini", source + "/" + edits[0]));
    }
    args.replaceInStrings("TREE", source);
    QByteArray out, err;
    QCOMPARE(kelpack(args, &out, &err), 1);
    QVERIFY2(err.contains(error.toUtf8()), err.constData());
    QCOMPARE(out, QByteArray());
    // Asked for JSON, the answer is still one JSON object, with the error in it.
    QCOMPARE(kelpack(args + QStringList{"--json"}, &out, &err), 1);
    const QJsonObject report = QJsonDocument::fromJson(out).object();
    QVERIFY2(report.value("error").toString().contains(error), out.constData());
    QCOMPARE(report.value("ok").toBool(true), false);
}

void TestKelpack::planOnAListedPanel()
{
    const QString source = trees::tree(dir);
    fixture::writeFile(dir + "/panel.txt",
                       "/usr/vorn_app/config/panel.conf\n/usr/vorn_app/vorn_app\n"
                       "/usr/vorn_app/config/obsolete.conf\n");
    QByteArray json;
    QCOMPARE(kelpack({"plan", source, "--panel", dir + "/panel.txt", "--json"}, &json), 0);
    const QJsonObject plan = QJsonDocument::fromJson(json).object();
    const QJsonObject end = plan.value("end").toObject();
    QCOMPARE(end.value("replaced").toArray(),
             QJsonArray({"/usr/vorn_app/config/panel.conf", "/usr/vorn_app/vorn_app"}));
    QCOMPARE(end.value("removed").toArray(), QJsonArray());
    QVERIFY(end.value("added").toArray().contains("/usr/local/bin/kelhelper"));
    QMap<QString, QString> changes;
    for (const QJsonValue& step : plan.value("steps").toArray()) {
        if (!step.toObject().value("change").toString().isEmpty())
            changes.insert(step.toObject().value("target").toString(),
                           step.toObject().value("change").toString());
    }
    QCOMPARE(changes.value("/usr/vorn_app/config/panel.conf"), QString("replaces"));
    QCOMPARE(changes.value("/usr/local/bin/kelhelper"), QString("adds"));
    QByteArray text;
    QCOMPARE(kelpack({"plan", source, "--panel", dir + "/panel.txt"}, &text), 0);
    QVERIFY2(text.contains("End: 14 files installed (12 new, 2 replaced), 0 of the panel's files "
                           "removed; the runtime program is the package's"),
             text.constData());
}

void TestKelpack::verifyOnAGivenPanel_data()
{
    QTest::addColumn<QString>("listing"); // none: the default panel, which decides nothing
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("finding");
    const QString unit = "/etc/systemd/system/usr_oldlogger.service";
    const QString folder = "/usr/vorn_app/data/recipes/";
    // The default panel has no such folder either: only the unit is left to the panel.
    QTest::newRow("default panel: the unit is up to the panel")
        << QString() << 1 << "warning: [RESTART] AUTOSTOP: " + unit + " is not shipped";
    QTest::newRow("the panel has the unit and the folder") << unit + "\n" + folder + "\n"
                                                           << 0 << QString();
    QTest::newRow("the panel lacks the unit")
        << folder + "\n"
        << 1 << "error: [RESTART] AUTOSTOP: " + unit + " is not on the panel: the run fails";
    QTest::newRow("the panel lacks the folder")
        << unit + "\n"
        << 1 << "error: [FILE3] NAME: names a file in a folder";
}

void TestKelpack::verifyOnAGivenPanel()
{
    QFETCH(QString, listing);
    QFETCH(int, status);
    QFETCH(QString, finding);
    // A unit no copy ships, and a project file in a subfolder the project does not make.
    const QString source = trees::tree(
        dir, {"update.ini", "AUTOSTART=kellogger", "AUTOSTART=kellogger\nAUTOSTOP=oldlogger",
              "project/recipes/r1.rcp", "", "recipe 1", "project/project.ini",
              "NAME=screen2.scr\nCRC=auto\nSIZE=auto\nDESPATH=$VORN_WORK_DIR/project/screens",
              "NAME=recipes/r1.rcp\nCRC=auto\nSIZE=auto\nDESPATH=/usr/vorn_app/data"});
    QStringList args{"verify", source};
    if (!listing.isNull()) {
        fixture::writeFile(dir + "/given.txt", listing.toUtf8());
        args << "--panel" << dir + "/given.txt";
    }
    QByteArray out;
    QCOMPARE(kelpack(args, &out), status);
    if (finding.isEmpty())
        QVERIFY2(out.contains("no errors, no warnings"), out.constData());
    else
        QVERIFY2(out.contains(finding.toUtf8()), out.constData());
}

void TestKelpack::progressOnlyOnATerminal_data()
{
    QTest::addColumn<bool>("terminal");
    QTest::addColumn<qint64>("mib"); // of one file in the tree
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("large tree on a terminal")
        << true << qint64(65) << QByteArray("\r\033[Kkelpack: copying onto the stick: 0 of 65 MiB");
    QTest::newRow("small tree on a terminal") << true << qint64(1) << QByteArray();
    QTest::newRow("large tree into a pipe") << false << qint64(65) << QByteArray();
}

void TestKelpack::progressOnlyOnATerminal()
{
    QFETCH(bool, terminal);
    QFETCH(qint64, mib);
    QFETCH(QByteArray, shown);
    const QString script = QStandardPaths::findExecutable("script");
    if (terminal && script.isEmpty())
        QSKIP("no script(1) to give kelpack a terminal");
    const QString source = trees::tree(dir);
    QFile big(source + "/files/big.bin");
    QVERIFY(big.open(QIODevice::WriteOnly) && big.resize(mib << 20)); // sparse: quick to copy
    big.close();
    const QStringList build{QStringLiteral(KEL_BINARY_DIR) + "/tools/kelpack",
                            "build",
                            source,
                            dir + "/out",
                            "--program",
                            KEL_PROGRAM_PATH};
    QByteArray out, err;
    if (terminal)
        QCOMPARE(fixture::run(script, {"-qec", build.join(' '), "/dev/null"}, &out, &err), 0);
    else
        QCOMPARE(fixture::run(build.first(), build.mid(1), &out, &err), 0);
    const QByteArray all = out + err;
    QVERIFY2(all.contains("stick built in"), all.constData());
    if (shown.isEmpty()) {
        QVERIFY2(!all.contains("\033[K"), all.constData());
        return;
    }
    QVERIFY2(all.contains(shown), all.constData());
    QVERIFY2(all.contains("65 of 65 MiB"), all.constData());
    // Erased before anything else is said: no later line starts after the count.
    const int last = all.lastIndexOf("of 65 MiB");
    QVERIFY2(all.mid(last).startsWith("of 65 MiB\r\033[K"), all.constData());
}

void TestKelpack::defaultPanelIsTheSimulators()
{
    const QString panel = dir + "/seeded";
    QVERIFY(fixture::seedPanel(panel));
    QStringList seeded;
    QDirIterator it(panel, QDir::Files | QDir::System | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        seeded << it.next().mid(panel.size());
    seeded.sort();
    QStringList listed;
    for (const QString& line :
         QString::fromUtf8(
             fixture::readFile(QStringLiteral(KEL_SOURCE_DIR) + "/tools/kelpack/default-panel.txt"))
             .split('\n', Qt::SkipEmptyParts)) {
        if (line.startsWith('/'))
            listed << line;
    }
    QCOMPARE(listed, seeded);
    // Without --panel, the plan is made on it.
    QByteArray plain, seededPlan;
    const QString source = trees::tree(dir);
    QCOMPARE(kelpack({"plan", source, "--json"}, &plain), 0);
    QCOMPARE(kelpack({"plan", source, "--panel", panel, "--json"}, &seededPlan), 0);
    QCOMPARE(trees::plannedChanges(plain), trees::plannedChanges(seededPlan));
    QVERIFY(!trees::plannedChanges(plain).isEmpty());
}

void TestKelpack::englishTextsAreComplete()
{
    const auto table = [](const QString& path) {
        QSettings lan(path, QSettings::IniFormat);
        kel::useUtf8Ini(lan);
        QMap<int, QString> texts;
        for (const QString& group : lan.childGroups())
            texts.insert(group.toInt(), lan.value(group + "/string").toString());
        return texts;
    };
    const QMap<int, QString> chinese = table(kel::kDefaultLanguageFile);
    const QMap<int, QString> english =
        table(QStringLiteral(KEL_SOURCE_DIR) + "/src/app/resource/lan/english.lan");
    // The updater's 243 texts (1000-1018, 2000-2223) and every text added after them.
    QVERIFY(chinese.size() >= 243 && chinese.contains(1000) && chinese.contains(2223));
    const QRegularExpression placeholder("%\\d?");
    for (auto zh = chinese.begin(); zh != chinese.end(); ++zh) {
        QVERIFY2(english.contains(zh.key()), qPrintable(QString::number(zh.key())));
        const QString en = english.value(zh.key());
        // The report line stays as it is: the gate, the simulator and integrators read it.
        const bool report = zh.key() == 2055 || zh.key() == 2059;
        QVERIFY2(report
                     ? en == zh.value()
                     : !en.isEmpty() && !en.contains(QRegularExpression("[\\x{4e00}-\\x{9fff}]")),
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
    const QString source =
        trees::tree(dir, {"kelpack.ini", "tool_language=0",
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
    QVERIFY2(log.startsWith(QString::fromUtf8("[成功]\n")), qPrintable(log));
    QVERIFY2(log.contains("Starting the update...") && log.contains("Project update: copied "),
             qPrintable(log));
}

// In a sandbox: the reader opens manifests through a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestKelpack)
#include "tst_kelpack.moc"
