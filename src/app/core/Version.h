#pragma once

#include <QString>

/// Version and names of the application. Callable from any thread after the application object exists.
namespace Version {

constexpr int MAJOR = 2;
constexpr int MINOR = 60;
constexpr int PATCH = 8;

constexpr const char* ORGANISATION = "Tolvek";
constexpr const char* APP_NAME = "Arnex";
constexpr const char* TAGLINE = "The Tarvo Debugger";

/// "V<major>.<minor, two digits><patch letter>": patch 1..26 is a..z, 27 and above "z" + two digits of
/// patch - 26, 0 or below nothing.
QString FormatVersion(int Major, int Minor, int Patch);
/// The version of this build, "V2.60h".
QString GetVersionText();
/// First ten characters of the ISO date at which the executable was made.
QString GetBuildDate();
/// "Arnex", "Arnex V2.60h", "Arnex - The Tarvo Debugger" or "Arnex V2.60h - The Tarvo Debugger".
QString GetAppName(bool WithVersion = false, bool WithTagline = false);

} // namespace Version
