#include "package_plan.h"

#include "downLoadPro.h"
#include "downLoadVorn_app.h"
#include "generateconfiginfo.h"
#include "qsettingsfactory.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTextStream>
#include <algorithm>

namespace {

QString modeText(int mode)
{
    switch (mode) {
    case 0:
        return "file";
    case 1:
        return "files of directory";
    case 2:
        return "directory tree";
    default:
        return QString("mode %1: nothing").arg(mode);
    }
}

void describeSets(QTextStream& out, const GenerateConfigInfo& reader, const QString& indent)
{
    for (const copyFileInfo_s& info : reader.getCopyFileSet())
        out << indent << "copy " << modeText(info.mode) << ' ' << info.srcPath << " -> "
            << info.destPath << (info.crc32.isEmpty() ? "" : " (CRC-32 " + info.crc32 + ")")
            << '\n';
    for (const delFileInfo_s& info : reader.getDelFileSet())
        out << indent << "delete " << modeText(info.mode) << ' ' << info.srcPath << '\n';
    for (const exeFileInfo_s& info : reader.getExeFileSet())
        out << indent << "make executable " << info.srcPath << '\n';
}

QStringList entries(const VariantTable& table, const char* key)
{
    QStringList values;
    for (auto range = table.equal_range(key); range.first != range.second; ++range.first)
        values << range.first->second.toString();
    return values;
}

} // namespace

PackagePlan::PackagePlan(const QString& packageDir) : m_dir(QDir(packageDir).absolutePath()) {}

bool PackagePlan::describe(QString* plan)
{
    QTemporaryDir scratch;
    QSettingsFactory::setScratchPath(scratch.path() + "/opened.ini");
    QTextStream out(plan);
    GenerateConfigInfo reader;
    if (!reader.readIni(m_dir + "/update.ini")) {
        out << m_dir << "/update.ini cannot be read: the update would fail at once.\n";
        return false;
    }
    const BoolTable items = reader.getUpdateInfo();
    const auto requested = [&](const char* key) {
        const auto it = items.find(key);
        return it != items.end() && it->second;
    };
    const QString back = QDir::currentPath();
    int step = 0;
    out << "Package " << m_dir << "\n";
    out << ++step << ". Stop the HMI runtime (ask, then kill after 3 s).\n";
    const QStringList stops = entries(reader.getPrepareInfo().value(0), "STOPPROC");
    if (!stops.isEmpty())
        out << ++step << ". Kill programs: " << stops.join(", ") << "\n";
    for (const char* item : {"system", "kelinfo"}) {
        const bool isSystem = QString(item) == "system";
        if (!requested(isSystem ? "UPSYSTEM" : "UPKELINFO"))
            continue;
        out << ++step << ". " << (isSystem ? "System files" : "Panel identity") << " (" << item
            << "/):\n";
        GenerateConfigInfo itemReader;
        QDir::setCurrent(m_dir + "/" + item);
        if (itemReader.readFileOpConfig(QString("./update.ini")))
            describeSets(out, itemReader, "     ");
        else
            out << "     its manifest cannot be read: the update would fail here\n";
        QDir::setCurrent(back);
    }
    if (requested("UPVORN_APP") && QDir::setCurrent(m_dir + "/vorn_app")) {
        downLoadVorn_app runtime;
        out << ++step << ". Runtime application (vorn_app/):\n";
        if (runtime.parseIniFile()) {
            QString tip;
            runtime.checkProjectFiles(tip);
            out << "     " << tip << ", checked with " << runtime.versionFile() << "\n";
            for (const downLoadVorn_app::FILE_INFO& info : runtime.fileInfos()) {
                out << "     replace " << info.des_path << info.file_name << " from "
                    << info.src_path << info.file_name;
                if (!info.delaycopy_file.isEmpty())
                    out << " (last: " << info.delaycopy_file.join(", ") << ")";
                out << "\n";
            }
            if (!runtime.exeFiles().isEmpty())
                out << "     make executable: " << runtime.exeFiles().join(", ") << "\n";
        } else {
            out << "     its manifest cannot be read: the update would fail here\n";
        }
        QDir::setCurrent(back);
    }
    if (requested("UPPROJECT") && QDir::setCurrent(m_dir + "/project")) {
        downLoadPro project("/usr/vorn_app/");
        out << ++step << ". HMI project (project/): replaces /usr/vorn_app/project\n";
        if (project.parseIniFile()) {
            for (const FILE_INFO& info : project.fileInfos())
                out << "     " << info.name << " -> " << info.desPath << " (" << info.size
                    << " bytes)\n";
        }
        QDir::setCurrent(back);
    }
    out << ++step << ". Package-wide:\n";
    describeSets(out, reader, "     ");
    const VariantTable restart = reader.getReStartInfo();
    for (const QString& name : entries(restart, "AUTOSTART"))
        out << "     enable boot service usr_" << name << ".service\n";
    for (const QString& name : entries(restart, "AUTOSTOP"))
        out << "     remove boot service usr_" << name << ".service (unit file and link)\n";
    out << "     run ldconfig\n";
    const QStringList command = entries(restart, "COMMAND");
    if (!command.isEmpty() && !command.first().isEmpty())
        out << "     run: " << command.first() << "\n";
    const QStringList beeps = entries(restart, "BEEPNUM");
    const QStringList reboot = entries(restart, "REBOOT");
    out << ++step << ". On success: ";
    if (!reboot.isEmpty() && reboot.first().toInt() == 1)
        out << "restart at once (interactive runs); ";
    else
        out << "beep " << (beeps.isEmpty() ? 0 : beeps.first().toInt())
            << " times, restart after a 10 s countdown (interactive runs); ";
    out << "quiet runs close (-nr) or restart (-r).\n";
    return true;
}
