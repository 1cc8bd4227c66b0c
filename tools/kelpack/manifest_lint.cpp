#include "manifest_lint.h"

#include "def.h"
#include "manifest_text.h"
#include "package_keys.h"
#include "stick_builder.h"

#include <QRegularExpression>
#include <algorithm>
#include <vector>

using namespace kel::keys;

namespace {

QStringList names(std::initializer_list<const char*> list)
{
    QStringList out;
    for (const char* name : list)
        out << name;
    return out;
}

template <size_t N> QStringList names(const char* const (&list)[N])
{
    QStringList out;
    for (const char* name : list)
        out << name;
    return out;
}

QString unquoted(const QString& value)
{
    if (value.size() >= 2 && value.startsWith('"') && value.endsWith('"'))
        return value.mid(1, value.size() - 2);
    return value;
}

// Damerau-Levenshtein distance (adjacent transpositions count once), case-insensitive.
int distance(const QString& a, const QString& b)
{
    const QString x = a.toUpper();
    const QString y = b.toUpper();
    QVector<QVector<int>> d(x.size() + 1, QVector<int>(y.size() + 1));
    for (int i = 0; i <= x.size(); ++i)
        d[i][0] = i;
    for (int j = 0; j <= y.size(); ++j)
        d[0][j] = j;
    for (int i = 1; i <= x.size(); ++i) {
        for (int j = 1; j <= y.size(); ++j) {
            const int cost = x[i - 1] == y[j - 1] ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
            if (i > 1 && j > 1 && x[i - 1] == y[j - 2] && x[i - 2] == y[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[x.size()][y.size()];
}

const QStringList& intKeys()
{
    static const QStringList keys =
        names({kMode, kAuthority, kPriority, kSize, kCopyCount, kDeleteCount, kExeCount,
               kPrepareCount, kFileNum, kFileCount, kBeepNum, kReboot, kClearRecipe, kClearHistory,
               kClearAlarm, kClearInitValue, recipe::kToolLanguage, recipe::kLanguageNumber});
    return keys;
}

// Keys whose value may be a list: each element is its own entry.
const QStringList& listKeys()
{
    static const QStringList keys =
        names({kStopProc, kAutoStart, kAutoStop, kDelayCopy, recipe::kModels});
    return keys;
}

const QRegularExpression& numbered()
{
    static const QRegularExpression pattern("^([A-Z]+?)([1-9][0-9]*)$");
    return pattern;
}

// How a section is named: itself, or numbered records of a base name; the prepare tables are
// numbered up to a limit, and only the first one has keys the program uses.
enum Naming
{
    Plain,
    Numbered,
    FirstPrepareTable,
    OtherPrepareTable
};

// What the program reads from a section.
enum Reading
{
    ReadsKeys, // the keys listed
    AnyKey,    // every key (BACKUP)
    NoEffect,  // read, but nothing of it is used
    RootOnly   // read only from the package root's manifest
};

struct SectionRule
{
    int kinds; // bits of ManifestLint::Kind
    const char* name;
    Naming naming;
    QStringList keys;
    Reading reading = ReadsKeys;
};

constexpr int bit(ManifestLint::Kind kind)
{
    return 1 << kind;
}

// The sections each manifest may hold, first match wins.
const std::vector<SectionRule>& sectionRules()
{
    const int operations = bit(ManifestLint::PackageManifest) | bit(ManifestLint::ItemManifest);
    const int package = bit(ManifestLint::PackageManifest);
    const int item = bit(ManifestLint::ItemManifest);
    const int runtime = bit(ManifestLint::RuntimeManifest);
    const int project = bit(ManifestLint::ProjectManifest);
    const int recipeFile = bit(ManifestLint::Recipe);
    static const std::vector<SectionRule> rules = {
        {operations, kCopy, Plain, names({kCopyCount})},
        {operations, kDelete, Plain, names({kDeleteCount})},
        {operations, kExe, Plain, names({kExeCount})},
        {operations, kCopy, Numbered, names(kCopyRecordKeys)},
        {operations, kDelete, Numbered, names(kDeleteRecordKeys)},
        {operations, kExe, Numbered, names(kExeRecordKeys)},
        {item, kUpdate, Plain, {}, RootOnly},
        {item, kBackup, Plain, {}, RootOnly},
        {item, kRestart, Plain, {}, RootOnly},
        {item, kPrepare, Plain, {}, RootOnly},
        {item, kPrepare, FirstPrepareTable, {}, RootOnly},
        {item, kPrepare, OtherPrepareTable, {}, RootOnly},
        {package, kUpdate, Plain, names(kUpdateKeys)},
        {package, kBackup, Plain, {}, AnyKey},
        {package, kRestart, Plain, names(kRestartKeys)},
        {package, kPrepare, Plain, names({kPrepareCount})},
        {package, kPrepare, FirstPrepareTable, names({kStopProc})},
        {package, kPrepare, OtherPrepareTable, {}, NoEffect},
        {runtime, kUpdateInfo, Plain, names({kFileNum})},
        {runtime, kAccessRight, Plain, names({kFileNum})},
        {runtime, kRuntimeFile, Numbered, names(kRuntimeRecordKeys)},
        {runtime, kRuntimeExe, Numbered, names({kFileName})},
        {runtime, kPrepare, Plain, names({kTip, kVersion})},
        {project, kGlobal, Plain, names({kFileCount})},
        {project, kProjectFile, Numbered, names(kProjectRecordKeys)},
        {project, kDownload, Plain, names(kDownloadKeys)},
        {recipeFile, recipe::kStick, Plain, names(recipe::kStickKeys)},
        {recipeFile, recipe::kLanguage, Plain, names(recipe::kLanguageKeys)},
    };
    return rules;
}

bool matches(const SectionRule& rule, const QString& section)
{
    const QRegularExpressionMatch match = numbered().match(section);
    if (rule.naming == Plain)
        return section == rule.name;
    if (!match.hasMatch() || match.captured(1) != rule.name)
        return false;
    const bool table = match.captured(2).toInt() <= kPrepareTables;
    switch (rule.naming) {
    case Numbered:
        return true;
    case FirstPrepareTable:
        return table && match.captured(2) == "1";
    default:
        return table && match.captured(2) != "1";
    }
}

} // namespace

ManifestLint::ManifestLint(Kind kind, const QString& file, bool allowAuto, VerifyReport* report)
    : m_kind(kind), m_file(file), m_allowAuto(allowAuto), m_report(report)
{
}

QString ManifestLint::nearest(const QString& word, const QStringList& candidates)
{
    QString best;
    int bestDistance = word.size() <= 4 ? 2 : 3;
    for (const QString& candidate : candidates) {
        const int d = distance(word, candidate);
        if (d < bestDistance && candidate != word) {
            best = candidate;
            bestDistance = d;
        }
    }
    return best;
}

void ManifestLint::add(bool error, int line, const QString& section, const QString& key,
                       const QString& problem, const QString& fix)
{
    VerifyReport::Finding finding;
    finding.error = error;
    finding.file = m_file;
    finding.line = line;
    finding.section = section;
    finding.key = key;
    finding.problem = problem;
    finding.fix = fix;
    m_report->add(finding);
}

ManifestLint::Section ManifestLint::rule(const QString& section) const
{
    Section s;
    for (const SectionRule& rule : sectionRules()) {
        if (!(rule.kinds & bit(m_kind)) || !matches(rule, section))
            continue;
        if (rule.reading == RootOnly) {
            s.note = "is read only from the update.ini of the package root, never from an item's "
                     "manifest";
            return s;
        }
        s.known = true;
        s.keys = rule.keys;
        s.anyKey = rule.reading == AnyKey;
        s.noEffect = rule.reading == NoEffect;
        if (s.noEffect)
            s.note = "is read, but the program uses none of its keys";
        return s;
    }
    return s;
}

QStringList ManifestLint::sectionNames(const QString& like) const
{
    static const QRegularExpression digits("[0-9]+$");
    const QRegularExpressionMatch match = digits.match(like);
    const QString n = match.hasMatch() ? QString::number(match.captured().toInt()) : "1";
    const QString copy(kCopy), del(kDelete), exe(kExe);
    switch (m_kind) {
    case PackageManifest:
        return {kUpdate, kBackup, kRestart, kPrepare, kPrepare + n, copy,
                del,     exe,     copy + n, del + n,  exe + n};
    case ItemManifest:
        return {copy, del, exe, copy + n, del + n, exe + n};
    case RuntimeManifest:
        return {kUpdateInfo, kAccessRight, kPrepare, kRuntimeFile + n, kRuntimeExe + n};
    case ProjectManifest:
        return {kGlobal, kDownload, kProjectFile + n};
    case Recipe:
        return {recipe::kStick, recipe::kLanguage};
    }
    return {};
}

void ManifestLint::check(const ManifestText& text)
{
    for (int line : text.strayLines())
        add(true, line, QString(), QString(),
            "is neither a [section], a KEY=value line nor a comment: the settings reader "
            "ignores it",
            "KEY=value, or start the line with \";\" to make it a comment");
    for (const auto& section : text.sections()) {
        const Section s = rule(section.first);
        if (!s.known) {
            const QString near = nearest(section.first, sectionNames(section.first));
            add(true, section.second, section.first, QString(),
                s.note.isEmpty() ? "the program reads no section of this name, so none of its "
                                   "keys take effect"
                                 : s.note,
                near.isEmpty() ? "remove it; docs/package-format.md lists the sections of " +
                                     m_file.section('/', -1)
                               : "[" + near + "] (did you mean [" + near + "]?)");
            continue;
        }
        bool hasKeys = false;
        for (const ManifestText::Entry& entry : text.entries())
            hasKeys = hasKeys || entry.section == section.first;
        if (s.noEffect && hasKeys)
            add(false, section.second, section.first, QString(), s.note, "remove the section");
    }
    for (int i = 0; i < text.entries().size(); ++i) {
        const ManifestText::Entry& entry = text.entries()[i];
        if (entry.section.isEmpty()) {
            add(true, entry.line, QString(), entry.key,
                "lies above the first section: the program does not read it",
                "move it into its section");
            continue;
        }
        const Section s = rule(entry.section);
        if (!s.known || s.noEffect)
            continue;
        for (int j = 0; j < i; ++j) {
            const ManifestText::Entry& earlier = text.entries()[j];
            if (earlier.section == entry.section && earlier.key == entry.key)
                add(true, earlier.line, entry.section, entry.key,
                    QString("is given twice (lines %1 and %2): the settings reader keeps only "
                            "the value of line %2")
                        .arg(earlier.line)
                        .arg(entry.line),
                    "one " + entry.key + " line in [" + entry.section + "]");
        }
        if (!s.anyKey && !s.keys.contains(entry.key)) {
            const QString near = nearest(entry.key, s.keys);
            add(true, entry.line, entry.section, entry.key,
                "the program reads no key of this name in [" + entry.section +
                    "], so the value has no effect",
                near.isEmpty() ? "one of " + s.keys.join(", ")
                               : near + "=" + entry.value + " (did you mean " + near + "?)");
            continue;
        }
        checkValue(entry.section, entry.key, entry.value, entry.line);
    }
    switch (m_kind) {
    case PackageManifest:
    case ItemManifest:
        checkCounts(text, kCopy, kCopyCount, kCopy);
        checkCounts(text, kDelete, kDeleteCount, kDelete);
        checkCounts(text, kExe, kExeCount, kExe);
        break;
    case RuntimeManifest:
        checkCounts(text, kUpdateInfo, kFileNum, kRuntimeFile);
        checkCounts(text, kAccessRight, kFileNum, kRuntimeExe);
        break;
    case ProjectManifest:
        checkCounts(text, kGlobal, kFileCount, kProjectFile);
        break;
    case Recipe:
        break;
    }
}

void ManifestLint::checkValue(const QString& section, const QString& key, const QString& value,
                              int line)
{
    if (ManifestText::hasUnquoted(value, ';')) {
        add(true, line, section, key,
            "the settings reader ends the value at the unquoted \";\", so the program reads \"" +
                value.left(value.indexOf(';')).trimmed() + "\"",
            key + "=\"" + value + "\"");
        return;
    }
    const bool list = ManifestText::hasUnquoted(value, ',');
    const QString plain = unquoted(value);
    if (m_allowAuto && plain == "auto" && (key == kSize || key == kCrc32 || key == kCrc))
        return;
    if (section == kUpdate) {
        static const QStringList words{"true", "false", "1", "0"};
        if (!words.contains(plain, Qt::CaseInsensitive)) {
            const bool readAs = !(plain.isEmpty() || list);
            add(true, line, section, key,
                "\"" + value + "\" is read as " + (readAs ? "true" : "false") +
                    (readAs ? ": only an empty value, 0 and false mean false" : ""),
                key + "=true or " + key + "=false");
        }
        return;
    }
    if (key == kCommand && list) {
        add(true, line, section, key,
            "the settings reader splits the value at the unquoted \",\" and only \"" +
                value.left(value.indexOf(',')).trimmed() + "\" runs",
            key + "=\"" + value + "\"");
        return;
    }
    if (list && !listKeys().contains(key)) {
        add(true, line, section, key,
            "the settings reader splits the value at the unquoted \",\" into a list, and the "
            "program then reads an empty value",
            key + "=\"" + value + "\"");
        return;
    }
    static const QRegularExpression integer("^-?[0-9]+$");
    if (intKeys().contains(key) && !integer.match(plain).hasMatch())
        add(true, line, section, key,
            "\"" + value + "\" is not a whole number: the program reads 0",
            key + "=" + (key == kSize ? QString("auto") : QString("a whole number")));
}

void ManifestLint::checkCounts(const ManifestText& text, const QString& countSection,
                               const QString& countKey, const QString& recordBase)
{
    const ManifestText::Entry* countEntry = text.find(countSection, countKey);
    const int count = countEntry ? unquoted(countEntry->value).toInt() : 0;
    const int countLine = text.lineOf(countSection, countKey);
    if (count > kel::kMaxManifestCount) {
        add(true, countLine, countSection, countKey,
            QString("%1 records: the program refuses the whole manifest above %2")
                .arg(count)
                .arg(kel::kMaxManifestCount),
            countKey + "=the number of [" + recordBase + "n] sections");
        return;
    }
    QList<int> present;
    for (const auto& section : text.sections()) {
        const QRegularExpressionMatch match = numbered().match(section.first);
        if (match.hasMatch() && match.captured(1) == recordBase)
            present << match.captured(2).toInt();
    }
    const int highest = present.isEmpty() ? 0 : *std::max_element(present.begin(), present.end());
    for (int n : present) {
        if (n > count)
            add(true, text.sectionLine(recordBase + QString::number(n)),
                recordBase + QString::number(n), QString(),
                QString("is never read: [%1] %2 is %3").arg(countSection, countKey).arg(count),
                QString("%1=%2 in [%3]").arg(countKey).arg(highest).arg(countSection));
    }
    for (int n = 1; n <= count; ++n) {
        if (!present.contains(n))
            add(true, countLine, countSection, countKey,
                QString("is %1, but there is no [%2%3]: the program makes an empty record of it")
                    .arg(count)
                    .arg(recordBase)
                    .arg(n),
                QString("%1=%2, numbering the sections from 1 without gaps")
                    .arg(countKey)
                    .arg(present.size()));
    }
}
