#pragma once

#include "slienceupdate.h"

#include <QByteArray>
#include <QColor>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QString>
#include <QTest>
#include <cstddef>

// Small builders for package trees and readers of what the code under test reported.
namespace fixture {

// A data-driven test's table: one column "c" holding each case, a row named by its name. Case
// needs Q_DECLARE_METATYPE; the test function reads the row with QFETCH(Case, c).
template <class Case, std::size_t N> void table(const Case (&cases)[N])
{
    QTest::addColumn<Case>("c");
    for (const Case& c : cases)
        QTest::newRow(c.name) << c;
}

// Writes bytes to path, creating its directories.
void writeFile(const QString& path, const QByteArray& bytes);
QByteArray readFile(const QString& path);

// Runs program to its end (three minutes at the most): its exit status, or -1 when it crashed or
// hung. out and err receive its output; the same buffer for both gets the two interleaved.
int run(const QString& program, const QStringList& args, QByteArray* out = nullptr,
        QByteArray* err = nullptr, const QString& workDir = QString());
// Runs this build's package tool, like run().
int kelpack(const QStringList& args, QByteArray* out = nullptr, QByteArray* err = nullptr,
            const QString& workDir = QString());

// The offset and size of an entry's data in a cpio archive of the "newc" kind (an SWUpdate
// image); false when it holds no entry of that name.
bool cpioEntry(const QByteArray& archive, const QByteArray& name, int* offset, int* size);

// Copies this build's sample stick, or the sample's package tree, to dir; false when it failed.
bool copySampleStick(const QString& dir);
bool copySampleTree(const QString& dir);
// Seeds dir as the simulator's default panel (sim/seed-panel.sh); false when it failed.
bool seedPanel(const QString& dir);
// Replaces from by to in the scrambled manifest at path; false when from is not in it.
bool editScrambled(const QString& path, const QByteArray& from, const QByteArray& to);
// Runs chromium headless on page with options, its profile in profileDir; its exit status, or -1
// when it crashed or hung, and its error output in log.
int browser(const QString& page, const QStringList& options, const QString& profileDir,
            QByteArray* log = nullptr);
// Prints page to pdf on paper by chromium (its profile in profileDir) and gives the text of the
// first printed page, simplified; false, with the reason in problem, when the browser failed,
// wrote to its console or chose another paper than A4.
bool printFirstPage(const QString& page, const QString& pdf, const QString& profileDir,
                    QString* text, QString* problem);
// The section NAME of a simulator report: the lines after "== NAME" up to the next section.
QString section(const QString& report, const QString& name);

// Signs the stick of packageDir as it is, with the secret key of keyFile, as a package tool that
// checked nothing would have (version 1.2.0, replacing 1.0.0); false when it could not.
bool signUnchecked(const QString& packageDir, const QString& keyFile, const QStringList& models);

// Writes an INI text as the updater's packages carry it: BOM, "#" first line, scrambled.
void writeScrambledIni(const QString& path, const QByteArray& iniText);

// CRC-32 of bytes as the update manifests write it (upper case, no leading zeros).
QString crcText(const QByteArray& bytes);

// The lines an emitMessage(QString, QColor) spy recorded, or only its red ones.
QStringList texts(const QSignalSpy& spy, bool redOnly = false);
inline QStringList redTexts(const QSignalSpy& spy)
{
    return texts(spy, true);
}

// The command-line record of the program started with these arguments.
QuietUpdateParam parseArgs(const QStringList& args);

// Mounts a tmpfs of size (as mount takes it, "128k") over dir; inside a sandbox only.
bool mountTmpfs(const QString& dir, const QString& size);
// Leaves the working directory, unmounts whatever is mounted under dir, then removes it.
void removeTree(const QString& dir);

} // namespace fixture

// Skips the calling test function when a program of tools is not installed.
#define TOOLS_REQUIRED(...)                                                                        \
    do {                                                                                           \
        for (const char* tool : {__VA_ARGS__})                                                     \
            if (QStandardPaths::findExecutable(tool).isEmpty())                                    \
                QSKIP(qPrintable(QString("%1 is not installed (scripts/install-deps.sh "           \
                                         "installs it)")                                           \
                                     .arg(tool)));                                                 \
    } while (false)
