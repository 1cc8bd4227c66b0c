#pragma once

#include <QColor>
#include <QObject>
#include <QString>
#include <QVector>

// One file of a project package as "project.ini" lists it (not downLoadVorn_app::FILE_INFO).
struct FILE_INFO
{
    QString name;
    QString crc; // lower-case hexadecimal without leading zeros
    quint32 size = 0;
    QString desPath; // ends in "/"
    QString srcPath; // "./"
};

// Installs a new HMI project from the package folder "project" of the stick: size and CRC-32
// checks of package and installed copy, clearing of the chosen saved data, replacement of the
// project directory.
class downLoadPro : public QObject
{
    Q_OBJECT
public:
    enum downLoadStatus
    {
        CHECK_PACKAGE = 1,
        CHECK_INSTALLED = 2
    };

    downLoadPro(QString dir, QObject* parent = nullptr);

    bool init();
    bool startLoadProject(int& progress);
    bool checkProjectFiles();
    bool parseIniFile();
    bool checkFileCRC(downLoadStatus status);
    bool removeOldSaveData();
    bool removeOldProjectFiles();
    bool removeDir(const QString& path);
    bool updateProjectFile();
    bool CalcFileCrc(const QByteArray& path, quint32& crc);
    bool checkVersion(QString version);

    const QVector<FILE_INFO>& fileInfos() const { return m_fileInfos; }
    QString projectDir() const { return m_projectDir; }

signals:
    void emitMessage(QString strMessage, QColor color = Qt::black);

private:
    // False, with a red line, when the new project would not fit once the old one is gone.
    bool hasRoomForProject();

    QVector<FILE_INFO> m_fileInfos;
    QString m_projectDir;
    bool m_clearRecipe = false;
    bool m_clearHistory = false;
    bool m_clearAlarm = false;
    bool m_clearInitValue = false;
    QString m_loadDir;
};
