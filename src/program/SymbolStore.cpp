// The look-up tables of the open program: built once per load from the line tables, the debug
// functions with their inlined expansions and the ELF symbol table, then read by every view.

#include "program/SymbolStore.h"

#include "app/core/Log.h"
#include "program/ElfParser.h"
#include "program/ElfWrapper.h"
#include "program/FileFinder.h"
#include "program/SymbolTree.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <map>

namespace {

constexpr U32 NO_FILE = 0xFFFFFFFFu;
constexpr U32 DW_TAG_INLINED_SUBROUTINE = 0x1D;
constexpr U32 DW_TAG_SUBPROGRAM = 0x2E;
constexpr U32 DW_TAG_ENTRY_POINT = 0x03;
constexpr U32 STT_OBJECT = 1;
constexpr U32 STT_FUNC = 2;
constexpr U32 SHF_EXECINSTR = 4;
/// How far back an address without a row of its own takes the row before it.
constexpr U32 NEAR_ROW_BYTES = 256;
/// Ranges this large are broken debug information, not code.
constexpr U64 ABSURD_RANGE = 1000000000ull;

/// A piece of a function's code in the tree: its handle and the size of the piece.
struct FUNC_PIECE {
    ELF_SYM_HANDLE Handle;
    U32 Size;
};

/// What the function tree answers at one address, kept per address.
struct FUNC_AT {
    ELF_SYM_LIST List;        ///< outermost first
    ELF_SYM_HANDLE Inner = 0; ///< the innermost inlined call, else Outer
    ELF_SYM_HANDLE Outer = 0; ///< the subprogram, else the first function
};

struct LINE_ENTRY {
    CSrcLoc Loc;
    U32 Addr;
};

U64 LineKey(U32 File, U32 Line) {
    return (static_cast<U64>(File) << 32) | Line;
}

struct STORE {
    bool Ready = false;
    QHash<U32, QString> FilePaths;
    /// Whether the file of an id is on disk where the debug information says (not for alias sources).
    QHash<U32, bool> FileExists;
    /// Address to its locations, in the order stored (the newest last).
    QHash<U32, CSrcLocList> AddressMap;
    QHash<U64, std::vector<LINE_ENTRY>> LineMap;
    std::vector<U32> AddressList;
    U32 Low = NO_FILE;
    U32 High = 0;
    U32 Rejected = 0;
    /// Per file id: lowest and highest address of its rows; the span of its units' code that holds
    /// them, and the pieces of that span.
    QHash<U32, std::pair<U32, U32>> FileRows;
    QHash<U32, std::pair<U32, U32>> FileRange; ///< start, size
    QHash<U32, std::vector<std::pair<U32, U32>>> FileRangeList;
    CIntervalTree<U32> FileTree;
    QMultiHash<U32, ELF_SYM_HANDLE> FunctionsOfFile;
    /// Call frame descriptions: sorted low pcs and, at the same index, their high pcs.
    std::vector<U32> FdeStarts, FdeEnds;
    /// Abstract origin to its inlined expansions.
    QHash<ELF_SYM_HANDLE, ELF_SYM_LIST> Expansions;
    ELF_SYM_LIST Functions;
    CIntervalTree<FUNC_PIECE> FunctionTree;
    /// Globals, inlined calls, functions, namespaces, units; types; the ELF symbols of the file.
    ELF_SYM_LIST DebugSymbols;
    ELF_SYM_LIST TypeSymbols;
    ELF_SYM_LIST ElfSymbols;
    /// The ELF symbols of executable sections by address (Thumb bit off), a function first at its address.
    std::vector<std::pair<U32, ELF_SYM_HANDLE>> CodeSymbols;
    ELF_SYM_LIST Globals;
    /// Debug symbols by (file id, declaration line), made on first use.
    bool DeclLinesReady = false;
    QMultiHash<U64, ELF_SYM_HANDLE> DeclLines;
    /// Name hashes, made on first use; values read latest first.
    bool NamesReady = false;
    QMultiHash<QByteArray, ELF_SYM_HANDLE> DebugNames, TypeNames, ElfNames;
    /// The current scope: its function and its locals by name.
    ELF_SYM_HANDLE ScopeFunction = 0;
    QMultiHash<QByteArray, ELF_SYM_HANDLE> LocalNames;
    /// Per-address results of the function tree; a miss is cached as an empty list.
    QHash<U32, FUNC_AT> FuncCache;
    /// Lines of address ranges, by (start + 713) * 31 + end.
    QHash<U64, std::vector<LINE_RANGE>> LineRangeCache;
};

STORE& S() {
    static STORE Instance;
    return Instance;
}

QString MsText(const QElapsedTimer& T) {
    const qint64 Us = T.nsecsElapsed() / 1000;
    return QString::asprintf("%d:%03d ms", static_cast<int>(Us / 1000), static_cast<int>(Us % 1000));
}

void Phase(const char* Text, QElapsedTimer& T) {
    LogDebugMsg(QLatin1String(Text) + MsText(T));
    T.restart();
}

/// Whether a symbol is a function for the trees: a subprogram, an inlined call, an entry point or an ELF
/// function.
bool IsFunction(ELF_SYM_HANDLE H) {
    const U32 Tag = ELF_GetSymTag(H);
    if (ELF_GetHandleKind(H) == ELF_SYM_KIND_ELF) {
        return Tag == STT_FUNC;
    }
    return Tag == DW_TAG_SUBPROGRAM || Tag == DW_TAG_INLINED_SUBROUTINE || Tag == DW_TAG_ENTRY_POINT;
}

/// Ends of a symbol's range as the target sees them: aligned to instructions and moved by the project's
/// symbol relocation (an end belongs to the range before it).
U64 LowOf(ELF_SYM_HANDLE H, U32 i) {
    return ELF_ToTargetAddr(ELF_AlignInst(static_cast<U32>(ELF_GetSymLowPC(H, i))), 1, 0);
}

U64 HighOf(ELF_SYM_HANDLE H, U32 i) {
    return ELF_ToTargetAddr(ELF_AlignInst(static_cast<U32>(ELF_GetSymHighPC(H, i))), 0, 1);
}

/// The span of a symbol's ranges, aligned to instructions (Thumb bit off); (0, 0) when it has none.
void RangeOf(ELF_SYM_HANDLE H, U32& Start, U32& Size) {
    Start = 0;
    Size = 0;
    U64 Lo = ~0ull;
    U64 Hi = 0;
    const U32 Count = ELF_GetSymRangeCount(H);
    for (U32 i = 0; i < Count; ++i) {
        const U64 L = LowOf(H, i);
        // Both ends aligned: an ELF symbol of Thumb code carries bit 0 in its value, so its end does too.
        const U64 E = HighOf(H, i);
        // A range of removed code (at 0 after --gc-sections) or an empty one says nothing.
        if (E <= L || L == 0 || E - L >= ABSURD_RANGE) {
            continue;
        }
        Lo = std::min(Lo, L);
        Hi = std::max(Hi, E);
    }
    if (Hi > Lo && Hi - Lo < ABSURD_RANGE) {
        Start = static_cast<U32>(Lo);
        Size = static_cast<U32>(Hi - Lo);
    }
}

/// Every row names the line of its address; only the rows that begin a statement give a line its
/// addresses, since a breakpoint on a line belongs where the compiler says a statement starts.
void AddLocation(STORE& St, U32 Addr, const CSrcLoc& Loc, bool Stmt) {
    auto It = St.AddressMap.find(Addr);
    if (It == St.AddressMap.end()) {
        St.AddressList.push_back(Addr);
        It = St.AddressMap.insert(Addr, {});
    }
    bool Known = false;
    for (const CSrcLoc& L : *It) {
        Known |= L.File == Loc.File && L.Line == Loc.Line;
    }
    if (!Known) {
        It->push_back(Loc);
    }
    if (Stmt) {
        std::vector<LINE_ENTRY>& Entries = St.LineMap[LineKey(Loc.File, Loc.Line)];
        for (const LINE_ENTRY& E : Entries) {
            if (E.Addr == Addr) {
                return; // this line holds this address already
            }
        }
        Entries.push_back({Loc, Addr});
    }
}

// Phases 2 to 5: file ids and the mapping between addresses and lines.
void BuildLineTables(STORE& St, const ELF_FILE* File, const ELF_SYM_LIST& FuncSyms) {
    QElapsedTimer T;
    T.start();
    const U32 SourceCount = ELF_GetSourceFileCount(File);
    std::vector<U32> IdOfSource(SourceCount, NO_FILE);
    for (U32 i = 0; i < SourceCount; ++i) {
        const QString Path = QString::fromUtf8(ELF_GetSourceFile(File, i));
        IdOfSource[i] = ELF_FileIdOfPath(Path);
        if (IdOfSource[i] != NO_FILE && !St.FilePaths.contains(IdOfSource[i])) {
            St.FilePaths.insert(IdOfSource[i], Path);
        }
    }
    Phase("Parsed source file paths found in address mapping table: ", T);
    Phase("Parsed source file paths found in source files table: ", T);
    for (auto It = St.FilePaths.constBegin(); It != St.FilePaths.constEnd(); ++It) {
        if (!CFileFinder::IsAliasSource(It.key())) {
            St.FileExists.insert(It.key(), QFileInfo(It.value()).isFile());
        }
    }
    Phase("Initialized file exists flags: ", T);

    // The floor: rows below the lowest function are of code the linker dropped.
    U64 Floor = ~0ull;
    for (ELF_SYM_HANDLE H : FuncSyms) {
        U32 Start = 0;
        U32 Size = 0;
        RangeOf(H, Start, Size);
        if (Start) {
            Floor = std::min<U64>(Floor, Start);
        }
    }
    const U32 Rows = ELF_GetLineRowCount(File);
    St.AddressList.reserve(Rows);
    St.AddressMap.reserve(static_cast<qsizetype>(Rows));
    U32 PrevFile = NO_FILE;
    U32 PrevLine = 0;
    for (U32 i = 0; i < Rows; ++i) {
        const ELF_LINE_ROW Row = ELF_GetLineRow(File, i);
        if (Row.EndSequence) {
            PrevFile = NO_FILE;
            continue;
        }
        const U32 Addr = ELF_ToTargetAddr(ELF_AlignInst(static_cast<U32>(Row.Address)), 1, 0);
        if (Floor != ~0ull && Addr < Floor) {
            ++St.Rejected;
            continue;
        }
        const U32 FileId = Row.File < SourceCount ? IdOfSource[Row.File] : NO_FILE;
        if (FileId == NO_FILE) {
            continue;
        }
        // Line 0 continues the line before it in the same file.
        const U32 Line = Row.Line == 0 && FileId == PrevFile ? PrevLine : Row.Line;
        PrevFile = FileId;
        PrevLine = Line;
        AddLocation(St, Addr, {FileId, Line, Row.Column}, Row.IsStmt);
        St.Low = std::min(St.Low, Addr);
        St.High = std::max(St.High, Addr);
        auto Span = St.FileRows.find(FileId);
        if (Span == St.FileRows.end()) {
            St.FileRows.insert(FileId, {Addr, Addr});
        } else {
            Span->first = std::min(Span->first, Addr);
            Span->second = std::max(Span->second, Addr);
        }
    }
    Phase("Parsed source to address mapping table: ", T);

    // The code of each file: the ranges of the units that use it, where its rows lie.
    for (U32 i = 0; i < SourceCount; ++i) {
        const U32 Id = IdOfSource[i];
        const auto Span = St.FileRows.constFind(Id);
        if (Id == NO_FILE || Span == St.FileRows.constEnd() || St.FileRangeList.contains(Id)) {
            continue;
        }
        std::vector<std::pair<U64, U64>> Pieces;
        for (ELF_SYM_HANDLE Unit : ELF_GetSourceFileUnits(File, i)) {
            for (U32 r = 0, n = ELF_GetSymRangeCount(Unit); r < n; ++r) {
                const U64 Lo = LowOf(Unit, r);
                const U64 Hi = ELF_ToTargetAddr(static_cast<U32>(ELF_GetSymHighPC(Unit, r)), 0, 1);
                if (Hi > Lo && Lo != 0 && Hi - Lo < ABSURD_RANGE && Lo <= Span->second && Hi > Span->first) {
                    Pieces.push_back({Lo, Hi});
                }
            }
        }
        if (Pieces.empty()) {
            continue;
        }
        std::sort(Pieces.begin(), Pieces.end());
        std::vector<std::pair<U32, U32>> Merged;
        U64 Lo = Pieces.front().first;
        U64 Hi = Pieces.front().second;
        for (const auto& P : Pieces) {
            if (P.first > Hi) {
                Merged.push_back({static_cast<U32>(Lo), static_cast<U32>(Hi - Lo)});
                Lo = P.first;
            }
            Hi = std::max(Hi, P.second);
        }
        Merged.push_back({static_cast<U32>(Lo), static_cast<U32>(Hi - Lo)});
        St.FileRange.insert(
            Id, {Merged.front().first, Merged.back().first + Merged.back().second - Merged.front().first});
        St.FileRangeList.insert(Id, std::move(Merged));
    }
    Phase("parsed file address ranges: ", T);

    // Rows of code a linker dropped, left in the line table of a file whose code lies elsewhere.
    std::vector<U32> Kept;
    Kept.reserve(St.AddressList.size());
    for (U32 Addr : St.AddressList) {
        CSrcLocList& Locs = St.AddressMap[Addr];
        for (auto L = Locs.begin(); L != Locs.end();) {
            const auto R = St.FileRange.constFind(L->File);
            if (R != St.FileRange.constEnd() && R->second &&
                (Addr < R->first || Addr - R->first >= R->second)) {
                auto& Entries = St.LineMap[LineKey(L->File, L->Line)];
                Entries.erase(std::remove_if(Entries.begin(), Entries.end(),
                                             [Addr](const LINE_ENTRY& E) { return E.Addr == Addr; }),
                              Entries.end());
                if (Entries.empty()) {
                    St.LineMap.remove(LineKey(L->File, L->Line));
                }
                L = Locs.erase(L);
            } else {
                ++L;
            }
        }
        if (Locs.empty()) {
            St.AddressMap.remove(Addr);
        } else {
            Kept.push_back(Addr);
        }
    }
    St.AddressList.swap(Kept);
    Phase("Cleaned up address mapping table: ", T);
}

} // namespace

U32 ELF_FileIdOfPath(const QString& Path) {
    if (Path.isEmpty()) {
        return NO_FILE;
    }
    const U32 Id = static_cast<U32>(qHash(Path.toLower()));
    return Id == NO_FILE ? NO_FILE - 1 : Id;
}

void ELF_ClearSymbolStore() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    S() = STORE();
}

bool ELF_IsSymbolStoreReady() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().Ready;
}

void ELF_BuildSymbolStore() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    STORE& St = S();
    St = STORE();
    const ELF_FILE* File = ELF_GetProgramElfFile();
    if (!File) {
        return;
    }
    QElapsedTimer Total;
    Total.start();
    QElapsedTimer T;
    T.start();
    const int Slot = ELF_GetSlotIndex(File);

    // ELF function symbols of executable sections (phase 11's pending list), Thumb bit off.
    ELF_SYM_LIST ElfFuncs;
    const U32 SymCount = ELF_GetSymCount(File);
    for (U32 i = 0; i < SymCount; ++i) {
        if (ELF_GetSymType(File, i) != STT_FUNC) {
            continue;
        }
        const U32 Section = ELF_GetSymSection(File, i);
        if (Section == 0 || Section >= 0xFF00 || !(ELF_GetSectionFlags(File, Section) & SHF_EXECINSTR)) {
            continue;
        }
        const char* Name = ELF_GetSymName(File, i);
        if (Name && (Name[0] == '?' || Name[0] == '$')) {
            continue;
        }
        ElfFuncs.push_back(ELF_MakeElfSymHandle(Slot, i));
    }
    ELF_SYM_LIST DebugFuncs;
    for (U32 i = 0, n = ELF_GetSymListCount(File, ELF_LIST_FUNCTIONS); i < n; ++i) {
        ELF_SYM_HANDLE H = ELF_GetSymListItem(File, ELF_LIST_FUNCTIONS, i);
        if (!H) {
            continue;
        }
        // A prototype met before the body stands for the body that completes it.
        if (ELF_GetSymRangeCount(H) == 0) {
            if (const ELF_SYM_HANDLE Body = ELF_GetSymDefinition(H); Body && ELF_GetSymRangeCount(Body)) {
                H = Body;
            }
        }
        DebugFuncs.push_back(H);
    }
    ELF_SYM_LIST FloorSyms = ElfFuncs;
    FloorSyms.insert(FloorSyms.end(), DebugFuncs.begin(), DebugFuncs.end());
    BuildLineTables(St, File, FloorSyms);

    // Inlined expansions under their abstract origin. An expansion at an address without a row of its
    // own shows the line of its call.
    ELF_SYM_LIST Inlined;
    for (U32 i = 0, n = ELF_GetSymListCount(File, ELF_LIST_INLINE_FUNCTIONS); i < n; ++i) {
        const ELF_SYM_HANDLE H = ELF_GetSymListItem(File, ELF_LIST_INLINE_FUNCTIONS, i);
        if (!H) {
            continue;
        }
        Inlined.push_back(H);
        St.Expansions[ELF_GetSymAbstractOrigin(H)].push_back(H);
        U32 Start = 0;
        U32 Size = 0;
        RangeOf(H, Start, Size);
        if (Start && !St.AddressMap.contains(Start)) {
            const U32 CallLine = ELF_GetSymDeclLine(H, 0x58);
            const QString CallFile = QString::fromUtf8(ELF_GetSymDeclFile(H, 0x58));
            const U32 Id = ELF_FileIdOfPath(CallFile);
            if (CallLine && Id != NO_FILE) {
                St.FilePaths.insert(Id, CallFile);
                AddLocation(St, Start, {Id, CallLine, 0}, true);
            }
        }
    }
    Phase("Hashed function inline expansions: ", T);
    std::sort(St.AddressList.begin(), St.AddressList.end());
    Phase("Sorted program address list: ", T);

    // Code symbols, mapping symbols ($t, $d) included: they tell code from data in code sections.
    for (U32 i = 1; i < SymCount; ++i) {
        const U32 Section = ELF_GetSymSection(File, i);
        if (Section == 0 || Section >= 0xFF00 || !(ELF_GetSectionFlags(File, Section) & SHF_EXECINSTR)) {
            continue;
        }
        const char* Name = ELF_GetSymName(File, i);
        if (ELF_GetSymType(File, i) == STT_FUNC && Name && (Name[0] == '?' || Name[0] == '$')) {
            continue;
        }
        St.CodeSymbols.push_back(
            {ELF_ToTargetAddr(ELF_AlignInst(ELF_GetSymValue(File, i)), 1, 0), ELF_MakeElfSymHandle(Slot, i)});
    }
    std::stable_sort(St.CodeSymbols.begin(), St.CodeSymbols.end(), [](const auto& A, const auto& B) {
        if (A.first != B.first) {
            return A.first < B.first;
        }
        // The function of an address stands first, where the look-up finds it.
        return ELF_GetSymTag(A.second) == STT_FUNC && ELF_GetSymTag(B.second) != STT_FUNC;
    });
    Phase("Build symbol table: ", T);

    // One function per start: a debug entry stands unless a larger ELF symbol starts there too. A
    // function inlined everywhere stands at its first expansion.
    std::map<U32, std::pair<U32, ELF_SYM_HANDLE>> ByStart;
    const auto Stand = [&ByStart](ELF_SYM_HANDLE H, U32 Start, U32 Size) {
        const auto It = ByStart.find(Start);
        if (Start && Size && (It == ByStart.end() || It->second.first < Size)) {
            ByStart[Start] = {Size, H};
        }
    };
    for (ELF_SYM_HANDLE H : DebugFuncs) {
        U32 Start = 0;
        U32 Size = 0;
        const auto Exp = St.Expansions.constFind(H);
        if (Exp != St.Expansions.constEnd()) {
            for (ELF_SYM_HANDLE E : *Exp) {
                RangeOf(E, Start, Size);
                if (Start && Size) {
                    break;
                }
            }
        } else {
            RangeOf(H, Start, Size);
        }
        Stand(H, Start, Size);
    }
    for (ELF_SYM_HANDLE H : ElfFuncs) {
        U32 Start = 0;
        U32 Size = 0;
        RangeOf(H, Start, Size);
        Stand(H, Start, Size);
    }
    for (const auto& [Start, Entry] : ByStart) {
        St.Functions.push_back(Entry.second);
    }
    Phase("Build functions list: ", T);

    // One interval per range: code of an inlined call or of a function split by the optimiser lies in
    // pieces, and a point between them belongs to neither.
    std::vector<CIntervalTree<FUNC_PIECE>::INTERVAL> Intervals;
    const auto Add = [&Intervals](ELF_SYM_HANDLE H) {
        for (U32 i = 0, n = ELF_GetSymRangeCount(H); i < n; ++i) {
            const U64 L = LowOf(H, i);
            const U64 E = HighOf(H, i);
            if (E <= L || L == 0 || E - L >= ABSURD_RANGE) {
                continue;
            }
            // The last address of the last halfword.
            Intervals.push_back({L, std::max<U64>(E - 2, L), {H, static_cast<U32>(E - L)}});
        }
    };
    for (ELF_SYM_HANDLE H : St.Functions) {
        if (IsFunction(H)) {
            Add(H);
        }
    }
    for (ELF_SYM_HANDLE H : Inlined) {
        Add(H);
    }
    St.FunctionTree.Build(std::move(Intervals));
    Phase("build function interval tree: ", T);

    std::vector<CIntervalTree<U32>::INTERVAL> FileIntervals;
    for (auto It = St.FileRange.constBegin(); It != St.FileRange.constEnd(); ++It) {
        if (It->second && !CFileFinder::IsAliasTarget(It.key())) {
            const U64 Stop = std::min<U64>(static_cast<U64>(It->first) + It->second, 0x100000000ull) - 2;
            FileIntervals.push_back({It->first, std::max<U64>(Stop, It->first), It.key()});
        }
    }
    St.FileTree.Build(std::move(FileIntervals));
    Phase("build file interval tree: ", T);

    const auto FileAt = [&St](U32 Addr) -> I64 {
        std::vector<U32> Files;
        St.FileTree.Query(Addr, Files);
        return Files.empty() ? -1 : static_cast<I64>(Files.back());
    };
    // Functions and inlined calls go under the file of their first address.
    for (const ELF_SYM_LIST* List : {&St.Functions, &Inlined}) {
        for (ELF_SYM_HANDLE H : *List) {
            U32 Start = 0;
            U32 Size = 0;
            RangeOf(H, Start, Size);
            if (const I64 Id = Start ? FileAt(Start) : -1; Id >= 0) {
                St.FunctionsOfFile.insert(static_cast<U32>(Id), H);
            }
        }
    }
    Phase("hashed file functions: ", T);

    std::map<U32, U32> Fdes;
    for (U32 i = 0, n = ELF_GetFdeCount(File); i < n; ++i) {
        U64 Lo = 0;
        U64 Hi = 0;
        if (ELF_GetFdeRange(File, i, Lo, Hi) && Lo <= Hi && Hi <= 0xFFFFFFFFull) {
            Lo = ELF_ToTargetAddr(static_cast<U32>(Lo), 1, 0);
            Hi = ELF_ToTargetAddr(static_cast<U32>(Hi), 0, 1);
            U32& End = Fdes[static_cast<U32>(Lo)];
            End = std::max(End, static_cast<U32>(Hi));
        }
    }
    for (const auto& [Lo, Hi] : Fdes) {
        St.FdeStarts.push_back(Lo);
        St.FdeEnds.push_back(Hi);
    }
    Phase("parsed call frame information: ", T);

    // The lists the name search goes through; their hashes come with the first search.
    for (int List : {ELF_LIST_GLOBALS, ELF_LIST_INLINE_FUNCTIONS, ELF_LIST_FUNCTIONS, ELF_LIST_NAMESPACES,
                     ELF_LIST_UNITS, ELF_LIST_TYPES}) {
        ELF_SYM_LIST& Into = List == ELF_LIST_TYPES ? St.TypeSymbols : St.DebugSymbols;
        U32 Null = 0;
        for (U32 i = 0, n = ELF_GetSymListCount(File, List); i < n; ++i) {
            const ELF_SYM_HANDLE H = ELF_GetSymListItem(File, List, i);
            H ? Into.push_back(H) : static_cast<void>(++Null);
            if (H && List == ELF_LIST_GLOBALS) {
                St.Globals.push_back(H);
            }
        }
        if (Null) {
            LogDebugMsg(QStringLiteral("Warning: found %1 null pointers in symbol list").arg(Null));
        }
    }
    for (U32 i = 1; i < SymCount; ++i) {
        St.ElfSymbols.push_back(ELF_MakeElfSymHandle(Slot, i));
    }
    Phase("Build debug symbol lists: ", T);

    St.Ready = true;
    LogDebugMsg(QStringLiteral("ELF-API wrapper initialized in ") + MsText(Total));
    LogDebugMsg(QStringLiteral("Function count: %1").arg(St.Functions.size()));
    LogDebugMsg(QStringLiteral("Global variable count: %1").arg(ELF_GetSymListCount(File, ELF_LIST_GLOBALS)));
}

namespace {

/// The functions at an address, from the cache or the tree; the caller holds the mutex. The reference
/// lasts until the next call.
const FUNC_AT& FuncAtLocked(STORE& St, U32 Addr) {
    const auto Hit = St.FuncCache.constFind(Addr);
    if (Hit != St.FuncCache.constEnd()) {
        return *Hit;
    }
    std::vector<FUNC_PIECE> Pieces;
    St.FunctionTree.Query(Addr, Pieces);
    // Outermost first: the larger piece holds the smaller.
    std::stable_sort(Pieces.begin(), Pieces.end(),
                     [](const FUNC_PIECE& A, const FUNC_PIECE& B) { return A.Size > B.Size; });
    FUNC_AT At;
    for (const FUNC_PIECE& P : Pieces) {
        if (std::find(At.List.begin(), At.List.end(), P.Handle) == At.List.end()) {
            At.List.push_back(P.Handle);
        }
    }
    for (ELF_SYM_HANDLE H : At.List) {
        if (!At.Outer && ELF_GetHandleKind(H) == ELF_SYM_KIND_DEBUG &&
            ELF_GetSymTag(H) == DW_TAG_SUBPROGRAM) {
            At.Outer = H;
        }
    }
    if (!At.Outer && !At.List.empty()) {
        At.Outer = At.List.front();
    }
    At.Inner = At.Outer;
    for (auto It = At.List.rbegin(); It != At.List.rend(); ++It) {
        if (ELF_GetSymTag(*It) == DW_TAG_INLINED_SUBROUTINE) {
            At.Inner = *It;
            break;
        }
    }
    // A miss is kept too: the same unknown address is asked again and again.
    return *St.FuncCache.insert(Addr, std::move(At));
}

ELF_SYM_HANDLE FuncAtLocked(STORE& St, U32 Addr, bool SkipInlined) {
    const FUNC_AT& At = FuncAtLocked(St, Addr);
    return SkipInlined ? At.Outer : At.Inner;
}

/// The address whose row stands for Addr: itself, or the row before it in the same function up to
/// 256 bytes back; -1 for none.
I64 RowAddressLocked(STORE& St, U32 Addr) {
    if (St.AddressMap.contains(Addr)) {
        return Addr;
    }
    if (Addr == 0 || Addr == 0xFFFFFFFFu) {
        return -1;
    }
    const std::vector<U32>& L = St.AddressList;
    const auto It = std::lower_bound(L.begin(), L.end(), Addr);
    if (It == L.begin()) {
        return -1;
    }
    const U32 Prev = *(It - 1);
    if (Addr - Prev > NEAR_ROW_BYTES) {
        return -1;
    }
    const ELF_SYM_HANDLE Here = FuncAtLocked(St, Addr, true);
    return Here && FuncAtLocked(St, Prev, true) == Here ? static_cast<I64>(Prev) : -1;
}

} // namespace

ELF_SYM_LIST ELF_GetFuncListAt(U32 Addr) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return FuncAtLocked(S(), Addr).List;
}

ELF_SYM_HANDLE ELF_GetFuncAt(U32 Addr, bool SkipInlined) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return FuncAtLocked(S(), Addr, SkipInlined);
}

CSrcLocList ELF_GetSrcLocsAt(U32 Addr) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const I64 Row = RowAddressLocked(S(), Addr);
    if (Row < 0) {
        return {};
    }
    CSrcLocList L = S().AddressMap.value(static_cast<U32>(Row));
    std::sort(L.begin(), L.end());
    return L;
}

CSrcLoc ELF_GetSrcLocAt(U32 Addr) {
    // The hot path of the source window and the profiler: no list is copied.
    QMutexLocker Lock(&ELF_GetDataMutex());
    const I64 Row = RowAddressLocked(S(), Addr);
    if (Row < 0) {
        return {NO_FILE, 0, 0};
    }
    const CSrcLocList& L = *S().AddressMap.constFind(static_cast<U32>(Row));
    return L.empty() ? CSrcLoc{NO_FILE, 0, 0} : *std::min_element(L.begin(), L.end());
}

CSrcLoc ELF_GetExactSrcLocAt(U32 Addr) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const CSrcLocList L = S().AddressMap.value(Addr);
    return L.empty() ? CSrcLoc{NO_FILE, 0, 0} : L.back();
}

bool ELF_HasSrcAt(U32 Addr) {
    return ELF_GetSrcLocAt(Addr).IsValid();
}

I64 ELF_GetPrevAddr(U32 Addr) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const std::vector<U32>& L = S().AddressList;
    const auto It = std::lower_bound(L.begin(), L.end(), Addr);
    return It == L.begin() ? -1 : static_cast<I64>(*(It - 1));
}

I64 ELF_GetNextAddr(U32 Addr) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const std::vector<U32>& L = S().AddressList;
    auto It = std::lower_bound(L.begin(), L.end(), Addr);
    if (It != L.end() && *It == Addr) {
        ++It;
    }
    return It == L.end() ? -1 : static_cast<I64>(*It);
}

std::vector<U32> ELF_GetAddrsOfLine(const CSrcLoc& Loc) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    std::vector<U32> Out;
    const auto It = S().LineMap.constFind(LineKey(Loc.File, Loc.Line));
    if (It != S().LineMap.constEnd()) {
        for (const LINE_ENTRY& E : *It) {
            Out.push_back(E.Addr);
        }
    }
    std::sort(Out.begin(), Out.end());
    Out.erase(std::unique(Out.begin(), Out.end()), Out.end());
    return Out;
}

I64 ELF_GetFirstAddrOfLine(const CSrcLoc& Loc) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const auto It = S().LineMap.constFind(LineKey(Loc.File, Loc.Line));
    if (It == S().LineMap.constEnd() || It->empty()) {
        return -1;
    }
    U32 First = It->front().Addr;
    for (const LINE_ENTRY& E : *It) {
        First = std::min(First, E.Addr);
    }
    return First;
}

CSrcLoc ELF_GetNextCodeLine(const CSrcLoc& Loc) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    for (U32 Line = Loc.Line + 1; Line <= Loc.Line + 1000; ++Line) {
        if (S().LineMap.contains(LineKey(Loc.File, Line))) {
            return {Loc.File, Line, 0};
        }
    }
    return {NO_FILE, 0, 0};
}

CSrcLoc ELF_GetPrevCodeLine(const CSrcLoc& Loc) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    for (I64 Line = static_cast<I64>(Loc.Line) - 1; Line >= 0; --Line) {
        if (S().LineMap.contains(LineKey(Loc.File, static_cast<U32>(Line)))) {
            return {Loc.File, static_cast<U32>(Line), 0};
        }
    }
    return {NO_FILE, 0, 0};
}

I64 ELF_GetFileId(const QString& Path) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    U32 Id = ELF_FileIdOfPath(Path);
    if (Id == NO_FILE) {
        return -1;
    }
    U32 Target = 0;
    if (CFileFinder::RedirectFileId(Id, Target)) {
        return Target;
    }
    if (S().FilePaths.contains(Id)) {
        return Id;
    }
    const QString Name = Path.section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1);
    for (auto It = S().FilePaths.constBegin(); It != S().FilePaths.constEnd(); ++It) {
        const QString Other = It.value().section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1);
        if (Other.compare(Name, Qt::CaseInsensitive) == 0) {
            return It.key();
        }
    }
    return -1;
}

int ELF_GetFileExists(U32 Id) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const auto It = S().FileExists.constFind(Id);
    return It == S().FileExists.constEnd() ? -1 : (*It ? 1 : 0);
}

QStringList ELF_GetCompDirsOfFile(const QString& Path) {
    constexpr U32 DW_AT_COMP_DIR = 0x1B;
    QMutexLocker Lock(&ELF_GetDataMutex());
    QStringList Dirs;
    const ELF_FILE* File = ELF_GetProgramElfFile();
    if (!File) {
        return Dirs;
    }
    const U32 Count = ELF_GetSourceFileCount(File);
    for (U32 i = 0; i < Count; ++i) {
        if (QString::fromUtf8(ELF_GetSourceFile(File, i)).compare(Path, Qt::CaseInsensitive) != 0) {
            continue;
        }
        for (ELF_SYM_HANDLE Unit : ELF_GetSourceFileUnits(File, i)) {
            const QString Dir = ELF_GetSymStringAttr(Unit, DW_AT_COMP_DIR);
            if (!Dir.isEmpty() && !Dirs.contains(Dir)) {
                Dirs.append(Dir);
            }
        }
    }
    return Dirs;
}

QString ELF_GetFilePath(U32 Id) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().FilePaths.value(Id);
}

std::vector<U32> ELF_GetFileIds() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    std::vector<U32> Ids(S().FilePaths.keyBegin(), S().FilePaths.keyEnd());
    std::sort(Ids.begin(), Ids.end());
    return Ids;
}

I64 ELF_GetFileAt(U32 Addr) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    std::vector<U32> Files;
    S().FileTree.Query(Addr, Files);
    return Files.empty() ? -1 : static_cast<I64>(Files.back());
}

std::pair<U32, U32> ELF_GetFileRange(U32 Id) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().FileRange.value(Id, {0, 0});
}

ELF_SYM_LIST ELF_GetFunctionsOfFile(U32 Id) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const QList<ELF_SYM_HANDLE> L = S().FunctionsOfFile.values(Id);
    return ELF_SYM_LIST(L.begin(), L.end());
}

bool ELF_GetFdeSpanAt(U32 Addr, U32& Low, U32& High) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const std::vector<U32>& Starts = S().FdeStarts;
    const auto It = std::upper_bound(Starts.begin(), Starts.end(), Addr);
    if (It == Starts.begin()) {
        return false;
    }
    const size_t i = static_cast<size_t>(It - Starts.begin()) - 1;
    if (Addr >= S().FdeEnds[i]) {
        return false;
    }
    Low = Starts[i];
    High = S().FdeEnds[i];
    return true;
}

U32 ELF_GetLowAddr() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().Low;
}

U32 ELF_GetHighAddr() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().High;
}

U32 ELF_GetRejectedRowCount() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().Rejected;
}

I64 ELF_GetEntryFuncPC() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const ELF_FILE* File = ELF_GetProgramElfFile();
    ELF_SYM_HANDLE Main = File ? ELF_GetEntryFunc(File) : 0;
    if (Main && ELF_GetSymRangeCount(Main) == 0) {
        Main = ELF_GetSymDefinition(Main);
    }
    U32 Start = 0;
    U32 Size = 0;
    if (Main) {
        RangeOf(Main, Start, Size);
    }
    return Start ? static_cast<I64>(Start) : -1;
}

namespace {

void HashNames(const ELF_SYM_LIST& List, QMultiHash<QByteArray, ELF_SYM_HANDLE>& Into) {
    Into.reserve(static_cast<qsizetype>(List.size()));
    for (ELF_SYM_HANDLE H : List) {
        const char* Name = ELF_GetSymName(H);
        if (Name && *Name) {
            Into.insert(QByteArray(Name), H);
        }
    }
}

void Append(const QMultiHash<QByteArray, ELF_SYM_HANDLE>& Hash, const QByteArray& Name, ELF_SYM_LIST& Out) {
    for (auto It = Hash.constFind(Name); It != Hash.constEnd() && It.key() == Name; ++It) {
        Out.push_back(It.value());
    }
}

} // namespace

ELF_SYM_LIST ELF_FindSyms(const QString& Name, bool DebugSyms, bool LocalSyms, bool Types, bool ElfSyms,
                          bool Sorted) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    STORE& St = S();
    ELF_SYM_LIST Out;
    if (Name.isEmpty() || !St.Ready) {
        return Out;
    }
    if (!St.NamesReady) {
        HashNames(St.DebugSymbols, St.DebugNames);
        HashNames(St.TypeSymbols, St.TypeNames);
        HashNames(St.ElfSymbols, St.ElfNames);
        St.NamesReady = true;
    }
    const QByteArray Key = Name.toUtf8();
    if (LocalSyms && St.ScopeFunction) {
        if (Key == "this") {
            if (const ELF_SYM_HANDLE This = ELF_GetSymObjectPointer(St.ScopeFunction)) {
                Out.push_back(This);
            }
        } else {
            Append(St.LocalNames, Key, Out);
        }
    }
    if (DebugSyms) {
        Append(St.DebugNames, Key, Out);
    }
    if (Types) {
        Append(St.TypeNames, Key, Out);
    }
    if (ElfSyms) {
        Append(St.ElfNames, Key, Out);
    }
    if (Sorted) {
        ELF_SYM_LIST Inlined, Debug, Elf;
        for (ELF_SYM_HANDLE H : Out) {
            if (ELF_GetHandleKind(H) == ELF_SYM_KIND_ELF) {
                Elf.push_back(H);
            } else if (ELF_GetSymTag(H) == DW_TAG_INLINED_SUBROUTINE) {
                Inlined.insert(Inlined.begin(), H);
            } else {
                Debug.push_back(H);
            }
        }
        Out = Inlined;
        Out.insert(Out.end(), Debug.begin(), Debug.end());
        Out.insert(Out.end(), Elf.begin(), Elf.end());
    }
    return Out;
}

namespace {

constexpr U32 DW_TAG_LEXICAL_BLOCK = 0x0B;
constexpr U32 DW_TAG_CLASS = 0x02;
constexpr U32 DW_TAG_STRUCT = 0x13;
constexpr U32 DW_TAG_UNION = 0x17;
constexpr U32 DW_TAG_NAMESPACE = 0x39;
constexpr U32 DW_TAG_COMPILE_UNIT = 0x11;

QString PlainName(ELF_SYM_HANDLE H) {
    const QString Name = QString::fromUtf8(ELF_GetSymName(H));
    if (ELF_GetSymTag(H) == DW_TAG_COMPILE_UNIT &&
        (Name.endsWith(QLatin1String("<built-in>")) || Name.endsWith(QLatin1String("<stdin>")))) {
        U32 Start = 0;
        U32 Size = 0;
        RangeOf(H, Start, Size);
        const I64 File = Start ? ELF_GetFileAt(Start) : -1;
        return File >= 0 ? ELF_GetFilePath(static_cast<U32>(File)) : Name;
    }
    return Name;
}

bool IsTypeOrScope(U32 Tag) {
    return Tag == DW_TAG_NAMESPACE || Tag == DW_TAG_CLASS || Tag == DW_TAG_STRUCT || Tag == DW_TAG_UNION ||
           Tag == DW_TAG_COMPILE_UNIT;
}

} // namespace

QString ELF_GetSymDisplayName(ELF_SYM_HANDLE Handle, int Mode) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const QString Plain = PlainName(Handle);
    if (Mode == 0 || ELF_GetHandleKind(Handle) != ELF_SYM_KIND_DEBUG || Plain.isEmpty()) {
        return Plain;
    }
    if (Mode == 2 && ELF_FindSyms(Plain, true, true, false, false, false).size() < 2) {
        return Plain;
    }
    // Scopes from the inside out: functions, blocks, classes (structures and unions too, which C++ code
    // uses as classes), namespaces; the unit's file name only for a symbol at file scope.
    QStringList Parts;
    bool ScopeSeen = IsTypeOrScope(ELF_GetSymTag(Handle));
    for (ELF_SYM_HANDLE S : ELF_GetSymScopes(Handle)) {
        const U32 Tag = ELF_GetSymTag(S);
        if (Tag == DW_TAG_COMPILE_UNIT) {
            if (!ScopeSeen) {
                Parts.prepend(PlainName(S).section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1));
            }
            break;
        }
        if (Tag != DW_TAG_LEXICAL_BLOCK && Tag != DW_TAG_SUBPROGRAM && !IsTypeOrScope(Tag)) {
            continue;
        }
        ScopeSeen |= IsTypeOrScope(Tag);
        const QString Name = PlainName(S);
        if (!Name.isEmpty()) {
            Parts.prepend(Name);
        }
    }
    Parts.append(Plain);
    return Parts.join(QLatin1String("::"));
}

void ELF_SetScope(U32 Pc) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    STORE& St = S();
    const ELF_SYM_HANDLE F = FuncAtLocked(St, Pc, false);
    if (F == St.ScopeFunction) {
        return;
    }
    St.ScopeFunction = F;
    St.LocalNames.clear();
    ELF_SYM_LIST Locals;
    for (U32 i = 0, n = F ? ELF_GetSymLocalCount(F) : 0; i < n; ++i) {
        Locals.push_back(ELF_GetSymLocal(F, i));
    }
    HashNames(Locals, St.LocalNames);
}

ELF_SYM_HANDLE ELF_GetScopeFunction() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().ScopeFunction;
}

ELF_SYM_LIST ELF_GetFunctions() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().Functions;
}

ELF_SYM_HANDLE ELF_GetSymAt(U32 Addr) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const auto& L = S().CodeSymbols;
    const auto It =
        std::lower_bound(L.begin(), L.end(), std::make_pair(ELF_AlignInst(Addr), ELF_SYM_HANDLE(0)));
    return It != L.end() && It->first == ELF_AlignInst(Addr) ? It->second : 0;
}

CSrcLoc ELF_GetLastSrcLocAt(U32 Addr) {
    const CSrcLocList L = ELF_GetSrcLocsAt(Addr);
    return L.empty() ? CSrcLoc{NO_FILE, 0, 0} : L.back();
}

bool ELF_RangeHasSrc(U32 Start, U32 Size) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const std::vector<U32>& L = S().AddressList;
    const auto It = std::lower_bound(L.begin(), L.end(), Start);
    return It != L.end() && static_cast<U64>(*It) < static_cast<U64>(Start) + Size;
}

bool ELF_GetNextLineAddr(U32 Addr, U32& Result) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const STORE& St = S();
    const U32 Step = std::max<U32>(ELF_GetInstAlign(), 1);
    const U32 Start = ELF_AlignInst(Addr);
    const CSrcLocList Here = St.AddressMap.value(Start);
    const U64 End = std::min<U64>(static_cast<U64>(Start) + 1000, St.High);
    for (U64 A = Start + Step; A <= End; A += Step) {
        const auto It = St.AddressMap.constFind(static_cast<U32>(A));
        if (It == St.AddressMap.constEnd()) {
            continue;
        }
        for (const CSrcLoc& L : *It) {
            if (L.IsValid() && std::find(Here.begin(), Here.end(), L) == Here.end()) {
                Result = static_cast<U32>(A);
                return true;
            }
        }
    }
    return false;
}

ELF_SYM_LIST ELF_GetSymsAtLine(const CSrcLoc& Loc) {
    constexpr U32 DW_AT_DECL_FILE = 0x3A;
    QMutexLocker Lock(&ELF_GetDataMutex());
    STORE& St = S();
    if (!St.DeclLinesReady) {
        St.DeclLinesReady = true;
        const auto Add = [&St](ELF_SYM_HANDLE H) {
            const U32 Line = ELF_GetSymDeclLine(H, DW_AT_DECL_FILE);
            const U32 File = ELF_FileIdOfPath(QString::fromUtf8(ELF_GetSymDeclFile(H, DW_AT_DECL_FILE)));
            if (Line && File != NO_FILE) {
                St.DeclLines.insert(LineKey(File, Line), H);
            }
        };
        for (ELF_SYM_HANDLE H : St.DebugSymbols) {
            Add(H);
            // Locals and parameters are declared on lines of their function too.
            if (ELF_GetSymTag(H) == DW_TAG_SUBPROGRAM) {
                for (U32 i = 0, n = ELF_GetSymLocalCount(H); i < n; ++i) {
                    Add(ELF_GetSymLocal(H, i));
                }
            }
        }
    }
    ELF_SYM_LIST Out;
    for (auto It = St.DeclLines.constFind(LineKey(Loc.File, Loc.Line));
         It != St.DeclLines.constEnd() && It.key() == LineKey(Loc.File, Loc.Line); ++It) {
        Out.push_back(It.value());
    }
    return Out;
}

ELF_SYM_LIST ELF_GetGlobals() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().Globals;
}

ELF_SYM_LIST ELF_GetLocals() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    ELF_SYM_LIST Out;
    const ELF_SYM_HANDLE F = S().ScopeFunction;
    for (U32 i = 0, n = F ? ELF_GetSymLocalCount(F) : 0; i < n; ++i) {
        Out.push_back(ELF_GetSymLocal(F, i));
    }
    return Out;
}

ELF_SYM_LIST ELF_GetFunctionsWithoutSource() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    STORE& St = S();
    ELF_SYM_LIST Out;
    for (ELF_SYM_HANDLE H : St.Functions) {
        U32 Start = 0;
        U32 Size = 0;
        RangeOf(H, Start, Size);
        if (Start && RowAddressLocked(St, Start) < 0) {
            Out.push_back(H);
        }
    }
    return Out;
}

ELF_SYM_LIST ELF_GetInlineInstances(ELF_SYM_HANDLE Handle) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return S().Expansions.value(Handle);
}

namespace {

/// Ranges beyond this are broken symbols, not code to walk address by address.
constexpr U32 ANALYSIS_LIMIT = 10000000;

/// What the mapping symbols before an address say of it: 1 data ($d), 0 code ($t, $a, a function),
/// -1 when none does.
int MappingAt(const STORE& St, U32 Addr) {
    const auto& L = St.CodeSymbols;
    auto It = std::upper_bound(L.begin(), L.end(), Addr,
                               [](U32 A, const std::pair<U32, ELF_SYM_HANDLE>& E) { return A < E.first; });
    while (It != L.begin()) {
        --It;
        if (ELF_GetSymTag(It->second) == STT_FUNC) {
            return 0;
        }
        const char* Name = ELF_GetSymName(It->second);
        if (Name && Name[0] == '$' && (Name[1] == 'd' || Name[1] == 't' || Name[1] == 'a') &&
            (Name[2] == 0 || Name[2] == '.')) {
            return Name[1] == 'd' ? 1 : 0;
        }
    }
    return -1;
}

int IsDataAtLocked(const STORE& St, U32 Addr) {
    const auto& L = St.CodeSymbols;
    const auto It = std::lower_bound(L.begin(), L.end(), std::make_pair(Addr, ELF_SYM_HANDLE(0)));
    for (auto At = It; At != L.end() && At->first == Addr; ++At) {
        if (ELF_GetSymTag(At->second) == STT_OBJECT) {
            return 1;
        }
    }
    const int Mapping = MappingAt(St, Addr);
    if (Mapping == 1) {
        return 1;
    }
    return St.AddressMap.contains(Addr) ? 0 : Mapping;
}

/// The pieces of [Start, Start + Size) that hold data (Data) or code.
std::vector<std::pair<U32, U32>> SplitRange(const STORE& St, U32 Start, U32 Size, bool Data) {
    std::vector<std::pair<U32, U32>> Out;
    const U64 End = static_cast<U64>(Start) + Size;
    if (Size > ANALYSIS_LIMIT) {
        LogDebugMsg(QStringLiteral("Size of symbol @ %1 exceeds limit for line count analysis")
                        .arg(Start, 8, 16, QLatin1Char('0'))
                        .toUpper());
        if (!Data) {
            Out.push_back({Start, Size});
        }
        return Out;
    }
    // The state at the start, then each mapping symbol inside the range switches it.
    bool InData = MappingAt(St, Start) == 1;
    U64 PieceStart = Start;
    const auto& L = St.CodeSymbols;
    auto It = std::upper_bound(L.begin(), L.end(), Start,
                               [](U32 A, const std::pair<U32, ELF_SYM_HANDLE>& E) { return A < E.first; });
    for (; It != L.end() && It->first < End; ++It) {
        const int State = MappingAt(St, It->first);
        if (State < 0 || (State == 1) == InData) {
            continue;
        }
        if (It->first > PieceStart && InData == Data) {
            Out.push_back({static_cast<U32>(PieceStart), static_cast<U32>(It->first - PieceStart)});
        }
        InData = State == 1;
        PieceStart = It->first;
    }
    if (End > PieceStart && InData == Data) {
        Out.push_back({static_cast<U32>(PieceStart), static_cast<U32>(End - PieceStart)});
    }
    return Out;
}

} // namespace

int ELF_IsDataAt(U32 Addr) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return IsDataAtLocked(S(), Addr);
}

std::vector<std::pair<U32, U32>> ELF_GetDataRanges(U32 Start, U32 Size) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return SplitRange(S(), Start, Size, true);
}

std::vector<std::pair<U32, U32>> ELF_GetCodeRanges(U32 Start, U32 Size) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return SplitRange(S(), Start, Size, false);
}

std::vector<LINE_RANGE> ELF_GetLineRanges(U32 Start, U32 Size) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    STORE& St = S();
    if (!St.Ready) {
        return {};
    }
    if (Size > ANALYSIS_LIMIT) {
        LogDebugMsg(QStringLiteral("Size of function @ %1 exceeds limit for line count analysis")
                        .arg(Start, 8, 16, QLatin1Char('0'))
                        .toUpper());
        return {};
    }
    const U64 End = static_cast<U64>(Start) + Size;
    const U64 Key = (static_cast<U64>(Start) + 713) * 31 + End;
    const auto Hit = St.LineRangeCache.constFind(Key);
    if (Hit != St.LineRangeCache.constEnd()) {
        return *Hit;
    }
    std::vector<LINE_RANGE> Out;
    QSet<U64> Seen;
    CSrcLoc Current{NO_FILE, 0, 0};
    bool Open = false;
    const U32 Step = std::max<U32>(ELF_GetInstAlign(), 1);
    for (U64 A = Start; A < End; A += Step) {
        const auto It = St.AddressMap.constFind(static_cast<U32>(A));
        // Addresses without a row of their own stay with the line before them.
        if (It == St.AddressMap.constEnd() || It->empty() || IsDataAtLocked(St, static_cast<U32>(A)) == 1) {
            continue;
        }
        const CSrcLoc Line = *std::min_element(It->begin(), It->end());
        if (Line.File == Current.File && Line.Line == Current.Line) {
            continue;
        }
        if (Open) {
            Out.back().Size = static_cast<U32>(A - Out.back().Start);
        }
        Current = Line;
        // One range per line: the stretch where it first appears.
        Open = !Seen.contains(LineKey(Line.File, Line.Line));
        if (Open) {
            Seen.insert(LineKey(Line.File, Line.Line));
            Out.push_back({Line, static_cast<U32>(A), 0});
        }
    }
    if (Open) {
        Out.back().Size = static_cast<U32>(End - Out.back().Start);
    }
    std::sort(Out.begin(), Out.end(),
              [](const LINE_RANGE& A, const LINE_RANGE& B) { return A.Start < B.Start; });
    St.LineRangeCache.insert(Key, Out);
    return Out;
}

U32 ELF_GetLineCount(U32 Start, U32 Size) {
    return static_cast<U32>(ELF_GetLineRanges(Start, Size).size());
}

U32 ELF_GetFileCodeSize(U32 Id) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    U64 Sum = 0;
    for (const auto& R : S().FileRangeList.value(Id)) {
        Sum += R.second;
    }
    return static_cast<U32>(std::min<U64>(Sum, 0xFFFFFFFFull));
}

namespace {

/// The length of the Thumb instruction at Addr from its first halfword (2 or 4), 0 where the program
/// has no bytes. Cortex-M code is all Thumb: a first halfword of 0b11101, 0b11110 or 0b11111 opens a
/// 32-bit instruction.
U32 ThumbLengthAt(const ELF_DATA_BLOCKS& Blocks, U32 Addr) {
    for (const ELF_DATA_BLOCK& B : Blocks) {
        if (Addr >= B.VirtualAddress &&
            static_cast<U64>(Addr) + 2 <= static_cast<U64>(B.VirtualAddress) + B.Size &&
            static_cast<qsizetype>(Addr - B.VirtualAddress) + 2 <= B.Data.size()) {
            const U8* P = reinterpret_cast<const U8*>(B.Data.constData()) + (Addr - B.VirtualAddress);
            const U32 Half = P[0] | (P[1] << 8);
            return (Half >> 11) >= 0x1D ? 4 : 2;
        }
    }
    return 0;
}

} // namespace

std::vector<U32> ELF_GetAddrRangesOfLine(const CSrcLoc& Loc) {
    constexpr U32 WALK_BYTES = 256;
    const std::vector<U32> Starts = ELF_GetAddrsOfLine(Loc);
    const ELF_DATA_BLOCKS Blocks = ELF_GetProgramBlocks();
    QMutexLocker Lock(&ELF_GetDataMutex());
    STORE& St = S();
    const U32 Align = std::max<U32>(ELF_GetInstAlign(), 1);
    std::vector<U32> Out;
    QSet<U32> Collected;
    for (U32 Start : Starts) {
        // A start the walk from an earlier one reached adds nothing; one it stopped short of (another
        // line's instruction between) is walked from too, so that no address of the line is lost.
        if (Collected.contains(Start)) {
            continue;
        }
        // Forward from each start, instruction by instruction, while the code still belongs to the line.
        for (U64 A = Start; A < static_cast<U64>(Start) + WALK_BYTES;) {
            const U32 Addr = static_cast<U32>(A);
            if (IsDataAtLocked(St, Addr) == 1) {
                A += Align;
                continue;
            }
            const U32 Length = ThumbLengthAt(Blocks, Addr);
            if (!Length) {
                break;
            }
            const I64 Row = RowAddressLocked(St, Addr);
            bool Holds = false;
            if (Row >= 0) {
                for (const CSrcLoc& L : *St.AddressMap.constFind(static_cast<U32>(Row))) {
                    Holds |= L.File == Loc.File && L.Line == Loc.Line;
                }
            }
            if (!Holds) {
                break;
            }
            if (!Collected.contains(Addr)) {
                Collected.insert(Addr);
                Out.push_back(Addr);
            }
            A += Length;
        }
    }
    std::sort(Out.begin(), Out.end());
    return Out;
}
