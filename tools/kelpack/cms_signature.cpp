#include "cms_signature.h"

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <QFile>
#include <memory>

namespace {

template <typename T, void (*Free)(T*)> struct Deleter
{
    void operator()(T* p) const { Free(p); }
};
using Bio = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using Cert = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using Store = std::unique_ptr<X509_STORE, Deleter<X509_STORE, X509_STORE_free>>;
using Cms = std::unique_ptr<CMS_ContentInfo, Deleter<CMS_ContentInfo, CMS_ContentInfo_free>>;

// The library's own reason for the last failure, for the end of a message.
QString sslReason()
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0)
        return QString();
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return QString(" (%1)").arg(QString::fromLatin1(text));
}

Bio readPem(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = path + ": cannot read it: " + file.errorString();
        return nullptr;
    }
    const QByteArray bytes = file.readAll();
    Bio bio(BIO_new(BIO_s_mem()));
    BIO_write(bio.get(), bytes.constData(), bytes.size());
    return bio;
}

Cert readCert(const QString& path, QString* error)
{
    Bio bio = readPem(path, error);
    if (!bio)
        return nullptr;
    Cert cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!cert)
        *error = path + ": not a PEM certificate" + sslReason() +
                 ": name the certificate (.pem/.crt) that goes with the signing key";
    return cert;
}

} // namespace

bool CmsSignature::sign(const QByteArray& data, const QString& keyFile, const QString& certFile,
                        QByteArray* signature, QString* error)
{
    Cert cert = readCert(certFile, error);
    if (!cert)
        return false;
    Bio keyBio = readPem(keyFile, error);
    if (!keyBio)
        return false;
    Key key(PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, nullptr));
    if (!key) {
        *error = keyFile + ": not an unencrypted PEM private key" + sslReason() +
                 ": name the key file of the certificate " + certFile;
        return false;
    }
    if (X509_check_private_key(cert.get(), key.get()) != 1) {
        ERR_clear_error();
        *error = keyFile + ": this key does not belong to the certificate " + certFile +
                 ": name the matching pair";
        return false;
    }
    Bio content(BIO_new_mem_buf(data.constData(), data.size()));
    const unsigned flags = CMS_DETACHED | CMS_BINARY | CMS_NOSMIMECAP;
    Cms cms(CMS_sign(cert.get(), key.get(), nullptr, content.get(), flags));
    Bio out(BIO_new(BIO_s_mem()));
    if (!cms || i2d_CMS_bio(out.get(), cms.get()) != 1) {
        *error = "cannot sign with " + keyFile + sslReason();
        return false;
    }
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(out.get(), &bytes);
    *signature = QByteArray(bytes, int(size));
    return true;
}

bool CmsSignature::verify(const QByteArray& data, const QByteArray& signature,
                          const QString& certFile, QString* error)
{
    Cert cert = readCert(certFile, error);
    if (!cert)
        return false;
    Bio sigBio(BIO_new_mem_buf(signature.constData(), signature.size()));
    Cms cms(d2i_CMS_bio(sigBio.get(), nullptr));
    if (!cms) {
        *error = "the signature is not a DER CMS structure" + sslReason();
        return false;
    }
    // The certificate is the trust anchor; CMS_verify checks it for S/MIME signing (e-mail
    // protection) as the panel's SWUpdate does by default.
    Store store(X509_STORE_new());
    X509_STORE_add_cert(store.get(), cert.get());
    Bio content(BIO_new_mem_buf(data.constData(), data.size()));
    if (CMS_verify(cms.get(), nullptr, store.get(), content.get(), nullptr, CMS_BINARY) != 1) {
        *error = "the signature does not match with the certificate " + certFile + sslReason();
        return false;
    }
    return true;
}
