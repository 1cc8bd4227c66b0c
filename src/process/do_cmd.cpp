#include "do_cmd.h"

#include <cstdio>
#include <vector>

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
    FILE* pipe = popen(cmd.c_str(), "r");
    if (!pipe) {
        fputs("do_cmd_only popen failed!\n", stderr);
        return false;
    }
    pclose(pipe);
    return true;
}
