#pragma once

#include "app/core/Types.h"

#include <QString>

/// Number of rows of the message catalogue.
constexpr int CATALOG_COUNT = 96;

/// Bases of the catalogue's groups: the code of a row is Base + Index.
enum CATALOG_BASES : U32 {
    CATALOG_BASE_PROGRAM_FILE = 1000,
    CATALOG_BASE_PROJECT = 2000,
    CATALOG_BASE_POWER = 3000,
    CATALOG_BASE_WINDOWS = 4000,
    CATALOG_BASE_FILE_READING = 5000,
};

/// A row as compiled in.
struct CATALOG_ROW_DEF {
    I32 Index; ///< must equal the row's position, else the row counts as absent
    U32 Flags; ///< MSG_FLAGS
    U32 Base;
    const char* Text;
};

/// A row with what start-up computes.
struct CATALOG_ROW {
    I32 Index;
    U32 Flags;
    U32 Base;
    U32 Code;
    U32 ArgCount;     ///< number of "%" in the text
    char Format[256]; ///< the text as printed
    const char* Text;
};

extern const CATALOG_ROW_DEF g_CatalogRows[CATALOG_COUNT];

/// Computes Code, ArgCount and Format of each row. Start-up calls it once; later calls do nothing.
void InitCatalog();
/// The row at Index, or null when the index is out of range or the row is absent.
const CATALOG_ROW* GetCatalogRow(int Index);
/// Index of the row with a code such as 2075, or -1.
int CatalogIndexOfCode(U32 Code);

/// Prints the row's Format with the arguments; an index out of range gives an empty string. Returns the
/// length written.
int GetCatalogText(int Index, char* Buffer, int Size, ...);
/// As GetCatalogText, then ". Refer to the user guide and application logfile for further information."
int GetCatalogTextWithHint(int Index, char* Buffer, int Size, ...);
/// Prints the row's bare Text with the arguments.
int GetCatalogBareText(int Index, char* Buffer, int Size, ...);

/// QString forms of the three.
QString CatalogText(int Index, ...);
QString CatalogTextWithHint(int Index, ...);
QString CatalogBareText(int Index, ...);
