#include "tree_copier.h"

#include "byte_progress.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

TreeCopier::TreeCopier(const QString& treeDir) : m_tree(QFileInfo(treeDir).canonicalFilePath()) {}

bool TreeCopier::isJunk(const QString& name)
{
    return name == ".DS_Store" || name.startsWith("._") || name == "__MACOSX" ||
           name.compare("Thumbs.db", Qt::CaseInsensitive) == 0 ||
           name.compare("desktop.ini", Qt::CaseInsensitive) == 0;
}

bool TreeCopier::fail(const QString& message)
{
    m_error = message;
    return false;
}

bool TreeCopier::copyTo(const QString& target, const QString& progressStep)
{
    if (m_tree.isEmpty())
        return fail("the package tree does not exist");
    if (progressStep.isEmpty())
        return copyDir(m_tree, target);
    qint64 bytes = 0;
    QDirIterator it(m_tree, QDir::Files | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        bytes += it.fileInfo().size();
    }
    ByteProgress progress(progressStep, bytes);
    m_progress = &progress;
    const bool copied = copyDir(m_tree, target);
    m_progress = nullptr;
    return copied;
}

bool TreeCopier::copyDir(const QString& from, const QString& to)
{
    const QFileInfoList entries = QDir(from).entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& entry : entries) {
        if (isJunk(entry.fileName())) {
            m_warnings << entry.filePath() +
                              ": left out (folder metadata of another system, not package content)";
            continue;
        }
        if (!copyEntry(entry.filePath(), to + "/" + entry.fileName()))
            return false;
    }
    return true;
}

bool TreeCopier::copyEntry(const QString& from, const QString& to)
{
    const QFileInfo entry(from);
    if (entry.isSymLink()) {
        const QString target = entry.canonicalFilePath();
        if (target.isEmpty())
            return fail(from + ": a link to " + entry.symLinkTarget() +
                        ", which does not exist: put the file itself in the tree");
        if (target != m_tree && !target.startsWith(m_tree + "/"))
            return fail(from + ": a link to " + target +
                        " outside the package tree, which would put a file of this machine on "
                        "the stick: copy the file into the tree instead");
        if (!QFileInfo(target).isFile())
            return fail(from + ": a link to the folder " + target +
                        ": sticks hold no links, put the folder's files themselves in the tree");
    } else if (entry.isDir()) {
        return (QDir().mkdir(to) || fail(to + ": cannot be created")) && copyDir(from, to);
    } else if (!entry.isFile()) {
        return fail(from + ": not a regular file (a device, socket or pipe): remove it from "
                           "the tree");
    }
    // QFile::copy reads through a link, so a link inside the tree becomes the file it names.
    if (!QFile::copy(from, to))
        return fail(to + ": cannot be written");
    QFile::setPermissions(to, QFileInfo(from).permissions());
    if (m_progress)
        m_progress->add(entry.size());
    return true;
}
