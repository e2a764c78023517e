#pragma once

// The typed layer of the GDB remote protocol client: one method per kind of packet, with transfers
// split to the packet size that the server negotiated.

#include "probe/rsp/ClientBase.h"
#include "probe/rsp/TargetDescription.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarvo::rsp {

/// A reply as the server gave it, with the transport status beside it.
struct Reply {
    Status Transport = Status::Ok;
    std::string Text;
    bool Delivered() const { return Transport == Status::Ok; }
    bool IsOk() const { return Delivered() && Text == "OK"; }
    /// The empty reply is how a server says that it doesn't know a packet.
    bool IsUnsupported() const { return Delivered() && Text.empty(); }
    bool IsError() const { return Delivered() && !Text.empty() && Text[0] == 'E'; }
};

struct ServerFeatures {
    size_t PacketSize = 400; // GDB's assumption when the server names none
    bool XferFeatures = false;
    bool XferMemoryMap = false;
    bool Multiprocess = false;
    bool NoAckMode = false;
    bool VCont = false;       // vCont with c and s
    bool BinaryWrite = false; // X, found out on the first write
};

enum class PointType { Software = 0, Hardware = 1, Write = 2, Read = 3, Access = 4 };

/// Any thread; the calls serialise in ClientBase.
class GdbClient : public ClientBase {
public:
    using ClientBase::ClientBase;

    /// qSupported, then QStartNoAckMode where the server offers it.
    Status Negotiate(std::string& Error);
    const ServerFeatures& Features() const { return m_Features; }
    /// For tests and for servers that misreport their size.
    void SetPacketSize(size_t Size) { m_Features.PacketSize = Size; }

    /// Reads a whole qXfer object (features, memory-map) in pieces, escapes removed.
    Status ReadXfer(const std::string& Object, const std::string& Annex, std::string& Out,
                    std::string& Error);
    /// target.xml and everything it includes.
    Status ReadTargetDescription(TargetDescription& Out, std::string& Error);

    Reply ReadAllRegisters(std::vector<uint8_t>& Bytes);                // g
    Reply WriteAllRegisters(const std::vector<uint8_t>& Bytes);         // G
    Reply ReadRegister(int Number, std::vector<uint8_t>& Bytes);        // p
    Reply WriteRegister(int Number, const uint8_t* Bytes, size_t Size); // P

    /// Reads Size bytes in packets of at most MaxReadBytes. Done is the number of bytes read from the
    /// start up to the first that can't be read: a failing packet is halved until the readable part
    /// of it is known.
    Status ReadMemory(uint64_t Address, size_t Size, uint8_t* Out, size_t& Done);
    /// Writes in packets that fit the packet size (X where the server takes it, else M). Done is the
    /// number of bytes before the first packet that failed.
    Status WriteMemory(uint64_t Address, size_t Size, const uint8_t* Data, size_t& Done);
    size_t MaxReadBytes() const;

    Reply InsertPoint(PointType Type, uint64_t Address, unsigned Kind);
    Reply RemovePoint(PointType Type, uint64_t Address, unsigned Kind);

    Status StartContinue();
    Status StartStep();
    Reply QueryHaltReason(); // ?
    /// qRcmd: Output gets the console text, the reply is the final one ("OK", hex text or an error).
    Reply Monitor(const std::string& Command, std::string& Output, int TimeoutMs = -1);
    Status Detach();
    Status KillTarget();

private:
    size_t ReadPrefix(uint64_t Address, size_t Size, uint8_t* Out, Status& S);
    Status WriteChunk(uint64_t Address, const uint8_t* Data, size_t Size, size_t& Taken);
    Reply Ask(const std::string& Body, int TimeoutMs = -1);

    ServerFeatures m_Features;
    bool m_BinaryProbed = false;
    std::string m_Packet;
};

} // namespace tarvo::rsp
