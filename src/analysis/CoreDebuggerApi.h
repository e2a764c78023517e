#pragma once

#include "probe/CorePluginAPI.h"

#include <QByteArray>
#include <QVector>

/// What the core plug-in may ask of the debugger. The target layer (memory cache and target memory)
/// and the program data (mapping regions, symbols, frames) implement it; every default answers
/// "not available". Calls come from whichever thread called into the plug-in.
class ICoreDebuggerServices {
public:
    virtual ~ICoreDebuggerServices() = default;
    /// Served wholly from the memory cache: 0, else -1.
    virtual int ReadCachedMem(U64 Addr, U32 Size, void* pBuf);
    /// Read from the target: 0, else -1.
    virtual int ReadTargetMem(U64 Addr, U32 Size, void* pBuf);
    virtual int GetMappingRegion(U64 Addr, const char** psName, U64* pStart, U64* pEnd);
    virtual int GetSymbolAt(U64 Addr, const char** psName, U64* pStart, U64* pEnd);
    virtual int GetFrameRegs(void** ppFrameTable);
};

/// One loaded segment of the program file.
struct CORE_IMAGE_SEGMENT {
    U64 Addr = 0;
    QByteArray Bytes;
};

/// The debugger's record handed to the plug-in, and the program image behind its reads. Any thread.
namespace CoreDebugger {

/// The 56-byte record for CORE_PLUGIN_SetAPI; its entries stay valid for the life of the process.
const CORE_DEBUGGER_API* GetApi();

/// Installs the services; nullptr removes them. The caller keeps ownership and removes them before
/// destroying them.
void SetServices(ICoreDebuggerServices* pServices);

/// Replaces the program image: the loaded segments, the lowest file address and the program file's
/// third range entry (-1 for none).
void SetProgramImage(const QVector<CORE_IMAGE_SEGMENT>& Segments, U64 LowestFileAddr = ~U64(0),
                     U64 ThirdEntry = ~U64(0));
void ClearProgramImage();

/// Entries of the record, callable directly.
int ReadMem(U64 Addr, U32 Size, void* pBuf);
int ReadProgramImage(U64 Addr, U32 Size, void* pBuf);
int GetProgramRange(U64 aRange[3]);
int Log(const char* sText, int Level);

} // namespace CoreDebugger
