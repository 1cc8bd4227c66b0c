#include "do_cmd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {
// How often the shell's end is looked for while a background process keeps its pipe open.
constexpr int kShellCheckMs = 20;

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

int waitFor(pid_t pid, int options)
{
    int status = 0;
    pid_t done;
    while ((done = waitpid(pid, &status, options)) < 0 && errno == EINTR) {
    }
    if (done == pid)
        return status;
    return done == 0 ? -2 : -1;
}
} // namespace

bool DoCmd::do_cmd_sync(const std::string& cmd, std::string& out)
{
    FILE* pipe = popen(cmd.c_str(), "r");
    if (!pipe) {
        fputs("do_cmd_sync popen failed!\n", stderr);
        return false;
    }
    out.clear();
    std::vector<char> buffer(1024, '\0');
    size_t n;
    while ((n = fread(buffer.data(), 1, buffer.size() - 1, pipe)) > 0)
        out.append(buffer.data(), n);
    pclose(pipe);
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
    int output = -1;
    const pid_t shell = startShell(cmd, &output);
    if (shell < 0)
        return -1;
    std::vector<char> buffer(64 * 1024);
    int status = -2;
    bool open = true;
    while (open && status == -2) {
        pollfd ready = {output, POLLIN, 0};
        if (poll(&ready, 1, kShellCheckMs) > 0) {
            const ssize_t n = read(output, buffer.data(), buffer.size());
            open = n > 0 || (n < 0 && (errno == EINTR || errno == EAGAIN));
        }
        status = waitFor(shell, WNOHANG);
    }
    close(output);
    if (status == -2)
        status = waitFor(shell, 0);
    return status;
}
