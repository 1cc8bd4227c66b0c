#pragma once

#include <QString>
#include <QStringList>

// Puts a stick into its output folder without ever losing what was there. The stick is built
// in a hidden staging folder and moved into place only when it is complete: a new folder is
// staged beside it and renamed; an existing folder (possibly a stick's mount point, where a
// rename of the folder itself cannot work) gets the staging folder inside it and receives the
// stick's entries one by one. An existing folder must be empty unless forced, and forcing
// replaces only the stick's own entries; every other file there stays as it was.
class StickOutput
{
public:
    StickOutput(const QString& outDir, bool force);

    // Refuses an output folder that is the tree, lies inside it or holds it, a non-empty one
    // without force, and one that is not a folder.
    bool check(const QString& treeDir);
    // Makes the staging folder (and any missing parents of a new output folder).
    bool prepare();
    QString stagingDir() const { return m_staging; }
    // Moves the staged stick into place; on failure everything is put back as it was.
    bool commit(const QStringList& stickEntries);
    // Removes the staging folder and the parents prepare made: everything this run created.
    void discard();

    QString outDir() const { return m_out; }
    QString error() const { return m_error; }

private:
    bool fail(const QString& message);
    bool moveEntries(const QStringList& stickEntries);

    QString m_out;
    bool m_force;
    bool m_exists = false;
    QString m_staging;
    QString m_createdParent; // the topmost missing parent that prepare made, if any
    QString m_error;
};
