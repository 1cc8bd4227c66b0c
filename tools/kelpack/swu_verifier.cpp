#include "swu_verifier.h"

#include "cms_signature.h"
#include "stick_archive.h"
#include "sw_description.h"

#include <archive.h>
#include <archive_entry.h>

#include <QCryptographicHash>
#include <QFile>
#include <QSet>
#include <QTemporaryFile>
#include <memory>

namespace {

constexpr qint64 kChunk = 1 << 16;

struct ReadCloser
{
    void operator()(archive* a) const { archive_read_free(a); }
};

// The next entry's name and (up to limit bytes of) data; false at the end or on damage.
bool readSmall(archive* in, const char* expected, qint64 limit, QByteArray* data, QString* error)
{
    archive_entry* entry = nullptr;
    if (archive_read_next_header(in, &entry) != ARCHIVE_OK ||
        QString::fromUtf8(archive_entry_pathname(entry)) != expected) {
        *error = QString("the image does not hold %1 where SWUpdate expects it: build it again "
                         "with kelpack swu")
                     .arg(expected);
        return false;
    }
    if (archive_entry_size(entry) > limit) {
        *error = QString("%1 is larger than %2 bytes: build the image again with kelpack swu")
                     .arg(expected)
                     .arg(limit);
        return false;
    }
    data->resize(int(archive_entry_size(entry)));
    if (archive_read_data(in, data->data(), size_t(data->size())) != data->size()) {
        *error = QString("%1 is cut short: copy the image again").arg(expected);
        return false;
    }
    return true;
}

// Why the signed manifest asks more of the panel than kelpack swu does; empty when it asks the
// same: the stick archive, once, for the panel's own handler, and nothing else.
QString beyondStick(const SwDescription& description, const QByteArray& text)
{
    const QString rebuild = ": build the image again with kelpack swu";
    for (const SwDescription::Part& part : description.parts) {
        if (part.section == "scripts")
            return QString("sw-description lists %1 as a script (%2): an image runs no code of its "
                           "own on the panel, its handler comes with kelgate")
                       .arg(part.name, part.type.isEmpty() ? "no type" : part.type) +
                   rebuild;
        if (part.name != SwDescription::kStickName)
            return QString("sw-description lists %1 besides %2: an image holds only the stick")
                       .arg(part.name, SwDescription::kStickName) +
                   rebuild;
        if (part.section != SwDescription::kStickSection ||
            part.type != SwDescription::kHandlerType)
            return QString("sw-description hands %1 in \"%2\" to the handler \"%3\": only the "
                           "panel's own \"%4\" in \"%5\" installs a stick")
                       .arg(part.name, part.section, part.type, SwDescription::kHandlerType,
                            SwDescription::kStickSection) +
                   rebuild;
    }
    SwDescription expected;
    expected.version = description.version;
    expected.models = description.models;
    expected.parts = {description.parts.first()};
    const QList<QByteArray> lines = text.split('\n'), written = expected.text().split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        if (i >= written.size() || lines[i] != written[i])
            return QString(
                       "sw-description:%1: \"%2\" is not what kelpack swu writes: the image may "
                       "ask more of the panel than to install the stick")
                       .arg(i + 1)
                       .arg(QString::fromUtf8(lines[i].trimmed())) +
                   rebuild;
    }
    if (lines.size() != written.size())
        return QString("sw-description ends early: it is not what kelpack swu writes") + rebuild;
    return QString();
}

} // namespace

SwuVerifier::SwuVerifier(const QString& swuFile, const QString& certFile)
    : m_swuFile(swuFile), m_certFile(certFile)
{
}

bool SwuVerifier::verify(const QString& stickDir)
{
    std::unique_ptr<archive, ReadCloser> in(archive_read_new());
    archive_read_support_format_cpio(in.get());
    if (archive_read_open_filename(in.get(), QFile::encodeName(m_swuFile).constData(), kChunk) !=
        ARCHIVE_OK) {
        m_error = m_swuFile + ": not an SWUpdate image (cpio): " + archive_error_string(in.get());
        return false;
    }
    SwDescription description;
    if (!readDescription(in.get(), &description))
        return false;
    QTemporaryFile stick(stickDir + "/../.stick-XXXXXX.tar");
    if (!stick.open()) {
        m_error = stickDir + ": cannot write beside it: " + stick.errorString();
        return false;
    }
    QSet<QString> seen;
    if (!readParts(in.get(), description, &stick, &seen) || !allPartsSeen(description, seen))
        return false;
    stick.flush();
    if (!StickArchive::unpack(stick.fileName(), stickDir, &m_error))
        return false;
    m_summary = QString("%1: signature good (%2), version %3 for %4, the stick archive with good "
                        "sha256 for the panel's %5 handler, no scripts\n")
                    .arg(m_swuFile, m_certFile, description.version, description.models.join(", "),
                         SwDescription::kHandlerType);
    return true;
}

bool SwuVerifier::readDescription(archive* in, SwDescription* description)
{
    QByteArray text, signature;
    if (!readSmall(in, SwDescription::kFileName, SwDescription::kMaxBytes, &text, &m_error) ||
        !readSmall(in, SwDescription::kSignatureName, SwDescription::kMaxBytes, &signature,
                   &m_error)) {
        m_error = m_swuFile + ": " + m_error;
        return false;
    }
    QString why;
    if (!CmsSignature::verify(text, signature, m_certFile, &why)) {
        m_error = m_swuFile + ": " + SwDescription::kFileName + ": " + why +
                  ": the image was changed after signing or signed with another key";
        return false;
    }
    if (!description->parse(text, &why)) {
        m_error = m_swuFile + ": " + SwDescription::kFileName + ": " + why +
                  ": build the image again with kelpack swu";
        return false;
    }
    why = beyondStick(*description, text);
    if (!why.isEmpty()) {
        m_error = m_swuFile + ": " + why;
        return false;
    }
    return true;
}

bool SwuVerifier::readParts(archive* in, const SwDescription& description, QFile* stick,
                            QSet<QString>* seen)
{
    archive_entry* entry = nullptr;
    int status;
    while ((status = archive_read_next_header(in, &entry)) == ARCHIVE_OK) {
        const QString name = QString::fromUtf8(archive_entry_pathname(entry));
        QByteArray expected;
        for (const SwDescription::Part& part : description.parts) {
            if (part.name == name)
                expected = part.sha256;
        }
        if (expected.isEmpty() || seen->contains(name)) {
            m_error = m_swuFile + ": " + name + " is not listed once in sw-description: the " +
                      "image was changed after signing";
            return false;
        }
        seen->insert(name);
        // Only the stick is kept; every part is hashed as it streams past.
        QCryptographicHash hash(QCryptographicHash::Sha256);
        QFile* keep = name == SwDescription::kStickName ? stick : nullptr;
        QByteArray chunk(int(kChunk), Qt::Uninitialized);
        la_ssize_t got;
        while ((got = archive_read_data(in, chunk.data(), size_t(chunk.size()))) > 0) {
            hash.addData(QByteArray::fromRawData(chunk.constData(), int(got)));
            if (keep && keep->write(chunk.constData(), got) != got) {
                m_error = keep->fileName() + ": cannot write it: " + keep->errorString();
                return false;
            }
        }
        if (got < 0) {
            m_error = m_swuFile + ": " + name + " is damaged: " + archive_error_string(in);
            return false;
        }
        if (hash.result().toHex() != expected) {
            m_error = m_swuFile + ": " + name + ": its sha256 is not the one sw-description " +
                      "lists: the part was changed after signing";
            return false;
        }
    }
    if (status != ARCHIVE_EOF) {
        m_error = m_swuFile + ": damaged after " + QString::number(seen->size()) +
                  " parts: " + archive_error_string(in) + ": copy the image again";
        return false;
    }
    return true;
}

bool SwuVerifier::allPartsSeen(const SwDescription& description, const QSet<QString>& seen)
{
    for (const SwDescription::Part& part : description.parts) {
        if (!seen.contains(part.name)) {
            m_error = m_swuFile + ": " + part.name + " is listed in sw-description but missing: " +
                      "build the image again with kelpack swu";
            return false;
        }
    }
    if (!seen.contains(SwDescription::kStickName)) {
        m_error = m_swuFile + ": holds no stick: build the image with kelpack swu";
        return false;
    }
    return true;
}
