#include "host_panel_library.h"

#include "def.h"

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/reboot.h>
#include <unistd.h>

PanelLibrary& defaultPanelLibrary()
{
    static HostPanelLibrary library;
    return library;
}

std::vector<pid_t> HostPanelLibrary::runtimeProcesses()
{
    std::vector<pid_t> pids;
    DIR* proc = opendir("/proc");
    if (!proc)
        return pids;
    while (dirent* entry = readdir(proc)) {
        if (!isdigit(static_cast<unsigned char>(entry->d_name[0])))
            continue;
        char path[300];
        snprintf(path, sizeof path, "/proc/%s/cmdline", entry->d_name);
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            continue;
        char argv0[256] = {};
        const ssize_t n = read(fd, argv0, sizeof argv0 - 1);
        close(fd);
        if (n > 0 && strcmp(argv0, kel::kVornAppProgram) == 0)
            pids.push_back(static_cast<pid_t>(strtol(entry->d_name, nullptr, 10)));
    }
    closedir(proc);
    return pids;
}

int HostPanelLibrary::signalRuntime(int sig)
{
    for (pid_t pid : runtimeProcesses()) {
        if (::kill(pid, sig) != 0 && errno != ESRCH)
            return -1;
    }
    return 0;
}

int HostPanelLibrary::checkApplicationState(int state)
{
    // A PC has no settings screen to go back to: only "exited" can be reported.
    return state == 0 && runtimeProcesses().empty() ? 1 : 0;
}

int HostPanelLibrary::notifyStopApplication()
{
    // Without a settings screen the runtime cannot go back to it.
    return -1;
}

int HostPanelLibrary::notifyExitApplication()
{
    record("runtime exit requested");
    return signalRuntime(SIGTERM);
}

int HostPanelLibrary::notifyKillApplication(int)
{
    record("runtime kill requested");
    return signalRuntime(SIGKILL);
}

int HostPanelLibrary::notifyLoggerFlush()
{
    return 0;
}

int HostPanelLibrary::setBeeTime(int milliseconds)
{
    record("beep " + std::to_string(milliseconds) + " ms");
    return 0;
}

int HostPanelLibrary::delSaveData(int mask, int arg)
{
    record("clear saved data (mask " + std::to_string(mask) + ", " + std::to_string(arg) + ")");
    return 0;
}

void HostPanelLibrary::record(const std::string& action)
{
    fprintf(stderr, "panel: %s\n", action.c_str());
    fflush(stderr);
}

int HostPanelLibrary::reboot(int command)
{
    record(std::string("restart requested (") +
           (command == RB_AUTOBOOT ? "RB_AUTOBOOT" : "unknown command") + ")");
    // A real restart ends every process at once; so does the recorded one.
    _exit(0);
}
