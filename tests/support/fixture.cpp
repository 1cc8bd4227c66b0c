#include "fixture.h"

#include "qsettingsfactory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <zlib.h>

namespace fixture {

void writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(bytes);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeScrambledIni(const QString& path, const QByteArray& iniText)
{
    QByteArray text = "\xEF\xBB\xBF# test manifest\n" + iniText;
    for (char& byte : text)
        byte = static_cast<char>(QSettingsFactory::scrambleByte(static_cast<unsigned char>(byte)));
    writeFile(path, text);
}

QString crcText(const QByteArray& bytes)
{
    const uLong crc = crc32(0L, reinterpret_cast<const Bytef*>(bytes.constData()),
                            static_cast<uInt>(bytes.size()));
    return QString::number(static_cast<quint32>(crc), 16).toUpper();
}

QList<QPair<QString, QColor>> messages(const QSignalSpy& spy)
{
    QList<QPair<QString, QColor>> result;
    for (const QList<QVariant>& call : spy)
        result.append({call.at(0).toString(), call.value(1).value<QColor>()});
    return result;
}

QStringList texts(const QSignalSpy& spy)
{
    QStringList result;
    for (const auto& message : messages(spy))
        result << message.first;
    return result;
}

QStringList redTexts(const QSignalSpy& spy)
{
    QStringList result;
    for (const auto& message : messages(spy)) {
        if (message.second == QColor(Qt::red))
            result << message.first;
    }
    return result;
}

} // namespace fixture
