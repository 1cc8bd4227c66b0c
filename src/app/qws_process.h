#pragma once

#include <QString>

// The display server the updater's windows need: probes its socket and starts one when none runs.
class QwsProcess
{
public:
    // True when a display server accepts connections, trying for up to timeoutSeconds.
    static bool qwsServerIsExit(int timeoutSeconds);
    // Copies serverProgram to a temporary place (so that an update may replace the original)
    // and launches it detached; true when it was launched.
    static bool startQwsServer(const QString& serverProgram);
};
