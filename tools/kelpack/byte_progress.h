#pragma once

#include <QElapsedTimer>
#include <QString>

// One line on the terminal that counts the bytes of a long step, rewritten in place
// ("kelpack: copying the tree onto the stick: 312 of 512 MiB"), so that a build onto a slow stick
// does not look hung. Shown only when standard error is a terminal and the step is large enough
// to wait for; erased when the step ends, leaving the output as it would be without it.
class ByteProgress
{
public:
    // Steps smaller than this end before anyone would wonder.
    static constexpr qint64 kShownFrom = qint64(64) << 20;

    ByteProgress(const QString& step, qint64 total);
    ~ByteProgress();
    ByteProgress(const ByteProgress&) = delete;
    ByteProgress& operator=(const ByteProgress&) = delete;

    void add(qint64 bytes);

private:
    void show();

    QString m_step;
    qint64 m_total;
    qint64 m_done = 0;
    bool m_shown;
    QElapsedTimer m_sinceShown;
};
