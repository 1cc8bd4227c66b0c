#include "folder_run.h"

#include <QFile>
#include <sched.h>
#include <thread>
#include <unistd.h>

bool FolderRun::run(const QString& dir, const std::function<void()>& work)
{
    bool entered = false;
    // A thread with a file-system context of its own: its directory is not the process's.
    std::thread thread([&] {
        if (unshare(CLONE_FS) != 0 || chdir(QFile::encodeName(dir).constData()) != 0)
            return;
        entered = true;
        work();
    });
    thread.join();
    return entered;
}
