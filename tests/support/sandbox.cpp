#include "sandbox.h"

#include <QDir>
#include <QProcess>
#include <QUuid>

#include <cstdlib>

namespace sandbox {

bool available(QString* reason)
{
    static int state = -1; // probed once per test program
    static QString why;
    if (state < 0) {
        QProcess probe;
        probe.start(KEL_SANDBOX_SCRIPT, {"--probe"});
        const bool ok = probe.waitForFinished(20000) &&
                        probe.exitStatus() == QProcess::NormalExit && probe.exitCode() == 0;
        state = ok ? 1 : 0;
        if (!ok)
            why = "private mount and PID namespaces are not available here (needs root and "
                  "unshare): " +
                  QString::fromLocal8Bit(probe.readAllStandardError()).trimmed();
    }
    if (reason)
        *reason = why;
    return state == 1;
}

QString makeScratchDir(const QString& name)
{
    const QString dir = QStringLiteral(KEL_SOURCE_DIR) + "/build-scratch/" + name + "-" +
                        QUuid::createUuid().toString(QUuid::Id128).left(12);
    QDir().mkpath(dir);
    return dir;
}

Result run(const QString& panelDir, const QString& program, const QStringList& args,
           const QString& workDir, int timeoutMs)
{
    Result result;
    QProcess process;
    process.setWorkingDirectory(workDir);
    process.start(KEL_SANDBOX_SCRIPT, QStringList{panelDir, program} + args);
    if (!process.waitForFinished(timeoutMs)) {
        result.timedOut = true;
        process.kill(); // ends unshare's PID namespace and everything in it
        process.waitForFinished(5000);
    }
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

namespace {
const char kInsideVariable[] = "KEL_SANDBOX_PANEL";
}

bool inside()
{
    return qEnvironmentVariableIsSet(kInsideVariable);
}

QString panelDir()
{
    return qEnvironmentVariable(kInsideVariable);
}

int rerunInside(int argc, char** argv)
{
    if (inside() || !available(nullptr))
        return -1;
    const QString panel = makeScratchDir("panel");
    QStringList args{panel, QString::fromLocal8Bit(argv[0])};
    for (int i = 1; i < argc; ++i)
        args << QString::fromLocal8Bit(argv[i]);
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(kInsideVariable, panel);
    process.setProcessEnvironment(env);
    process.start(KEL_SANDBOX_SCRIPT, args);
    process.waitForFinished(-1);
    const int status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : 1;
    QDir(panel).removeRecursively();
    return status;
}

} // namespace sandbox
