#pragma once

#include "downLoadVorn_app.h"
#include "manifest_text.h"
#include "panel_model.h"
#include "record_rules.h"
#include "verify_report.h"

#include <QMap>
#include <QSet>
#include <QString>

class GenerateConfigInfo;
class QSettings;

// Walks a built package in the order the updater applies it and predicts, on a model of the
// panel's files, what every step finds: the checks the updater makes before it starts, the
// runtime and project items' own steps up to the check of the installed copy, and what the
// package-wide sets, boot services and command meet. Reports what would fail or surprise as
// findings (errors: certain on every panel; warnings: up to the panel's state) and records every
// step as a plan. Given the package tree the stick was built from, findings name the tree's
// lines.
class PackageVerifier
{
public:
    // packageDir: the package folder of a stick (scrambled manifests, md5 list). treeDir: the
    // tree it was built from, or empty for a stick alone.
    PackageVerifier(const QString& packageDir, const QString& treeDir = QString());
    // The panels' public keys, to check the stick manifest's signature with.
    void setTrustedKeys(const QString& keysDir) { m_keysDir = keysDir; }
    // A tree checked before it is built has no signature yet: leave the stick manifest out.
    void setSignatureAudited(bool audited) { m_signatureAudited = audited; }
    // The panel the plan is applied to: a copy of its root folder, or a listing of its files
    // (one absolute path a line). Without one, whatever the package does not decide is unknown.
    // A certain panel is the one the stick goes to: what it lacks is missing, not up to the panel.
    bool setPanel(const QString& copyOrListing, QString* error, bool certain = false);
    void verify();
    // Only the check that every source the manifests name lies in the folders the stick manifest
    // covers: what signing refuses.
    void verifySources();
    const VerifyReport& report() const { return m_report; }

private:
    struct CopyRecord
    {
        int number;
        QString src, dest, crc, sizeText;
        int mode, priority;
    };
    struct DeleteRecord
    {
        int number;
        QString path;
        int mode, priority;
    };

    // The steps whose target the plan's panel decides (one rule each, with its texts).
    enum TargetStep
    {
        Delete,
        Grant,
        RuntimeGrant,
        Start,
        Stop,
        Command
    };
    // Reports what a step finds at target in the state the plan has it then; returns the state.
    PanelModel::State checkTarget(TargetStep kind, const QString& file, const QString& section,
                                  const QString& key, const QString& target,
                                  PanelModel::State state, const QString& remover,
                                  const QString& named = QString());
    // Runs the rules of a kind of record; false when the plan leaves the record out.
    bool judge(RecordRules::Kind kind, const QString& file, ManifestRecord& record);
    void add(bool error, const QString& file, const QString& section, const QString& key,
             const QString& problem, const QString& fix = QString(),
             const QString& expected = QString(), const QString& actual = QString());
    void step(const QString& action, const QString& target, const QString& source = QString(),
              const QString& detail = QString());
    // The plain text of a manifest: the tree's, or the stick's unscrambled; null when absent.
    const ManifestText* text(const QString& file);
    // Opens a package manifest as the program reads it; null when it is not a scrambled one.
    QSettings* openScrambled(const QString& file);
    bool hasErrorIn(const QString& file) const;
    QString stickPath(const QString& folder, const QString& relative) const;

    // The checks of verify(), in the order the updater applies the package.
    void checkAll();
    // Hands the report the text of each manifest a finding names a line of.
    void keepFindingLines();
    void lintAll();
    // Names an encoding other than UTF-8; false when the file cannot be read as text at all.
    bool checkEncoding(const QString& file);
    void checkSources();
    // Language files: UTF-8, and the report markers as the program writes them.
    void checkLanguages();
    void walkPrepare(GenerateConfigInfo& root);
    void walkOperations(const QString& folder, const QString& file);
    void walkCopies(const QString& folder, const QString& file, QSettings& manifest);
    ManifestRecord copyRecord(const QString& folder, const QString& file,
                              const CopyRecord& r) const;
    void walkDeletes(const QString& file, QSettings& manifest);
    void walkGrants(const QString& file, QSettings& manifest);
    void walkRuntime();
    // Removes every usable record's old files; which records are usable.
    QVector<bool> clearRuntime(const QString& file,
                               const QVector<downLoadVorn_app::FILE_INFO>& records);
    static ManifestRecord runtimeRecord(int index, const downLoadVorn_app::FILE_INFO& r);
    void copyRuntime(const QString& file, downLoadVorn_app& runtime,
                     QVector<downLoadVorn_app::FILE_INFO>& records, const QVector<bool>& usable);
    void copyRuntimeFile(const QString& file, ManifestRecord& record);
    void checkDelayPatterns(const QString& file, const QString& section,
                            const downLoadVorn_app::FILE_INFO& r, const QStringList& names);
    void shortenRuntimeLibraries(const QString& file);
    void grantRuntime(const QString& file, const QStringList& names);
    void checkInstalledRuntime(const QString& versionFile);
    // Libraries the package ships that its runtime program needs, where the program finds them.
    void checkRuntimeLibraries(const QString& file);
    // Files of the runtime package that no record installs.
    void checkUnshippedRuntime(const QString& file, const QString& versionFile);
    void walkProject();
    // The facts the project's rules judge: the source, the destination as resolved.
    void readProjectRecord(const QString& source, ManifestRecord& record) const;
    void walkServices(GenerateConfigInfo& root);
    void walkCommand(GenerateConfigInfo& root);
    // Relative paths in the command, which the shell resolves in the package folder.
    void checkCommandPaths(const QString& command);
    void checkCommandFile(const QString& path, bool runDirectly);
    // Rules over the panel the whole package leaves.
    void checkEndState();
    void checkItemFolders(GenerateConfigInfo& root);
    // The stick's program against the processor the stick was built for.
    void checkProgramArch();

    QString m_dir;
    QString m_tree;
    QString m_keysDir;
    bool m_signatureAudited = true;
    QString m_scratch;
    int m_opened = 0;
    QString m_phase;
    PanelModel m_panel;
    // Whether a step adds or replaces what it writes there.
    QString changeOf(const QString& path) const;
    void summarizeEndState();

    // The state of a folder, the given panel's when the package does not decide it.
    PanelModel::State dirState(const QString& dir) const;

    bool m_panelGiven = false;
    bool m_panelCertain = false;
    QSet<QString> m_panelFiles; // the given panel's files and folders
    QSet<QString> m_panelDirs;  // its folders alone
    QSet<QString> m_granted;    // panel paths made executable so far
    QSet<QString> m_outside;    // "file [SECTION]" of records with a source checkSources refused
    QMap<QString, ManifestText> m_texts;
    VerifyReport m_report;
};
