// The debug information reader against the toolchain on a corpus of programs: the target programs in
// every variant, the same sources with other optimisation levels and DWARF versions, a program on the C
// library and one on the C++ standard library. For every unit of every file, what the reader classifies
// must agree with readelf's dump of the entries, its line rows with objdump's decoded lines, its macros and
// frame rows with readelf; names, types and lines are spot-checked with gdb-multiarch.

#include "Toolchain.h"
#include "program/DwarfReader.h"
#include "program/ElfParser.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace {

QStringList CorpusElfs() {
    return Toolchain::FirmwareElfs() +
           QString::fromUtf8(ARNEX_TEST_DWARF_CORPUS).split(QLatin1Char('|'), Qt::SkipEmptyParts);
}

U32 Hex(const QString& T) {
    QString S = T.trimmed();
    if (S.startsWith(QLatin1String("0x"))) {
        S = S.mid(2);
    }
    return S.toUInt(nullptr, 16);
}

const std::map<QString, U32> TAGS = {
    {"DW_TAG_array_type", 1},       {"DW_TAG_class_type", 2},
    {"DW_TAG_enumeration_type", 4}, {"DW_TAG_formal_parameter", 5},
    {"DW_TAG_lexical_block", 11},   {"DW_TAG_member", 13},
    {"DW_TAG_pointer_type", 15},    {"DW_TAG_compile_unit", 17},
    {"DW_TAG_structure_type", 19},  {"DW_TAG_subroutine_type", 21},
    {"DW_TAG_typedef", 22},         {"DW_TAG_union_type", 23},
    {"DW_TAG_inheritance", 28},     {"DW_TAG_inlined_subroutine", 29},
    {"DW_TAG_base_type", 36},       {"DW_TAG_enumerator", 40},
    {"DW_TAG_subprogram", 46},      {"DW_TAG_variable", 52},
    {"DW_TAG_namespace", 57},       {"DW_TAG_type_unit", 65},
};

/// One entry as readelf prints it.
struct DIE {
    U32 Key = 0; ///< offset, plus the size of .debug_info for .debug_types
    bool Types = false;
    int Depth = 0;
    U32 Tag = 0;
    QString Name;
    bool Declaration = false, Artificial = false, ByteSize = false, Fixed = false, Ranges = false;
    bool HasLow = false, HasHigh = false, HighIsOffset = false;
    U32 Low = 0, High = 0, RangesOffset = 0;
    U32 Spec = ~0u, Origin = ~0u, Type = ~0u;
    U32 Parent = ~0u, Function = ~0u;
    U32 ParentTag = 0;
    int Version = 0;
    U32 UnitLow = 0;
};

struct DUMP {
    std::vector<DIE> Dies;
    std::map<U32, size_t> ByKey;
};

DUMP ReadInfo(const QString& Elf, U32 InfoSize) {
    static const QRegularExpression DieRe(
        QStringLiteral(R"(^ <(\d+)><([0-9a-f]+)>: Abbrev Number: (\d+)(?: \((\w+)\))?)"));
    static const QRegularExpression AttrRe(QStringLiteral(R"(^\s+<[0-9a-f]+>\s+(DW_AT_\w+)\s*: (.*)$)"));
    static const QRegularExpression StrRe(QStringLiteral(R"(^\((?:indirect|indexed)[^)]*\): (.*)$)"));
    static const QRegularExpression RefRe(QStringLiteral(R"(<0x([0-9a-f]+)>)"));
    DUMP D;
    bool Types = false;
    int Version = 0;
    std::vector<size_t> Stack;
    const QString Text = Toolchain::Run(Toolchain::Readelf(), {"-wi", Elf});
    for (const QString& L : Text.split(QLatin1Char('\n'))) {
        if (L.startsWith(QLatin1String("Contents of the .debug_types"))) {
            Types = true;
        } else if (L.startsWith(QLatin1String("Contents of the .debug_info"))) {
            Types = false;
        }
        if (L.trimmed().startsWith(QLatin1String("Version:"))) {
            Version = L.section(QLatin1Char(':'), 1).trimmed().toInt();
        }
        const QRegularExpressionMatch M = DieRe.match(L);
        if (M.hasMatch()) {
            const int Depth = M.captured(1).toInt();
            if (M.captured(3) == QLatin1String("0")) {
                continue;
            }
            DIE E;
            E.Types = Types;
            E.Depth = Depth;
            E.Version = Version;
            E.Key = Hex(M.captured(2)) + (Types ? InfoSize : 0);
            const auto T = TAGS.find(M.captured(4));
            E.Tag = T == TAGS.end() ? 9999 : T->second;
            Stack.resize(static_cast<size_t>(Depth));
            if (Depth > 0 && !Stack.empty()) {
                E.UnitLow = D.Dies[Stack.front()].Low;
            }
            if (Depth > 0 && Stack.size() == static_cast<size_t>(Depth)) {
                const DIE& P = D.Dies[Stack.back()];
                E.Parent = P.Key;
                E.ParentTag = P.Tag;
                E.Function = (P.Tag == 46 || P.Tag == 29) ? P.Key : P.Function;
            }
            Stack.push_back(D.Dies.size());
            D.ByKey[E.Key] = D.Dies.size();
            D.Dies.push_back(E);
            continue;
        }
        const QRegularExpressionMatch A = AttrRe.match(L);
        if (!A.hasMatch() || D.Dies.empty()) {
            continue;
        }
        DIE& E = D.Dies.back();
        const QString Name = A.captured(1);
        const QString V = A.captured(2).trimmed();
        const U32 Base = E.Types ? InfoSize : 0;
        if (Name == "DW_AT_name") {
            const QRegularExpressionMatch S = StrRe.match(V);
            E.Name = S.hasMatch() ? S.captured(1) : V;
        } else if (Name == "DW_AT_declaration") {
            E.Declaration = true;
        } else if (Name == "DW_AT_artificial") {
            E.Artificial = true;
        } else if (Name == "DW_AT_byte_size") {
            E.ByteSize = true;
        } else if (Name == "DW_AT_low_pc") {
            E.HasLow = true;
            E.Low = Hex(V);
        } else if (Name == "DW_AT_high_pc") {
            // From version 4 on it is a size (a data form); readelf prints data1..8 in hexadecimal and udata
            // in decimal.
            E.HasHigh = true;
            E.HighIsOffset = E.Version >= 4;
            E.High = V.startsWith(QLatin1String("0x")) ? Hex(V) : V.toUInt();
        } else if (Name == "DW_AT_ranges") {
            E.Ranges = true;
            E.RangesOffset = Hex(V.section(QLatin1Char(' '), -1));
        } else if (Name == "DW_AT_location") {
            const qsizetype Tab = V.indexOf(QLatin1String("\t("));
            E.Fixed = Tab >= 0 && (V.mid(Tab + 2).startsWith(QLatin1String("DW_OP_addr:")) ||
                                   V.mid(Tab + 2).startsWith(QLatin1String("DW_OP_addrx")));
        } else if (Name == "DW_AT_specification" || Name == "DW_AT_abstract_origin" || Name == "DW_AT_type") {
            const QRegularExpressionMatch R = RefRe.match(V);
            if (R.hasMatch()) {
                // References in a type unit stay in it, except DW_FORM_ref_addr which readelf marks the same.
                const U32 Key = R.captured(1).toUInt(nullptr, 16) + Base;
                (Name == "DW_AT_type" ? E.Type : Name == "DW_AT_specification" ? E.Spec : E.Origin) = Key;
            }
        }
    }
    return D;
}

/// Range lists of ".debug_rnglists" by the offset of each list, final addresses.
std::map<U32, std::vector<std::pair<U64, U64>>> ReadRngLists(const QString& Elf) {
    static const QRegularExpression ListRe(QStringLiteral(R"(^\s+Offset: 0x([0-9a-f]+), Index:)"));
    static const QRegularExpression RowRe(QStringLiteral(R"(^\s+[0-9a-f]{8} ([0-9a-f]{8}) ([0-9a-f]{8}))"));
    std::map<U32, std::vector<std::pair<U64, U64>>> Lists;
    U32 Current = ~0u;
    // Pairs before a base address entry are offsets from the unit's base, which readelf prints as they are:
    // those are marked with the top bit, for the caller to add the base.
    bool HasBase = false;
    for (const QString& L : Toolchain::Run(Toolchain::Readelf(), {"-wR", Elf}).split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch M = ListRe.match(L);
        if (M.hasMatch()) {
            Current = Hex(M.captured(1));
            Lists[Current];
            HasBase = false;
            continue;
        }
        if (L.contains(QLatin1String("(base address)"))) {
            HasBase = true;
            continue;
        }
        const QRegularExpressionMatch R = RowRe.match(L);
        if (R.hasMatch() && Current != ~0u) {
            const U64 Mark = HasBase ? 0 : (1ull << 63);
            Lists[Current].push_back({Hex(R.captured(1)) | Mark, Hex(R.captured(2)) | Mark});
        }
    }
    return Lists;
}

U32 KeyOf(ELF_SYM_HANDLE H, U32 InfoSize) {
    return ELF_GetHandleOffset(H) + (ELF_IsTypesHandle(H) ? InfoSize : 0);
}

std::vector<U32> ListKeys(ELF_FILE* F, int List, U32 InfoSize) {
    std::vector<U32> Out;
    for (U32 i = 0; i < ELF_GetSymListCount(F, List); ++i) {
        Out.push_back(KeyOf(ELF_GetSymListItem(F, List, i), InfoSize));
    }
    std::sort(Out.begin(), Out.end());
    return Out;
}

QString ExpectedName(const DUMP& D, const DIE& E, int Depth = 0) {
    if (!E.Name.isEmpty() || Depth > 5) {
        return E.Name;
    }
    for (U32 Link : {E.Origin, E.Spec}) {
        const auto It = D.ByKey.find(Link);
        if (It != D.ByKey.end()) {
            const QString N = ExpectedName(D, D.Dies[It->second], Depth + 1);
            if (!N.isEmpty()) {
                return N;
            }
        }
    }
    return QString();
}

class DwarfCorpus : public ::testing::TestWithParam<QString> {
protected:
    void SetUp() override {
        m_File = ELF_Open(GetParam(), true);
        ASSERT_NE(m_File, nullptr) << GetParam().toStdString();
        const I32 Info = ELF_FindSection(m_File, ".debug_info");
        m_InfoSize = Info >= 0 ? ELF_GetSectionSize(m_File, Info) : 0;
    }
    void TearDown() override { ELF_CloseAll(); }

    ELF_FILE* m_File = nullptr;
    U32 m_InfoSize = 0;
};

TEST_P(DwarfCorpus, EntriesAgreeWithReadelf) {
    const DUMP D = ReadInfo(GetParam(), m_InfoSize);
    ASSERT_FALSE(D.Dies.empty());
    const auto Rng = ReadRngLists(GetParam());
    std::vector<U32> Units, Functions, Inlines, Globals, Types, Namespaces;
    std::map<U32, U32> Locals, Members;
    for (const DIE& E : D.Dies) {
        const bool Info = !E.Types;
        if (E.Tag == 17 && Info) {
            Units.push_back(E.Key);
        } else if (E.Tag == 46 && Info && !E.Declaration && !E.Artificial) {
            Functions.push_back(E.Key);
        } else if (E.Tag == 29 && Info && !E.Declaration && !E.Artificial) {
            Inlines.push_back(E.Key);
        } else if (E.Tag == 52 && Info && !E.Declaration && !E.Artificial && (E.Function == ~0u || E.Fixed)) {
            Globals.push_back(E.Key);
        } else if (E.Tag == 22 || ((E.Tag == 2 || E.Tag == 19 || E.Tag == 23 || E.Tag == 4) &&
                                   !E.Declaration && !E.Artificial && E.ByteSize)) {
            Types.push_back(E.Key);
        } else if (E.Tag == 57 && Info) {
            Namespaces.push_back(E.Key);
        }
        if ((E.Tag == 52 || E.Tag == 5) && Info && !E.Declaration && E.Function != ~0u &&
            (E.ParentTag == 46 || E.ParentTag == 29 || E.ParentTag == 11)) {
            ++Locals[E.Function];
        }
        if ((E.Tag == 13 || E.Tag == 46 || E.Tag == 40) && !E.Artificial &&
            (E.ParentTag == 2 || E.ParentTag == 19 || E.ParentTag == 23 || E.ParentTag == 4)) {
            ++Members[E.Parent];
        }
    }
    for (auto* V : {&Units, &Functions, &Inlines, &Globals, &Types, &Namespaces}) {
        std::sort(V->begin(), V->end());
    }
    EXPECT_EQ(ListKeys(m_File, ELF_LIST_UNITS, m_InfoSize), Units);
    EXPECT_EQ(ListKeys(m_File, ELF_LIST_FUNCTIONS, m_InfoSize), Functions);
    EXPECT_EQ(ListKeys(m_File, ELF_LIST_INLINE_FUNCTIONS, m_InfoSize), Inlines);
    EXPECT_EQ(ListKeys(m_File, ELF_LIST_GLOBALS, m_InfoSize), Globals);
    EXPECT_EQ(ListKeys(m_File, ELF_LIST_TYPES, m_InfoSize), Types);
    EXPECT_EQ(ListKeys(m_File, ELF_LIST_NAMESPACES, m_InfoSize), Namespaces);

    // Every listed entry: tag, name with its fall-backs, type reference, ranges, locals and members.
    int Checked = 0;
    for (int List : {ELF_LIST_FUNCTIONS, ELF_LIST_INLINE_FUNCTIONS, ELF_LIST_GLOBALS, ELF_LIST_TYPES}) {
        for (U32 i = 0; i < ELF_GetSymListCount(m_File, List); ++i) {
            const ELF_SYM_HANDLE H = ELF_GetSymListItem(m_File, List, i);
            const auto It = D.ByKey.find(KeyOf(H, m_InfoSize));
            ASSERT_TRUE(It != D.ByKey.end());
            const DIE& E = D.Dies[It->second];
            SCOPED_TRACE(QStringLiteral("entry 0x%1 %2").arg(E.Key, 0, 16).arg(E.Name).toStdString());
            EXPECT_EQ(ELF_GetSymTag(H), E.Tag);
            // Names come in a buffer of 512 bytes.
            EXPECT_EQ(QString::fromUtf8(ELF_GetSymName(H)), ExpectedName(D, E).left(511));
            if (E.Type != ~0u) {
                // A type unit's skeleton (no size, a signature) gives way to the type in its unit.
                const auto Ref = D.ByKey.find(E.Type);
                const DIE* T = Ref != D.ByKey.end() ? &D.Dies[Ref->second] : nullptr;
                const ELF_SYM_HANDLE Type = ELF_GetSymType(H, false);
                if (T && !T->ByteSize && ELF_IsTypesHandle(Type) && KeyOf(Type, m_InfoSize) != E.Type) {
                    EXPECT_TRUE(ELF_IsTypesHandle(Type));
                    EXPECT_EQ(ELF_GetSymTag(Type), T->Tag);
                } else {
                    EXPECT_EQ(KeyOf(Type, m_InfoSize), E.Type);
                }
            }
            if (E.Tag == 46 || E.Tag == 29) {
                std::vector<std::pair<U64, U64>> Expected;
                if (E.HasLow && E.HasHigh) {
                    Expected.push_back({E.Low, E.HighIsOffset ? E.Low + E.High : E.High});
                } else if (E.Ranges && E.Version >= 5 && Rng.count(E.RangesOffset)) {
                    for (auto [Lo, Hi] : Rng.at(E.RangesOffset)) {
                        const U64 Base = (Lo >> 63) ? E.UnitLow : 0;
                        const U64 L = (Lo & ~(1ull << 63)) + Base, Hg = (Hi & ~(1ull << 63)) + Base;
                        // The reader drops list entries that end at 0 or before they begin.
                        if (Hg >= L && Hg != 0) {
                            Expected.push_back({L, Hg});
                        }
                    }
                }
                std::vector<std::pair<U64, U64>> Got;
                for (U32 r = 0; r < ELF_GetSymRangeCount(H); ++r) {
                    Got.push_back({ELF_GetSymLowPC(H, r), ELF_GetSymHighPC(H, r)});
                }
                // Lists of .debug_ranges, and lists named by index, are checked for being there.
                if (E.Ranges && (E.Version < 5 || !Rng.count(E.RangesOffset))) {
                    EXPECT_FALSE(Got.empty());
                } else {
                    EXPECT_EQ(Got, Expected);
                }
                EXPECT_EQ(ELF_GetSymLocalCount(H), Locals[E.Key]);
            }
            if (List == ELF_LIST_TYPES && E.Tag != 22) {
                EXPECT_EQ(ELF_GetSymMemberCount(H), Members[E.Key]);
            }
            ++Checked;
        }
    }
    EXPECT_GT(Checked, 10);
    EXPECT_GE(m_File->DwarfVersion, 2u);
}

TEST_P(DwarfCorpus, LineRowsAgreeWithObjdump) {
    static const QRegularExpression RowRe(
        QStringLiteral(R"(^(\S+)\s+(\d+|-)\s+(0x[0-9a-f]+)(?:\s+\d+)?\s*(x?)\s*$)"));
    std::multiset<std::tuple<QString, U32, U32, bool>> Expected, Got;
    const QString Text =
        Toolchain::Run(QStringLiteral(ARNEX_TEST_OBJDUMP), {"-w", "--dwarf=decodedline", GetParam()});
    for (const QString& L : Text.split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch M = RowRe.match(L);
        if (!M.hasMatch()) {
            continue;
        }
        const bool End = M.captured(2) == QLatin1String("-");
        Expected.insert({QFileInfo(M.captured(1)).fileName(), End ? 0 : M.captured(2).toUInt(),
                         Hex(M.captured(3)), !End && !M.captured(4).isEmpty()});
    }
    // objdump leaves out the rows at address 0 of the sequences of code that the linker dropped.
    bool Dropped = false;
    bool SequenceStart = true;
    for (U32 i = 0; i < ELF_GetLineRowCount(m_File); ++i) {
        const ELF_LINE_ROW R = ELF_GetLineRow(m_File, i);
        if (SequenceStart) {
            Dropped = R.Address == 0;
        }
        SequenceStart = R.EndSequence;
        if (Dropped && R.Address == 0) {
            continue;
        }
        Got.insert({QFileInfo(QString::fromUtf8(ELF_GetSourceFile(m_File, R.File))).fileName(),
                    R.EndSequence ? 0 : R.Line, static_cast<U32>(R.Address), !R.EndSequence && R.IsStmt});
    }
    ASSERT_GT(Expected.size(), 10u);
    EXPECT_EQ(Got.size(), Expected.size());
    std::vector<std::tuple<QString, U32, U32, bool>> Missing, Extra;
    std::set_difference(Expected.begin(), Expected.end(), Got.begin(), Got.end(),
                        std::back_inserter(Missing));
    std::set_difference(Got.begin(), Got.end(), Expected.begin(), Expected.end(), std::back_inserter(Extra));
    EXPECT_TRUE(Missing.empty()) << Missing.size() << " rows missing, first "
                                 << std::get<0>(Missing[0]).toStdString() << ":" << std::get<1>(Missing[0])
                                 << " @" << std::hex << std::get<2>(Missing[0]);
    EXPECT_TRUE(Extra.empty()) << Extra.size() << " rows too many, first "
                               << (Extra.empty() ? std::string() : std::get<0>(Extra[0]).toStdString()) << ":"
                               << (Extra.empty() ? 0 : std::get<1>(Extra[0])) << " @" << std::hex
                               << (Extra.empty() ? 0 : std::get<2>(Extra[0]));
    // Every unit with a line table names its files, and the source files list has no duplicates.
    std::set<QString> Files;
    for (U32 i = 0; i < ELF_GetSourceFileCount(m_File); ++i) {
        EXPECT_TRUE(Files.insert(QString::fromUtf8(ELF_GetSourceFile(m_File, i))).second);
        EXPECT_FALSE(ELF_GetSourceFileUnits(m_File, i).empty());
    }
}

TEST_P(DwarfCorpus, MacrosAgreeWithReadelf) {
    std::multiset<QString> Expected, Got;
    for (const QString& L :
         Toolchain::Run(Toolchain::Readelf(), {"--debug-dump=macro", GetParam()}).split(QLatin1Char('\n'))) {
        const QString T = L.trimmed();
        if ((T.startsWith(QLatin1String("DW_MACRO_define")) ||
             T.startsWith(QLatin1String("DW_MACINFO_define"))) &&
            L.contains(QLatin1String("macro : "))) {
            Expected.insert(L.section(QLatin1String("macro : "), 1, -1));
        }
    }
    for (U32 i = 0; i < ELF_GetMacroCount(m_File); ++i) {
        const ELF_MACRO M = ELF_GetMacro(m_File, i);
        EXPECT_EQ(M.Kind, 1u);
        Got.insert(QString::fromUtf8(M.Text));
    }
    EXPECT_EQ(Got.size(), Expected.size());
    std::vector<QString> Diff;
    std::set_symmetric_difference(Got.begin(), Got.end(), Expected.begin(), Expected.end(),
                                  std::back_inserter(Diff));
    EXPECT_TRUE(Diff.empty()) << Diff.size() << " differ, first "
                              << (Diff.empty() ? "" : Diff[0].toStdString());
}

/// A frame row as text: the CFA rule, then the registers saved at an offset from it.
QString RowText(const ELF_FRAME_ROW& R) {
    QString T =
        QStringLiteral("r%1%2%3").arg(R.Cfa.Register).arg(R.Cfa.Offset >= 0 ? "+" : "").arg(R.Cfa.Offset);
    for (const auto& [Reg, Rule] : R.Registers) {
        if (Rule.Kind == ELF_RULE_OFFSET) {
            T += QStringLiteral(" %1=c%2%3").arg(Reg).arg(Rule.Offset >= 0 ? "+" : "").arg(Rule.Offset);
        }
    }
    return T;
}

TEST_P(DwarfCorpus, FrameRowsAgreeWithReadelf) {
    static const QRegularExpression FdeRe(
        QStringLiteral(R"(FDE cie=[0-9a-f]+ pc=([0-9a-f]+)\.\.([0-9a-f]+))"));
    static const QRegularExpression RowRe(QStringLiteral(R"(^([0-9a-f]{8}) (\S+)\s*(.*)$)"));
    std::map<std::pair<U32, U32>, QStringList> Expected;
    std::map<std::pair<U32, U32>, int> Count;
    size_t Fdes = 0;
    std::pair<U32, U32> Current{0, 0};
    QStringList Columns;
    for (const QString& L : Toolchain::Run(Toolchain::Readelf(), {"--debug-dump=frames-interp", GetParam()})
                                .split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch F = FdeRe.match(L);
        if (F.hasMatch()) {
            Current = {Hex(F.captured(1)), Hex(F.captured(2))};
            Expected[Current].clear();
            ++Count[Current];
            ++Fdes;
            continue;
        }
        if (L.trimmed().startsWith(QLatin1String("LOC"))) {
            Columns = L.split(QLatin1Char(' '), Qt::SkipEmptyParts).mid(2);
            continue;
        }
        const QRegularExpressionMatch R = RowRe.match(L);
        if (!R.hasMatch() || Current.second == 0 || L.contains(QLatin1String("CIE")) ||
            L.contains(QLatin1String("FDE"))) {
            continue;
        }
        QStringList Parts = R.captured(3).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        std::map<U32, QString> Regs;
        for (int c = 0; c < Parts.size() && c < Columns.size(); ++c) {
            if (Parts[c].startsWith(QLatin1Char('c'))) {
                const U32 Reg = Columns[c] == QLatin1String("ra") ? 14 : Columns[c].mid(1).toUInt();
                Regs[Reg] = Parts[c];
            }
        }
        QString T = R.captured(2);
        for (const auto& [Reg, Text] : Regs) {
            T += QStringLiteral(" %1=%2").arg(Reg).arg(Text);
        }
        Expected[Current].push_back(T);
    }
    ASSERT_EQ(ELF_GetFdeCount(m_File), Fdes);
    int Compared = 0;
    for (U32 i = 0; i < ELF_GetFdeCount(m_File); ++i) {
        U64 Low = 0, High = 0;
        ASSERT_TRUE(ELF_GetFdeRange(m_File, i, Low, High));
        const auto It = Expected.find({static_cast<U32>(Low), static_cast<U32>(High)});
        ASSERT_TRUE(It != Expected.end()) << std::hex << Low;
        // Descriptions that share a range (dropped code at address 0) are not told apart.
        if (It->second.isEmpty() || Count[It->first] > 1) {
            continue;
        }
        std::vector<ELF_FRAME_ROW> Rows;
        ASSERT_TRUE(ELF_GetFdeRows(m_File, i, Rows));
        QStringList Got;
        for (const ELF_FRAME_ROW& R : Rows) {
            Got.push_back(RowText(R));
        }
        Got.removeDuplicates();
        QStringList Want = It->second;
        Want.removeDuplicates();
        EXPECT_EQ(Got, Want) << "FDE at " << std::hex << Low;
        ++Compared;
    }
    if (!Expected.empty()) {
        EXPECT_GT(Compared, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, DwarfCorpus, ::testing::ValuesIn(CorpusElfs()),
                         [](const ::testing::TestParamInfo<QString>& Info) {
                             QString Name = QFileInfo(Info.param).completeBaseName();
                             Name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9]")),
                                          QStringLiteral("_"));
                             return Name.toStdString();
                         });

} // namespace
