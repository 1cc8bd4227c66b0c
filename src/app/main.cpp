#include "clogger.h"
#include "def.h"
#include "kill_process.h"
#include "maincfg.h"
#include "multilingual_management.h"
#include "qws_process.h"
#include "slienceupdate.h"
#include "udiskupwin.h"
#include "utf8_text.h"
#include "vorn_process.h"
#include "winbackgrnd.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

void sigHandler(int sig)
{
    if (sig != SIGRTMIN + 10)
        return;
    if (pDiskUpWin) {
        pDiskUpWin->CloseBySignal();
        delete pDiskUpWin;
        pDiskUpWin = nullptr;
    }
    exit(0);
}

bool updateEnvPath()
{
    const QByteArray dir = QCoreApplication::applicationDirPath().toUtf8();
    printf("--------------%s\n", dir.constData());
    if (setenv("LD_LIBRARY_PATH", dir.constData(), 1) != 0)
        return false;
    printf("kelloadui.bin %d", chdir(dir.constData()));
    return true;
}

void backToUpDir()
{
    const QByteArray current = QFile::encodeName(QDir::currentPath());
    const QByteArray parent = current.left(current.lastIndexOf('/'));
    if (chdir(parent.constData()) != 0)
        perror("backToUpDir");
}

namespace {

// The text up to its last "/"; unchanged when it holds none.
QString cutAtLastSlash(const QString& path)
{
    const int slash = path.lastIndexOf('/');
    return slash < 0 ? path : path.left(slash);
}

QString languageNumber(int number)
{
    return QString("%1").arg(number, 4, 10, QChar('0'));
}

// The language file: the command line's, else the project's choice, else the tool's own.
QString chooseLanguageFile(const QuietUpdateParam& param, const QString& baseDir)
{
    QString languageId;
    if (param.lanGiven) {
        languageId = param.lanId;
    } else {
        QString projectDir = qEnvironmentVariable("VORN_PROJECT_DIR");
        if (projectDir.isEmpty())
            projectDir = kel::kDefaultProjectDir;
        const QString setup = projectDir + "/lan_setup.ini";
        if (QFile::exists(setup)) {
            QSettings settings(setup, QSettings::IniFormat);
            kel::useUtf8Ini(settings);
            if (settings.contains("/current_language/type")) {
                const int number = settings.value("/current_language/type").toInt();
                if (number != -1)
                    languageId = languageNumber(number);
            }
        }
    }
    const QString languageFile = baseDir + "/language/" + languageId + ".lan";
    if (!languageId.isEmpty() && QFile::exists(languageFile))
        return languageFile;
    QSettings tool(baseDir + "/config/vornUpdateSet.ini", QSettings::IniFormat);
    kel::useUtf8Ini(tool);
    const int number = tool.value("/tool_language/type", 0).toInt();
    return baseDir + "/language/" + languageNumber(number) + ".lan";
}

} // namespace

int main(int argc, char** argv)
{
    // Every 8-bit text of this program (arguments, paths, logs) is UTF-8.
    kel::useUtf8Locale();

    QuietUpdateParam param;
    param.parseCmdParam(argc, argv);
    // The dialog finds the runtime directory through the environment.
    if (qEnvironmentVariable(kel::kVornWorkDirVariable).isEmpty())
        setenv(kel::kVornWorkDirVariable, kel::kVornAppDir, 1);

    signal(SIGRTMIN + 10, sigHandler);
    my_kill_process::kill_Self_Previous(kel::kProgramName, SIGRTMIN + 10);
    vorn_process::exitProcess(3000, nullptr, true);

    char exePath[1024];
    memset(exePath, 0, sizeof exePath);
    if (readlink("/proc/self/exe", exePath, sizeof exePath - 1) < 0) {
        printf("loadui get exepath failed:%s\n", strerror(errno));
        return -1;
    }
    const QString exeDir = cutAtLastSlash(QString::fromUtf8(exePath));
    const QString baseDir = cutAtLastSlash(exeDir);

    if (!QwsProcess::qwsServerIsExit(0))
        QwsProcess::startQwsServer(baseDir + "/qws/qwsserver");

    // The windows are drawn by the raster engine alone; on X11 Qt would otherwise load a GL
    // driver stack of tens of MiB that the updater never uses. The toolkit reads the setting when
    // it makes the first window; the children (ldconfig, md5sum, the package's command) must not
    // inherit it.
    const bool glChosenHere = qEnvironmentVariableIsEmpty("QT_XCB_GL_INTEGRATION");
    if (glChosenHere)
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    QApplication app(argc, argv);
    MainCfg::initCfg(app);
    MultilingualManager::GetInstance()->loadMultilingualFile(chooseLanguageFile(param, baseDir),
                                                             kel::kDefaultLanguageFile);
    updateEnvPath();
    const QString logPath = param.getUpdateFilepath();

    pDiskUpWin = new (std::nothrow) UDiskUpWin(nullptr);
    if (!pDiskUpWin) {
        CLogger failure(logPath, CLogger::ReadWrite);
        failure.writeReport(kel::text(kel::kReportFailed));
        failure.write("------------------------\n");
        failure.write(kel::text(kel::kOutOfMemory));
        failure.close();
        return -1;
    }
    pDiskUpWin->setParamInfo(param);
    CLogger* logger = new CLogger(logPath, CLogger::ReadWrite);
    logger->toggleLogger(true);
    pDiskUpWin->setLogger(logger);
    vorn_process::setMulLanguage(
        [](int id) { return MultilingualManager::GetInstance()->getMultilingualValue(id); });

    winBackgrnd background;
    background.show();
    if (glChosenHere)
        qunsetenv("QT_XCB_GL_INTEGRATION");
    logger->write(kel::text(kel::kReportHeading));
    logger->write("------------------------\n");
    QObject::connect(pDiskUpWin, &UDiskUpWin::setErrorBackgrnd, &background,
                     &winBackgrnd::setBackgrnd);

    pDiskUpWin->exec();
    delete pDiskUpWin;
    pDiskUpWin = nullptr;
    delete logger;

    if (param.quiet)
        return 0;
    return app.exec();
}
