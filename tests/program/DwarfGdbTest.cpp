// Names, types and scopes of what the debug information reader classifies, spot-checked with gdb-multiarch
// on the same file: every 10th function (info line, info scope), global and type (ptype, sizeof) of each
// corpus program. Only names that are unique in their list are asked: gdb picks one of several
// same-named statics or types without saying which.

#include "Toolchain.h"
#include "program/DwarfReader.h"
#include "program/ElfParser.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>

namespace {

QStringList CorpusElfs() {
    return Toolchain::FirmwareElfs() +
           QString::fromUtf8(ARNEX_TEST_DWARF_CORPUS).split(QLatin1Char('|'), Qt::SkipEmptyParts);
}

constexpr int SAMPLE_STEP = 10;

/// The name gdb knows a symbol by: its own name behind the names of its namespaces and classes; empty
/// when a scope is anonymous or the name is one gdb spells its own way (templates, operators).
/// With Templates, names of template instances are cut at their argument list instead.
QString QualifiedName(ELF_SYM_HANDLE H, bool Templates = false) {
    QString Name = QString::fromUtf8(ELF_GetSymName(H));
    if (Templates) {
        Name = Name.section('<', 0, 0);
    }
    if (Name.isEmpty() || Name.contains('<') || Name.startsWith(QLatin1String("operator"))) {
        return QString();
    }
    for (ELF_SYM_HANDLE S : ELF_GetSymScopes(H)) {
        const U32 Tag = ELF_GetSymTag(S);
        if (Tag == 57 || Tag == 2 || Tag == 19 || Tag == 23) {
            QString Scope = QString::fromUtf8(ELF_GetSymName(S));
            if (Templates) {
                Scope = Scope.section('<', 0, 0);
            }
            if (Scope.isEmpty() || Scope.contains('<')) {
                return QString();
            }
            Name = Scope + "::" + Name;
        }
    }
    return Name;
}

/// Every SAMPLE_STEP-th entry of a list whose qualified name no other entry of the list has.
std::vector<std::pair<ELF_SYM_HANDLE, QString>> Sample(ELF_FILE* F, int List,
                                                       const std::function<bool(ELF_SYM_HANDLE)>& Keep) {
    std::map<QString, int> Count;
    std::vector<std::pair<ELF_SYM_HANDLE, QString>> All;
    for (U32 i = 0; i < ELF_GetSymListCount(F, List); ++i) {
        const ELF_SYM_HANDLE H = ELF_GetSymListItem(F, List, i);
        const QString Name = QualifiedName(H);
        if (!Name.isEmpty() && Keep(H)) {
            ++Count[Name];
            All.push_back({H, Name});
        }
    }
    std::vector<std::pair<ELF_SYM_HANDLE, QString>> Out;
    int Seen = 0;
    for (const auto& Item : All) {
        if (Count[Item.second] == 1 && Seen++ % SAMPLE_STEP == 0) {
            Out.push_back(Item);
        }
    }
    return Out;
}

/// gdb's ptype text with every braced body taken out ("struct s {...} *" is "struct s *").
QString WithoutBodies(const QString& Text) {
    QString Out;
    int Depth = 0;
    for (QChar C : Text) {
        if (C == '{') {
            ++Depth;
        } else if (C == '}') {
            --Depth;
        } else if (Depth == 0) {
            Out += C;
        }
    }
    return Out.simplified();
}

/// The outermost type as gdb prints it, in the reader's terms: tag, then the name or the dimensions.
QString GdbShape(const QString& Ptype) {
    QString T = WithoutBodies(Ptype.startsWith("type = ") ? Ptype.mid(7) : Ptype);
    T.remove(QRegularExpression(QStringLiteral("\\b(const|volatile)\\b"))).replace(" ::", "::");
    T = T.simplified();
    if (T.endsWith('*')) {
        return "15";
    }
    if (T.endsWith('&')) {
        return "16";
    }
    static const QRegularExpression FunctionPointer(QStringLiteral("\\(\\*+\\)\\s*\\(.*\\)$"));
    if (FunctionPointer.match(T).hasMatch()) {
        return "15";
    }
    if (T.endsWith(')')) {
        return "function";
    }
    static const QRegularExpression Dims(QStringLiteral("((?:\\[\\d+\\])+)$"));
    // A declaration without bounds ("extern char t[];") in the unit gdb looked at.
    if (T.endsWith(QLatin1String("[]"))) {
        return "1 []";
    }
    const QRegularExpressionMatch M = Dims.match(T);
    if (M.hasMatch()) {
        return "1 " + M.captured(1);
    }
    static const std::map<QString, QString> Keywords = {
        {"struct", "19"}, {"union", "23"}, {"enum", "4"}, {"class", "2"}};
    const QString First = T.section(' ', 0, 0);
    if (Keywords.count(First)) {
        // C++ prints classes declared with "struct" as "class" too when they have methods.
        const QString Tag = Keywords.at(First) == "2" ? "19" : Keywords.at(First);
        return Tag + " " + T.section(' ', 1).section(QLatin1String(" : "), 0, 0).section('<', 0, 0);
    }
    return "36 " + QString::fromStdString(ELF_NormaliseBaseTypeName(T.toUtf8().constData()));
}

QString ReaderShape(ELF_SYM_HANDLE H) {
    const ELF_SYM_HANDLE T = ELF_GetSymType(H, true);
    const U32 Tag = T ? ELF_GetSymTag(T) : 0;
    switch (Tag) {
    case 15:
    case 16:
        return QString::number(Tag);
    case 21:
    case 46:
        return "function";
    case 1: {
        const ELF_ARRAY_INFO A = ELF_GetArrayInfo(T);
        QString Dims;
        for (U32 d = 0; d < A.Dimensions && d < 10; ++d) {
            Dims += QStringLiteral("[%1]").arg(A.Lengths[d]);
        }
        return "1 " + Dims;
    }
    case 2:
    case 19:
    case 23:
    case 4:
        return QStringLiteral("%1 %2").arg(Tag == 2 ? 19 : Tag).arg(QualifiedName(T, true));
    default:
        return QStringLiteral("%1 %2").arg(Tag).arg(QString::fromUtf8(ELF_GetSymName(T)));
    }
}

/// Member names of the first braced body of a C struct or union, or the enumerators of an enum.
QStringList GdbMembers(const QString& Ptype) {
    const int Open = Ptype.indexOf('{'), Close = Ptype.lastIndexOf('}');
    if (Open < 0 || Close < Open) {
        return {};
    }
    const QString Body = Ptype.mid(Open + 1, Close - Open - 1);
    QStringList Out;
    if (Ptype.section('\n', 0, 0).contains(QLatin1String("enum "))) {
        for (QString E : Body.split(',')) {
            Out << E.section('=', 0, 0).trimmed();
        }
        return Out;
    }
    static const QRegularExpression Pointer(QStringLiteral("\\(\\*+(\\w+)\\)"));
    static const QRegularExpression Last(QStringLiteral("(\\w+)\\s*(?:\\[\\d*\\])*\\s*(?::\\s*\\d+)?;$"));
    int Depth = 0;
    for (const QString& Line : Body.split('\n')) {
        const QString L = Line.trimmed();
        // Members of nested anonymous bodies belong to those; "} name;" closes one.
        Depth -= static_cast<int>(L.count('}'));
        if (Depth == 0 && L.endsWith(';')) {
            const QRegularExpressionMatch P = Pointer.match(L);
            const QRegularExpressionMatch M = Last.match(L);
            Out << (P.hasMatch() ? P.captured(1) : M.captured(1));
        }
        Depth += static_cast<int>(L.count('{'));
    }
    return Out;
}

QStringList ReaderMembers(ELF_SYM_HANDLE T) {
    QStringList Out;
    for (U32 i = 0; i < ELF_GetSymMemberCount(T); ++i) {
        Out << QString::fromUtf8(ELF_GetSymName(ELF_GetSymMember(T, i)));
    }
    return Out;
}

class DwarfGdb : public ::testing::TestWithParam<QString> {
protected:
    void SetUp() override {
        m_File = ELF_Open(GetParam(), true);
        ASSERT_NE(m_File, nullptr) << GetParam().toStdString();
    }
    void TearDown() override { ELF_CloseAll(); }

    ELF_FILE* m_File = nullptr;
};

TEST_P(DwarfGdb, NamesTypesAndScopesAgreeWithGdb) {
    const bool Cxx = m_File->SrcLang == 2;
    const auto Functions = Sample(m_File, ELF_LIST_FUNCTIONS, [](ELF_SYM_HANDLE H) {
        // Code removed by the linker keeps its entries at address 0.
        return ELF_GetSymRangeCount(H) > 0 && ELF_GetSymLowPC(H, 0) != 0;
    });
    const auto Globals =
        Sample(m_File, ELF_LIST_GLOBALS, [](ELF_SYM_HANDLE H) { return !ELF_IsSymLocal(H); });
    const auto Types = Sample(m_File, ELF_LIST_TYPES, [](ELF_SYM_HANDLE H) { return !ELF_IsSymLocal(H); });
    ASSERT_FALSE(Functions.empty());
    ASSERT_FALSE(Types.empty());

    QStringList Commands;
    for (const auto& [H, Name] : Functions) {
        Commands << "info line " + Name << "info scope " + Name;
    }
    const auto TypeExpr = [](ELF_SYM_HANDLE H, const QString& Name) {
        const U32 Tag = ELF_GetSymTag(H);
        return Tag == 19 ? "struct " + Name : Tag == 23 ? "union " + Name : Tag == 4 ? "enum " + Name : Name;
    };
    for (const auto& [H, Name] : Globals) {
        Commands << "ptype " + Name << "print sizeof(" + Name + ")";
    }
    for (const auto& [H, Name] : Types) {
        Commands << "ptype " + TypeExpr(H, Name) << "print sizeof(" + TypeExpr(H, Name) + ")";
    }
    const QStringList Answers = Toolchain::AskGdb(GetParam(), Commands);
    ASSERT_EQ(Answers.size(), Commands.size()) << "gdb-multiarch did not answer every command";

    static const QRegularExpression LineRe(
        QStringLiteral(R"re(Line (\d+) of "([^"]+)"\s+(?:starts at|is at) address (0x[0-9a-f]+))re"));
    static const QRegularExpression SizeRe(QStringLiteral(R"(^\$\d+ = (\d+))"));
    int Next = 0, Scopes = 0;
    U32 ReaderLocals = 0;
    for (const auto& [H, Name] : Functions) {
        SCOPED_TRACE(("function " + Name).toStdString());
        const QString& Line = Answers[Next++];
        const QString& Scope = Answers[Next++];
        // The name leads gdb to an address of the function's own ranges (among those of its inlined
        // copies). Assembler sources give Thumb functions a low pc with bit 0 set, as their symbols
        // have; gdb clears it.
        U64 Address = 0;
        bool Inside = false;
        for (auto It = LineRe.globalMatch(Line); It.hasNext() && !Inside;) {
            const U64 At = It.next().captured(3).toULongLong(nullptr, 16);
            for (U32 r = 0; r < ELF_GetSymRangeCount(H); ++r) {
                if (At >= (ELF_GetSymLowPC(H, r) & ~1ull) && At < ELF_GetSymHighPC(H, r)) {
                    Inside = true;
                    Address = At;
                }
            }
        }
        ASSERT_TRUE(Inside) << Line.toStdString();
        // Every symbol gdb sees in the function's outermost scope is one of its local data, of the same
        // size. Inlined calls at that address bring the locals of their own.
        std::map<QString, U32> Locals;
        const auto AddLocals = [&Locals](ELF_SYM_HANDLE F) {
            for (U32 i = 0; i < ELF_GetSymLocalCount(F); ++i) {
                const ELF_SYM_HANDLE L = ELF_GetSymLocal(F, i);
                Locals[QString::fromUtf8(ELF_GetSymName(L))] = ELF_GetSymByteSize(L);
            }
        };
        AddLocals(H);
        ReaderLocals += ELF_GetSymLocalCount(H);
        for (U32 i = 0; i < ELF_GetSymListCount(m_File, ELF_LIST_INLINE_FUNCTIONS); ++i) {
            const ELF_SYM_HANDLE In = ELF_GetSymListItem(m_File, ELF_LIST_INLINE_FUNCTIONS, i);
            for (U32 r = 0; r < ELF_GetSymRangeCount(In); ++r) {
                if (Address >= ELF_GetSymLowPC(In, r) && Address < ELF_GetSymHighPC(In, r)) {
                    AddLocals(In);
                }
            }
        }
        for (const QString& Chunk : Scope.split(QStringLiteral("\nSymbol ")).mid(1)) {
            // Labels, local typedefs and function declarations are in gdb's scope but are no data.
            if (Chunk.contains(QLatin1String(" is a label at ")) ||
                Chunk.contains(QLatin1String(" is a typedef")) ||
                Chunk.contains(QLatin1String(" is a function at "))) {
                continue;
            }
            const QString Local = Chunk.section(' ', 0, 0);
            ASSERT_TRUE(Locals.count(Local)) << "gdb: " << Chunk.toStdString();
            static const QRegularExpression LengthRe(QStringLiteral(R"(length (\d+)\.\s*$)"));
            const QRegularExpressionMatch L = LengthRe.match(Chunk);
            if (L.hasMatch()) {
                EXPECT_EQ(Locals[Local], L.captured(1).toUInt()) << Local.toStdString();
            }
            ++Scopes;
        }
    }
    const auto CheckType = [&](ELF_SYM_HANDLE H, const QString& What) {
        SCOPED_TRACE(What.toStdString());
        const QString& Ptype = Answers[Next++];
        const QString& Size = Answers[Next++];
        ASSERT_TRUE(Ptype.startsWith("type = ")) << Ptype.toStdString();
        if (GdbShape(Ptype) == "1 []") {
            EXPECT_TRUE(ReaderShape(H).startsWith("1 [")) << Ptype.toStdString();
            return;
        }
        EXPECT_EQ(ReaderShape(H), GdbShape(Ptype)) << Ptype.toStdString();
        // Base classes, as gdb lists them after the name.
        const ELF_SYM_HANDLE Class = ELF_GetSymType(H, true);
        if (Class && ELF_GetSymBaseClassCount(Class) > 0) {
            QStringList Bases;
            for (U32 b = 0; b < ELF_GetSymBaseClassCount(Class); ++b) {
                Bases << QualifiedName(ELF_GetSymType(ELF_GetSymBaseClass(Class, b), true), true);
            }
            QStringList Listed =
                WithoutBodies(Ptype.section('\n', 0, 0)).section(QLatin1String(" : "), 1).split(", ");
            for (QString& B : Listed) {
                B = B.section(' ', -1).section('<', 0, 0);
            }
            EXPECT_EQ(Bases, Listed) << Ptype.toStdString();
        }
        const QRegularExpressionMatch S = SizeRe.match(Size);
        ASSERT_TRUE(S.hasMatch()) << Size.toStdString();
        EXPECT_EQ(ELF_GetSymByteSize(H), S.captured(1).toUInt());
        // Members of C bodies; C++ bodies carry methods and access labels in gdb's text.
        const ELF_SYM_HANDLE T = ELF_GetSymType(H, true);
        const U32 Tag = T ? ELF_GetSymTag(T) : 0;
        if (!Cxx && (Tag == 19 || Tag == 23 || Tag == 4) && !WithoutBodies(Ptype).contains('*')) {
            EXPECT_EQ(ReaderMembers(T), GdbMembers(Ptype)) << Ptype.toStdString();
        }
    };
    for (const auto& [H, Name] : Globals) {
        CheckType(H, "global " + Name);
    }
    for (const auto& [H, Name] : Types) {
        CheckType(H, "type " + TypeExpr(H, Name));
    }
    if (ReaderLocals > 0) {
        EXPECT_GT(Scopes, 0) << "the sampled functions have local data, gdb showed none";
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, DwarfGdb, ::testing::ValuesIn(CorpusElfs()),
                         [](const ::testing::TestParamInfo<QString>& Info) {
                             QString Name = QFileInfo(Info.param).completeBaseName();
                             Name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9]")),
                                          QStringLiteral("_"));
                             return Name.toStdString();
                         });

} // namespace
