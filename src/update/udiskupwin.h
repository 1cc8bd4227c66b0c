#pragma once

#include "generateconfiginfo.h"
#include "slienceupdate.h"
#include "text_id.h"

#include <QColor>
#include <QDialog>
#include <QList>
#include <QString>
#include <QStringList>

namespace Ui {
class UDiskUpWin;
}
class CLogger;
class MessagePane;
class QTimer;
class file_operation_c;

// The update dialog: runs a whole update from its first showing to the restart, and shows and
// logs every step.
class UDiskUpWin : public QDialog
{
    Q_OBJECT
public:
    explicit UDiskUpWin(QWidget* parent = nullptr);
    ~UDiskUpWin() override;

    void setLogger(CLogger* logger);
    void setParamInfo(const QuietUpdateParam& param);
    void getVornDir();
    bool parseIniFile();
    void init();
    void setText();

    bool updateData();
    bool CheckAllUpdateItem();
    void updatefinished();
    void CloseBySignal();
    int getProcessValue(int v);

    bool updateSystem();
    bool checkUpdateSystem();
    bool updateKelInfo();
    bool checkUpdateKelInfo();
    bool updateVorn_app();
    bool checkUpdateVorn_app();
    bool updateProject();
    bool checkUpdateProject();

    bool killProc();
    bool startBootService(QString name);
    bool stopBootService(QString name);
    bool autoRestart();
    bool executeCMD();
    bool changeWorkingDir(const char* path);
    void startBeep();
    void reBootKel();
    void clearKelbackup();

    // For the tests and the simulator: what the run has reached.
    int progress() const { return progressValue; }
    bool isFinished() const { return finished; }
    bool isSucceeded() const { return succeeded; }
    int countdownValue() const { return countdown; }
    QString vornDir() const { return workDir; }

signals:
    void startUpdateFiles();
    void emitMessage(QString strMessage, QColor color = Qt::black);
    void setErrorBackgrnd(Qt::GlobalColor gcolor);

public slots:
    void restartKel();
    void updateUi(int percent, QString tip);
    void startUpdate();
    void updateOutMessage(QString message, QColor color);
    void updateProcessBar();
    void Beep();
    void onTimer();

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    // The fixed body of the system and identity items, which differ only in their texts.
    struct ManifestItemTexts
    {
        kel::TextId parseFailed, parsed, beforeCopy, copyFailed, copied, deleteFailed, deleted,
            grantFailed, granted;
    };
    bool updateManifestItem(const ManifestItemTexts& texts);
    // Enters folder, verifies the item there and returns; failures go to report and log only.
    struct CheckTexts
    {
        kel::TextId cannotEnter, unreadable, failed, cannotReturn;
    };
    bool checkItem(const char* key, const char* folder, const CheckTexts& texts, int kind);
    void reportCheckFailure(kel::TextId logText);
    void reportCheckFailure(const QString& logLine);
    bool itemRequested(const char* key) const;
    // Runs an item of the item phase: check, folder changes and messages around worker.
    struct ItemTexts
    {
        const char* key;
        kel::TextId start;
        const char* folder;
        kel::TextId cannotEnter, failed, firstSuccess, cannotReturn, finalSuccess;
        int progressStep;
    };
    bool runItem(const ItemTexts& item, bool (UDiskUpWin::*check)(), bool (UDiskUpWin::*worker)());
    // The steps of startUpdate, in their order; false ends the run with failEnd.
    file_operation_c* beginRun();
    bool readPackageSettings();
    bool runItemPhase();
    bool applyCopySet(file_operation_c& op);
    bool applyDeleteSet(file_operation_c& op);
    bool applyExeSet(file_operation_c& op);
    void refreshLibraryCache();
    void endAfterFailedCommand(file_operation_c* op);
    void finishSucceeded(file_operation_c* op);
    void failEnd(file_operation_c* op);
    void showBox(kel::TextId title, const QString& text, bool warning);

    Ui::UDiskUpWin* ui;
    MessagePane* messagePane; // owned by the pane's text edit
    int progressAccum = 0;
    int progressMax = 0;
    int progressValue = 0;
    bool started = false;
    bool closeBySignal = false;
    int countdown = 0;
    QTimer* restartTimer = nullptr;
    QTimer* startTimer = nullptr;
    QTimer* progressTimer = nullptr;
    QTimer* beepTimer = nullptr;
    file_operation_c* fileOp = nullptr;
    GenerateConfigInfo* configInfo = nullptr;
    QList<VariantTable> prepareList;
    DelFileSet delFileSet;
    CopyFileSet copyFileSet;
    ExeFileSet exeFileSet;
    BoolTable updateItems;
    BoolTable backupItems;
    VariantTable restartItems;
    QString workDir;
    int beepCount = 0;
    bool finished = false;
    bool succeeded = false;
    CLogger* logger = nullptr;
    bool quiet = false;
    bool optR = false;
    bool optNr = false;
    int optS = 0;
    int pathMode = 1;
    int pathGiven = 0;
    QString path;
    QStringList otherArgs;
    bool lanGiven = false;
    QString lanId;
};

extern UDiskUpWin* pDiskUpWin;
