#pragma once

#include <QString>
#include <functional>

// Runs work with the current directory at dir, for that work alone. The updater's own checks read
// their package from the current directory, as the program runs in its package folder; the tool
// keeps its own current directory, so that nothing else it does depends on which check ran last.
class FolderRun
{
public:
    // False, without running work, when dir cannot be entered.
    static bool run(const QString& dir, const std::function<void()>& work);
};
