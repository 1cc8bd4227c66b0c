#pragma once

#include <string>

// Runs shell command lines through /bin/sh: the one place of the program that starts a shell.
// The command's standard output is read while its shell runs, so that a command that prints is
// never killed by a closed pipe; background processes it started that still hold the output are
// not waited for.
class DoCmd
{
public:
    // Runs cmd and collects everything it writes to standard output in out. True when the
    // command could be started; its exit status is not looked at.
    static bool do_cmd_sync(const std::string& cmd, std::string& out);

    // Runs cmd, waits for it and throws its output away. True when it could be started.
    static bool do_cmd_only(const std::string& cmd);

    // Runs cmd, throwing its output away. Returns the shell's wait status, or -1 when it could
    // not be started or its end could not be waited for.
    static int run(const std::string& cmd);

    // Runs cmd and collects in out everything it wrote to standard output until its shell
    // ended. False when the shell could not be started (out is then left alone); otherwise
    // status is the shell's wait status, or -1 when its end could not be waited for.
    static bool collect(const std::string& cmd, std::string& out, int& status);

private:
    // The machinery of every operation above; out may be null to throw the output away.
    static bool runShell(const std::string& cmd, std::string* out, int& status);
};
