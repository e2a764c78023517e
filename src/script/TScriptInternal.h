#pragma once

// Shared by the script host's source files only.

#include "script/Interp.h"

namespace TScript::Detail {

/// Every constant the script knows, in one place.
void RegisterConstants(CScriptHeap* Heap);
/// Every command row with a binding, under its name and its second name.
void RegisterApi(CScriptHeap* Heap);

} // namespace TScript::Detail
