#pragma once

#include <QSet>
#include <QString>

class QFile;
class SwDescription;
struct archive;

// "kelpack verify X.swu --cms-cert CERT": checks an image as the panel's SWUpdate would before it
// installs anything (sw-description first, its signature by CERT's key, every part listed with
// its sha256 and nothing else), refuses one that carries scripts or asks for more than the stick
// archive for the panel's own handler, and unpacks the stick for the stick's own verification.
class SwuVerifier
{
public:
    SwuVerifier(const QString& swuFile, const QString& certFile);
    // Checks the image and unpacks its stick into stickDir (an existing, empty folder).
    bool verify(const QString& stickDir);
    QString error() const { return m_error; }
    // What was checked, for the tool's output, once verify() succeeded.
    QString summary() const { return m_summary; }

private:
    // sw-description and its signature, the first two parts; what it asks for is the stick only.
    bool readDescription(archive* in, SwDescription* description);
    // Every further part once, with the sha256 sw-description lists; the stick's bytes into stick.
    bool readParts(archive* in, const SwDescription& description, QFile* stick,
                   QSet<QString>* seen);
    // Nothing sw-description lists is missing, and there is a stick.
    bool allPartsSeen(const SwDescription& description, const QSet<QString>& seen);

    QString m_swuFile;
    QString m_certFile;
    QString m_error;
    QString m_summary;
};
