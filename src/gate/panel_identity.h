#pragma once

#include <QByteArray>
#include <QString>

// What the gate knows of its panel. The integrator writes the model into CONFIG/model; the gate
// writes the version of the last package installed into STATE/version. Before it starts a
// package's program it notes the run in STATE/pending (the version, the manifest's SHA-256 and
// the log that the run writes on the panel), so that a run ended by the panel's restart is
// settled at the gate's next start from what the panel kept, never from a stick.
class PanelIdentity
{
public:
    PanelIdentity(const QString& configDir, const QString& stateDir);

    QString modelFile() const;
    QString versionFile() const;
    // The model named by the model file; empty when the file is missing, unsafe or holds no
    // valid name.
    QString model() const;
    // The version of the last package installed; empty when none was recorded.
    QString installedVersion() const;
    // False when a version file exists but does not hold a version: the floor is unknown.
    bool versionReadable() const;
    // False when the state directory cannot be made or written.
    bool stateWritable() const;

    // Notes a run about to start. False when the state directory cannot be written.
    bool recordPending(const QString& version, const QByteArray& manifestSha256,
                       const QString& panelLog);
    // Settles a noted run: when the log it noted on the panel begins with successReport, its
    // version becomes the installed one. The note is removed in any case. True when a version
    // was recorded.
    bool settlePending(const QString& successReport);
    // The manifest's SHA-256 of the run still noted; empty when none is.
    QByteArray pendingManifest() const;

private:
    bool writeState(const QString& name, const QByteArray& text) const;
    QString m_configDir;
    QString m_stateDir;
};
