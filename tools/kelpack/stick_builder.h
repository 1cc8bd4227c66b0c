#pragma once

#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

class QSettings;

// Turns a readable package tree into a stick ready to copy. The tree holds "kelpack.ini" (the
// recipe: package folder name, program, languages), plain manifests whose SIZE, CRC32 and CRC
// values may say "auto", and the payload files. The manifests are rewritten through the same
// settings reader the program uses, so that every value reads back exactly; "update.ini" files
// are scrambled, the runtime folder gets its md5 list. Nothing that was in the output folder is
// lost (see StickOutput).
class StickBuilder
{
public:
    StickBuilder(const QString& treeDir, const QString& outDir, const QString& program, bool force);
    bool build();
    // With a secret key file the stick gets a signed manifest; without one, a recipe that names
    // a version still gets an unsigned one.
    void setSigningKey(const QString& secretKeyFile) { m_signingKey = secretKeyFile; }
    QString error() const { return m_error; }
    // Entries of the tree left out, one line each.
    QStringList warnings() const { return m_warnings; }

private:
    // Writes the whole stick into the empty folder stick; returns the stick's top entries.
    bool buildStick(const QString& stick, QStringList* entries);
    bool fail(const QString& message);
    bool writeManifest(const QString& dir, const QString& name, bool scramble, bool projectStyle);
    // The "auto" sizes and checksums of a manifest's records, as (key, value) pairs.
    bool fillAuto(QSettings& source, const QString& dir, bool projectStyle,
                  QVector<QPair<QString, QString>>* values);
    bool writeChecksumList(const QString& runtimeDir);

    QString m_tree;
    QString m_out;
    QString m_program;
    bool m_force;
    QString m_signingKey;
    QString m_error;
    QStringList m_warnings;
};
