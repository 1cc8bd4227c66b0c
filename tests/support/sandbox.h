#pragma once

#include <QApplication>
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

// For test programs whose code under test uses the panel's absolute paths itself: reruns the
// whole program inside a sandbox over a fresh panel directory and returns its exit status, or
// returns -1 when the caller is already inside (go on testing) or no sandbox can be made (then
// inside() is false and such tests skip through INSIDE_SANDBOX_REQUIRED()).
int rerunInside(int argc, char** argv);

// True in a program started by rerunInside; panelDir() is then the directory bound over the
// panel's paths as seen from outside (inside, /usr/vorn_app, /etc/systemd/system and /tmp are
// simply the real paths).
bool inside();
QString panelDir();

} // namespace sandbox

// A QTEST_MAIN that runs the test object inside a sandbox (GUI application, offscreen by CTest).
#define KEL_SANDBOXED_TEST_MAIN(TestObject)                                                        \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        const int outer = sandbox::rerunInside(argc, argv);                                        \
        if (outer >= 0)                                                                            \
            return outer;                                                                          \
        QApplication app(argc, argv);                                                              \
        app.setAttribute(Qt::AA_Use96Dpi, true);                                                   \
        TestObject tc;                                                                             \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }

// Skips the calling test function unless the program runs inside a sandbox.
#define INSIDE_SANDBOX_REQUIRED()                                                                  \
    do {                                                                                           \
        QString sandboxReason;                                                                     \
        if (!sandbox::inside())                                                                    \
            QSKIP(sandbox::available(&sandboxReason) ? "not started through rerunInside"           \
                                                     : qPrintable(sandboxReason));                 \
    } while (false)

// Skips the calling test function when no sandbox can be made.
#define SANDBOX_REQUIRED()                                                                         \
    do {                                                                                           \
        QString sandboxReason;                                                                     \
        if (!sandbox::available(&sandboxReason))                                                   \
            QSKIP(qPrintable(sandboxReason));                                                      \
    } while (false)
