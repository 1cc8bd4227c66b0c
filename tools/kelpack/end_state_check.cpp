#include "end_state_check.h"

#include "def.h"

#include <QFile>
#include <QMap>
#include <QVector>

namespace {

bool sameBytes(const QString& a, const QString& b)
{
    if (a == b)
        return true;
    if (a.isEmpty() || b.isEmpty())
        return false;
    QFile first(a), second(b);
    return first.open(QIODevice::ReadOnly) && second.open(QIODevice::ReadOnly) &&
           first.size() == second.size() && first.readAll() == second.readAll();
}

// What became of one installed file by the end of the run.
struct Fate
{
    const PanelModel::Installed& installed;
    PanelModel::File end;
};

// A rule over one installed file's fate. %1: the file, %2: the record that installed it, %3:
// the later record, %4: how many more files share the fate.
struct FileRule
{
    bool error;
    bool (*applies)(const Fate&);
    const char* problem;
    const char* fix;
};

const FileRule kFileRules[] = {
    {true,
     [](const Fate& f) {
         return f.end.state == PanelModel::Absent && f.end.removal == PanelModel::Swept;
     },
     "%1%4, installed by %2, is removed by %3, which runs later: the panel ends without it",
     "keep %3 away from what %2 installs, or leave the copy out"},
    {false,
     [](const Fate& f) {
         return f.end.state == PanelModel::Absent && f.end.removal == PanelModel::Named &&
                f.end.by != f.installed.by;
     },
     "%1%4, installed by %2, is deleted again by %3: the panel ends without it",
     "leave out one of the two records"},
    {true,
     [](const Fate& f) {
         return f.end.state == PanelModel::Present && f.end.by != f.installed.by &&
                f.end.source != f.installed.source && f.end.removal != PanelModel::Moved &&
                !sameBytes(f.end.source, f.installed.source);
     },
     "%1%4 is written by %2, then by %3 with other bytes: the panel keeps the later file",
     "one record per destination"},
};

// A rule over one file of the panel at the end. %1: the file, %2: the record that removed it.
struct PanelRule
{
    QString path;
    const char* problem;
    const char* fix;
};

} // namespace

QString EndStateCheck::fill(const char* text, const QStringList& values)
{
    QString out(text);
    if (values.size() > 1 && values[1].isEmpty())
        out.remove(" (%2 removed it)");
    for (int i = values.size(); i > 0; --i)
        out.replace("%" + QString::number(i), values[i - 1]);
    return out;
}

QString EndStateCheck::runtimeUnit()
{
    return QString(kel::kSystemdUnitDir) + kel::kServiceUnitPrefix + "vorn_app" +
           kel::kServiceUnitSuffix;
}

void EndStateCheck::run(const Report& report) const
{
    // One finding per rule and pair of records, naming the first file.
    QMap<QString, int> counts;
    QMap<QString, QStringList> firsts; // key -> {rule, file, installer, later}
    QStringList order;
    for (const PanelModel::Installed& installed : m_panel.installed()) {
        const Fate fate{installed, m_panel.file(installed.path)};
        for (int r = 0; r < int(sizeof kFileRules / sizeof *kFileRules); ++r) {
            if (!kFileRules[r].applies(fate))
                continue;
            const QString key = QString::number(r) + '\n' + installed.by + '\n' + fate.end.by;
            if (!counts.contains(key)) {
                order << key;
                firsts.insert(key, {QString::number(r), installed.path, installed.by, fate.end.by});
            } else if (firsts.value(key)[1] == installed.path) {
                continue;
            }
            counts[key] += 1;
        }
    }
    for (const QString& key : order) {
        const QStringList first = firsts.value(key);
        const FileRule& rule = kFileRules[first[0].toInt()];
        const int more = counts.value(key) - 1;
        const QString others =
            more > 0 ? QString(" (and %1 more file%2)").arg(more).arg(more == 1 ? "" : "s")
                     : QString();
        const QStringList values{first[1], first[2], first[3], others};
        report(rule.error, first[3], fill(rule.problem, values), fill(rule.fix, values));
    }

    const PanelRule panelRules[] = {
        {kel::kVornAppProgram,
         "the runtime program %1 is gone at the end (%2 removed it): the panel cannot start its "
         "runtime",
         "install the runtime program in the same package, or keep %2 away from it"},
        {runtimeUnit(),
         "%1 starts the HMI runtime at boot and is gone at the end (%2 removed it): after the "
         "restart the panel runs no runtime",
         "leave the runtime's own unit alone"},
    };
    for (const PanelRule& rule : panelRules) {
        const PanelModel::File end = m_panel.file(rule.path);
        if (end.state == PanelModel::Absent && end.removal != PanelModel::Moved)
            report(true, end.by, fill(rule.problem, {rule.path, end.by}),
                   fill(rule.fix, {rule.path, end.by}));
    }
}
