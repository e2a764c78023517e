// Broken debug information: the file still opens, the reader reports what it could not read and keeps
// what it could.

#include "Toolchain.h"
#include "program/DwarfReader.h"
#include "program/ElfParser.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

std::vector<I32> g_Codes;

void Collect(const ELF_ERROR_RECORD& R, void*) {
    g_Codes.push_back(R.Code);
}

/// The target program with the size field of one section's header set to Size.
QString WithSectionSize(const QTemporaryDir& Dir, const char* Section, U32 Size) {
    const QString Elf = Toolchain::FirmwareElfs().filter(QStringLiteral("types-O2-dwarf5")).first();
    QFile In(Elf);
    EXPECT_TRUE(In.open(QIODevice::ReadOnly));
    QByteArray B = In.readAll();
    ELF_FILE* F = ELF_Open(Elf, false);
    const I32 Index = ELF_FindSection(F, Section);
    EXPECT_GE(Index, 0);
    const U32 Header = ELF_GetHeader(F)->e_shoff + 40 * static_cast<U32>(Index);
    ELF_Close(F);
    std::memcpy(B.data() + Header + 20, &Size, 4);
    const QString Out = Dir.filePath(QString::fromLatin1(Section).mid(1) + QStringLiteral(".elf"));
    QFile O(Out);
    EXPECT_TRUE(O.open(QIODevice::WriteOnly));
    O.write(B);
    return Out;
}

TEST(DwarfBadInput, TruncatedSectionsOpenWithWhatCouldBeRead) {
    QTemporaryDir Dir;
    for (const char* Section :
         {".debug_info", ".debug_line", ".debug_abbrev", ".debug_str", ".debug_frame"}) {
        SCOPED_TRACE(Section);
        g_Codes.clear();
        ELF_SetErrorCallback(Collect, nullptr);
        ELF_FILE* F = ELF_Open(WithSectionSize(Dir, Section, 40), true);
        ELF_SetErrorCallback(nullptr, nullptr);
        ASSERT_NE(F, nullptr);
        EXPECT_FALSE(g_Codes.empty());
        // Every list and accessor answers without crashing on what is left.
        for (int L = 0; L < ELF_LIST_COUNT; ++L) {
            for (U32 i = 0; i < ELF_GetSymListCount(F, L); ++i) {
                const ELF_SYM_HANDLE H = ELF_GetSymListItem(F, L, i);
                EXPECT_NE(ELF_GetSymTag(H), ELF_INVALID_TAG);
                ELF_GetSymTypeName(H);
                ELF_GetSymByteSize(H);
                ELF_GetSymScopes(H);
            }
        }
        ELF_CloseAll();
    }
}

TEST(DwarfBadInput, HandlesOfAnotherKindOrFileAreNeutral) {
    ELF_FILE* F = ELF_Open(Toolchain::FirmwareElfs().first(), true);
    ASSERT_NE(F, nullptr);
    const ELF_SYM_HANDLE H = ELF_GetSymListItem(F, ELF_LIST_FUNCTIONS, 0);
    EXPECT_NE(ELF_GetSymTag(H), ELF_INVALID_TAG);
    EXPECT_EQ(ELF_GetSymTag(H ^ (1ull << 40)), ELF_INVALID_TAG); // marker
    EXPECT_EQ(ELF_GetSymTag(H + (1ull << 35)), ELF_INVALID_TAG); // empty slot
    EXPECT_EQ(ELF_GetSymTag(ELF_MakeDebugHandle(0, 0x7FFFFFF0, false)), ELF_INVALID_TAG);
    EXPECT_STREQ(ELF_GetSymName(0), "");
    ELF_CloseAll();
    EXPECT_EQ(ELF_GetSymTag(H), ELF_INVALID_TAG);
}

} // namespace
