#pragma once

#include "panel_library.h"

#include <string>
#include <sys/types.h>
#include <vector>

// Panel libraries on a PC. The runtime's state comes from the real process list; beeps,
// saved-data clearing and restarts are only recorded, one line each on standard error, so that a
// simulation can show them; so are the runtime's exit and kill requests. A recorded restart ends
// the program as a real one would.
class HostPanelLibrary : public PanelLibrary
{
public:
    int checkApplicationState(int state) override;
    int notifyStopApplication() override;
    int notifyExitApplication() override;
    int notifyKillApplication(int arg) override;
    int notifyLoggerFlush() override;
    int setBeeTime(int milliseconds) override;
    int delSaveData(int mask, int arg) override;
    int reboot(int command) override;

    // Processes whose argv[0] is the installed runtime program.
    static std::vector<pid_t> runtimeProcesses();

private:
    static int signalRuntime(int sig);
    // One line "panel: <action>" on standard error, flushed at once.
    static void record(const std::string& action);
};
