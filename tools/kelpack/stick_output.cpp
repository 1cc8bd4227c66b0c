#include "stick_output.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

namespace {

// The path with every existing part resolved (links, "..") and the missing rest appended, so
// that a folder still to be made compares correctly with an existing tree.
QString resolvedPath(const QString& path)
{
    QString existing = QDir::cleanPath(QDir(path).absolutePath());
    QString rest;
    while (!QFileInfo::exists(existing) && existing != "/") {
        const int slash = existing.lastIndexOf('/');
        rest = existing.mid(slash) + rest;
        existing = slash > 0 ? existing.left(slash) : QString("/");
    }
    const QString canonical = QFileInfo(existing).canonicalFilePath();
    return QDir::cleanPath((canonical.isEmpty() ? existing : canonical) + rest);
}

bool isInside(const QString& path, const QString& folder)
{
    return path == folder || folder == "/" || path.startsWith(folder + "/");
}

// A fresh, hidden folder from a mkdtemp template; empty on failure.
QString makeTempDir(const QString& pathTemplate)
{
    QByteArray name = QFile::encodeName(pathTemplate);
    return mkdtemp(name.data()) ? QFile::decodeName(name) : QString();
}

bool renamePath(const QString& from, const QString& to)
{
    return ::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

} // namespace

StickOutput::StickOutput(const QString& outDir, bool force)
    : m_out(QDir::cleanPath(QDir(outDir).absolutePath())), m_force(force)
{
}

bool StickOutput::fail(const QString& message)
{
    m_error = message;
    return false;
}

bool StickOutput::check(const QString& treeDir)
{
    const QString tree = resolvedPath(treeDir);
    const QString out = resolvedPath(m_out);
    if (isInside(out, tree))
        return fail(m_out +
                    ": the output folder is the package tree or lies inside it; build "
                    "the stick into a folder outside " +
                    tree);
    if (isInside(tree, out))
        return fail(m_out + ": the output folder holds the package tree " + tree +
                    "; build the stick into a folder outside it");
    const QFileInfo info(m_out);
    m_exists = info.exists() || info.isSymLink();
    if (!m_exists)
        return true;
    if (!info.isDir())
        return fail(m_out + ": exists and is not a folder; name a new or empty folder");
    const bool empty =
        QDir(m_out)
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)
            .isEmpty();
    if (!empty && !m_force)
        return fail(m_out + ": the folder is not empty; name a new or empty folder, or give "
                            "--force to replace only the stick's own entries (the package "
                            "folder, language/, config/, qws/) and keep everything else");
    return true;
}

bool StickOutput::prepare()
{
    if (m_exists) {
        m_staging = makeTempDir(m_out + "/.kelpack-build-XXXXXX");
    } else {
        const QString parent = QFileInfo(m_out).absolutePath();
        QString top = parent;
        while (!QFileInfo::exists(QFileInfo(top).absolutePath()))
            top = QFileInfo(top).absolutePath();
        if (!QFileInfo::exists(parent)) {
            if (!QDir().mkpath(parent))
                return fail(parent + ": cannot be created");
            m_createdParent = top;
        }
        m_staging = makeTempDir(parent + "/." + QFileInfo(m_out).fileName() + ".kelpack-XXXXXX");
        // mkdtemp makes the folder private; once renamed it is the stick and gets the usual mode.
        const mode_t mask = umask(0);
        umask(mask);
        if (!m_staging.isEmpty())
            chmod(QFile::encodeName(m_staging).constData(), 0777 & ~mask);
    }
    return !m_staging.isEmpty() ||
           fail(m_out + ": no temporary folder can be made there: " + strerror(errno));
}

bool StickOutput::commit(const QStringList& stickEntries)
{
    if (!m_exists) {
        if (!renamePath(m_staging, m_out))
            return fail(m_out + ": cannot be created: " + strerror(errno));
        m_staging.clear();
        m_createdParent.clear();
        return true;
    }
    if (!moveEntries(stickEntries))
        return false;
    discard(); // holds only the entries that were replaced
    return true;
}

bool StickOutput::moveEntries(const QStringList& stickEntries)
{
    const QString replaced = m_staging + "/.replaced";
    if (!QDir().mkdir(replaced))
        return fail(replaced + ": cannot be created");
    QStringList putAside, putInPlace;
    auto rollBack = [&]() {
        for (const QString& entry : putInPlace)
            renamePath(m_out + "/" + entry, m_staging + "/" + entry);
        for (const QString& entry : putAside)
            renamePath(replaced + "/" + entry, m_out + "/" + entry);
    };
    for (const QString& entry : stickEntries) {
        const QString current = m_out + "/" + entry;
        const QString staged = m_staging + "/" + entry;
        if (QFileInfo::exists(current) || QFileInfo(current).isSymLink()) {
            if (!renamePath(current, replaced + "/" + entry)) {
                const QString why = strerror(errno);
                rollBack();
                return fail(current + ": cannot be replaced: " + why);
            }
            putAside << entry;
        }
        if (QFileInfo::exists(staged)) {
            if (!renamePath(staged, current)) {
                const QString why = strerror(errno);
                rollBack();
                return fail(current + ": cannot be written: " + why);
            }
            putInPlace << entry;
        }
    }
    return true;
}

void StickOutput::discard()
{
    if (!m_staging.isEmpty())
        QDir(m_staging).removeRecursively();
    m_staging.clear();
    if (!m_createdParent.isEmpty())
        QDir(m_createdParent).removeRecursively();
    m_createdParent.clear();
}
