#pragma once

#include <QColor>
#include <QList>
#include <QObject>
#include <QString>
#include <QVariant>
#include <map>
#include <memory>
#include <set>

class QSettings;

// One copy operation of a manifest. Processed by ascending priority, reading order kept among
// equal priorities.
struct copyFileInfo_s
{
    QString srcPath;
    QString destPath;
    QString crc32;    // upper case
    QString sizeText; // SIZE once more, as text
    quint32 size = 0;
    qint32 mode = 0; // 0 file, 1 a directory's files, 2 a directory tree; others do nothing
    qint32 authority = 0;
    qint32 priority = 0;

    bool operator<(const copyFileInfo_s& other) const { return priority < other.priority; }
};

// One delete operation; also the engine's record of its staged and backup files.
struct delFileInfo_s
{
    QString srcPath;
    qint32 mode = 0;
    qint32 authority = 0;
    qint32 priority = 0;

    bool operator<(const delFileInfo_s& other) const { return priority < other.priority; }
};

// One file to make executable; processed in path order.
struct exeFileInfo_s
{
    QString srcPath;

    bool operator<(const exeFileInfo_s& other) const { return srcPath < other.srcPath; }
};

using CopyFileSet = std::multiset<copyFileInfo_s>;
using DelFileSet = std::multiset<delFileInfo_s>;
using ExeFileSet = std::multiset<exeFileInfo_s>;
using VariantTable = std::multimap<QString, QVariant>;
using BoolTable = std::multimap<QString, bool>;

// Reads an update manifest: the copy, delete and grant-execute sets and the UPDATE, BACKUP,
// PREPARE1..3 and RESTART tables.
class GenerateConfigInfo : public QObject
{
    Q_OBJECT
public:
    GenerateConfigInfo();

    bool readIni(QString path);
    bool readFileOpConfig(QString path);

    void readFileOpConfig(QSettings* settings);
    void readUpdateConfig(QSettings* settings);
    void readBackUpconfig(QSettings* settings);
    void readPrepareConfig(QSettings* settings);
    void readRestartConfig(QSettings* settings);

    DelFileSet getDelFileSet() const { return m_delFileSet; }
    CopyFileSet getCopyFileSet() const { return m_copyFileSet; }
    ExeFileSet getExeFileSet() const { return m_exeFileSet; }
    BoolTable getUpdateInfo() const { return m_updateInfo; }
    BoolTable getBackUpInfo() const { return m_backUpInfo; }
    VariantTable getReStartInfo() const { return m_restartInfo; }
    QList<VariantTable> getPrepareInfo() const { return m_prepareInfo; }

signals:
    void emitMessage(QString strMessage, QColor color = Qt::black);

private:
    // Opens a manifest, reporting a missing or unreadable file in red; null then.
    std::unique_ptr<QSettings> openManifest(const QString& path);
    static bool countsPlausible(QSettings* settings);

    QList<VariantTable> m_prepareInfo;
    DelFileSet m_delFileSet;
    CopyFileSet m_copyFileSet;
    ExeFileSet m_exeFileSet;
    BoolTable m_updateInfo;
    BoolTable m_backUpInfo;
    VariantTable m_restartInfo;
};
