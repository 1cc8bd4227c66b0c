#include "starter_tree.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {
const char kStarter[] = ":/kelpack/starter";
}

bool StarterTree::write(const QString& dir, QString* error)
{
    const QFileInfo target(dir);
    if (target.exists() &&
        (!target.isDir() || !QDir(dir).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System |
                                               QDir::NoDotAndDotDot))) {
        *error = dir + ": exists and is not an empty folder; init never writes over files";
        return false;
    }
    QDirIterator it(kStarter, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString resource = it.next();
        const QString path = dir + resource.mid(int(sizeof kStarter) - 1);
        if (!QDir().mkpath(QFileInfo(path).path()) || !QFile::copy(resource, path)) {
            *error = path + ": cannot be written";
            return false;
        }
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                        QFile::ReadOther);
    }
    return true;
}
