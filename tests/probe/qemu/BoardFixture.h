#pragma once

// Tests on the emulated board through the exported functions: the library starts its own QEMU for
// each test, the fixture downloads a target program and resets, and closes the session afterwards.

#include "../ApiFixture.h"
#include "kit/ElfImage.h"

#include <string>

namespace probetest {

constexpr U32 AnyBp = 0xFFFFFFF0, HardBp = 0xFFFFFF00, SoftBp = 0x000000F0;

class Board : public ApiTest {
protected:
    /// Connects the board, downloads the program (unless empty) and resets.
    void Start(const std::string& Device, const std::string& Program,
               const std::string& Variant = "O0-dwarf4") {
        ASSERT_EQ(TARVOARM_SelectUSB(0), 0);
        ASSERT_EQ(TARVOARM_Open(), nullptr);
        ASSERT_EQ(Exec("device=" + Device), "");
        ASSERT_EQ(TARVOARM_Connect(), 0) << ::testing::PrintToString(Messages::Get().Lines());
        ASSERT_TRUE(TARVOARM_IsConnected());
        if (Program.empty()) {
            return;
        }
        std::string Error;
        ASSERT_TRUE(Elf.Load(FirmwarePath(Program, Variant), Error)) << Error;
        for (const Segment& S : Elf.Segments()) {
            ASSERT_EQ(TARVOARM_WriteMemEx(S.Address, static_cast<U32>(S.Bytes.size()), S.Bytes.data(), 0),
                      static_cast<int>(S.Bytes.size()));
        }
        ASSERT_EQ(TARVOARM_Reset(), 0);
        ASSERT_EQ(TARVOARM_IsHalted(), 1);
    }

    /// Runs to a function (or address) with a temporary breakpoint.
    void RunTo(const std::string& Symbol) { RunToAddress(Elf.Symbol(Symbol)); }
    void RunToAddress(U32 Address) {
        ASSERT_NE(Address, 0u);
        const int Handle = TARVOARM_SetBPEx(Address, AnyBp);
        ASSERT_GT(Handle, 0);
        TARVOARM_GoEx(0, 1);
        ASSERT_EQ(WaitHalted(), 1);
        ASSERT_EQ(TARVOARM_ClrBPEx(Handle), 0);
        ASSERT_EQ(Reg(TARVO_REG_PC), Address);
    }

    U32 Word(U32 Address) {
        U32 V = 0;
        U8 Status = 1;
        EXPECT_EQ(TARVOARM_ReadMemU32(Address, 1, &V, &Status), 1) << std::hex << Address;
        return V;
    }

    ElfImage Elf;
};

/// The process id of the emulated board that this process started, 0 if there is none.
int EmulatedBoardPid();

} // namespace probetest
