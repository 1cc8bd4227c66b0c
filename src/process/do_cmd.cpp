#include "do_cmd.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {
// How often the shell's end is looked for while a background process keeps its pipe open.
constexpr int kShellCheckMs = 20;
constexpr size_t kReadBlockBytes = 64 * 1024;
// waitFor's answer while the shell still runs.
constexpr int kStillRunning = -2;

// Starts "/bin/sh -c cmd" with its standard output on a new pipe; -1 when it cannot.
pid_t startShell(const std::string& cmd, int* output)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    char* argv[] = {const_cast<char*>("sh"), const_cast<char*>("-c"),
                    const_cast<char*>(cmd.c_str()), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (pid < 0)
        close(ends[0]);
    else
        *output = ends[0];
    return pid;
}

// The wait status of pid, kStillRunning when WNOHANG finds it running, -1 when it cannot be
// waited for.
int waitFor(pid_t pid, int options)
{
    int status = 0;
    pid_t done;
    while ((done = waitpid(pid, &status, options)) < 0 && errno == EINTR) {
    }
    if (done == pid)
        return status;
    return done == 0 ? kStillRunning : -1;
}

// Reads a block of output, adding it to out when there is one; false at the end of the output
// or on an error.
bool readInto(int output, std::vector<char>& buffer, std::string* out)
{
    const ssize_t n = read(output, buffer.data(), buffer.size());
    if (n > 0 && out)
        out->append(buffer.data(), size_t(n));
    return n > 0 || (n < 0 && (errno == EINTR || errno == EAGAIN));
}

// What the command wrote just before its shell ended may still lie in the pipe: take exactly
// what is there now, never what a background process goes on writing.
void takeLeftOver(int output, std::vector<char>& buffer, std::string& out)
{
    int left = 0;
    if (ioctl(output, FIONREAD, &left) != 0)
        return;
    while (left > 0) {
        const ssize_t n = read(output, buffer.data(), std::min(size_t(left), buffer.size()));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        out.append(buffer.data(), size_t(n));
        left -= int(n);
    }
}
} // namespace

bool DoCmd::runShell(const std::string& cmd, std::string* out, int& status)
{
    int output = -1;
    const pid_t shell = startShell(cmd, &output);
    if (shell < 0)
        return false;
    if (out)
        out->clear();
    std::vector<char> buffer(kReadBlockBytes);
    status = kStillRunning;
    bool open = true;
    while (open && status == kStillRunning) {
        pollfd ready = {output, POLLIN, 0};
        if (poll(&ready, 1, kShellCheckMs) > 0)
            open = readInto(output, buffer, out);
        status = waitFor(shell, WNOHANG);
    }
    if (open && out)
        takeLeftOver(output, buffer, *out);
    close(output);
    if (status == kStillRunning)
        status = waitFor(shell, 0);
    return true;
}

bool DoCmd::do_cmd_sync(const std::string& cmd, std::string& out)
{
    int status = 0;
    if (!runShell(cmd, &out, status)) {
        fputs("do_cmd_sync popen failed!\n", stderr);
        return false;
    }
    return true;
}

bool DoCmd::do_cmd_only(const std::string& cmd)
{
    if (run(cmd) == -1) {
        fputs("do_cmd_only popen failed!\n", stderr);
        return false;
    }
    return true;
}

int DoCmd::run(const std::string& cmd)
{
    int status = -1;
    return runShell(cmd, nullptr, status) ? status : -1;
}

bool DoCmd::collect(const std::string& cmd, std::string& out, int& status)
{
    return runShell(cmd, &out, status);
}
