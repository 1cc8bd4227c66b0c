#pragma once

#include "stick_manifest.h"

#include <QString>
#include <QStringList>
#include <functional>

class QSettings;

// Key pairs and manifests of sticks for the panel's gate (kelgate): "kelpack keygen",
// "kelpack sign", the signing step of "kelpack build", and what "info" and "verify" say about a
// stick's manifest.
class PackageSigner
{
public:
    // Runs "keygen ..." or "sign ..." and returns the exit status; -1 for any other command.
    static int run(const QStringList& args);

    // Writes NAME.key (readable by its owner only) and NAME.pub; never replaces either.
    static bool keygen(const QString& name, QString* error);

    // Lists the stick's files with the version, models and lowest replaced version of release
    // into the package folder's manifest, and signs it with the secret key file; without one
    // the manifest stays unsigned and an older signature is removed. Writes nothing when a
    // manifest of the package names a source the stick manifest would not cover.
    static bool sign(const QString& packageDir, StickManifest release, const QString& secretKeyFile,
                     QString* error);

    // The signing step of "kelpack build": a recipe with [stick] version gets a manifest. A stick
    // staged only to check its tree has no program to list: only its release data are checked.
    static bool signBuild(const QSettings& recipe, const QString& recipePath,
                          const QString& packageDir, const QString& secretKeyFile, bool staged,
                          QString* error);

    // The manifest as "kelpack info" shows it.
    static QString describe(const QString& packageDir);

    // The findings of "kelpack verify" about the manifest, checked with the public keys in
    // keysDir (none: the signature is not checked).
    using Report = std::function<void(bool error, const QString& file, const QString& message)>;
    static void audit(const QString& packageDir, const QString& keysDir, const Report& report);

private:
    // What is wrong with the release data, for a message that names where it came from.
    static QString releaseProblem(const StickManifest& release);
    // The sources outside the covered folders, one line each naming the file (of treeDir when
    // given), its line and key; empty when there are none.
    static QString sourcesProblem(const QString& packageDir, const QString& treeDir);
    static bool write(const QString& packageDir, StickManifest release,
                      const QString& secretKeyFile, QString* error);
};
