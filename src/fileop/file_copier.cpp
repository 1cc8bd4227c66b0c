#include "file_copier.h"

#include "link_safe.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace {

constexpr size_t kBlockSize = 1024 * 1024;
constexpr size_t kCrcPiece = 4096;
constexpr qint64 kPumpIntervalMs = 10;

// One block buffer for the whole program: copies run one at a time on the GUI thread, and a
// fresh zero-filled block per file would cost more than copying a small file.
char* blockBuffer()
{
    static std::vector<char> buffer(kBlockSize);
    return buffer.data();
}

// read(2) and write(2) restarted after signals; a short write is retried until all is written.
ssize_t readSome(int fd, char* buffer, size_t size)
{
    ssize_t n;
    do
        n = ::read(fd, buffer, size);
    while (n < 0 && errno == EINTR);
    return n;
}

bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Lets the kernel copy between the files without a trip through this process, block by block so
// that the event queue is still served. Returns the bytes copied; it stops early (and the caller
// carries on with read and write from the same offsets) where the kernel cannot do it: across file
// systems on many kernels, on old kernels, on pseudo-files that report no size.
off_t copyInKernel(int in, int out)
{
    struct stat st;
    if (fstat(in, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0)
        return 0;
    off_t copied = 0;
    while (copied < st.st_size) {
        const ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, kBlockSize, 0);
        if (n <= 0)
            break;
        copied += n;
        FileCopier::serveEvents();
    }
    return copied;
}

class Fd
{
public:
    explicit Fd(int fd) : m_fd(fd) {}
    ~Fd()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    int get() const { return m_fd; }
    // Closes now and tells whether the kernel accepted the last writes.
    bool close()
    {
        const int fd = m_fd;
        m_fd = -1;
        return ::close(fd) == 0;
    }

private:
    int m_fd;
};

} // namespace

FileCopier::Result FileCopier::copy(const QString& src, const QString& dest)
{
    Fd in(::open(QFile::encodeName(src).constData(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0)
        return SourceUnreadable;
    // A link standing at dest is replaced, never written through; the umask decides the mode of a
    // new file, as for the panel's own tools.
    if (LinkSafe::isLink(dest))
        LinkSafe::remove(dest);
    Fd out(::open(QFile::encodeName(dest).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                  0666));
    if (out.get() < 0)
        return DestinationUnwritable;
    copyInKernel(in.get(), out.get());
    char* buffer = blockBuffer();
    for (;;) {
        const ssize_t n = readSome(in.get(), buffer, kBlockSize);
        if (n < 0)
            return ReadFailed;
        if (n == 0)
            break;
        if (!writeAll(out.get(), buffer, static_cast<size_t>(n)))
            return WriteFailed;
        serveEvents();
    }
    return out.close() ? Ok : WriteFailed;
}

bool FileCopier::crc32Of(const QString& path, quint32* crc)
{
    Fd in(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0)
        return false;
    char* buffer = blockBuffer();
    uLong value = ::crc32(0L, Z_NULL, 0);
    for (;;) {
        const ssize_t n = readSome(in.get(), buffer, kBlockSize);
        if (n < 0)
            return false;
        if (n == 0)
            break;
        for (size_t at = 0; at < static_cast<size_t>(n); at += kCrcPiece) {
            const size_t piece = std::min(kCrcPiece, static_cast<size_t>(n) - at);
            value = ::crc32(value, reinterpret_cast<const Bytef*>(buffer + at),
                            static_cast<uInt>(piece));
        }
        serveEvents();
    }
    *crc = static_cast<quint32>(value);
    return true;
}

void FileCopier::serveEvents()
{
    static QElapsedTimer clock;
    if (clock.isValid() && clock.elapsed() < kPumpIntervalMs)
        return;
    clock.start();
    QCoreApplication::processEvents();
}
