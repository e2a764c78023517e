#include "app/core/Catalogue.h"
#include "app/core/Log.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(Catalogue, RowsCodesAndFormats) {
    InitCatalog();
    int Absent = 0;
    for (int i = 0; i < CATALOG_COUNT; ++i) {
        const CATALOG_ROW* Row = GetCatalogRow(i);
        if (!Row) {
            ++Absent;
            continue;
        }
        EXPECT_EQ(Row->Code, Row->Base + static_cast<U32>(i));
        U32 Percent = 0;
        for (const char* P = Row->Text; *P; ++P) {
            Percent += *P == '%';
        }
        EXPECT_EQ(Row->ArgCount, Percent) << i;
    }
    EXPECT_EQ(Absent, 0);
    EXPECT_EQ(CatalogIndexOfCode(2075), 75);
    EXPECT_EQ(CatalogIndexOfCode(5095), 95);
    EXPECT_EQ(CatalogIndexOfCode(1096), -1);
    EXPECT_EQ(GetCatalogRow(96), nullptr);
    EXPECT_EQ(GetCatalogRow(-1), nullptr);
}

TEST(Catalogue, TextsOfEachGroup) {
    EXPECT_EQ(CatalogText(2, "'.debug_str'"), "ELF warning (1002): ELF data section '.debug_str' is empty..");
    EXPECT_EQ(CatalogText(23), "ELF error (1023): file not tagged with ELF magic number.");
    EXPECT_EQ(CatalogText(75, "Project.SetDevice"),
              "Project warning (2075): project command specified twice: Project.SetDevice.");
    EXPECT_EQ(
        CatalogText(79, "3 MHz", "2 MHz"),
        "warning (3079): the requested power sampling frequency (3 MHz) is not supported. Selecting 2 MHz.");
    EXPECT_EQ(CatalogText(92, "/tmp/t.log"), "logging terminal content to /tmp/t.log.")
        << "info rows are bare";
    EXPECT_EQ(CatalogText(93), "auto-configuring the hardware for the byte order of the program file.");
    EXPECT_EQ(CatalogText(94, "/x.hex", 7),
              "error (5094): Could not open file /x.hex: file contains corrupt data "
              "record at line 7.");
    EXPECT_EQ(CatalogText(45, 0x800u), "ELF warning (1045): no call frame information for PC 0x800.");
    EXPECT_EQ(CatalogBareText(70, "a.svd"), "file not found: a.svd");
    EXPECT_EQ(CatalogTextWithHint(30),
              "ELF error (1030): file could not be opened for reading.. Refer to the "
              "user guide and application logfile for further information.");
    EXPECT_TRUE(CatalogText(96).isEmpty());
}

TEST(Catalogue, BufferFormsCutAndTerminate) {
    char Buffer[16];
    std::memset(Buffer, 'z', sizeof(Buffer));
    const int Length = GetCatalogText(23, Buffer, sizeof(Buffer));
    EXPECT_EQ(Length, 15);
    EXPECT_EQ(Buffer[15], '\0');
    EXPECT_EQ(GetCatalogText(96, Buffer, sizeof(Buffer)), 0);
    EXPECT_EQ(Buffer[0], '\0');
    char Big[512];
    EXPECT_GT(GetCatalogTextWithHint(0, Big, sizeof(Big)), 0);
    EXPECT_STREQ(Big,
                 "ELF warning (1000): insufficient memory.. Refer to the user guide and application logfile "
                 "for further information.");
    EXPECT_EQ(GetCatalogBareText(1, nullptr, 0), 0);
}

} // namespace
