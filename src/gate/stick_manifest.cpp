#include "stick_manifest.h"

#include "def.h"

#include <QDateTime>
#include <QRegularExpression>
#include <algorithm>

namespace {

const char kMagic[] = "kelgate-manifest 1";
const char kEndMarker[] = "end";
const int kMaxPathBytes = 1024;
const int kMaxFolderBytes = 255;
const int kMaxModels = 64;
const int kSha256HexDigits = 64;
// Fifteen digits: up to a petabyte, more than any stick holds and far from overflowing qint64.
const int kMaxSizeDigits = 15;

bool isDecimal(const QByteArray& digits, int maxDigits)
{
    if (digits.isEmpty() || digits.size() > maxDigits || (digits.size() > 1 && digits[0] == '0'))
        return false;
    return std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isLowerHex(const QByteArray& text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

// Invalid or cut-short sequences read as replacement characters and do not come back.
bool isUtf8(const QByteArray& bytes)
{
    return QString::fromUtf8(bytes).toUtf8() == bytes;
}

bool isBuiltTime(const QString& text)
{
    static const QRegularExpression form("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$");
    return form.match(text).hasMatch() && QDateTime::fromString(text, Qt::ISODate).isValid();
}

bool isFolderName(const QString& folder)
{
    return !folder.contains('/') && folder != "." && folder != ".." &&
           !StickManifest::sideFolders().contains(folder) &&
           folder.toUtf8().size() <= kMaxFolderBytes;
}

QByteArray sortKey(const StickManifest::File& file)
{
    return file.path.toUtf8();
}

// Hands out the lines of a manifest one at a time, each checked for what no line may hold.
class LineReader
{
public:
    explicit LineReader(const QByteArray& text) : m_text(text) {}

    bool next(QByteArray* line, QString* error)
    {
        ++m_line;
        if (m_pos >= m_text.size()) {
            *error = "the manifest ends before this line: it was cut short";
            return false;
        }
        const int end = m_text.indexOf('\n', m_pos);
        if (end < 0) {
            *error = "the last line has no line end: the manifest was cut short";
            return false;
        }
        *line = m_text.mid(m_pos, end - m_pos);
        m_pos = end + 1;
        for (char c : *line) {
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
                *error = "the line holds a control character (a carriage return, tab or NUL)";
                return false;
            }
        }
        if (!isUtf8(*line)) {
            *error = "the line is not UTF-8";
            return false;
        }
        return true;
    }

    int line() const { return m_line; }
    bool atEnd() const { return m_pos >= m_text.size(); }

private:
    const QByteArray& m_text;
    int m_pos = 0;
    int m_line = 0;
};

bool parseFileLine(const QByteArray& line, const QString& folder, StickManifest::File* file,
                   QString* error)
{
    const int sizeEnd = line.indexOf(' ', kSha256HexDigits + 1);
    if (line.size() <= kSha256HexDigits || line[kSha256HexDigits] != ' ' || sizeEnd < 0 ||
        !isLowerHex(line.left(kSha256HexDigits))) {
        *error = "expected \"SHA256 SIZE PATH\" with 64 lower-case hexadecimal digits";
        return false;
    }
    const QByteArray size = line.mid(kSha256HexDigits + 1, sizeEnd - kSha256HexDigits - 1);
    if (!isDecimal(size, kMaxSizeDigits)) {
        *error = "the size must be a decimal number without leading zeros";
        return false;
    }
    file->sha256 = line.left(kSha256HexDigits);
    file->size = size.toLongLong();
    file->path = QString::fromUtf8(line.mid(sizeEnd + 1));
    *error = StickManifest::pathProblem(file->path, folder);
    return error->isEmpty();
}

} // namespace

const QStringList& StickManifest::sideFolders()
{
    static const QStringList folders{"config", "language", "qws"};
    return folders;
}

bool StickManifest::isVersion(const QString& version)
{
    static const QRegularExpression form("^(0|[1-9][0-9]{0,8})(\\.(0|[1-9][0-9]{0,8})){0,3}$");
    return form.match(version).hasMatch();
}

int StickManifest::compareVersions(const QString& a, const QString& b)
{
    const QStringList left = a.split('.'), right = b.split('.');
    for (int i = 0; i < std::max(left.size(), right.size()); ++i) {
        const uint x = i < left.size() ? left[i].toUInt() : 0;
        const uint y = i < right.size() ? right[i].toUInt() : 0;
        if (x != y)
            return x < y ? -1 : 1;
    }
    return 0;
}

bool StickManifest::isModel(const QString& model)
{
    static const QRegularExpression form("^[A-Za-z0-9][A-Za-z0-9._+-]{0,63}$");
    return form.match(model).hasMatch();
}

QString StickManifest::pathProblem(const QString& path, const QString& folder)
{
    if (path.isEmpty())
        return "the path is empty";
    if (path.toUtf8().size() > kMaxPathBytes)
        return QString("the path is longer than %1 bytes").arg(kMaxPathBytes);
    if (path.startsWith('/'))
        return "the path is absolute: paths are relative to the stick's top directory";
    for (const QChar c : path) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return "the path holds a control character";
    }
    const QStringList parts = path.split('/');
    for (const QString& part : parts) {
        if (part.isEmpty())
            return "the path has an empty part (\"//\" or a trailing \"/\")";
        if (part == "." || part == "..")
            return "the path has a \".\" or \"..\" part";
    }
    if (parts.size() < 2 || (parts[0] != folder && !sideFolders().contains(parts[0])))
        return QString("the path lies outside the package folder \"%1\" and the folders beside "
                       "it (%2)")
            .arg(folder, sideFolders().join(", "));
    if (parts.size() == 2 && parts[0] == folder &&
        (parts[1] == kFileName || parts[1] == kSignatureName))
        return "the manifest and its signature are never listed";
    return QString();
}

namespace {

// The reader's place in the text and its first failure, with the line it happened on.
struct ManifestReader
{
    LineReader lines;
    int* errorLine;
    QString* error;
    QByteArray line;
    QString why;

    bool failAt(int number, const QString& reason)
    {
        *errorLine = number;
        *error = reason;
        return false;
    }
    bool fail(const QString& reason) { return failAt(lines.line(), reason); }
    bool next() { return lines.next(&line, &why) || fail(why); }
    // The next line, "KEY VALUE".
    bool field(const char* key, QString* value)
    {
        if (!next())
            return false;
        const QByteArray prefix = QByteArray(key) + ' ';
        if (!line.startsWith(prefix) || line.size() == prefix.size())
            return fail(QString("expected \"%1 VALUE\"").arg(key));
        *value = QString::fromUtf8(line.mid(prefix.size()));
        return true;
    }
};

// The lines from the magic to the file count.
bool readHeader(ManifestReader& in, StickManifest* read, int* total)
{
    if (!in.next())
        return false;
    if (in.line != kMagic)
        return in.fail(QString("not a stick manifest: the first line must be \"%1\"").arg(kMagic));
    if (!in.field("folder", &read->folder))
        return false;
    if (!isFolderName(read->folder))
        return in.fail("the package folder must be one plain folder name, not one of " +
                       StickManifest::sideFolders().join(", "));
    if (!in.field("version", &read->version))
        return false;
    if (!StickManifest::isVersion(read->version))
        return in.fail("the version must be one to four dot-separated numbers, such as 1.2.0");
    QString models;
    if (!in.field("models", &models))
        return false;
    read->models = models.split(',');
    if (read->models.size() > kMaxModels)
        return in.fail(QString("more than %1 models").arg(kMaxModels));
    for (int i = 0; i < read->models.size(); ++i) {
        if (!StickManifest::isModel(read->models[i]) ||
            (i > 0 && !(read->models[i - 1] < read->models[i])))
            return in.fail("the models must be names of letters, digits, \".\", \"_\", \"+\" "
                           "and \"-\", separated by \",\", sorted and without duplicates");
    }
    if (!in.field("replaces", &read->replaces))
        return false;
    if (!StickManifest::isVersion(read->replaces))
        return in.fail("the lowest version it replaces must be one to four dot-separated numbers");
    if (!in.field("built", &read->built))
        return false;
    if (!isBuiltTime(read->built))
        return in.fail("the build time must be UTC in the form 2026-11-23T20:08:00Z");
    QString count;
    if (!in.field("files", &count))
        return false;
    if (!isDecimal(count.toLatin1(), 6) || count.toInt() < 1 ||
        count.toInt() > kel::kMaxManifestCount)
        return in.fail(
            QString("the file count must be a number from 1 to %1").arg(kel::kMaxManifestCount));
    *total = count.toInt();
    return true;
}

// The file lines, sorted and each once, the program among them, then the end marker.
bool readFiles(ManifestReader& in, StickManifest* read, int total)
{
    read->files.reserve(total);
    QByteArray previous;
    bool listsProgram = false;
    const QString program = read->folder + "/" + kel::kProgramName;
    for (int i = 0; i < total; ++i) {
        if (!in.next())
            return false;
        if (in.line == kEndMarker)
            return in.fail(QString("the end marker comes after %1 of %2 files: the manifest was "
                                   "cut short")
                               .arg(i)
                               .arg(total));
        StickManifest::File file;
        if (!parseFileLine(in.line, read->folder, &file, &in.why))
            return in.fail(in.why);
        const QByteArray key = sortKey(file);
        if (i > 0 && !(previous < key))
            return in.fail("the paths must be sorted and listed once each");
        previous = key;
        listsProgram = listsProgram || file.path == program;
        read->files.append(file);
    }
    if (!in.next())
        return false;
    if (in.line != kEndMarker)
        return in.fail(QString("expected the end marker \"%1\": the count says %2 files")
                           .arg(kEndMarker)
                           .arg(total));
    if (!in.lines.atEnd())
        return in.failAt(in.lines.line() + 1, "text follows the end marker");
    if (!listsProgram)
        return in.failAt(0, "the manifest does not list the program " + program);
    return true;
}

} // namespace

bool StickManifest::parse(const QByteArray& text, int* errorLine, QString* error)
{
    *this = StickManifest();
    if (text.size() > kMaxBytes) {
        *errorLine = 0;
        *error = QString("the manifest is larger than %1 bytes").arg(kMaxBytes);
        return false;
    }
    ManifestReader in{LineReader(text), errorLine, error, QByteArray(), QString()};
    StickManifest read;
    int total = 0;
    if (!readHeader(in, &read, &total) || !readFiles(in, &read, total))
        return false;
    *this = read;
    return true;
}

QByteArray StickManifest::text() const
{
    QVector<File> sorted = files;
    std::sort(sorted.begin(), sorted.end(),
              [](const File& a, const File& b) { return sortKey(a) < sortKey(b); });
    QByteArray out;
    out += QByteArray(kMagic) + '\n';
    out += "folder " + folder.toUtf8() + '\n';
    out += "version " + version.toUtf8() + '\n';
    out += "models " + models.join(',').toUtf8() + '\n';
    out += "replaces " + replaces.toUtf8() + '\n';
    out += "built " + built.toUtf8() + '\n';
    out += "files " + QByteArray::number(sorted.size()) + '\n';
    for (const File& file : sorted)
        out += file.sha256 + ' ' + QByteArray::number(file.size) + ' ' + file.path.toUtf8() + '\n';
    out += QByteArray(kEndMarker) + '\n';
    return out;
}
