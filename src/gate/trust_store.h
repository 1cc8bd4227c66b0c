#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// The public keys a panel trusts: every "*.pub" file of its key directory. A panel with no such
// file has no key installed and still runs sticks without a manifest; once one is there, every
// stick must be signed by a key that reads, so a damaged key file never lowers the guard.
class TrustStore
{
public:
    // An empty directory name: no key.
    explicit TrustStore(const QString& directory);

    // True when the directory holds no key file at all.
    bool isEmpty() const { return m_files.isEmpty(); }
    // True when one of the readable keys verifies signature over message.
    bool verifies(const QByteArray& message, const QByteArray& signature) const;
    // Key files that could not be read, each with the reason; they verify nothing.
    const QStringList& problems() const { return m_problems; }

private:
    QStringList m_files;
    QVector<QByteArray> m_keys;
    QStringList m_problems;
};
