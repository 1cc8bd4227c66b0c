#pragma once

#include <QString>
#include <QVector>

// The stick files that a package's manifests name as sources of what the update installs.
class StickSources
{
public:
    struct Source
    {
        QString manifest; // relative to the package folder: "update.ini", "system/update.ini",
                          // "vorn_app/update.ini", "project/project.ini"
        QString key;      // where in it: "COPYFILE3/SRCPATH", "FILE2/file_name", "FILE1/NAME"
        QString value;    // as written
        QString path;     // resolved and cleaned, relative to the stick's top directory; empty when
                          // absolute or outside the top directory
    };
    // Reads the manifests of the package folder as the updater reads them. Manifests that are
    // absent are skipped (the updater skips them too). False when one that exists cannot be read,
    // with the reason in *error naming the file: a link or special file, one too large, not
    // scrambled, or with a count the updater refuses. Every item's manifest is read, whether
    // [UPDATE] applies the item or not; scrambled ones are unscrambled into a scratch folder of
    // its own, never the updater's fixed file.
    bool read(const QString& packageDir, QString* error);
    const QVector<Source>& sources() const { return m_sources; }
    // The sources that are absolute or lie outside the package folder and the folders beside it
    // (StickManifest::sideFolders()): what a signed manifest never covers.
    QVector<Source> outside() const;

private:
    QString m_folder; // the package folder's name
    QVector<Source> m_sources;
};
