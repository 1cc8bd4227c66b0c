#pragma once

#include "panel_library.h"

#include <QString>
#include <QStringList>
#include <cerrno>
#include <functional>

// A scriptable panel for tests: every call is recorded in calls; results come from the fields
// (or from the hook, where a test needs a state that changes over time). Installs itself on
// construction and restores the previous library on destruction.
class FakePanelLibrary : public PanelLibrary
{
public:
    FakePanelLibrary() : m_previous(PanelLibrary::replace(this)) {}
    ~FakePanelLibrary() override { PanelLibrary::replace(m_previous); }

    int checkApplicationState(int state) override
    {
        return record(QString("state %1").arg(state),
                      stateHook ? stateHook(state) : state == 0 && runtimeExited);
    }
    int notifyStopApplication() override { return record("stop", 0); }
    int notifyExitApplication() override { return record("exit", exitResult); }
    int notifyKillApplication(int arg) override
    {
        return record(QString("kill %1").arg(arg), killResult);
    }
    int notifyLoggerFlush() override { return record("flush", 0); }
    int setBeeTime(int ms) override { return record(QString("beep %1").arg(ms), 0); }
    int delSaveData(int mask, int arg) override
    {
        return record(QString("delSaveData %1 %2").arg(mask).arg(arg), saveDataFailed & mask);
    }
    int reboot(int) override
    {
        errno = EPERM;
        return record("reboot", rebootResult);
    }
    void sync() override
    {
        if (syncHook)
            syncHook();
    }
    int fdatasync(int) override
    {
        ++datasyncs;
        return 0;
    }

    QStringList calls; // e.g. "state 0", "exit", "kill 0", "beep 500", "delSaveData 5 0", "reboot"
    bool runtimeExited = false;
    int exitResult = 0;
    int killResult = 0;
    int rebootResult = -1;                   // like a refused restart (EPERM)
    int saveDataFailed = 0;                  // the kinds of saved data that cannot be cleared
    std::function<int(int state)> stateHook; // overrides runtimeExited when set
    std::function<void()> syncHook;          // called for every sync(), which does nothing here
    int datasyncs = 0;                       // fdatasync() calls, which do nothing here

private:
    int record(const QString& call, int result)
    {
        calls << call;
        return result;
    }
    PanelLibrary* m_previous;
};
