#include "package_writer.h"

#include "file_copier.h"
#include "qsettingsfactory.h"

#include <QFile>
#include <QSaveFile>

bool PackageWriter::scramble(const QString& plainPath, const QString& scrambledPath, QString* error)
{
    QFile plain(plainPath);
    if (!plain.open(QIODevice::ReadOnly)) {
        *error = plainPath + ": " + plain.errorString();
        return false;
    }
    QByteArray text = plain.readAll();
    const QByteArray bom("\xEF\xBB\xBF");
    if (text.startsWith(bom))
        text.remove(0, bom.size());
    if (!text.startsWith('#'))
        text.prepend("# update manifest\n");
    text.prepend(bom);
    QSaveFile out(scrambledPath);
    if (!out.open(QIODevice::WriteOnly)) {
        *error = scrambledPath + ": " + out.errorString();
        return false;
    }
    for (char& byte : text)
        byte = static_cast<char>(QSettingsFactory::scrambleByte(static_cast<unsigned char>(byte)));
    if (out.write(text) != text.size() || !out.commit()) {
        *error = scrambledPath + ": " + out.errorString();
        return false;
    }
    return true;
}

bool PackageWriter::unscramble(const QString& scrambledPath, const QString& plainPath,
                               QString* error)
{
    if (QSettingsFactory::decryptFile(scrambledPath, plainPath, QSettingsFactory::CRYPT_CHECKED))
        return true;
    *error = scrambledPath + ": not a scrambled manifest (no BOM and \"#\" first line after "
                             "unscrambling)";
    return false;
}

bool PackageWriter::crcTexts(const QString& path, QString* upper, QString* lower, QString* error)
{
    quint32 crc = 0;
    if (!FileCopier::crc32Of(path, &crc)) {
        *error = path + ": cannot be read";
        return false;
    }
    *lower = QString::number(crc, 16);
    *upper = lower->toUpper();
    return true;
}
