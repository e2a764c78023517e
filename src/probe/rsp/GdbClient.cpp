#include "probe/rsp/GdbClient.h"

#include "probe/rsp/Hex.h"

#include <algorithm>

namespace tarvo::rsp {

Reply GdbClient::Ask(const std::string& Body, int TimeoutMs) {
    Reply R;
    R.Transport = Request(Body, R.Text, TimeoutMs);
    return R;
}

Status GdbClient::Negotiate(std::string& Error) {
    const Reply R = Ask("qSupported:multiprocess+;swbreak+;hwbreak+;vContSupported+;xmlRegisters=arm");
    if (!R.Delivered()) {
        Error = DeathReason();
        return R.Transport;
    }
    std::string_view Rest = R.Text;
    while (!Rest.empty()) {
        const size_t Semi = Rest.find(';');
        const std::string_view Item = Rest.substr(0, Semi);
        Rest = Semi == std::string_view::npos ? std::string_view() : Rest.substr(Semi + 1);
        if (Item.substr(0, 11) == "PacketSize=") {
            const std::optional<uint64_t> Size = ParseHexNumber(Item.substr(11));
            if (Size && *Size >= 64) {
                m_Features.PacketSize = static_cast<size_t>(std::min<uint64_t>(*Size, 1u << 20));
            }
        } else if (Item == "qXfer:features:read+") {
            m_Features.XferFeatures = true;
        } else if (Item == "qXfer:memory-map:read+") {
            m_Features.XferMemoryMap = true;
        } else if (Item == "multiprocess+") {
            m_Features.Multiprocess = true;
        } else if (Item == "QStartNoAckMode+") {
            m_Features.NoAckMode = true;
        }
    }
    if (m_Features.NoAckMode) {
        if (Ask("QStartNoAckMode").IsOk()) {
            SetNoAckMode(true);
        }
    }
    const Reply V = Ask("vCont?");
    if (!V.Delivered()) {
        Error = DeathReason();
        return V.Transport;
    }
    m_Features.VCont = V.Text.rfind("vCont", 0) == 0 && V.Text.find(";c") != std::string::npos &&
                       V.Text.find(";s") != std::string::npos;
    return Status::Ok;
}

Status GdbClient::ReadXfer(const std::string& Object, const std::string& Annex, std::string& Out,
                           std::string& Error) {
    Out.clear();
    // Ask for as much as a reply can carry; escapes may double some bytes, so leave room.
    const size_t Chunk = std::max<size_t>(64, m_Features.PacketSize / 2);
    for (;;) {
        std::string Body = "qXfer:" + Object + ":read:" + Annex + ":";
        AppendHexNumber(Body, Out.size());
        Body.push_back(',');
        AppendHexNumber(Body, Chunk);
        const Reply R = Ask(Body);
        if (!R.Delivered()) {
            Error = DeathReason();
            return R.Transport;
        }
        if (R.Text.empty() || (R.Text[0] != 'm' && R.Text[0] != 'l')) {
            Error = R.Text.empty()
                        ? "the GDB server doesn't offer " + Object
                        : "the GDB server could not read " + Object + " \"" + Annex + "\": " + R.Text;
            return Status::Protocol;
        }
        std::string Data;
        if (!Unescape(std::string_view(R.Text).substr(1), Data)) {
            Error = "malformed escape in " + Object;
            return Status::Protocol;
        }
        Out += Data;
        if (R.Text[0] == 'l' || Data.empty()) {
            return Status::Ok;
        }
        if (Out.size() > (16u << 20)) {
            Error = Object + " \"" + Annex + "\" is too large";
            return Status::Protocol;
        }
    }
}

Status GdbClient::ReadTargetDescription(TargetDescription& Out, std::string& Error) {
    if (!m_Features.XferFeatures) {
        Error = "the GDB server gives no target description";
        return Status::Protocol;
    }
    std::string Xml;
    Status S = ReadXfer("features", "target.xml", Xml, Error);
    if (S != Status::Ok) {
        return S;
    }
    Status IncludeStatus = Status::Ok;
    std::string IncludeError;
    const auto Include = [&](const std::string& Href) -> std::optional<std::string> {
        std::string Text;
        IncludeStatus = ReadXfer("features", Href, Text, IncludeError);
        if (IncludeStatus != Status::Ok) {
            return std::nullopt;
        }
        return Text;
    };
    if (!Out.Parse(Xml, Include, Error)) {
        if (IncludeStatus != Status::Ok) {
            Error = IncludeError;
            return IncludeStatus;
        }
        return Status::Protocol;
    }
    return Status::Ok;
}

static bool DecodeHexReply(const std::string& Text, std::vector<uint8_t>& Bytes) {
    // Unavailable registers read as "xx" pairs; they count as zero here.
    Bytes.assign(Text.size() / 2, 0);
    if (Text.size() % 2 != 0) {
        return false;
    }
    for (size_t i = 0; i < Text.size(); i += 2) {
        if (Text[i] == 'x' && Text[i + 1] == 'x') {
            continue;
        }
        const int Hi = HexDigitValue(Text[i]);
        const int Lo = HexDigitValue(Text[i + 1]);
        if (Hi < 0 || Lo < 0) {
            return false;
        }
        Bytes[i / 2] = static_cast<uint8_t>(Hi << 4 | Lo);
    }
    return true;
}

Reply GdbClient::ReadAllRegisters(std::vector<uint8_t>& Bytes) {
    Reply R = Ask("g");
    if (R.Delivered() && !R.IsError() && !DecodeHexReply(R.Text, Bytes)) {
        R.Transport = Status::Protocol;
    }
    return R;
}

Reply GdbClient::WriteAllRegisters(const std::vector<uint8_t>& Bytes) {
    std::string Body = "G";
    AppendHexBytes(Body, Bytes.data(), Bytes.size());
    return Ask(Body);
}

Reply GdbClient::ReadRegister(int Number, std::vector<uint8_t>& Bytes) {
    std::string Body = "p";
    AppendHexNumber(Body, static_cast<uint64_t>(Number));
    Reply R = Ask(Body);
    if (R.Delivered() && !R.IsError() && !R.Text.empty() && !DecodeHexReply(R.Text, Bytes)) {
        R.Transport = Status::Protocol;
    }
    return R;
}

Reply GdbClient::WriteRegister(int Number, const uint8_t* Bytes, size_t Size) {
    std::string Body = "P";
    AppendHexNumber(Body, static_cast<uint64_t>(Number));
    Body.push_back('=');
    AppendHexBytes(Body, Bytes, Size);
    return Ask(Body);
}

size_t GdbClient::MaxReadBytes() const {
    // The hex reply must fit the packet size, as GDB assumes.
    return std::max<size_t>(1, m_Features.PacketSize / 2);
}

size_t GdbClient::ReadPrefix(uint64_t Address, size_t Size, uint8_t* Out, Status& S) {
    std::string& Body = m_Packet;
    Body = "m";
    AppendHexNumber(Body, Address);
    Body.push_back(',');
    AppendHexNumber(Body, Size);
    std::string Text;
    S = Request(Body, Text);
    if (S != Status::Ok) {
        return 0;
    }
    if (!Text.empty() && Text[0] != 'E') {
        if (Text.size() % 2 != 0 || Text.size() / 2 > Size || !DecodeHexBytes(Text, Out, Size)) {
            S = Status::Protocol; // more bytes than asked for, or not hex at all
            return 0;
        }
        return Text.size() / 2; // a server may answer with fewer bytes than asked
    }
    if (Size == 1) {
        return 0;
    }
    const size_t Half = Size / 2;
    const size_t Got = ReadPrefix(Address, Half, Out, S);
    if (Got < Half || S != Status::Ok) {
        return Got;
    }
    return Half + ReadPrefix(Address + Half, Size - Half, Out + Half, S);
}

Status GdbClient::ReadMemory(uint64_t Address, size_t Size, uint8_t* Out, size_t& Done) {
    Done = 0;
    const size_t Max = MaxReadBytes();
    while (Done < Size) {
        const size_t Chunk = std::min(Max, Size - Done);
        Status S = Status::Ok;
        const size_t Got = ReadPrefix(Address + Done, Chunk, Out + Done, S);
        Done += Got;
        if (S != Status::Ok) {
            return S;
        }
        if (Got < Chunk) {
            break;
        }
    }
    return Status::Ok;
}

Status GdbClient::WriteChunk(uint64_t Address, const uint8_t* Data, size_t Size, size_t& Taken) {
    std::string& Body = m_Packet;
    const size_t Limit = m_Features.PacketSize - 1;
    Body = m_Features.BinaryWrite ? "X" : "M";
    AppendHexNumber(Body, Address);
    Body.push_back(',');
    const size_t Header = Body.size() + 9; // the length field and ':' at most
    if (Header + 2 > Limit) {
        return Status::Protocol;
    }
    if (m_Features.BinaryWrite) {
        std::string Escaped;
        Taken = 0;
        while (Taken < Size) {
            const uint8_t B = Data[Taken];
            const size_t Need = (B == '$' || B == '#' || B == '}' || B == '*') ? 2 : 1;
            if (Header + Escaped.size() + Need > Limit) {
                break;
            }
            AppendEscaped(Escaped, &B, 1);
            ++Taken;
        }
        AppendHexNumber(Body, Taken);
        Body.push_back(':');
        Body += Escaped;
    } else {
        // Whole 16-byte lines keep the following packets aligned, which the server copies faster.
        const size_t Room = (Limit - Header) / 2;
        Taken = std::min(Size, Room >= 16 ? Room / 16 * 16 : Room);
        AppendHexNumber(Body, Taken);
        Body.push_back(':');
        AppendHexBytes(Body, Data, Taken);
    }
    std::string Text;
    const Status S = Request(Body, Text);
    if (S != Status::Ok) {
        return S;
    }
    return Text == "OK" ? Status::Ok : Status::Protocol;
}

Status GdbClient::WriteMemory(uint64_t Address, size_t Size, const uint8_t* Data, size_t& Done) {
    Done = 0;
    if (!m_BinaryProbed && Size > 16) {
        // An empty X write tells whether the server takes binary data (half the bytes of hex).
        m_BinaryProbed = true;
        std::string Body = "X";
        AppendHexNumber(Body, Address);
        Body += ",0:";
        const Reply R = Ask(Body);
        if (!R.Delivered()) {
            return R.Transport;
        }
        m_Features.BinaryWrite = R.IsOk();
    }
    while (Done < Size) {
        size_t Taken = 0;
        const Status S = WriteChunk(Address + Done, Data + Done, Size - Done, Taken);
        if (S == Status::Protocol) {
            return Status::Ok; // the server refused this packet: Done tells how far it went
        }
        if (S != Status::Ok) {
            return S;
        }
        Done += Taken;
    }
    return Status::Ok;
}

static std::string PointPacket(char Op, PointType Type, uint64_t Address, unsigned Kind) {
    std::string Body(1, Op);
    Body.push_back(static_cast<char>('0' + static_cast<int>(Type)));
    Body.push_back(',');
    AppendHexNumber(Body, Address);
    Body.push_back(',');
    AppendHexNumber(Body, Kind);
    return Body;
}

Reply GdbClient::InsertPoint(PointType Type, uint64_t Address, unsigned Kind) {
    return Ask(PointPacket('Z', Type, Address, Kind));
}

Reply GdbClient::RemovePoint(PointType Type, uint64_t Address, unsigned Kind) {
    return Ask(PointPacket('z', Type, Address, Kind));
}

Status GdbClient::StartContinue() {
    return Resume(m_Features.VCont ? "vCont;c" : "c");
}

Status GdbClient::StartStep() {
    return Resume(m_Features.VCont ? "vCont;s" : "s");
}

Reply GdbClient::QueryHaltReason() {
    return Ask("?");
}

Reply GdbClient::Monitor(const std::string& Command, std::string& Output, int TimeoutMs) {
    Reply R;
    R.Transport = RequestWithConsole("qRcmd," + HexOfText(Command), R.Text, Output, TimeoutMs);
    return R;
}

Status GdbClient::Detach() {
    std::string Text;
    // Servers may close the connection right after the reply; a lost connection here is no failure.
    const Status S = Request(m_Features.Multiprocess ? "D;1" : "D", Text, 1000);
    return S == Status::ConnectionLost ? Status::Ok : S;
}

Status GdbClient::KillTarget() {
    return Send("k");
}

} // namespace tarvo::rsp
