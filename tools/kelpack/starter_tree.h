#pragma once

#include <QString>
#include <QStringList>

// "kelpack init": a commented package tree to start from, which builds and passes verify as it
// is: a package-wide copy, and one working example of each item, switched off.
class StarterTree
{
public:
    // The languages a starter stick can speak: "en" (kelpack's English file, the default) and
    // "zh" (the updater's built-in table).
    static const QStringList& languages();
    // Writes the tree into dir, which must be new or empty, for one of languages(); false with
    // error otherwise.
    static bool write(const QString& dir, const QString& language, QString* error);
};
