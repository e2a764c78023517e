#pragma once

#include "program/DataBlock.h"

/// The line parsers of the text record formats and the merging of their blocks. Pure functions on
/// memory; any thread.
namespace TFile {

/// One Motorola S-record line without its line end. False for an invalid line; otherwise Block holds the
/// record's type, address and data (empty for records without data).
bool ParseSRecord(const char* Line, int Length, ELF_DATA_BLOCK& Block);

/// One Intel Hex line without its line end. Base is the current extended address, 0 at the start of a
/// file; extended segment and linear address records change it.
bool ParseIntelHexRecord(const char* Line, int Length, U32& Base, ELF_DATA_BLOCK& Block);

/// Sorts blocks by address and merges those that overlap or touch into one block each; where blocks
/// overlap, the one later in the given list wins. Sizes are set from the data.
ELF_DATA_BLOCKS CoalesceBlocks(const ELF_DATA_BLOCKS& Blocks);

} // namespace TFile
