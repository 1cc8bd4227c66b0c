#pragma once

#include <QString>

// "kelpack init": a commented package tree to start from, which builds and passes verify as it
// is: a package-wide copy, and one working example of each item, switched off.
class StarterTree
{
public:
    // Writes the tree into dir, which must be new or empty; false with error otherwise.
    static bool write(const QString& dir, QString* error);
};
