#include "stick_signature.h"

#include <sodium.h>

bool StickSignature::ready()
{
    // sodium_init() picks the implementations once; later calls only report that it did.
    static const bool started = sodium_init() >= 0;
    return started;
}

bool StickSignature::generate(QByteArray* publicKey, QByteArray* secretKey)
{
    if (!ready())
        return false;
    publicKey->resize(kPublicKeyBytes);
    secretKey->resize(kSecretKeyBytes);
    return crypto_sign_keypair(reinterpret_cast<unsigned char*>(publicKey->data()),
                               reinterpret_cast<unsigned char*>(secretKey->data())) == 0;
}

QByteArray StickSignature::sign(const QByteArray& message, const QByteArray& secretKey)
{
    if (!ready() || secretKey.size() != kSecretKeyBytes)
        return QByteArray();
    QByteArray signature(kSignatureBytes, '\0');
    if (crypto_sign_detached(reinterpret_cast<unsigned char*>(signature.data()), nullptr,
                             reinterpret_cast<const unsigned char*>(message.constData()),
                             static_cast<unsigned long long>(message.size()),
                             reinterpret_cast<const unsigned char*>(secretKey.constData())) != 0)
        return QByteArray();
    return signature;
}

bool StickSignature::verify(const QByteArray& message, const QByteArray& signature,
                            const QByteArray& publicKey)
{
    if (!ready() || signature.size() != kSignatureBytes || publicKey.size() != kPublicKeyBytes)
        return false;
    return crypto_sign_verify_detached(
               reinterpret_cast<const unsigned char*>(signature.constData()),
               reinterpret_cast<const unsigned char*>(message.constData()),
               static_cast<unsigned long long>(message.size()),
               reinterpret_cast<const unsigned char*>(publicKey.constData())) == 0;
}

QByteArray StickSignature::encode(const char* kind, const QByteArray& bytes)
{
    return QByteArray(kind) + ' ' + bytes.toBase64() + '\n';
}

bool StickSignature::decode(const QByteArray& text, const char* kind, int size, QByteArray* bytes)
{
    const QByteArray prefix = QByteArray(kind) + ' ';
    if (!text.startsWith(prefix) || !text.endsWith('\n'))
        return false;
    QByteArray base64 = text.mid(prefix.size(), text.size() - prefix.size() - 1);
    auto decoded = QByteArray::fromBase64Encoding(base64, QByteArray::AbortOnBase64DecodingErrors);
    // Only the one text encode() writes: no padding variants, blanks or trailing lines.
    QByteArray again = decoded.decoded.toBase64();
    const bool valid = decoded && decoded.decoded.size() == size && again == base64;
    wipe(&again);
    wipe(&base64);
    if (!valid) {
        wipe(&decoded.decoded);
        return false;
    }
    wipe(bytes);
    bytes->swap(decoded.decoded);
    return true;
}

void StickSignature::wipe(QByteArray* bytes)
{
    if (!bytes->isEmpty())
        sodium_memzero(bytes->data(), size_t(bytes->size()));
    bytes->clear();
}
