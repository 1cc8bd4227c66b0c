// Runs a fuzz target over stored inputs (the seed corpus and every crash found so far), so that
// ordinary builds and the sanitizer build keep them passing: replay DIR_OR_FILE...
#include <QDirIterator>
#include <QFile>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        QDirIterator it(QString::fromLocal8Bit(argv[i]), QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile input(it.next());
            if (!input.open(QIODevice::ReadOnly))
                return 1;
            const QByteArray bytes = input.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.constData()),
                                   size_t(bytes.size()));
            ++count;
        }
    }
    printf("%d inputs replayed\n", count);
    return count > 0 ? 0 : 1;
}
