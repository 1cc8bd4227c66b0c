#include "program_arch.h"

#include "utf8_text.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>

namespace {
// ELF identification and header fields this needs.
const char kElfMagic[] = "\177ELF";
constexpr int kHeaderSize = 52; // a 32-bit header; a 64-bit one is longer
constexpr int kClass = 4;       // 1: 32-bit, 2: 64-bit
constexpr int kData = 5;        // 1: little-endian, 2: big-endian
constexpr int kMachine = 18;
constexpr int kFlags32 = 36;
constexpr unsigned kMachine386 = 3;
constexpr unsigned kMachineArm = 40;
constexpr unsigned kMachineX8664 = 62;
constexpr unsigned kMachineAarch64 = 183;
constexpr unsigned kArmHardFloat = 0x400; // EF_ARM_ABI_FLOAT_HARD

const char kRecordFile[] = "config/kelpack-build.ini";
const char kRecordKey[] = "program/arch";

unsigned little(const QByteArray& bytes, int at, int size)
{
    unsigned value = 0;
    for (int i = size - 1; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}
} // namespace

QString ProgramArch::of(const QString& program, QString* why)
{
    QFile file(program);
    if (!file.open(QIODevice::ReadOnly)) {
        *why = program + ": cannot be read";
        return QString();
    }
    const QByteArray header = file.read(kHeaderSize);
    if (header.size() < kHeaderSize || !header.startsWith(kElfMagic)) {
        *why = program + ": not a Linux program (no ELF header)";
        return QString();
    }
    const bool is64 = header[kClass] == 2;
    if (header[kData] != 1) {
        *why = program + ": a big-endian program, which no panel runs";
        return QString();
    }
    const unsigned machine = little(header, kMachine, 2);
    if (machine == kMachineX8664 && is64)
        return "amd64";
    if (machine == kMachine386 && !is64)
        return "i386";
    if (machine == kMachineAarch64 && is64)
        return "arm64";
    if (machine == kMachineArm && !is64)
        return little(header, kFlags32, 4) & kArmHardFloat ? "armhf" : "armel";
    *why = program + QString(": built for an unknown processor (ELF machine %1, %2-bit)")
                         .arg(machine)
                         .arg(is64 ? 64 : 32);
    return QString();
}

QString ProgramArch::installedProgram(const QString& arch)
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../" + KEL_TOOLS_LIBDIR +
                           "/" + arch + "/kelloadui.bin");
}

QString ProgramArch::recordOfStick(const QString& stickDir)
{
    return stickDir + "/" + kRecordFile;
}

QString ProgramArch::recordOfPackage(const QString& packageDir)
{
    return recordOfStick(QDir::cleanPath(QDir(packageDir).absolutePath() + "/.."));
}

bool ProgramArch::writeRecord(const QString& stickDir, const QString& arch, QString* error)
{
    QSettings record(recordOfStick(stickDir), QSettings::IniFormat);
    kel::useUtf8Ini(record);
    record.setValue(kRecordKey, arch);
    record.sync();
    if (record.status() != QSettings::NoError) {
        *error = record.fileName() + ": cannot be written";
        return false;
    }
    return true;
}

QString ProgramArch::recorded(const QString& packageDir)
{
    const QString path = recordOfPackage(packageDir);
    if (!QFile::exists(path))
        return QString();
    QSettings record(path, QSettings::IniFormat);
    kel::useUtf8Ini(record);
    return record.value(kRecordKey).toString();
}
