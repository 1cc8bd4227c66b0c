#include "record_rules.h"

#include "package_keys.h"

#include <QRegularExpression>

using namespace kel::keys;

namespace {

struct Rule
{
    int kinds;
    const char* key;
    RecordRules::Verdict verdict;
    bool (*fails)(const ManifestRecord&);
    const char* problem;
    const char* fix;
    const char* actual = nullptr; // the fact shown against the key's value
};

bool badMode(const ManifestRecord& r)
{
    const int mode = r.value("mode").toInt();
    return mode < 0 || mode > 2;
}

// A file copy the walker could read and that asks for a check: its CRC-32 and size are judged.
bool checkedFile(const ManifestRecord& r)
{
    return r.value("mode") == "0" && !r.has("unusable") && r.value(kCrc32) != "AUTO";
}

// Whether the copy's source is not what its mode needs, for a record not refused already.
bool sourceMissing(const ManifestRecord& r)
{
    return r.has(kSrcPath) && !r.has("outside") && !r.has("found");
}

const char kModeFix[] = "MODE=0 (a file), 1 (the files of a folder) or 2 (a folder tree)";
const char kShellSplit[] = "\"{value}\" reaches the shell unquoted and is split or expanded there";

const Rule kRules[] = {
    {RecordRules::StopProc, kStopProc, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !RecordRules::shellSafe(r.value(kStopProc)); },
     kShellSplit, "the program's plain name"},
    {RecordRules::StopProc, kStopProc, RecordRules::Error,
     [](const ManifestRecord& r) { return r.has("cut"); },
     "\"{value}\" has {length} characters, but the process list shows at most {shown}: the panel "
     "never finds the program, so it keeps running during the update",
     "{key}={cut}"},

    {RecordRules::Copy | RecordRules::Delete, kMode, RecordRules::Skipped, badMode,
     "{mode} is no mode: the program skips the record without a word", kModeFix},
    {RecordRules::Copy, kSrcPath, RecordRules::Unusable,
     [](const ManifestRecord& r) { return !r.has(kSrcPath); },
     "is missing or empty: the copy has no source", "{key}=./path/in/the/package"},
    {RecordRules::Copy, kSrcPath, RecordRules::Unusable,
     [](const ManifestRecord& r) { return sourceMissing(r) && r.has("near"); },
     "{value} is not a {kind} of the package (looked for {looked}): the copy fails",
     "{key}={near} (did you mean {near}?)"},
    {RecordRules::Copy, kSrcPath, RecordRules::Unusable,
     [](const ManifestRecord& r) { return sourceMissing(r) && !r.has("near"); },
     "{value} is not a {kind} of the package (looked for {looked}): the copy fails",
     "the path of the {kind} relative to {folder}/"},
    {RecordRules::Copy, kDestPath, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.has(kDestPath); },
     "is missing or empty: the program stages the file as \".tmp\" on the stick, it never "
     "reaches the panel, and the run still reports success",
     "{key}=/absolute/path/on/the/panel"},
    {RecordRules::Copy, kDestPath, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.value(kDestPath).startsWith('/'); },
     "{value} is relative: the program writes it inside the package folder on the stick, not on "
     "the panel",
     "{key}=/{value}"},
    {RecordRules::Copy, kDestPath, RecordRules::Skipped,
     [](const ManifestRecord& r) {
         return r.value("mode") == "0" && r.value(kDestPath).endsWith('/');
     },
     "ends with \"/\": a file copy needs the file's own name and fails", "{key}={value}{srcName}"},
    {RecordRules::Copy, kDestPath, RecordRules::Skipped,
     [](const ManifestRecord& r) { return r.has("writtenBy"); },
     "{value} is also written by [{writtenBy}]: both are staged as {value}.tmp, so the later one "
     "replaces the earlier and the panel reports a failed rename",
     "one record per destination"},
    {RecordRules::Copy, kCrc32, RecordRules::Warning,
     [](const ManifestRecord& r) { return checkedFile(r) && !r.has(kCrc32); },
     "is empty: the file is copied without any check", "{key}=auto"},
    {RecordRules::Copy, kCrc32, RecordRules::Error,
     [](const ManifestRecord& r) { return checkedFile(r) && r.value(kCrc32).startsWith('0'); },
     "does not match the file (the program never matches a leading zero): the panel refuses the "
     "copy",
     "{key}=auto", "actualCrc"},
    {RecordRules::Copy, kCrc32, RecordRules::Error,
     [](const ManifestRecord& r) {
         return checkedFile(r) && r.has(kCrc32) && !r.value(kCrc32).startsWith('0') &&
                r.value(kCrc32) != r.value("actualCrc");
     },
     "does not match the file: the panel refuses the copy", "{key}=auto", "actualCrc"},
    {RecordRules::Copy, kSize, RecordRules::Warning,
     [](const ManifestRecord& r) {
         return checkedFile(r) && r.has(kSize) && r.value(kSize) != "auto" &&
                r.value(kSize) != r.value("actualSize");
     },
     "does not match the file; the program does not check it, but the record is out of date",
     "{key}=auto", "actualSize"},

    {RecordRules::Delete, kSrcPath, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.has(kSrcPath); }, "is missing or empty",
     "{key}=/absolute/path/on/the/panel"},
    {RecordRules::Delete, kSrcPath, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.value(kSrcPath).startsWith('/'); },
     "{value} is relative: the program deletes it inside the package folder on the stick",
     "{key}=/absolute/path/on/the/panel"},

    {RecordRules::Grant, kSrcPath, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.has(kSrcPath); }, "is missing or empty",
     "{key}=/absolute/path/without/blanks"},
    {RecordRules::Grant, kSrcPath, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.value(kSrcPath).startsWith('/'); },
     "{value} is relative: it names a file on the stick", "{key}=/absolute/path/without/blanks"},
    {RecordRules::Grant, kSrcPath, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !RecordRules::shellSafe(r.value(kSrcPath)); },
     "{value} reaches the shell unquoted and is split or expanded there",
     "{key}=/absolute/path/without/blanks"},

    {RecordRules::RuntimeRecord, kDesPath, RecordRules::Unusable,
     [](const ManifestRecord& r) {
         return !r.value(kDesPath).startsWith('/') || !r.value(kDesPath).endsWith('/');
     },
     "\"{value}\" must be an absolute folder ending with \"/\": the program joins it to the file "
     "names as it is",
     "{key}={runtimeDir}"},
    {RecordRules::RuntimeRecord, kSrcPathRuntime, RecordRules::Unusable,
     [](const ManifestRecord& r) { return !r.value(kSrcPathRuntime).endsWith('/'); },
     "\"{value}\" must end with \"/\": the program joins it to the file names as it is "
     "(\"{src_path}{file_name}\")",
     "{key}={value}/"},
    {RecordRules::RuntimeRecord, kFileName, RecordRules::Unusable,
     [](const ManifestRecord& r) { return !r.has(kFileName); },
     "is missing or empty: the record names no file",
     "{key}=* (every file of src_path) or one file name"},
    {RecordRules::RuntimeFile, kDelayCopy, RecordRules::Error,
     [](const ManifestRecord& r) { return r.has(kDelayCopy); },
     "works only on a file_name=* record: the program fails the installation after copying "
     "(\"delayed copy ... missing\")",
     "remove delaycopy_file here, or copy the folder with file_name=*"},
    {RecordRules::RuntimeFile, kFileName, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.has("found"); },
     "{src_path}{file_name} is not a file of vorn_app/: the copy fails after the old runtime was "
     "removed",
     "the name of a file in vorn_app/{inPackage}"},
    {RecordRules::RuntimeFile, kFileName, RecordRules::Error,
     [](const ManifestRecord& r) { return r.has("folderMissing"); },
     "names a file in a folder: the program creates only des_path, so writing "
     "{des_path}{file_name} fails",
     "{key}={baseName} and des_path={folderMissing}/"},
    {RecordRules::RuntimeFolder, kSrcPathRuntime, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.has("found"); },
     "{value} is not a folder of vorn_app/: the copy fails after the old runtime was removed",
     "{key}=./"},
    {RecordRules::RuntimeGrant, kFileName, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !RecordRules::shellSafe(r.value(kFileName)); },
     kShellSplit, "a file name without blanks or shell characters"},

    {RecordRules::ProjectFile, kName, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.has(kName); }, "is missing or empty",
     "{key}=the name of a file in project/"},
    {RecordRules::ProjectFile, kName, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.has("found"); },
     "{value} is not a file of project/: the check fails", "{key}=the name of a file in project/"},
    {RecordRules::ProjectFile, kDesPathProject, RecordRules::Skipped,
     [](const ManifestRecord& r) { return r.has("variable"); },
     "{variable} is no variable the updater sets: the program leaves it as written, so the path "
     "is relative and the file is written onto the stick",
     "{key}={meant} (did you mean {known}?)"},
    {RecordRules::ProjectFile, kDesPathProject, RecordRules::Skipped,
     [](const ManifestRecord& r) { return !r.value("resolved").startsWith('/'); },
     "\"{resolved}\" is relative: the file is written onto the stick", "{key}={known}/project"},
    {RecordRules::ProjectFile, kCrc, RecordRules::Error,
     [](const ManifestRecord& r) {
         return r.value(kCrc) != "auto" && r.value(kCrc) != r.value("actualCrc");
     },
     "does not match the file (the project wants lower case without leading zeros): the panel "
     "refuses the project",
     "{key}=auto", "actualCrc"},
    {RecordRules::ProjectFile, kSize, RecordRules::Error,
     [](const ManifestRecord& r) {
         return r.value(kCrc) != "auto" && r.value(kSize) != r.value("actualSize");
     },
     "does not match the file: the panel refuses the project", "{key}=auto", "actualSize"},
    {RecordRules::ProjectPlace, kName, RecordRules::Error,
     [](const ManifestRecord& r) { return r.has("folderMissing"); },
     "names a file in a folder: the program creates only DESPATH, so {folderMissing} does not "
     "exist and the copy fails after the old project and the saved data were removed",
     "{key}={baseName} and DESPATH={DESPATH}/{subfolder}"},
    {RecordRules::ProjectPlace, kName, RecordRules::Error,
     [](const ManifestRecord& r) { return r.has("writtenBy"); },
     "{dest} is also written by [{writtenBy}]: the later copy replaces the earlier and the check "
     "of the installed project fails",
     "one record per destination"},
};

} // namespace

bool RecordRules::shellSafe(const QString& text)
{
    static const QRegularExpression unsafe("[\\s;&|<>()$`\\\\\"'*?\\[\\]#~]");
    return !text.contains(unsafe);
}

QString ManifestRecord::fill(const char* text) const
{
    static const QRegularExpression name("\\{([A-Za-z_]+)\\}");
    QString out;
    const QString in = QString::fromUtf8(text);
    int at = 0;
    for (QRegularExpressionMatchIterator it = name.globalMatch(in); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        out += in.mid(at, match.capturedStart() - at) + value(match.captured(1));
        at = match.capturedEnd();
    }
    return out + in.mid(at);
}

bool RecordRules::check(Kind kind, ManifestRecord& record, const Report& report)
{
    for (const Rule& rule : kRules) {
        if (!(rule.kinds & kind))
            continue;
        // {key} and {value} name the rule's own key; set per rule, they never reach a later one.
        record.set("key", rule.key);
        record.set("value", record.value(rule.key));
        if (!rule.fails(record))
            continue;
        report(rule.verdict != Warning, rule.key, record.fill(rule.problem), record.fill(rule.fix),
               rule.actual ? record.value(rule.key) : QString(),
               rule.actual ? record.value(rule.actual) : QString());
        if (rule.verdict == Skipped)
            return false;
        if (rule.verdict == Unusable)
            record.set("unusable", "1");
    }
    return true;
}
