#pragma once

// A target snapshot: the registers and RAM ranges of a program stopped on a board, with the program
// it belongs to, so that tests run against real program states without the board. The fake target
// loads one and serves code memory from the program's loadable segments.
//
// The file is text, one item per line; '#' starts a comment line:
//
//   arnex-snapshot 1
//   elf calls-O0-dwarf4.elf                  the program, relative to the snapshot's folder
//   elf-size 73424                           its size in bytes and its SHA-256: another build of
//   elf-sha256 9f86d081...                   it is refused
//   command snapshot_capture --elf ...       the exact command that made the snapshot
//   device MPS2-AN385                        the board
//   stop 0x000001a4 breakpoint Level3 hit 1  the PC, why it stopped, and a free-form detail
//   register pc 0x000001a4                   one per register that the board had (names as in
//   register msp 0x203fffb8                  the register window: r0-r12 sp lr pc xpsr msp psp
//                                            primask basepri faultmask control fpscr s0-s31)
//   memory 0x203fffb8 72                     a RAM range: address and size, then its bytes as hex,
//   0x203fffb8 000000000a0000000c010000...   32 bytes a line, each line led by its address
//   end                                      the last line: a snapshot without it is truncated
//
// Ranges are sorted and do not overlap. Memory that no range covers and no segment of the program
// holds was not captured: reading it fails.

#include "probe/Tarvo.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo {

class ElfFile;

struct SnapshotRange {
    U32 Address;
    std::vector<U8> Bytes;
    U64 End() const { return U64(Address) + Bytes.size(); }
};

struct TargetSnapshot {
    std::string Elf;
    U64 ElfSize = 0;
    std::string ElfSha256;
    std::string Command;
    std::string Device;
    U32 StopPc = 0;
    std::string StopReason;
    std::string StopDetail;
    std::map<U32, U64> Registers; // by TARVO_ARM_REGS index; registers the board didn't have are absent
    std::vector<SnapshotRange> Ranges;
};

/// False with Error ("line 12: ...") for text that isn't a complete, consistent snapshot.
bool ParseSnapshot(std::string_view Text, TargetSnapshot& Out, std::string& Error);
bool ReadSnapshotFile(const std::string& Path, TargetSnapshot& Out, std::string& Error);
/// The text of a snapshot; ranges are sorted and adjacent or overlapping ones merged first.
std::string FormatSnapshot(TargetSnapshot S);
bool WriteSnapshotFile(const std::string& Path, const TargetSnapshot& S, std::string& Error);

/// Whether Elf (read from ElfPath) is the program the snapshot was made from; Error says what differs.
bool SnapshotMatchesElf(const TargetSnapshot& S, const ElfFile& Elf, const std::string& ElfPath,
                        std::string& Error);

/// Sorts the ranges and merges those that touch or overlap (later bytes win).
void NormaliseRanges(std::vector<SnapshotRange>& Ranges);

} // namespace tarvo
