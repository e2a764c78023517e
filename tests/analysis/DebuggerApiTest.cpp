// The debugger's record for the plug-in: memory from the cache, the program image and the target,
// in that order, and the plug-in's log levels.
#include "ConsoleCapture.h"

#include "analysis/CoreDebuggerApi.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>

namespace {

/// Counts the reads that reach the cache and the target; each answers with its own fill byte.
struct Memory : ICoreDebuggerServices {
    bool CacheHas = false;
    bool TargetHas = false;
    int CacheReads = 0;
    int TargetReads = 0;
    int ReadCachedMem(U64, U32 Size, void* pBuf) override {
        ++CacheReads;
        if (CacheHas) {
            memset(pBuf, 0xCC, Size);
        }
        return CacheHas ? 0 : -1;
    }
    int ReadTargetMem(U64, U32 Size, void* pBuf) override {
        ++TargetReads;
        if (TargetHas) {
            memset(pBuf, 0x77, Size);
        }
        return TargetHas ? 0 : -1;
    }
};

class DebuggerApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        CoreDebugger::SetProgramImage({{0x2000, QByteArray(16, '\x11')}, {0x1000, QByteArray(8, '\x22')}},
                                      0x8000, 0x1234);
        m_Console.Lines();
    }
    void TearDown() override {
        CoreDebugger::SetServices(nullptr);
        CoreDebugger::ClearProgramImage();
    }
    const CORE_DEBUGGER_API& Api() { return *CoreDebugger::GetApi(); }
    ConsoleCapture m_Console;
};

TEST_F(DebuggerApiTest, ProgramImageReadsStayInsideOneSegment) {
    U8 B[16] = {};
    EXPECT_EQ(Api().ReadProgramImage(0x1000, 8, B), 8);
    EXPECT_EQ(B[7], 0x22);
    EXPECT_EQ(Api().ReadProgramImage(0x200C, 4, B), 4);
    EXPECT_EQ(Api().ReadProgramImage(0x200D, 4, B), -1); // runs past the end
    EXPECT_EQ(Api().ReadProgramImage(0x0FFF, 2, B), -1); // starts before the first
    EXPECT_EQ(Api().ReadProgramImage(0x1800, 2, B), -1); // between segments
    EXPECT_EQ(Api().ReadProgramImage(0x1000, 0, B), 0);
    EXPECT_EQ(Api().ReadProgramImage(0xFFFFFFFFFFFFFFFFull, 2, B), -1);
}

TEST_F(DebuggerApiTest, ReadMemTriesCacheThenImageThenTarget) {
    Memory M;
    CoreDebugger::SetServices(&M);
    U8 B[4] = {};
    ASSERT_EQ(Api().ReadMem(0x2000, 4, B), 0);
    EXPECT_EQ(B[0], 0x11);
    EXPECT_EQ(M.CacheReads, 1);
    EXPECT_EQ(M.TargetReads, 0);
    M.CacheHas = true;
    ASSERT_EQ(Api().ReadMem(0x2000, 4, B), 0);
    EXPECT_EQ(B[0], 0xCC);
    M.CacheHas = false;
    EXPECT_EQ(Api().ReadMem(0x3000, 4, B), -1);
    EXPECT_EQ(M.TargetReads, 1);
    M.TargetHas = true;
    ASSERT_EQ(Api().ReadMem(0x3000, 4, B), 0);
    EXPECT_EQ(B[3], 0x77);
}

TEST_F(DebuggerApiTest, AReadOfNothingIsLogged) {
    U8 B[4];
    EXPECT_EQ(Api().ReadMem(0x2000, 0, B), -1);
    EXPECT_EQ(m_Console.Lines(), QStringList({"Invalid target memory read request of size 0"}));
}

TEST_F(DebuggerApiTest, ProgramRange) {
    U64 R[3] = {};
    ASSERT_EQ(Api().GetProgramRange(R), 0);
    EXPECT_EQ(R[0], 0x1000u);
    EXPECT_EQ(R[1], 0x8000u);
    EXPECT_EQ(R[2], 0x1234u);
    CoreDebugger::ClearProgramImage();
    EXPECT_EQ(Api().GetProgramRange(R), -1);
}

TEST_F(DebuggerApiTest, WithoutServicesLookUpsFindNothing) {
    const char* Name = nullptr;
    U64 Start = 0, End = 0;
    EXPECT_EQ(Api().GetMappingRegion(0x1000, &Name, &Start, &End), -1);
    EXPECT_EQ(Api().GetSymbolAt(0x1000, &Name, &Start, &End), -1);
    void* Frames = nullptr;
    EXPECT_EQ(Api().GetFrameRegs(&Frames), -1);
}

TEST_F(DebuggerApiTest, LogLevels) {
    EXPECT_EQ(Api().Log("error text", 0), 0);
    EXPECT_EQ(Api().Log("info text", 2), 0);
    EXPECT_EQ(m_Console.Lines(), QStringList({"Error text", "Info text"}));
    // Level 1 goes only to a log file, and only while there is one.
    QTemporaryDir Dir;
    EXPECT_EQ(Api().Log("warning text", 1), 0);
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_APP, Dir.filePath("app.log")));
    EXPECT_EQ(Api().Log("warning text", 1), 0);
    FlushLogBuffer();
    CloseLogChannel(LOG_CHANNEL_APP);
    QFile F(Dir.filePath("app.log"));
    ASSERT_TRUE(F.open(QIODevice::ReadOnly));
    EXPECT_EQ(F.readAll().count("Warning text"), 1);
    EXPECT_TRUE(m_Console.Lines().isEmpty());
    EXPECT_EQ(Api().Log("x", 3), -1);
    EXPECT_EQ(Api().Log(nullptr, 0), -1);
}

} // namespace
