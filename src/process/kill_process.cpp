#include "kill_process.h"

#include "def.h"
#include "do_cmd.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctype.h>
#include <dirent.h>
#include <unistd.h>

namespace {
// Room the callers give for process lists.
constexpr int kMaxPids = 256;
} // namespace

const char* my_kill_process::basename_byself(const char* path)
{
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

int my_kill_process::get_pid_by_name(const char* name, int* pids, int max)
{
    if (!pids || !name)
        return -EINVAL;
    const char* wanted = basename_byself(name);
    if (*wanted == '\0')
        return -EINVAL;
    DIR* proc = opendir("/proc");
    if (!proc)
        return -EIO;
    int count = 0;
    while (dirent* entry = readdir(proc)) {
        if (!isdigit(static_cast<unsigned char>(entry->d_name[0])))
            continue;
        const unsigned pid = static_cast<unsigned>(strtol(entry->d_name, nullptr, 0));
        char path[64];
        snprintf(path, sizeof path, "/proc/%u/cmdline", pid);
        FILE* cmdline = fopen(path, "r");
        if (!cmdline)
            continue;
        char argv0[256] = {};
        const size_t n = fread(argv0, 1, sizeof argv0 - 1, cmdline);
        fclose(cmdline);
        // Zombies and kernel threads have an empty command line and never match.
        if (n == 0 || strcmp(basename_byself(argv0), wanted) != 0)
            continue;
        if (count >= max)
            break;
        pids[count++] = static_cast<int>(pid);
    }
    closedir(proc);
    return count;
}

bool my_kill_process::is_process_exist(const char* name)
{
    int pid = 0;
    return get_pid_by_name(name, &pid, 1) > 0;
}

bool my_kill_process::kill_process(const char* name, int sig)
{
    int pids[kMaxPids];
    const int count = get_pid_by_name(name, pids, kMaxPids);
    for (int i = 0; i < count; ++i) {
        if (kill(pids[i], sig) != 0)
            return false;
    }
    return true;
}

int my_kill_process::kill_Self_Previous(const char* name, int sig)
{
    int pids[kMaxPids];
    const int count = get_pid_by_name(name, pids, kMaxPids);
    if (count <= 0)
        return count;
    const pid_t self = getpid();
    for (int i = 0; i < count && i < kMaxPids; ++i) {
        if (pids[i] == self)
            continue;
        if (kill(pids[i], sig) != 0)
            kill(pids[i], SIGTERM);
    }
    return count;
}

bool my_kill_process::killall(QString name)
{
    const std::string program = name.toUtf8().toStdString();
    for (int attempt = 1; attempt <= 3; ++attempt) {
        if (!DoCmd::do_cmd_only("killall -9 " + program))
            return false;
        std::string out;
        if (!DoCmd::do_cmd_sync(
                std::string(kel::kPsCommCommand) + " | grep " + program + " | grep -v grep", out))
            return false;
        if (out.empty())
            return true;
        if (attempt < 3)
            usleep(500000);
    }
    return false;
}
