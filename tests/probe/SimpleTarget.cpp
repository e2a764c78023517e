#include "SimpleTarget.h"

#include "probe/rsp/Hex.h"
#include "probe/rsp/PacketCodec.h"

#include <algorithm>

using namespace tarvo::rsp;

namespace probetest {

SimpleTarget::SimpleTarget(MockServer& Server) : m_Server(Server) {
    std::string Core = "<feature name=\"org.gnu.gdb.arm.m-profile\">";
    for (int i = 0; i <= 12; ++i) {
        Core += "<reg name=\"r" + std::to_string(i) + "\" bitsize=\"32\"/>";
    }
    Core +=
        "<reg name=\"sp\" bitsize=\"32\"/><reg name=\"lr\" bitsize=\"32\"/><reg name=\"pc\" bitsize=\"32\"/>"
        "<reg name=\"xPSR\" bitsize=\"32\"/></feature>";
    const std::string System =
        "<feature name=\"org.gnu.gdb.arm.m-system\">"
        "<reg name=\"msp\" bitsize=\"32\" regnum=\"30\"/><reg name=\"psp\" bitsize=\"32\"/>"
        "<reg name=\"primask\" bitsize=\"8\"/><reg name=\"basepri\" bitsize=\"8\"/>"
        "<reg name=\"faultmask\" bitsize=\"8\"/><reg name=\"control\" bitsize=\"8\"/>"
        "</feature>";
    std::string Fpu = "<feature name=\"org.gnu.gdb.arm.vfp\">";
    for (int i = 0; i < 16; ++i) {
        Fpu += "<reg name=\"d" + std::to_string(i) + "\" bitsize=\"64\"" + (i == 0 ? " regnum=\"40\"" : "") +
               "/>";
    }
    Fpu += "<reg name=\"fpscr\" bitsize=\"32\"/></feature>";
    m_Files["target.xml"] = "<?xml version=\"1.0\"?><target><architecture>arm</architecture>"
                            "<xi:include href=\"core.xml\"/><xi:include href=\"system.xml\"/>"
                            "<xi:include href=\"fpu.xml\"/></target>";
    m_Files["core.xml"] = Core;
    m_Files["system.xml"] = System;
    m_Files["fpu.xml"] = Fpu;
    for (int i = 0; i <= 16; ++i) {
        m_Sizes[i] = 4;
        m_Values[i] = 0;
    }
    for (int i = 30; i <= 35; ++i) {
        m_Sizes[i] = i <= 31 ? 4 : 1;
        m_Values[i] = 0;
    }
    for (int i = 40; i <= 56; ++i) {
        m_Sizes[i] = i < 56 ? 8 : 4;
        m_Values[i] = 0;
    }
    m_Values[PcNumber] = ResetPc;
    m_Values[16] = 0x01000000;
    Server.SetHandler([this](const std::string& P) { return Handle(P); });
}

SimpleTarget::~SimpleTarget() {
    m_Server.SetHandler(nullptr);
}

std::string SimpleTarget::HexOf(int Number) const {
    std::string Out;
    const uint64_t V = m_Values.at(Number);
    for (int b = 0; b < m_Sizes.at(Number); ++b) {
        const uint8_t Byte = static_cast<uint8_t>(V >> (8 * b));
        AppendHexBytes(Out, &Byte, 1);
    }
    return Out;
}

std::optional<std::string> SimpleTarget::Handle(const std::string& P) {
    if (P == "\x03") {
        if (!Running) {
            return std::nullopt;
        }
        Running = false;
        return std::string("T02thread:p01.01;");
    }
    if (Running) {
        return std::nullopt; // a real stub would drop it too
    }
    if (P.rfind("qSupported", 0) == 0) {
        return std::string("PacketSize=400;qXfer:features:read+;qXfer:memory-map:read+;vContSupported+") +
               (OfferNoAck ? ";QStartNoAckMode+" : "");
    }
    if (P == "QStartNoAckMode") {
        m_Server.SendAcks = false;
        return std::string("OK");
    }
    if (P == "vCont?") {
        return std::string("vCont;c;C;s;S");
    }
    if (P == "?") {
        return std::string("T05thread:p01.01;");
    }
    if (P.rfind("qXfer:", 0) == 0) {
        return Xfer(P);
    }
    if (P == "g") {
        std::string Out;
        for (int i = 0; i <= 16; ++i) {
            Out += HexOf(i);
        }
        return Out;
    }
    if (P[0] == 'p') {
        const int N = static_cast<int>(*ParseHexNumber(P.substr(1)));
        return m_Values.count(N) ? HexOf(N) : std::string("E00");
    }
    if (P[0] == 'P') {
        const size_t Eq = P.find('=');
        const int N = static_cast<int>(*ParseHexNumber(P.substr(1, Eq - 1)));
        if (!m_Values.count(N)) {
            return std::string("E00");
        }
        uint8_t Bytes[8] = {};
        DecodeHexBytes(P.substr(Eq + 1), Bytes, 8);
        uint64_t V = 0;
        for (int b = 0; b < m_Sizes[N]; ++b) {
            V |= static_cast<uint64_t>(Bytes[b]) << (8 * b);
        }
        m_Values[N] = V;
        return std::string("OK");
    }
    if (P[0] == 'm' || P[0] == 'M') {
        return Memory(P);
    }
    if (P[0] == 'X') {
        return std::string(); // no binary writes: the library must fall back to M
    }
    if (P[0] == 'Z' || P[0] == 'z') {
        return Point(P);
    }
    if (P == "vCont;c" || P == "c") {
        return Resume(false);
    }
    if (P == "vCont;s" || P == "s") {
        return Resume(true);
    }
    if (P.rfind("qRcmd,", 0) == 0) {
        std::string Text(P.size() / 2, '\0');
        DecodeHexBytes(P.substr(6), reinterpret_cast<uint8_t*>(Text.data()), Text.size());
        Text.resize((P.size() - 6) / 2);
        MonitorCommands.push_back(Text);
        if (UnknownMonitorCommands.count(Text) != 0) {
            // As QEMU answers: the complaint as output, then OK.
            return "O" + HexOfText("unknown command: '" + Text.substr(0, Text.find(' ')) + "'\r\n") +
                   "\x1eOK";
        }
        if (Text == "reset halt" || Text == "system_reset") {
            m_Values[PcNumber] = ResetPc;
            m_Values[16] = ResetXpsr;
            return "O" + HexOfText("target halted due to debug-request\n") + "\x1eOK";
        }
        return std::string();
    }
    if (P.rfind("vFlash", 0) == 0) {
        return Flash(P);
    }
    if (P[0] == 'D') {
        return std::string("OK");
    }
    if (P == "k") {
        return std::nullopt;
    }
    return std::string();
}

std::optional<std::string> SimpleTarget::Resume(bool Step) {
    uint64_t& Pc = m_Values[PcNumber];
    if (WatchHitPc && *WatchHitPc == Pc && !Watches.empty()) {
        char Text[64];
        std::snprintf(Text, sizeof Text, "T05watch:%x;thread:p01.01;", std::get<1>(*Watches.begin()));
        return std::string(Text);
    }
    if (Step) {
        Pc += 2;
        return std::string("T05thread:p01.01;");
    }
    std::set<uint32_t> All = SoftBreaks;
    All.insert(HardBreaks.begin(), HardBreaks.end());
    const auto Next = All.lower_bound(static_cast<uint32_t>(Pc));
    if (Next == All.end()) {
        Running = true;
        return std::nullopt;
    }
    Pc = *Next;
    return std::string("T05thread:p01.01;swbreak:;");
}

std::optional<std::string> SimpleTarget::Memory(const std::string& P) {
    const size_t Comma = P.find(',');
    const size_t Colon = P.find(':');
    const uint32_t Address = static_cast<uint32_t>(*ParseHexNumber(P.substr(1, Comma - 1)));
    const uint32_t Size = static_cast<uint32_t>(*ParseHexNumber(
        P.substr(Comma + 1, Colon == std::string::npos ? std::string::npos : Colon - Comma - 1)));
    const bool InRam = Address >= RamStart && Address + Size <= RamStart + RamSize;
    const bool InFlash = Address >= FlashStart && Address + Size <= FlashStart + FlashSize;
    if (P[0] == 'M') {
        if (!InRam) {
            return std::string("E03"); // flash only through the flash packets
        }
        DecodeHexBytes(P.substr(Colon + 1), Ram(Address), Size);
        return std::string("OK");
    }
    if (Address == 0xE000ED08 && Size == 4) {
        std::string Out;
        AppendHexBytes(Out, reinterpret_cast<const uint8_t*>(&Vtor), 4);
        return Out;
    }
    if (!InRam && !InFlash) {
        return std::string("E01");
    }
    std::string Out;
    AppendHexBytes(Out, InRam ? Ram(Address) : Flash(Address), Size);
    return Out;
}

std::optional<std::string> SimpleTarget::Point(const std::string& P) {
    const int Type = P[1] - '0';
    const size_t C1 = P.find(',');
    const size_t C2 = P.find(',', C1 + 1);
    const uint32_t Address = static_cast<uint32_t>(*ParseHexNumber(P.substr(C1 + 1, C2 - C1 - 1)));
    const uint32_t Kind = static_cast<uint32_t>(*ParseHexNumber(P.substr(C2 + 1)));
    const bool Insert = P[0] == 'Z';
    if (Type == 0) {
        if (!Insert) {
            SoftBreaks.erase(Address);
        } else if (Address >= RamStart && Address < RamStart + RamSize) {
            SoftBreaks.insert(Address);
        } else {
            return std::string("E01"); // can't write a breakpoint instruction into flash
        }
    } else if (Type == 1) {
        if (!Insert) {
            HardBreaks.erase(Address);
        } else if (static_cast<int>(HardBreaks.size()) >= HardLimit) {
            return std::string("E0F");
        } else {
            HardBreaks.insert(Address);
        }
    } else if (Type <= 4) {
        if (!Insert) {
            Watches.erase({Type, Address, Kind});
        } else if (static_cast<int>(Watches.size()) >= WatchLimit) {
            return std::string("E0F");
        } else {
            Watches.insert({Type, Address, Kind});
        }
    } else {
        return std::string();
    }
    return std::string("OK");
}

std::optional<std::string> SimpleTarget::Xfer(const std::string& P) {
    // qXfer:OBJECT:read:ANNEX:OFFSET,LENGTH
    const size_t Read = P.find(":read:");
    const std::string Object = P.substr(6, Read - 6);
    const size_t AnnexEnd = P.find(':', Read + 6);
    const std::string Annex = P.substr(Read + 6, AnnexEnd - Read - 6);
    const size_t Comma = P.find(',', AnnexEnd);
    const size_t Offset = *ParseHexNumber(P.substr(AnnexEnd + 1, Comma - AnnexEnd - 1));
    const size_t Length = *ParseHexNumber(P.substr(Comma + 1));
    std::string Text;
    if (Object == "features" && WithDescription && m_Files.count(Annex)) {
        Text = m_Files[Annex];
    } else if (Object == "memory-map") {
        char Map[512];
        std::snprintf(Map, sizeof Map,
                      "<memory-map><memory type=\"ram\" start=\"0x%x\" length=\"0x%x\"/>"
                      "<memory type=\"flash\" start=\"0x%x\" length=\"0x%x\">"
                      "<property name=\"blocksize\">0x%x</property></memory></memory-map>",
                      RamStart, RamSize, FlashStart, FlashSize, FlashBlock);
        Text = Map;
    } else {
        return std::string("E00");
    }
    const std::string Piece = Text.substr(std::min(Offset, Text.size()), Length);
    std::string Out(1, Offset + Piece.size() >= Text.size() ? 'l' : 'm');
    AppendEscaped(Out, reinterpret_cast<const uint8_t*>(Piece.data()), Piece.size());
    return Out;
}

std::optional<std::string> SimpleTarget::Flash(const std::string& P) {
    if (P.rfind("vFlashErase:", 0) == 0) {
        const size_t Comma = P.find(',');
        const uint32_t Address = static_cast<uint32_t>(*ParseHexNumber(P.substr(12, Comma - 12)));
        const uint32_t Length = static_cast<uint32_t>(*ParseHexNumber(P.substr(Comma + 1)));
        if (EraseFails || Address % FlashBlock != 0 || Length % FlashBlock != 0) {
            return std::string("E01");
        }
        std::fill(Flash(Address), Flash(Address) + Length, 0xFF);
        return std::string("OK");
    }
    if (P.rfind("vFlashWrite:", 0) == 0) {
        const size_t Colon = P.find(':', 12);
        const uint32_t Address = static_cast<uint32_t>(*ParseHexNumber(P.substr(12, Colon - 12)));
        std::string Data;
        Unescape(P.substr(Colon + 1), Data);
        std::copy(Data.begin(), Data.end(), Flash(Address));
        if (CorruptFlash) {
            *Flash(Address) ^= 0xFF;
        }
        return std::string("OK");
    }
    return std::string(P == "vFlashDone" ? "OK" : "");
}

} // namespace probetest
