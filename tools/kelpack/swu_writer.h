#pragma once

#include <QString>

class QIODevice;
class StickManifest;
struct archive;

// "kelpack swu STICK OUT.swu": an SWUpdate image of a stick. A cpio archive holding the signed
// sw-description first, its CMS signature second, then the stick as a tar archive for the handler
// that kelgate installs on the panel; the image carries no code. The release's version and panel
// models come from the stick manifest (kelpack sign). OUT is written beside itself under a
// temporary name and renamed when complete; an existing OUT is replaced only when forced.
class SwuWriter
{
public:
    SwuWriter(const QString& stickDir, const QString& outFile, bool force);
    void setSigner(const QString& keyFile, const QString& certFile);
    bool write();
    QString error() const { return m_error; }

    // The package folder of a stick: its subfolder holding kelloadui.bin; empty when none does.
    static QString packageFolder(const QString& stickDir);

private:
    // The signed stick's release: its version and panel models, which the image carries.
    bool readRelease(StickManifest* manifest);
    // The image: sw-description, its signature and the stick archive, written all or nothing.
    bool writeImage(const QByteArray& text, const QByteArray& signature, QIODevice* stick);
    bool appendEntry(archive* out, const QString& name, QIODevice* data);

    QString m_stickDir;
    QString m_outFile;
    bool m_force;
    QString m_keyFile;
    QString m_certFile;
    QString m_error;
};
