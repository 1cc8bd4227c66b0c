#pragma once

#include <QByteArray>
#include <QString>

// Detached CMS signatures as SWUpdate checks them on the panel: DER, binary content, signed with
// an RSA key whose certificate allows e-mail protection.
class CmsSignature
{
public:
    // Signs data with the key and its certificate (PEM files) into signature.
    static bool sign(const QByteArray& data, const QString& keyFile, const QString& certFile,
                     QByteArray* signature, QString* error);
    // True when signature signs data and was made with certFile's certificate.
    static bool verify(const QByteArray& data, const QByteArray& signature, const QString& certFile,
                       QString* error);
};
