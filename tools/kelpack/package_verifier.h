#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

class QSettings;

// Runs on a PC every check the updater makes before it changes anything, with the updater's own
// classes, and reports what would fail or surprise on the panel. One finding per problem.
class PackageVerifier
{
public:
    struct Finding
    {
        bool error; // false: a warning
        QString file;
        QString key;
        QString message;
    };

    explicit PackageVerifier(const QString& packageDir);
    // The panels' public keys, to check the stick manifest's signature with.
    void setTrustedKeys(const QString& keysDir) { m_keysDir = keysDir; }
    void verify();
    const QVector<Finding>& findings() const { return m_findings; }
    bool hasErrors() const;
    QString text() const;
    QString json() const;

private:
    void add(bool error, const QString& file, const QString& key, const QString& message);
    // A scrambled or plain manifest as plain settings in a scratch file; null when unreadable.
    QSettings* openScrambled(const QString& path);
    void checkRawText(const QString& file, const QString& plainPath);
    void checkCounts(const QString& file, QSettings& settings, const char* section,
                     const char* countKey);
    void checkOperationManifest(const QString& folder, const QString& file, bool packageWide);
    void checkRuntime();
    void checkProject();
    bool itemRequested(QSettings& settings, const char* key) const;

    QString m_dir;
    QString m_keysDir;
    QString m_scratch;
    int m_opened = 0;
    QVector<Finding> m_findings;
};
