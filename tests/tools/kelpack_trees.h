#pragma once

#include "fixture.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStringList>
#include <QtTest>

// Package trees for the tests of the package tool: one tree per packaging mistake beside the
// correct one. tst_kelpack checks what verify predicts for each, tst_kelpack_panel what the
// simulated panel does with a stick of the same tree.
namespace trees {

// Edits that are no text replacement: as the text of a triple, kRemove deletes the file and
// kEncode saves it again in the encoding its replacement names ("UTF-16" or "Latin-1").
inline const QString kRemove = QStringLiteral("\x01remove");
inline const QString kEncode = QStringLiteral("\x01encode");

// The sample tree without its delete record (a correct tree that verify finds nothing in),
// copied to dir/tree and changed by edits: triples of file, text and replacement; an empty text
// writes the file. The stick of an earlier case (dir/out) is removed.
inline QString tree(const QString& dir, const QStringList& edits = {})
{
    const QString tree = dir + "/tree";
    QDir(tree).removeRecursively();
    QDir(dir + "/out").removeRecursively(); // the stick of the previous case
    fixture::copySampleTree(tree);
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
        if (all[i + 1] == kRemove) {
            QFile::remove(path);
            continue;
        }
        if (all[i + 1] == kEncode) {
            const QString text = QString::fromUtf8(fixture::readFile(path));
            QByteArray bytes = text.toLatin1();
            if (all[i + 2] == "UTF-16")
                bytes = QByteArray("\xff\xfe") +
                        QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
            fixture::writeFile(path, bytes);
            continue;
        }
        QString text = QString::fromUtf8(fixture::readFile(path));
        if (!text.contains(all[i + 1]))
            qWarning("tree text %s not found in %s", qPrintable(all[i + 1]), qPrintable(all[i]));
        fixture::writeFile(path, text.replace(all[i + 1], all[i + 2]).toUtf8());
    }
    return tree;
}

// The files a run changes as kelpack plan --json predicts them: "added PATH", "replaced PATH",
// "removed PATH", sorted.
inline QStringList plannedChanges(const QByteArray& planJson)
{
    const QJsonObject end = QJsonDocument::fromJson(planJson).object().value("end").toObject();
    QStringList planned;
    for (const char* change : {"added", "replaced", "removed"}) {
        for (const QJsonValue& path : end.value(change).toArray())
            planned << QString("%1 %2").arg(change, path.toString());
    }
    planned.sort();
    return planned;
}

// The same as the simulator listed them. What the program itself writes (its scratch, the
// loader's cache), the boot links, the command's own output and what mistaken records write onto
// the stick are not files the plan installs; folders it lists besides.
inline QStringList simulatedChanges(const QString& simulated)
{
    static const QRegularExpression change("^(added|replaced|removed) +(\\S+)");
    static const QRegularExpression notPlanned(
        "^/(tmp|var|media)/|/multi-user\\.target\\.wants/|/command\\.out$");
    QStringList seen;
    for (const QString& line : (fixture::section(simulated, "panel changes") +
                                fixture::section(simulated, "changes elsewhere"))
                                   .split('\n', Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch m = change.match(line);
        if (!m.hasMatch() || m.captured(2).contains(notPlanned) || m.captured(2).endsWith('/'))
            continue;
        seen << m.captured(1) + " " + m.captured(2);
    }
    seen.sort();
    return seen;
}

// One packaging mistake: the tree's edits, the finding verify must report, and what the panel does
// with a stick of the tree.
struct Mistake
{
    const char* name;
    QStringList edits;
    // The finding as "SEVERITY FILE[:LINE] [SECTION] KEY" (empty: verify finds nothing), a phrase
    // of its problem and of its fix. verify exits with 1 on an error, 0 otherwise.
    QString finding, problem, fix;
    // The panel: the report line of the last of runs, and a pattern its output holds ("!": lacks).
    int runs;
    QString report, evidence;
    // The run reports success, but leaves the panel unhealthy.
    bool unhealthy = false;
    // Simulator options and environment for the run.
    QStringList simOptions = {}, environment = {};
};

} // namespace trees
Q_DECLARE_METATYPE(trees::Mistake)
namespace trees {

// The table of mistakes, a row "c" for each.
inline void addMistakes()
{
    const QString ok = QString::fromUtf8("[成功]");
    const QString failed = QString::fromUtf8("[失败]");
    const QString command =
        "COMMAND=\"echo sample command ran > /usr/vorn_app/config/command.out\"";
    const Mistake mistakes[] = {
        {"correct tree", QStringList{}, "", "", "", 1, ok, "replaced /usr/vorn_app/project"},
        {"runtime record that does not mirror /usr/vorn_app",
         QStringList{"vorn_app/update.ini", "file_num=1\n\n[FILE1]",
                     "file_num=2\n\n[FILE2]\nfile_name=plcgw\nsrc_path=./bin/\n"
                     "des_path=/usr/vorn_app/\n\n[FILE1]",
                     "vorn_app/bin/plcgw", "", "#!/bin/sh\n"},
         "error vorn_app/update.ini:9 [FILE2] des_path", "looks for /usr/vorn_app/bin/plcgw",
         "des_path=/usr/vorn_app/bin/", 1, failed, "removed  /usr/vorn_app/libvornui.so.1"},
        {"runtime manifest not installed",
         QStringList{"vorn_app/update.ini", "des_path=/usr/vorn_app/",
                     "des_path=/usr/vorn_app/rt/"},
         "error vorn_app/update.ini:4 [UPDATEINFO] file_num", "reads /usr/vorn_app/update.ini",
         "des_path=/usr/vorn_app/", 1, failed, ""},
        {"project file named with a folder",
         QStringList{"project/project.ini",
                     "NAME=screen1.scr\nCRC=auto\nSIZE=auto\nDESPATH=$VORN_WORK_DIR/project/"
                     "screens",
                     "NAME=screens/screen1.scr\nCRC=auto\nSIZE=auto\nDESPATH=$VORN_WORK_DIR/"
                     "project",
                     "project/screens/screen1.scr", "", "screen=1\n"},
         "error project/project.ini:12 [FILE2] NAME", "the program creates only DESPATH",
         "DESPATH=$VORN_WORK_DIR/project/screens", 1, failed,
         "removed  /usr/vorn_app/project/screens/screen1.scr"},
        {"unit no copy ships",
         QStringList{"update.ini", "AUTOSTART=kellogger", "AUTOSTART=kellogger,plcgw"},
         "warning update.ini:43 [RESTART] AUTOSTART", "usr_plcgw.service is a unit no copy ships",
         "DESTPATH=/etc/systemd/system/usr_plcgw", 1, failed, ""},
        {"delete of a file a previous run removed",
         QStringList{"update.ini", "[EXEFILE]",
                     "[DELFILE]\nDELFILENUM=1\n\n[DELFILE1]\nSRCPATH=/usr/vorn_app/config/"
                     "obsolete.conf\nMODE=0\nAUTHORITY=1\nPRIORITY=1\n\n[EXEFILE]"},
         "warning update.ini:40 [DELFILE1] SRCPATH",
         "a second run of this stick included, the run fails under -s",
         "every panel still has the file", 2, failed, ""},
        {"UPPROJECT=no", QStringList{"update.ini", "UPPROJECT=true", "UPPROJECT=no"},
         "error update.ini:6 [UPDATE] UPPROJECT", "\"no\" is read as true", "UPPROJECT=false", 1,
         ok, "replaced /usr/vorn_app/project/main.pro"},
        {"UPVORN_APP misspelled", QStringList{"update.ini", "UPVORN_APP=true", "UPVORN_AP=true"},
         "error update.ini:5 [UPDATE] UPVORN_AP", "reads no key of this name",
         "did you mean UPVORN_APP?", 1, ok, "!libvornui"},
        {"$VORN_WORKDIR in DESPATH",
         QStringList{"project/project.ini", "DESPATH=$VORN_WORK_DIR/project\n",
                     "DESPATH=$VORN_WORKDIR/project\n"},
         "error project/project.ini:9 [FILE1] DESPATH", "written onto the stick",
         "did you mean $VORN_WORK_DIR?", 1, ok, "removed  /usr/vorn_app/project/main.pro"},
        {"ACCESSRIGHT names a file nothing installs",
         QStringList{"vorn_app/update.ini", "file_name=vorn_app", "file_name=vorn_ap"},
         "error vorn_app/update.ini:16 [EXE1] file_name",
         "/usr/vorn_app/vorn_ap is not there when the right is granted",
         "a file the records install", 1, ok, "/usr/vorn_app/vorn_app \\(644", true},
        {"EXEFILE names a file the runtime removed",
         QStringList{"update.ini", "SRCPATH=/usr/vorn_app/kellogger",
                     "SRCPATH=/usr/vorn_app/kelloger"},
         "error update.ini:40 [EXEFILE1] SRCPATH",
         "/usr/vorn_app/kelloger is gone when the right is granted",
         "grant only files the package installs", 1, failed, ""},
        {"EXEFILE names a file nothing installs",
         QStringList{"update.ini", "SRCPATH=/usr/vorn_app/kellogger",
                     "SRCPATH=/usr/local/bin/kellogger"},
         "warning update.ini:40 [EXEFILE1] SRCPATH", "not installed by the package",
         "copy the file in the same package", 1, failed, ""},
        {"unknown section [ACCESRIGHT]",
         QStringList{"vorn_app/update.ini", "[ACCESSRIGHT]", "[ACCESRIGHT]"},
         "error vorn_app/update.ini:12 [ACCESRIGHT]", "reads no section of this name",
         "did you mean [ACCESSRIGHT]?", 1, ok, "/usr/vorn_app/vorn_app \\(644", true},
        {"unknown key SRCPAHT",
         QStringList{"update.ini", "SRCPATH=./files/usr_kellogger.service",
                     "SRCPAHT=./files/usr_kellogger.service"},
         "error update.ini:28 [COPYFILE2] SRCPAHT", "reads no key of this name in [COPYFILE2]",
         "did you mean SRCPATH?", 1, failed, ""},
        {"DESPATH for DESTPATH",
         QStringList{"update.ini", "DESTPATH=/usr/vorn_app/config/panel.conf",
                     "DESPATH=/usr/vorn_app/config/panel.conf"},
         "error update.ini:20 [COPYFILE1] DESPATH", "reads no key of this name in [COPYFILE1]",
         "did you mean DESTPATH?", 1, ok, "!replaced /usr/vorn_app/config/panel.conf"},
        {"unquoted comma in DESTPATH",
         QStringList{"update.ini", "DESTPATH=/usr/vorn_app/config/panel.conf",
                     "DESTPATH=/usr/vorn_app/config/modbus,line4.conf"},
         "error update.ini:20 [COPYFILE1] DESTPATH", "splits the value at the unquoted \",\"",
         "DESTPATH=\"/usr/vorn_app/config/modbus,line4.conf\"", 1, ok,
         "!replaced /usr/vorn_app/config/panel.conf"},
        {"COMMAND script with CR LF",
         QStringList{"update.ini", command, "COMMAND=\"sh ./files/setup.sh\"", "files/setup.sh", "",
                     "touch /usr/vorn_app/config/setup.out\r\n"},
         "error update.ini:44 [RESTART] COMMAND", "has CR LF line ends", "LF line ends", 1, ok,
         "!config/setup.out \\("},
        {"COMMAND that fails",
         QStringList{"update.ini", command, "COMMAND=\"sh ./files/setup.sh\""},
         "error update.ini:44 [RESTART] COMMAND",
         "is not a file of the package folder, where the command runs",
         "the path of a file of the package", 1, ok, ""},
        {"two copies to one destination",
         QStringList{"update.ini", "DESTPATH=/usr/vorn_app/config/panel.conf",
                     "DESTPATH=/etc/systemd/system/usr_kellogger.service"},
         "error update.ini:29 [COPYFILE2] DESTPATH", "is also written by [COPYFILE1]",
         "one record per destination", 1, ok, QString::fromUtf8("无法完成更名操作"), true},
        {"STOPPROC of 16 characters",
         QStringList{"update.ini", "STOPPROC=kelsample_view", "STOPPROC=kelsample_viewer"},
         "error update.ini:13 [PREPARE1] STOPPROC", "the process list shows at most 15",
         "STOPPROC=kelsample_viewe", 1, ok, QString::fromUtf8("!停止 kelsample"), false,
         QStringList{"--runtime", "absent"},
         QStringList{"KELSIM_SETUP=cp /bin/sleep /tmp/kelsample_viewer && (setpriv "
                     "--reuid=65534 --regid=65534 --clear-groups "
                     "/tmp/kelsample_viewer 1000 &)",
                     "KELSIM_WRAPPER=setpriv --bounding-set=-kill --inh-caps=-kill"}},
        {"project CRC that does not match",
         QStringList{"project/project.ini", "CRC=auto", "CRC=1234abcd"},
         "error project/project.ini:7 [FILE1] CRC", "(expected 1234abcd, actual cbc567ad)",
         "CRC=auto", 1, failed, ""},
        {"copy CRC32 that does not match",
         QStringList{"update.ini", "CRC32=auto", "CRC32=1234ABCD"},
         "error update.ini:22 [COPYFILE1] CRC32", "(expected 1234ABCD, actual 98785066)",
         "CRC32=auto", 1, failed, ""},
        {"project SIZE that does not match",
         QStringList{"project/project.ini", "SIZE=auto", "SIZE=1"},
         "error project/project.ini:8 [FILE1] SIZE", "(expected 1, actual 42)", "SIZE=auto", 1,
         failed, ""},
        {"src_path without /", QStringList{"vorn_app/update.ini", "src_path=./", "src_path=."},
         "error vorn_app/update.ini:9 [FILE1] src_path", "must end with \"/\"", "src_path=./", 1,
         failed, ""},
        // What one step installs, a later one takes away.
        {"folder deleted after a copy filled it",
         QStringList{"update.ini", "[EXEFILE]",
                     "[DELFILE]\nDELFILENUM=1\n\n[DELFILE1]\nSRCPATH=/usr/vorn_app/config\n"
                     "MODE=2\nAUTHORITY=1\nPRIORITY=1\n\n[EXEFILE]"},
         "error update.ini:39 [DELFILE1]",
         "/usr/vorn_app/config/panel.conf, installed by update.ini [COPYFILE1], is removed by "
         "update.ini [DELFILE1]",
         "keep update.ini [DELFILE1] away", 1, ok, "removed  /usr/vorn_app/config/panel.conf"},
        {"system file in the folder the project replaces",
         QStringList{"system/update.ini", "DESTPATH=/usr/vorn_app/etc/time.conf",
                     "DESTPATH=/usr/vorn_app/project/time.conf"},
         "error project/project.ini",
         "installed by system/update.ini [COPYFILE2], is removed by project/project.ini",
         "or leave the copy out", 1, ok, "!/usr/vorn_app/project/time.conf"},
        // The debug file's bytes under the library's name.
        {"two libraries with one short name",
         QStringList{"vorn_app/libvornui.so.1.debug", "", "debug symbols\n"},
         "error vorn_app/update.ini:7 [FILE1] file_name", "both get the short name libvornui.so.1",
         "ship only one file", 1, ok,

         "replaced /usr/vorn_app/libvornui.so.1 \\(644 29ff7990cc3ba013"},
        // The runtime cannot start afterwards.
        {"runtime package without the runtime program",
         QStringList{"vorn_app/vorn_app", kRemove, "", "vorn_app/update.ini",
                     "file_num=2\n\n[EXE1]\nfile_name=vorn_app\n\n[EXE2]", "file_num=1\n\n[EXE1]"},
         "error vorn_app/update.ini:6 [FILE1]",
         "the runtime program /usr/vorn_app/vorn_app is gone at the end",
         "install the runtime program", 1, ok, "removed  /usr/vorn_app/vorn_app", true},
        {"runtime subfolder no record installs",
         QStringList{"vorn_app/lib/libplc.so.2", "", "plc library\n"},
         "error vorn_app/update.ini:4 [UPDATEINFO] file_num",
         "lib/libplc.so.2 of vorn_app/ is installed by no record",
         "src_path=./lib/ des_path=/usr/vorn_app/lib/", 1, ok, "!/usr/vorn_app/lib/"},
        {"AUTOSTOP of the runtime's own unit",
         QStringList{"update.ini", "AUTOSTART=kellogger", "AUTOSTART=kellogger\nAUTOSTOP=vorn_app"},
         "error update.ini:44 [RESTART] AUTOSTOP",
         "usr_vorn_app.service starts the HMI runtime at boot", "leave the runtime's own unit", 1,
         ok, "removed  /etc/systemd/system/usr_vorn_app.service", true},
        // Texts other programs read, and texts in another encoding.
        {"report markers translated",
         QStringList{"kelpack.ini", "tool_language=0", "tool_language=3\nlanguages=lans",
                     "lans/0003.lan", "",
                     "[2055]\nstring = \"[FAILED]\\n\"\n\n[2059]\nstring = \"[SUCCESS]\"\n"},
         "error lans/0003.lan [2059] string",
         "translates the report marker \"[成功]\" as \"[SUCCESS]\"", "leave [2059] out", 1,
         "[SUCCESS]", ""},
        {"COMMAND that writes a relative path",
         QStringList{"update.ini", command, "COMMAND=\"echo ran > config/command.out\""},
         "warning update.ini:44 [RESTART] COMMAND",
         "runs in the package folder on the stick (update/), not in /usr/vorn_app",
         "/usr/vorn_app/config/command.out", 1, ok, "!/usr/vorn_app/config/command.out"},
        {"project manifest in UTF-16", QStringList{"project/project.ini", kEncode, "UTF-16"},
         "error project/project.ini", "is saved as UTF-16", "iconv -f UTF-16 -t UTF-8", 1, ok,
         "removed  /usr/vorn_app/project/main.pro"},
        {"project file name in Latin-1",
         QStringList{"project/main.pro", kRemove, "", "project/m\u00e4in.pro", "", "[project]\n",
                     "project/project.ini", "NAME=main.pro", "NAME=m\u00e4in.pro",
                     "project/project.ini", kEncode, "Latin-1"},
         "error project/project.ini:6", "is not UTF-8 (Latin-1 or Windows-1252?)",
         "iconv -f LATIN1 -t UTF-8", 1, failed, ""},
    };
    fixture::table(mistakes);
}

} // namespace trees
