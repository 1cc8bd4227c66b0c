#pragma once

#include "generateconfiginfo.h"
#include "text_id.h"

#include <QColor>
#include <QObject>
#include <QString>

// Carries out a manifest's operations: copies are staged as ".tmp" files, verified by CRC-32 and
// committed with ".bak" backups; deletions; execute rights.
class file_operation_c : public QObject
{
    Q_OBJECT
public:
    // Which file of a copy record a check examines: the source or the staged copy.
    enum downLoadStatus
    {
        CHECK_SOURCE = 1,
        CHECK_STAGED = 2
    };

    file_operation_c(QString workDir, QObject* parent = nullptr);

    QString workDir() const { return m_workDir; }

    bool checkCopyFile(CopyFileSet set);
    bool copyFile(CopyFileSet set);
    bool copyFile(const copyFileInfo_s& info);
    bool copyRegualFile(const copyFileInfo_s& info);
    bool copyDirFile(const copyFileInfo_s& info);
    bool copyDirRecursive(const copyFileInfo_s& info);
    bool copyBaseFile(QString src, QString dest);
    bool isFileChecked(const copyFileInfo_s& info, downLoadStatus status);
    bool isFileCheckedCRC32(const copyFileInfo_s& info, downLoadStatus status);

    bool checkDelFile(DelFileSet set);
    bool removeFile(DelFileSet set, QString suffix);
    bool removeFile(const delFileInfo_s& info, QString suffix);
    bool removeRegularFile(const delFileInfo_s& info, QString suffix);
    bool removeDirFile(const delFileInfo_s& info, QString suffix);
    bool removeDirRecursive(const delFileInfo_s& info, QString suffix);

    bool renameFile(CopyFileSet set, QString suffix);
    bool renameFile(const copyFileInfo_s& info, QString suffix);
    bool renameRegualrFile(const copyFileInfo_s& info, QString suffix);
    bool renameDirName(const copyFileInfo_s& info, QString suffix);
    bool renameDirRecursive(const copyFileInfo_s& info, QString suffix);

    bool checkExeFile(ExeFileSet set);
    bool grantExeFile(ExeFileSet set);

signals:
    void emitMessage(QString strMessage, QColor color = Qt::black);

private:
    // Moves the file that staged replaces aside to ".bak" and puts staged in its place; a failed
    // final rename is reported with failureText (source and destination).
    bool commitStaged(const QString& staged, kel::TextId failureText);

    DelFileSet m_backupList;
    DelFileSet m_stagingList;
    QString m_workDir;
};
