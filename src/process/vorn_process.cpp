#include "vorn_process.h"

#include "app_exit_failed_dlg.h"
#include "do_cmd.h"
#include "panel_library.h"

#include <cstdio>
#include <unistd.h>

std::function<QString(int)> vorn_process::_func;

int vorn_process::isProcessExited()
{
    return PanelLibrary::instance().checkApplicationState(0);
}

int vorn_process::isProcessOnCsevr()
{
    return PanelLibrary::instance().checkApplicationState(1);
}

bool vorn_process::notifyStopApplication()
{
    return PanelLibrary::instance().notifyStopApplication() == 0;
}

bool vorn_process::notifyExitApplication()
{
    return PanelLibrary::instance().notifyExitApplication() == 0;
}

bool vorn_process::notifyKillApplication()
{
    return PanelLibrary::instance().notifyKillApplication(0) == 0;
}

bool vorn_process::forceFreshLog()
{
    return PanelLibrary::instance().notifyLoggerFlush() == 0;
}

void vorn_process::checkLibprocessVersion() {}

bool vorn_process::isVornAppExited()
{
    std::string out;
    if (!DoCmd::do_cmd_sync("ps -ef|grep '/usr/vorn_app/vorn_app' |grep -v grep", out)) {
        fputs("do cmd failed!\n", stderr);
        return false;
    }
    return out.empty();
}

void vorn_process::setMulLanguage(std::function<QString(int)> fn)
{
    _func = std::move(fn);
}

bool vorn_process::backToCsevr(unsigned int timeoutMs, QWidget* parent)
{
    for (;;) {
        if (isProcessOnCsevr() || isProcessExited())
            return true;
        if (notifyStopApplication() && timeoutMs != 0) {
            for (unsigned int elapsed = 0; elapsed < timeoutMs; elapsed += 100) {
                usleep(100000);
                if (isProcessOnCsevr() || isProcessExited())
                    return true;
            }
        }
        app_exit_failed_dlg dialog(parent, _func);
        dialog.setAppExitMethod(app_exit_failed_dlg::APP_EXIT_TO_CSEVR);
        dialog.exec();
        if (!dialog.isContinueWait())
            return true;
    }
}

bool vorn_process::exitProcess(unsigned int timeoutMs, QWidget* parent, bool quiet)
{
    if (isProcessExited())
        return true;
    if (notifyExitApplication() && timeoutMs != 0) {
        unsigned int elapsed = 0;
        do {
            usleep(100000);
            elapsed += 100;
            // The library's word alone is not enough: the process list must agree.
            if (isProcessExited() && isVornAppExited())
                return true;
        } while (elapsed < timeoutMs);
    }
    return forceExitProcess(parent, quiet);
}

bool vorn_process::forceExitProcess(QWidget* parent, bool quiet)
{
    while (!notifyKillApplication() && !quiet) {
        app_exit_failed_dlg dialog(parent, _func);
        dialog.exec();
        if (!dialog.isContinueWait())
            break;
    }
    while (!isProcessExited() && !isVornAppExited())
        usleep(200000);
    // Give the runtime time to release its files and the screen.
    sleep(1);
    return true;
}
