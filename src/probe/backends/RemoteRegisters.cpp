// Register access of the GDB remote back end: the core registers come in one g packet and stay until
// the target moves, the others one p packet each; singles of the FPU may live inside doubles.

#include "probe/backends/RemoteBackend.h"

#include <algorithm>

namespace tarvo {

namespace {

constexpr U8 ThumbBitOfByte3 = 1; // bit 24 of the xPSR

U64 LittleEndian(const U8* Bytes, size_t Size) {
    U64 V = 0;
    for (size_t i = 0; i < Size && i < 8; ++i) {
        V |= static_cast<U64>(Bytes[i]) << (8 * i);
    }
    return V;
}

} // namespace

bool RemoteBackend::ReadRaw(const rsp::RegisterInfo& Info, std::vector<U8>& Bytes) {
    const size_t Size = static_cast<size_t>(Info.ByteSize());
    if (Info.GOffset >= 0) {
        if (!m_GValid) {
            const rsp::Reply R = m_Client->ReadAllRegisters(m_G);
            if (!R.Delivered()) {
                ReportLost(m_Client->DeathReason());
                return false;
            }
            if (R.IsError()) {
                return false;
            }
            m_GValid = true;
        }
        if (static_cast<size_t>(Info.GOffset) + Size > m_G.size()) {
            return false;
        }
        Bytes.assign(m_G.begin() + Info.GOffset, m_G.begin() + Info.GOffset + static_cast<long>(Size));
        return true;
    }
    const auto Cached = m_RegisterCache.find(Info.Number);
    if (Cached != m_RegisterCache.end()) {
        Bytes = Cached->second;
        return true;
    }
    const rsp::Reply R = m_Client->ReadRegister(Info.Number, Bytes);
    if (!R.Delivered()) {
        ReportLost(m_Client->DeathReason());
        return false;
    }
    if (R.IsError() || R.IsUnsupported() || Bytes.size() < Size) {
        return false;
    }
    m_RegisterCache[Info.Number] = Bytes;
    return true;
}

bool RemoteBackend::ReadRegisters(const U32* Indices, U64* Values, U8* Status, size_t Count) {
    if (!IsConnected() || !m_Halted) {
        return false;
    }
    std::vector<U32> Missing;
    for (size_t i = 0; i < Count; ++i) {
        Values[i] = 0;
        Status[i] = 1;
        const RegisterSlot& Slot = m_Map.Slot(Indices[i]);
        if (Slot.How == RegisterSlot::Kind::Missing) {
            const auto Cached = m_MissingCache.find(Indices[i]);
            if (Cached != m_MissingCache.end()) {
                Values[i] = Cached->second;
                Status[i] = 0;
            } else if (Indices[i] < TARVO_REG_COUNT &&
                       std::find(Missing.begin(), Missing.end(), Indices[i]) == Missing.end()) {
                Missing.push_back(Indices[i]);
            }
            continue;
        }
        std::vector<U8> Bytes;
        if (!ReadRaw(*Slot.Info, Bytes)) {
            if (!IsConnected()) {
                return false;
            }
            continue;
        }
        if (Slot.How == RegisterSlot::Kind::HalfOfDouble) {
            Values[i] = LittleEndian(Bytes.data() + 4 * Slot.Half, 4);
        } else {
            Values[i] = LittleEndian(Bytes.data(), Bytes.size());
        }
        Status[i] = 0;
    }
    if (!Missing.empty()) {
        std::vector<U64> Found(Missing.size(), 0);
        std::vector<U8> Got(Missing.size(), 0);
        ReadMissingRegisters(Missing, Found, Got);
        for (size_t k = 0; k < Missing.size(); ++k) {
            if (Got[k]) {
                m_MissingCache[Missing[k]] = Found[k];
            }
        }
        for (size_t i = 0; i < Count; ++i) {
            const auto Cached = m_MissingCache.find(Indices[i]);
            if (Status[i] != 0 && Cached != m_MissingCache.end()) {
                Values[i] = Cached->second;
                Status[i] = 0;
            }
        }
    }
    return IsConnected();
}

bool RemoteBackend::WriteRaw(const rsp::RegisterInfo& Info, const std::vector<U8>& Bytes) {
    rsp::Reply R = m_Client->WriteRegister(Info.Number, Bytes.data(), Bytes.size());
    if (R.IsUnsupported() && Info.GOffset >= 0) {
        // No P packet: change the register inside the whole file and write that back.
        std::vector<U8> All;
        R = m_Client->ReadAllRegisters(All);
        if (R.Delivered() && !R.IsError() && static_cast<size_t>(Info.GOffset) + Bytes.size() <= All.size()) {
            std::copy(Bytes.begin(), Bytes.end(), All.begin() + Info.GOffset);
            R = m_Client->WriteAllRegisters(All);
        }
    }
    if (!R.Delivered()) {
        ReportLost(m_Client->DeathReason());
        return false;
    }
    return R.IsOk();
}

bool RemoteBackend::WriteRegister(U32 Index, U64 Value) {
    if (!IsConnected() || !m_Halted) {
        return false;
    }
    m_AtReset = false;
    // Bit 0 of a Thumb address selects the instruction set, as a branch takes it; the PC holds the
    // address alone, and the state goes to the T bit, which is all a Cortex-M knows.
    const bool Pc = Index == TARVO_REG_PC && m_MProfile;
    if (Pc) {
        Value &= ~1ull;
    }
    const RegisterSlot& Slot = m_Map.Slot(Index);
    bool Ok = false;
    if (Slot.How == RegisterSlot::Kind::Missing) {
        Ok = Index < TARVO_REG_COUNT && WriteMissingRegister(Index, Value);
    } else if (Slot.How == RegisterSlot::Kind::HalfOfDouble) {
        std::vector<U8> Bytes;
        if (ReadRaw(*Slot.Info, Bytes) && Bytes.size() >= 8) {
            for (int b = 0; b < 4; ++b) {
                Bytes[static_cast<size_t>(4 * Slot.Half + b)] = static_cast<U8>(Value >> (8 * b));
            }
            Ok = WriteRaw(*Slot.Info, Bytes);
        }
    } else {
        std::vector<U8> Bytes(static_cast<size_t>(Slot.Info->ByteSize()), 0);
        for (size_t b = 0; b < Bytes.size() && b < 8; ++b) {
            Bytes[b] = static_cast<U8>(Value >> (8 * b));
        }
        Ok = WriteRaw(*Slot.Info, Bytes);
    }
    // One register may show in others (sp in msp or psp): read everything anew.
    InvalidateRegisters();
    return Ok && (!Pc || KeepThumbState());
}

bool RemoteBackend::KeepThumbState() {
    const RegisterSlot& Slot = m_Map.Slot(TARVO_REG_XPSR);
    if (!m_MProfile || Slot.How != RegisterSlot::Kind::Whole) {
        return IsConnected();
    }
    std::vector<U8> Bytes;
    if (!ReadRaw(*Slot.Info, Bytes) || Bytes.size() < 4) {
        return IsConnected();
    }
    if (Bytes[3] & ThumbBitOfByte3) {
        return true;
    }
    Bytes[3] |= ThumbBitOfByte3;
    const bool Ok = WriteRaw(*Slot.Info, Bytes);
    InvalidateRegisters();
    return Ok;
}

void RemoteBackend::ReadMissingRegisters(const std::vector<U32>&, std::vector<U64>&, std::vector<U8>&) {}

bool RemoteBackend::WriteMissingRegister(U32, U64) {
    return false;
}

} // namespace tarvo
