#pragma once

#include <QByteArray>
#include <QString>

// How a text file of a package tree is encoded, as far as the panel cares: it reads every
// manifest and language file as UTF-8.
class TextEncoding
{
public:
    enum Kind
    {
        Utf8,
        Utf8WithMark, // UTF-8 behind a byte order mark
        Utf16,
        EightBit // bytes that are not UTF-8: Latin-1, Windows-1252 or the like
    };

    explicit TextEncoding(const QByteArray& bytes);
    Kind kind() const { return m_kind; }
    // For EightBit: the first line (from 1) that is not UTF-8, and whether it is a comment.
    int firstBadLine() const { return m_badLine; }
    bool onlyInComments() const { return m_onlyComments; }
    // A finding's problem text for anything but Utf8.
    QString problem() const;

private:
    Kind m_kind = Utf8;
    int m_badLine = 0;
    bool m_onlyComments = true;
};
