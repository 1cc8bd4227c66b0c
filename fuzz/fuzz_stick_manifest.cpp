// Fuzz target: the gate's stick manifest reader on whatever bytes a stick may carry. Whatever it
// accepts must be canonical: written out again, it gives back the very bytes that were signed.
#include "stick_manifest.h"

#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), int(size));
    StickManifest manifest;
    int line = 0;
    QString error;
    if (manifest.parse(input, &line, &error) && manifest.text() != input)
        abort();
    return 0;
}
