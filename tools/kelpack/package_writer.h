#pragma once

#include <QString>
#include <QStringList>

// Writes the parts of an update package that people should not write by hand: scrambled
// manifests and checksums in the two renderings the updater compares.
class PackageWriter
{
public:
    // Scrambles a plain INI file; a missing UTF-8 BOM and "#" first line are added, since the
    // updater refuses a manifest without them.
    static bool scramble(const QString& plainPath, const QString& scrambledPath, QString* error);
    // Turns a scrambled manifest back into plain text.
    static bool unscramble(const QString& scrambledPath, const QString& plainPath, QString* error);
    // CRC-32 as the update manifests want it (upper case) and as project manifests want it
    // (lower case), both without leading zeros.
    static bool crcTexts(const QString& path, QString* upper, QString* lower, QString* error);
};
