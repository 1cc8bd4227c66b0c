#pragma once

#include "text_id.h"

#include <QString>
#include <map>

// Process-wide table of the updater's texts by number: a language file layered over the built-in
// Chinese table, so that a missing translation still yields the built-in text.
class MultilingualManager
{
public:
    static MultilingualManager* GetInstance();

    // Replaces the table: defaultFile first, then file over it. False (and an empty table) only
    // when file is missing and defaultFile is empty or missing too.
    bool loadMultilingualFile(QString file, QString defaultFile);

    // The text for id; an unknown id yields an empty text.
    QString getMultilingualValue(int id);

private:
    MultilingualManager();
    void loadLayer(const QString& path);

    std::map<int, QString> m_texts;
};

namespace kel {
// The current language's text for id, one of the TextId names.
inline QString text(int id)
{
    return MultilingualManager::GetInstance()->getMultilingualValue(id);
}
} // namespace kel
