#include "stick_check.h"

#include "panel_identity.h"
#include "stick_signature.h"
#include "stick_tree.h"
#include "trust_store.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <fcntl.h>
#include <unistd.h>

namespace {

// A signature file is one short line.
const qint64 kMaxSignatureFileBytes = 4096;
// A panel without a recorded version is older than any package.
const char kNoVersion[] = "0";

// Up to limit + 1 bytes of a regular file opened without following a link; false when it
// cannot be read.
bool readSmallFile(const QString& path, qint64 limit, QByteArray* bytes)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    QFile file;
    if (fd < 0 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    *bytes = file.read(limit + 1);
    return file.error() == QFileDevice::NoError;
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
    m_arguments.clear();
    m_detail.clear();
    const Result read = readManifest(keys);
    if (read != Passed)
        return read;
    if (panel) {
        const Result fits = checkPanel(*panel);
        if (fits != Passed)
            return fits;
    }
    return checkFiles();
}

StickCheck::Result StickCheck::readManifest(const TrustStore& keys)
{
    const QString relative = m_folder + "/" + StickManifest::kFileName;
    const QFileInfo info(manifestPath());
    if (!info.exists() && !info.isSymLink()) {
        // A signature without its manifest is a stick that lost a file, not an old stick.
        if (hasSignature()) {
            m_detail = "the signature is there but the manifest is missing";
            return refuse(ManifestUnreadable, {relative, "0"});
        }
        return keys.isEmpty() ? NoManifest : Unsigned;
    }
    QByteArray text;
    if (info.isSymLink() || !info.isFile())
        return refuse(UnsafeEntry, {relative});
    if (!readSmallFile(manifestPath(), StickManifest::kMaxBytes, &text))
        return refuse(FileUnreadable, {relative});
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
    if (!readSmallFile(m_package + "/" + StickManifest::kSignatureName, kMaxSignatureFileBytes,
                       &signatureText) ||
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
        return refuse(ModelUnknown, {panel.modelFile()});
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

StickCheck::Result StickCheck::checkFiles()
{
    QStringList present;
    QString unsafe;
    if (!StickTree::list(m_package, &present, &unsafe))
        return refuse(UnsafeEntry, {unsafe});
    present.sort();
    QSet<QString> listed;
    for (const StickManifest::File& file : m_manifest.files)
        listed.insert(file.path);
    for (const QString& path : present) {
        if (!listed.contains(path))
            return refuse(ExtraFile, {path});
    }
    const QSet<QString> onStick(present.begin(), present.end());
    for (const StickManifest::File& file : m_manifest.files) {
        if (!onStick.contains(file.path))
            return refuse(FileMissing, {file.path});
    }
    const QString top = StickTree::topDir(m_package);
    for (const StickManifest::File& file : m_manifest.files) {
        const QString path = top + "/" + file.path;
        qint64 size = 0;
        QByteArray sha256;
        // A size that differs already tells; no need to read the whole file for it.
        if (QFileInfo(path).size() != file.size)
            return refuse(FileChanged, {file.path});
        if (!StickTree::hash(path, &size, &sha256))
            return refuse(FileUnreadable, {file.path});
        if (size != file.size || sha256 != file.sha256)
            return refuse(FileChanged, {file.path});
    }
    return Passed;
}
