#pragma once

#include "verify_report.h"

#include <QString>
#include <QStringList>

class ManifestText;

// Checks a manifest's text against what the program reads from it: sections and keys it does not
// know (with the nearest one it knows), values that the settings reader cuts, splits or reads as
// something else than written, keys given twice, and numbered sections that their count leaves
// out or that are missing.
class ManifestLint
{
public:
    enum Kind
    {
        PackageManifest, // "update.ini" of the package root
        ItemManifest,    // "system/update.ini", "kelinfo/update.ini"
        RuntimeManifest, // "vorn_app/update.ini"
        ProjectManifest, // "project/project.ini"
        Recipe           // "kelpack.ini"
    };

    // allowAuto: the text is a tree's, whose SIZE and checksums may say "auto".
    ManifestLint(Kind kind, const QString& file, bool allowAuto, VerifyReport* report);
    void check(const ManifestText& text);

    // The candidate nearest to word (case, a transposition, up to two letters); empty when none
    // is near.
    static QString nearest(const QString& word, const QStringList& candidates);

private:
    struct Section
    {
        bool known = false;
        QStringList keys;    // the keys the program reads
        bool anyKey = false; // every key is read (BACKUP)
        bool noEffect = false;
        QString note; // why an unknown section or a section without effect is ignored
    };
    Section rule(const QString& section) const;
    QStringList sectionNames(const QString& like) const;
    void checkValue(const QString& section, const QString& key, const QString& value, int line);
    void checkCounts(const ManifestText& text, const QString& countSection, const QString& countKey,
                     const QString& recordBase);
    void add(bool error, int line, const QString& section, const QString& key,
             const QString& problem, const QString& fix);

    Kind m_kind;
    QString m_file;
    bool m_allowAuto;
    VerifyReport* m_report;
};
