#include "checksum_memo.h"

#include "file_copier.h"

#include <QFile>
#include <QHash>
#include <sys/stat.h>

namespace {

struct Identity
{
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    bool operator==(const Identity& other) const
    {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec &&
               changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

bool identify(const QString& path, Identity* identity)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    *identity = {st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
    return true;
}

struct Entry
{
    Identity identity;
    quint32 crc = 0;
};

QHash<QString, Entry>& memo()
{
    static QHash<QString, Entry> entries;
    return entries;
}

} // namespace

bool ChecksumMemo::crc32Of(const QString& path, quint32* crc)
{
    Identity before;
    if (!identify(path, &before)) {
        memo().remove(path);
        return FileCopier::crc32Of(path, crc);
    }
    const auto known = memo().constFind(path);
    if (known != memo().constEnd() && known->identity == before) {
        *crc = known->crc;
        return true;
    }
    if (!FileCopier::crc32Of(path, crc)) {
        memo().remove(path);
        return false;
    }
    // Remembered only when the file held still while it was read.
    Identity after;
    if (identify(path, &after) && after == before)
        memo().insert(path, {before, *crc});
    else
        memo().remove(path);
    return true;
}

void ChecksumMemo::clear()
{
    memo().clear();
}
