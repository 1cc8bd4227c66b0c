#pragma once

#include <QString>

class QFile;

// The update log of one run. write() appends; writeReport() overwrites the first bytes with the
// latest verdict. Every write is flushed and followed by sync(): the panel may lose power or
// restart at any moment of an update.
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

    QString m_fileName;
    QFile* m_file = nullptr;
    bool m_enabled = true;
};
