#pragma once

/// The entries of the plug-in record, by the source file that holds them.

#include "ArmCore.h"

namespace ArmCore::Entry {

// Text.cpp
int PrintInst(U64 Addr, U32 Size, char* s, U32 BufSize);
int PrintInstBytes(U64 Addr, U32 Size, char* s, U32 BufSize);
int PrintData(U64 Addr, U32 Size, char* s, U32 BufSize);
int PrintDataBytes(U64 Addr, U32 Size, char* s, U32 BufSize);

// Registers.cpp
int ReadReg(U32 Index, U32 Size, U64* pVal);
int ReadRegs(U32 Count, const U32* paIndex, U32 Size, U64* paVal, U8* paStatus);
int WriteReg(U32 Index, U32 Size, const U64* pVal);
U32 MapRegIndex(U32 LogicalIndex);
int GetCPUMode(U32* pMode);
int GetCPUModeName(U32 Mode, char* s, U32 Size);
/// Forgets which probe library functions were reported missing (Init).
void ResetRegisterAccess();

// ProgramFile.cpp
int GetMappingSymbolPrefix(char* s, U32 Size);
int GetMappingSymbolInfo(const char* sName, U32* pKind, char* sText, U32 TextSize);
int GetProgramByteOrder(U32 HdrSize, const U8* pHdr, U32* pInstOrder, U32* pDataOrder);
int CheckProgramHeader(U32 HdrSize, const U8* pHdr);

} // namespace ArmCore::Entry
