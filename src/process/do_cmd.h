#pragma once

#include <string>

// Runs shell command lines through /bin/sh.
class DoCmd
{
public:
    // Runs cmd and collects everything it writes to standard output in out. True when the
    // command could be started; its exit status is not looked at.
    static bool do_cmd_sync(const std::string& cmd, std::string& out);

    // Runs cmd, waits for it and throws its output away. True when it could be started.
    static bool do_cmd_only(const std::string& cmd);

    // Runs cmd and reads its standard output, throwing it away, until the shell has ended, so
    // that a command that prints is never killed by a closed pipe; background processes it
    // started that still hold the pipe are not waited for. Returns the shell's wait status, or
    // -1 when it could not be started.
    static int run(const std::string& cmd);
};
