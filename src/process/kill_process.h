#pragma once

#include <QString>

// Finds processes by executable name in /proc and signals them, or has the shell kill them.
class my_kill_process
{
public:
    // The part of path after its last "/" (the whole string when there is none).
    static const char* basename_byself(const char* path);

    // Stores up to max numbers of processes whose argv[0] has the basename of name. Returns the
    // count, -22 for a bad argument, -5 when /proc cannot be opened.
    static int get_pid_by_name(const char* name, int* pids, int max);

    static bool is_process_exist(const char* name);

    // True when nothing matched or sig reached every match; false at the first failed kill.
    static bool kill_process(const char* name, int sig);

    // Sends sig (SIGTERM when that fails) to every other process of this name.
    static int kill_Self_Previous(const char* name, int sig);

    // "killall -9" the program, up to three tries; true once the process list no longer shows it.
    static bool killall(QString name);
};
