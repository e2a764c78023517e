#include "app/core/Catalogue.h"

#include "app/core/Log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace {

const char* const HINT = "Refer to the user guide and application logfile for further information";

struct Catalog {
    CATALOG_ROW Rows[CATALOG_COUNT];
    bool Present[CATALOG_COUNT];
    Catalog() {
        for (int i = 0; i < CATALOG_COUNT; ++i) {
            const CATALOG_ROW_DEF& Def = g_CatalogRows[i];
            CATALOG_ROW& Row = Rows[i];
            Present[i] = Def.Index == i;
            Row.Index = Def.Index;
            Row.Flags = Def.Flags;
            Row.Base = Def.Base;
            Row.Code = Def.Base + static_cast<U32>(Def.Index);
            Row.Text = Def.Text;
            Row.ArgCount = 0;
            for (const char* P = Def.Text; *P; ++P) {
                Row.ArgCount += *P == '%';
            }
            if (Def.Flags & MSG_INFO) {
                std::snprintf(Row.Format, sizeof(Row.Format), "%s.", Def.Text);
            } else {
                const char* Prefix = Def.Base == CATALOG_BASE_PROGRAM_FILE ? "ELF "
                                     : Def.Base == CATALOG_BASE_PROJECT    ? "Project "
                                                                           : "";
                const char* Class = (Def.Flags & MSG_WARNING) ? "warning"
                                    : (Def.Flags & MSG_ERROR) ? "error"
                                                              : "";
                std::snprintf(Row.Format, sizeof(Row.Format), "%s%s (%u): %s.", Prefix, Class, Row.Code,
                              Def.Text);
            }
        }
    }
};

const Catalog& TheCatalog() {
    static const Catalog s_Catalog;
    return s_Catalog;
}

int Print(char* Buffer, int Size, const char* Format, va_list Args) {
    if (!Buffer || Size <= 0) {
        return 0;
    }
    const int Written = std::vsnprintf(Buffer, static_cast<size_t>(Size), Format, Args);
    if (Written < 0) {
        Buffer[0] = '\0';
        return 0;
    }
    return Written < Size ? Written : Size - 1;
}

int Empty(char* Buffer, int Size) {
    if (Buffer && Size > 0) {
        Buffer[0] = '\0';
    }
    return 0;
}

int AppendHint(char* Buffer, int Size, int Length) {
    if (Length >= Size - 1) {
        return Length;
    }
    const int More = std::snprintf(Buffer + Length, static_cast<size_t>(Size - Length), ". %s.", HINT);
    return More < 0 ? Length : (Length + More < Size ? Length + More : Size - 1);
}

constexpr int TEXT_BUFFER = 4096;

} // namespace

void InitCatalog() {
    (void)TheCatalog();
}

const CATALOG_ROW* GetCatalogRow(int Index) {
    if (Index < 0 || Index >= CATALOG_COUNT || !TheCatalog().Present[Index]) {
        return nullptr;
    }
    return &TheCatalog().Rows[Index];
}

int CatalogIndexOfCode(U32 Code) {
    for (int i = 0; i < CATALOG_COUNT; ++i) {
        const CATALOG_ROW* Row = GetCatalogRow(i);
        if (Row && Row->Code == Code) {
            return i;
        }
    }
    return -1;
}

int GetCatalogText(int Index, char* Buffer, int Size, ...) {
    const CATALOG_ROW* Row = GetCatalogRow(Index);
    if (!Row) {
        return Empty(Buffer, Size);
    }
    va_list Args;
    va_start(Args, Size);
    const int Length = Print(Buffer, Size, Row->Format, Args);
    va_end(Args);
    return Length;
}

int GetCatalogTextWithHint(int Index, char* Buffer, int Size, ...) {
    const CATALOG_ROW* Row = GetCatalogRow(Index);
    if (!Row) {
        return Empty(Buffer, Size);
    }
    va_list Args;
    va_start(Args, Size);
    const int Length = Print(Buffer, Size, Row->Format, Args);
    va_end(Args);
    return AppendHint(Buffer, Size, Length);
}

int GetCatalogBareText(int Index, char* Buffer, int Size, ...) {
    const CATALOG_ROW* Row = GetCatalogRow(Index);
    if (!Row) {
        return Empty(Buffer, Size);
    }
    va_list Args;
    va_start(Args, Size);
    const int Length = Print(Buffer, Size, Row->Text, Args);
    va_end(Args);
    return Length;
}

QString CatalogText(int Index, ...) {
    const CATALOG_ROW* Row = GetCatalogRow(Index);
    if (!Row) {
        return QString();
    }
    char Buffer[TEXT_BUFFER];
    va_list Args;
    va_start(Args, Index);
    Print(Buffer, TEXT_BUFFER, Row->Format, Args);
    va_end(Args);
    return QString::fromUtf8(Buffer);
}

QString CatalogTextWithHint(int Index, ...) {
    const CATALOG_ROW* Row = GetCatalogRow(Index);
    if (!Row) {
        return QString();
    }
    char Buffer[TEXT_BUFFER];
    va_list Args;
    va_start(Args, Index);
    const int Length = Print(Buffer, TEXT_BUFFER, Row->Format, Args);
    va_end(Args);
    AppendHint(Buffer, TEXT_BUFFER, Length);
    return QString::fromUtf8(Buffer);
}

QString CatalogBareText(int Index, ...) {
    const CATALOG_ROW* Row = GetCatalogRow(Index);
    if (!Row) {
        return QString();
    }
    char Buffer[TEXT_BUFFER];
    va_list Args;
    va_start(Args, Index);
    Print(Buffer, TEXT_BUFFER, Row->Text, Args);
    va_end(Args);
    return QString::fromUtf8(Buffer);
}
