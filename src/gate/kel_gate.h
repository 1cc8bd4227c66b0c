#pragma once

#include "stick_check.h"

#include <QString>

class PanelIdentity;

// The panel's gate in front of a stick's updater:
//
//     kelgate [--config DIR] [--state DIR] [--notice-seconds N]
//             STICK/PACKAGE/kelloadui.bin [PROGRAM_OPTION...]
//
// It checks the stick (StickCheck) with the keys in CONFIG/keys and the panel's model and last
// installed version (PanelIdentity), then starts the stick's kelloadui.bin with the program
// options and waits for it, so that it can record the installed version once the log reports
// success. A refused stick runs nothing: the gate writes the reason to the stick's log and to
// standard error (the journal), sounds the beeper, shows a full-screen red notice and exits
// with kRefused.
class KelGate
{
public:
    static constexpr int kRefused = 1;
    static constexpr int kUsage = 2;
    static constexpr char kDefaultConfigDir[] = "/etc/kelgate";
    static constexpr char kDefaultStateDir[] = "/var/lib/kelgate";

    // Returns the exit status: the program's own once it was started.
    int run(int& argc, char** argv);

    // The refusal line for a check's result, in the current language.
    static QString reason(StickCheck::Result result, const StickCheck& check);

private:
    bool parseArguments(int argc, char** argv);
    void loadTexts();
    // The log the program would write with these options, or the stick's update.log.
    QString logPath(char** argv) const;
    int start(char** argv, PanelIdentity* panel);
    int refuse(int& argc, char** argv, const QString& reason, const QString& detail);

    QString m_configDir = kDefaultConfigDir;
    QString m_stateDir = kDefaultStateDir;
    int m_noticeSeconds = 120;
    QString m_program;
    QString m_packageDir;
    int m_programIndex = 0;
    int m_argc = 0;
    // Report lines of the built-in table, whatever the language.
    QString m_successReport;
    QString m_runningReport;
};
