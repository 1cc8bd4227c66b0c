#include "panel_model.h"

#include <QDir>

QString PanelModel::clean(const QString& path)
{
    return QDir::cleanPath(path);
}

void PanelModel::install(const QString& path, const QString& source, const QString& by)
{
    const QString at = clean(path);
    m_files.insert(at, {++m_order, {Present, source, by, Swept}});
    m_installed.append({at, source, by});
    makeDir(at.section('/', 0, -2));
}

void PanelModel::remove(const QString& path, const QString& by, Removal removal)
{
    m_files.insert(clean(path), {++m_order, {Absent, QString(), by, removal}});
}

void PanelModel::removeTree(const QString& dir, const QString& by)
{
    m_rules.append({++m_order, clean(dir), true, nullptr, by});
}

void PanelModel::clearFiles(const QString& dir, const std::function<bool(const QString&)>& keep,
                            const QString& by)
{
    m_rules.append({++m_order, clean(dir), false, keep, by});
}

void PanelModel::makeDir(const QString& dir)
{
    QString at = clean(dir);
    while (!at.isEmpty() && at != "/") {
        m_dirs.insert(at, ++m_order);
        at = at.section('/', 0, -2);
    }
}

void PanelModel::rewrite(const QString& path)
{
    const auto known = m_files.find(clean(path));
    if (known != m_files.end() && file(known.key()).state == Present)
        known->file.source.clear();
}

void PanelModel::rename(const QString& from, const QString& to, const QString& by)
{
    const File moved = file(from);
    remove(from, by, Moved);
    if (moved.state != Present)
        return;
    // Arrived by a move: the file itself was installed, and is checked, under its first name.
    const QString at = clean(to);
    m_files.insert(at, {++m_order, {Present, moved.source, by, Moved}});
}

PanelModel::File PanelModel::file(const QString& path) const
{
    const QString at = clean(path);
    int order = -1;
    File result;
    const auto known = m_files.constFind(at);
    if (known != m_files.constEnd()) {
        order = known->order;
        result = known->file;
    }
    const QString parent = at.section('/', 0, -2);
    for (const Rule& rule : m_rules) {
        const bool applies =
            rule.tree ? (at == rule.dir || at.startsWith(rule.dir + "/"))
                      : (parent == rule.dir && !(rule.keep && rule.keep(at.section('/', -1))));
        if (applies && rule.order > order) {
            order = rule.order;
            result = {Absent, QString(), rule.by, Swept};
        }
    }
    return result;
}

PanelModel::State PanelModel::dirState(const QString& dir) const
{
    const QString at = clean(dir);
    const int made = m_dirs.value(at, -1);
    int removed = -1;
    for (const Rule& rule : m_rules) {
        if (rule.tree && (at == rule.dir || at.startsWith(rule.dir + "/")))
            removed = qMax(removed, rule.order);
    }
    if (made > removed)
        return Present;
    return removed >= 0 ? Absent : Unknown;
}

QStringList PanelModel::presentIn(const QString& dir) const
{
    QStringList names;
    const QString at = clean(dir);
    for (auto it = m_files.constBegin(); it != m_files.constEnd(); ++it) {
        if (it.key().section('/', 0, -2) == at && file(it.key()).state == Present)
            names << it.key();
    }
    return names;
}

QStringList PanelModel::present() const
{
    QStringList paths;
    for (auto it = m_files.constBegin(); it != m_files.constEnd(); ++it) {
        if (file(it.key()).state == Present)
            paths << it.key();
    }
    return paths;
}
