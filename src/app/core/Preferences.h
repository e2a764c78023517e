#pragma once

/// Persistence of the user preferences, colours and fonts through the settings map. GUI thread.
namespace Preferences {

/// Each preference whose key exists takes its value (and stored copy); absent keys leave the default.
/// A stored value of a wrong type reads as 0.
void LoadPreferences();
/// Writes the stored copy of each preference.
void SavePreferences();
/// Colours and fonts the user chose earlier; a colour text that is no colour leaves the default.
void LoadColorsAndFonts();
/// Keeps only what differs from the defaults, so symbolic colours and platform fonts follow the system.
void SaveColorsAndFonts();

} // namespace Preferences
