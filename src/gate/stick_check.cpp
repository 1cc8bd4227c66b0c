#include "stick_check.h"

#include "panel_identity.h"
#include "safe_file.h"
#include "stick_signature.h"
#include "stick_tree.h"
#include "trust_store.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <algorithm>

namespace {

// A signature file is one short line.
const qint64 kMaxSignatureFileBytes = 4096;
// A panel without a recorded version is older than any package.
const char kNoVersion[] = "0";

QString quoted(const QString& path)
{
    return StickTree::quoted(path.toUtf8());
}

} // namespace

StickCheck::StickCheck(const QString& packageDir)
    : m_package(QDir(packageDir).absolutePath()), m_folder(QFileInfo(m_package).fileName())
{
}

QString StickCheck::manifestPath() const
{
    return m_package + "/" + StickManifest::kFileName;
}

bool StickCheck::hasSignature() const
{
    return QFileInfo::exists(m_package + "/" + StickManifest::kSignatureName);
}

StickCheck::Result StickCheck::refuse(Result result, const QStringList& arguments)
{
    m_arguments = arguments;
    return result;
}

StickCheck::Result StickCheck::run(const TrustStore& keys, const PanelIdentity* panel)
{
    const Result listing = checkListing(keys, panel);
    return listing == Passed ? checkContents() : listing;
}

StickCheck::Result StickCheck::checkListing(const TrustStore& keys, const PanelIdentity* panel)
{
    m_arguments.clear();
    m_detail.clear();
    if (!keys.usable())
        return refuse(KeysUnusable, {quoted(keys.problemPath())});
    if (panel && !panel->versionReadable())
        return refuse(VersionUnreadable, {quoted(panel->versionFile())});
    const Result read = readManifest(keys);
    if (read != Passed)
        return read;
    if (panel) {
        const Result fits = checkPanel(*panel);
        if (fits != Passed)
            return fits;
    }
    QList<QByteArray> present;
    QByteArray unsafe;
    if (!StickTree::list(m_package, &present, &unsafe))
        return refuse(UnsafeEntry, {StickTree::quoted(unsafe)});
    std::sort(present.begin(), present.end());
    QSet<QByteArray> listed;
    for (const StickManifest::File& file : m_manifest.files)
        listed.insert(file.path.toUtf8());
    for (const QByteArray& path : present) {
        if (!listed.contains(path))
            return refuse(ExtraFile, {StickTree::quoted(path)});
    }
    const QSet<QByteArray> onStick(present.begin(), present.end());
    for (const StickManifest::File& file : m_manifest.files) {
        if (!onStick.contains(file.path.toUtf8()))
            return refuse(FileMissing, {quoted(file.path)});
    }
    return Passed;
}

StickCheck::Result StickCheck::readManifest(const TrustStore& keys)
{
    const QString relative = quoted(m_folder + "/" + StickManifest::kFileName);
    QByteArray text;
    switch (SafeFile::read(manifestPath(), StickManifest::kMaxBytes, &text)) {
    case SafeFile::Missing:
        // A signature without its manifest is a stick that lost a file, not an old stick.
        if (hasSignature()) {
            m_detail = "the signature is there but the manifest is missing";
            return refuse(ManifestUnreadable, {relative, "0"});
        }
        return keys.isEmpty() ? NoManifest : Unsigned;
    case SafeFile::Unsafe:
        return refuse(UnsafeEntry, {relative});
    case SafeFile::Unreadable:
        return refuse(FileUnreadable, {relative});
    case SafeFile::Ok:
        break;
    }
    m_manifestSha256 = QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex();
    int line = 0;
    if (!m_manifest.parse(text, &line, &m_detail))
        return refuse(ManifestUnreadable, {relative, QString::number(line)});
    if (m_manifest.folder != m_folder) {
        m_detail = "the manifest is for the package folder \"" + m_manifest.folder + "\"";
        return refuse(ManifestUnreadable, {relative, "2"});
    }
    if (keys.isEmpty())
        return Passed;
    QByteArray signatureText, signature;
    if (!hasSignature())
        return refuse(Unsigned, {});
    if (SafeFile::read(m_package + "/" + StickManifest::kSignatureName, kMaxSignatureFileBytes,
                       &signatureText) != SafeFile::Ok ||
        !StickSignature::decode(signatureText, StickSignature::kSignatureKind,
                                StickSignature::kSignatureBytes, &signature) ||
        !keys.verifies(text, signature))
        return refuse(BadSignature, {});
    return Passed;
}

StickCheck::Result StickCheck::checkPanel(const PanelIdentity& panel)
{
    const QString model = panel.model();
    if (model.isEmpty())
        return refuse(ModelUnknown, {quoted(panel.modelFile())});
    if (!m_manifest.models.contains(model))
        return refuse(OtherModel, {m_manifest.models.join(", "), model});
    const QString installed = panel.installedVersion();
    if (!installed.isEmpty() && StickManifest::compareVersions(m_manifest.version, installed) < 0)
        return refuse(OlderVersion, {m_manifest.version, installed});
    const QString current = installed.isEmpty() ? QString(kNoVersion) : installed;
    if (StickManifest::compareVersions(current, m_manifest.replaces) < 0)
        return refuse(PanelTooOld, {current, m_manifest.replaces});
    return Passed;
}

StickCheck::Result StickCheck::checkContents(const QString& copyTop)
{
    const QString top = StickTree::topDir(m_package);
    for (const StickManifest::File& file : m_manifest.files) {
        const QString path = top + "/" + file.path;
        QString copy;
        if (!copyTop.isEmpty()) {
            copy = copyTop + "/" + file.path;
            QDir().mkpath(QFileInfo(copy).path());
        }
        qint64 size = 0;
        QByteArray sha256;
        // A size that differs already tells; no need to read the whole file for it.
        if (QFileInfo(path).size() != file.size)
            return refuse(FileChanged, {quoted(file.path)});
        if (!StickTree::hash(path, &size, &sha256, copy))
            return refuse(FileUnreadable, {quoted(file.path)});
        if (size != file.size || (!file.sha256.isEmpty() && sha256 != file.sha256))
            return refuse(FileChanged, {quoted(file.path)});
    }
    return Passed;
}

StickCheck::Result StickCheck::adoptListing()
{
    QList<QByteArray> present;
    QByteArray unsafe;
    if (!StickTree::list(m_package, &present, &unsafe))
        return refuse(UnsafeEntry, {StickTree::quoted(unsafe)});
    m_manifest = StickManifest();
    m_manifest.folder = m_folder;
    const QString top = StickTree::topDir(m_package);
    for (const QByteArray& path : present) {
        StickManifest::File file;
        file.path = QString::fromUtf8(path);
        file.size = QFileInfo(top + "/" + file.path).size();
        m_manifest.files.append(file);
    }
    return Passed;
}
