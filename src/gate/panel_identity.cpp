#include "panel_identity.h"

#include "stick_manifest.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <unistd.h>

namespace {

const char kModelFile[] = "model";
const char kVersionFile[] = "version";
const char kPendingFile[] = "pending";
const qint64 kMaxStateFileBytes = 8192;

// The first line of a small file, without its line end and surrounding blanks.
QString firstLine(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    const QByteArray text = file.read(kMaxStateFileBytes);
    return QString::fromUtf8(text.left(text.indexOf('\n'))).trimmed();
}

QByteArray sha256Of(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > StickManifest::kMaxBytes)
        return QByteArray();
    QCryptographicHash sum(QCryptographicHash::Sha256);
    sum.addData(&file);
    return sum.result().toHex();
}

} // namespace

PanelIdentity::PanelIdentity(const QString& configDir, const QString& stateDir)
    : m_configDir(configDir), m_stateDir(stateDir)
{
}

QString PanelIdentity::modelFile() const
{
    return m_configDir + "/" + kModelFile;
}

QString PanelIdentity::model() const
{
    const QString model = firstLine(modelFile());
    return StickManifest::isModel(model) ? model : QString();
}

QString PanelIdentity::installedVersion() const
{
    const QString version = firstLine(m_stateDir + "/" + kVersionFile);
    return StickManifest::isVersion(version) ? version : QString();
}

bool PanelIdentity::writeState(const QString& name, const QByteArray& text)
{
    // Written whole or not at all: a power cut must not leave half a version behind.
    QSaveFile file(m_stateDir + "/" + name);
    if (!QDir().mkpath(m_stateDir) || !file.open(QIODevice::WriteOnly) ||
        file.write(text) != text.size() || !file.commit())
        return false;
    sync();
    return true;
}

bool PanelIdentity::recordPending(const QString& version, const QString& logPath,
                                  const QString& manifestPath, const QByteArray& manifestSha256)
{
    return writeState(kPendingFile,
                      (QStringList{version, logPath, manifestPath}.join('\n') + '\n').toUtf8() +
                          manifestSha256 + '\n');
}

bool PanelIdentity::settlePending(const QString& successReport)
{
    QFile note(m_stateDir + "/" + kPendingFile);
    if (!note.open(QIODevice::ReadOnly))
        return false;
    const QStringList lines = QString::fromUtf8(note.read(kMaxStateFileBytes)).split('\n');
    note.close();
    note.remove();
    sync();
    if (lines.size() != 5 || !StickManifest::isVersion(lines[0]))
        return false;
    const bool succeeded = firstLine(lines[1]) == successReport;
    const bool sameStick = !lines[3].isEmpty() && sha256Of(lines[2]) == lines[3].toLatin1();
    return succeeded && sameStick && writeState(kVersionFile, lines[0].toUtf8() + '\n');
}
