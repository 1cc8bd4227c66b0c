#include "udiskupwin.h"

#include "message_pane.h"

#include "clogger.h"
#include "def.h"
#include "do_cmd.h"
#include "downLoadPro.h"
#include "downLoadVorn_app.h"
#include "file_operation_c.h"
#include "kill_process.h"
#include "maincfg.h"
#include "multilingual_management.h"
#include "package_keys.h"
#include "panel_library.h"
#include "screen_setting.h"
#include "ui_udiskupwin.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTextBlockFormat>
#include <QTextCursor>
#include <QTimer>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <sys/reboot.h>
#include <unistd.h>

UDiskUpWin* pDiskUpWin = nullptr;

namespace {

// The first entry of key in a table, if any.
template <typename Table>
const typename Table::mapped_type* firstEntry(const Table& table, const char* key)
{
    const auto it = table.find(QString::fromLatin1(key));
    return it == table.end() ? nullptr : &it->second;
}

// A line as the pane and the log show it: paths in the runtime directory relative to it.
QString shown(QString message)
{
    return message.replace(kel::kVornAppDir, ".");
}

QStringList allEntries(const VariantTable& table, const char* key)
{
    QStringList values;
    const auto range = table.equal_range(QString::fromLatin1(key));
    for (auto it = range.first; it != range.second; ++it)
        values << it->second.toString();
    return values;
}

} // namespace

UDiskUpWin::UDiskUpWin(QWidget* parent) : QDialog(parent), ui(new Ui::UDiskUpWin)
{
    getVornDir();
    fileOp = new (std::nothrow) file_operation_c(workDir, nullptr);
    configInfo = new (std::nothrow) GenerateConfigInfo();
    ui->setupUi(this);
    init();
    if (fileOp)
        connect(fileOp, &file_operation_c::emitMessage, this, &UDiskUpWin::updateOutMessage);
    if (configInfo)
        connect(configInfo, &GenerateConfigInfo::emitMessage, this, &UDiskUpWin::updateOutMessage);
    connect(this, &UDiskUpWin::emitMessage, this, &UDiskUpWin::updateOutMessage);
    restartTimer = new QTimer();
    connect(restartTimer, &QTimer::timeout, this, &UDiskUpWin::onTimer);
    ui->textEdit->setWordWrapMode(QTextOption::WrapAnywhere);
    messagePane = new MessagePane(ui->textEdit);
}

UDiskUpWin::~UDiskUpWin()
{
    delete restartTimer;
    delete fileOp;
    delete configInfo;
    delete ui;
}

void UDiskUpWin::setLogger(CLogger* log)
{
    logger = log;
}

void UDiskUpWin::setParamInfo(const QuietUpdateParam& param)
{
    quiet = param.quiet;
    optR = param.optR;
    optNr = param.optNr;
    optS = param.optS;
    pathMode = param.pathMode;
    pathGiven = param.pathGiven;
    path = param.path;
    otherArgs = param.otherArgs;
    lanGiven = param.lanGiven;
    lanId = param.lanId;
}

void UDiskUpWin::getVornDir()
{
    workDir = kel::kVornWorkDirVariable;
    for (const QString& entry : QProcess::systemEnvironment()) {
        if (entry.startsWith(workDir))
            workDir = entry.section('=', 1, 1) + "/";
    }
}

bool UDiskUpWin::parseIniFile()
{
    emit emitMessage(kel::text(kel::kReadingManifest), Qt::black);
    if (!configInfo || !configInfo->readIni(kel::keys::kManifest))
        return false;
    prepareList = configInfo->getPrepareInfo();
    copyFileSet = configInfo->getCopyFileSet();
    delFileSet = configInfo->getDelFileSet();
    exeFileSet = configInfo->getExeFileSet();
    updateItems = configInfo->getUpdateInfo();
    backupItems = configInfo->getBackUpInfo();
    restartItems = configInfo->getReStartInfo();
    return true;
}

void UDiskUpWin::init()
{
    beepCount = 0;
    started = false;
    closeBySignal = false;
    setWindowTitle(kel::text(kel::kUpdateToolTitle));
    setWindowFlags(MainCfg::dialogFlags());
    setWindowIcon(QIcon(" "));
    const QScreen* screen = ScreenSetting::getTransformedScreen();
    if (screen && screen->size().width() < 481 && screen->size().height() < 481)
        setFixedSize(472, 234);
    setText();
    ui->progressBar->setStyleSheet("QProgressBar{border:2px solid "
                                   "white;}QProgressBar::chunk {background-color:rgb(0, 47, "
                                   "167);width:10px;margin:0px;}");
    ui->progressBar->setTextVisible(false);
    ui->progressBar->setRange(0, 100);
    ui->progressBar->setValue(0);
    ui->btnRestart->setEnabled(false);
    progressTimer = new QTimer(this);
    progressAccum = 0;
    progressMax = 0;
    progressValue = 0;
    connect(progressTimer, &QTimer::timeout, this, &UDiskUpWin::updateProcessBar);
    progressTimer->start(300);
    ui->label->setText(kel::text(kel::kDoNotPullStick));
    ui->label_2->setText(kel::text(kel::kTotalProgress));
    ui->btnRestart->setText(kel::text(kel::kUpdateRestartButton));
    connect(ui->btnRestart, &QPushButton::clicked, this, &UDiskUpWin::restartKel);
}

void UDiskUpWin::setText()
{
    QTextCursor cursor = ui->textEdit->textCursor();
    QTextBlockFormat format = cursor.blockFormat();
    format.setBottomMargin(3.0);
    cursor.setBlockFormat(format);
    ui->textEdit->setTextCursor(cursor);
    ui->textEdit->setReadOnly(true);
}

// ---- window and notices

void UDiskUpWin::updateOutMessage(QString message, QColor color)
{
    ui->textEdit->setTextColor(color);
    message = shown(message);
    if (color == QColor(Qt::red)) {
        setPalette(QPalette(QColor(Qt::red)));
        emit setErrorBackgrnd(Qt::red);
    }
    messagePane->append(message, color);
    if (logger)
        logger->write(message + "\n");
}

void UDiskUpWin::updateProcessBar()
{
    ui->progressBar->setValue(progressValue);
}

void UDiskUpWin::updateUi(int percent, QString tip)
{
    if (percent == 100)
        progressAccum = 100;
    else
        progressAccum += percent;
    ui->progressBar->setValue(progressAccum);
    messagePane->append(tip, ui->textEdit->textColor());
}

void UDiskUpWin::showBox(kel::TextId title, const QString& text, bool warning)
{
    QMessageBox box(warning ? QMessageBox::Warning : QMessageBox::Information, kel::text(title),
                    text, QMessageBox::NoButton, this);
    box.setWindowFlags(MainCfg::dialogFlags());
    box.setWindowIcon(QIcon(" "));
    box.addButton(kel::text(kel::kOkButton), QMessageBox::AcceptRole);
    box.exec();
}

// ---- sequence

void UDiskUpWin::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    if (!started) {
        int delay = 10;
        if (optS == 1) {
            if (optNr)
                ui->btnRestart->setEnabled(false);
        } else {
            // The package files lie beside the program.
            changeWorkingDir(QCoreApplication::applicationDirPath().toUtf8().constData());
            delay = 500;
        }
        if (!startTimer) {
            startTimer = new QTimer(this);
            connect(startTimer, &QTimer::timeout, this, &UDiskUpWin::startUpdate);
        }
        startTimer->start(delay);
    }
    const QRect desktop = QGuiApplication::primaryScreen()->geometry();
    move(desktop.width() / 2 - frameGeometry().width() / 2,
         desktop.height() / 2 - frameGeometry().height() / 2);
}

int UDiskUpWin::getProcessValue(int v)
{
    if (v > 99)
        return 80; // a failed run never shows a full bar
    return v < 0 ? 0 : v;
}

void UDiskUpWin::failEnd(file_operation_c* op)
{
    ui->btnRestart->setEnabled(true);
    delete op;
    progressValue = getProcessValue(progressValue);
    updatefinished();
}

// The whole run, in its numbered steps; the first failure ends it where it stands.
void UDiskUpWin::startUpdate()
{
    // 1-3. The run begins, with file operations of its own.
    file_operation_c* op = beginRun();
    // 4-5. The package's update.ini.
    if (!readPackageSettings())
        return failEnd(op);
    // 6. The programs it names to stop.
    if (!killProc())
        return failEnd(op);
    // 7. Its items: system, runtime, project, identity.
    if (!runItemPhase())
        return failEnd(op);
    // 8-14. Its package-wide copy, delete and execute sets.
    if (!applyCopySet(*op) || !applyDeleteSet(*op) || !applyExeSet(*op))
        return failEnd(op);
    // 15. Its boot services.
    if (!autoRestart())
        return failEnd(op);
    // 16. The library cache, for the libraries just installed.
    refreshLibraryCache();
    // 17. Its command.
    if (!executeCMD())
        return endAfterFailedCommand(op);
    // 18. Success: the countdown to the restart.
    finishSucceeded(op);
}

file_operation_c* UDiskUpWin::beginRun()
{
    if (startTimer)
        startTimer->stop();
    started = true;
    finished = false;
    emit emitMessage(kel::text(kel::kStartingUpdate), Qt::black);
    file_operation_c* op = new file_operation_c(workDir);
    connect(op, &file_operation_c::emitMessage, this, &UDiskUpWin::updateOutMessage);
    progressMax = 100;
    progressValue = 1;
    return op;
}

bool UDiskUpWin::readPackageSettings()
{
    if (!parseIniFile()) {
        emit emitMessage(kel::text(kel::kUpdateIniUnreadable), Qt::red);
        return false;
    }
    emit emitMessage(kel::text(kel::kUpdateIniRead), Qt::black);
    progressValue += 1;
    // The one yield of the run: the dialog paints before the long steps.
    QCoreApplication::processEvents();
    return true;
}

bool UDiskUpWin::runItemPhase()
{
    progressValue += 1;
    if (!updateData()) {
        emit emitMessage(kel::text(kel::kUpdateFailed), Qt::red);
        return false;
    }
    return true;
}

bool UDiskUpWin::applyCopySet(file_operation_c& op)
{
    progressValue += 1;
    emit emitMessage(kel::text(kel::kCopyingListedFiles), Qt::black);
    if (optS == 1 && !op.checkCopyFile(copyFileSet)) {
        reportCheckFailure(kel::kCopyCheckFailedLog);
        emit emitMessage(kel::text(kel::kCopyCheckFailed), Qt::red);
        return false;
    }
    if (!op.copyFile(copyFileSet)) {
        emit emitMessage(kel::text(kel::kCopyingFilesFailed), Qt::red);
        return false;
    }
    PanelLibrary::instance().sync();
    emit emitMessage(kel::text(kel::kFilesCopied), Qt::black);
    progressValue += 5;
    return true;
}

bool UDiskUpWin::applyDeleteSet(file_operation_c& op)
{
    emit emitMessage(kel::text(kel::kDeletingListedFiles), Qt::black);
    if (optS == 1 && !op.checkDelFile(delFileSet)) {
        reportCheckFailure(kel::kDeleteCheckFailedLog);
        emit emitMessage(kel::text(kel::kDeleteCheckFailed), Qt::red);
        return false;
    }
    if (!op.removeFile(delFileSet, QString())) {
        emit emitMessage(kel::text(kel::kDeletingFilesFailed), Qt::red);
        return false;
    }
    PanelLibrary::instance().sync();
    emit emitMessage(kel::text(kel::kFilesDeleted), Qt::black);
    progressValue += 1;
    return true;
}

bool UDiskUpWin::applyExeSet(file_operation_c& op)
{
    emit emitMessage(kel::text(kel::kMakingListedFilesExecutable), Qt::black);
    if (optS == 1 && !op.checkExeFile(exeFileSet)) {
        if (logger) {
            // This report line is written as it stands, not looked up.
            logger->writeReport(QString::fromUtf8("[失败]\n"));
            logger->write(kel::text(kel::kExecutableCheckFailedLog));
            logger->close();
        }
        emit emitMessage(kel::text(kel::kExecutableCheckFailed), Qt::red);
        return false;
    }
    if (!op.grantExeFile(exeFileSet)) {
        emit emitMessage(kel::text(kel::kMakingFilesExecutableFailed), Qt::red);
        return false;
    }
    emit emitMessage(kel::text(kel::kFilesMadeExecutable), Qt::black);
    progressValue = 90;
    return true;
}

void UDiskUpWin::refreshLibraryCache()
{
    PanelLibrary::instance().sync();
    progressValue += 1;
    PanelLibrary::instance().sync();
    setenv("LD_LIBRARY_PATH", kel::kVornAppDir, 1);
    DoCmd::run("ldconfig");
    PanelLibrary::instance().sync();
}

void UDiskUpWin::endAfterFailedCommand(file_operation_c* op)
{
    // The command's failure leaves the progress where the run got to.
    ui->btnRestart->setEnabled(true);
    delete op;
    updatefinished();
}

void UDiskUpWin::finishSucceeded(file_operation_c* op)
{
    PanelLibrary::instance().sync();
    succeeded = true;
    finished = true;
    progressValue = progressMax;
    reBootKel();
    if (logger)
        logger->close();
    emit emitMessage(kel::text(kel::kUpdateDonePressRestart), Qt::black);
    ui->btnRestart->setEnabled(true);
    if (!optNr)
        startBeep();
    countdown = 10;
    restartTimer->start(1000);
    delete op;
}

bool UDiskUpWin::itemRequested(const char* key) const
{
    const bool* value = firstEntry(updateItems, key);
    return value && *value;
}

bool UDiskUpWin::runItem(const ItemTexts& item, bool (UDiskUpWin::*check)(),
                         bool (UDiskUpWin::*worker)())
{
    if (itemRequested(item.key)) {
        if (optS == 1 && !(this->*check)())
            return false;
        emit emitMessage(kel::text(item.start), Qt::black);
        const QString back = QDir::currentPath();
        if (!QDir::setCurrent(item.folder)) {
            emit emitMessage(kel::text(item.cannotEnter), Qt::red);
            return false;
        }
        if (!(this->*worker)()) {
            emit emitMessage(kel::text(item.failed), Qt::red);
            return false;
        }
        if (item.firstSuccess)
            emit emitMessage(kel::text(item.firstSuccess), Qt::black);
        if (!QDir::setCurrent(back)) {
            emit emitMessage(kel::text(item.cannotReturn), Qt::red);
            return false;
        }
        emit emitMessage(kel::text(item.finalSuccess), Qt::black);
    }
    progressValue += item.progressStep;
    return true;
}

bool UDiskUpWin::updateData()
{
    progressValue += 1;
    // Key, start, folder; cannot enter, failed, first success, cannot return, final success;
    // progress step.
    static const ItemTexts system{
        kel::keys::kUpSystem,     kel::kUpdatingSystem,     kel::keys::kSystemFolder,
        kel::kSystemCannotEnter,  kel::kSystemUpdateFailed, kel::kNoText,
        kel::kSystemCannotReturn, kel::kSystemUpdated,      10};
    static const ItemTexts runtime{
        kel::keys::kUpVornApp,     kel::kUpdatingRuntime,     kel::keys::kVornAppFolder,
        kel::kRuntimeCannotEnter,  kel::kRuntimeUpdateFailed, kel::kRuntimeUpdatedEllipsis,
        kel::kRuntimeCannotReturn, kel::kRuntimeUpdated,      10};
    static const ItemTexts project{
        kel::keys::kUpProject,     kel::kUpdatingUserProject, kel::keys::kProjectFolder,
        kel::kProjectCannotEnter,  kel::kProjectUpdateFailed, kel::kProjectUpdatedEllipsis,
        kel::kProjectCannotReturn, kel::kUserProjectUpdated,  10};
    static const ItemTexts identity{
        kel::keys::kUpKelInfo,      kel::kUpdatingStickIdentity, kel::keys::kKelInfoFolder,
        kel::kIdentityCannotEnter,  kel::kIdentityUpdateFailed,  kel::kNoText,
        kel::kIdentityCannotReturn, kel::kStickIdentityUpdated,  1};
    if (!runItem(system, &UDiskUpWin::checkUpdateSystem, &UDiskUpWin::updateSystem) ||
        !runItem(runtime, &UDiskUpWin::checkUpdateVorn_app, &UDiskUpWin::updateVorn_app) ||
        !runItem(project, &UDiskUpWin::checkUpdateProject, &UDiskUpWin::updateProject) ||
        !runItem(identity, &UDiskUpWin::checkUpdateKelInfo, &UDiskUpWin::updateKelInfo))
        return false;
    // Looked up for compatibility with older packages; the item has no effect.
    firstEntry(updateItems, kel::keys::kUpSysConfig);
    return true;
}

void UDiskUpWin::reportCheckFailure(const QString& logLine)
{
    if (!logger)
        return;
    logger->writeReport(kel::text(kel::kReportFailed));
    logger->write(logLine);
    logger->close();
}

void UDiskUpWin::reportCheckFailure(kel::TextId logText)
{
    reportCheckFailure(kel::text(logText));
}

bool UDiskUpWin::CheckAllUpdateItem()
{
    file_operation_c op(workDir);
    if (!parseIniFile()) {
        reportCheckFailure(kel::kPreflightUpdateIniUnreadable);
        return false;
    }
    if (!checkUpdateSystem() || !checkUpdateVorn_app() || !checkUpdateProject() ||
        !checkUpdateKelInfo())
        return false;
    if (!op.checkCopyFile(copyFileSet)) {
        reportCheckFailure(kel::kPreflightCopyCheckFailed);
        return false;
    }
    if (!op.checkDelFile(delFileSet)) {
        reportCheckFailure(kel::kPreflightDeleteCheckFailed);
        return false;
    }
    if (!op.checkExeFile(exeFileSet)) {
        reportCheckFailure(kel::kPreflightExecutableCheckFailed);
        return false;
    }
    return true;
}

void UDiskUpWin::onTimer()
{
    emit emitMessage(kel::text(kel::kRestartingInSeconds).arg(countdown), Qt::black);
    if (countdown != 0) {
        countdown -= 1;
        return;
    }
    restartTimer->stop();
    countdown = 10;
    restartKel();
}

void UDiskUpWin::updatefinished()
{
    finished = true;
    if (!quiet)
        return;
    if (logger) {
        logger->writeReport(succeeded ? kel::text(kel::kReportSucceeded) + "\n"
                                      : kel::text(kel::kReportFailed));
        logger->close();
    }
    // Leaves and re-enters the current directory before the final sync, as the panel expects.
    const QByteArray current = QFile::encodeName(QDir::currentPath());
    const QByteArray parent = current.left(current.lastIndexOf('/'));
    if (chdir(parent.isEmpty() ? "/" : parent.constData()) == 0 && chdir(current.constData()) != 0)
        perror("chdir");
    PanelLibrary::instance().sync();
    if (optR) {
        restartKel();
        close();
    }
    if (optNr)
        close();
}

void UDiskUpWin::closeEvent(QCloseEvent* event)
{
    // Lines and progress wait for the event queue, which a closing dialog may never serve
    // again: the last screen shows everything said up to here.
    messagePane->flush();
    repaint();
    if (optS != 1 && !optNr) {
        if (closeBySignal) {
            event->accept();
        } else if (!finished) {
            event->ignore();
            showBox(kel::kWarningTitle, kel::text(kel::kCloseOnlyWhenDone), true);
        } else {
            restartKel();
        }
        return;
    }
    if (closeBySignal || finished)
        event->accept();
    else
        event->ignore();
}

void UDiskUpWin::CloseBySignal()
{
    closeBySignal = true;
    close();
}

// ---- items

bool UDiskUpWin::updateManifestItem(const ManifestItemTexts& texts)
{
    GenerateConfigInfo* reader = new (std::nothrow) GenerateConfigInfo();
    file_operation_c* op = new (std::nothrow) file_operation_c(workDir, nullptr);
    std::unique_ptr<GenerateConfigInfo> readerOwner(reader);
    std::unique_ptr<file_operation_c> opOwner(op);
    if (!reader || !op)
        return false;
    connect(reader, &GenerateConfigInfo::emitMessage, this, &UDiskUpWin::updateOutMessage);
    connect(op, &file_operation_c::emitMessage, this, &UDiskUpWin::updateOutMessage);

    progressValue += 1;
    if (!reader->readFileOpConfig(QString(kel::keys::kManifest))) {
        emit emitMessage(kel::text(texts.parseFailed), Qt::red);
        return false;
    }
    emit emitMessage(kel::text(texts.parsed), Qt::black);
    progressValue += 1;
    const DelFileSet delSet = reader->getDelFileSet();
    const CopyFileSet copySet = reader->getCopyFileSet();
    const ExeFileSet exeSet = reader->getExeFileSet();

    if (texts.beforeCopy)
        emit emitMessage(kel::text(texts.beforeCopy), Qt::black);
    if (!op->copyFile(copySet)) {
        emit emitMessage(kel::text(texts.copyFailed), Qt::red);
        return false;
    }
    PanelLibrary::instance().sync();
    emit emitMessage(kel::text(texts.copied), Qt::black);
    progressValue += 1;
    if (!op->removeFile(delSet, QString())) {
        emit emitMessage(kel::text(texts.deleteFailed), Qt::red);
        return false;
    }
    PanelLibrary::instance().sync();
    emit emitMessage(kel::text(texts.deleted), Qt::black);
    progressValue += 1;
    if (!op->grantExeFile(exeSet)) {
        emit emitMessage(kel::text(texts.grantFailed), Qt::red);
        return false;
    }
    emit emitMessage(kel::text(texts.granted), Qt::black);
    return true;
}

bool UDiskUpWin::updateSystem()
{
    return updateManifestItem({kel::kSystemImageManifestUnreadable, kel::kSystemImageManifestRead,
                               kel::kNoText, kel::kSystemImageCopyFailed,
                               kel::kSystemImageFilesCopied, kel::kSystemImageDeleteFailed,
                               kel::kSystemImageFilesDeleted, kel::kSystemImageExecutableFailed,
                               kel::kSystemImageFilesExecutable});
}

bool UDiskUpWin::updateKelInfo()
{
    return updateManifestItem({kel::kIdentityManifestUnreadable, kel::kIdentityManifestRead,
                               kel::kIdentityCopyingFiles, kel::kIdentityCopyFailed,
                               kel::kIdentityFilesCopied, kel::kIdentityDeleteFailed,
                               kel::kIdentityFilesDeleted, kel::kIdentityExecutableFailed,
                               kel::kIdentityFilesExecutable});
}

bool UDiskUpWin::updateVorn_app()
{
    std::unique_ptr<downLoadVorn_app> installer(new (std::nothrow) downLoadVorn_app());
    if (!installer)
        return false;
    connect(installer.get(), &downLoadVorn_app::emitMessage, this, &UDiskUpWin::updateOutMessage);
    if (!installer->checkFile(downLoadVorn_app::CHECK_PACKAGE))
        return false;
    progressValue += 1;
    if (!installer->parseIniFile())
        return false;
    progressValue += 1;
    if (!installer->removeOldProjectFiles())
        return false;
    emit emitMessage(kel::text(kel::kRuntimeOldDataRemoved), Qt::black);
    progressValue += 1;
    if (!installer->updateProjectFile())
        return false;
    PanelLibrary::instance().sync();
    emit emitMessage(kel::text(kel::kRuntimeDataCopied), Qt::black);
    if (!changeWorkingDir(kel::kVornAppDir))
        return false;
    progressValue += 1;
    if (!installer->checkFile(downLoadVorn_app::CHECK_INSTALLED))
        return false;
    if (!installer->decryptIniFile())
        return false;
    PanelLibrary::instance().sync();
    progressValue += 1;
    if (!installer->creatLink())
        return false;
    PanelLibrary::instance().sync();
    if (!installer->changeFileRight())
        return false;
    progressValue += 1;
    PanelLibrary::instance().sync();
    return true;
}

bool UDiskUpWin::updateProject()
{
    std::unique_ptr<downLoadPro> installer(new (std::nothrow) downLoadPro(workDir, nullptr));
    if (!installer)
        return false;
    connect(installer.get(), &downLoadPro::emitMessage, this, &UDiskUpWin::updateOutMessage);
    return installer->startLoadProject(progressValue);
}

namespace {
enum CheckKind
{
    ManifestCheck,
    RuntimeCheck,
    ProjectCheck
};
}

bool UDiskUpWin::checkItem(const char* key, const char* folder, const CheckTexts& texts, int kind)
{
    if (!itemRequested(key))
        return true;
    const QString back = QDir::currentPath();
    if (!QDir::setCurrent(folder)) {
        reportCheckFailure(texts.cannotEnter);
        return false;
    }
    // The workers' lines name the file that failed: they go to the log in front of the check's
    // line, never to the pane; a check that passes adds nothing.
    QStringList workerLines;
    const auto keep = [&workerLines](const QString& line) { workerLines << line; };
    bool readable = true;
    bool verified = true;
    if (kind == ManifestCheck) {
        GenerateConfigInfo reader;
        file_operation_c op(workDir);
        connect(&reader, &GenerateConfigInfo::emitMessage, this, keep);
        connect(&op, &file_operation_c::emitMessage, this, keep);
        readable = reader.readFileOpConfig(QString(kel::keys::kManifest));
        verified = readable && op.checkCopyFile(reader.getCopyFileSet());
    } else if (kind == RuntimeCheck) {
        downLoadVorn_app installer;
        connect(&installer, &downLoadVorn_app::emitMessage, this, keep);
        verified = installer.checkFile(downLoadVorn_app::CHECK_PACKAGE);
        readable = !verified || installer.parseIniFile();
    } else {
        downLoadPro installer(workDir, nullptr);
        connect(&installer, &downLoadPro::emitMessage, this, keep);
        verified = installer.init();
    }
    if (!readable || !verified) {
        for (const QString& line : workerLines) {
            if (logger)
                logger->write(shown(line) + "\n");
        }
        reportCheckFailure(readable ? texts.failed : texts.unreadable);
        QDir::setCurrent(back);
        return false;
    }
    if (!QDir::setCurrent(back)) {
        reportCheckFailure(texts.cannotReturn);
        return false;
    }
    return true;
}

bool UDiskUpWin::checkUpdateSystem()
{
    // The system check has no text of its own for a failed return: it says it cannot enter.
    return checkItem(kel::keys::kUpSystem, kel::keys::kSystemFolder,
                     {kel::kSystemCheckCannotEnter, kel::kSystemCheckManifestUnreadable,
                      kel::kSystemCheckFailed, kel::kSystemCheckCannotEnter},
                     ManifestCheck);
}

bool UDiskUpWin::checkUpdateKelInfo()
{
    return checkItem(kel::keys::kUpKelInfo, kel::keys::kKelInfoFolder,
                     {kel::kIdentityCheckCannotEnter, kel::kIdentityCheckManifestUnreadable,
                      kel::kIdentityCheckFailed, kel::kIdentityCheckCannotReturn},
                     ManifestCheck);
}

bool UDiskUpWin::checkUpdateVorn_app()
{
    return checkItem(kel::keys::kUpVornApp, kel::keys::kVornAppFolder,
                     {kel::kRuntimeCheckCannotEnter, kel::kRuntimeCheckManifestUnreadable,
                      kel::kRuntimeCheckFailed, kel::kRuntimeCheckCannotReturn},
                     RuntimeCheck);
}

bool UDiskUpWin::checkUpdateProject()
{
    return checkItem(kel::keys::kUpProject, kel::keys::kProjectFolder,
                     {kel::kProjectCheckCannotEnter, kel::kNoText, kel::kProjectCheckFailed,
                      kel::kProjectCheckCannotReturn},
                     ProjectCheck);
}

// ---- services, commands, restart

bool UDiskUpWin::killProc()
{
    for (const QString& name : allEntries(prepareList.value(0), kel::keys::kStopProc)) {
        if (!my_kill_process::killall(name)) {
            emit emitMessage(kel::text(kel::kCannotStopProgram).arg(name), Qt::red);
            return false;
        }
    }
    return true;
}

namespace {
// "ln -s" or "rm" on a service's unit file and its boot link; false when the shell fails.
bool runServiceCommand(const QString& command, const char* pcloseFailure)
{
    if (DoCmd::run(command.toUtf8().toStdString()) == -1) {
        perror(pcloseFailure);
        return false;
    }
    return true;
}

QString unitFile(const QString& name)
{
    return QString::fromLatin1(servPath) + kel::kServiceUnitPrefix + name + kel::kServiceUnitSuffix;
}

QString bootLink(const QString& name)
{
    return QString::fromLatin1(servPath) + kel::kBootTargetDir + kel::kServiceUnitPrefix + name +
           kel::kServiceUnitSuffix;
}
} // namespace

bool UDiskUpWin::startBootService(QString name)
{
    if (name.isEmpty())
        return true;
    if (!QFileInfo::exists(unitFile(name))) {
        emit emitMessage(kel::text(kel::kServiceFileMissing), Qt::red);
        return false;
    }
    return runServiceCommand("ln -s " + unitFile(name) + " " + bootLink(name),
                             "start service pclose failed!\n");
}

bool UDiskUpWin::stopBootService(QString name)
{
    if (name.isEmpty())
        return true;
    if (!QFileInfo::exists(unitFile(name))) {
        emit emitMessage(kel::text(kel::kServiceFileToDisableMissing), Qt::red);
        return false;
    }
    return runServiceCommand("rm " + unitFile(name) + " " + bootLink(name),
                             "stop service pclose failed!\n");
}

bool UDiskUpWin::autoRestart()
{
    bool result = true;
    for (const QString& name : allEntries(restartItems, kel::keys::kAutoStart)) {
        const bool ok = startBootService(name);
        emit emitMessage(kel::text(ok ? kel::kServiceEnabled : kel::kServiceEnableFailed),
                         ok ? Qt::black : Qt::red);
        result = result && ok;
    }
    for (const QString& name : allEntries(restartItems, kel::keys::kAutoStop)) {
        const bool ok = stopBootService(name);
        emit emitMessage(kel::text(ok ? kel::kServiceDisabled : kel::kServiceDisableFailed),
                         ok ? Qt::black : Qt::red);
        result = result && ok;
    }
    return result;
}

bool UDiskUpWin::executeCMD()
{
    const QVariant* command = firstEntry(restartItems, kel::keys::kCommand);
    if (!command || command->toString().isEmpty())
        return true;
    if (DoCmd::run(command->toString().toUtf8().toStdString()) == -1) {
        emit emitMessage(kel::text(kel::kCommandCouldNotRun), Qt::red);
        return false;
    }
    emit emitMessage(kel::text(kel::kCommandRun), Qt::black);
    return true;
}

bool UDiskUpWin::changeWorkingDir(const char* dir)
{
    if (chdir(dir) == 0)
        return true;
    emit emitMessage(kel::text(kel::kCannotChangeToFolder).arg(QString::fromUtf8(dir)), Qt::red);
    return false;
}

void UDiskUpWin::startBeep()
{
    beepCount = 0;
    const QVariant* count = firstEntry(restartItems, kel::keys::kBeepNum);
    if (!count)
        return;
    beepCount = count->toInt();
    if (beepCount > 0) {
        beepTimer = new QTimer(this);
        connect(beepTimer, &QTimer::timeout, this, &UDiskUpWin::Beep);
        beepTimer->setInterval(1000);
        beepTimer->start();
    }
}

void UDiskUpWin::Beep()
{
    if (beepCount < 1)
        return;
    if (const int r = PanelLibrary::instance().setBeeTime(500))
        fprintf(stderr, "buzzing voice failed: %d!\n", r);
    beepCount -= 1;
}

void UDiskUpWin::restartKel()
{
    if (const int r = PanelLibrary::instance().setBeeTime(1000))
        fprintf(stderr, "buzzing voice failed: %d!\n", r);
    PanelLibrary::instance().sync();
    if (PanelLibrary::instance().reboot(RB_AUTOBOOT) != -1) {
        close();
        return;
    }
    if (optS != 1)
        showBox(kel::kNoticeTitle,
                kel::text(kel::kPanelCouldNotRestart).arg(QString::fromLocal8Bit(strerror(errno))),
                false);
}

void UDiskUpWin::reBootKel()
{
    if (quiet) {
        updatefinished();
        return;
    }
    const QVariant* reboot = firstEntry(restartItems, kel::keys::kReboot);
    if (reboot && reboot->toInt() == 1) {
        restartKel();
        close();
    }
}

void UDiskUpWin::clearKelbackup() {}
