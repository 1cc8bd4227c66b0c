#pragma once

#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

// The plain text of an INI manifest as a person wrote it: every section and key with its line,
// and each value as written, quotes included. The program reads values through QSettings; this
// keeps what QSettings forgets, so that a finding can name its line and say how a value is read.
class ManifestText
{
public:
    struct Entry
    {
        QString section; // empty for a key above the first section
        QString key;
        QString value; // as written, trimmed
        int line = 0;
    };

    // False when the file cannot be read.
    bool load(const QString& path);

    const QVector<Entry>& entries() const { return m_entries; }
    // Every line as an editor shows it: without its line end, a byte that is not UTF-8 as U+FFFD.
    const QStringList& lines() const { return m_lines; }
    // Sections in the order they first appear, with that line.
    const QVector<QPair<QString, int>>& sections() const { return m_sections; }
    // Lines of text that are neither a section, a key, a comment nor blank.
    const QVector<int>& strayLines() const { return m_stray; }

    int sectionLine(const QString& section) const;
    // The line QSettings takes the value from (the last one given); 0 when absent.
    int keyLine(const QString& section, const QString& key) const;
    // The line of a key, else of its section, else 0.
    int lineOf(const QString& section, const QString& key) const;
    const Entry* find(const QString& section, const QString& key) const;

    // True when c occurs outside double quotes: QSettings then splits the value into a list at
    // ",", or ends it at ";".
    static bool hasUnquoted(const QString& value, QChar c);

private:
    QStringList m_lines;
    QVector<Entry> m_entries;
    QVector<QPair<QString, int>> m_sections;
    QVector<int> m_stray;
};
