#pragma once

#include <QSettings>
#include <QString>

// Package INI files are stored scrambled byte by byte with a one-byte key, so that they cannot be
// read or edited in a text editor. This turns them back into plain INI files in a fixed temporary
// place and opens them, and scrambles plain files for the package tools.
class QSettingsFactory
{
public:
    enum CRYPT_TYPE
    {
        CRYPT_CHECKED = 0
    };

    // Unscrambles path to the fixed temporary file and opens it; null when that fails. The
    // caller owns the result. Calls must not overlap: they share the temporary file.
    static QSettings* createQSettings(QString path, QSettings::Format format);

    // Type 0 also requires the fourth unscrambled byte to be "#" (a BOM and a comment line).
    static bool decryptFile(QString srcPath, QString dstPath, int type);
    static bool encryptFile(QString srcPath, QString dstPath);

    // Tools on a PC unscramble into a place of their own instead of the panel's fixed path.
    static void setScratchPath(const QString& path);

    static unsigned char scrambleByte(unsigned char b);
    static unsigned char unscrambleByte(unsigned char b);

private:
    static QString s_scratchPath;
};
