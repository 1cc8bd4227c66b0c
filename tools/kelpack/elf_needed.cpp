#include "elf_needed.h"

#include <QFile>
#include <QVector>

namespace {
constexpr quint64 kLoad = 1;    // PT_LOAD
constexpr quint64 kDynamic = 2; // PT_DYNAMIC
constexpr quint64 kNeeded = 1;  // DT_NEEDED
constexpr quint64 kStrtab = 5;  // DT_STRTAB
// Programs larger than this are not read whole: no runtime program is.
constexpr qint64 kMaxProgramBytes = 512 * 1024 * 1024;

// A little-endian ELF file held in memory, 32- or 64-bit.
struct Elf
{
    QByteArray bytes;
    bool is64;

    bool has(quint64 at, quint64 size) const
    {
        return at <= quint64(bytes.size()) && size <= quint64(bytes.size()) - at;
    }
    quint64 word(quint64 at, int size) const
    {
        quint64 value = 0;
        for (int i = size - 1; i >= 0; --i)
            value = value << 8 | static_cast<unsigned char>(bytes[int(at) + i]);
        return value;
    }
    // A field that is 4 bytes wide in 32-bit files and 8 in 64-bit ones.
    quint64 address(quint64 at) const { return word(at, is64 ? 8 : 4); }
};

struct Segment
{
    quint64 type, offset, vaddr, filesz;
};

QVector<Segment> segments(const Elf& elf)
{
    const quint64 table = elf.address(elf.is64 ? 32 : 28);
    const quint64 entry = elf.word(elf.is64 ? 54 : 42, 2);
    const quint64 count = elf.word(elf.is64 ? 56 : 44, 2);
    QVector<Segment> list;
    for (quint64 i = 0; i < count; ++i) {
        const quint64 at = table + i * entry;
        if (!elf.has(at, elf.is64 ? 56 : 32))
            break;
        list.append({elf.word(at, 4), elf.address(at + (elf.is64 ? 8 : 4)),
                     elf.address(at + (elf.is64 ? 16 : 8)),
                     elf.address(at + (elf.is64 ? 32 : 16))});
    }
    return list;
}
} // namespace

QStringList ElfNeeded::of(const QString& program)
{
    QFile file(program);
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxProgramBytes)
        return {};
    Elf elf{file.readAll(), false};
    if (!elf.bytes.startsWith("\177ELF") || !elf.has(0, 64) || elf.bytes.at(5) != char(1))
        return {};
    elf.is64 = elf.bytes.at(4) == char(2);
    const QVector<Segment> list = segments(elf);
    quint64 strtab = 0;
    QVector<quint64> names;
    for (const Segment& dynamic : list) {
        if (dynamic.type != kDynamic)
            continue;
        const quint64 size = elf.is64 ? 16 : 8;
        for (quint64 at = dynamic.offset;
             elf.has(at, size) && at + size <= dynamic.offset + dynamic.filesz; at += size) {
            const quint64 tag = elf.address(at), value = elf.address(at + size / 2);
            if (tag == 0)
                break;
            if (tag == kNeeded)
                names.append(value);
            else if (tag == kStrtab)
                strtab = value;
        }
    }
    // The string table is named by its address: find it in the file through its segment.
    quint64 tableAt = 0;
    bool found = false;
    for (const Segment& load : list) {
        if (load.type == kLoad && strtab >= load.vaddr && strtab - load.vaddr < load.filesz) {
            tableAt = load.offset + (strtab - load.vaddr);
            found = true;
        }
    }
    QStringList needed;
    for (quint64 name : names) {
        if (!found || !elf.has(tableAt + name, 1))
            continue;
        const int start = int(tableAt + name);
        const int end = elf.bytes.indexOf('\0', start);
        if (end > start)
            needed << QString::fromUtf8(elf.bytes.mid(start, end - start));
    }
    return needed;
}
