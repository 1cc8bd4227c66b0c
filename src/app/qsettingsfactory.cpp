#include "qsettingsfactory.h"

#include "def.h"
#include "panel_library.h"
#include "utf8_text.h"

#include <QDateTime>
#include <QFile>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 kBlockSize = 255;

// The shared block loop of both directions. check: the plausibility test of a type-0 unscramble.
bool transformFile(const QString& srcPath, const QString& dstPath,
                   unsigned char (*transform)(unsigned char), bool check)
{
    QFile src(srcPath);
    QFile dst(dstPath);
    if (!src.open(QIODevice::ReadOnly) || !dst.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;

    bool ok = true;
    qint64 remaining = src.size();
    qint64 block = qMin(remaining, kBlockSize);
    bool first = true;
    unsigned char buffer[kBlockSize];
    for (;;) {
        std::fill(buffer, buffer + kBlockSize, 0);
        const qint64 n = src.read(reinterpret_cast<char*>(buffer), block);
        if (n < 0 || (n == 0 && block > 0))
            break;
        for (qint64 i = 0; i < n; ++i)
            buffer[i] = transform(buffer[i]);
        if (first && check && (n < 4 || buffer[3] != '#')) {
            ok = false;
            break;
        }
        first = false;
        if (n > 0 && dst.write(reinterpret_cast<const char*>(buffer), n) != n) {
            ok = false;
            break;
        }
        remaining -= kBlockSize;
        if (remaining < 0)
            break;
        block = qMin(remaining, kBlockSize);
        if (block == 0)
            break;
    }
    src.close();
    dst.close();
    PanelLibrary::instance().sync();
    return ok;
}

// QSettings keeps parsed INI files by path and parses one again only when its size or its
// millisecond timestamp changed; two same-sized manifests unscrambled within one millisecond would
// read as the first. Every unscrambled copy therefore gets a timestamp of its own.
void stampUniquely(const char* path)
{
    static qint64 lastStampMs = 0;
    lastStampMs = qMax(QDateTime::currentMSecsSinceEpoch(), lastStampMs + 1);
    const timespec stamp{static_cast<time_t>(lastStampMs / 1000),
                         static_cast<long>(lastStampMs % 1000) * 1000000L};
    const timespec times[2] = {stamp, stamp};
    utimensat(AT_FDCWD, path, times, 0);
}

} // namespace

unsigned char QSettingsFactory::scrambleByte(unsigned char b)
{
    const unsigned char t = b ^ kel::kScrambleKey;
    return static_cast<unsigned char>((t << 5) | (t >> 3));
}

unsigned char QSettingsFactory::unscrambleByte(unsigned char b)
{
    const unsigned char r = static_cast<unsigned char>((b << 3) | (b >> 5));
    return r ^ kel::kScrambleKey;
}

QString QSettingsFactory::s_scratchPath = QString::fromLatin1(kel::kDecryptFilePath);

void QSettingsFactory::setScratchPath(const QString& path)
{
    s_scratchPath = path;
}

QSettings* QSettingsFactory::createQSettings(QString path, QSettings::Format format)
{
    if (!decryptFile(path, s_scratchPath, CRYPT_CHECKED))
        return nullptr;
    stampUniquely(QFile::encodeName(s_scratchPath).constData());
    auto* settings = new QSettings(s_scratchPath, format);
    kel::useUtf8Ini(*settings);
    return settings;
}

bool QSettingsFactory::decryptFile(QString srcPath, QString dstPath, int type)
{
    return transformFile(srcPath, dstPath, unscrambleByte, type == CRYPT_CHECKED);
}

bool QSettingsFactory::encryptFile(QString srcPath, QString dstPath)
{
    return transformFile(srcPath, dstPath, scrambleByte, false);
}
