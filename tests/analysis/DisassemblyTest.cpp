// Every instruction of the target programs, decoded by the plug-in and by binutils' objdump.
#include "ArmPlugin.h"
#include "ElfImage.h"
#include "Normalise.h"

#include "probe/TarvoCores.h"

#include <gtest/gtest.h>

namespace {

/// The programs to check: the build's target programs, or the list in ARNEX_DISASM_ELFS (any other
/// Cortex-M programs to try the plug-in on).
QStringList Programs() {
    const QString Override = qEnvironmentVariable("ARNEX_DISASM_ELFS");
    return (Override.isEmpty() ? QStringLiteral(ARNEX_FIRMWARE_ELFS) : Override)
        .split(';', Qt::SkipEmptyParts);
}

/// The core whose instruction set the program was built for, from its build attributes.
U32 CoreFor(const QString& Arch, const QString& FpArch) {
    if (Arch.startsWith(QLatin1String("v6"))) {
        return TARVO_CORE_CORTEX_M0;
    }
    if (Arch == QLatin1String("v8-M.baseline")) {
        return TARVO_CORE_CORTEX_M23;
    }
    if (Arch == QLatin1String("v8-M.mainline")) {
        return TARVO_CORE_CORTEX_M33;
    }
    if (Arch == QLatin1String("v7E-M")) {
        return FpArch.startsWith(QLatin1String("FPv5")) ? TARVO_CORE_CORTEX_M7 : TARVO_CORE_CORTEX_M4;
    }
    return TARVO_CORE_CORTEX_M3;
}

std::string Hex(U64 V) {
    return QString::number(V, 16).toStdString();
}

/// Compares one program; the number of instructions that differ.
int CheckProgram(const QString& Elf, int& Checked) {
    ElfImage Image;
    EXPECT_EQ(ReadElfImage(Elf, Image), QString());
    QString Arch, FpArch;
    EXPECT_EQ(ReadCpuArch(Elf, Arch, FpArch), QString());
    QVector<OBJDUMP_LINE> Lines;
    EXPECT_EQ(RunObjdump(Elf, Lines), QString());
    EXPECT_GE(ArmPlugin::Load(CoreFor(Arch, FpArch)), 0);
    CoreDebugger::SetProgramImage(Image.Segments);
    CORE_INFO Core{};
    ArmPlugin::Api().GetCoreInfo(&Core, sizeof Core);

    int Failed = 0;
    for (const OBJDUMP_LINE& L : Lines) {
        if (L.IsData) {
            continue;
        }
        ++Checked;
        int Result = 0;
        const INST_INFO Info = ArmPlugin::Analyze(L.Addr, &Result);
        const QString Text = ArmPlugin::Print(L.Addr);
        const QString Want = NormaliseObjdump(L);
        const QString Got = NormalisePlugin(Text);
        // A literal load reads the word objdump names in its comment.
        const bool AdrForm = Text.startsWith(QLatin1String("adr"));
        const U64 Literal = ObjdumpCommentAddress(L);
        const bool LiteralWrong =
            (Info.Flags & INST_LITERAL) && !AdrForm && Literal != ~U64(0) && Info.Target != Literal;
        const bool MnemonicTooLong = Text.indexOf('\t') > static_cast<int>(Core.MaxMnemonicLen);
        if (Result == 0 && Info.Size == L.Size && Want == Got && !LiteralWrong && !MnemonicTooLong) {
            continue;
        }
        if (++Failed <= 20) {
            ADD_FAILURE() << "at 0x" << Hex(L.Addr) << ": objdump \"" << L.Mnemonic.toStdString() << ' '
                          << L.Operands.toStdString() << "\" (" << L.Size << " bytes), plug-in \""
                          << Text.toStdString() << "\" (" << Info.Size << " bytes, result " << Result
                          << ", literal 0x" << Hex(Info.Target) << ")\n  compared: \"" << Want.toStdString()
                          << "\" with \"" << Got.toStdString() << '"';
        }
    }
    CoreDebugger::ClearProgramImage();
    return Failed;
}

TEST(DisassemblyTest, EveryInstructionOfTheTargetProgramsMatchesObjdump) {
    const QStringList Elfs = Programs();
    ASSERT_FALSE(Elfs.isEmpty());
    for (const QString& Elf : Elfs) {
        SCOPED_TRACE(Elf.toStdString());
        int Checked = 0;
        const int Failed = CheckProgram(Elf, Checked);
        EXPECT_GT(Checked, 0);
        EXPECT_EQ(Failed, 0) << Failed << " of " << Checked << " instructions differ";
    }
}

} // namespace
