#pragma once

#include "panel_library.h"

#include <QString>
#include <QStringList>
#include <functional>

// A scriptable panel for tests: every call is recorded in calls; results come from the fields
// (or from the hooks, where a test needs a result that changes over time). Installs itself on
// construction and restores the previous library on destruction.
class FakePanelLibrary : public PanelLibrary
{
public:
    FakePanelLibrary();
    ~FakePanelLibrary() override;

    int checkApplicationState(int state) override;
    int notifyStopApplication() override;
    int notifyExitApplication() override;
    int notifyKillApplication(int arg) override;
    int notifyLoggerFlush() override;
    int setBeeTime(int milliseconds) override;
    int delSaveData(int mask, int arg) override;
    int reboot(int command) override;

    // Number of recorded calls whose text starts with prefix.
    int count(const QString& prefix) const;

    QStringList calls; // e.g. "state 0", "exit", "kill 0", "beep 500", "delSaveData 5 0", "reboot"

    int exitedState = 0;      // result of checkApplicationState(0)
    int settingsState = 0;    // result of checkApplicationState(1)
    int stopResult = 0;
    int exitResult = 0;
    int killResult = 0;
    int flushResult = 0;
    int beepResult = 0;
    int delSaveDataResult = 0;
    int rebootResult = -1;    // -1 like a refused restart, with rebootErrno
    int rebootErrno = 1;      // EPERM

    std::function<int(int state)> stateHook; // overrides the two state fields when set

private:
    PanelLibrary* m_previous;
};
