#include "kel_gate.h"

#include "def.h"
#include "filetools.h"
#include "gate_notice.h"
#include "maincfg.h"
#include "multilingual_management.h"
#include "panel_identity.h"
#include "panel_library.h"
#include "ram_folder.h"
#include "safe_file.h"
#include "stick_manifest.h"
#include "stick_sources.h"
#include "stick_tree.h"
#include "trust_store.h"
#include "utf8_text.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSettings>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

const int kRefusalBeepMs = 1000;
const qint64 kMib = qint64(1) << 20;
// The log carried between the stick and the panel; a larger one is started afresh.
const qint64 kMaxLogBytes = 64 * kMib;
const char kPanelLogName[] = "update.log";
const char kLockName[] = "lock";
const char kCopyFolderName[] = "stick";
const char kUsageText[] =
    "usage: kelgate [--config DIR] [--state DIR] [--run DIR] [--ram-limit MIB]\n"
    "               [--notice-seconds N] STICK/PACKAGE/kelloadui.bin [PROGRAM_OPTION...]\n"
    "       kelgate --help | --version\n"
    "\n"
    "Checks the panel's keys in CONFIG/keys (default /etc/kelgate/keys), its model in\n"
    "CONFIG/model and its version in STATE/version (default /var/lib/kelgate/version), then the\n"
    "stick's manifest and signature; copies the signed files into a private RAM folder below RUN\n"
    "(default /run/kelgate; at most MIB, default half of the free memory), checks them there and\n"
    "starts that copy of kelloadui.bin with the program options. One stick at a time.\n"
    "Exit status: the program's own once started; 1 the stick was refused; 2 wrong usage.\n";
// Language files of the gate, beside its program: PREFIX/bin/kelgate, PREFIX/share/kelgate.
const char kLanguageDirFromProgram[] = "/../share/kelgate/language/";

struct ReasonText
{
    StickCheck::Result result;
    kel::TextId id;
};

const ReasonText kReasonTexts[] = {
    {StickCheck::ManifestUnreadable, kel::kGateManifestUnreadable},
    {StickCheck::Unsigned, kel::kGateUnsigned},
    {StickCheck::BadSignature, kel::kGateBadSignature},
    {StickCheck::FileChanged, kel::kGateFileChanged},
    {StickCheck::FileMissing, kel::kGateFileMissing},
    {StickCheck::ExtraFile, kel::kGateFileNotListed},
    {StickCheck::UnsafeEntry, kel::kGateUnsafeEntry},
    {StickCheck::OtherModel, kel::kGateOtherModel},
    {StickCheck::OlderVersion, kel::kGateOlderVersion},
    {StickCheck::PanelTooOld, kel::kGatePanelTooOld},
    {StickCheck::ModelUnknown, kel::kGateModelUnknown},
    {StickCheck::FileUnreadable, kel::kGateFileUnreadable},
    {StickCheck::KeysUnusable, kel::kGateKeysUnusable},
    {StickCheck::VersionUnreadable, kel::kGateVersionUnreadable},
};

// Where the stick's program writes its log, relative to the package folder, read from its options
// as the program reads them: an option is found by substring, its value follows one space in the
// same argument, and the last "-p" wins. Without -r, -s, -p or -nr the run writes no log (empty);
// without a path, the log lies beside the package folder (two levels up on a lite runtime).
QString programLog(int argc, char** argv)
{
    bool quiet = false;
    QString given;
    for (int i = 0; i < argc; ++i) {
        const QString arg = QString::fromUtf8(argv[i]);
        quiet = quiet || arg.contains("-r") || arg.contains("-s") || arg.contains("-p") ||
                arg.contains("-nr");
        const QStringList parts = arg.split(' ', Qt::KeepEmptyParts);
        if (arg.contains("-p") && parts.size() > 1)
            given = parts.at(1);
    }
    if (!quiet)
        return QString();
    if (!given.isEmpty())
        return given;
    return QString(FileTools::checkLiteVornApp() ? "../../" : "../") + UPDATE_LOG_FILE_NAME;
}

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

// The log with a report over its first bytes, as the updater writes its report.
QByteArray withReport(QByteArray log, const QString& report)
{
    const QByteArray head = report.toUtf8();
    return log.replace(0, std::min(head.size(), log.size()), head);
}

QByteArray sha256Of(const QString& path)
{
    QByteArray bytes;
    if (SafeFile::read(path, StickManifest::kMaxBytes, &bytes) != SafeFile::Ok)
        return QByteArray();
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

bool isBelow(const QString& path, const QString& dir)
{
    return path.startsWith(dir + "/");
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
        bool number = true;
        if (option == "--config")
            m_configDir = value;
        else if (option == "--state")
            m_stateDir = value;
        else if (option == "--run")
            m_runDir = value;
        else if (option == "--notice-seconds")
            m_noticeSeconds = value.toInt(&number);
        else if (option == "--ram-limit")
            m_ramLimitMib = value.toLongLong(&number);
        else
            return false;
        if (!number || m_noticeSeconds < 0 || m_ramLimitMib < 0)
            return false;
    }
    if (i >= argc)
        return false;
    const QFileInfo program(QString::fromUtf8(argv[i]));
    m_program = program.absoluteFilePath();
    m_packageDir = program.absolutePath();
    m_programIndex = i;
    m_argc = argc;
    m_argv = argv;
    // The gate starts the updater and nothing else.
    return program.fileName() == kel::kProgramName;
}

void KelGate::loadTexts()
{
    MultilingualManager* texts = MultilingualManager::GetInstance();
    texts->loadMultilingualFile(QString(), kel::kDefaultLanguageFile);
    // The report lines as the updater writes them, from the built-in table whatever the language.
    m_successReport = kel::text(kel::kReportSucceeded);
    m_runningReport = kel::text(kel::kReportHeading);
    texts->loadMultilingualFile(languageFile(), kel::kDefaultLanguageFile);
}

QString KelGate::logPath(char** argv) const
{
    const QString path = programLog(m_argc - m_programIndex - 1, argv + m_programIndex + 1);
    if (path.isEmpty())
        return StickTree::topDir(m_packageDir) + "/" + UPDATE_LOG_FILE_NAME;
    return QDir::cleanPath(QDir(m_packageDir).absoluteFilePath(path));
}

bool KelGate::lockRun()
{
    QDir().mkpath(m_runDir);
    const QByteArray path = QFile::encodeName(m_runDir + "/" + kLockName);
    m_lock = ::open(path.constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    return m_lock >= 0 && flock(m_lock, LOCK_EX | LOCK_NB) == 0;
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
    m_appArgc = &argc;
    loadTexts();
    // A second stick while one is checked or updated is turned away quietly: the screen
    // belongs to the running update.
    if (!lockRun())
        return m_lock >= 0 && errno == EWOULDBLOCK
                   ? refuse(kel::text(kel::kGateAnotherStickBusy), QString(), false)
                   : refuse(kel::text(kel::kGateCannotPrepareCopy).arg(m_runDir), strerror(errno));
    return checkAndStart(argv);
}

int KelGate::checkAndStart(char** argv)
{
    PanelIdentity panel(m_configDir, m_stateDir);
    // Without its state the gate could neither hold the version floor nor keep the run's log.
    if (!panel.stateWritable())
        return refuse(
            kel::text(kel::kGateStateUnwritable).arg(StickTree::quoted(m_stateDir.toUtf8())),
            QString());
    const QString log = logPath(argv);
    settleEarlierRun(&panel, log);
    const TrustStore keys(m_configDir + "/keys");
    for (const QString& problem : keys.problems())
        journal(problem);
    StickCheck check(m_packageDir);
    StickCheck::Result result = check.checkListing(keys, &panel);
    const bool listed = result != StickCheck::NoManifest;
    if (!listed) {
        journal(m_packageDir + ": no manifest and no key installed: starting it unchecked");
        result = check.adoptListing();
    }
    if (result != StickCheck::Passed)
        return refuse(reason(result, check), check.detail());
    RamFolder copy(m_runDir + "/" + kCopyFolderName);
    QElapsedTimer timer;
    timer.start();
    if (!copyChecked(&check, log, &copy))
        return kRefused;
    qint64 copied = 0;
    for (const StickManifest::File& file : check.manifest().files)
        copied += file.size;
    journal(m_packageDir + ": " +
            (listed ? "package " + check.manifest().version + " for " +
                          check.manifest().models.join(", ") + " passed (" +
                          (keys.isEmpty() ? "no key installed" : "signed") + ")"
                    : QString("no manifest")) +
            ": " + QString::number(check.manifest().files.size()) + " files, " +
            QString::number(copied / kMib) + " MiB copied and checked in " +
            QString::number(timer.elapsed()) + " ms");
    return runCopy(check, listed ? &panel : nullptr, log, copy.dir(), argv);
}

void KelGate::settleEarlierRun(PanelIdentity* panel, const QString& log)
{
    // A run that the panel's restart ended is settled from the log the panel kept; its log
    // goes back to its stick when that is the stick inserted now.
    const QByteArray pendingStick = panel->pendingManifest();
    if (panel->settlePending(m_successReport))
        journal("recorded installed version " + panel->installedVersion());
    if (!pendingStick.isEmpty() && isBelow(log, StickTree::topDir(m_packageDir)) &&
        pendingStick == sha256Of(m_packageDir + "/" + StickManifest::kFileName))
        carryLogBack(m_stateDir + "/" + kPanelLogName, log);
}

bool KelGate::copyChecked(StickCheck* check, const QString& log, RamFolder* copy)
{
    QByteArray oldLog;
    SafeFile::read(log, kMaxLogBytes, &oldLog);
    const qint64 needed =
        RamFolder::needed(check->manifest(), RamFolder::kWorkingRoomBytes + oldLog.size());
    qint64 room = RamFolder::allowed(m_ramLimitMib);
    QString error;
    const RamFolder::Result made =
        needed > room ? RamFolder::NoRoom : copy->prepare(needed, &room, &error);
    if (made == RamFolder::NoRoom)
        refuse(
            kel::text(kel::kGateNotEnoughMemory).arg((needed + kMib - 1) / kMib).arg(room / kMib),
            QString());
    else if (made == RamFolder::Failed)
        refuse(kel::text(kel::kGateCannotPrepareCopy).arg(copy->dir()), error);
    if (made != RamFolder::Ready)
        return false;
    const StickCheck::Result result = check->checkContents(copy->dir());
    if (result != StickCheck::Passed) {
        refuse(reason(result, *check), check->detail());
        return false;
    }
    const QString outside = sourceOutside(copy->dir() + "/" + QFileInfo(m_packageDir).fileName());
    if (!outside.isEmpty()) {
        refuse(outside, QString());
        return false;
    }
    return true;
}

int KelGate::runCopy(const StickCheck& check, PanelIdentity* panel, const QString& log,
                     const QString& copyTop, char** argv)
{
    const QString panelLog = prepareLog(log, copyTop);
    if (panelLog.isEmpty() || (panel && !panel->recordPending(check.manifest().version,
                                                              check.manifestSha256(), panelLog)))
        return refuse(
            kel::text(kel::kGateStateUnwritable).arg(StickTree::quoted(m_stateDir.toUtf8())),
            QString());
    const QString program =
        copyTop + "/" + QFileInfo(m_packageDir).fileName() + "/" + kel::kProgramName;
    journal("starting " + program);
    m_started = false;
    const int status = start(program, argv);
    if (!m_started)
        return status;
    if (panelLog != log)
        carryLogBack(panelLog, log);
    if (panel && panel->settlePending(m_successReport))
        journal("recorded installed version " + panel->installedVersion());
    return status;
}

QString KelGate::sourceOutside(const QString& copyPackage) const
{
    StickSources sources;
    QString error;
    // An unreadable manifest is the program's to report; it names no source at all.
    if (!sources.read(copyPackage, &error))
        return QString();
    const QVector<StickSources::Source> outside = sources.outside();
    if (outside.isEmpty())
        return QString();
    const StickSources::Source& source = outside.first();
    return kel::text(kel::kGateSourceOutsideCheck)
        .arg(StickTree::quoted((source.manifest + " " + source.key).toUtf8()),
             StickTree::quoted(source.value.toUtf8()));
}

QString KelGate::prepareLog(const QString& log, const QString& copyTop)
{
    const QString top = StickTree::topDir(m_packageDir);
    QByteArray text;
    SafeFile::read(log, kMaxLogBytes, &text);
    // An older report at the head of the log must not pass for this run's.
    if (!text.isEmpty())
        text = withReport(text, m_runningReport);
    if (!isBelow(log, top))
        return text.isEmpty() || SafeFile::replace(log, text) ? log : QString();
    const QString panelLog = m_stateDir + "/" + kPanelLogName;
    const QString copyLog = copyTop + log.mid(top.size());
    // A log named by its path on the stick is written in the copy, like one named relatively.
    for (int i = m_programIndex + 1; i < m_argc; ++i) {
        const QStringList parts = QString::fromUtf8(m_argv[i]).split(' ');
        if (parts.value(0) == "-p" && parts.size() == 2 && parts[1].startsWith('/') &&
            QDir::cleanPath(parts[1]) == log)
            m_replacedOptions[i] = ("-p " + copyLog).toUtf8();
    }
    QDir().mkpath(QFileInfo(copyLog).path());
    QFile::remove(copyLog);
    if (!SafeFile::replace(panelLog, text) || !QFile::link(panelLog, copyLog))
        return QString();
    return panelLog;
}

void KelGate::carryLogBack(const QString& panelLog, const QString& stickLog)
{
    QByteArray text;
    if (SafeFile::read(panelLog, kMaxLogBytes, &text) != SafeFile::Ok ||
        !writeToStick(stickLog, text))
        journal(stickLog + ": the log cannot be written back to the stick; it stays in " +
                panelLog);
}

bool KelGate::writeToStick(const QString& path, const QByteArray& bytes)
{
    const QString top = StickTree::topDir(m_packageDir);
    if (!isBelow(path, top))
        return SafeFile::replace(path, bytes);
    const QString relative = path.mid(top.size() + 1);
    if (SafeFile::replaceBelow(top, relative, bytes))
        return true;
    // The stick is mounted read-only while it is checked and used; its log goes back after.
    return errno == EROFS && RamFolder::remountWritable(top) &&
           SafeFile::replaceBelow(top, relative, bytes);
}

int KelGate::start(const QString& program, char** argv)
{
    std::vector<char*> programArgv;
    const QByteArray path = QFile::encodeName(program);
    programArgv.push_back(const_cast<char*>(path.constData()));
    for (int i = m_programIndex + 1; i < m_argc; ++i) {
        const auto replaced = m_replacedOptions.find(i);
        programArgv.push_back(replaced == m_replacedOptions.end() ? argv[i] : replaced->data());
    }
    programArgv.push_back(nullptr);

    // The child reports a failed exec through a pipe that a successful exec closes.
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0)
        return cannotStart(errno);
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
    m_started = n == 0;
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (child < 0 || n == sizeof error)
        return cannotStart(error);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int KelGate::cannotStart(int error)
{
    PanelIdentity(m_configDir, m_stateDir).settlePending(m_successReport);
    return refuse(kel::text(kel::kGateCannotStartProgram).arg(m_program), strerror(error));
}

int KelGate::refuse(const QString& reason, const QString& detail, bool notice)
{
    const QString line = kel::text(kel::kGateUpdateRefused) + ": " + reason;
    const QString log = logPath(m_argv);
    QByteArray text;
    SafeFile::read(log, kMaxLogBytes, &text);
    if (!writeToStick(log, withReport(text, kel::text(kel::kReportFailed)) + line.toUtf8() + "\n"))
        journal(log + ": the refusal cannot be written into the log");
    journal(m_packageDir + ": " + line + (detail.isEmpty() ? QString() : " (" + detail + ")"));
    if (!notice)
        return kRefused;
    PanelLibrary::instance().setBeeTime(kRefusalBeepMs);

    QApplication app(*m_appArgc, m_argv);
    MainCfg::initCfg(app);
    GateNotice note(reason, m_packageDir, m_noticeSeconds);
    note.show();
    app.exec();
    return kRefused;
}
