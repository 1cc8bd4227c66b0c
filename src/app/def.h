#pragma once

// Constants shared by every module of the updater, defined once.

#define UPDATE_LOG_FILE_NAME "update.log"

// Style-sheet font sizes of the panel's screen classes.
inline constexpr const char* kFontSizeStyles[5] = {"font: 12px;", "font: 13px;", "font: 13px;",
                                                   "font: 12px;", "font: 13px;"};

namespace kel {

// The executable's own name, used to find earlier instances of itself.
inline constexpr char kProgramName[] = "kelloadui.bin";

// The installed HMI runtime and its executable.
inline constexpr char kVornAppDir[] = "/usr/vorn_app";
inline constexpr char kVornAppProgram[] = "/usr/vorn_app/vorn_app";
inline constexpr char kDefaultProjectDir[] = "/usr/vorn_app/project";
// The environment variable naming the runtime directory; start-up sets it when the panel does not.
inline constexpr char kVornWorkDirVariable[] = "VORN_WORK_DIR";

// systemd's unit directory; boot services are linked and removed here.
inline constexpr char kSystemdUnitDir[] = "/etc/systemd/system/";
// A package's service NAME is the unit usr_NAME.service, enabled by a link in the boot target.
inline constexpr char kServiceUnitPrefix[] = "usr_";
inline constexpr char kServiceUnitSuffix[] = ".service";
inline constexpr char kBootTargetDir[] = "multi-user.target.wants/";

// Flag file of the light runtime edition.
inline constexpr char kLiteVornAppFlagPath[] = "/usr/sbin/CheckVornApp";

// Key byte of the package INI scrambling; must match the tool that builds the packages.
inline constexpr unsigned char kScrambleKey = 0x5A;

// Fixed place of the unscrambled copy of a package INI file.
inline constexpr char kDecryptFilePath[] = "//tmp//update.ini";

// Display server: its socket and the place its program is copied to before it starts.
inline constexpr char kQwsSocketPath[] = "/tmp/qtembedded-0/QtEmbedded-0";
inline constexpr char kQwsServerTmpPath[] = "/tmp/qwsserver";

// Process names of every process; plain "ps -o comm" lists only the caller's terminal on a PC.
// A manifest counting more records than this is refused as unreadable: a corrupt count must not
// exhaust the panel's memory.
inline constexpr int kMaxManifestCount = 100000;
inline constexpr char kPsCommCommand[] = "ps -e -o comm";

// The built-in Chinese text table, compiled in as a resource.
inline constexpr char kDefaultLanguageFile[] = ":/new/prefix1/resource/lan/0000.lan";

} // namespace kel

// The installed runtime directory and the runtime package folder, shared by the dialog and the
// runtime-application installer.
inline const char* const _gdesPath = kel::kVornAppDir;
inline const char* const _gsrcPath = "./vorn_app";

namespace {
// systemd unit directory as the dialog names it.
constexpr const char* servPath = kel::kSystemdUnitDir;
} // namespace
