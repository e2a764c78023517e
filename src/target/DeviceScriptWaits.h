#pragma once

/// Lets the script commands wait for the device: installs the device's side of the script host's waits.
/// GUI thread, once the device exists.
void InstallDeviceScriptWaits();
