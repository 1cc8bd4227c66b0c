#include "swu_writer.h"

#include "byte_progress.h"
#include "cms_signature.h"
#include "stick_archive.h"
#include "stick_manifest.h"
#include "sw_description.h"

#include <archive.h>
#include <archive_entry.h>

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QTemporaryFile>
#include <memory>

namespace {

constexpr qint64 kChunk = 1 << 16;

struct WriteCloser
{
    void operator()(archive* a) const { archive_write_free(a); }
};

QByteArray sha256Of(QIODevice* data)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    data->seek(0);
    hash.addData(data);
    data->seek(0);
    return hash.result().toHex();
}

} // namespace

SwuWriter::SwuWriter(const QString& stickDir, const QString& outFile, bool force)
    : m_stickDir(stickDir), m_outFile(outFile), m_force(force)
{
}

void SwuWriter::setSigner(const QString& keyFile, const QString& certFile)
{
    m_keyFile = keyFile;
    m_certFile = certFile;
}

QString SwuWriter::packageFolder(const QString& stickDir)
{
    const QStringList folders =
        QDir(stickDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& folder : folders) {
        if (QFileInfo(stickDir + "/" + folder + "/kelloadui.bin").isFile())
            return folder;
    }
    return QString();
}

bool SwuWriter::write()
{
    StickManifest manifest;
    if (!readRelease(&manifest))
        return false;
    if (QFileInfo::exists(m_outFile) && !m_force) {
        m_error = m_outFile + ": exists: name a new file, or add --force to replace it";
        return false;
    }
    QTemporaryFile stick(QFileInfo(m_outFile).absolutePath() + "/.stick-XXXXXX.tar");
    if (!stick.open()) {
        m_error = m_outFile + ": cannot write beside it: " + stick.errorString();
        return false;
    }
    if (!StickArchive::pack(m_stickDir, stick.fileName(), &m_error))
        return false;
    SwDescription description;
    description.version = manifest.version;
    description.models = manifest.models;
    description.parts << SwDescription::Part{SwDescription::kStickName, sha256Of(&stick),
                                             SwDescription::kStickSection,
                                             SwDescription::kHandlerType};
    const QByteArray text = description.text();
    QByteArray signature;
    if (!CmsSignature::sign(text, m_keyFile, m_certFile, &signature, &m_error))
        return false;
    return writeImage(text, signature, &stick);
}

bool SwuWriter::readRelease(StickManifest* manifest)
{
    const QString folder = packageFolder(m_stickDir);
    if (folder.isEmpty()) {
        m_error = m_stickDir + ": no package folder with kelloadui.bin: name a stick built by "
                               "kelpack build";
        return false;
    }
    const QString manifestPath = m_stickDir + "/" + folder + "/" + StickManifest::kFileName;
    QFile manifestFile(manifestPath);
    if (!manifestFile.open(QIODevice::ReadOnly)) {
        m_error = manifestPath +
                  ": missing: the image names the release's version and panel "
                  "models from it; run kelpack sign " +
                  m_stickDir + "/" + folder + " KEY --version V --models M,... first";
        return false;
    }
    int line = 0;
    QString why;
    if (manifestFile.size() > StickManifest::kMaxBytes ||
        !manifest->parse(manifestFile.read(StickManifest::kMaxBytes), &line, &why)) {
        m_error = QString("%1:%2: %3: sign the stick again with kelpack sign")
                      .arg(manifestPath)
                      .arg(line)
                      .arg(why);
        return false;
    }
    if (manifest->models.isEmpty()) {
        m_error = manifestPath + ": names no panel models: sign the stick again with --models";
        return false;
    }
    return true;
}

bool SwuWriter::writeImage(const QByteArray& text, const QByteArray& signature, QIODevice* stick)
{
    QBuffer textData, signatureData;
    textData.setData(text);
    signatureData.setData(signature);
    textData.open(QIODevice::ReadOnly);
    signatureData.open(QIODevice::ReadOnly);
    QSaveFile out(m_outFile);
    if (!out.open(QIODevice::WriteOnly)) {
        m_error = m_outFile + ": cannot write it: " + out.errorString();
        return false;
    }
    std::unique_ptr<archive, WriteCloser> cpio(archive_write_new());
    // SWUpdate reads "newc" as well as "crc"; libarchive writes only newc, and the sha256 of
    // every part in the signed sw-description does what the crc variant's sums would.
    archive_write_set_format_cpio_newc(cpio.get());
    archive_write_set_bytes_in_last_block(cpio.get(), 1);
    if (archive_write_open_fd(cpio.get(), out.handle()) != ARCHIVE_OK) {
        m_error = m_outFile + ": cannot write it: " + archive_error_string(cpio.get());
        return false;
    }
    if (!appendEntry(cpio.get(), SwDescription::kFileName, &textData) ||
        !appendEntry(cpio.get(), SwDescription::kSignatureName, &signatureData) ||
        !appendEntry(cpio.get(), SwDescription::kStickName, stick))
        return false;
    if (archive_write_close(cpio.get()) != ARCHIVE_OK || !out.commit()) {
        m_error = m_outFile + ": cannot finish it: " + out.errorString() + ": check the free space";
        return false;
    }
    return true;
}

bool SwuWriter::appendEntry(archive* out, const QString& name, QIODevice* data)
{
    std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                   archive_entry_free);
    archive_entry_copy_pathname(entry.get(), name.toUtf8().constData());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0644);
    archive_entry_set_size(entry.get(), data->size());
    data->seek(0);
    ByteProgress progress("writing " + name + " into the image", data->size());
    bool ok = archive_write_header(out, entry.get()) == ARCHIVE_OK;
    while (ok && !data->atEnd()) {
        const QByteArray chunk = data->read(kChunk);
        ok = !chunk.isEmpty() &&
             archive_write_data(out, chunk.constData(), size_t(chunk.size())) == chunk.size();
        progress.add(chunk.size());
    }
    if (!ok)
        m_error = m_outFile + ": cannot add " + name + ": " + archive_error_string(out);
    return ok;
}
