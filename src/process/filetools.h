#pragma once

#include <string>

// File probes.
class FileTools
{
public:
    // True when stat succeeds on path (a directory counts too).
    static bool checkFileExist(const std::string& path);

    // True when the flag file of the light runtime edition exists.
    static bool checkLiteVornApp();
};
