#pragma once

#include <QString>

/// Writes the C sources of the benchmark's large program: a header shared by every unit, in the manner of
/// a device header (register blocks and thousands of register macros), and units with types, globals and
/// functions of their own. Returns false when a file cannot be written.
namespace DwarfBenchGen {

struct SHAPE {
    int Units = 220;
    int FunctionsPerUnit = 110;
    int TypesPerUnit = 350;
    int GlobalsPerUnit = 300;
    int MacrosPerUnit = 400;
};

bool WriteSources(const QString& Dir, const SHAPE& Shape);
/// Names of the unit sources, in order.
QString UnitFile(int Unit);

} // namespace DwarfBenchGen
