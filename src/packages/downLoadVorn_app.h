#pragma once

#include <QColor>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>

// Installs a new runtime application from the package folder "vorn_app" of the stick into the
// panel's runtime directory: md5 checks of package and installed copy, clearing of the old files,
// copies with a delayed second pass, short names for versioned libraries, execute rights.
class downLoadVorn_app : public QObject
{
    Q_OBJECT
public:
    enum downLoadStatus
    {
        CHECK_PACKAGE = 1,
        CHECK_INSTALLED = 2
    };

    // One entry of the runtime package's "update.ini" (not the project package's FILE_INFO).
    struct FILE_INFO
    {
        QString file_name; // "*" stands for every regular file of the source directory
        QString reserved;
        qint32 reservedNumber = 0;
        QString des_path;
        QString src_path;
        QStringList delaycopy_file;
        QStringList delaycopy_hit;
    };

    downLoadVorn_app();

    bool parseIniFile();
    bool judgeFilenameRegExp(const QString& fileName, FILE_INFO*& info);
    // True for the start-up images that the clearing of a whole folder keeps.
    static bool keptWhenClearing(const QString& name);
    bool decryptIniFile();
    bool checkProjectFiles(QString& tip);

    bool checkFile(downLoadStatus status);
    bool removeOldProjectFiles();
    bool updateProjectFile();
    bool copyFile(QString dest, QString src);
    bool delFile(const QString& path);
    bool creatLink();
    bool changeFileRight();

    const QVector<FILE_INFO>& fileInfos() const { return m_fileInfos; }
    const QStringList& exeFiles() const { return m_exeFiles; }
    QString versionFile() const { return m_versionFile; }

signals:
    void startLoad();
    void emitMessage(QString strMessage, QColor color = Qt::black);
    void updateStatus(int, QString);

private:
    // False, with a red line, when the new files would not fit once the old ones are gone.
    bool hasRoomForUpdate();

    QVector<FILE_INFO> m_fileInfos;
    QString m_versionFile;
    QStringList m_exeFiles;
};
