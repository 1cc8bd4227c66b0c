// Fuzz target: a language file from a stick, layered over the built-in table.
#include "def.h"
#include "multilingual_management.h"

#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir scratch;
    const QString path = scratch.path() + "/0001.lan";
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(reinterpret_cast<const char*>(data), qint64(size));
    file.close();
    MultilingualManager* texts = MultilingualManager::GetInstance();
    texts->loadMultilingualFile(path, kel::kDefaultLanguageFile);
    int length = 0;
    for (int id : {0, 1000, 2055, 2157, 2223})
        length += texts->getMultilingualValue(id).arg("x").size();
    texts->loadMultilingualFile(path, QString());
    return length < 0;
}
