#pragma once

#include "analysis/CoreDebuggerApi.h"

#include <QString>

/// The loadable segments of a 32-bit ELF file, for serving a plug-in's reads in tests.
struct ElfImage {
    QVector<CORE_IMAGE_SEGMENT> Segments;
    bool BigEndian = false;
};

/// Reads the PT_LOAD segments with file contents; an error text on failure.
QString ReadElfImage(const QString& Path, ElfImage& Out);
