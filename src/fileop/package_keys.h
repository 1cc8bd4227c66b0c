#pragma once

// Names of the sections and keys the updater reads from a package, defined once for the program
// and for the package tool that checks packages against them.
namespace kel::keys {

// "update.ini" of the package root, "system/" and "kelinfo/": operation records.
inline constexpr char kCopy[] = "COPYFILE";
inline constexpr char kCopyCount[] = "COPYFILENUM";
inline constexpr char kDelete[] = "DELFILE";
inline constexpr char kDeleteCount[] = "DELFILENUM";
inline constexpr char kExe[] = "EXEFILE";
inline constexpr char kExeCount[] = "EXEFILENUM";
inline constexpr char kSrcPath[] = "SRCPATH";
inline constexpr char kDestPath[] = "DESTPATH";
inline constexpr char kSize[] = "SIZE";
inline constexpr char kCrc32[] = "CRC32";
inline constexpr char kMode[] = "MODE";
inline constexpr char kAuthority[] = "AUTHORITY";
inline constexpr char kPriority[] = "PRIORITY";
inline constexpr const char* kCopyRecordKeys[] = {kSrcPath, kDestPath,  kSize,    kCrc32,
                                                  kMode,    kAuthority, kPriority};
inline constexpr const char* kDeleteRecordKeys[] = {kSrcPath, kMode, kAuthority, kPriority};
inline constexpr const char* kExeRecordKeys[] = {kSrcPath};

// "update.ini" of the package root: tables the dialog interprets.
inline constexpr char kUpdate[] = "UPDATE";
inline constexpr char kBackup[] = "BACKUP";
inline constexpr char kRestart[] = "RESTART";
inline constexpr char kPrepare[] = "PREPARE";
inline constexpr char kPrepareCount[] = "PREPARENUM";
inline constexpr int kPrepareTables = 3;
inline constexpr char kUpSystem[] = "UPSYSTEM";
inline constexpr char kUpVornApp[] = "UPVORN_APP";
inline constexpr char kUpProject[] = "UPPROJECT";
inline constexpr char kUpKelInfo[] = "UPKELINFO";
inline constexpr char kUpSysConfig[] = "UPSYSCONFIG";
inline constexpr const char* kUpdateKeys[] = {kUpSystem, kUpVornApp, kUpProject, kUpKelInfo,
                                              kUpSysConfig};
inline constexpr char kStopProc[] = "STOPPROC";
inline constexpr char kAutoStart[] = "AUTOSTART";
inline constexpr char kAutoStop[] = "AUTOSTOP";
inline constexpr char kCommand[] = "COMMAND";
inline constexpr char kBeepNum[] = "BEEPNUM";
inline constexpr char kReboot[] = "REBOOT";
inline constexpr const char* kRestartKeys[] = {kAutoStart, kAutoStop, kCommand, kBeepNum, kReboot};

// Item folders of the package, relative to its root.
inline constexpr char kSystemFolder[] = "./system/";
inline constexpr char kVornAppFolder[] = "./vorn_app/";
inline constexpr char kProjectFolder[] = "./project/";
inline constexpr char kKelInfoFolder[] = "./kelinfo/";
inline constexpr char kManifest[] = "./update.ini";

// "vorn_app/update.ini": the runtime-application package.
inline constexpr char kUpdateInfo[] = "UPDATEINFO";
inline constexpr char kFileNum[] = "file_num";
inline constexpr char kRuntimeFile[] = "FILE";
inline constexpr char kFileName[] = "file_name";
inline constexpr char kDesPath[] = "des_path";
inline constexpr char kSrcPathRuntime[] = "src_path";
inline constexpr char kDelayCopy[] = "delaycopy_file";
inline constexpr const char* kRuntimeRecordKeys[] = {kFileName, kDesPath, kSrcPathRuntime,
                                                     kDelayCopy};
inline constexpr char kAccessRight[] = "ACCESSRIGHT";
inline constexpr char kRuntimeExe[] = "EXE";
inline constexpr char kTip[] = "tip";
inline constexpr char kVersion[] = "version";
inline constexpr char kVersionListPrefix[] = "version.";

// "project/project.ini": the project package.
inline constexpr char kProjectManifest[] = "./project.ini";
inline constexpr char kGlobal[] = "GLOBAL";
inline constexpr char kFileCount[] = "FILENUM";
inline constexpr char kProjectFile[] = "FILE";
inline constexpr char kName[] = "NAME";
inline constexpr char kCrc[] = "CRC";
inline constexpr char kDesPathProject[] = "DESPATH";
inline constexpr const char* kProjectRecordKeys[] = {kName, kCrc, kSize, kDesPathProject};
inline constexpr char kDownload[] = "DOWNLOAD";
inline constexpr char kClearRecipe[] = "CLEARRECIPE";
inline constexpr char kClearHistory[] = "CLEARHISTORY";
inline constexpr char kClearAlarm[] = "CLEARALARM";
inline constexpr char kClearInitValue[] = "CLEARINITVALUE";
inline constexpr const char* kDownloadKeys[] = {kClearRecipe, kClearHistory, kClearAlarm,
                                                kClearInitValue};

} // namespace kel::keys
