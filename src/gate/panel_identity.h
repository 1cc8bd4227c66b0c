#pragma once

#include <QByteArray>
#include <QString>

// What the gate knows of its panel. The integrator writes the model into CONFIG/model; the gate
// writes the version of the last package installed into STATE/version, and, while a package it
// let through runs, STATE/pending: the version, the run's log and the manifest's SHA-256, so
// that a run ended by the panel's restart is still recorded at the gate's next start.
class PanelIdentity
{
public:
    PanelIdentity(const QString& configDir, const QString& stateDir);

    QString modelFile() const;
    // The model named by the model file; empty when the file is missing or holds no valid name.
    QString model() const;
    // The version of the last package installed; empty when none was recorded.
    QString installedVersion() const;

    // Notes a run about to start. False when the state directory cannot be written.
    bool recordPending(const QString& version, const QString& logPath, const QString& manifestPath,
                       const QByteArray& manifestSha256);
    // Settles a noted run: when its log begins with successReport and its stick still carries
    // the same manifest, its version becomes the installed one. The note is removed in any
    // case. True when a version was recorded.
    bool settlePending(const QString& successReport);

private:
    bool writeState(const QString& name, const QByteArray& text);
    QString m_configDir;
    QString m_stateDir;
};
