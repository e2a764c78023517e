// Instruction facts of hand-picked encodings: flow, targets, literals, stack changes, IT blocks, and
// the encodings each core variant refuses.
#include "ArmPlugin.h"

#include "probe/TarvoCores.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

constexpr U32 BRANCH = INST_BRANCH;
constexpr U32 OTHER = INST_BRANCH_OTHER;
constexpr U32 DIRECT = INST_BRANCH | INST_DIRECT | INST_TARGET_KNOWN;
constexpr U32 RETURN = INST_BRANCH | INST_RETURN | INST_BRANCH_OTHER;
constexpr U32 COND = INST_CONDITIONAL;

// Assembled at 0x1000 with arm-none-eabi-as -march=armv7e-m+fp -mfpu=fpv4-sp-d16; the objdump listing
// is beside each row.
void SetListing() {
    ArmPlugin::SetCode(0x1000,
                       {0xF000, 0xF82C, 0x4770, 0xBD10, 0xE8BD, 0x81F0, 0xF85D, 0xFB04, 0xB510, 0xE92D,
                        0x41F0, 0xF84D, 0x4D04, 0xB084, 0xB004, 0xF5AD, 0x7D80, 0xF2AD, 0x0D04, 0xED2D,
                        0x8B04, 0xECBD, 0x8A02, 0xB1A8, 0xBF08, 0x2001, 0x2002, 0xD111, 0xF000, 0xB810,
                        0x4808, 0xF8DF, 0x1020, 0xA207, 0x4798, 0x46F7, 0xE8DF, 0xF000, 0xDF01, 0xBEAB,
                        0xBF00, 0xBF14, 0x2001, 0xBD10, 0xF8DF, 0xF000, 0xBF00, 0xBF00, 0x5678, 0x1234});
}

struct Row {
    U64 Addr;
    I32 Size;
    U32 Flags;
    U64 Target;
    I32 SPDelta;
    const char* Text;
};

const Row s_Rows[] = {
    {0x1000, 4, DIRECT | INST_CALL, 0x105C, 0, "bl\t0x0000105C"},  // bl 105c <func>
    {0x1004, 2, RETURN, 0, 0, "bx\tlr"},                           // bx lr
    {0x1006, 2, RETURN, 0, 8, "pop\t{r4, pc}"},                    // pop {r4, pc}
    {0x1008, 4, RETURN, 0, 24, "pop.w\t{r4, r5, r6, r7, r8, pc}"}, // ldmia.w sp!, {r4-r8, pc}
    {0x100C, 4, RETURN, 0, 4, "ldr\tpc, [sp], #4"},                // ldr.w pc, [sp], #4
    {0x1010, 2, 0, 0, -8, "push\t{r4, lr}"},                       // push {r4, lr}
    {0x1012, 4, 0, 0, -24, "push.w\t{r4, r5, r6, r7, r8, lr}"},    // stmdb sp!, {r4-r8, lr}
    {0x1016, 4, 0, 0, -4, "str\tr4, [sp, #-0x4]!"},                // str.w r4, [sp, #-4]!
    {0x101A, 2, 0, 0, -16, "sub\tsp, #0x10"},                      // sub sp, #16
    {0x101C, 2, 0, 0, 16, "add\tsp, #0x10"},                       // add sp, #16
    {0x101E, 4, 0, 0, -256, "sub.w\tsp, sp, #0x100"},              // sub.w sp, sp, #256
    {0x1022, 4, 0, 0, -4, "subw\tsp, sp, #4"},                     // subw sp, sp, #4
    {0x1026, 4, 0, 0, -16, "vpush\t{d8, d9}"},                     // vpush {d8-d9}
    {0x102A, 4, 0, 0, 8, "vpop\t{s16, s17}"},                      // vpop {s16-s17}
    {0x102E, 2, DIRECT | COND, 0x105C, 0, "cbz\tr0, 0x0000105C"},  // cbz r0, 105c <func>
    {0x1030, 2, 0, 0, 0, "it\teq"},                                // it eq
    {0x1032, 2, COND, 0, 0, "moveq\tr0, #1"},                      // moveq r0, #1
    {0x1034, 2, 0, 0, 0, "movs\tr0, #2"},                          // movs r0, #2
    {0x1036, 2, DIRECT | COND, 0x105C, 0, "bne\t0x0000105C"},      // bne.n 105c <func>
    {0x1038, 4, DIRECT, 0x105C, 0, "b.w\t0x0000105C"},             // b.w 105c <func>
    {0x103C, 2, INST_LITERAL, 0x1060, 0, "ldr\tr0, [pc, #0x20]\t; [0x00001060] = 0x12345678"},
    {0x103E, 4, INST_LITERAL, 0x1060, 0, "ldr.w\tr1, [pc, #0x20]\t; [0x00001060] = 0x12345678"},
    {0x1042, 2, INST_LITERAL, 0x1060, 0, "adr\tr2, 0x00001060"},               // add r2, pc, #28
    {0x1044, 2, BRANCH | INST_CALL | OTHER, 0, 0, "blx\tr3"},                  // blx r3
    {0x1046, 2, RETURN, 0, 0, "mov\tpc, lr"},                                  // mov pc, lr
    {0x1048, 4, BRANCH | OTHER, 0, 0, "tbb\t[pc, r0]"},                        // tbb [pc, r0]
    {0x104C, 2, BRANCH | INST_CALL | OTHER, 0, 0, "svc\t#1"},                  // svc 1
    {0x104E, 2, INST_SKIP_ON_RESUME | INST_NOT_STRAIGHT, 0, 0, "bkpt\t#0xAB"}, // bkpt 0x00ab
    {0x1050, 2, INST_PADDING, 0, 0, "nop"},                                    // nop
    {0x1052, 2, 0, 0, 0, "ite\tne"},                                           // ite ne
    {0x1054, 2, COND, 0, 0, "movne\tr0, #1"},                                  // movne r0, #1
    {0x1056, 2, RETURN | COND, 0, 8, "popeq\t{r4, pc}"},                       // popeq {r4, pc}
    {0x1058, 4, BRANCH | OTHER | INST_LITERAL, 0x105C, 0, "ldr.w\tpc, [pc, #0]\t; [0x0000105C] = 0xBF00BF00"},
};

class AnalyzeTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_GE(ArmPlugin::Load(TARVO_CORE_CORTEX_M4), 0); }
    void TearDown() override { CoreDebugger::ClearProgramImage(); }
    /// Whether the instruction at 0x100 decodes for the core loaded.
    static bool Decodes(U32 Core, std::initializer_list<U16> Halfwords) {
        EXPECT_GE(ArmPlugin::Load(Core), 0);
        ArmPlugin::SetCode(0x100, Halfwords);
        int Result = -1;
        const INST_INFO Info = ArmPlugin::Analyze(0x100, &Result);
        return Result == 0 && Info.Size == static_cast<I32>(2 * Halfwords.size());
    }
};

TEST_F(AnalyzeTest, FlowTargetsLiteralsAndStackChanges) {
    SetListing();
    for (const Row& R : s_Rows) {
        SCOPED_TRACE(R.Text);
        int Result = -1;
        const INST_INFO Info = ArmPlugin::Analyze(R.Addr, &Result);
        EXPECT_EQ(Result, 0);
        EXPECT_EQ(Info.Mode, 2u);
        EXPECT_EQ(Info.Size, R.Size);
        EXPECT_EQ(Info.Flags, R.Flags);
        EXPECT_EQ(Info.Target, R.Target);
        EXPECT_EQ(Info.SPDelta, R.SPDelta);
        EXPECT_EQ(ArmPlugin::Print(R.Addr), R.Text);
    }
}

TEST_F(AnalyzeTest, TwoThreadsDecodeAlike) {
    // The GUI thread and the device thread both decode; each must see what one thread alone sees.
    SetListing();
    auto Run = [](QStringList& Out) {
        for (int Round = 0; Round < 50; ++Round) {
            for (const Row& R : s_Rows) {
                Out << ArmPlugin::Print(R.Addr);
            }
        }
    };
    QStringList A, B, Alone;
    Run(Alone);
    std::thread T([&] { Run(A); });
    Run(B);
    T.join();
    EXPECT_EQ(A, Alone);
    EXPECT_EQ(B, Alone);
}

TEST_F(AnalyzeTest, NoInstructionAtOddOrUnreadableAddresses) {
    SetListing();
    int Result = 0;
    const INST_INFO Odd = ArmPlugin::Analyze(0x1001, &Result);
    EXPECT_GT(Result, 0);
    EXPECT_LE(Odd.Size, 0);
    ArmPlugin::Analyze(0x2000, &Result);
    EXPECT_LT(Result, 0);
    // The first half of a 32-bit instruction at the end of what can be read.
    ArmPlugin::SetCode(0x100, {0x2001, 0xF000});
    ArmPlugin::Analyze(0x102, &Result);
    EXPECT_LT(Result, 0);
    EXPECT_EQ(ArmPlugin::Analyze(0x100, &Result).Size, 2);
    EXPECT_EQ(Result, 0);
    // The record's size decides what PrintInst may show.
    char Text[64];
    EXPECT_LT(ArmPlugin::Api().PrintInst(0x1000, 2, Text, sizeof Text), 1);
}

TEST_F(AnalyzeTest, ItBlocksSurviveLookalikesBeforeThem) {
    // vcmp.f32 s14, #0.0; vmrs APSR_nzcv, fpscr; ite eq; moveq r3, #1; movne r3, #2. The second half
    // of the VMRS looks like the start of a 32-bit instruction.
    ArmPlugin::SetCode(0x200, {0xEEB5, 0x7A40, 0xEEF1, 0xFA10, 0xBF0C, 0x2301, 0x2302, 0x2303});
    EXPECT_EQ(ArmPlugin::Print(0x20A), "moveq\tr3, #1");
    EXPECT_EQ(ArmPlugin::Print(0x20C), "movne\tr3, #2");
    EXPECT_EQ(ArmPlugin::Analyze(0x20C).Flags, COND);
    EXPECT_EQ(ArmPlugin::Print(0x20E), "movs\tr3, #3");
    // A literal word 0x0001BFE4 before code: "itt al" is no block a compiler writes.
    ArmPlugin::SetCode(0x300, {0xBFE4, 0x0001, 0x2006, 0xB508});
    EXPECT_EQ(ArmPlugin::Print(0x304), "movs\tr0, #6");
    // Read back from b.n at 0x880C, the halfword 0xBFD3 is the second half of a b.w in one parse and an
    // IT in the other; the parse from the first halfword of the window wins (ldmia.w; b.w; cmp.w;
    // blt.n; vldr; then the instruction).
    ArmPlugin::SetCode(0x87FA,
                       {0xE8BD, 0x47F0, 0xF001, 0xBFD3, 0xF1B9, 0x0F00, 0xDB05, 0xED9F, 0x0B2F, 0xE7EC});
    EXPECT_EQ(ArmPlugin::Print(0x880C), "b\t0x000087E8");
    EXPECT_EQ(ArmPlugin::Analyze(0x880C).Flags, DIRECT);
}

TEST_F(AnalyzeTest, ItInADataRegionIsALiteral) {
    // Data "0xBF08" then code "movs r0, #1": with the mapping symbols saying data, no IT block.
    struct Regions : ICoreDebuggerServices {
        int GetMappingRegion(U64 Addr, const char** psName, U64* pStart, U64* pEnd) override {
            *psName = Addr < 0x402 ? "$d" : "$t";
            *pStart = Addr < 0x402 ? 0x400 : 0x402;
            *pEnd = Addr < 0x402 ? 0x402 : 0x410;
            return 0;
        }
    } Services;
    ArmPlugin::SetCode(0x400, {0xBF08, 0x2001});
    EXPECT_EQ(ArmPlugin::Print(0x402), "moveq\tr0, #1");
    CoreDebugger::SetServices(&Services);
    EXPECT_EQ(ArmPlugin::Print(0x402), "movs\tr0, #1");
    CoreDebugger::SetServices(nullptr);
}

TEST_F(AnalyzeTest, EachCoreRefusesWhatItsVariantLacks) {
    const std::initializer_list<U16> AddW = {0xF103, 0x0C20}, Cbz = {0xB108}, It = {0xBF08},
                                     Mrs = {0xF3EF, 0x8008}, Dmb = {0xF3BF, 0x8F5F}, Bl = {0xF000, 0xF82C},
                                     Sadd16 = {0xFA91, 0xF002}, VaddF32 = {0xEE30, 0x0A20},
                                     VselEq = {0xFE00, 0x0A81}, VaddF64 = {0xEE31, 0x0B02},
                                     Sg = {0xE97F, 0xE97F}, Tt = {0xE841, 0xF000}, Movw = {0xF241, 0x2034},
                                     Lda = {0xE8D1, 0x0FAF}, Mls = {0xFB01, 0x3012}, Sdiv = {0xFB91, 0xF0F2},
                                     Ldrex = {0xE851, 0x0F00};
    // ARMv6-M: 16-bit Thumb without CBZ and IT, and six 32-bit instructions.
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M0, AddW));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M0, Cbz));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M0P, It));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M0, Sdiv));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M0, Mrs));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M0, Dmb));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M0, Bl));
    // ARMv8-M Baseline adds CBZ, MOVW, divide, exclusives and the security extension, not IT or MLS.
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M23, Cbz));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M23, Movw));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M23, Sdiv));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M23, Ldrex));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M23, Lda));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M23, Sg));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M23, It));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M23, Mls));
    // ARMv7-M: all of Thumb-2, but no DSP, floating point or load-acquire.
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M3, AddW));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M3, Mls));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M3, Sadd16));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M3, VaddF32));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M3, Lda));
    // Cortex-M4: DSP and single precision; Cortex-M7 adds FPv5 and double precision.
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M4, Sadd16));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M4, VaddF32));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M4, VselEq));
    EXPECT_FALSE(Decodes(TARVO_CORE_CORTEX_M4, VaddF64));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M7, VselEq));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M7, VaddF64));
    // Cortex-M33: ARMv8-M Mainline with the security extension.
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M33, Lda));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M33, Tt));
    EXPECT_TRUE(Decodes(TARVO_CORE_CORTEX_M33, Sadd16));
}

TEST_F(AnalyzeTest, TheSecurityExtension) {
    ASSERT_GE(ArmPlugin::Load(TARVO_CORE_CORTEX_M33), 0);
    // sg; tt r0, r1; ttat r6, r7; bxns lr; blxns r3; vlldm r0; vlstm r1
    ArmPlugin::SetCode(0x500, {0xE97F, 0xE97F, 0xE841, 0xF000, 0xE847, 0xF6C0, 0x4774, 0x479C, 0xEC30, 0x0A00,
                               0xEC21, 0x0A00});
    EXPECT_EQ(ArmPlugin::Print(0x500), "sg");
    EXPECT_EQ(ArmPlugin::Print(0x504), "tt\tr0, r1");
    EXPECT_EQ(ArmPlugin::Print(0x508), "ttat\tr6, r7");
    EXPECT_EQ(ArmPlugin::Print(0x50C), "bxns\tlr");
    EXPECT_EQ(ArmPlugin::Analyze(0x50C).Flags, RETURN);
    EXPECT_EQ(ArmPlugin::Print(0x50E), "blxns\tr3");
    EXPECT_EQ(ArmPlugin::Analyze(0x50E).Flags, BRANCH | INST_CALL | OTHER);
    EXPECT_EQ(ArmPlugin::Print(0x510), "vlldm\tr0");
    EXPECT_EQ(ArmPlugin::Print(0x514), "vlstm\tr1");
}

} // namespace
