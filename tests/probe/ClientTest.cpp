// The request layer and the typed client against a mock server over a socket pair.

#include "MockServer.h"

#include "probe/rsp/GdbClient.h"
#include "probe/rsp/Hex.h"

#include <chrono>
#include <gtest/gtest.h>
#include <map>
#include <thread>

using namespace tarvo::rsp;
using probetest::MockServer;

namespace {

int64_t ElapsedMs(std::chrono::steady_clock::time_point Start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - Start)
        .count();
}

// A byte-addressed memory of 64 KB at 0x20000000 behind m and M packets; everything else fails.
struct Memory {
    std::vector<uint8_t> Bytes = std::vector<uint8_t>(0x10000, 0);
    std::optional<std::string> Handle(const std::string& P) {
        if (P[0] != 'm' && P[0] != 'M') {
            return std::string();
        }
        const size_t Comma = P.find(',');
        const size_t Colon = P.find(':');
        const uint64_t Address = *ParseHexNumber(P.substr(1, Comma - 1));
        const uint64_t Size = *ParseHexNumber(
            P.substr(Comma + 1, Colon == std::string::npos ? std::string::npos : Colon - Comma - 1));
        if (Address < 0x20000000 || Address + Size > 0x20010000) {
            return std::string("E01");
        }
        uint8_t* At = Bytes.data() + (Address - 0x20000000);
        if (P[0] == 'M') {
            DecodeHexBytes(P.substr(Colon + 1), At, Size);
            return std::string("OK");
        }
        std::string Out;
        AppendHexBytes(Out, At, Size);
        return Out;
    }
};

} // namespace

class ClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        Client = std::make_unique<GdbClient>(Server.TakeClientSocket());
        Client->SetTimeout(2000);
    }
    MockServer Server;
    std::unique_ptr<GdbClient> Client;
};

TEST_F(ClientTest, AnswersRequestsAndAcknowledgesReplies) {
    Server.SetHandler([](const std::string& P) { return P == "?" ? std::string("S05") : std::string(); });
    std::string Reply;
    ASSERT_EQ(Client->Request("?", Reply), Status::Ok);
    EXPECT_EQ(Reply, "S05");
    ASSERT_EQ(Client->Request("qUnknown", Reply), Status::Ok);
    EXPECT_EQ(Reply, "") << "the empty reply of an unknown packet";
    EXPECT_EQ(Server.Received(), (std::vector<std::string>{"?", "qUnknown"}));
}

TEST_F(ClientTest, RetransmitsWhenTheServerRejectsAPacket) {
    Server.NakRequests = 2;
    Server.SetHandler([](const std::string&) { return std::string("OK"); });
    std::string Reply;
    const auto Start = std::chrono::steady_clock::now();
    ASSERT_EQ(Client->Request("Hg0", Reply), Status::Ok);
    EXPECT_LT(ElapsedMs(Start), 500) << "a lone '-' is answered at once, not after the time-out";
    EXPECT_EQ(Reply, "OK");
    EXPECT_EQ(Server.Received().size(), 1u);
}

TEST_F(ClientTest, AsksForAResendOfAReplyWithABadChecksum) {
    Server.CorruptReplies = 1;
    Server.SetHandler([](const std::string&) { return std::string("1234"); });
    std::string Reply;
    ASSERT_EQ(Client->Request("p0", Reply), Status::Ok);
    EXPECT_EQ(Reply, "1234");
    EXPECT_EQ(Server.ClientNaks.load(), 1);
}

TEST_F(ClientTest, GivesUpAfterRepeatedChecksumErrors) {
    Server.CorruptReplies = 10;
    Server.SetHandler([](const std::string&) { return std::string("1234"); });
    std::string Reply;
    EXPECT_EQ(Client->Request("p0", Reply), Status::Protocol);
    EXPECT_FALSE(Client->IsAlive());
    EXPECT_NE(Client->DeathReason().find("checksum"), std::string::npos) << Client->DeathReason();
}

TEST_F(ClientTest, ASilentServerTimesOutAndLaterCallsFailAtOnce) {
    Server.Silent = true;
    Client->SetTimeout(200);
    std::string Reply;
    const auto Start = std::chrono::steady_clock::now();
    EXPECT_EQ(Client->Request("g", Reply), Status::Timeout);
    EXPECT_GE(ElapsedMs(Start), 150);
    EXPECT_LT(ElapsedMs(Start), 1500);
    EXPECT_FALSE(Client->IsAlive());
    EXPECT_NE(Client->DeathReason().find("200 ms"), std::string::npos);
    const auto Again = std::chrono::steady_clock::now();
    EXPECT_EQ(Client->Request("g", Reply), Status::ConnectionLost);
    EXPECT_LT(ElapsedMs(Again), 50);
}

// A serial port given for a server, or a server gone wrong, keeps sending: the deadline of a request
// holds all the same. The babble stops after 3 s, so a client that waits on it fails the bound.
TEST_F(ClientTest, BytesThatNeverAnswerDoNotExtendTheDeadline) {
    struct CASE {
        const char* Name;
        std::string Bytes;
        const char* Request;
        bool Console; // the request of a monitor command, which takes console output before its answer
    } Cases[] = {
        {"line noise of a serial port", "boot: 0123456789 abcdef\r\n", "qSupported", false},
        {"a flood of stop reports before a query", "$T05thread:01;#07", "qSupported", false},
        {"a flood of stop reports before a read", "$T05thread:01;#07", "m0,4", false},
        {"console output without an end", "$O6869#2c", "qRcmd,7265736574", true},
    };
    for (const CASE& C : Cases) {
        MockServer Babbler;
        GdbClient Client(Babbler.TakeClientSocket());
        Client.SetTimeout(300);
        Babbler.SetHandler([](const std::string&) { return std::nullopt; });
        Babbler.Babble(C.Bytes, 3000);
        std::string Reply, Console;
        const auto Start = std::chrono::steady_clock::now();
        const Status S = C.Console ? Client.RequestWithConsole(C.Request, Reply, Console)
                                   : Client.Request(C.Request, Reply);
        // The reply doesn't come in time; or the flood keeps the server from reading our acknowledgements
        // and our writes stop: either way the connection ends within the limit.
        EXPECT_TRUE(S == Status::Timeout || S == Status::ConnectionLost) << C.Name << ": " << Reply;
        EXPECT_LT(ElapsedMs(Start), 300 + 200) << C.Name;
        EXPECT_FALSE(Client.IsAlive()) << C.Name;
        EXPECT_NE(Client.DeathReason().find("within 300 ms"), std::string::npos)
            << C.Name << ": " << Client.DeathReason();
    }
}

TEST_F(ClientTest, AFloodWhileRunningEndsEachWaitForAStopInTime) {
    Server.SetHandler([](const std::string&) { return std::nullopt; });
    ASSERT_EQ(Client->StartContinue(), Status::Ok);
    Server.Babble("$OK#9a", 3000);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::string Stop;
    auto Start = std::chrono::steady_clock::now();
    EXPECT_EQ(Client->WaitStop(Stop, 0), Status::Timeout) << "a look, while packets keep coming";
    EXPECT_LT(ElapsedMs(Start), 100);
    Start = std::chrono::steady_clock::now();
    EXPECT_EQ(Client->WaitStop(Stop, 200), Status::Timeout);
    EXPECT_LT(ElapsedMs(Start), 200 + 150);
    EXPECT_TRUE(Client->IsAlive()) << "a running target is no lost connection";
}

// QEMU reports the stop of a target that ran when the connection came on its own, ahead of the answer.
TEST_F(ClientTest, AStopReportAheadOfAnAnswerIsSkipped) {
    Server.SetHandler([](const std::string& P) -> std::optional<std::string> {
        if (P == "?") {
            return std::string("S05");
        }
        return std::string("T05thread:01;\x1e") + (P[0] == 'm' ? "01020304" : "OK");
    });
    std::string Reply;
    ASSERT_EQ(Client->Request("m20000000,4", Reply), Status::Ok);
    EXPECT_EQ(Reply, "01020304");
    ASSERT_EQ(Client->Request("Hg0", Reply), Status::Ok);
    EXPECT_EQ(Reply, "OK");
    ASSERT_EQ(Client->Request("?", Reply), Status::Ok);
    EXPECT_EQ(Reply, "S05") << "the halt reason is a stop report itself";
}

TEST_F(ClientTest, AClosedConnectionIsLost) {
    Server.SetHandler([](const std::string&) { return std::nullopt; });
    std::thread Closer([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        Server.Disconnect();
    });
    std::string Reply;
    EXPECT_EQ(Client->Request("g", Reply), Status::ConnectionLost);
    Closer.join();
    EXPECT_FALSE(Client->IsAlive());
}

TEST_F(ClientTest, NegotiatesPacketSizeAndFeatures) {
    Server.SetHandler([this](const std::string& P) -> std::optional<std::string> {
        if (P.rfind("qSupported", 0) == 0) {
            return std::string("PacketSize=80;qXfer:features:read+;multiprocess+;QStartNoAckMode+");
        }
        if (P == "QStartNoAckMode") {
            Server.SendAcks = false;
            return std::string("OK");
        }
        if (P == "vCont?") {
            return std::string("vCont;c;C;s;S");
        }
        return std::string();
    });
    std::string Error;
    ASSERT_EQ(Client->Negotiate(Error), Status::Ok) << Error;
    EXPECT_EQ(Client->Features().PacketSize, 0x80u);
    EXPECT_TRUE(Client->Features().XferFeatures);
    EXPECT_TRUE(Client->Features().Multiprocess);
    EXPECT_TRUE(Client->Features().VCont);
    // Without acknowledgements on either side requests still work.
    std::string Reply;
    EXPECT_EQ(Client->Request("qFoo", Reply), Status::Ok);
}

TEST_F(ClientTest, SplitsMemoryTransfersToThePacketSize) {
    Memory Mem;
    size_t Largest = 0;
    Server.SetHandler([&](const std::string& P) -> std::optional<std::string> {
        Largest = std::max(Largest, P.size() + 4);
        return Mem.Handle(P);
    });
    Client->SetPacketSize(100);
    std::vector<uint8_t> Data(1000);
    for (size_t i = 0; i < Data.size(); ++i) {
        Data[i] = static_cast<uint8_t>(i * 13 + 1);
    }
    size_t Done = 0;
    ASSERT_EQ(Client->WriteMemory(0x20000003, Data.size(), Data.data(), Done), Status::Ok);
    EXPECT_EQ(Done, Data.size());
    EXPECT_LE(Largest, 100u) << "no packet may exceed the negotiated size";
    std::vector<uint8_t> Back(1000);
    ASSERT_EQ(Client->ReadMemory(0x20000003, Back.size(), Back.data(), Done), Status::Ok);
    EXPECT_EQ(Done, Back.size());
    EXPECT_EQ(Back, Data);
    // 50 bytes of hex per read reply at most.
    for (const std::string& P : Server.Received()) {
        if (P[0] == 'm') {
            EXPECT_LE(*ParseHexNumber(P.substr(P.find(',') + 1)), 50u) << P;
        }
    }
}

TEST_F(ClientTest, WritesEvenWithATinyPacketSize) {
    Memory Mem;
    Server.SetHandler([&](const std::string& P) { return Mem.Handle(P); });
    Client->SetPacketSize(40); // room for 10 bytes of data behind "M20000000,xxxxxxxx:"
    const std::vector<uint8_t> Data(37, 0xAB);
    size_t Done = 0;
    ASSERT_EQ(Client->WriteMemory(0x20000000, Data.size(), Data.data(), Done), Status::Ok);
    EXPECT_EQ(Done, Data.size());
    EXPECT_EQ(Mem.Bytes[36], 0xAB);
}

TEST_F(ClientTest, FindsTheReadablePartOfAFailingRange) {
    Memory Mem;
    Mem.Bytes[0xFFFF] = 0x5A;
    Server.SetHandler([&](const std::string& P) { return Mem.Handle(P); });
    std::vector<uint8_t> Back(100, 0);
    size_t Done = 0;
    // 40 readable bytes at the end of the memory, then nothing.
    ASSERT_EQ(Client->ReadMemory(0x2000FFD8, 100, Back.data(), Done), Status::Ok);
    EXPECT_EQ(Done, 40u);
    EXPECT_EQ(Back[39], 0x5A);
    ASSERT_EQ(Client->ReadMemory(0x30000000, 16, Back.data(), Done), Status::Ok);
    EXPECT_EQ(Done, 0u);
}

TEST_F(ClientTest, RejectsAReplyLargerThanAsked) {
    Server.SetHandler([](const std::string&) { return std::string("0011223344"); });
    uint8_t Back[4];
    size_t Done = 0;
    EXPECT_EQ(Client->ReadMemory(0x20000000, 4, Back, Done), Status::Protocol);
    EXPECT_EQ(Done, 0u);
}

TEST_F(ClientTest, WritesBinaryWhenTheServerTakesIt) {
    std::vector<uint8_t> Written;
    Server.SetHandler([&](const std::string& P) -> std::optional<std::string> {
        if (P[0] != 'X') {
            return std::string();
        }
        std::string Data;
        Unescape(P.substr(P.find(':') + 1), Data);
        Written.insert(Written.end(), Data.begin(), Data.end());
        return std::string("OK");
    });
    std::vector<uint8_t> Data = {'$', '#', '}', '*', 0,  1,  2,  3,  4,  5, 6,
                                 7,   8,   9,   10,  11, 12, 13, 14, 15, 16};
    size_t Done = 0;
    ASSERT_EQ(Client->WriteMemory(0x20000000, Data.size(), Data.data(), Done), Status::Ok);
    EXPECT_TRUE(Client->Features().BinaryWrite);
    EXPECT_EQ(Done, Data.size());
    EXPECT_EQ(Written, Data);
}

TEST_F(ClientTest, ReadsAnObjectInPiecesWithEscapes) {
    const std::string Xml = "<target>}#$*" + std::string(300, 'x') + "</target>";
    Server.SetHandler([&](const std::string& P) -> std::optional<std::string> {
        // qXfer:features:read:target.xml:OFFSET,LENGTH
        const size_t Colon = P.rfind(':');
        const size_t Comma = P.find(',', Colon);
        const size_t Offset = *ParseHexNumber(P.substr(Colon + 1, Comma - Colon - 1));
        const size_t Length = *ParseHexNumber(P.substr(Comma + 1));
        const std::string Piece = Xml.substr(std::min(Offset, Xml.size()), Length);
        std::string Body(1, Offset + Length >= Xml.size() ? 'l' : 'm');
        AppendEscaped(Body, reinterpret_cast<const uint8_t*>(Piece.data()), Piece.size());
        return Body;
    });
    Client->SetPacketSize(200);
    std::string Out, Error;
    ASSERT_EQ(Client->ReadXfer("features", "target.xml", Out, Error), Status::Ok) << Error;
    EXPECT_EQ(Out, Xml);
}

TEST_F(ClientTest, RunningTargetAnswersOnlyWithItsStopReply) {
    Server.SetHandler([](const std::string& P) -> std::optional<std::string> {
        if (P == "\x03") {
            return std::string("T02thread:p01.01;");
        }
        if (P == "vCont;c" || P == "c") {
            return std::nullopt;
        }
        return std::string("OK");
    });
    ASSERT_EQ(Client->StartContinue(), Status::Ok);
    EXPECT_TRUE(Client->IsRunning());
    std::string Reply, Stop;
    EXPECT_EQ(Client->Request("m0,4", Reply), Status::NotHalted);
    EXPECT_EQ(Client->WaitStop(Stop, 0), Status::Timeout) << "still running";
    EXPECT_TRUE(Client->IsAlive()) << "waiting for a stop doesn't lose the connection";
    // Console output while running goes to the handler; the stop reply ends the run.
    std::string Console;
    Client->SetConsoleHandler([&](std::string_view T) { Console += T; });
    Server.SendPacket("O" + HexOfText("hello\n"));
    Server.SendPacket("T05thread:p01.01;");
    ASSERT_EQ(Client->WaitStop(Stop, 1000), Status::Ok);
    EXPECT_EQ(Stop, "T05thread:p01.01;");
    EXPECT_EQ(Console, "hello\n");
    EXPECT_FALSE(Client->IsRunning());
}

TEST_F(ClientTest, AnotherThreadInterruptsARunningTarget) {
    Server.SetHandler([](const std::string& P) -> std::optional<std::string> {
        if (P == "\x03") {
            return std::string("T02thread:p01.01;");
        }
        return P == "c" ? std::nullopt : std::optional<std::string>("OK");
    });
    ASSERT_EQ(Client->StartContinue(), Status::Ok);
    std::string Stop;
    std::thread Waiter([&] { EXPECT_EQ(Client->WaitStop(Stop, 2000), Status::Ok); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(Client->SendInterrupt());
    Waiter.join();
    EXPECT_EQ(Stop, "T02thread:p01.01;");
    EXPECT_EQ(Server.Interrupts(), 1);
    EXPECT_FALSE(Client->SendInterrupt()) << "no interrupt for a halted target";
}

TEST_F(ClientTest, InterruptOfAHaltedTargetSendsNothing) {
    std::string Stop;
    EXPECT_EQ(Client->Interrupt(Stop, 100), Status::Ok);
    EXPECT_TRUE(Stop.empty());
    EXPECT_EQ(Server.Interrupts(), 0);
}

TEST_F(ClientTest, MonitorCollectsConsoleOutput) {
    Server.SetHandler([](const std::string& P) -> std::optional<std::string> {
        if (P.rfind("qRcmd,", 0) != 0) {
            return std::string();
        }
        return "O" + HexOfText("resetting\n") + "\x1e" + "O" + HexOfText("done\n") + "\x1eOK";
    });
    std::string Output;
    const Reply R = Client->Monitor("reset halt", Output);
    EXPECT_TRUE(R.IsOk());
    EXPECT_EQ(Output, "resetting\ndone\n");
    ASSERT_EQ(Server.Received().size(), 1u);
    EXPECT_EQ(Server.Received()[0], "qRcmd," + HexOfText("reset halt"));
}
