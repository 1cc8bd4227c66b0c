#include "panel_library.h"

#include <sys/reboot.h>
#include <unistd.h>

// The panel's closed libraries: process control of the HMI runtime, "libvorn-hal" and the
// utility library with the saved-data clearing.
extern "C" {
int __check_application_state(int state);
int __notify_stop_application();
int __notify_exit_application();
int __notify_kill_application(int arg);
int __notify_logger_flush();
int hal_set_bee_time(int milliseconds);
int Vorn_DelSaveData(int mask, int arg);
}

namespace {

class VendorPanelLibrary : public PanelLibrary
{
public:
    int checkApplicationState(int state) override { return __check_application_state(state); }
    int notifyStopApplication() override { return __notify_stop_application(); }
    int notifyExitApplication() override { return __notify_exit_application(); }
    int notifyKillApplication(int arg) override { return __notify_kill_application(arg); }
    int notifyLoggerFlush() override { return __notify_logger_flush(); }
    int setBeeTime(int milliseconds) override { return hal_set_bee_time(milliseconds); }
    int delSaveData(int mask, int arg) override { return Vorn_DelSaveData(mask, arg); }
    int reboot(int command) override { return ::reboot(command); }
};

} // namespace

PanelLibrary& defaultPanelLibrary()
{
    static VendorPanelLibrary library;
    return library;
}
