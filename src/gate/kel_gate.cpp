#include "kel_gate.h"

#include "clogger.h"
#include "def.h"
#include "gate_notice.h"
#include "maincfg.h"
#include "multilingual_management.h"
#include "panel_identity.h"
#include "panel_library.h"
#include "slienceupdate.h"
#include "stick_tree.h"
#include "trust_store.h"
#include "utf8_text.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

const int kBuiltInSuccessReport = 2059;
const int kBuiltInRunningReport = 2054;
const int kFailureReport = 2055;
const int kTitleText = 2224;
const int kCannotStartText = 2237;
const int kRefusalBeepMs = 1000;
const char kUsageText[] =
    "usage: kelgate [--config DIR] [--state DIR] [--notice-seconds N]\n"
    "               STICK/PACKAGE/kelloadui.bin [PROGRAM_OPTION...]\n"
    "       kelgate --help | --version\n"
    "\n"
    "Checks the stick's manifest, signature and files against the keys in CONFIG/keys (default\n"
    "/etc/kelgate/keys), the model in CONFIG/model and the version in STATE/version (default\n"
    "/var/lib/kelgate/version), then starts kelloadui.bin with the program options.\n"
    "Exit status: the program's own once started; 1 the stick was refused; 2 wrong usage.\n";
// Language files of the gate, beside its program: PREFIX/bin/kelgate, PREFIX/share/kelgate.
const char kLanguageDirFromProgram[] = "/../share/kelgate/language/";

struct ReasonText
{
    StickCheck::Result result;
    int id;
};

const ReasonText kReasonTexts[] = {
    {StickCheck::ManifestUnreadable, 2225}, {StickCheck::Unsigned, 2226},
    {StickCheck::BadSignature, 2227},       {StickCheck::FileChanged, 2228},
    {StickCheck::FileMissing, 2229},        {StickCheck::ExtraFile, 2230},
    {StickCheck::UnsafeEntry, 2231},        {StickCheck::OtherModel, 2232},
    {StickCheck::OlderVersion, 2233},       {StickCheck::PanelTooOld, 2234},
    {StickCheck::ModelUnknown, 2235},       {StickCheck::FileUnreadable, 2236},
};

void journal(const QString& line)
{
    fprintf(stderr, "kelgate: %s\n", line.toUtf8().constData());
    fflush(stderr);
}

// The language the panel's project chose, as the updater picks it, but from the gate's own
// files: the stick's language files are not trusted before the check.
QString languageFile()
{
    QString projectDir = qEnvironmentVariable("VORN_PROJECT_DIR");
    if (projectDir.isEmpty())
        projectDir = kel::kDefaultProjectDir;
    QSettings setup(projectDir + "/lan_setup.ini", QSettings::IniFormat);
    kel::useUtf8Ini(setup);
    int number = setup.value("/current_language/type", 0).toInt();
    if (number < 0)
        number = 0;
    const QString programDir = QFileInfo(QFileInfo("/proc/self/exe").symLinkTarget()).path();
    return QDir::cleanPath(programDir + kLanguageDirFromProgram) +
           QString("/%1.lan").arg(number, 4, 10, QChar('0'));
}

} // namespace

QString KelGate::reason(StickCheck::Result result, const StickCheck& check)
{
    for (const ReasonText& entry : kReasonTexts) {
        if (entry.result != result)
            continue;
        const QStringList& a = check.arguments();
        // One pass for all arguments: a path holding "%2" must stay as it is.
        return a.size() == 2   ? kel::text(entry.id).arg(a[0], a[1])
               : a.size() == 1 ? kel::text(entry.id).arg(a[0])
                               : kel::text(entry.id);
    }
    return QString();
}

bool KelGate::parseArguments(int argc, char** argv)
{
    int i = 1;
    for (; i < argc; ++i) {
        const QString option = QString::fromUtf8(argv[i]);
        if (!option.startsWith("--"))
            break;
        if (i + 1 >= argc)
            return false;
        const QString value = QString::fromUtf8(argv[++i]);
        bool number = false;
        if (option == "--config") {
            m_configDir = value;
        } else if (option == "--state") {
            m_stateDir = value;
        } else if (option == "--notice-seconds") {
            m_noticeSeconds = value.toInt(&number);
            if (!number || m_noticeSeconds < 0)
                return false;
        } else {
            return false;
        }
    }
    if (i >= argc)
        return false;
    const QFileInfo program(QString::fromUtf8(argv[i]));
    m_program = program.absoluteFilePath();
    m_packageDir = program.absolutePath();
    m_programIndex = i;
    m_argc = argc;
    // The gate starts the updater and nothing else.
    return program.fileName() == kel::kProgramName;
}

void KelGate::loadTexts()
{
    MultilingualManager* texts = MultilingualManager::GetInstance();
    texts->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    m_successReport = kel::text(kBuiltInSuccessReport);
    m_runningReport = kel::text(kBuiltInRunningReport);
    texts->loadMultilingualFile(languageFile(), kel::kDefaultLanguageFile);
}

QString KelGate::logPath(char** argv) const
{
    QuietUpdateParam param;
    param.parseCmdParam(m_argc - m_programIndex, argv + m_programIndex);
    const QString path = param.getUpdateFilepath();
    if (path.isEmpty())
        return StickTree::topDir(m_packageDir) + "/" + UPDATE_LOG_FILE_NAME;
    return QDir::cleanPath(QDir(m_packageDir).absoluteFilePath(path));
}

int KelGate::run(int& argc, char** argv)
{
    kel::useUtf8Locale();
    const QString first = argc > 1 ? QString::fromUtf8(argv[1]) : QString();
    if (first == "--help" || first == "-h") {
        fputs(kUsageText, stdout);
        return 0;
    }
    if (first == "--version") {
        printf("kelgate %s\n", KEL_VERSION);
        return 0;
    }
    if (!parseArguments(argc, argv)) {
        fputs(kUsageText, stderr);
        return kUsage;
    }
    loadTexts();
    PanelIdentity panel(m_configDir, m_stateDir);
    // A run that the panel's restart ended is recorded now.
    if (panel.settlePending(m_successReport))
        journal("recorded installed version " + panel.installedVersion());
    const TrustStore keys(m_configDir + "/keys");
    for (const QString& problem : keys.problems())
        journal(problem);
    StickCheck check(m_packageDir);
    const StickCheck::Result result = check.run(keys, &panel);
    if (result == StickCheck::NoManifest) {
        journal(m_packageDir + ": no manifest and no key installed: started unchecked");
        return start(argv, nullptr);
    }
    if (result != StickCheck::Passed)
        return refuse(argc, argv, reason(result, check), check.detail());

    const QString log = logPath(argv);
    // An older report at the head of the log must not pass for this run's.
    if (QFileInfo::exists(log)) {
        CLogger head(log, CLogger::ReadWrite);
        head.writeReport(m_runningReport);
    }
    if (!panel.recordPending(check.manifest().version, log, check.manifestPath(),
                             check.manifestSha256()))
        journal(m_stateDir + ": cannot be written: the installed version will not be recorded");
    journal(m_packageDir + ": package " + check.manifest().version + " for " +
            check.manifest().models.join(", ") + " passed (" +
            QString::number(check.manifest().files.size()) +
            (keys.isEmpty() ? " files, no key installed" : " files, signed") + "): starting " +
            kel::kProgramName);
    return start(argv, &panel);
}

int KelGate::start(char** argv, PanelIdentity* panel)
{
    std::vector<char*> programArgv;
    const QByteArray program = QFile::encodeName(m_program);
    programArgv.push_back(const_cast<char*>(program.constData()));
    for (int i = m_programIndex + 1; i < m_argc; ++i)
        programArgv.push_back(argv[i]);
    programArgv.push_back(nullptr);

    // The child reports a failed exec through a pipe that a successful exec closes.
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0)
        return refuse(m_argc, argv, kel::text(kCannotStartText).arg(m_program), strerror(errno));
    const pid_t child = fork();
    int error = errno;
    if (child == 0) {
        close(report[0]);
        execv(programArgv[0], programArgv.data());
        error = errno;
        [[maybe_unused]] const ssize_t sent = write(report[1], &error, sizeof error);
        _exit(127);
    }
    close(report[1]);
    ssize_t n = -1;
    while (child > 0 && (n = read(report[0], &error, sizeof error)) < 0 && errno == EINTR) {
    }
    close(report[0]);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (panel && panel->settlePending(m_successReport))
        journal("recorded installed version " + panel->installedVersion());
    if (child < 0 || n == sizeof error)
        return refuse(m_argc, argv, kel::text(kCannotStartText).arg(m_program), strerror(error));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int KelGate::refuse(int& argc, char** argv, const QString& reason, const QString& detail)
{
    const QString line = kel::text(kTitleText) + ": " + reason;
    CLogger log(logPath(argv), CLogger::ReadWrite);
    log.writeReport(kel::text(kFailureReport));
    log.write(line + "\n");
    log.close();
    journal(m_packageDir + ": " + line + (detail.isEmpty() ? QString() : " (" + detail + ")"));
    PanelLibrary::instance().setBeeTime(kRefusalBeepMs);

    QApplication app(argc, argv);
    MainCfg::initCfg(app);
    GateNotice notice(reason, m_packageDir, m_noticeSeconds);
    notice.show();
    app.exec();
    return kRefused;
}
