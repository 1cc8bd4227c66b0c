#include "clogger.h"

#include "panel_library.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

CLogger::CLogger(QString fileName, CLogger::MODE mode) : m_fileName(std::move(fileName))
{
    if (m_fileName.isEmpty())
        return;
    if (QFileInfo(m_fileName).isDir()) {
        m_fileName.clear();
        return;
    }
    const int slash = m_fileName.lastIndexOf('/');
    if (slash > 0) {
        const QString dir = m_fileName.left(slash);
        if (!QDir(dir).exists())
            QDir().mkpath(dir);
    }
    m_file = new QFile(m_fileName);
    m_file->open(mode == WriteOnly ? QIODevice::WriteOnly : QIODevice::ReadWrite);
    m_sinceDurable.start();
}

CLogger::~CLogger()
{
    close();
}

bool CLogger::writable() const
{
    return m_file && m_file->isOpen() && m_enabled;
}

void CLogger::write(QString text)
{
    if (!writable())
        return;
    m_file->seek(m_file->size());
    m_file->write(text.toUtf8());
    m_file->flush();
    if (m_sinceDurable.hasExpired(kDurableWithinMs)) {
        PanelLibrary::instance().fdatasync(m_file->handle());
        m_sinceDurable.start();
    }
}

void CLogger::writeReport(QString text)
{
    if (!writable())
        return;
    m_file->seek(0);
    m_file->write(text.toUtf8());
    m_file->flush();
    m_file->seek(m_file->size());
    syncAll();
}

void CLogger::syncAll()
{
    PanelLibrary::instance().sync();
    m_sinceDurable.start();
}

void CLogger::toggleLogger(bool on)
{
    m_enabled = on;
}

void CLogger::close()
{
    if (!m_file)
        return;
    if (m_file->isOpen()) {
        m_file->flush();
        m_file->close();
        syncAll();
    }
    delete m_file;
    m_file = nullptr;
    m_enabled = false;
}
