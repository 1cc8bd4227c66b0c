#include "package_signer.h"

#include "package_verifier.h"
#include "safe_file.h"
#include "stick_builder.h"

#include "stick_check.h"
#include "stick_signature.h"
#include "stick_tree.h"
#include "trust_store.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QTextStream>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char kSignUsage[] =
    "usage: kelpack keygen NAME\n"
    "       kelpack sign STICK_PACKAGE_DIR SECRET_KEY|--unsigned [--version V] "
    "[--models M,...] [--replaces V]\n";
const qint64 kMaxKeyFileBytes = 4096;

struct Explanation
{
    StickCheck::Result result;
    const char* text;
};

// What the package tool says for each finding of the gate's check, with what to do.
const Explanation kExplanations[] = {
    {StickCheck::ManifestUnreadable, "%1:%2: %3: write it again with kelpack sign"},
    {StickCheck::Unsigned, "the manifest is not signed: sign it with kelpack sign"},
    {StickCheck::BadSignature,
     "the signature verifies with no key of --keys: sign the stick again with a key whose .pub "
     "file the panels hold"},
    {StickCheck::FileChanged,
     "%1 differs from the manifest (size or SHA-256): sign the stick again after changing it"},
    {StickCheck::FileMissing, "%1 is listed but missing: copy it back or sign the stick again"},
    {StickCheck::ExtraFile,
     "%1 is not listed: panels refuse it; remove it or sign the stick again"},
    {StickCheck::UnsafeEntry,
     "%1 is a link or special file: panels refuse it; put a regular file in its place"},
    {StickCheck::FileUnreadable, "%1 cannot be read"},
    {StickCheck::KeysUnusable,
     "%1 is not a readable key: give --keys a folder that holds only .pub files from kelpack "
     "keygen"},
};

// A secret key, or a text that holds one: wiped when it goes.
struct SecretKey
{
    QByteArray bytes;
    SecretKey() = default;
    SecretKey(const SecretKey&) = delete;
    SecretKey& operator=(const SecretKey&) = delete;
    ~SecretKey() { StickSignature::wipe(&bytes); }
};

// The key of a file written by keygen: a regular file of its own that only its owner may read.
bool readSecretKey(const QString& path, QByteArray* key, QString* error)
{
    SecretKey text;
    struct stat status;
    const SafeFile::Read read = SafeFile::read(path, kMaxKeyFileBytes, &text.bytes);
    if (read == SafeFile::Ok && ::stat(QFile::encodeName(path).constData(), &status) == 0 &&
        (status.st_mode & 077) != 0) {
        *error = QString("%1: others may read it (mode %2): a secret key is for its owner "
                         "alone: chmod 600 %1, and keep it off shared folders")
                     .arg(path)
                     .arg(status.st_mode & 0777, 4, 8, QChar('0'));
        return false;
    }
    if (read != SafeFile::Ok || !StickSignature::decode(text.bytes, StickSignature::kSecretKind,
                                                        StickSignature::kSecretKeyBytes, key)) {
        *error = path + ": not a secret key file written by kelpack keygen";
        return false;
    }
    return true;
}

// Creates path with mode and writes bytes; never replaces an existing file.
bool writeNewFile(const QString& path, const QByteArray& bytes, mode_t mode, QString* error)
{
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd < 0) {
        *error = path + ": cannot be created: " + QString::fromLocal8Bit(strerror(errno));
        return false;
    }
    // The umask may only narrow the mode; the secret key must not be wider either.
    const bool ok = fchmod(fd, mode) == 0 &&
                    write(fd, bytes.constData(), size_t(bytes.size())) == bytes.size() &&
                    fsync(fd) == 0;
    const int writeErrno = errno;
    ::close(fd);
    if (!ok) {
        QFile::remove(path);
        *error = path + ": cannot be written: " + QString::fromLocal8Bit(strerror(writeErrno));
    }
    return ok;
}

bool writeFile(const QString& path, const QByteArray& bytes, QString* error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit())
        return true;
    *error = path + ": cannot be written: " + file.errorString();
    return false;
}

QString buildTime()
{
    // A reproducible build fixes its time through the usual variable.
    bool given = false;
    const qint64 epoch = qEnvironmentVariable("SOURCE_DATE_EPOCH").toLongLong(&given);
    const QDateTime time =
        given ? QDateTime::fromSecsSinceEpoch(epoch, Qt::UTC) : QDateTime::currentDateTimeUtc();
    return time.toString("yyyy-MM-ddThh:mm:ssZ");
}

bool readManifest(const QString& packageDir, StickManifest* manifest, int* line, QString* why)
{
    QFile file(packageDir + "/" + StickManifest::kFileName);
    if (!file.open(QIODevice::ReadOnly)) {
        *why = file.errorString();
        return false;
    }
    return manifest->parse(file.read(StickManifest::kMaxBytes + 1), line, why);
}

} // namespace

QString PackageSigner::releaseProblem(const StickManifest& release)
{
    if (!StickManifest::isVersion(release.version))
        return "version \"" + release.version +
               "\" must be one to four dot-separated numbers, such as 1.2.0";
    if (release.models.isEmpty())
        return "models are missing: name the panel models the package is for";
    for (const QString& model : release.models) {
        if (!StickManifest::isModel(model))
            return "models: \"" + model +
                   "\" is no model name (letters, digits, \".\", \"_\", \"+\", \"-\")";
    }
    if (!StickManifest::isVersion(release.replaces))
        return "replaces \"" + release.replaces +
               "\" must be one to four dot-separated numbers (0: any panel)";
    return QString();
}

int PackageSigner::run(const QStringList& args)
{
    if (args.isEmpty() || (args[0] != "keygen" && args[0] != "sign"))
        return -1;
    QString error;
    if (args[0] == "keygen" && args.size() == 2) {
        if (!keygen(args[1], &error)) {
            fprintf(stderr, "kelpack: %s\n", qPrintable(error));
            return 1;
        }
        printf("wrote %s.key (keep it secret) and %s.pub (install it on the panels in "
               "/etc/kelgate/keys/)\n",
               qPrintable(args[1]), qPrintable(args[1]));
        return 0;
    }
    if (args[0] != "sign" || args.size() < 3 || (args.size() - 3) % 2 != 0) {
        fputs(kSignUsage, stderr);
        return 2;
    }
    StickManifest release;
    int line = 0;
    QString why;
    // Without options the stick keeps the release data of the manifest it has.
    readManifest(args[1], &release, &line, &why);
    for (int i = 3; i < args.size(); i += 2) {
        if (args[i] == "--version") {
            release.version = args[i + 1];
        } else if (args[i] == "--models") {
            release.models = args[i + 1].split(',');
        } else if (args[i] == "--replaces") {
            release.replaces = args[i + 1];
        } else {
            fputs(kSignUsage, stderr);
            return 2;
        }
    }
    if (release.replaces.isEmpty())
        release.replaces = "0";
    const QString problem = releaseProblem(release);
    if (!problem.isEmpty()) {
        fprintf(stderr, "kelpack: %s: give --version, --models and --replaces\n",
                qPrintable(problem));
        return 1;
    }
    const QString key = args[2] == "--unsigned" ? QString() : args[2];
    if (!sign(args[1], release, key, &error)) {
        fprintf(stderr, "kelpack: %s\n", qPrintable(error));
        return 1;
    }
    printf("%s manifest written to %s/%s\n", key.isEmpty() ? "unsigned" : "signed",
           qPrintable(args[1]), StickManifest::kFileName);
    return 0;
}

bool PackageSigner::keygen(const QString& name, QString* error)
{
    const QString secretPath = name + ".key", publicPath = name + ".pub";
    for (const QString& path : {secretPath, publicPath}) {
        if (QFileInfo::exists(path) || QFileInfo(path).isSymLink()) {
            *error = path + ": already exists; kelpack never replaces a key: choose another name";
            return false;
        }
    }
    QByteArray publicKey;
    SecretKey secretKey, secretText;
    if (!StickSignature::generate(&publicKey, &secretKey.bytes)) {
        *error = "the signature library cannot start";
        return false;
    }
    secretText.bytes = StickSignature::encode(StickSignature::kSecretKind, secretKey.bytes);
    if (!writeNewFile(secretPath, secretText.bytes, 0600, error))
        return false;
    if (!writeNewFile(publicPath, StickSignature::encode(StickSignature::kPublicKind, publicKey),
                      0644, error)) {
        QFile::remove(secretPath);
        return false;
    }
    return true;
}

QString PackageSigner::sourcesProblem(const QString& packageDir, const QString& treeDir)
{
    PackageVerifier sources(packageDir, treeDir);
    sources.verifySources();
    QStringList lines;
    for (VerifyReport::Finding finding : sources.report().findings()) {
        finding.file =
            QDir(treeDir.isEmpty() ? packageDir : treeDir).absoluteFilePath(finding.file);
        lines << VerifyReport::text(finding);
    }
    if (lines.isEmpty())
        return QString();
    return lines.join('\n') + "\nnothing was signed";
}

bool PackageSigner::sign(const QString& packageDir, StickManifest release,
                         const QString& secretKeyFile, QString* error)
{
    const QString problem = sourcesProblem(packageDir, QString());
    if (!problem.isEmpty()) {
        *error = problem;
        return false;
    }
    return write(packageDir, release, secretKeyFile, error);
}

bool PackageSigner::write(const QString& packageDir, StickManifest release,
                          const QString& secretKeyFile, QString* error)
{
    const QString package = QDir(packageDir).absolutePath();
    SecretKey secretKey;
    if (!secretKeyFile.isEmpty() && !readSecretKey(secretKeyFile, &secretKey.bytes, error))
        return false;
    release.folder = QFileInfo(package).fileName();
    release.models.sort();
    release.models.removeDuplicates();
    release.built = buildTime();
    release.files.clear();
    QList<QByteArray> names;
    QByteArray unsafe;
    if (!StickTree::list(package, &names, &unsafe)) {
        *error = StickTree::quoted(unsafe) +
                 ": a link, a special file or a name that is not UTF-8; panels refuse sticks "
                 "with one: put a regular file with a UTF-8 name in its place";
        return false;
    }
    const QString top = StickTree::topDir(package);
    for (const QByteArray& name : names) {
        const QString path = QString::fromUtf8(name);
        const QString problem = StickManifest::pathProblem(path, release.folder);
        StickManifest::File file;
        file.path = path;
        if (!problem.isEmpty()) {
            *error = top + "/" + path + ": cannot be listed: " + problem;
            return false;
        }
        if (!StickTree::hash(top + "/" + path, &file.size, &file.sha256)) {
            *error = top + "/" + path + ": cannot be read";
            return false;
        }
        release.files.append(file);
    }
    // What the panel reads must read back: the writer holds itself to the reader's rules.
    const QByteArray text = release.text();
    StickManifest check;
    int line = 0;
    QString why;
    if (!check.parse(text, &line, &why)) {
        *error = package + "/" + StickManifest::kFileName + ": cannot be written: " + why;
        return false;
    }
    const QString signaturePath = package + "/" + StickManifest::kSignatureName;
    if (!writeFile(package + "/" + StickManifest::kFileName, text, error))
        return false;
    if (secretKey.bytes.isEmpty()) {
        // An older signature would no longer match: an unsigned stick has none.
        if (QFileInfo::exists(signaturePath) && !QFile::remove(signaturePath)) {
            *error = signaturePath + ": the old signature cannot be removed";
            return false;
        }
        return true;
    }
    const QByteArray signature = StickSignature::sign(text, secretKey.bytes);
    if (signature.isEmpty()) {
        *error = secretKeyFile + ": the key cannot sign";
        return false;
    }
    return writeFile(signaturePath,
                     StickSignature::encode(StickSignature::kSignatureKind, signature), error);
}

bool PackageSigner::signBuild(const QSettings& recipe, const QString& recipePath,
                              const QString& packageDir, const QString& secretKeyFile, bool staged,
                              QString* error)
{
    StickManifest release;
    release.version = recipe.value(QString(recipe::kStick) + "/" + recipe::kVersion).toString();
    if (release.version.isEmpty()) {
        if (secretKeyFile.isEmpty())
            return true;
        *error = recipePath + ": [stick] version is missing: --sign needs version, models and "
                              "replaces in the recipe";
        return false;
    }
    for (const QString& model :
         recipe.value(QString(recipe::kStick) + "/" + recipe::kModels).toStringList())
        release.models << model.trimmed();
    release.replaces =
        recipe.value(QString(recipe::kStick) + "/" + recipe::kReplaces, "0").toString();
    const QString problem = releaseProblem(release);
    if (!problem.isEmpty()) {
        *error = recipePath + ": [stick] " + problem;
        return false;
    }
    if (staged)
        return true;
    const QString sources = sourcesProblem(packageDir, QFileInfo(recipePath).absolutePath());
    if (!sources.isEmpty()) {
        *error = sources;
        return false;
    }
    return write(packageDir, release, secretKeyFile, error);
}

QString PackageSigner::describe(const QString& packageDir)
{
    const QString package = QDir(packageDir).absolutePath();
    QString out;
    QTextStream stream(&out);
    if (!QFileInfo::exists(package + "/" + StickManifest::kFileName)) {
        stream << "stick manifest: none (panels with a key installed refuse this stick)\n";
        return out;
    }
    StickManifest manifest;
    int line = 0;
    QString why;
    if (!readManifest(package, &manifest, &line, &why)) {
        stream << "stick manifest: unreadable at line " << line << ": " << why << '\n';
        return out;
    }
    qint64 bytes = 0;
    for (const StickManifest::File& file : manifest.files)
        bytes += file.size;
    const bool signedStick = QFileInfo::exists(package + "/" + StickManifest::kSignatureName);
    stream << "stick manifest " << StickManifest::kFileName << " ("
           << (signedStick ? "signed" : "unsigned") << ")\n"
           << "  package version " << manifest.version << " for the models "
           << manifest.models.join(", ") << '\n'
           << "  replaces panels from version " << manifest.replaces << " on\n"
           << "  built " << manifest.built << '\n'
           << "  " << manifest.files.size() << " files, " << bytes << " bytes:\n";
    for (const StickManifest::File& file : manifest.files)
        stream << "    " << file.sha256 << ' ' << file.size << ' ' << file.path << '\n';
    return out;
}

void PackageSigner::audit(const QString& packageDir, const QString& keysDir, const Report& report)
{
    const QString manifestName = StickManifest::kFileName;
    const TrustStore keys(keysDir);
    for (const QString& problem : keys.problems())
        report(true, manifestName, problem);
    if (!keysDir.isEmpty() && keys.isEmpty())
        report(true, manifestName, keysDir + ": holds no public key file (*.pub)");
    StickCheck check(packageDir);
    const StickCheck::Result result = check.run(keys, nullptr);
    if (result == StickCheck::NoManifest) {
        report(false, manifestName,
               "no manifest: panels with a key installed refuse this stick; write one with "
               "kelpack sign");
        return;
    }
    if (result == StickCheck::Passed) {
        if (!check.hasSignature())
            report(false, manifestName,
                   "the manifest is not signed: panels with a key installed refuse it");
        else if (keys.isEmpty())
            report(false, manifestName,
                   "the signature was not checked: give --keys DIR with the panels' public keys");
        return;
    }
    for (const Explanation& entry : kExplanations) {
        if (entry.result != result)
            continue;
        QString message = entry.text;
        const QStringList& a = check.arguments();
        if (result == StickCheck::ManifestUnreadable)
            message = message.arg(a.value(0), a.value(1), check.detail());
        else if (!a.isEmpty())
            message = message.arg(a[0]);
        report(true, manifestName, message);
    }
}
