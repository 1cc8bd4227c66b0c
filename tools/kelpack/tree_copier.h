#pragma once

#include <QString>
#include <QStringList>

class ByteProgress;

// Copies a package tree as it will travel on a stick: regular files and folders only. A link
// that leaves the tree would put a file of this machine on the stick, so it is refused, as are
// dangling links, links to folders and special files; a link to a file inside the tree is copied
// as that file. The metadata files other systems leave in folders are left out with a warning:
// they would otherwise be installed on the panel with the folder they sit in.
class TreeCopier
{
public:
    explicit TreeCopier(const QString& treeDir);

    // Copies the tree's content into target (an existing, empty folder). With a step name, a
    // large tree counts its bytes on the terminal under that name.
    bool copyTo(const QString& target, const QString& progressStep = QString());

    // True for the names of other systems' folder metadata (".DS_Store", "._x", "__MACOSX",
    // "Thumbs.db", "desktop.ini").
    static bool isJunk(const QString& name);

    QString error() const { return m_error; }
    // One line per entry left out, naming its path in the tree.
    QStringList warnings() const { return m_warnings; }

private:
    bool copyDir(const QString& from, const QString& to);
    bool copyEntry(const QString& from, const QString& to);
    bool fail(const QString& message);

    QString m_tree; // canonical
    QString m_error;
    QStringList m_warnings;
    ByteProgress* m_progress = nullptr; // while copyTo counts
};
