#include "trust_store.h"

#include "safe_file.h"
#include "stick_signature.h"

#include <QDir>
#include <QFileInfo>

namespace {
// A key file is one short line; anything longer is not one.
const qint64 kMaxKeyFileBytes = 4096;
const char kKeySuffix[] = ".pub";
} // namespace

void TrustStore::addProblem(const QString& path, const QString& reason)
{
    if (m_problems.isEmpty())
        m_problemPath = path;
    m_problems << path + ": " + reason;
}

TrustStore::TrustStore(const QString& directory)
{
    if (directory.isEmpty())
        return;
    const QDir dir(directory);
    const QFileInfo info(directory);
    if (info.isSymLink() || !info.isDir() || !info.isReadable()) {
        addProblem(directory, "missing or not a readable folder: keep an empty folder for a "
                              "panel that runs unsigned sticks");
        return;
    }
    const QStringList names = dir.entryList(
        QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& name : names) {
        const QString path = dir.filePath(name);
        if (!name.endsWith(kKeySuffix)) {
            addProblem(path, "not a key file (*.pub): remove it from the key folder");
            continue;
        }
        QByteArray text, key;
        if (SafeFile::read(path, kMaxKeyFileBytes, &text) != SafeFile::Ok) {
            addProblem(path, "cannot be read as a regular file");
            continue;
        }
        if (!StickSignature::decode(text, StickSignature::kPublicKind,
                                    StickSignature::kPublicKeyBytes, &key)) {
            addProblem(path, QString("not a public key (expected one line \"") +
                                 StickSignature::kPublicKind + " BASE64\" from kelpack keygen)");
            continue;
        }
        m_keys << key;
    }
}

bool TrustStore::verifies(const QByteArray& message, const QByteArray& signature) const
{
    if (!usable())
        return false;
    for (const QByteArray& key : m_keys) {
        if (StickSignature::verify(message, signature, key))
            return true;
    }
    return false;
}
