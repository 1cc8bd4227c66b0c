#include "stick_archive.h"

#include "byte_progress.h"

#include <archive.h>
#include <archive_entry.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <memory>

namespace {

struct ReadCloser
{
    void operator()(archive* a) const { archive_read_free(a); }
};
struct WriteCloser
{
    void operator()(archive* a) const { archive_write_free(a); }
};
struct EntryFree
{
    void operator()(archive_entry* e) const { archive_entry_free(e); }
};
using Reader = std::unique_ptr<archive, ReadCloser>;
using Writer = std::unique_ptr<archive, WriteCloser>;
using Entry = std::unique_ptr<archive_entry, EntryFree>;

constexpr qint64 kChunk = 1 << 16;

QString reason(archive* a)
{
    const char* text = archive_error_string(a);
    return text ? QString::fromLocal8Bit(text) : QStringLiteral("unknown error");
}

bool copyData(archive* a, const QString& path, ByteProgress* progress, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = path + ": cannot read it: " + file.errorString();
        return false;
    }
    while (!file.atEnd()) {
        const QByteArray chunk = file.read(kChunk);
        if (chunk.isEmpty() && file.error() != QFile::NoError) {
            *error = path + ": cannot read it: " + file.errorString();
            return false;
        }
        if (archive_write_data(a, chunk.constData(), size_t(chunk.size())) != chunk.size()) {
            *error = path + ": cannot add it to the archive: " + reason(a);
            return false;
        }
        progress->add(chunk.size());
    }
    return true;
}

// The data of the current entry of in, written to the current entry of out.
bool copyBlocks(archive* in, archive* out)
{
    const void* block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    int status;
    while ((status = archive_read_data_block(in, &block, &size, &offset)) == ARCHIVE_OK) {
        if (archive_write_data_block(out, block, size, offset) != ARCHIVE_OK)
            return false;
    }
    if (status != ARCHIVE_EOF)
        archive_copy_error(out, in);
    return status == ARCHIVE_EOF;
}

} // namespace

bool StickArchive::pack(const QString& dir, const QString& tarFile, QString* error)
{
    const QDir top(QDir(dir).absolutePath());
    if (!top.exists()) {
        *error = dir + ": no such folder: name the stick's top folder";
        return false;
    }
    QStringList paths;
    qint64 bytes = 0;
    QDirIterator it(top.path(),
                    QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        paths << it.next();
        if (it.fileInfo().isFile() && !it.fileInfo().isSymLink())
            bytes += it.fileInfo().size();
    }
    // Folders come before what they hold, and one stick always gives the same order.
    paths.sort();

    Writer out(archive_write_new());
    archive_write_set_format_pax_restricted(out.get());
    if (archive_write_open_filename(out.get(), QFile::encodeName(tarFile).constData()) !=
        ARCHIVE_OK) {
        *error = tarFile + ": cannot write it: " + reason(out.get());
        return false;
    }
    Reader disk(archive_read_disk_new());
    archive_read_disk_set_symlink_physical(disk.get());
    ByteProgress progress("packing the stick", bytes);
    for (const QString& path : paths) {
        Entry entry(archive_entry_new());
        const QByteArray native = QFile::encodeName(path);
        archive_entry_copy_sourcepath(entry.get(), native.constData());
        if (archive_read_disk_entry_from_file(disk.get(), entry.get(), -1, nullptr) != ARCHIVE_OK) {
            *error = path + ": cannot read it: " + reason(disk.get());
            return false;
        }
        archive_entry_copy_pathname(entry.get(),
                                    QFile::encodeName(top.relativeFilePath(path)).constData());
        archive_entry_set_uid(entry.get(), 0);
        archive_entry_set_gid(entry.get(), 0);
        archive_entry_copy_uname(entry.get(), "root");
        archive_entry_copy_gname(entry.get(), "root");
        if (archive_write_header(out.get(), entry.get()) != ARCHIVE_OK) {
            *error = path + ": cannot add it to the archive: " + reason(out.get());
            return false;
        }
        if (archive_entry_filetype(entry.get()) == AE_IFREG &&
            archive_entry_size(entry.get()) > 0 && !copyData(out.get(), path, &progress, error))
            return false;
    }
    if (archive_write_close(out.get()) != ARCHIVE_OK) {
        *error = tarFile + ": cannot finish it: " + reason(out.get());
        return false;
    }
    return true;
}

bool StickArchive::unpack(const QString& tarFile, const QString& dir, QString* error)
{
    Reader in(archive_read_new());
    archive_read_support_format_tar(in.get());
    if (archive_read_open_filename(in.get(), QFile::encodeName(tarFile).constData(), kChunk) !=
        ARCHIVE_OK) {
        *error = tarFile + ": cannot read it: " + reason(in.get());
        return false;
    }
    Writer disk(archive_write_disk_new());
    archive_write_disk_set_options(disk.get(), ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_TIME |
                                                   ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                                   ARCHIVE_EXTRACT_SECURE_SYMLINKS);
    const QString prefix = QDir(dir).absolutePath() + "/";
    archive_entry* entry = nullptr;
    int status;
    while ((status = archive_read_next_header(in.get(), &entry)) == ARCHIVE_OK) {
        const QString name = QFile::decodeName(archive_entry_pathname(entry));
        if (name.startsWith('/') || name.split('/').contains("..")) {
            *error = tarFile + ": entry " + name + " leaves the stick: rebuild the image";
            return false;
        }
        archive_entry_copy_pathname(entry, QFile::encodeName(prefix + name).constData());
        if (archive_write_header(disk.get(), entry) != ARCHIVE_OK ||
            !copyBlocks(in.get(), disk.get()) ||
            archive_write_finish_entry(disk.get()) != ARCHIVE_OK) {
            *error = tarFile + ": cannot unpack " + name + ": " + reason(disk.get());
            return false;
        }
    }
    if (status != ARCHIVE_EOF) {
        *error = tarFile + ": damaged archive: " + reason(in.get());
        return false;
    }
    if (archive_write_close(disk.get()) != ARCHIVE_OK) {
        *error = dir + ": cannot finish unpacking: " + reason(disk.get());
        return false;
    }
    return true;
}
