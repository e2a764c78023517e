#pragma once

#include "app/core/Types.h"

#include <QString>

/// Binds the target core plug-in to the device: the plug-in is chosen and loaded for the chosen device's
/// core, its static facts are read, and the device reaches registers through it. The plug-in reads
/// target memory through the device. GUI thread; the loading holds the device mutex.
namespace CoreBinding {

/// Installs the debugger's services behind the plug-in's memory reads and the mode readers of the
/// device events. Once, when the device exists.
void InstallServices();

/// Loads the plug-in for a core identifier and hands it to the device: 0, or -1 with the loader's
/// message in the log (the device is then left without a plug-in).
int LoadForCore(U32 Core, bool AllowDialog);
/// The same for the device that the configuration names; -1 for a device the library doesn't know.
int LoadForConfiguredDevice(bool AllowDialog);
/// The core identifier of the device that the configuration names; 0 for none or an unknown device.
U32 GetConfiguredCore();
/// Unloads the plug-in; the device goes without one.
void Unload();

} // namespace CoreBinding
