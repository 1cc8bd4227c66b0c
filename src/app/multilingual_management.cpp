#include "multilingual_management.h"

#include "utf8_text.h"

#include <QFile>
#include <QSettings>
#include <QStringList>

static void initLanguageResource()
{
    // The resource lives in a static library: make sure its registration is linked in.
    Q_INIT_RESOURCE(qrc_language);
}

MultilingualManager::MultilingualManager()
{
    initLanguageResource();
}

MultilingualManager* MultilingualManager::GetInstance()
{
    static MultilingualManager instance;
    return &instance;
}

bool MultilingualManager::loadMultilingualFile(QString file, QString defaultFile)
{
    m_texts.clear();
    if (!QFile::exists(file) && (defaultFile.isEmpty() || !QFile::exists(defaultFile)))
        return false;
    if (!defaultFile.isEmpty())
        loadLayer(defaultFile);
    loadLayer(file);
    return true;
}

void MultilingualManager::loadLayer(const QString& path)
{
    QSettings settings(path, QSettings::IniFormat);
    kel::useUtf8Ini(settings);
    const QStringList groups = settings.childGroups();
    for (const QString& group : groups)
        m_texts[group.toInt(nullptr, 10)] = settings.value(group + "/string").toString();
}

QString MultilingualManager::getMultilingualValue(int id)
{
    return m_texts[id];
}
