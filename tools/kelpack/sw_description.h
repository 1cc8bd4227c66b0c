#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// The manifest of an SWUpdate image, in the libconfig form SWUpdate reads: the release's version,
// the panel models as hardware revisions (the panel's SWUpdate runs with -H BOARD:MODEL), the
// stick archive copied into place and the handler script run before and after:
//
//     software =
//     {
//         version = "1.2.0";
//         hardware-compatibility: [ "KEL-1000", "KEL-700" ];
//         files: ( { filename = "stick.tar"; path = "/var/lib/kelswu/stick.tar"; sha256 = "…"; } );
//         scripts: ( { filename = "kelswu.sh"; type = "shellscript"; sha256 = "…"; } );
//     }
class SwDescription
{
public:
    static constexpr char kFileName[] = "sw-description";
    static constexpr char kSignatureName[] = "sw-description.sig";
    static constexpr char kStickName[] = "stick.tar";
    static constexpr char kHandlerName[] = "kelswu.sh";
    // Larger manifests are refused before they are read.
    static constexpr qint64 kMaxBytes = 64 << 10;

    struct Part
    {
        QString name;
        QByteArray sha256; // 64 lower-case hexadecimal digits
    };

    QByteArray text() const;
    // Reads back the form text() writes: the version, the models and each part's name and hash.
    bool parse(const QByteArray& text, QString* error);

    QString version;
    QStringList models;
    QString stickPath;   // where SWUpdate puts the stick archive on the panel
    QVector<Part> parts; // the stick archive first, then the handler
};
