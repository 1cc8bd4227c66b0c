#pragma once

#include "text_id.h"

#include <QDialog>
#include <functional>

namespace Ui {
class app_exit_failed_dlg;
}
class QTimer;

// Shown while the HMI runtime does not leave when asked: closes itself once it is gone, or lets
// the user force the update on or restart the panel. Any other way of closing means keep waiting.
class app_exit_failed_dlg : public QDialog
{
    Q_OBJECT
public:
    enum APP_EXIT_METHOD
    {
        APP_EXIT_TO_CSEVR = 0,
        APP_EXIT_QUIT = 1
    };

    app_exit_failed_dlg(QWidget* parent, std::function<QString(int)> tr);
    ~app_exit_failed_dlg() override;

    void setAppExitMethod(APP_EXIT_METHOD method);
    bool isContinueWait() const { return continueWait; }

private slots:
    void checkAppStatus();
    void on_forceExecBtn_clicked();
    void on_rebootBtn_clicked();

protected:
    void showEvent(QShowEvent* event) override;

private:
    QString text(kel::TextId id, const char* builtIn) const;

    Ui::app_exit_failed_dlg* ui;
    std::function<QString(int)> lookup; // "tr" would hide QObject::tr
    QTimer* timer;
    bool continueWait = true;
    APP_EXIT_METHOD method = APP_EXIT_QUIT;
};
