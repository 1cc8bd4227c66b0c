#pragma once

#include <QString>
#include <functional>

class QWidget;

// Asks the HMI runtime to go back to the settings screen, to exit, or to be killed, through the
// panel's process-control library, and waits for it with time limits; falls back to the wait
// dialog when the runtime does not obey.
class vorn_process
{
public:
    static int isProcessExited();
    static int isProcessOnCsevr();
    static bool notifyStopApplication();
    static bool notifyExitApplication();
    static bool notifyKillApplication();
    static bool forceFreshLog();
    static void checkLibprocessVersion();

    // True when the process list shows no runtime.
    static bool isVornAppExited();

    static void setMulLanguage(std::function<QString(int)> fn);

    static bool backToCsevr(unsigned int timeoutMs, QWidget* parent);
    static bool exitProcess(unsigned int timeoutMs, QWidget* parent, bool quiet);
    static bool forceExitProcess(QWidget* parent, bool quiet);

private:
    static std::function<QString(int)> _func;
};
