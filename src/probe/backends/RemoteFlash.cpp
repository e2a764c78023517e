// Flash programming through a GDB server: the server's memory map names the flash regions and their
// erase blocks; writes into them during a download are collected per block and programmed at its end
// with vFlashErase, vFlashWrite and vFlashDone, then read back for verification.

#include "probe/backends/RemoteBackend.h"

#include "probe/rsp/Hex.h"
#include "probe/rsp/PacketCodec.h"

#include <cstdlib>
#include <cstring>

namespace tarvo {

namespace {

std::string Attribute(std::string_view Tag, const char* Name) {
    const std::string Key = std::string(Name) + "=\"";
    const size_t At = Tag.find(Key);
    if (At == std::string_view::npos) {
        return {};
    }
    const size_t Start = At + Key.size();
    const size_t End = Tag.find('"', Start);
    return End == std::string_view::npos ? std::string() : std::string(Tag.substr(Start, End - Start));
}

U32 Number(const std::string& Text) {
    return static_cast<U32>(std::strtoul(Text.c_str(), nullptr, 0));
}

} // namespace

/// Parses <memory type="flash" start=".." length=".."><property name="blocksize">..</property></memory>.
static std::vector<FlashRegion> ParseMemoryMap(std::string_view Xml) {
    std::vector<FlashRegion> Regions;
    size_t At = 0;
    while ((At = Xml.find("<memory ", At)) != std::string_view::npos) {
        const size_t TagEnd = Xml.find('>', At);
        if (TagEnd == std::string_view::npos) {
            break;
        }
        const std::string_view Tag = Xml.substr(At, TagEnd - At);
        At = TagEnd;
        if (Attribute(Tag, "type") != "flash") {
            continue;
        }
        FlashRegion R;
        R.Start = Number(Attribute(Tag, "start"));
        R.Size = Number(Attribute(Tag, "length"));
        const size_t Close = Xml.find("</memory>", At);
        const std::string_view Inside =
            Xml.substr(At, Close == std::string_view::npos ? std::string_view::npos : Close - At);
        const size_t Prop = Inside.find("name=\"blocksize\"");
        if (Prop != std::string_view::npos) {
            const size_t ValueStart = Inside.find('>', Prop);
            if (ValueStart != std::string_view::npos) {
                R.BlockSize = Number(std::string(Inside.substr(ValueStart + 1, 16)));
            }
        }
        if (R.Size > 0 && R.BlockSize > 0 && R.BlockSize <= R.Size) {
            Regions.push_back(R);
        }
    }
    return Regions;
}

bool RemoteBackend::LoadMemoryMap() {
    if (m_MemoryMapRead) {
        return true;
    }
    m_MemoryMapRead = true;
    if (!Client() || !Client()->Features().XferMemoryMap) {
        return true;
    }
    std::string Xml, Error;
    if (Client()->ReadXfer("memory-map", "", Xml, Error) != rsp::Status::Ok) {
        if (m_Sink.Warn) {
            m_Sink.Warn("Could not read the memory map of the GDB server: " + Error);
        }
        return false;
    }
    m_Flash = ParseMemoryMap(Xml);
    return true;
}

bool RemoteBackend::IsRam(U32 Address) const {
    for (const FlashRegion& R : m_Flash) {
        if (Address >= R.Start && Address - R.Start < R.Size) {
            return false;
        }
    }
    return true;
}

void RemoteBackend::BeginDownload() {
    if (IsConnected()) {
        LoadMemoryMap();
    }
    m_FlashBlocks.clear();
    m_Downloading = true;
}

int RemoteBackend::EndDownload() {
    const int Result = ProgramFlash();
    if (Result == 0 && m_AtReset && m_MProfile && IsConnected()) {
        ReloadResetVectors();
    }
    return Result;
}

// A reset taken before the download (as a session makes it) loaded SP, PC and the T bit from the
// vector table that memory held then, empty on a board whose code lives in RAM. Taking them again
// from the downloaded table gives the state a reset gives now, without another reset: the reset of
// some servers loads an image of their own over the download.
void RemoteBackend::ReloadResetVectors() {
    const U32 Vtor = 0xE000ED08;
    rsp::GdbClient& C = *Client();
    U8 Bytes[8] = {};
    size_t Got = 0;
    U32 Table = 0;
    // Cores without a VTOR (ARMv6-M) take the table at 0.
    if (C.ReadMemory(Vtor, 4, Bytes, Got) == rsp::Status::Ok && Got == 4) {
        Table = (Bytes[0] | Bytes[1] << 8 | Bytes[2] << 16 | static_cast<U32>(Bytes[3]) << 24) & ~0x7Fu;
    }
    if (C.ReadMemory(Table, 8, Bytes, Got) != rsp::Status::Ok || Got != 8) {
        return;
    }
    const U32 Sp = Bytes[0] | Bytes[1] << 8 | Bytes[2] << 16 | static_cast<U32>(Bytes[3]) << 24;
    const U32 Pc = Bytes[4] | Bytes[5] << 8 | Bytes[6] << 16 | static_cast<U32>(Bytes[7]) << 24;
    if (WriteRegister(TARVO_REG_SP, Sp)) {
        WriteRegister(TARVO_REG_PC, Pc);
    }
    m_AtReset = true;
}

int RemoteBackend::ProgramFlash() {
    m_Downloading = false;
    if (m_FlashBlocks.empty()) {
        return 0;
    }
    std::map<U32, std::vector<U8>> Blocks;
    Blocks.swap(m_FlashBlocks);
    if (!IsConnected()) {
        return -1;
    }
    rsp::GdbClient& C = *Client();
    // Erase runs of adjacent blocks together.
    for (auto It = Blocks.begin(); It != Blocks.end();) {
        const U32 Start = It->first;
        U32 End = Start + static_cast<U32>(It->second.size());
        auto Next = std::next(It);
        while (Next != Blocks.end() && Next->first == End) {
            End += static_cast<U32>(Next->second.size());
            ++Next;
        }
        std::string Body = "vFlashErase:";
        rsp::AppendHexNumber(Body, Start);
        Body.push_back(',');
        rsp::AppendHexNumber(Body, End - Start);
        std::string Reply;
        if (C.Request(Body, Reply, 60000) != rsp::Status::Ok) {
            ReportLost(C.DeathReason());
            return -1;
        }
        if (Reply != "OK") {
            return -3;
        }
        It = Next;
    }
    const size_t Limit = C.Features().PacketSize - 1;
    for (const auto& [Address, Bytes] : Blocks) {
        size_t Done = 0;
        while (Done < Bytes.size()) {
            std::string Body = "vFlashWrite:";
            rsp::AppendHexNumber(Body, Address + Done);
            Body.push_back(':');
            while (Done < Bytes.size() && Body.size() + 2 <= Limit) {
                rsp::AppendEscaped(Body, &Bytes[Done], 1);
                ++Done;
            }
            std::string Reply;
            if (C.Request(Body, Reply, 60000) != rsp::Status::Ok) {
                ReportLost(C.DeathReason());
                return -1;
            }
            if (Reply != "OK") {
                return -3;
            }
        }
    }
    std::string Reply;
    if (C.Request("vFlashDone", Reply, 120000) != rsp::Status::Ok) {
        ReportLost(C.DeathReason());
        return -1;
    }
    if (Reply != "OK") {
        return -3;
    }
    for (const auto& [Address, Bytes] : Blocks) {
        std::vector<U8> Back(Bytes.size());
        size_t Got = 0;
        if (C.ReadMemory(Address, Back.size(), Back.data(), Got) != rsp::Status::Ok || Got != Back.size() ||
            std::memcmp(Back.data(), Bytes.data(), Back.size()) != 0) {
            return -4;
        }
    }
    return 0;
}

} // namespace tarvo
