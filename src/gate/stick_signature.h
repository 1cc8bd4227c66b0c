#pragma once

#include <QByteArray>

// Ed25519 keys and detached signatures of stick manifests (libsodium), and their one-line text
// files: "ed25519-public BASE64", "ed25519-secret BASE64", "ed25519-signature BASE64".
class StickSignature
{
public:
    static constexpr int kPublicKeyBytes = 32;
    static constexpr int kSecretKeyBytes = 64;
    static constexpr int kSignatureBytes = 64;

    static constexpr char kPublicKind[] = "ed25519-public";
    static constexpr char kSecretKind[] = "ed25519-secret";
    static constexpr char kSignatureKind[] = "ed25519-signature";

    // A fresh key pair; false when the library cannot start.
    static bool generate(QByteArray* publicKey, QByteArray* secretKey);
    // The detached signature of message; empty for a malformed key.
    static QByteArray sign(const QByteArray& message, const QByteArray& secretKey);
    static bool verify(const QByteArray& message, const QByteArray& signature,
                       const QByteArray& publicKey);

    // "KIND BASE64\n".
    static QByteArray encode(const char* kind, const QByteArray& bytes);
    // The bytes of a text written by encode() with this kind and size; false for anything else.
    static bool decode(const QByteArray& text, const char* kind, int size, QByteArray* bytes);
    // Overwrites bytes with zeros and empties them: a secret key must not linger in memory. Only
    // this copy is wiped: the caller keeps secrets out of shared copies.
    static void wipe(QByteArray* bytes);

private:
    static bool ready();
};
