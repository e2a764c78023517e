// Exported functions of breakpoints and data events. Handles are positive numbers of this library;
// the tables live here, the back end only inserts and removes the points.

#include "probe/api/Exports.h"

#include "probe/api/Session.h"

#include <algorithm>
#include <cstring>

using tarvo::InsertResult;
using tarvo::PointKind;
using tarvo::api::BreakpointRecord;
using tarvo::api::DataEventRecord;
using tarvo::api::Session;

namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

Session& S() {
    return Session::Instance();
}

// Breakpoint type word: bits 0-3 the instruction size in bytes (2 or 4; 0 means 2), bits 4-7 allow a
// software breakpoint, bits 8-31 a hardware one.
constexpr U32 SoftwareBits = 0x000000F0;
constexpr U32 HardwareBits = 0xFFFFFF00;

constexpr U32 ImplHard = 1u << 0;
constexpr U32 ImplRam = 1u << 1;
constexpr U32 ImplFlash = 1u << 4;

// Data event error codes: bits tested with the sign bit.
constexpr int ErrUnknown = static_cast<int>(0x80000000u);
constexpr int ErrNoAddressUnit = static_cast<int>(0x80000002u);
constexpr int ErrAddressMask = static_cast<int>(0x80000020u);
constexpr int ErrValueMask = static_cast<int>(0x80000040u);
constexpr int ErrAccessMask = static_cast<int>(0x80000080u);

std::vector<BreakpointRecord>::iterator FindBreakpoint(int Handle) {
    auto& List = S().Breakpoints;
    return std::find_if(List.begin(), List.end(),
                        [Handle](const BreakpointRecord& R) { return R.Handle == Handle; });
}

bool RemoveBreakpoint(const BreakpointRecord& R) {
    tarvo::Backend* B = S().Connected();
    return B && B->RemovePoint(R.Kind, R.Address, R.Size);
}

bool RemoveDataEvent(const DataEventRecord& R) {
    tarvo::Backend* B = S().Connected();
    return B && B->RemovePoint(R.Kind, R.WatchAddress, R.WatchSize);
}

} // namespace

extern "C" {

int TARVOARM_FindBP(U32 Addr) {
    Guard Lock(S().Mutex);
    for (const BreakpointRecord& R : S().Breakpoints) {
        if (R.Address == Addr) {
            return R.Handle;
        }
    }
    return 0;
}

int TARVOARM_SetBPEx(U32 Addr, U32 Type) {
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    if (!B) {
        return 0;
    }
    if (const int Existing = TARVOARM_FindBP(Addr)) {
        return Existing;
    }
    const U32 Size = (Type & 0xF) == 4 ? 4 : 2;
    const bool AllowHard = (Type & HardwareBits) != 0;
    const bool AllowSoft = (Type & SoftwareBits) != 0 && S().SoftBreakpoints;
    BreakpointRecord R{0, Addr, Type, PointKind::HardBreak, Size, 0};
    InsertResult Result = InsertResult::Unsupported;
    if (AllowHard) {
        Result = B->InsertPoint(PointKind::HardBreak, Addr, Size);
        R.ImplFlags = ImplHard;
    }
    if (Result != InsertResult::Ok && Result != InsertResult::Failed && AllowSoft) {
        Result = B->InsertPoint(PointKind::SoftBreak, Addr, Size);
        R.Kind = PointKind::SoftBreak;
        R.ImplFlags = B->IsRam(Addr) ? ImplRam : ImplFlash;
    }
    if (Result != InsertResult::Ok) {
        return 0;
    }
    R.Handle = S().NextHandle++;
    S().Breakpoints.push_back(R);
    return R.Handle;
}

int TARVOARM_ClrBPEx(int Handle) {
    Guard Lock(S().Mutex);
    if (Handle == -1) {
        bool Ok = true;
        for (const BreakpointRecord& R : S().Breakpoints) {
            Ok = RemoveBreakpoint(R) && Ok;
        }
        S().Breakpoints.clear();
        return Ok || !S().Connected() ? 0 : -1;
    }
    const auto It = FindBreakpoint(Handle);
    if (It == S().Breakpoints.end()) {
        return -1;
    }
    const bool Ok = RemoveBreakpoint(*It);
    S().Breakpoints.erase(It);
    return Ok ? 0 : -1;
}

int TARVOARM_GetBPInfoEx(int Handle, TARVO_BP_INFO* pInfo) {
    Guard Lock(S().Mutex);
    if (Handle == -1) {
        return static_cast<int>(S().Breakpoints.size());
    }
    const auto It = FindBreakpoint(Handle);
    if (It == S().Breakpoints.end() || !pInfo) {
        return -1;
    }
    std::memset(pInfo, 0, sizeof *pInfo);
    pInfo->Size = sizeof *pInfo;
    pInfo->Handle = static_cast<U32>(It->Handle);
    pInfo->Reserved0 = It->Address;
    pInfo->Reserved1 = It->Type;
    pInfo->ImplFlags = It->ImplFlags;
    return 0;
}

int TARVOARM_SetDataEvent(TARVO_DATA_EVENT* pEvent, U32* pHandle) {
    Guard Lock(S().Mutex);
    if (!pEvent || pEvent->Size < sizeof(TARVO_DATA_EVENT) || pEvent->Type != 1) {
        return ErrUnknown;
    }
    tarvo::Backend* B = S().Connected();
    if (!B) {
        return ErrUnknown;
    }
    TARVO_DATA_EVENT E = *pEvent;
    // Access byte: bit 0 write, bits 1-2 the width (2 or 4); access mask: bit 0 either direction,
    // bits 1-2 any width, bit 4 any privilege.
    if (E.AccessMask & ~0x17u) {
        return ErrAccessMask;
    }
    const U32 Width = (E.AccessMask & 6) ? 1 : ((E.Access & 6) ? (E.Access & 6) : 1);
    if (Width == 2) {
        E.AddrMask |= 1;
    } else if (Width == 4) {
        E.AddrMask |= 3;
    }
    if ((E.AddrMask & (E.AddrMask + 1)) != 0) {
        return ErrAddressMask; // only a block of 2^n bytes can be watched
    }
    if (E.DataMask != 0xFFFFFFFFu) {
        return ErrValueMask; // a GDB server compares no values
    }
    DataEventRecord R;
    R.Event = E;
    R.Kind = (E.AccessMask & 1) ? PointKind::AccessWatch
             : (E.Access & 1)   ? PointKind::WriteWatch
                                : PointKind::ReadWatch;
    R.WatchAddress = E.Addr & ~E.AddrMask;
    R.WatchSize = E.AddrMask + 1;
    switch (B->InsertPoint(R.Kind, R.WatchAddress, R.WatchSize)) {
    case InsertResult::Ok:
        break;
    case InsertResult::NoResources:
        return ErrNoAddressUnit;
    default:
        return ErrUnknown;
    }
    R.Handle = S().NextHandle++;
    S().DataEvents.push_back(R);
    if (pHandle) {
        *pHandle = static_cast<U32>(R.Handle);
    }
    return 0;
}

int TARVOARM_ClrDataEvent(int Handle) {
    Guard Lock(S().Mutex);
    auto& List = S().DataEvents;
    if (Handle == -1) {
        bool Ok = true;
        for (const DataEventRecord& R : List) {
            Ok = RemoveDataEvent(R) && Ok;
        }
        List.clear();
        return Ok || !S().Connected() ? 0 : -1;
    }
    const auto It = std::find_if(List.begin(), List.end(),
                                 [Handle](const DataEventRecord& R) { return R.Handle == Handle; });
    if (It == List.end()) {
        return -1;
    }
    const bool Ok = RemoveDataEvent(*It);
    List.erase(It);
    return Ok ? 0 : -1;
}

int TARVOARM_GetWPInfoEx(int Index, TARVO_DATA_EVENT_INFO* pInfo) {
    Guard Lock(S().Mutex);
    const auto& List = S().DataEvents;
    if (Index == -1) {
        return static_cast<int>(List.size());
    }
    if (Index < 0 || static_cast<size_t>(Index) >= List.size() || !pInfo) {
        return -1;
    }
    const DataEventRecord& R = List[static_cast<size_t>(Index)];
    std::memset(pInfo, 0, sizeof *pInfo);
    pInfo->Size = sizeof *pInfo;
    pInfo->Handle = static_cast<U32>(R.Handle);
    pInfo->Addr = R.Event.Addr;
    pInfo->AddrMask = R.Event.AddrMask;
    pInfo->Data = R.Event.Data;
    pInfo->DataMask = R.Event.DataMask;
    pInfo->Access = R.Event.Access;
    pInfo->AccessMask = R.Event.AccessMask;
    return 0;
}

} // extern "C"
