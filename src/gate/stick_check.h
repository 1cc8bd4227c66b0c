#pragma once

#include "stick_manifest.h"

#include <QString>
#include <QStringList>

class PanelIdentity;
class TrustStore;

// Decides whether a stick's program may run on this panel: the manifest reads, is signed by a
// trusted key (when the panel has keys), is for this panel's model and version, and the package
// folder and the folders beside it hold exactly the listed files, with their sizes and SHA-256
// sums, and no link or special file. The cheap checks come first; file contents last.
class StickCheck
{
public:
    enum Result
    {
        Passed,
        NoManifest, // and no key installed: the stick runs as before signing existed
        ManifestUnreadable,
        Unsigned,
        BadSignature,
        ModelUnknown,
        OtherModel,
        OlderVersion,
        PanelTooOld,
        UnsafeEntry,
        ExtraFile,
        FileMissing,
        FileChanged,
        FileUnreadable
    };

    explicit StickCheck(const QString& packageDir);

    // Without a panel the model and versions are not checked (the package tool on a PC).
    Result run(const TrustStore& keys, const PanelIdentity* panel);

    const StickManifest& manifest() const { return m_manifest; }
    QString manifestPath() const;
    QByteArray manifestSha256() const { return m_manifestSha256; }
    bool hasSignature() const;
    // What the result's text names, in order: a path relative to the stick's top directory;
    // the manifest and the line where reading stopped; the package's models and the panel's;
    // the two versions compared; the model file.
    const QStringList& arguments() const { return m_arguments; }
    // The manifest reader's reason, for ManifestUnreadable.
    const QString& detail() const { return m_detail; }

private:
    Result refuse(Result result, const QStringList& arguments);
    Result readManifest(const TrustStore& keys);
    Result checkPanel(const PanelIdentity& panel);
    Result checkFiles();

    QString m_package;
    QString m_folder;
    StickManifest m_manifest;
    QByteArray m_manifestSha256;
    QStringList m_arguments;
    QString m_detail;
};
