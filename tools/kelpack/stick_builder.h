#pragma once

#include "verify_report.h"

#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

class QSettings;

// Sections and keys of the recipe "kelpack.ini" of a package tree.
namespace recipe {
inline constexpr char kFile[] = "kelpack.ini";
inline constexpr char kStick[] = "stick";
inline constexpr char kFolder[] = "folder";
inline constexpr char kProgram[] = "program";
inline constexpr char kLanguages[] = "languages";
inline constexpr char kToolLanguage[] = "tool_language";
// The panel's processor: the program must be built for it (see ProgramArch).
inline constexpr char kArch[] = "arch";
// The release the stick manifest for kelgate names (see PackageSigner).
inline constexpr char kVersion[] = "version";
inline constexpr char kModels[] = "models";
inline constexpr char kReplaces[] = "replaces";
inline constexpr const char* kStickKeys[] = {kFolder, kProgram, kLanguages, kToolLanguage,
                                             kArch,   kVersion, kModels,    kReplaces};
inline constexpr char kLanguage[] = "language";
inline constexpr char kLanguageFile[] = "file";
inline constexpr char kLanguageNumber[] = "number";
inline constexpr const char* kLanguageKeys[] = {kLanguageFile, kLanguageNumber};
} // namespace recipe

// Turns a readable package tree into a stick ready to copy. The tree holds "kelpack.ini" (the
// recipe: package folder name, program, languages), plain manifests whose SIZE, CRC32 and CRC
// values may say "auto", and the payload files. The manifests are rewritten through the same
// settings reader the program uses, so that every value reads back exactly; "update.ini" files
// are scrambled, the runtime folder gets its md5 list. Nothing that was in the output folder is
// lost (see StickOutput), and a stick with errors is never written.
class StickBuilder
{
public:
    StickBuilder(const QString& treeDir, const QString& outDir, const QString& program, bool force);
    // Builds, verifies the staged stick as "kelpack verify" would, and moves it into place only
    // when it has no errors.
    bool build();
    // Writes the stick even when the check finds errors (for a test panel).
    void setDespiteErrors(bool despite) { m_despiteErrors = despite; }
    // Builds into the empty folder stick only to check the tree: no program, nothing verified.
    // packageDir receives the package folder.
    bool stage(const QString& stick, QString* packageDir);
    // With a secret key file the stick gets a signed manifest; without one, a recipe that names
    // a version still gets an unsigned one.
    void setSigningKey(const QString& secretKeyFile) { m_signingKey = secretKeyFile; }
    // The processor the stick is for: the program must be built for it; without a program the
    // installed tools' program of that processor is taken. Overrides the recipe's [stick] arch.
    void setArch(const QString& arch) { m_arch = arch; }
    QString error() const { return m_error; }
    // The findings of the check that build made.
    const VerifyReport& report() const { return m_report; }
    // Entries of the tree left out, one line each.
    QStringList warnings() const { return m_warnings; }

private:
    // Writes the whole stick into the empty folder stick; returns the stick's top entries.
    bool buildStick(const QString& stick, QStringList* entries);
    // The panel program to put on the stick and the processor it is built for (empty when only
    // checking); false when it is missing or built for another processor than the stick's.
    bool resolveProgram(QSettings& recipe, QString* programArch);
    // language/ and config/ beside the package folder.
    bool writeLanguages(QSettings& recipe, const QString& stick);
    // Every manifest of the package folder, items first: the package's own may name their files.
    bool writeManifests(const QString& package);
    bool fail(const QString& message);
    bool verifyStaged(const QString& packageDir);
    // The [language] file of the recipe, from the tree or shipped with the tool, as NNNN.lan.
    bool copyLanguageFile(QSettings& recipe, const QString& languageDir);
    bool writeManifest(const QString& dir, const QString& name, bool scramble, bool projectStyle);
    // The "auto" sizes and checksums of a manifest's records, as (key, value) pairs.
    bool fillAuto(QSettings& source, const QString& dir, bool projectStyle,
                  QVector<QPair<QString, QString>>* values);
    bool writeChecksumList(const QString& runtimeDir);

    QString m_tree;
    QString m_out;
    QString m_package; // the package folder being written
    QString m_program;
    bool m_force;
    bool m_checkOnly = false;
    bool m_despiteErrors = false;
    QString m_signingKey;
    QString m_arch;
    QString m_error;
    VerifyReport m_report;
    QStringList m_warnings;
};
