#include "trust_store.h"

#include "stick_signature.h"

#include <QDir>
#include <QFile>

namespace {
// A key file is one short line; anything longer is not one.
const qint64 kMaxKeyFileBytes = 4096;
} // namespace

TrustStore::TrustStore(const QString& directory)
{
    if (directory.isEmpty())
        return;
    const QDir dir(directory);
    for (const QString& name :
         dir.entryList({"*.pub"}, QDir::Files | QDir::System | QDir::Hidden, QDir::Name)) {
        const QString path = dir.filePath(name);
        m_files << path;
        QFile file(path);
        QByteArray key;
        if (!file.open(QIODevice::ReadOnly)) {
            m_problems << path + ": cannot be read: " + file.errorString();
            continue;
        }
        const QByteArray text = file.read(kMaxKeyFileBytes);
        if (!StickSignature::decode(text, StickSignature::kPublicKind,
                                    StickSignature::kPublicKeyBytes, &key)) {
            m_problems << path + ": not a public key (expected one line \"" +
                              StickSignature::kPublicKind + " BASE64\" from kelpack keygen)";
            continue;
        }
        m_keys << key;
    }
}

bool TrustStore::verifies(const QByteArray& message, const QByteArray& signature) const
{
    for (const QByteArray& key : m_keys) {
        if (StickSignature::verify(message, signature, key))
            return true;
    }
    return false;
}
