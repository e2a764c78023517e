#include "analysis/CoreDebuggerApi.h"

#include "app/core/Log.h"

#include <QReadWriteLock>

#include <algorithm>
#include <cstring>

int ICoreDebuggerServices::ReadCachedMem(U64, U32, void*) {
    return -1;
}
int ICoreDebuggerServices::ReadTargetMem(U64, U32, void*) {
    return -1;
}
int ICoreDebuggerServices::GetMappingRegion(U64, const char**, U64*, U64*) {
    return -1;
}
int ICoreDebuggerServices::GetSymbolAt(U64, const char**, U64*, U64*) {
    return -1;
}
int ICoreDebuggerServices::GetFrameRegs(void**) {
    return -1;
}

namespace CoreDebugger {
namespace {

// The image is read from the decoding threads and replaced on program load.
QReadWriteLock s_Lock;
ICoreDebuggerServices* s_pServices = nullptr;
QVector<CORE_IMAGE_SEGMENT> s_Segments; // sorted by address
U64 s_LowestFileAddr = ~U64(0);
U64 s_ThirdEntry = ~U64(0);

ICoreDebuggerServices* Services() {
    QReadLocker Lock(&s_Lock);
    return s_pServices;
}

int GetMappingRegion(U64 Addr, const char** psName, U64* pStart, U64* pEnd) {
    ICoreDebuggerServices* p = Services();
    return p ? p->GetMappingRegion(Addr, psName, pStart, pEnd) : -1;
}

int GetSymbolAt(U64 Addr, const char** psName, U64* pStart, U64* pEnd) {
    ICoreDebuggerServices* p = Services();
    return p ? p->GetSymbolAt(Addr, psName, pStart, pEnd) : -1;
}

int GetFrameRegs(void** ppFrameTable) {
    ICoreDebuggerServices* p = Services();
    return p ? p->GetFrameRegs(ppFrameTable) : -1;
}

const CORE_DEBUGGER_API s_Api = {
    GetMappingRegion, GetSymbolAt, ReadMem, ReadProgramImage, GetProgramRange, GetFrameRegs, Log,
};

} // namespace

const CORE_DEBUGGER_API* GetApi() {
    return &s_Api;
}

void SetServices(ICoreDebuggerServices* pServices) {
    QWriteLocker Lock(&s_Lock);
    s_pServices = pServices;
}

void SetProgramImage(const QVector<CORE_IMAGE_SEGMENT>& Segments, U64 LowestFileAddr, U64 ThirdEntry) {
    QVector<CORE_IMAGE_SEGMENT> Sorted = Segments;
    std::sort(Sorted.begin(), Sorted.end(),
              [](const CORE_IMAGE_SEGMENT& a, const CORE_IMAGE_SEGMENT& b) { return a.Addr < b.Addr; });
    QWriteLocker Lock(&s_Lock);
    s_Segments = Sorted;
    s_LowestFileAddr = LowestFileAddr;
    s_ThirdEntry = ThirdEntry;
}

void ClearProgramImage() {
    SetProgramImage({});
}

int ReadMem(U64 Addr, U32 Size, void* pBuf) {
    if (Size == 0) {
        LogMessage(QStringLiteral("invalid target memory read request of size 0"),
                   MSG_ERROR | MSG_TO_ALL | MSG_FROM_PLUGIN);
        return -1;
    }
    if (pBuf == nullptr) {
        return -1;
    }
    // Memory cache first, then the program image, then the target.
    ICoreDebuggerServices* p = Services();
    if (p && p->ReadCachedMem(Addr, Size, pBuf) == 0) {
        return 0;
    }
    if (ReadProgramImage(Addr, Size, pBuf) == static_cast<int>(Size)) {
        return 0;
    }
    return p && p->ReadTargetMem(Addr, Size, pBuf) == 0 ? 0 : -1;
}

int ReadProgramImage(U64 Addr, U32 Size, void* pBuf) {
    if (Size == 0) {
        return 0;
    }
    if (pBuf == nullptr) {
        return -1;
    }
    QReadLocker Lock(&s_Lock);
    // The last segment that starts at or below the address.
    auto It = std::upper_bound(s_Segments.cbegin(), s_Segments.cend(), Addr,
                               [](U64 A, const CORE_IMAGE_SEGMENT& S) { return A < S.Addr; });
    if (It == s_Segments.cbegin()) {
        return -1;
    }
    --It;
    const U64 Offset = Addr - It->Addr;
    if (Offset + Size > static_cast<U64>(It->Bytes.size()) || Addr + Size < Addr) {
        return -1;
    }
    memcpy(pBuf, It->Bytes.constData() + Offset, Size);
    return static_cast<int>(Size);
}

int GetProgramRange(U64 aRange[3]) {
    if (aRange == nullptr) {
        return -1;
    }
    QReadLocker Lock(&s_Lock);
    if (s_Segments.isEmpty()) {
        return -1;
    }
    aRange[0] = s_Segments.first().Addr;
    aRange[1] = s_LowestFileAddr;
    aRange[2] = s_ThirdEntry;
    return 0;
}

int Log(const char* sText, int Level) {
    if (sText == nullptr) {
        return -1;
    }
    const QString Text = QString::fromUtf8(sText);
    switch (Level) {
    case 0:
        LogMessage(Text, MSG_FROM_PLUGIN | MSG_TO_ALL | MSG_ERROR);
        return 0;
    case 1:
        // Warnings of the plug-in go to the log file only, and only while there is one.
        if (IsLogChannelOpen(LOG_CHANNEL_APP)) {
            LogMessage(Text, MSG_FROM_PLUGIN | MSG_TO_LOGFILE | MSG_WARNING);
        }
        return 0;
    case 2:
        LogMessage(Text, MSG_FROM_PLUGIN | MSG_TO_ALL | MSG_INFO);
        return 0;
    default:
        return -1;
    }
}

} // namespace CoreDebugger
