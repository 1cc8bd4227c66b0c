#pragma once

#include <QString>

// The processor a panel program is built for, read from its ELF header and named as Debian names
// it; where the installed tools keep the panel program of each processor; and the note a stick
// keeps of the processor it was built for (config/kelpack-build.ini beside the package folder).
class ProgramArch
{
public:
    // "amd64", "i386", "arm64", "armhf" or "armel"; empty, with the reason in why, otherwise.
    static QString of(const QString& program, QString* why);
    // The panel program the installed tools hold for arch: PREFIX/lib/kelpack-tools/ARCH, PREFIX
    // being the folder above this kelpack's own.
    static QString installedProgram(const QString& arch);
    // The stick's note, from the stick's top folder or from its package folder.
    static QString recordOfStick(const QString& stickDir);
    static QString recordOfPackage(const QString& packageDir);
    static bool writeRecord(const QString& stickDir, const QString& arch, QString* error);
    // The architecture a stick's note names; empty when there is none.
    static QString recorded(const QString& packageDir);
};
