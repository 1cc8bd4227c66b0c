#include "app_exit_failed_dlg.h"

#include "maincfg.h"
#include "panel_library.h"
#include "ui_app_exit_failed_dlg.h"
#include "vorn_process.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <cerrno>
#include <cstring>
#include <sys/reboot.h>
#include <unistd.h>

app_exit_failed_dlg::app_exit_failed_dlg(QWidget* parent, std::function<QString(int)> lookup)
    : QDialog(parent), ui(new Ui::app_exit_failed_dlg), lookup(std::move(lookup)),
      timer(new QTimer(this))
{
    ui->setupUi(this);
    setWindowTitle(text(kel::kWarningTitle, "警告"));
    ui->msgLbl->setText(text(kel::kClosingRuntimeInitial, "正在退出应用程序，请稍候..."));
    ui->hintLbl->setText(text(kel::kForceOrKeepWaiting, "若长时间无退出可强制执行或继续等待"));
    ui->forceExecBtn->setText(text(kel::kForceButton, "强制执行"));
    ui->rebootBtn->setText(text(kel::kRestartPanelButton, "重启KEL"));
    setWindowFlags(MainCfg::dialogFlags());
    setFixedSize(370, 160);
    connect(timer, &QTimer::timeout, this, &app_exit_failed_dlg::checkAppStatus);
}

app_exit_failed_dlg::~app_exit_failed_dlg()
{
    delete ui;
}

QString app_exit_failed_dlg::text(kel::TextId id, const char* builtIn) const
{
    return lookup ? lookup(id) : QString::fromUtf8(builtIn);
}

void app_exit_failed_dlg::setAppExitMethod(APP_EXIT_METHOD exitMethod)
{
    method = exitMethod;
    ui->msgLbl->setText(method == APP_EXIT_TO_CSEVR
                            ? text(kel::kReturningToSettings, "正在退出到系统设置界面，请稍候...")
                            : text(kel::kClosingRuntime, "正在退出应用程序，请稍候..."));
}

void app_exit_failed_dlg::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    timer->start(1000);
}

void app_exit_failed_dlg::checkAppStatus()
{
    if (method == APP_EXIT_TO_CSEVR && vorn_process::isProcessOnCsevr()) {
        continueWait = false;
        timer->stop();
        close();
    } else if (!vorn_process::isProcessExited()) {
        if (timer->interval() != 100)
            timer->setInterval(100);
    } else {
        continueWait = false;
        timer->stop();
        close();
    }
}

void app_exit_failed_dlg::on_forceExecBtn_clicked()
{
    continueWait = false;
    close();
}

void app_exit_failed_dlg::on_rebootBtn_clicked()
{
    PanelLibrary::instance().sync();
    if (PanelLibrary::instance().reboot(RB_AUTOBOOT) != -1)
        return;
    QMessageBox box(QMessageBox::Warning, text(kel::kWarningTitle, "警告"),
                    text(kel::kPanelCouldNotRestart, "系统重启失败!%1")
                        .arg(QString::fromLocal8Bit(strerror(errno))),
                    QMessageBox::NoButton, this);
    box.setWindowFlags(MainCfg::dialogFlags());
    box.addButton(text(kel::kOkButton, "确认"), QMessageBox::AcceptRole);
    box.exec();
}
