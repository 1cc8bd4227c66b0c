#pragma once

#include <string>

// Runs shell command lines through popen.
class DoCmd
{
public:
    // Runs cmd and collects everything it writes to standard output in out. True when the
    // command could be started; its exit status is not looked at.
    static bool do_cmd_sync(const std::string& cmd, std::string& out);

    // Runs cmd, waits for it and throws its output away. True when it could be started.
    static bool do_cmd_only(const std::string& cmd);
};
