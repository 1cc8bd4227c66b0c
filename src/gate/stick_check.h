#pragma once

#include "stick_manifest.h"

#include <QString>
#include <QStringList>

class PanelIdentity;
class TrustStore;

// Decides whether a stick's program may run on this panel: the panel's keys and version are
// usable, the manifest reads, is signed by a trusted key (when the panel has keys), is for this
// panel's model and version, and the package folder and the folders beside it hold exactly the
// listed files, with their sizes and SHA-256 sums, and no link or special file. The cheap checks
// come first; file contents last, and where the gate runs the program from a copy, the sums are
// those of the copy's bytes.
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
        FileUnreadable,
        KeysUnusable,
        VersionUnreadable
    };

    explicit StickCheck(const QString& packageDir);

    // Without a panel the model and versions are not checked (the package tool on a PC).
    Result run(const TrustStore& keys, const PanelIdentity* panel);
    // The two halves of run(): everything but the files' contents, then the contents, each file
    // copied to the same path below copyTop when it is given.
    Result checkListing(const TrustStore& keys, const PanelIdentity* panel);
    Result checkContents(const QString& copyTop = QString());
    // For a stick without a manifest on a panel without keys: takes the files present now as
    // the set to copy, with their sizes and no sums.
    Result adoptListing();

    const StickManifest& manifest() const { return m_manifest; }
    QString manifestPath() const;
    QByteArray manifestSha256() const { return m_manifestSha256; }
    bool hasSignature() const;
    // What the result's text names, in order: a path relative to the stick's top directory,
    // quoted and escaped (StickTree::quoted); the manifest and the line where reading stopped;
    // the package's models and the panel's; the two versions compared; the model, version or
    // key file.
    const QStringList& arguments() const { return m_arguments; }
    // The manifest reader's reason, for ManifestUnreadable.
    const QString& detail() const { return m_detail; }

private:
    Result refuse(Result result, const QStringList& arguments);
    Result readManifest(const TrustStore& keys);
    Result checkPanel(const PanelIdentity& panel);

    QString m_package;
    QString m_folder;
    StickManifest m_manifest;
    QByteArray m_manifestSha256;
    QStringList m_arguments;
    QString m_detail;
};
