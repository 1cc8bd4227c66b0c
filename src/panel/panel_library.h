#pragma once

// The one place where the updater reaches the panel's closed libraries (process control of the
// HMI runtime, the beeper, saved-data clearing) and the kernel's restart and flush. The panel
// build links the vendor libraries; the host build records the actions it must not perform on a
// PC. Tests install fakes with replace().
class PanelLibrary
{
public:
    virtual ~PanelLibrary() = default;

    // Process-control library of the HMI runtime. States: 0 exited, 1 on the settings screen.
    virtual int checkApplicationState(int state) = 0; // non-zero when in that state
    virtual int notifyStopApplication() = 0;          // 0 when delivered
    virtual int notifyExitApplication() = 0;          // 0 when delivered
    virtual int notifyKillApplication(int arg) = 0;   // 0 when delivered
    virtual int notifyLoggerFlush() = 0;              // 0 when delivered

    // Sounds the beeper for the given time without waiting; 0 on success.
    virtual int setBeeTime(int milliseconds) = 0;

    // Clears the runtime's saved data for the bits of mask (1 recipe, 2 history, 4 alarm,
    // 8 initial values); returns the bits that could not be cleared.
    virtual int delSaveData(int mask, int arg) = 0;

    // The kernel's reboot(2); -1 with errno on failure. May not return.
    virtual int reboot(int command) = 0;

    // The kernel's sync(2), called after every step that changes files; a fake counts the calls.
    virtual void sync();

    // The library in use: the build's own backend unless a replacement is installed.
    static PanelLibrary& instance();

    // Installs library (not owned) in place of the current one and returns the previous one;
    // nullptr restores the build's own backend.
    static PanelLibrary* replace(PanelLibrary* library);
};

// The build's own backend (host or vendor), created on first use.
PanelLibrary& defaultPanelLibrary();
