#pragma once

#include "analysis/CoreDebuggerApi.h"
#include "analysis/CorePluginLoader.h"

#include <QString>

#include <initializer_list>

/// The built ARM core plug-in, loaded through the loader, reading code from a program image the test
/// sets. GUI thread of the test.
namespace ArmPlugin {

CORE_PLUGIN_CONFIG Config(U32 Core, bool DataBigEndian = false);
/// Loads (or reconfigures) the plug-in for a core: the loader's result.
int Load(U32 Core, bool DataBigEndian = false);
const CORE_PLUGIN_API& Api();

/// One segment of code at Addr, given as Thumb halfwords in fetch order.
void SetCode(U64 Addr, std::initializer_list<U16> Halfwords);
/// AnalyzeInst at an address; the result code through pResult.
INST_INFO Analyze(U64 Addr, int* pResult = nullptr);
/// PrintInst at an address with the size AnalyzeInst gives; empty on failure.
QString Print(U64 Addr);

} // namespace ArmPlugin
