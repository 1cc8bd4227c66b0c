#include "starter_tree.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {
const char kStarter[] = ":/kelpack/starter";
const char kRecipe[] = "/kelpack.ini";
// The recipe's line that picks the language, as the starter writes it, and for Chinese.
const char kEnglishLine[] = "\ntool_language=1\n";
const char kChineseLine[] = "\ntool_language=0\n";
} // namespace

const QStringList& StarterTree::languages()
{
    static const QStringList names{"en", "zh"};
    return names;
}

bool StarterTree::write(const QString& dir, const QString& language, QString* error)
{
    if (!languages().contains(language)) {
        *error = language + ": no such language; use " + languages().join(" or ");
        return false;
    }
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
    if (language == "en")
        return true;
    QFile recipe(dir + kRecipe);
    if (!recipe.open(QIODevice::ReadOnly)) {
        *error = recipe.fileName() + ": cannot be read back";
        return false;
    }
    QByteArray text = recipe.readAll();
    recipe.close();
    text.replace(kEnglishLine, kChineseLine);
    if (!recipe.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        recipe.write(text) != text.size()) {
        *error = recipe.fileName() + ": cannot be written";
        return false;
    }
    return true;
}
