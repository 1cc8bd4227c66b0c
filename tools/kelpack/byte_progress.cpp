#include "byte_progress.h"

#include <cstdio>
#include <unistd.h>

namespace {
// Often enough to look alive, rarely enough to cost nothing.
constexpr qint64 kRedrawMs = 200;
constexpr qint64 kMiB = qint64(1) << 20;
} // namespace

ByteProgress::ByteProgress(const QString& step, qint64 total)
    : m_step(step), m_total(total), m_shown(total >= kShownFrom && isatty(STDERR_FILENO))
{
    if (m_shown)
        show();
}

ByteProgress::~ByteProgress()
{
    if (m_shown) {
        fputs("\r\033[K", stderr);
        fflush(stderr);
    }
}

void ByteProgress::add(qint64 bytes)
{
    m_done += bytes;
    // The last count is always shown: the step visibly reaches its end before the line goes.
    if (m_shown && (m_sinceShown.elapsed() >= kRedrawMs || m_done >= m_total))
        show();
}

void ByteProgress::show()
{
    fprintf(stderr, "\r\033[Kkelpack: %s: %lld of %lld MiB", m_step.toUtf8().constData(),
            static_cast<long long>(m_done / kMiB), static_cast<long long>(m_total / kMiB));
    fflush(stderr);
    m_sinceShown.start();
}
