#pragma once

#include <QString>

/// Install directories, path macros and the default directory of a bare file name.
/// GUI thread; the install directory is computed once and cached.
namespace Paths {

/// Canonical directory of the executable, without a trailing "/". Empty during a re-entrant first call.
QString GetInstallDir();
/// Overrides the install directory (tests); an empty text returns to the executable's directory.
void SetInstallDirOverride(const QString& Dir);

QString GetConfigDir();      ///< install directory + "/Config/"
QString GetPeripheralsDir(); ///< install directory + "/Config/Peripherals/"
QString GetLibraryDir();     ///< install directory + "/Lib/"
QString GetPluginDir();      ///< install directory + "/Plugins/"
QString GetCorePluginDir();  ///< install directory + "/Plugins/Core/"
QString GetDocDir();         ///< install directory + "/Doc/"

/// The project and program files whose directories $(ProjectDir) and $(AppDir) stand for.
void SetProjectFile(const QString& Path);
void SetProgramFile(const QString& Path);
QString GetProjectFile();
QString GetProgramFile();

/// Replaces the macros $(InstallDir), $(ExecutableDir), $(AppBundleDir), $(ConfigDir), $(LibraryDir),
/// $(PluginDir), $(DocDir), $(ProjectDir) and $(AppDir). Names are compared with their case.
QString ExpandMacros(const QString& Text);
/// Macros expanded and the path cleaned.
QString ExpandPath(const QString& Path);

/// The directory in which to look for a file given by name: its own directory if it exists, else
/// by suffix Config/Peripherals, Doc, Plugins or the install directory.
QString GetDefaultDir(const QString& FileName);

/// Whether a file name matches one of the blank-separated wildcard patterns ("*.elf *.hex"), in any case.
bool MatchesAny(const QString& Name, const char* Patterns);

} // namespace Paths
