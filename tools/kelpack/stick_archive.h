#pragma once

#include <QString>

// A stick as one tar file (POSIX ustar/pax), the form it travels in inside an SWUpdate image.
class StickArchive
{
public:
    // Writes every folder, file and link below dir, by paths relative to dir, owned by root.
    static bool pack(const QString& dir, const QString& tarFile, QString* error);
    // Unpacks tarFile into the existing folder dir; paths leaving dir are refused.
    static bool unpack(const QString& tarFile, const QString& dir, QString* error);
};
