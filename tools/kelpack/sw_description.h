#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// The manifest of an SWUpdate image, in the libconfig form SWUpdate reads: the release's version,
// the panel models as hardware revisions (the panel's SWUpdate runs with -H BOARD:MODEL) and the
// stick archive, handed to the handler that kelgate installs on the panel. An image carries no
// code of its own:
//
//     software =
//     {
//         version = "1.2.0";
//         hardware-compatibility: [ "KEL-1000", "KEL-700" ];
//         images: ( { filename = "stick.tar"; type = "kelswu"; sha256 = "…"; } );
//     }
class SwDescription
{
public:
    static constexpr char kFileName[] = "sw-description";
    static constexpr char kSignatureName[] = "sw-description.sig";
    static constexpr char kStickName[] = "stick.tar";
    // Where the stick archive is listed, and the handler it goes to: the name under which the
    // panel's tools/kelgate/swupdate_handlers.lua registers itself.
    static constexpr char kStickSection[] = "images";
    static constexpr char kHandlerType[] = "kelswu";
    // Larger manifests are refused before they are read.
    static constexpr qint64 kMaxBytes = 64 << 10;

    struct Part
    {
        QString name;
        QByteArray sha256; // 64 lower-case hexadecimal digits
        QString section;   // the list that holds it: "images", "files", "scripts", …
        QString type;      // its handler; empty when none is named
    };

    QByteArray text() const;
    // Reads the version, the models and each part's name, hash, list and handler from any
    // manifest; what else it holds shows only when its text() differs.
    bool parse(const QByteArray& text, QString* error);

    QString version;
    QStringList models;
    QVector<Part> parts;
};
