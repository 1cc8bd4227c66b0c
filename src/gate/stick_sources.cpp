#include "stick_sources.h"

#include "def.h"
#include "package_keys.h"
#include "qsettingsfactory.h"
#include "stick_manifest.h"
#include "utf8_text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

using namespace kel::keys;

namespace {

// Larger manifests are refused before they are unscrambled into the panel's memory: 100,000
// records of every kind stay far below it.
const qint64 kMaxManifestBytes = qint64(64) << 20;

enum Kind
{
    Operations, // COPYFILEn SRCPATH
    Runtime,    // FILEn src_path + file_name
    Project     // FILEn NAME
};

// Every manifest that names sources, with the folder its relative paths start from: the
// updater makes that folder the working directory before it reads the manifest.
const struct
{
    const char* folder;
    const char* name;
    Kind kind;
} kManifests[] = {{".", kManifest, Operations},
                  {kSystemFolder, kManifest, Operations},
                  {kKelInfoFolder, kManifest, Operations},
                  {kVornAppFolder, kManifest, Runtime},
                  {kProjectFolder, kProjectManifest, Project}};

QString at(const QString& group, const char* key)
{
    return group + "/" + key;
}

// value taken from base (relative to the top directory), cleaned; empty when absolute or when
// it leads out of the top directory.
QString resolve(const QString& base, const QString& value)
{
    if (value.startsWith('/'))
        return QString();
    const QString path = QDir::cleanPath(base + "/" + value);
    return path == ".." || path.startsWith("../") ? QString() : path;
}

// Hands the source of record n of a manifest of kind to add(key, value, path as written).
template <typename Add>
void addRecord(const QSettings& settings, Kind kind, qint64 n, const QString& packageFolder,
               const QString& base, const Add& add)
{
    if (kind == Operations) {
        const QString key = at(kCopy + QString::number(n), kSrcPath);
        const QString value = settings.value(key).toString();
        add(key, value, value);
        return;
    }
    const QString group = (kind == Runtime ? kRuntimeFile : kProjectFile) + QString::number(n);
    if (kind == Project) {
        const QString name = settings.value(at(group, kName)).toString();
        add(at(group, kName), name, name);
        return;
    }
    // Joined as the updater joins them; "*" takes the files of src_path.
    const QString source = settings.value(at(group, kSrcPathRuntime)).toString();
    const QString name = settings.value(at(group, kFileName)).toString();
    const QString folderPath = resolve(base, source);
    const bool bySource =
        name == "*" || folderPath.isEmpty() || folderPath.section('/', 0, 0) != packageFolder;
    add(at(group, bySource ? kSrcPathRuntime : kFileName), bySource ? source : name,
        name == "*" ? source : source + name);
}

} // namespace

bool StickSources::read(const QString& packageDir, QString* error)
{
    m_sources.clear();
    const QString package = QDir(packageDir).absolutePath();
    m_folder = QFileInfo(package).fileName();
    QTemporaryDir scratch;
    for (const auto& entry : kManifests) {
        const QString folder = QDir::cleanPath(entry.folder);
        const QString manifest = QDir::cleanPath(folder + "/" + entry.name);
        const QString path = package + "/" + manifest;
        const QFileInfo info(path);
        if (!info.exists() && !info.isSymLink())
            continue;
        const auto fail = [&](const QString& why) {
            *error = path + ": " + why;
            m_sources.clear();
            return false;
        };
        // The updater would follow a link, or wait forever on a pipe.
        if (info.isSymLink() || !info.isFile())
            return fail("is a link or special file, not a manifest");
        if (info.size() > kMaxManifestBytes)
            return fail(QString("is larger than %1 bytes").arg(kMaxManifestBytes));
        QString plain = path;
        if (entry.kind != Project) {
            if (!scratch.isValid())
                return fail("cannot be unscrambled: no scratch folder");
            plain = scratch.path() + "/" + QString(manifest).replace('/', '_');
            if (!QSettingsFactory::decryptFile(path, plain, QSettingsFactory::CRYPT_CHECKED))
                return fail("is not a scrambled manifest (UTF-8 BOM and \"#\" first line)");
        } else if (!QFile(path).open(QIODevice::ReadOnly)) {
            return fail("cannot be read");
        }
        QSettings settings(plain, QSettings::IniFormat);
        kel::useUtf8Ini(settings);
        if (settings.status() == QSettings::AccessError)
            return fail("cannot be read");
        const QString base = m_folder + "/" + folder;
        const auto add = [&](const QString& key, const QString& value, const QString& joined) {
            m_sources.append({manifest, key, value, resolve(base, joined)});
        };
        // Counts as the updater converts them (the runtime's reader takes them unsigned); past the
        // limit it refuses the whole manifest.
        const auto count = [&](const QString& key) {
            const QVariant value = settings.value(key);
            return entry.kind == Runtime ? qint64(value.toUInt()) : qint64(value.toInt());
        };
        QStringList counts;
        if (entry.kind == Operations)
            counts << at(kCopy, kCopyCount) << at(kDelete, kDeleteCount) << at(kExe, kExeCount);
        else if (entry.kind == Runtime)
            counts << at(kUpdateInfo, kFileNum) << at(kAccessRight, kFileNum);
        else
            counts << at(kGlobal, kFileCount);
        for (const QString& key : counts) {
            if (count(key) > kel::kMaxManifestCount)
                return fail(QString("%1 is above %2: the updater refuses the manifest")
                                .arg(key)
                                .arg(kel::kMaxManifestCount));
        }
        const qint64 records = count(counts.first());
        for (qint64 n = 1; n <= records; ++n)
            addRecord(settings, entry.kind, n, m_folder, base, add);
    }
    return true;
}

QVector<StickSources::Source> StickSources::outside() const
{
    QVector<Source> found;
    for (const Source& source : m_sources) {
        const QString first = source.path.section('/', 0, 0);
        if (source.path.isEmpty() ||
            (first != m_folder && !StickManifest::sideFolders().contains(first)))
            found.append(source);
    }
    return found;
}
