#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// The list of every file of a stick that the updater or its update reads, with the package's
// version, the panel models it is for and the lowest panel version it may replace. Its text is
// canonical (fixed header order, one line per file, paths sorted, a count and an end marker),
// so that one stick always gives the same bytes to sign and a cut-short copy never reads as a
// shorter valid one:
//
//     kelgate-manifest 1
//     folder update
//     version 1.2.0
//     models KEL-1000,KEL-700
//     replaces 1.0.0
//     built 2026-11-23T20:08:00Z
//     files 2
//     <sha256> <size> config/vornUpdateSet.ini
//     <sha256> <size> update/kelloadui.bin
//     end
class StickManifest
{
public:
    struct File
    {
        QString path; // relative to the stick's top directory
        qint64 size = 0;
        QByteArray sha256; // 64 lower-case hexadecimal digits
    };

    // Files in the package folder that the manifest never lists: itself and its signature.
    static constexpr char kFileName[] = "kelgate.manifest";
    static constexpr char kSignatureName[] = "kelgate.sig";
    // A manifest larger than this is refused before it is read.
    static constexpr qint64 kMaxBytes = qint64(32) << 20;

    // The folders beside the package folder that the updater reads.
    static const QStringList& sideFolders();

    // Strict reader. On any deviation from the canonical form it returns false with the line
    // (1-based; 0 for the whole text) and the reason, and leaves the manifest empty.
    bool parse(const QByteArray& text, int* errorLine, QString* error);
    // The canonical text; files are written sorted by path.
    QByteArray text() const;

    // A version is one to four dot-separated decimal numbers without leading zeros.
    static bool isVersion(const QString& version);
    // Negative, zero or positive as a is older than, equal to or newer than b (valid versions).
    static int compareVersions(const QString& a, const QString& b);
    static bool isModel(const QString& model);
    // Why path cannot be listed for a stick whose package folder is folder; empty when it can.
    static QString pathProblem(const QString& path, const QString& folder);

    QString folder;
    QString version;
    QStringList models; // sorted, no duplicates
    QString replaces;
    QString built; // UTC, "yyyy-MM-ddThh:mm:ssZ"
    QVector<File> files;
};
