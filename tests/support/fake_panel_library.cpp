#include "fake_panel_library.h"

#include <cerrno>

FakePanelLibrary::FakePanelLibrary() : m_previous(PanelLibrary::replace(this)) {}

FakePanelLibrary::~FakePanelLibrary()
{
    PanelLibrary::replace(m_previous);
}

int FakePanelLibrary::checkApplicationState(int state)
{
    calls << QString("state %1").arg(state);
    if (stateHook)
        return stateHook(state);
    return state == 0 ? exitedState : settingsState;
}

int FakePanelLibrary::notifyStopApplication()
{
    calls << "stop";
    return stopResult;
}

int FakePanelLibrary::notifyExitApplication()
{
    calls << "exit";
    return exitResult;
}

int FakePanelLibrary::notifyKillApplication(int arg)
{
    calls << QString("kill %1").arg(arg);
    return killResult;
}

int FakePanelLibrary::notifyLoggerFlush()
{
    calls << "flush";
    return flushResult;
}

int FakePanelLibrary::setBeeTime(int milliseconds)
{
    calls << QString("beep %1").arg(milliseconds);
    return beepResult;
}

int FakePanelLibrary::delSaveData(int mask, int arg)
{
    calls << QString("delSaveData %1 %2").arg(mask).arg(arg);
    return delSaveDataResult;
}

int FakePanelLibrary::reboot(int)
{
    calls << "reboot";
    if (rebootResult == -1)
        errno = rebootErrno;
    return rebootResult;
}

int FakePanelLibrary::count(const QString& prefix) const
{
    int n = 0;
    for (const QString& call : calls)
        n += call.startsWith(prefix) ? 1 : 0;
    return n;
}
