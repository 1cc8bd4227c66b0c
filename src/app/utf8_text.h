#pragma once

class QSettings;

// Every 8-bit text of the updater (arguments, paths, logs, INI files) is UTF-8. Qt 5 has to be
// told; Qt 6 reads and writes nothing else. The one place that knows the difference.
namespace kel {

// Makes the locale's 8-bit encoding UTF-8 for the whole process.
void useUtf8Locale();

// Makes settings read and write its INI file as UTF-8.
void useUtf8Ini(QSettings& settings);

} // namespace kel
