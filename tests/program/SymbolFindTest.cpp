// Texts to addresses against the toolchain: every symbol readelf names resolves to its address, every
// function and variable gdb lists is found at its line, macros read as gdb reads them, and location
// texts round-trip through their canonical form.

#include "Toolchain.h"

#include "app/core/CommandTable.h"
#include "program/ElfParser.h"
#include "program/ElfWrapper.h"
#include "program/SymbolFind.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <set>

namespace {

QStringList CorpusElfs() {
    return Toolchain::FirmwareElfs() +
           QString::fromUtf8(ARNEX_TEST_DWARF_CORPUS).split(QLatin1Char('|'), Qt::SkipEmptyParts);
}

class SymbolFind : public ::testing::Test {
protected:
    void TearDown() override { ELF_Unload(); }
};

TEST_F(SymbolFind, EveryNamedSymbolResolvesToItsAddressInTheSymbolTable) {
    int Checked = 0;
    for (const QString& Elf : CorpusElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        const std::vector<Toolchain::Symbol> Syms = Toolchain::ReadSymbols(Elf);
        QHash<QString, int> Count;
        for (const Toolchain::Symbol& E : Syms) {
            ++Count[E.Name];
        }
        for (const Toolchain::Symbol& E : Syms) {
            // Names given twice (statics of two units) are a matter of scope, not of the resolver.
            if (Count[E.Name] != 1 || E.Name.isEmpty() || E.Name.startsWith('$') || E.Value == 0 ||
                E.Ndx == "UND" || E.Type == "FILE" || E.Type == "SECTION") {
                continue;
            }
            int Kind = FIND_ADDR_NONE;
            U32 Size = 0;
            const I64 Addr = ELF_FindAddr(E.Name, Kind, &Size);
            const bool Function = E.Type == "FUNC";
            EXPECT_EQ(Addr, Function ? E.Value & ~1u : E.Value) << E.Name.toStdString();
            EXPECT_EQ(Kind, Function ? FIND_ADDR_FUNCTION : FIND_ADDR_DATA) << E.Name.toStdString();
            if (E.Size && E.Type == "OBJECT") {
                EXPECT_EQ(Size, E.Size) << E.Name.toStdString();
            }
            ++Checked;
        }
    }
    EXPECT_GT(Checked, 2000);
}

TEST_F(SymbolFind, FunctionsAndVariablesGdbListsAreFoundAtTheirLines) {
    static const QRegularExpression Entry(R"(^(\d+):\s+(.*?);$)");
    static const QRegularExpression NonDebug(R"(^0x([0-9a-f]+)\s+(\S+)$)");
    static const QRegularExpression LastName(R"(([A-Za-z_]\w*)\s*(\(.*\)|(\[\d*\])+)?\s*$)");
    int Debug = 0;
    int Plain = 0;
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        const QStringList Answers =
            Toolchain::AskGdb(Elf, {QStringLiteral("info functions"), QStringLiteral("info variables")});
        ASSERT_EQ(Answers.size(), 2);
        for (int Which = 0; Which < 2; ++Which) {
            bool NonDebugging = false;
            I64 File = -1;
            for (const QString& Line : Answers[Which].split('\n')) {
                NonDebugging |= Line.startsWith("Non-debugging symbols:");
                if (Line.startsWith("File ") && Line.endsWith(':')) {
                    File = ELF_GetFileId(Line.mid(5).chopped(1));
                }
                const QRegularExpressionMatch E = Entry.match(Line.trimmed());
                const QRegularExpressionMatch N = NonDebug.match(Line.trimmed());
                if (!NonDebugging && E.hasMatch()) {
                    const QRegularExpressionMatch Name = LastName.match(E.captured(2));
                    ASSERT_TRUE(Name.hasMatch()) << Line.toStdString();
                    bool Found = false;
                    for (ELF_SYM_HANDLE H :
                         ELF_FindSyms(Name.captured(1), true, false, false, false, false)) {
                        Found |= ELF_GetSymDeclLine(H, 0x3A) == E.captured(1).toUInt() &&
                                 ELF_GetSymTag(H) == (Which == 0 ? 0x2Eu : 0x34u);
                    }
                    EXPECT_TRUE(Found) << Line.toStdString();
                    // The same symbol is among those declared at that line of that file.
                    bool AtLine = false;
                    ASSERT_GE(File, 0) << Line.toStdString();
                    for (ELF_SYM_HANDLE H :
                         ELF_GetSymsAtLine({static_cast<U32>(File), E.captured(1).toUInt(), 0})) {
                        AtLine |= QString::fromUtf8(ELF_GetSymName(H)) == Name.captured(1);
                    }
                    EXPECT_TRUE(AtLine) << Line.toStdString();
                    if (Which == 0) {
                        const ELF_SYM_LIST Bare = ELF_GetFunctionsWithoutSource();
                        for (ELF_SYM_HANDLE H : Bare) {
                            EXPECT_NE(QString::fromUtf8(ELF_GetSymName(H)), Name.captured(1))
                                << "a function gdb knows by its line has source";
                        }
                    }
                    ++Debug;
                } else if (NonDebugging && N.hasMatch() && !N.captured(2).startsWith('$')) {
                    int Kind = FIND_ADDR_NONE;
                    EXPECT_EQ(ELF_FindAddr(N.captured(2), Kind), N.captured(1).toUInt(nullptr, 16) & ~1u)
                        << Line.toStdString();
                    ++Plain;
                }
            }
        }
    }
    EXPECT_GT(Debug, 100);
    EXPECT_GT(Plain, 3);
}

TEST_F(SymbolFind, TheSymbolAtAnAddressIsGdbsAndTheNextLineIsTheNextOne) {
    static const QRegularExpression Info(R"(^(\S+?)(\.\w+\.\d+)?( \+ \d+)? in section \S+$)");
    int Compared = 0;
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        // Every function of the symbol table stands at its address.
        for (const Toolchain::Symbol& Sym : Toolchain::ReadSymbols(Elf)) {
            if (Sym.Type == "FUNC" && Sym.Value) {
                const ELF_SYM_HANDLE H = ELF_GetSymAt(Sym.Value & ~1u);
                ASSERT_NE(H, 0u) << Sym.Name.toStdString();
                EXPECT_EQ(ELF_GetSymTag(H), 2u) << "the function, not the label: " << Sym.Name.toStdString();
            }
        }
        // The function at every eighth line address is the one gdb names for it.
        std::vector<U32> Addrs;
        for (I64 A = ELF_GetNextAddr(0); A >= 0; A = ELF_GetNextAddr(static_cast<U32>(A))) {
            Addrs.push_back(static_cast<U32>(A));
        }
        QStringList Commands;
        std::vector<U32> Asked;
        for (size_t i = 0; i < Addrs.size(); i += 8) {
            Commands << QStringLiteral("info symbol 0x%1").arg(Addrs[i], 0, 16);
            Asked.push_back(Addrs[i]);
        }
        const QStringList Answers = Toolchain::AskGdb(Elf, Commands);
        ASSERT_EQ(Answers.size(), Commands.size());
        for (size_t i = 0; i < Asked.size(); ++i) {
            const QRegularExpressionMatch M = Info.match(Answers[static_cast<int>(i)].trimmed());
            ASSERT_TRUE(M.hasMatch()) << Answers[static_cast<int>(i)].toStdString();
            const ELF_SYM_HANDLE F = ELF_GetFuncAt(Asked[i], true);
            // Where names share an address (aliases, entry points of one assembly routine), gdb may name
            // another: its symbol lies within the function found here.
            const I64 Start = ELF_GetSymAddr(F);
            const I64 Theirs = ELF_GetProgramSymAddr(M.captured(1) + M.captured(2));
            const bool Same = QString::fromUtf8(ELF_GetSymName(F)) == M.captured(1);
            EXPECT_TRUE(Same || (Theirs >= Start && Theirs <= Asked[i]))
                << std::hex << Asked[i] << " " << ELF_GetSymName(F) << " " << M.captured(1).toStdString();
            ++Compared;
        }
        // From each line address, the next line starts where the locations first change.
        for (size_t i = 0; i < Addrs.size(); ++i) {
            U32 Next = 0;
            const CSrcLocList Here = ELF_GetSrcLocsAt(Addrs[i]);
            if (!ELF_GetNextLineAddr(Addrs[i], Next)) {
                continue;
            }
            EXPECT_NE(ELF_GetSrcLocsAt(Next), Here) << std::hex << Addrs[i];
            for (size_t j = i + 1; j < Addrs.size() && Addrs[j] < Next; ++j) {
                for (const CSrcLoc& L : ELF_GetSrcLocsAt(Addrs[j])) {
                    EXPECT_NE(std::find(Here.begin(), Here.end(), L), Here.end()) << std::hex << Addrs[j];
                }
            }
        }
    }
    EXPECT_GT(Compared, 300);
}

TEST_F(SymbolFind, DataInCodeIsObjdumpsAndLinesOfFunctionsAreGdbs) {
    // An instruction or a ".word": tab, encoding, tab, mnemonic. Other data shows as a dump with its text.
    static const QRegularExpression Insn(R"(^\s+([0-9a-f]+):\t[0-9a-f ]+\t(\S+))");
    static const QRegularExpression Raw(R"(^\s+([0-9a-f]+):\t[0-9a-f ]+ {2,}\S)");
    static const QRegularExpression Info(R"re(Line (\d+) of "([^"]*)")re");
    int Words = 0;
    int Lines = 0;
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        // objdump shows literal pools as ".word": they are data, every instruction is code.
        const QStringList Dump = Toolchain::Run(ARNEX_TEST_OBJDUMP, {"-d", Elf}).split('\n');
        for (const QString& Line : Dump) {
            const QRegularExpressionMatch M = Insn.match(Line);
            const QRegularExpressionMatch D = Raw.match(Line);
            if (!M.hasMatch() && !D.hasMatch()) {
                continue;
            }
            const U32 Addr = (M.hasMatch() ? M : D).captured(1).toUInt(nullptr, 16);
            const bool Word = !M.hasMatch() || M.captured(2) == ".word";
            EXPECT_EQ(ELF_IsDataAt(Addr),
                      Word ? 1 : (ELF_HasSrcAt(Addr) || ELF_GetSymAt(Addr) ? 0 : ELF_IsDataAt(Addr)))
                << Line.toStdString();
            Words += Word ? 1 : 0;
        }
        // The instructions of each line are instructions objdump decodes, from each of the line's starts
        // on, and gdb's line of each is this line.
        std::set<U32> Instructions;
        for (const QString& Line : Dump) {
            const QRegularExpressionMatch M = Insn.match(Line);
            if (M.hasMatch() && M.captured(2) != ".word") {
                Instructions.insert(M.captured(1).toUInt(nullptr, 16));
            }
        }
        QStringList LineCommands;
        std::vector<std::pair<U32, CSrcLoc>> LineAsked;
        for (U32 Id : ELF_GetFileIds()) {
            for (U32 L = 1; L < 200; ++L) {
                const std::vector<U32> Code = ELF_GetAddrRangesOfLine({Id, L, 0});
                for (U32 A : ELF_GetAddrsOfLine({Id, L, 0})) {
                    EXPECT_TRUE(std::binary_search(Code.begin(), Code.end(), A)) << std::hex << A;
                }
                for (U32 A : Code) {
                    EXPECT_TRUE(Instructions.count(A)) << std::hex << A << " is no instruction";
                    if (LineAsked.size() % 5 == 0) {
                        LineCommands << QStringLiteral("info line *0x%1").arg(A, 0, 16);
                    }
                    LineAsked.push_back({A, {Id, L, 0}});
                }
            }
        }
        const QStringList LineAnswers = Toolchain::AskGdb(Elf, LineCommands);
        ASSERT_EQ(LineAnswers.size(), LineCommands.size());
        for (qsizetype i = 0; i < LineAnswers.size(); ++i) {
            const QRegularExpressionMatch M = Info.match(LineAnswers[i]);
            ASSERT_TRUE(M.hasMatch()) << LineAnswers[i].toStdString();
            const auto& [Addr, Loc] = LineAsked[static_cast<size_t>(i) * 5];
            bool Holds = M.captured(1).toUInt() == Loc.Line;
            // Where gdb names another line of the same address, that address holds both here.
            for (const CSrcLoc& L : ELF_GetSrcLocsAt(Addr)) {
                Holds |= L.Line == M.captured(1).toUInt();
            }
            EXPECT_TRUE(Holds) << std::hex << Addr << " line " << std::dec << Loc.Line << ": "
                               << LineAnswers[i].toStdString();
        }
        // Every function's code and data pieces cover it without overlap, and each line's range starts
        // where gdb says that line is.
        QStringList Commands;
        std::vector<LINE_RANGE> Asked;
        for (const Toolchain::Symbol& Sym : Toolchain::ReadSymbols(Elf)) {
            if (Sym.Type != "FUNC" || !Sym.Size) {
                continue;
            }
            const U32 Start = Sym.Value & ~1u;
            U64 Covered = 0;
            for (const auto& P : ELF_GetCodeRanges(Start, Sym.Size)) {
                Covered += P.second;
                for (U32 A = P.first; A < P.first + P.second; A += 2) {
                    EXPECT_NE(ELF_IsDataAt(A), 1) << Sym.Name.toStdString() << std::hex << " " << A;
                }
            }
            for (const auto& P : ELF_GetDataRanges(Start, Sym.Size)) {
                Covered += P.second;
                EXPECT_EQ(ELF_IsDataAt(P.first), 1) << Sym.Name.toStdString();
            }
            EXPECT_EQ(Covered, Sym.Size) << Sym.Name.toStdString();
            const std::vector<LINE_RANGE> Ranges = ELF_GetLineRanges(Start, Sym.Size);
            EXPECT_EQ(ELF_GetLineCount(Start, Sym.Size), Ranges.size());
            std::set<std::pair<U32, U32>> Distinct;
            for (const LINE_RANGE& R : Ranges) {
                EXPECT_TRUE(Distinct.insert({R.Loc.File, R.Loc.Line}).second) << "one range per line";
                EXPECT_GE(R.Start, Start);
                EXPECT_LE(R.Start + R.Size, Start + Sym.Size);
                Commands << QStringLiteral("info line *0x%1").arg(R.Start, 0, 16);
                Asked.push_back(R);
            }
        }
        const QStringList Answers = Toolchain::AskGdb(Elf, Commands);
        ASSERT_EQ(Answers.size(), Commands.size());
        for (size_t i = 0; i < Asked.size(); ++i) {
            const QRegularExpressionMatch M = Info.match(Answers[static_cast<int>(i)]);
            ASSERT_TRUE(M.hasMatch()) << Answers[static_cast<int>(i)].toStdString();
            // gdb names one line per address; an address of two lines here holds gdb's too.
            bool Holds = false;
            for (const CSrcLoc& L : ELF_GetSrcLocsAt(Asked[i].Start)) {
                Holds |= L.Line == M.captured(1).toUInt() &&
                         ELF_GetFilePath(L.File).endsWith(M.captured(2).section('/', -1));
            }
            EXPECT_TRUE(Holds) << std::hex << Asked[i].Start << " "
                               << Answers[static_cast<int>(i)].toStdString();
            EXPECT_EQ(Asked[i].Loc, ELF_GetSrcLocsAt(Asked[i].Start).front());
            ++Lines;
        }
    }
    EXPECT_GT(Words, 50);
    EXPECT_GT(Lines, 300);
}

TEST_F(SymbolFind, LocationTextsResolveAsGdbsLinesAndRoundTrip) {
    static const QRegularExpression Starts(R"(Line (\d+) of "[^"]*" starts at address 0x([0-9a-f]+))");
    int Compared = 0;
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        if (!Elf.contains("O2-dwarf5") && !Elf.contains("O0-dwarf4")) {
            continue;
        }
        SCOPED_TRACE(Elf.toStdString());
        ASSERT_EQ(ELF_Load(Elf), 0);
        const QString Name = QFileInfo(Elf).fileName().section('-', 0, 0) + ".c";
        QStringList Commands;
        for (U32 Line = 1; Line <= 150; ++Line) {
            Commands << QStringLiteral("info line %1:%2").arg(Name).arg(Line);
        }
        const QStringList Answers = Toolchain::AskGdb(Elf, Commands);
        ASSERT_EQ(Answers.size(), Commands.size());
        for (U32 Line = 1; Line <= 150; ++Line) {
            const QString Text = QStringLiteral("%1:%2").arg(Name).arg(Line);
            int Kind = FIND_ADDR_NONE;
            const I64 Addr = ELF_FindAddr(Text, Kind);
            const QRegularExpressionMatch M = Starts.match(Answers[static_cast<int>(Line - 1)]);
            if (M.hasMatch() && M.captured(1).toUInt() == Line) {
                EXPECT_EQ(Addr, static_cast<I64>(M.captured(2).toUInt(nullptr, 16))) << Text.toStdString();
                EXPECT_EQ(Kind, FIND_ADDR_SOURCE);
                ++Compared;
            }
            CSrcLoc Loc;
            if (ELF_ParseSrcLoc(Text, Loc)) {
                // A line without code stands for the next line that has some.
                const CSrcLoc Code = ELF_GetFirstAddrOfLine(Loc) >= 0 ? Loc : ELF_GetNextCodeLine(Loc);
                EXPECT_EQ(Addr, Code.IsValid() ? ELF_GetFirstAddrOfLine(Code) : -1) << Text.toStdString();
                CSrcLoc Back;
                EXPECT_TRUE(ELF_ParseSrcLoc(ELF_FormatSrcLoc(Loc), Back));
                EXPECT_EQ(Back, Loc);
            }
        }
    }
    EXPECT_GT(Compared, 100);
}

TEST_F(SymbolFind, RelocatedProgramsAnswerAtTheirTargetAddresses) {
    const QString Elf = Toolchain::FirmwareElfs().filter("calls-O2-dwarf5").first();
    ASSERT_EQ(ELF_Load(Elf), 0);
    std::vector<std::pair<U32, CSrcLoc>> Rows;
    std::vector<ELF_SYM_HANDLE> Funcs;
    std::vector<I64> Firsts;
    for (I64 A = ELF_GetNextAddr(0); A >= 0; A = ELF_GetNextAddr(static_cast<U32>(A))) {
        Rows.push_back({static_cast<U32>(A), ELF_GetSrcLocAt(static_cast<U32>(A))});
        Funcs.push_back(ELF_GetFuncAt(static_cast<U32>(A), false));
        Firsts.push_back(ELF_GetFirstAddrOfLine(Rows.back().second));
    }
    int Kind = 0;
    const I64 Main = ELF_FindAddr("main", Kind);
    const I64 Global = ELF_FindAddr("g_Iterations", Kind);
    ASSERT_EQ(Global, 0x20000008);
    U32 FdeLow = 0, FdeHigh = 0;
    ASSERT_TRUE(ELF_GetFdeSpanAt(static_cast<U32>(Main), FdeLow, FdeHigh));
    ELF_Unload();
    // The whole program runs 0x1000 bytes higher than it was linked.
    ASSERT_EQ(ELF_AddRelocation("*", 0x1000), 0);
    ASSERT_EQ(ELF_Load(Elf), 0);
    for (size_t i = 0; i < Rows.size(); ++i) {
        EXPECT_EQ(ELF_GetSrcLocAt(Rows[i].first + 0x1000), Rows[i].second) << std::hex << Rows[i].first;
        EXPECT_EQ(ELF_GetFuncAt(Rows[i].first + 0x1000, false), Funcs[i]) << std::hex << Rows[i].first;
        EXPECT_EQ(ELF_GetFirstAddrOfLine(Rows[i].second), Firsts[i] < 0 ? -1 : Firsts[i] + 0x1000);
    }
    EXPECT_EQ(ELF_FindAddr("main", Kind), Main + 0x1000);
    EXPECT_EQ(ELF_FindAddr("g_Iterations", Kind), Global + 0x1000);
    U32 Low = 0, High = 0;
    ASSERT_TRUE(ELF_GetFdeSpanAt(static_cast<U32>(Main + 0x1000), Low, High));
    EXPECT_EQ(Low, FdeLow + 0x1000);
    EXPECT_EQ(High, FdeHigh + 0x1000);
    ELF_Unload();
    ELF_ClearRelocations();
}

TEST_F(SymbolFind, TextsOfEveryShape) {
    const QString Elf = Toolchain::FirmwareElfs().filter("calls-O0-dwarf5").first();
    ASSERT_EQ(ELF_Load(Elf), 0);
    const I64 File = ELF_GetFileId("calls.c");
    ASSERT_GE(File, 0);
    CSrcLoc Loc;
    // A path of the build machine, of another one, a quoted one, a column; case ignored in the name.
    for (const QString& T : {ELF_GetFilePath(static_cast<U32>(File)) + ":12", QString("C:\\src\\CALLS.C:12"),
                             QString("\"calls.c:12\""), QString(" calls.c:12:7 ")}) {
        ASSERT_TRUE(ELF_ParseSrcLoc(T, Loc)) << T.toStdString();
        EXPECT_EQ(Loc.File, static_cast<U32>(File));
        EXPECT_EQ(Loc.Line, 12u);
    }
    EXPECT_EQ(Loc.Column, 7u);
    EXPECT_EQ(ELF_FormatSrcLoc(Loc), "calls.c:12:7");
    for (const char* T : {"calls.c:0", "calls.c", "nothere.c:12", ":12", "calls.c:12:", "calls.c:x"}) {
        EXPECT_FALSE(ELF_ParseSrcLoc(T, Loc)) << T;
    }
    // The echo of a command shows the canonical form.
    QString Canonical;
    EXPECT_TRUE(ELF_CanonicalSrcLocText("C:\\src\\calls.c:12", Canonical));
    EXPECT_EQ(Canonical, "calls.c:12");

    int Kind = FIND_ADDR_NONE;
    EXPECT_EQ(ELF_FindAddr("0x20000100", Kind), 0x20000100);
    EXPECT_EQ(Kind, FIND_ADDR_VALUE);
    EXPECT_EQ(ELF_FindAddr("BEEF", Kind), 0xBEEF) << "hexadecimal digits that name nothing";
    EXPECT_EQ(Kind, FIND_ADDR_VALUE);
    // "Add" reads as a number but names a function: the function wins; "0xAdd" is the number.
    EXPECT_EQ(ELF_FindAddr("Add", Kind), ELF_GetProgramSymAddr("Add"));
    EXPECT_EQ(Kind, FIND_ADDR_FUNCTION);
    EXPECT_EQ(ELF_FindAddr("0xAdd", Kind), 0xADD);
    for (const char* T : {"", "0x100000000", "no_such_name", "nothere.c:3"}) {
        EXPECT_EQ(ELF_FindAddr(T, Kind), -1) << T;
        EXPECT_EQ(Kind, FIND_ADDR_NONE);
    }
}

TEST_F(SymbolFind, MacrosReadAsGdbReadsThem) {
    const QString Elf = QString::fromUtf8(ARNEX_TEST_DWARF_CORPUS).split('|').filter("dwarf5-macro").first();
    ASSERT_EQ(ELF_Load(Elf), 0);
    const QStringList Names = {"__GNUC__", "__INT64_C", "__ARM_ARCH", "__INT_MAX__", "__FLT_EPSILON__"};
    QStringList Commands = {"list main"};
    for (const QString& N : Names) {
        Commands << "info macro " + N;
    }
    const QStringList Answers = Toolchain::AskGdb(Elf, Commands);
    ASSERT_EQ(Answers.size(), Commands.size());
    static const QRegularExpression Define(R"(-D(\S+?)=(.*)$)", QRegularExpression::MultilineOption);
    for (int i = 0; i < Names.size(); ++i) {
        const QRegularExpressionMatch M = Define.match(Answers[i + 1]);
        ASSERT_TRUE(M.hasMatch()) << Answers[i + 1].toStdString();
        QString Value;
        EXPECT_TRUE(ELF_GetMacro(M.captured(1), Value)) << M.captured(1).toStdString();
        EXPECT_EQ(Value, M.captured(2).trimmed()) << M.captured(1).toStdString();
    }
    QString Value;
    EXPECT_FALSE(ELF_GetMacro("__INT64_C", Value)) << "a macro with parameters is named with them";
    ELF_Unload();
    EXPECT_FALSE(ELF_GetMacro("__GNUC__", Value)) << "the table goes with the program";
}

} // namespace
