#include "text_encoding.h"

#include <QList>

namespace {
bool isUtf8(const QByteArray& bytes)
{
    return QString::fromUtf8(bytes).toUtf8() == bytes;
}
} // namespace

TextEncoding::TextEncoding(const QByteArray& bytes)
{
    if (bytes.startsWith("\xff\xfe") || bytes.startsWith("\xfe\xff") ||
        bytes.left(256).contains('\0')) {
        m_kind = Utf16;
        return;
    }
    const bool marked = bytes.startsWith("\xef\xbb\xbf");
    const QList<QByteArray> lines = bytes.mid(marked ? 3 : 0).split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        if (isUtf8(lines[i]))
            continue;
        if (m_badLine == 0)
            m_badLine = i + 1;
        const QByteArray text = lines[i].trimmed();
        m_onlyComments = m_onlyComments && (text.startsWith(';') || text.startsWith('#'));
    }
    m_kind = m_badLine > 0 ? EightBit : marked ? Utf8WithMark : Utf8;
}

QString TextEncoding::problem() const
{
    switch (m_kind) {
    case Utf16:
        return "is saved as UTF-16: the panel reads it as UTF-8 and finds no section or key in it";
    case EightBit:
        return QString("is not UTF-8 (Latin-1 or Windows-1252?): the panel reads the "
                       "bytes as other characters%1")
            .arg(m_onlyComments ? QString(", in comments only")
                                : QString(", so names and texts do not match"));
    case Utf8WithMark:
        return "begins with a UTF-8 byte order mark: the panel skips it, but a tool that reads "
               "the first line as written does not";
    case Utf8:
        break;
    }
    return QString();
}
