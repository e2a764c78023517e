// Core registers, through the core plug-in, and data locations that name a register or a word of memory.

#include "target/Device.h"

#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "probe/Tarvo.h"
#include "program/SymLoc.h"

#include <algorithm>
#include <cstring>

void CDevice::SetCorePlugin(const CORE_PLUGIN_API* Api, const CORE_INFO* Info) {
    QMutexLocker Lock(&m_DeviceMutex);
    m_CoreApi = Api;
    m_InstAlign = Info && Info->InstAlign ? Info->InstAlign : 2;
    m_PCIndex = 15;
    if (Api && Api->MapRegIndex && Info) {
        m_PCIndex = Api->MapRegIndex(Info->PCIndex);
    }
}

U32 CDevice::PCRegisterIndex() const {
    return m_PCIndex;
}

int CDevice::ReadRegDirect(U32 Index, U64* Value) {
    // Any thread: the lock keeps a batch of the device thread out for the time of the read.
    QMutexLocker Lock(&m_DeviceMutex);
    return ReadReg(Index, Value);
}

int CDevice::ReadReg(U32 Index, U64* Value) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (Value) {
        *Value = 0;
    }
    if (!Connected.load()) {
        LogDebugMsg(QStringLiteral("ReadReg: not connected"));
        return -1;
    }
    if (!IsTargetHalted()) {
        LogDebugMsg(QStringLiteral("ReadReg: not halted"));
        return -1;
    }
    if (Index == 0xFFFFFFFFu) {
        LogDebugMsg(QStringLiteral("ReadReg: invalid register index"));
        return -1;
    }
    const CORE_PLUGIN_API* Api = m_CoreApi.load();
    U64 V = 0;
    if (!Api || !Api->ReadReg || Api->ReadReg(Index, 8, &V) != 0) {
        LogWarnMsg(QStringLiteral("ReadReg: TARVO API call failed"));
        return -1;
    }
    if (Index == m_PCIndex && V != 0xFFFFFFFFu && m_InstAlign > 1) {
        V &= ~static_cast<U64>(m_InstAlign - 1);
    }
    if (Value) {
        *Value = V;
    }
    return 0;
}

int CDevice::WriteReg(U32 Index, U64 Value) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Connected.load()) {
        LogDebugMsg(QStringLiteral("WriteReg: Not connected"));
        return -1;
    }
    if (!IsTargetHalted()) {
        LogDebugMsg(QStringLiteral("WriteReg: Not halted"));
        return -1;
    }
    if (Index == 0xFFFFFFFFu) {
        LogDebugMsg(QStringLiteral("WriteReg: invalid register index"));
        return -1;
    }
    const CORE_PLUGIN_API* Api = m_CoreApi.load();
    if (!Api || !Api->WriteReg || Api->WriteReg(Index, 8, &Value) != 0) {
        LogWarnMsg(QStringLiteral("WriteReg: TARVO API call failed"));
        return -1;
    }
    return 0;
}

int CDevice::ReadRegs(U32 Count, const U32* Indices, U64* Values, U8* Status) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (Count == 0 || !Indices || !Values || !Status) {
        return -1;
    }
    if (!Connected.load()) {
        LogDebugMsg(QStringLiteral("ReadRegs: not connected"));
        return -1;
    }
    for (U32 i = 0; i < Count; ++i) {
        if (Indices[i] == 0xFFFFFFFFu) {
            LogWarnMsg(QStringLiteral("ReadRegs: Invalid register index"));
            return -1;
        }
    }
    const int HaltState = TARVOARM_IsHalted();
    if (HaltState < 0) {
        LogWarnMsg(QStringLiteral("ReadRegs: invalid halt status"));
        return -1;
    }
    if (HaltState != 1) {
        LogDebugMsg(QStringLiteral("ReadRegs: not halted"));
        return -1;
    }
    std::fill(Status, Status + Count, static_cast<U8>(255));
    std::fill(Values, Values + Count, 0);
    const CORE_PLUGIN_API* Api = m_CoreApi.load();
    if (!Api || !Api->ReadRegs || Api->ReadRegs(Count, Indices, Count * 8, Values, Status) != 0) {
        LogWarnMsg(QStringLiteral("ReadRegs: TARVO API call failed"));
        return -1;
    }
    for (U32 i = 0; i < Count; ++i) {
        if (Status[i] != 0) {
            Status[i] = 1;
            Values[i] = ~0ull;
        } else if (Indices[i] == m_PCIndex && Values[i] != 0xFFFFFFFFu && m_InstAlign > 1) {
            Values[i] &= ~static_cast<U64>(m_InstAlign - 1);
        }
    }
    return 0;
}

int CDevice::ReadCPReg(const char* Id, U64* Value) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Value) {
        return -1;
    }
    *Value = 0;
    if (!Id) {
        LogWarnMsg(QStringLiteral("ReadCPReg: invalid register identifier"));
        return -1;
    }
    if (!Connected.load()) {
        LogDebugMsg(QStringLiteral("ReadCPReg: not connected"));
        return -1;
    }
    if (!IsTargetHalted()) {
        LogDebugMsg(QStringLiteral("ReadCPReg: not halted"));
        return -1;
    }
    const CORE_PLUGIN_API* Api = m_CoreApi.load();
    if (!Api || !Api->ReadCPReg) {
        return 0;
    }
    if (Api->ReadCPReg(Id, 8, Value) != 0) {
        LogWarnMsg(QStringLiteral("ReadCPReg: TARVO API call failed"));
        *Value = ~0ull;
        return -1;
    }
    return 0;
}

int CDevice::WriteCPReg(const char* Id, U64 Value) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Id) {
        LogWarnMsg(QStringLiteral("WriteCPReg: invalid register identifier"));
        return -1;
    }
    if (!Connected.load()) {
        LogDebugMsg(QStringLiteral("WriteCPReg: not connected"));
        return -1;
    }
    if (!IsTargetHalted()) {
        LogDebugMsg(QStringLiteral("WriteCPReg: not halted"));
        return -1;
    }
    const CORE_PLUGIN_API* Api = m_CoreApi.load();
    if (!Api || !Api->WriteCPReg) {
        return 0;
    }
    if (Api->WriteCPReg(Id, 8, &Value) != 0) {
        LogWarnMsg(QStringLiteral("WriteCPReg: TARVO API call failed"));
        return -1;
    }
    return 0;
}

int CDevice::ReadLocs(U32 Count, const ELF_SYM_LOC* Locs, U64* Values, U8* Status) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (Count == 0 || !Locs || !Values || !Status) {
        return -1;
    }
    const CORE_PLUGIN_API* Api = m_CoreApi.load();
    int Good = 0;
    for (U32 i = 0; i < Count; ++i) {
        const ELF_LOC_PART& Part = Locs[i].Parts[0];
        const U32 Kind = Part.Kind;
        int Result = -1;
        U64 Value = 0;
        if (ELF_IsRegisterLocKind(Kind)) {
            const U32 Index = Api && Api->MapRegIndex ? Api->MapRegIndex(Part.Register) : Part.Register;
            Result = ReadReg(Index, &Value);
        } else if (ELF_IsMemoryLocKind(Kind)) {
            U8 Bytes[4] = {};
            U8 Stat[4] = {};
            const U8 Width = static_cast<U8>(SysVars::GetVarValue(VAR_ACCESS_WIDTH));
            if (ReadMem(Part.Address, 4, 0, Width, 0, nullptr, Bytes, Stat) == 4) {
                U32 Word = 0;
                std::memcpy(&Word, Bytes, 4);
                Value = Word;
                Result = 0;
            }
        }
        if (Result == 0) {
            Values[i] = Value;
            Status[i] = 0;
            ++Good;
        } else {
            Values[i] = ~0ull;
            Status[i] = 1;
        }
    }
    return Good;
}
