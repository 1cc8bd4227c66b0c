#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// The public keys a panel trusts: the "*.pub" files of its key directory. An empty directory
// is the panel's choice to run sticks without a manifest; anything else fails closed: a missing
// or unreadable directory, or any entry in it that is not a readable key, leaves the store
// unusable, so a damaged or misnamed key never lowers the guard.
class TrustStore
{
public:
    // An empty directory name: no key, by choice.
    explicit TrustStore(const QString& directory);

    // True when the directory holds nothing at all.
    bool isEmpty() const { return m_keys.isEmpty() && m_problems.isEmpty(); }
    // False when the directory or one of its entries could not be used.
    bool usable() const { return m_problems.isEmpty(); }
    // The first path that made the store unusable.
    const QString& problemPath() const { return m_problemPath; }
    // True when one of the keys verifies signature over message.
    bool verifies(const QByteArray& message, const QByteArray& signature) const;
    // What could not be used, each with the reason.
    const QStringList& problems() const { return m_problems; }

private:
    void addProblem(const QString& path, const QString& reason);

    QVector<QByteArray> m_keys;
    QStringList m_problems;
    QString m_problemPath;
};
