#pragma once

/// Internals of the ARM core plug-in: its configuration, the debugger's services and the Thumb decoder.
/// Entries may be called from the GUI thread and the device thread; the decoder serialises itself.

#include "probe/CorePluginAPI.h"

namespace ArmCore {

/// The instruction set variants the plug-in decodes, chosen from the core identifier.
enum class ArchVariant {
    V6M,     ///< Cortex-M0, M0+: 16-bit Thumb plus BL, MRS, MSR and the barriers
    V8MBase, ///< Cortex-M23: ARMv6-M plus CBZ, MOVW/MOVT, divide, exclusives, wide B and the security
             ///< extension
    V7M,     ///< Cortex-M3: full Thumb-2 without DSP and floating point
    V7EM,    ///< Cortex-M4, M7: with DSP and floating point
    V8MMain, ///< Cortex-M33: ARMv7E-M plus load-acquire, store-release and the security extension
    Any,     ///< an ARM core the plug-in does not know by name: accept every M-profile encoding
};

struct ArchProfile {
    ArchVariant Variant = ArchVariant::V7M;
    bool HasFpv5 = false;      ///< floating point v5 (VSEL, VRINT, VMAXNM ...)
    bool HasDoubleFp = false;  ///< double-precision floating point
    bool HasSecurity = false;  ///< SG, TT, BXNS, BLXNS, VLLDM, VLSTM
    bool HasFaultMask = false; ///< BASEPRI and FAULTMASK exist
    bool HasFpRegs = false;    ///< S0-S31 and FPSCR may exist
};

/// True if the core identifier belongs to the ARM family of cores.
bool IsArmCore(U32 Core);
/// Profile of a core identifier; unknown ARM cores get the widest profile.
ArchProfile GetProfile(U32 Core);
/// Name of the core ("Cortex-M4"), or "ARM core 0x%08X" for an unknown one.
void GetCoreName(U32 Core, char* sBuf, U32 BufSize);

/// The configuration in force, copied by Init and Reconfigure.
struct PluginConfig {
    U32 Core = 0;
    bool InstBigEndian = false;
    bool DataBigEndian = false;
    ArchProfile Profile;
};
PluginConfig GetConfig();
void SetConfig(const PluginConfig& Config);

/// The debugger's entries, copied by CORE_PLUGIN_SetAPI.
void SetDebuggerApi(const CORE_DEBUGGER_API& Api);
/// Reads target or program memory through the debugger: 0 or -1.
int ReadMem(U64 Addr, U32 Size, void* pBuf);
/// Logs through the debugger: level 0 error, 1 warning to the log file, 2 information.
void Log(const char* sText, int Level);
/// True if the program's mapping symbols mark the address as data ("$d").
bool IsDataRegion(U64 Addr);
/// The symbol a data word refers to, through the debugger; nullptr if none.
const char* GetDataSymbol(U64 Addr);

/// One decoded instruction: analysis record and text parts.
struct DecodedInst {
    INST_INFO Info{};
    char Mnemonic[32]{};
    char Operands[160]{};
    U32 LiteralBytes = 0; ///< width of the value a literal load reads; 0 = none
};
enum DECODE_RESULT { DECODE_OK = 0, DECODE_NO_INST = 1, DECODE_READ_FAILED = -1 };
/// Decodes the instruction at an address, with the condition of an enclosing IT block; the text
/// parts only when asked for.
int Decode(U64 Addr, DecodedInst& Out, bool WantText);
/// Releases the disassembler (plug-in unload).
void ShutdownDecoder();

/// Text of a decoded instruction: "mnemonic\toperands[\tcomment]".
int FormatInst(const DecodedInst& Inst, char* sBuf, U32 BufSize);

} // namespace ArmCore
