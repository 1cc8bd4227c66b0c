#pragma once

#include <QElapsedTimer>
#include <QString>

class QFile;

// The update log of one run. write() appends; writeReport() overwrites the first bytes with the
// latest verdict. The panel may lose power or restart at any moment of an update, so every line
// is handed to the kernel at once, and reaches the medium within 100 ms (fdatasync of the log),
// with every report and at close (sync). A flush of the whole system per line would cost more
// than the update's own work on thousands of files.
class CLogger
{
public:
    enum MODE
    {
        WriteOnly = 0,
        ReadWrite = 1
    };

    CLogger(QString fileName, CLogger::MODE mode);
    virtual ~CLogger();

    CLogger(const CLogger&) = delete;
    CLogger& operator=(const CLogger&) = delete;

    void write(QString text);
    void writeReport(QString text);
    void toggleLogger(bool on);
    void close();

    QString fileName() const { return m_fileName; }

private:
    bool writable() const;
    // The whole system to the medium: the log and every step before it.
    void syncAll();

    // How long a written line may wait for the medium.
    static constexpr qint64 kDurableWithinMs = 100;

    QString m_fileName;
    QFile* m_file = nullptr;
    bool m_enabled = true;
    QElapsedTimer m_sinceDurable; // since the log last reached the medium
};
