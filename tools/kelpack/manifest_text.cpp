#include "manifest_text.h"

#include <QFile>

bool ManifestText::load(const QString& path)
{
    m_lines.clear();
    m_entries.clear();
    m_sections.clear();
    m_stray.clear();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QByteArray bytes = file.readAll();
    if (bytes.startsWith("\xEF\xBB\xBF"))
        bytes.remove(0, 3);
    QString section;
    int number = 0;
    for (QString rawLine : QString::fromUtf8(bytes).split('\n')) {
        ++number;
        if (rawLine.endsWith('\r'))
            rawLine.chop(1);
        m_lines << rawLine;
        const QString line = rawLine.trimmed();
        if (line.isEmpty() || line.startsWith(';') || line.startsWith('#'))
            continue;
        if (line.startsWith('[')) {
            section = line.mid(1, line.indexOf(']') - 1).trimmed();
            if (sectionLine(section) == 0)
                m_sections.append({section, number});
            continue;
        }
        const int equals = line.indexOf('=');
        if (equals <= 0) {
            m_stray.append(number);
            continue;
        }
        m_entries.append(
            {section, line.left(equals).trimmed(), line.mid(equals + 1).trimmed(), number});
    }
    // The end of the last line starts no line of its own.
    if (m_lines.size() > 1 && m_lines.last().isEmpty())
        m_lines.removeLast();
    return true;
}

int ManifestText::sectionLine(const QString& section) const
{
    for (const auto& known : m_sections) {
        if (known.first == section)
            return known.second;
    }
    return 0;
}

const ManifestText::Entry* ManifestText::find(const QString& section, const QString& key) const
{
    const Entry* last = nullptr;
    for (const Entry& entry : m_entries) {
        if (entry.section == section && entry.key == key)
            last = &entry;
    }
    return last;
}

int ManifestText::keyLine(const QString& section, const QString& key) const
{
    const Entry* entry = find(section, key);
    return entry ? entry->line : 0;
}

int ManifestText::lineOf(const QString& section, const QString& key) const
{
    const int line = key.isEmpty() ? 0 : keyLine(section, key);
    return line ? line : sectionLine(section);
}

bool ManifestText::hasUnquoted(const QString& value, QChar c)
{
    bool quoted = false;
    for (int i = 0; i < value.size(); ++i) {
        if (value[i] == '\\' && quoted)
            ++i;
        else if (value[i] == '"')
            quoted = !quoted;
        else if (value[i] == c && !quoted)
            return true;
    }
    return false;
}
