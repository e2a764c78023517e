// Texts to addresses: the resolver behind every command that takes "an address, a symbol or a source
// location", the location text it reads and writes, and the macro table of expressions.

#include "program/SymbolFind.h"

#include "program/ElfParser.h"
#include "program/ElfWrapper.h"

#include <QHash>
#include <QRegularExpression>

namespace {

constexpr U32 DW_AT_LOCATION = 0x02;
constexpr U32 DW_AT_DECL_FILE = 0x3A;
constexpr U8 DW_OP_ADDR = 0x03;
constexpr U8 DW_OP_PLUS_UCONST = 0x23;
constexpr U32 DW_TAG_SUBPROGRAM = 0x2E;
constexpr U32 DW_TAG_INLINED_SUBROUTINE = 0x1D;
constexpr U32 DW_TAG_VARIABLE = 0x34;
constexpr U32 STT_SECTION = 3;
constexpr U32 STT_FILE = 4;
constexpr U32 STT_FUNC = 2;
constexpr U32 MACRO_DEFINE = 1;

struct MACROS {
    bool Ready = false;
    QHash<QString, QString> Values;
};

MACROS& M() {
    static MACROS Instance;
    return Instance;
}

QString FileName(const QString& Path) {
    return Path.section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1);
}

bool IsFunctionSym(ELF_SYM_HANDLE H) {
    const U32 Tag = ELF_GetSymTag(H);
    if (ELF_GetHandleKind(H) == ELF_SYM_KIND_ELF) {
        return Tag == STT_FUNC;
    }
    return Tag == DW_TAG_SUBPROGRAM || Tag == DW_TAG_INLINED_SUBROUTINE;
}

/// A number as the resolver reads it: "0x" and hexadecimal digits, or hexadecimal digits alone.
bool ParseHex(const QString& Text, U32& Value, bool& Prefixed) {
    QString Digits = Text;
    Prefixed = Digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    if (Prefixed) {
        Digits = Digits.mid(2);
    }
    bool Ok = false;
    const qulonglong V = Digits.toULongLong(&Ok, 16);
    if (!Ok || Digits.isEmpty() || V > 0xFFFFFFFFull) {
        return false;
    }
    Value = static_cast<U32>(V);
    return true;
}

} // namespace

bool ELF_ParseSrcLoc(const QString& Text, CSrcLoc& Loc) {
    static const QRegularExpression s_Loc(QStringLiteral("^(.+?):(\\d+)(?::(\\d+))?$"));
    QString T = Text.trimmed();
    if (T.size() >= 2 && T.startsWith(QLatin1Char('"')) && T.endsWith(QLatin1Char('"'))) {
        T = T.mid(1, T.size() - 2).trimmed();
    }
    const QRegularExpressionMatch Match = s_Loc.match(T);
    if (!Match.hasMatch()) {
        return false;
    }
    const I64 File = ELF_GetFileId(Match.captured(1).trimmed());
    bool LineOk = false;
    const U32 Line = Match.captured(2).toUInt(&LineOk);
    if (File < 0 || !LineOk || Line == 0) {
        return false;
    }
    Loc = {static_cast<U32>(File), Line, Match.captured(3).toUInt()};
    return true;
}

QString ELF_FormatSrcLoc(const CSrcLoc& Loc) {
    const QString Path = ELF_GetFilePath(Loc.File);
    if (!Loc.IsValid() || Path.isEmpty()) {
        return QString();
    }
    // The name alone where it is unique, so that the text stays short and still finds the file.
    const QString Name = FileName(Path);
    int SameName = 0;
    for (U32 Id : ELF_GetFileIds()) {
        SameName += FileName(ELF_GetFilePath(Id)).compare(Name, Qt::CaseInsensitive) == 0 ? 1 : 0;
    }
    QString Text = (SameName > 1 ? Path : Name) + QLatin1Char(':') + QString::number(Loc.Line);
    if (Loc.Column) {
        Text += QLatin1Char(':') + QString::number(Loc.Column);
    }
    return Text;
}

bool ELF_CanonicalSrcLocText(const QString& Text, QString& Canonical) {
    CSrcLoc Loc;
    if (!ELF_ParseSrcLoc(Text, Loc)) {
        return false;
    }
    Canonical = ELF_FormatSrcLoc(Loc);
    return !Canonical.isEmpty();
}

I64 ELF_GetSymAddr(ELF_SYM_HANDLE Handle) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    if (!Handle) {
        return -1;
    }
    if (IsFunctionSym(Handle)) {
        const U32 Count = ELF_GetSymRangeCount(Handle);
        U64 Low = ~0ull;
        for (U32 i = 0; i < Count; ++i) {
            const U64 L = ELF_GetSymLowPC(Handle, i);
            if (L && L < ELF_GetSymHighPC(Handle, i)) {
                Low = std::min(Low, L);
            }
        }
        return Low == ~0ull ? -1
                            : static_cast<I64>(ELF_ToTargetAddr(ELF_AlignInst(static_cast<U32>(Low)), 1, 0));
    }
    if (ELF_GetHandleKind(Handle) == ELF_SYM_KIND_ELF) {
        // Data and the linker's own symbols (section bounds, the stack top) carry their address; section
        // and file names don't, and a section of 0 means undefined.
        const U32 Type = ELF_GetSymTag(Handle);
        return Type != STT_SECTION && Type != STT_FILE && ELF_GetSymSection(Handle) > 0
                   ? static_cast<I64>(ELF_ToTargetAddr(static_cast<U32>(ELF_GetSymLowPC(Handle, 0)), 1, 0))
                   : -1;
    }
    if (ELF_GetSymTag(Handle) != DW_TAG_VARIABLE) {
        return -1;
    }
    // A static address is one expression of DW_OP_addr, perhaps with an offset; anything else is a
    // place that a frame decides.
    std::vector<ELF_LOC_EXPR> Exprs;
    if (ELF_GetSymLocExprs(Handle, DW_AT_LOCATION, Exprs) < 0 || Exprs.size() != 1 || Exprs[0].IsList) {
        return -1;
    }
    const std::vector<ELF_LOC_OP>& Ops = Exprs[0].Ops;
    if (Ops.empty() || Ops[0].Op != DW_OP_ADDR || Ops.size() > 2 ||
        (Ops.size() == 2 && Ops[1].Op != DW_OP_PLUS_UCONST)) {
        return -1;
    }
    const U64 Addr = Ops[0].Operand1 + (Ops.size() == 2 ? Ops[1].Operand1 : 0);
    // Code the linker dropped keeps address 0.
    return Addr && Addr <= 0xFFFFFFFFull ? static_cast<I64>(ELF_ToTargetAddr(static_cast<U32>(Addr), 1, 0))
                                         : -1;
}

I64 ELF_FindAddr(const QString& Text, int& Kind, U32* Size) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    Kind = FIND_ADDR_NONE;
    if (Size) {
        *Size = 0;
    }
    const QString T = Text.trimmed();
    if (T.isEmpty()) {
        return -1;
    }
    U32 Number = 0;
    bool Prefixed = false;
    const bool IsNumber = ParseHex(T, Number, Prefixed);
    // "add" or "beef" may be a function: bare digits are a number only where no symbol has the name.
    const ELF_SYM_LIST Syms = Prefixed ? ELF_SYM_LIST() : ELF_FindSyms(T, true, true, false, true, true);
    if (IsNumber && (Prefixed || Syms.empty())) {
        Kind = FIND_ADDR_VALUE;
        return Number;
    }
    // A function that has a callable copy is found there, not in one of the places it was inlined.
    ELF_SYM_LIST Ordered;
    for (ELF_SYM_HANDLE H : Syms) {
        if (ELF_GetHandleKind(H) == ELF_SYM_KIND_ELF && IsFunctionSym(H)) {
            Ordered.push_back(H);
        }
    }
    for (ELF_SYM_HANDLE H : Syms) {
        if (Ordered.empty() || !IsFunctionSym(H) || ELF_GetHandleKind(H) != ELF_SYM_KIND_DEBUG) {
            Ordered.push_back(H);
        }
    }
    for (ELF_SYM_HANDLE H : Ordered) {
        const I64 Addr = ELF_GetSymAddr(H);
        if (Addr < 0) {
            continue;
        }
        Kind = IsFunctionSym(H) ? FIND_ADDR_FUNCTION : FIND_ADDR_DATA;
        if (Size) {
            *Size = ELF_GetHandleKind(H) == ELF_SYM_KIND_ELF || IsFunctionSym(H)
                        ? static_cast<U32>(ELF_GetSymHighPC(H, 0) - ELF_GetSymLowPC(H, 0))
                        : ELF_GetSymByteSize(H);
        }
        return Addr;
    }
    // A symbol without an address of its own (declared, inlined everywhere) stands at its line.
    for (ELF_SYM_HANDLE H : Syms) {
        const I64 File = ELF_GetFileId(QString::fromUtf8(ELF_GetSymDeclFile(H, DW_AT_DECL_FILE)));
        const U32 Line = ELF_GetSymDeclLine(H, DW_AT_DECL_FILE);
        if (File >= 0 && Line) {
            const I64 Addr = ELF_GetFirstAddrOfLine({static_cast<U32>(File), Line, 0});
            if (Addr >= 0) {
                Kind = FIND_ADDR_FUNCTION;
                return Addr;
            }
        }
    }
    CSrcLoc Loc;
    if (ELF_ParseSrcLoc(T, Loc)) {
        I64 Addr = ELF_GetFirstAddrOfLine(Loc);
        if (Addr < 0) {
            // As a breakpoint on a comment or a blank line would: the next line that has code.
            const CSrcLoc Next = ELF_GetNextCodeLine(Loc);
            Addr = Next.IsValid() ? ELF_GetFirstAddrOfLine(Next) : -1;
        }
        if (Addr >= 0) {
            Kind = FIND_ADDR_SOURCE;
            return Addr;
        }
    }
    return -1;
}

bool ELF_GetMacro(const QString& Name, QString& Value) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    MACROS& Mc = M();
    if (!Mc.Ready) {
        Mc.Ready = true;
        if (const ELF_FILE* File = ELF_GetProgramElfFile()) {
            for (U32 i = 0, n = ELF_GetMacroCount(File); i < n; ++i) {
                const ELF_MACRO Macro = ELF_GetMacro(File, i);
                if (Macro.Kind != MACRO_DEFINE) {
                    continue;
                }
                const QString Text = QString::fromUtf8(Macro.Text);
                const qsizetype Blank = Text.indexOf(QLatin1Char(' '));
                Mc.Values.insert(Blank < 0 ? Text : Text.left(Blank),
                                 Blank < 0 ? QString() : Text.mid(Blank + 1));
            }
        }
    }
    const auto It = Mc.Values.constFind(Name);
    if (It == Mc.Values.constEnd()) {
        return false;
    }
    Value = *It;
    return true;
}

void ELF_ClearFindCaches() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    M() = MACROS();
}
