#pragma once

#include "probe/CorePluginAPI.h"

#include <QString>

#include <functional>

/// Finds, loads and binds the target core plug-in for a core identifier. Callers hold the device
/// mutex, since swapping the plug-in must not overlap a batch of device jobs; the loader's own lock
/// makes each call whole. The record returned by GetApi stays valid until the next Load or Unload.
namespace CorePluginLoader {

enum LOAD_RESULTS {
    LOAD_FAILED = -1,
    LOAD_DONE = 0,               ///< loaded and initialised
    LOAD_RECONFIGURED = 1,       ///< the same file was loaded: its Reconfigure took the configuration
    LOAD_RECONFIGURE_PASSED = 2, ///< the same file was loaded: its Reconfigure answered 1, for the caller
};

/// The plug-in's file name without extension for a core identifier: "CorePluginARM" for the core
/// families 3, 6 to 12, 14 and 15, "CorePluginRISCV" for 19, else empty.
QString GetDefaultName(U32 Core);
/// The default file in Plugins/Core of the install directory; empty if the core has no default.
QString GetDefaultPath(U32 Core);

/// The project's plug-in file ("Project.SetCorePlugin"); an empty path clears it.
void SetProjectPath(const QString& Path);
QString GetProjectPath();

/// Asks the user for the plug-in file: given the title and the text, returns the chosen path or empty.
using FILE_DIALOG_HOOK = std::function<QString(const QString& Title, const QString& Text)>;
/// The application installs its file dialog here; without one no dialog is shown.
void SetFileDialogHook(FILE_DIALOG_HOOK Hook);

/// The file for a core: the project's path, else the default file if it exists, else, with
/// AllowDialog, the user's choice, which becomes the project's path. A choice made for a core whose
/// default plug-in differs from this core's is dropped first. Empty if there is none.
QString ChoosePath(U32 Core, bool AllowDialog);

/// Chooses the file for Config.Core and loads it, or reconfigures the plug-in if that file is loaded
/// already. Messages go to the log; the last one is kept.
int Load(const CORE_PLUGIN_CONFIG& Config, bool AllowDialog);
/// Loads a given file with Config (the same-file rule applies).
int LoadFile(const QString& Path, const CORE_PLUGIN_CONFIG& Config);
/// Unloads the plug-in and zeroes the record.
void Unload();

bool IsLoaded();
/// Canonical path of the loaded file; empty if none.
QString GetLoadedPath();
/// The plug-in's record; every entry null while none is loaded.
const CORE_PLUGIN_API& GetApi();
/// The text of the last failure; empty after a success.
QString GetLastError();

} // namespace CorePluginLoader
