#pragma once

#include <QApplication>
#include <QByteArray>
#include <QString>
#include <QStringList>

// Runs test programs on a simulated panel sealed off from this machine (see sim/seal.sh), so that
// tests can use the real absolute paths of a panel, run shell commands and ldconfig as the
// program does, and never change this machine.
namespace sandbox {

// True when private namespaces can be made here; otherwise reason says why.
bool available(QString* reason);

// A fresh directory in the build folder for panel and stick trees, removed by the caller.
QString makeScratchDir(const QString& name);

// For test programs whose code under test uses the panel's absolute paths itself: reruns the
// whole program inside a sandbox over a fresh panel directory and returns its exit status, or
// returns -1 when the caller is already inside (go on testing) or no sandbox can be made (then
// inside() is false and such tests skip through INSIDE_SANDBOX_REQUIRED()).
int rerunInside(int argc, char** argv);

// True in a program started by rerunInside.
bool inside();

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
