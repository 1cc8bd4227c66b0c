#include "filetools.h"

#include "def.h"

#include <sys/stat.h>

bool FileTools::checkFileExist(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

bool FileTools::checkLiteVornApp()
{
    return checkFileExist(kel::kLiteVornAppFlagPath);
}
