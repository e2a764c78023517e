// The symbol store against the toolchain: at every line-table address of every corpus program, the
// function and the line agree with addr2line's; the addresses of each line hold that line; the edge
// rules of nearby rows and cached misses.

#include "Toolchain.h"

#include "program/ElfWrapper.h"
#include "program/SymbolStore.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <set>

namespace {

QStringList CorpusElfs() {
    return Toolchain::FirmwareElfs() +
           QString::fromUtf8(ARNEX_TEST_DWARF_CORPUS).split(QLatin1Char('|'), Qt::SkipEmptyParts);
}

struct ORACLE_ROW {
    QString Function;
    QString File; ///< without directories
    U32 Line = 0;
};

/// addr2line's innermost frame for each address, in one run.
std::vector<ORACLE_ROW> Addr2Line(const QString& Elf, const std::vector<U32>& Addrs) {
    QStringList Args = {QStringLiteral("-f"), QStringLiteral("-e"), Elf};
    for (U32 A : Addrs) {
        Args << QStringLiteral("0x") + QString::number(A, 16);
    }
    QString Error;
    const QStringList Lines = Toolchain::Run(ARNEX_TEST_ADDR2LINE, Args, &Error).split('\n');
    std::vector<ORACLE_ROW> Out;
    for (qsizetype i = 0; i + 1 < Lines.size(); i += 2) {
        ORACLE_ROW R;
        R.Function = Lines[i].trimmed();
        QString Where = Lines[i + 1].trimmed();
        Where = Where.section(QLatin1String(" (discriminator"), 0, 0);
        R.File = Where.section(QLatin1Char(':'), 0, -2).section(QLatin1Char('/'), -1);
        R.Line = Where.section(QLatin1Char(':'), -1).toUInt();
        Out.push_back(R);
    }
    return Out;
}

QString BaseName(const QString& Path) {
    return Path.section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1);
}

class SymbolStore : public ::testing::Test {
protected:
    void TearDown() override { ELF_Unload(); }
};

TEST_F(SymbolStore, AddressesAgreeWithAddr2Line) {
    const QStringList Elfs = CorpusElfs();
    ASSERT_GE(Elfs.size(), 20);
    for (const QString& Elf : Elfs) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        ASSERT_TRUE(ELF_IsSymbolStoreReady());
        // Every address of the line tables.
        std::set<U32> Set;
        for (I64 A = ELF_GetNextAddr(0); A >= 0; A = ELF_GetNextAddr(static_cast<U32>(A))) {
            Set.insert(static_cast<U32>(A));
        }
        ASSERT_FALSE(Set.empty());
        // No row of live code is lost: every row address objdump decodes inside a function symbol is here.
        {
            const std::vector<Toolchain::Symbol> Syms = Toolchain::ReadSymbols(Elf);
            static const QRegularExpression Row(R"(^\S+\s+\d+\s+0x([0-9a-f]+))");
            int Missing = 0;
            int LiveRows = 0;
            QString First;
            for (const QString& L :
                 Toolchain::Run(ARNEX_TEST_OBJDUMP, {QStringLiteral("--dwarf=decodedline"), Elf})
                     .split('\n')) {
                const QRegularExpressionMatch M = Row.match(L);
                if (!M.hasMatch()) {
                    continue;
                }
                const U32 A = M.captured(1).toUInt(nullptr, 16) & ~1u;
                bool Live = false;
                for (const Toolchain::Symbol& Sym : Syms) {
                    Live |= Sym.Type == QLatin1String("FUNC") && Sym.Size && A >= (Sym.Value & ~1u) &&
                            A < (Sym.Value & ~1u) + Sym.Size;
                }
                LiveRows += Live;
                if (Live && !Set.count(A)) {
                    First = First.isEmpty() ? L : First;
                    ++Missing;
                }
            }
            EXPECT_EQ(Missing, 0) << First.toStdString();
            EXPECT_GT(LiveRows, 20);
        }
        const std::vector<U32> Addrs(Set.begin(), Set.end());
        const std::vector<ORACLE_ROW> Oracle = Addr2Line(Elf, Addrs);
        ASSERT_EQ(Oracle.size(), Addrs.size());
        const bool Cxx = QFileInfo(Elf).fileName().startsWith(QLatin1String("cxx"));
        const std::vector<Toolchain::Symbol> Symbols = Toolchain::ReadSymbols(Elf);
        int LineMisses = 0;
        int FuncMisses = 0;
        QStringList Samples;
        for (size_t i = 0; i < Addrs.size(); ++i) {
            const ORACLE_ROW& O = Oracle[i];
            if (O.Line == 0 || O.File == QLatin1String("??")) {
                continue;
            }
            bool LineOk = false;
            for (const CSrcLoc& L : ELF_GetSrcLocsAt(Addrs[i])) {
                LineOk |= L.Line == O.Line && BaseName(ELF_GetFilePath(L.File)) == O.File;
            }
            // An inlined call that starts where the line table has no row shows the line of its call.
            for (ELF_SYM_HANDLE H : ELF_GetFuncListAt(Addrs[i])) {
                U64 First = ~0ull;
                for (U32 r = 0; r < ELF_GetSymRangeCount(H); ++r) {
                    if (ELF_GetSymHighPC(H, r) > ELF_GetSymLowPC(H, r)) { // empty ranges hold no code
                        First = std::min<U64>(First, ELF_GetSymLowPC(H, r) & ~1ull);
                    }
                }
                LineOk |= ELF_GetSymTag(H) == 0x1D && First == Addrs[i] &&
                          ELF_GetSrcLocAt(Addrs[i]).Line == ELF_GetSymDeclLine(H, 0x58);
            }
            if (!LineOk) {
                ++LineMisses;
                if (Samples.size() < 5) {
                    const CSrcLoc L = ELF_GetSrcLocAt(Addrs[i]);
                    Samples << QStringLiteral("line 0x%1: ours %2:%3, addr2line %4:%5")
                                   .arg(Addrs[i], 0, 16)
                                   .arg(BaseName(ELF_GetFilePath(L.File)))
                                   .arg(L.Line)
                                   .arg(O.File)
                                   .arg(O.Line);
                }
            }
            // C++ names come mangled from addr2line; the store gives the source name.
            if (Cxx || O.Function == QLatin1String("??")) {
                continue;
            }
            const ELF_SYM_HANDLE F = ELF_GetFuncAt(Addrs[i], false);
            const QString Ours = F ? QString::fromUtf8(ELF_GetSymName(F)) : QString();
            // Assembly functions nest under several names (__aeabi_dadd inside __subdf3), and one start has
            // several (__aeabi_fmul is __mulsf3): the symbol addr2line names must start where one of the
            // functions found here starts.
            bool Alias = false;
            for (ELF_SYM_HANDLE H : ELF_GetFuncListAt(Addrs[i])) {
                const U32 Start = static_cast<U32>(ELF_GetSymLowPC(H, 0)) & ~1u;
                for (const Toolchain::Symbol& Sym : Symbols) {
                    Alias |= Sym.Name == O.Function && (Sym.Value & ~1u) == Start;
                    // addr2line gives the first address of an assembly function to the one that ends there.
                    Alias |=
                        Sym.Name == O.Function && Start == Addrs[i] && (Sym.Value & ~1u) + Sym.Size == Start;
                }
            }
            if (!F) {
                Alias = true;
                for (const Toolchain::Symbol& Sym : Symbols) {
                    const U32 Lo = Sym.Value & ~1u;
                    Alias &=
                        !(Sym.Type == QLatin1String("FUNC") && Addrs[i] >= Lo && Addrs[i] < Lo + Sym.Size);
                }
            }
            if (Ours != O.Function && !Alias) {
                ++FuncMisses;
                if (Samples.size() < 10) {
                    Samples << QStringLiteral("function 0x%1: ours %2, addr2line %3")
                                   .arg(Addrs[i], 0, 16)
                                   .arg(Ours, O.Function);
                }
            }
        }
        EXPECT_EQ(LineMisses, 0) << Samples.join('\n').toStdString();
        EXPECT_EQ(FuncMisses, 0) << Samples.join('\n').toStdString();
    }
}

TEST_F(SymbolStore, TheFirstAddressOfEachLineIsGdbs) {
    // Every line of each target program's own source, asked of gdb in one run per program.
    static const QRegularExpression Starts(R"(Line (\d+) of "[^"]*" starts at address 0x([0-9a-f]+))");
    static const QRegularExpression NoCode(
        R"(Line (\d+) of "[^"]*"\s+is at address 0x[0-9a-f]+ <[^>]*> but contains no code)");
    int Compared = 0;
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        const QString Name = QFileInfo(Elf).fileName().section(QLatin1Char('-'), 0, 0) + QStringLiteral(".c");
        const I64 Id = ELF_GetFileId(Name);
        ASSERT_GE(Id, 0) << Name.toStdString();
        const CSrcLoc Last = ELF_GetPrevCodeLine({static_cast<U32>(Id), 100000, 0});
        ASSERT_TRUE(Last.IsValid());
        QStringList Commands;
        for (U32 Line = 1; Line <= Last.Line; ++Line) {
            Commands << QStringLiteral("info line %1:%2").arg(Name).arg(Line);
        }
        const QStringList Answers = Toolchain::AskGdb(Elf, Commands);
        ASSERT_EQ(Answers.size(), Commands.size());
        for (U32 Line = 1; Line <= Last.Line; ++Line) {
            const QString& A = Answers[static_cast<int>(Line - 1)];
            const I64 Ours = ELF_GetFirstAddrOfLine({static_cast<U32>(Id), Line, 0});
            const QRegularExpressionMatch M = Starts.match(A);
            if (M.hasMatch() && M.captured(1).toUInt() == Line) {
                EXPECT_EQ(Ours, static_cast<I64>(M.captured(2).toUInt(nullptr, 16)))
                    << Line << ": " << A.toStdString();
                ++Compared;
            } else if (NoCode.match(A).hasMatch() && Ours >= 0) {
                // gdb gives an address with two lines to the last of them; here it stays with both.
                EXPECT_GT(ELF_GetSrcLocsAt(static_cast<U32>(Ours)).size(), 1u)
                    << Line << ": " << A.toStdString();
            }
        }
    }
    EXPECT_GT(Compared, 200);
}

TEST_F(SymbolStore, LinesHoldTheirAddressesAndNearbyRowsStopAt256Bytes) {
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        for (U32 Id : ELF_GetFileIds()) {
            for (U32 Line = 1; Line < 400; ++Line) {
                for (U32 A : ELF_GetAddrsOfLine({Id, Line, 0})) {
                    bool Holds = false;
                    for (const CSrcLoc& L : ELF_GetSrcLocsAt(A)) {
                        Holds |= L.File == Id && L.Line == Line;
                    }
                    EXPECT_TRUE(Holds) << std::hex << A << " " << std::dec << Line;
                }
            }
        }
        // Between two rows of one function the earlier row answers, up to 256 bytes after it.
        for (ELF_SYM_HANDLE F : ELF_GetFunctions()) {
            const U32 Start = static_cast<U32>(ELF_GetSymLowPC(F, 0)) & ~1u;
            const I64 Next = ELF_GetNextAddr(Start);
            if (Next < 0 || !ELF_HasSrcAt(Start) || ELF_GetFuncAt(static_cast<U32>(Next), true) != F) {
                continue;
            }
            if (static_cast<U32>(Next) > Start + 2) {
                EXPECT_EQ(ELF_GetSrcLocAt(Start + 2).Line, ELF_GetSrcLocAt(Start).Line);
            }
        }
        EXPECT_TRUE(ELF_GetSrcLocsAt(0).empty());
        EXPECT_TRUE(ELF_GetSrcLocsAt(0xFFFFFFFFu).empty());
        EXPECT_EQ(ELF_GetFuncAt(0xFFFFFFF0u, false), 0u);
        EXPECT_EQ(ELF_GetFuncAt(0xFFFFFFF0u, false), 0u) << "the cached miss answers the same";
        const ELF_SYM_HANDLE Main = ELF_GetFuncAt(static_cast<U32>(ELF_GetEntryPointPC()), true);
        EXPECT_NE(Main, 0u) << "the entry point lies in a function";
    }
}

TEST_F(SymbolStore, NamesFindWhatNmAndTheDebugListsHold) {
    for (const QString& Elf : CorpusElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        int Checked = 0;
        // Every named symbol of nm is found among the ELF symbols, with its value.
        for (const Toolchain::NmEntry& E : Toolchain::ReadNm(Elf)) {
            if (E.Name.isEmpty() || E.Name.startsWith('$')) {
                continue;
            }
            bool Found = false;
            for (ELF_SYM_HANDLE H : ELF_FindSyms(E.Name, false, false, false, true, false)) {
                Found |= QString::fromUtf8(ELF_GetSymName(H)) == E.Name &&
                         (static_cast<U32>(ELF_GetSymLowPC(H, 0)) & ~1u) == (E.Value & ~1u);
            }
            EXPECT_TRUE(Found) << E.Name.toStdString();
            ++Checked;
        }
        EXPECT_GT(Checked, 10);
        // Every function with code is found by its name among the debug symbols, sorted or not.
        for (ELF_SYM_HANDLE F : ELF_GetFunctions()) {
            if (ELF_GetHandleKind(F) != ELF_SYM_KIND_DEBUG || ELF_GetSymTag(F) != 0x2E) {
                continue;
            }
            const QString Name = QString::fromUtf8(ELF_GetSymName(F));
            for (bool Sorted : {false, true}) {
                const ELF_SYM_LIST Hits = ELF_FindSyms(Name, true, false, false, true, Sorted);
                EXPECT_NE(std::find(Hits.begin(), Hits.end(), F), Hits.end()) << Name.toStdString();
                if (Sorted && !Hits.empty()) {
                    EXPECT_EQ(ELF_GetHandleKind(Hits.front()), ELF_SYM_KIND_DEBUG)
                        << "debug entries come first";
                }
            }
        }
        EXPECT_TRUE(ELF_FindSyms(QString(), true, true, true, true, true).empty());
        EXPECT_TRUE(
            ELF_FindSyms(QStringLiteral("no_such_symbol_anywhere"), true, true, true, true, true).empty());
    }
}

TEST_F(SymbolStore, TheScopeGivesTheLocalsOfTheFunctionAtThePc) {
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        if (!Elf.contains(QLatin1String("-O0-"))) {
            continue; // locals that optimised code keeps are another matter
        }
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        for (ELF_SYM_HANDLE F : ELF_GetFunctions()) {
            // A function inlined everywhere stands in the list at its first inlined call: no own code.
            if (ELF_GetHandleKind(F) != ELF_SYM_KIND_DEBUG || ELF_GetSymLocalCount(F) == 0 ||
                ELF_GetSymLowPC(F, 0) == 0) {
                continue;
            }
            ELF_SetScope(static_cast<U32>(ELF_GetSymLowPC(F, 0)));
            ASSERT_EQ(ELF_GetScopeFunction(), F) << ELF_GetSymName(F);
            const QString Local = QString::fromUtf8(ELF_GetSymName(ELF_GetSymLocal(F, 0)));
            const ELF_SYM_LIST Hits = ELF_FindSyms(Local, true, true, false, false, false);
            ASSERT_FALSE(Hits.empty()) << Local.toStdString();
            EXPECT_EQ(Hits.front(), ELF_GetSymLocal(F, 0)) << "the local comes before any global of its name";
        }
    }
}

TEST_F(SymbolStore, FilesHoldTheirCodeAndTheirFunctions) {
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        // Every row lies in the code of its file.
        for (I64 A = ELF_GetNextAddr(0); A >= 0; A = ELF_GetNextAddr(static_cast<U32>(A))) {
            for (const CSrcLoc& L : ELF_GetSrcLocsAt(static_cast<U32>(A))) {
                const auto [Start, Size] = ELF_GetFileRange(L.File);
                if (Size) {
                    EXPECT_TRUE(A >= Start && A < static_cast<I64>(Start) + Size)
                        << std::hex << A << " " << ELF_GetFilePath(L.File).toStdString();
                }
            }
        }
        // Each function of the program's own source is among the functions of the file at its start.
        const QString Name = QFileInfo(Elf).fileName().section(QLatin1Char('-'), 0, 0) + QStringLiteral(".c");
        const I64 Id = ELF_GetFileId(Name);
        ASSERT_GE(Id, 0);
        const ELF_SYM_LIST Own = ELF_GetFunctionsOfFile(static_cast<U32>(Id));
        int Found = 0;
        for (ELF_SYM_HANDLE F : ELF_GetFunctions()) {
            const U32 Start = static_cast<U32>(ELF_GetSymLowPC(F, 0)) & ~1u;
            if (ELF_GetHandleKind(F) == ELF_SYM_KIND_DEBUG && Start &&
                QString::fromUtf8(ELF_GetSymDeclFile(F, 0x3A)).endsWith(Name)) {
                EXPECT_EQ(ELF_GetFileAt(Start), Id) << ELF_GetSymName(F);
                EXPECT_NE(std::find(Own.begin(), Own.end(), F), Own.end()) << ELF_GetSymName(F);
                ++Found;
            }
        }
        EXPECT_GT(Found, 0);
        EXPECT_EQ(ELF_GetFileAt(0xFFFFFFF0u), -1);
    }
}

TEST_F(SymbolStore, DisplayNamesCarryTheirScopes) {
    const QStringList Elfs = CorpusElfs().filter(QRegularExpression("cxx-O1"));
    ASSERT_EQ(Elfs.size(), 1);
    ASSERT_EQ(ELF_Load(Elfs.first()), 0);
    const auto First = [](const char* Name) {
        const ELF_SYM_LIST L = ELF_FindSyms(QString::fromLatin1(Name), true, false, false, false, true);
        return L.empty() ? ELF_SYM_HANDLE(0) : L.front();
    };
    const ELF_SYM_HANDLE Count = First("Count");
    ASSERT_NE(Count, 0u);
    EXPECT_EQ(ELF_GetSymDisplayName(Count, 0), "Count");
    EXPECT_EQ(ELF_GetSymDisplayName(Count, 1), "geometry::Shape::Count");
    const ELF_SYM_HANDLE Buffer = First("g_Buffer");
    ASSERT_NE(Buffer, 0u);
    EXPECT_EQ(ELF_GetSymDisplayName(Buffer, 1), "cxx_user.cpp::g_Buffer") << "file scope: the unit's file";
    EXPECT_EQ(ELF_GetSymDisplayName(Buffer, 2), "g_Buffer") << "a unique name stays plain";
    // Every method of the program's classes is named as gdb demangles it, up to its parameters.
    int Methods = 0;
    for (const Toolchain::NmEntry& E : Toolchain::ReadNm(Elfs.first())) {
        if (!E.Name.startsWith(QLatin1String("_ZNK8geometry")) &&
            !E.Name.startsWith(QLatin1String("_ZN8geometry"))) {
            continue;
        }
        const QString Demangled = Toolchain::Run(QStringLiteral("arm-none-eabi-c++filt"), {E.Name})
                                      .trimmed()
                                      .section(QLatin1Char('('), 0, 0);
        const ELF_SYM_HANDLE F = ELF_GetFuncAt(E.Value & ~1u, true);
        if (!F || ELF_GetHandleKind(F) != ELF_SYM_KIND_DEBUG || Demangled.contains(QLatin1Char('<')) ||
            Demangled.contains(QLatin1Char('~'))) {
            continue; // templates print their arguments, destructors their variants
        }
        EXPECT_EQ(ELF_GetSymDisplayName(F, 1), Demangled) << E.Name.toStdString();
        ++Methods;
    }
    EXPECT_GE(Methods, 1) << "optimised code keeps few methods out of line";
}

TEST_F(SymbolStore, FrameDescriptionsCoverWhatReadelfSays) {
    static const QRegularExpression Fde(R"(FDE cie=[0-9a-f]+ pc=([0-9a-f]+)\.\.([0-9a-f]+))");
    for (const QString& Elf : CorpusElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        std::map<U32, U32> Expected;
        const QString Frames =
            Toolchain::Run(QStringLiteral(ARNEX_TEST_READELF), {QStringLiteral("--debug-dump=frames"), Elf});
        for (auto It = Fde.globalMatch(Frames); It.hasNext();) {
            const QRegularExpressionMatch M = It.next();
            U32& End = Expected[M.captured(1).toUInt(nullptr, 16)];
            End = std::max(End, M.captured(2).toUInt(nullptr, 16));
        }
        ASSERT_FALSE(Expected.empty());
        for (const auto& [Lo, Hi] : Expected) {
            if (Hi == Lo) {
                continue; // an empty description covers nothing
            }
            U32 Low = 0;
            U32 High = 0;
            ASSERT_TRUE(ELF_GetFdeSpanAt(Lo, Low, High)) << std::hex << Lo;
            // Descriptions of removed code (at 0) may overlap each other; the one that starts here answers.
            EXPECT_EQ(Low, Lo);
            EXPECT_EQ(High, Hi) << std::hex << Lo;
            ASSERT_TRUE(ELF_GetFdeSpanAt(Hi - 1, Low, High));
        }
        U32 Low = 0;
        U32 High = 0;
        EXPECT_FALSE(ELF_GetFdeSpanAt(0xFFFFFFF0u, Low, High));
    }
}

TEST_F(SymbolStore, FileIdsFoldCaseAndFileNamesFindTheirFile) {
    ASSERT_EQ(ELF_Load(Toolchain::FirmwareElfs().first()), 0);
    const std::vector<U32> Ids = ELF_GetFileIds();
    ASSERT_FALSE(Ids.empty());
    const QString Path = ELF_GetFilePath(Ids.front());
    EXPECT_EQ(ELF_FileIdOfPath(Path.toUpper()), ELF_FileIdOfPath(Path));
    EXPECT_EQ(ELF_GetFileId(Path), static_cast<I64>(Ids.front()));
    // A path of another machine finds the file of the same name, case ignored.
    const I64 Moved = ELF_GetFileId(QStringLiteral("C:\\elsewhere\\") + BaseName(Path).toUpper());
    ASSERT_GE(Moved, 0);
    EXPECT_EQ(BaseName(ELF_GetFilePath(static_cast<U32>(Moved))), BaseName(Path));
    EXPECT_EQ(ELF_GetFileId(QString()), -1);
    EXPECT_EQ(ELF_GetFileId(QStringLiteral("/no/such/file_at_all.c")), -1);
    ELF_Unload();
    EXPECT_FALSE(ELF_IsSymbolStoreReady());
    EXPECT_TRUE(ELF_GetFileIds().empty()) << "the tables go with the program";
}

} // namespace
