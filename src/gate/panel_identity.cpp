#include "panel_identity.h"

#include "safe_file.h"
#include "stick_manifest.h"

#include <QDir>
#include <QFile>
#include <QStringList>
#include <unistd.h>

namespace {

const char kModelFile[] = "model";
const char kVersionFile[] = "version";
const char kPendingFile[] = "pending";
const char kProbeFile[] = ".probe";
const qint64 kMaxStateFileBytes = 8192;
const int kPendingLines = 4;

// The first line of a small file, without its line end and surrounding blanks; empty when the
// file is missing or not a plain file of its own.
QString firstLine(const QString& path, bool* present = nullptr)
{
    QByteArray text;
    const SafeFile::Read read = SafeFile::head(path, kMaxStateFileBytes, &text);
    if (present)
        *present = read != SafeFile::Missing;
    return QString::fromUtf8(text.left(text.indexOf('\n'))).trimmed();
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

QString PanelIdentity::versionFile() const
{
    return m_stateDir + "/" + kVersionFile;
}

QString PanelIdentity::model() const
{
    const QString model = firstLine(modelFile());
    return StickManifest::isModel(model) ? model : QString();
}

QString PanelIdentity::installedVersion() const
{
    const QString version = firstLine(versionFile());
    return StickManifest::isVersion(version) ? version : QString();
}

bool PanelIdentity::versionReadable() const
{
    bool present = false;
    const QString version = firstLine(versionFile(), &present);
    return !present || StickManifest::isVersion(version);
}

bool PanelIdentity::stateWritable() const
{
    const QString probe = m_stateDir + "/" + kProbeFile;
    const bool written = writeState(kProbeFile, QByteArray());
    QFile::remove(probe);
    return written;
}

bool PanelIdentity::writeState(const QString& name, const QByteArray& text) const
{
    // Written whole or not at all: a power cut must not leave half a version behind.
    if (!QDir().mkpath(m_stateDir) || !SafeFile::replace(m_stateDir + "/" + name, text))
        return false;
    sync();
    return true;
}

bool PanelIdentity::recordPending(const QString& version, const QByteArray& manifestSha256,
                                  const QString& panelLog)
{
    return writeState(kPendingFile,
                      version.toUtf8() + '\n' + manifestSha256 + '\n' + panelLog.toUtf8() + '\n');
}

QByteArray PanelIdentity::pendingManifest() const
{
    QByteArray text;
    SafeFile::read(m_stateDir + "/" + kPendingFile, kMaxStateFileBytes, &text);
    const QList<QByteArray> lines = text.split('\n');
    return lines.size() == kPendingLines ? lines[1] : QByteArray();
}

bool PanelIdentity::settlePending(const QString& successReport)
{
    QByteArray text;
    const QString note = m_stateDir + "/" + kPendingFile;
    if (SafeFile::read(note, kMaxStateFileBytes, &text) == SafeFile::Missing)
        return false;
    QFile::remove(note);
    sync();
    const QStringList lines = QString::fromUtf8(text).split('\n');
    if (lines.size() != kPendingLines || !StickManifest::isVersion(lines[0]))
        return false;
    return firstLine(lines[2]) == successReport &&
           writeState(kVersionFile, lines[0].toUtf8() + '\n');
}
