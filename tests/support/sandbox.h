#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// Runs commands against a simulated panel (see run-in-sandbox.sh) so that tests can use the real
// absolute paths of a panel without touching this machine's.
namespace sandbox {

// True when private namespaces can be made here; otherwise reason says why.
bool available(QString* reason);

// A fresh directory outside /tmp for panel and stick trees, removed by the caller.
QString makeScratchDir(const QString& name);

struct Result
{
    int exitCode = -1;
    bool timedOut = false;
    QByteArray out;
    QByteArray err;
};

// Runs program with args inside the sandbox over panelDir, in workDir, killing it after timeoutMs.
Result run(const QString& panelDir, const QString& program, const QStringList& args,
           const QString& workDir, int timeoutMs);

} // namespace sandbox

// Skips the calling test function when no sandbox can be made.
#define SANDBOX_REQUIRED()                                                                         \
    do {                                                                                           \
        QString sandboxReason;                                                                     \
        if (!sandbox::available(&sandboxReason))                                                   \
            QSKIP(qPrintable(sandboxReason));                                                      \
    } while (false)
