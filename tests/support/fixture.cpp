#include "fixture.h"

#include "qsettingsfactory.h"
#include "stick_manifest.h"
#include "stick_signature.h"
#include "stick_tree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QUrl>
#include <zlib.h>

namespace fixture {

void writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(bytes);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

int run(const QString& program, const QStringList& args, QByteArray* out, QByteArray* err,
        const QString& workDir)
{
    QProcess process;
    process.setWorkingDirectory(workDir);
    if (out && out == err)
        process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, args);
    const bool ended = process.waitForFinished(180000);
    if (out)
        *out = process.readAllStandardOutput();
    if (err && err != out)
        *err = process.readAllStandardError();
    if (!ended)
        process.kill();
    return ended && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

int kelpack(const QStringList& args, QByteArray* out, QByteArray* err, const QString& workDir)
{
    return run(QStringLiteral(KEL_BINARY_DIR) + "/tools/kelpack", args, out, err, workDir);
}

bool cpioEntry(const QByteArray& archive, const QByteArray& name, int* offset, int* size)
{
    const int header = 110;
    int at = 0;
    while (at + header <= archive.size() && archive.mid(at, 6) == "070701") {
        *size = archive.mid(at + 54, 8).toInt(nullptr, 16);
        const int nameSize = archive.mid(at + 94, 8).toInt(nullptr, 16);
        *offset = (at + header + nameSize + 3) & ~3;
        if (archive.mid(at + header, nameSize - 1) == name)
            return true;
        at = (*offset + *size + 3) & ~3;
    }
    return false;
}

bool signUnchecked(const QString& packageDir, const QString& keyFile, const QStringList& models)
{
    StickManifest manifest;
    manifest.folder = QFileInfo(packageDir).fileName();
    manifest.version = "1.2.0";
    manifest.models = models;
    manifest.replaces = "1.0.0";
    manifest.built = "2026-11-24T00:00:00Z";
    QList<QByteArray> paths;
    QByteArray unsafe, secret;
    if (!StickTree::list(packageDir, &paths, &unsafe))
        return false;
    const QString top = StickTree::topDir(packageDir);
    for (const QByteArray& path : paths) {
        StickManifest::File file;
        file.path = QString::fromUtf8(path);
        if (!StickTree::hash(top + "/" + file.path, &file.size, &file.sha256))
            return false;
        manifest.files << file;
    }
    if (!StickSignature::decode(readFile(keyFile), StickSignature::kSecretKind,
                                StickSignature::kSecretKeyBytes, &secret))
        return false;
    writeFile(packageDir + "/" + StickManifest::kFileName, manifest.text());
    writeFile(packageDir + "/" + StickManifest::kSignatureName,
              StickSignature::encode(StickSignature::kSignatureKind,
                                     StickSignature::sign(manifest.text(), secret)));
    return true;
}

bool copySampleStick(const QString& dir)
{
    return run("cp", {"-R", QStringLiteral(KEL_BINARY_DIR) + "/examples/stick", dir}) == 0;
}

bool copySampleTree(const QString& dir)
{
    return run("cp", {"-R", QStringLiteral(KEL_SOURCE_DIR) + "/examples/sample/package", dir}) == 0;
}

bool seedPanel(const QString& dir)
{
    QDir(dir).removeRecursively();
    return run("/bin/sh", {QStringLiteral(KEL_SOURCE_DIR) + "/sim/seed-panel.sh", dir}) == 0;
}

bool editScrambled(const QString& path, const QByteArray& from, const QByteArray& to)
{
    QByteArray text = readFile(path);
    for (char& byte : text)
        byte = static_cast<char>(QSettingsFactory::unscrambleByte(static_cast<uchar>(byte)));
    if (!text.contains(from))
        return false;
    text.replace(from, to);
    for (char& byte : text)
        byte = static_cast<char>(QSettingsFactory::scrambleByte(static_cast<uchar>(byte)));
    writeFile(path, text);
    return true;
}

int browser(const QString& page, const QStringList& options, const QString& profileDir,
            QByteArray* log)
{
    // Its profile, cache and crash reports stay in profileDir, not in this machine's home.
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"})
        environment.insert(variable, profileDir);
    process.setProcessEnvironment(environment);
    process.start("chromium",
                  QStringList{"--headless=new", "--no-sandbox", "--disable-gpu",
                              "--enable-logging=stderr", "--v=0", "--user-data-dir=" + profileDir} +
                      options + QStringList{QUrl::fromLocalFile(page).toString()});
    const bool ended = process.waitForFinished(60000);
    if (!ended)
        process.kill();
    if (log)
        *log = process.readAllStandardError();
    return ended && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

bool printFirstPage(const QString& page, const QString& pdf, const QString& profileDir,
                    QString* text, QString* problem)
{
    QByteArray log, info, first;
    if (browser(page, {"--no-pdf-header-footer", "--print-to-pdf=" + pdf}, profileDir, &log) != 0)
        *problem = "chromium failed: " + QString::fromUtf8(log);
    for (const QByteArray& line : log.split('\n')) {
        if (line.contains(":CONSOLE"))
            *problem = "the browser's console: " + QString::fromUtf8(line);
    }
    if (problem->isEmpty() && (run("pdfinfo", {pdf}, &info) != 0 || !info.contains("(A4)")))
        *problem = "not printed on A4: " + QString::fromUtf8(info);
    if (problem->isEmpty() &&
        run("pdftotext", {"-f", "1", "-l", "1", "-layout", pdf, "-"}, &first) != 0)
        *problem = "pdftotext failed";
    *text = QString::fromUtf8(first).simplified();
    return problem->isEmpty();
}

QString section(const QString& report, const QString& name)
{
    const int start = report.indexOf("== " + name + "\n");
    if (start < 0)
        return QString();
    const int body = start + name.size() + 4;
    const int end = report.indexOf("\n== ", body - 1); // body - 1: the section may be empty
    return report.mid(body, end < 0 ? -1 : end - body + 1);
}

void writeScrambledIni(const QString& path, const QByteArray& iniText)
{
    QByteArray text = "\xEF\xBB\xBF# test manifest\n" + iniText;
    for (char& byte : text)
        byte = static_cast<char>(QSettingsFactory::scrambleByte(static_cast<unsigned char>(byte)));
    writeFile(path, text);
}

QString crcText(const QByteArray& bytes)
{
    const uLong crc = crc32(0L, reinterpret_cast<const Bytef*>(bytes.constData()),
                            static_cast<uInt>(bytes.size()));
    return QString::number(static_cast<quint32>(crc), 16).toUpper();
}

QStringList texts(const QSignalSpy& spy, bool redOnly)
{
    QStringList result;
    for (const QList<QVariant>& call : spy) {
        if (!redOnly || call.value(1).value<QColor>() == QColor(Qt::red))
            result << call.at(0).toString();
    }
    return result;
}

QuietUpdateParam parseArgs(const QStringList& args)
{
    QVector<QByteArray> bytes{"kelloadui.bin"};
    for (const QString& arg : args)
        bytes << arg.toUtf8();
    QVector<char*> argv;
    for (QByteArray& b : bytes)
        argv << b.data();
    QuietUpdateParam param;
    param.parseCmdParam(argv.size(), argv.data());
    return param;
}

bool mountTmpfs(const QString& dir, const QString& size)
{
    QDir().mkpath(dir);
    return QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=" + size, "tmpfs", dir}) == 0;
}

void removeTree(const QString& dir)
{
    QDir::setCurrent("/");
    const QString prefix = QDir(dir).absolutePath() + "/";
    for (const QByteArray& line : readFile("/proc/self/mounts").split('\n')) {
        const QString mountPoint = QString::fromUtf8(line.split(' ').value(1));
        if (mountPoint.startsWith(prefix))
            QProcess::execute("umount", {"-l", mountPoint});
    }
    QDir(dir).removeRecursively();
}

} // namespace fixture
