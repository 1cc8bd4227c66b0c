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
            why = "a sealed panel cannot be made here (needs root, unshare and overlayfs): " +
                  QString::fromLocal8Bit(probe.readAllStandardError()).trimmed();
    }
    if (reason)
        *reason = why;
    return state == 1;
}

QString makeScratchDir(const QString& name)
{
    const QString dir = QStringLiteral(KEL_BINARY_DIR) + "/test-scratch/" + name + "-" +
                        QUuid::createUuid().toString(QUuid::Id128).left(12);
    QDir().mkpath(dir);
    return dir;
}

namespace {
const char kInsideVariable[] = "KEL_SANDBOX_PANEL";
}

bool inside()
{
    return qEnvironmentVariableIsSet(kInsideVariable);
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
