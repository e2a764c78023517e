#pragma once

#include <cstdint>

/// Fixed-width integers used in every interface of the debugger.
typedef uint8_t U8;
typedef uint16_t U16;
typedef uint32_t U32;
typedef uint64_t U64;
typedef int8_t I8;
typedef int16_t I16;
typedef int32_t I32;
typedef int64_t I64;

/// Tells core plug-ins and OS plug-ins apart in the plug-in signals.
enum PLUGIN_TYPES {
    PLUGIN_TYPE_CORE = 0,
    PLUGIN_TYPE_OS = 1,
};
