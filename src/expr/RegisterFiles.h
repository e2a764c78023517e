#pragma once

#include "app/core/Types.h"

#include <QString>

/// The register description files: which one describes a core's registers when a project names none,
/// and what kind a file is. GUI thread (the install directory and the path macros are the GUI's).
namespace RegisterFiles {

/// Kinds of a file by its root element, compared in lower case.
enum SVD_FORMATS {
    SVD_FORMAT_UNREADABLE = -1, ///< missing, below 10 bytes, or not XML
    SVD_FORMAT_CPU = 0,         ///< "cpu": core registers by their numbers in the probe library
    SVD_FORMAT_DEVICE = 1,      ///< "device": memory-mapped peripherals
    SVD_FORMAT_OTHER = 2,
};

/// The CPU register description a core falls back on, "$(InstallDir)/Config/CPU/<core>.svd"; empty for a
/// core that has none. Cores that reach the same registers share a file, as Cortex-M0, M0+ and M23 do.
QString GetCpuSVDFileForCore(U32 Core);
/// Whether the installation holds the core's CPU register description.
bool HasCpuSVDFileForCore(U32 Core);
/// The kind of a file (SVD_FORMATS).
int GetFileFormat(const QString& Path);

} // namespace RegisterFiles
