#pragma once

#include "stick_check.h"

#include <QByteArray>
#include <QHash>
#include <QString>

class PanelIdentity;
class RamFolder;

// The panel's gate in front of a stick's updater:
//
//     kelgate [--config DIR] [--state DIR] [--run DIR] [--ram-limit MIB] [--notice-seconds N]
//             STICK/PACKAGE/kelloadui.bin [PROGRAM_OPTION...]
//
// One stick at a time: it checks the panel's keys, model and version and the stick's manifest,
// copies the signed files into a private RAM folder, checks every file's SHA-256 on that copy
// and starts the copy's kelloadui.bin with the program options, so that nothing the stick does
// after the check changes what runs. The run's log is kept on the panel and carried back to the
// stick afterwards; the version is noted before the start and recorded from the panel's own log.
// A refused stick runs nothing: the gate writes the reason to the stick's log and to standard
// error (the journal), sounds the beeper, shows a full-screen red notice and exits with kRefused.
class KelGate
{
public:
    static constexpr int kRefused = 1;
    static constexpr int kUsage = 2;
    static constexpr char kDefaultConfigDir[] = "/etc/kelgate";
    static constexpr char kDefaultStateDir[] = "/var/lib/kelgate";
    static constexpr char kDefaultRunDir[] = "/run/kelgate";

    // Returns the exit status: the program's own once it was started.
    int run(int& argc, char** argv);

    // The refusal line for a check's result, in the current language.
    static QString reason(StickCheck::Result result, const StickCheck& check);

private:
    bool parseArguments(int argc, char** argv);
    void loadTexts();
    // The log the program would write with these options, or the stick's update.log.
    QString logPath(char** argv) const;
    bool lockRun();
    int checkAndStart(char** argv);
    // Settles a run that the panel's restart ended, before anything else is read.
    void settleEarlierRun(PanelIdentity* panel, const QString& log);
    // Copies the listed files into the RAM folder and checks the copy; false once refused.
    bool copyChecked(StickCheck* check, const QString& log, RamFolder* copy);
    // Starts the checked copy, its version noted on the panel when there is one.
    int runCopy(const StickCheck& check, PanelIdentity* panel, const QString& log,
                const QString& copyTop, char** argv);
    // The run's log on the panel, started from the stick's log with the running report; the
    // copy's log path becomes a link to it. Empty when it cannot be made.
    QString prepareLog(const QString& log, const QString& copyTop);
    void carryLogBack(const QString& panelLog, const QString& stickLog);
    QString sourceOutside(const QString& copyPackage) const;
    // The program's exit status; a program that cannot start is refused.
    int start(const QString& program, char** argv);
    int cannotStart(int error);
    int refuse(const QString& reason, const QString& detail, bool notice = true);
    bool writeToStick(const QString& path, const QByteArray& bytes);

    QString m_configDir = kDefaultConfigDir;
    QString m_stateDir = kDefaultStateDir;
    QString m_runDir = kDefaultRunDir;
    qint64 m_ramLimitMib = 0;
    int m_noticeSeconds = 120;
    QString m_program;
    QString m_packageDir;
    int m_programIndex = 0;
    int m_argc = 0;
    int* m_appArgc = nullptr;
    char** m_argv = nullptr;
    int m_lock = -1;
    bool m_started = false;
    // Program options that name the log by its path on the stick, pointed at the copy.
    QHash<int, QByteArray> m_replacedOptions;
    // Report lines of the built-in table, whatever the language.
    QString m_successReport;
    QString m_runningReport;
};
