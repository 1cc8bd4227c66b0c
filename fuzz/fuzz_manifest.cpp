// Fuzz target: the unscrambler and every manifest reader of a package on whatever bytes a stick
// may carry. The input is used twice: as the scrambled file itself, and as the plain text of a
// properly scrambled one, so that mutations reach the readers behind the plausibility check.
#include "downLoadPro.h"
#include "downLoadVorn_app.h"
#include "generateconfiginfo.h"
#include "qsettingsfactory.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>

namespace {

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(bytes);
}

void readEverything(const QString& dir)
{
    GenerateConfigInfo reader;
    reader.readIni(dir + "/update.ini");
    reader.readFileOpConfig(dir + "/update.ini");
    downLoadVorn_app runtime;
    runtime.parseIniFile();
    QString tip;
    runtime.checkProjectFiles(tip);
    downLoadPro project(dir + "/");
    project.parseIniFile();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir scratch;
    static bool ready = [] {
        QSettingsFactory::setScratchPath(scratch.path() + "/opened.ini");
        return QDir::setCurrent(scratch.path());
    }();
    if (!ready)
        return 0;
    const QByteArray input(reinterpret_cast<const char*>(data), int(size));
    writeFile(scratch.path() + "/update.ini", input);
    writeFile(scratch.path() + "/project.ini", input);
    readEverything(scratch.path());

    QByteArray scrambled = "\xEF\xBB\xBF#\n" + input;
    for (char& byte : scrambled)
        byte = char(QSettingsFactory::scrambleByte(static_cast<unsigned char>(byte)));
    writeFile(scratch.path() + "/update.ini", scrambled);
    readEverything(scratch.path());
    return 0;
}
