#pragma once

#include <QStringList>

// The shared libraries a little-endian ELF program names as needed (DT_NEEDED), read from its
// dynamic segment; empty for anything else (a script, a static program, a damaged file).
class ElfNeeded
{
public:
    static QStringList of(const QString& program);
};
