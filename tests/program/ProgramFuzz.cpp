// Mutation fuzzing of the ELF, Intel Hex and S-record readers, seeded from the target programs. Built with
// AddressSanitizer: the ELF image and every line handed to a record parser are allocations of exactly the
// file's (or line's) size, so a read outside them stops the run.
//
// fuzz_program [--runs N] [--seed S] [seed.elf ...]

#include "program/DwarfReader.h"
#include "program/ElfParser.h"
#include "program/ElfWrapper.h"
#include "program/FileWorker.h"
#include "program/RecordParser.h"
#include "program/SymbolFind.h"
#include "program/SymbolStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace {

enum KIND { KIND_ELF, KIND_HEX, KIND_SREC, KIND_COUNT };
const char* const EXTENSIONS[KIND_COUNT] = {"elf", "hex", "srec"};

struct Seed {
    KIND Kind;
    QByteArray Bytes;
    /// Byte ranges of the tables the parser reads (header, program and section headers, symbols and
    /// strings); most mutations of an ELF land there.
    std::vector<std::pair<U32, U32>> Hot;
};

class Fuzzer {
public:
    explicit Fuzzer(U64 SeedValue) : m_Random(SeedValue) {}

    U32 Below(U64 N) { return N == 0 ? 0 : static_cast<U32>(m_Random() % N); }

    QByteArray Mutate(const Seed& S, const std::vector<Seed>& All) {
        QByteArray B = S.Bytes;
        const U32 Count = 1 + Below(6);
        for (U32 i = 0; i < Count; ++i) {
            if (S.Kind == KIND_ELF) {
                MutateBinary(B, S);
            } else {
                MutateText(B, S.Kind, All);
            }
        }
        return B;
    }

private:
    U32 Position(const QByteArray& B, const Seed& S) {
        if (!S.Hot.empty() && Below(10) < 8) {
            const auto& R = S.Hot[Below(S.Hot.size())];
            const U32 At = R.first + Below(R.second);
            if (At < static_cast<U32>(B.size())) {
                return At;
            }
        }
        return Below(static_cast<U64>(B.size()));
    }

    U32 Interesting32(const QByteArray& B) {
        const U32 Values[] = {0,
                              1,
                              2,
                              0x7F,
                              0x80,
                              0xFF,
                              0x100,
                              0xFFFF,
                              0x10000,
                              0x7FFFFFFF,
                              0x80000000,
                              0xFFFFFFFF,
                              0xFFFFFFFE,
                              0xFFFFFFF0,
                              static_cast<U32>(B.size()),
                              static_cast<U32>(B.size()) - 4,
                              static_cast<U32>(B.size()) + 1,
                              16,
                              40,
                              52};
        return Values[Below(sizeof Values / sizeof Values[0])];
    }

    void MutateBinary(QByteArray& B, const Seed& S) {
        if (B.isEmpty()) {
            B.append(static_cast<char>(Below(256)));
            return;
        }
        const U32 At = Position(B, S);
        switch (Below(9)) {
        case 0:
            B[At] = static_cast<char>(B[At] ^ (1 << Below(8)));
            break;
        case 1:
            B[At] = static_cast<char>(Below(256));
            break;
        case 2:
        case 3: {
            // A whole field: 16 or 32 bits, in either byte order.
            const U32 V = Interesting32(B);
            const int Size = Below(2) ? 4 : 2;
            for (int k = 0; k < Size && At + k < static_cast<U32>(B.size()); ++k) {
                const int Shift = Below(2) ? 8 * k : 8 * (Size - 1 - k);
                B[At + k] = static_cast<char>(V >> Shift);
            }
            break;
        }
        case 4:
            B.truncate(Below(static_cast<U64>(B.size())));
            break;
        case 5:
            B.remove(At, 1 + Below(64));
            break;
        case 6:
            B.insert(At, QByteArray(1 + Below(64), static_cast<char>(Below(256))));
            break;
        case 7: {
            const U32 From = Below(static_cast<U64>(B.size()));
            B.insert(At, B.mid(From, 1 + Below(128)));
            break;
        }
        default:
            B.append(QByteArray(1 + Below(4096), '\0'));
            break;
        }
    }

    /// The line's checksum made right again, so that a mutation reaches past the checksum test.
    static void FixChecksum(QByteArray& Line, KIND Kind) {
        const int Start = Kind == KIND_HEX ? 1 : 2;
        if (Line.size() < Start + 4) {
            return;
        }
        unsigned Sum = 0;
        const QByteArray Body = QByteArray::fromHex(Line.mid(Start, Line.size() - Start - 2));
        for (char C : Body) {
            Sum += static_cast<U8>(C);
        }
        const U8 Check = Kind == KIND_HEX ? static_cast<U8>(0x100 - (Sum & 0xFF)) : static_cast<U8>(~Sum);
        Line.replace(Line.size() - 2, 2, QByteArray(1, static_cast<char>(Check)).toHex().toUpper());
    }

    void MutateText(QByteArray& B, KIND Kind, const std::vector<Seed>& All) {
        QList<QByteArray> Lines = B.split('\n');
        if (Lines.isEmpty()) {
            Lines.append(QByteArray());
        }
        const qsizetype L = Below(static_cast<U64>(Lines.size()));
        QByteArray& Line = Lines[L];
        static const char Digits[] = "0123456789ABCDEFabcdefSs:\r \x00G";
        switch (Below(10)) {
        case 0:
        case 1:
        case 2:
            // A digit changed, with the checksum fixed most of the time.
            if (!Line.isEmpty()) {
                Line[Below(static_cast<U64>(Line.size()))] = Digits[Below(sizeof Digits - 1)];
                if (Below(4)) {
                    FixChecksum(Line, Kind);
                }
            }
            break;
        case 3:
            Lines.insert(L, Lines[Below(static_cast<U64>(Lines.size()))]);
            break;
        case 4:
            Lines.removeAt(L);
            break;
        case 5:
            Line.truncate(Below(static_cast<U64>(Line.size()) + 1));
            break;
        case 6:
            // An extended address or a record type from the other lines of the format.
            if (Kind == KIND_HEX) {
                Lines.insert(L, Below(2) ? ":02000004FFFFFC" : ":020000021000EC");
            } else {
                Lines.insert(L, Below(2) ? "S9030000FC" : "S5030002FA");
            }
            break;
        case 7:
            Line.insert(Below(static_cast<U64>(Line.size()) + 1),
                        QByteArray(1 + Below(300), Digits[Below(16)]));
            FixChecksum(Line, Kind);
            break;
        case 8: {
            const Seed& Other = All[Below(All.size())];
            Lines.append(Other.Bytes.mid(Below(static_cast<U64>(Other.Bytes.size())), 200).split('\n'));
            break;
        }
        default:
            if (!Line.isEmpty()) {
                const qsizetype At = Below(static_cast<U64>(Line.size()));
                Line[At] = static_cast<char>(Line[At] ^ (1 << Below(8)));
            }
            break;
        }
        B = Lines.join(Below(8) ? "\n" : "\r\n");
    }

    std::mt19937_64 m_Random;
};

/// Asks the debug information reader about every listed symbol, line row, macro and frame description.
U64 ExerciseDebugInfo(ELF_FILE* F) {
    U64 Sum = 0;
    for (int L = 0; L < ELF_LIST_COUNT; ++L) {
        const U32 Count = std::min<U32>(ELF_GetSymListCount(F, L), 200);
        for (U32 i = 0; i < Count; ++i) {
            const ELF_SYM_HANDLE H = ELF_GetSymListItem(F, L, i);
            Sum += std::strlen(ELF_GetSymName(H)) + std::strlen(ELF_GetSymTypeName(H)) + ELF_GetSymTag(H);
            Sum += ELF_GetSymByteSize(H) + ELF_GetSymRangeCount(H) + ELF_GetSymScopes(H).size();
            Sum += ELF_GetSymType(H, true) + ELF_GetSymLocalCount(H) + ELF_GetSymMemberCount(H);
            Sum += ELF_GetArrayInfo(H).ElementCount + ELF_IsSymStatic(H) + ELF_IsSymSigned(H);
            Sum += std::strlen(ELF_GetSymDeclFile(H, 0x3A)) + ELF_GetSymBitOffset(H);
            if (ELF_GetSymLocalCount(H)) {
                Sum += std::strlen(ELF_GetSymTypeName(ELF_GetSymLocal(H, 0)));
            }
            std::vector<ELF_LOC_EXPR> Loc;
            Sum += ELF_GetSymLocExprs(H, L == ELF_LIST_FUNCTIONS ? 0x40 : 0x02, Loc);
        }
    }
    for (U32 i = 0; i < ELF_GetLineRowCount(F); i += 7) {
        Sum += ELF_GetLineRow(F, i).Line + std::strlen(ELF_GetSourceFile(F, ELF_GetLineRow(F, i).File));
    }
    for (U32 i = 0; i < ELF_GetMacroCount(F); i += 5) {
        Sum += std::strlen(ELF_GetMacro(F, i).Text);
    }
    for (U32 i = 0; i < ELF_GetFdeCount(F) && i < 50; ++i) {
        std::vector<ELF_FRAME_ROW> Rows;
        ELF_GetFdeRows(F, i, Rows);
        Sum += Rows.size();
        U64 Low = 0, High = 0;
        if (ELF_GetFdeRange(F, i, Low, High)) {
            ELF_FRAME_ROW Row;
            Sum += ELF_GetFrameRowAt(F, Low, Row);
        }
    }
    return Sum + ELF_GetEntryFunc(F);
}

/// Reads everything the ELF model offers about the file, touching every byte its pointers claim.
U64 Exercise(ELF_FILE* F) {
    U64 Sum = 0;
    const auto Touch = [&Sum](const U8* P, U32 Size) {
        for (U32 i = 0; P && i < Size; ++i) {
            Sum += P[i];
        }
    };
    for (U32 i = 0; i < ELF_GetSegmentCount(F); ++i) {
        Touch(ELF_GetSegmentData(F, i), ELF_GetSegmentFileSize(F, i));
        Sum += ELF_GetSegmentFirstSectionOffset(F, i);
    }
    for (U32 i = 0; i < ELF_GetSectionCount(F); ++i) {
        Sum += std::strlen(ELF_GetSectionName(F, i));
        Touch(ELF_GetSectionData(F, i), ELF_GetSectionSize(F, i));
        ELF_RELOC_INFO Info;
        Sum += ELF_GetRelocationAt(F, ELF_GetSectionAddr(F, i) + 4 * (i % 8), Info) ? Info.SymIndex : 0;
    }
    const U32 Syms = ELF_GetSymCount(F);
    for (U32 i = 0; i < Syms; ++i) {
        Sum += std::strlen(ELF_GetSymName(F, i));
        const U32 Value = ELF_GetSymValue(F, i);
        if (i % 4 == 0) {
            Sum += ELF_GetFuncSymAt(F, Value + 2, i % 8 == 0) != nullptr;
            Sum += ELF_GetSymOfTypeAt(F, Value, i % 3 == 0, static_cast<I32>(i % 4) - 1) != nullptr;
        }
    }
    if (Syms) {
        Sum += ELF_FindSymByName(F, ELF_GetSymName(F, Syms / 2)) != nullptr;
        ELF_AddRelocation(ELF_GetSymName(F, Syms - 1), 0x100);
    }
    ELF_AddRelocation(ELF_GetSectionName(F, 1), -0x100);
    U32 Load = 0;
    Sum += ELF_GetProgramLoadAddr(F, Load) + ELF_GetVectorSection(F) + ELF_GetEntryPoint(F);
    Sum += ELF_ToTargetAddr(Load, 1, 0) + ELF_ToFileAddr(Load, 0, 1) + ELF_GetMaxSymSize(F, 2);
    ELF_ClearRelocations();
    return Sum + ExerciseDebugInfo(F);
}

/// Every line of the text, each in an allocation of its exact size, through the record parser.
U64 ParseLines(const QByteArray& Text, KIND Kind) {
    U64 Sum = 0;
    U32 Base = 0;
    for (const QByteArray& Line : Text.split('\n')) {
        std::unique_ptr<char[]> Exact(new char[static_cast<size_t>(Line.size()) + 1]);
        std::memcpy(Exact.get(), Line.constData(), static_cast<size_t>(Line.size()));
        ELF_DATA_BLOCK Block;
        const int Length = static_cast<int>(Line.size());
        const bool Ok = Kind == KIND_HEX ? TFile::ParseIntelHexRecord(Exact.get(), Length, Base, Block)
                                         : TFile::ParseSRecord(Exact.get(), Length, Block);
        Sum += Ok ? Block.Size + 1 : 0;
    }
    return Sum;
}

QByteArray ReadAll(const QString& Path) {
    QFile F(Path);
    return F.open(QIODevice::ReadOnly) ? F.readAll() : QByteArray();
}

} // namespace

/// Look-ups of every kind over the loaded program, at its row addresses and around them.
static U64 ExerciseStore() {
    U64 Sum = 0;
    int Steps = 0;
    for (I64 A = ELF_GetNextAddr(0); A >= 0 && Steps < 200;
         A = ELF_GetNextAddr(static_cast<U32>(A)), ++Steps) {
        const U32 Addr = static_cast<U32>(A);
        Sum += ELF_GetFuncAt(Addr, false) + ELF_GetFuncAt(Addr + 2, true) + ELF_GetFuncListAt(Addr).size();
        const CSrcLoc L = ELF_GetSrcLocAt(Addr + 1);
        Sum +=
            L.Line + ELF_GetAddrsOfLine(L).size() + ELF_GetNextCodeLine(L).Line + ELF_GetPrevCodeLine(L).Line;
        Sum += static_cast<U64>(ELF_GetFileAt(Addr)) + ELF_GetSrcLocsAt(Addr).size();
        U32 Next = 0;
        Sum += ELF_GetNextLineAddr(Addr, Next) ? Next : 0;
        Sum += ELF_GetSymAt(Addr) + ELF_GetSymsAtLine(L).size() + ELF_RangeHasSrc(Addr, 16) +
               ELF_GetAddrRangesOfLine(L).size();
        // Location texts as a user types them, mangled names and paths of broken files included.
        int Kind = 0;
        Sum += static_cast<U64>(ELF_FindAddr(ELF_FormatSrcLoc(L), Kind)) +
               static_cast<U64>(ELF_FindAddr(QString::number(Addr, 16), Kind));
    }
    for (ELF_SYM_HANDLE H : ELF_GetGlobals()) {
        int Kind = 0;
        Sum += static_cast<U64>(ELF_GetSymAddr(H)) +
               static_cast<U64>(ELF_FindAddr(QString::fromUtf8(ELF_GetSymName(H)), Kind));
        if (++Steps > 300) {
            break;
        }
    }
    QString Value;
    Sum += ELF_GetMacro(QStringLiteral("__GNUC__"), Value) + ELF_GetFunctionsWithoutSource().size();
    for (ELF_SYM_HANDLE F : ELF_GetFunctions()) {
        if (const char* Name = ELF_GetSymName(F)) {
            Sum += ELF_FindSyms(QString::fromUtf8(Name), true, true, true, true, true).size();
        }
        ELF_SetScope(static_cast<U32>(ELF_GetSymLowPC(F, 0)));
        const U32 Low = static_cast<U32>(ELF_GetSymLowPC(F, 0));
        // Broken sizes up to the analysis limit would walk megabytes per function: kept small here.
        const U32 Size = static_cast<U32>(ELF_GetSymHighPC(F, 0) - ELF_GetSymLowPC(F, 0)) & 0xFFFF;
        Sum += ELF_GetLineRanges(Low, Size).size() + ELF_GetDataRanges(Low, Size).size() +
               ELF_GetCodeRanges(Low, Size).size() + static_cast<U64>(ELF_IsDataAt(Low));
        if (++Steps > 400) {
            break;
        }
    }
    for (U32 Id : ELF_GetFileIds()) {
        Sum += ELF_GetFunctionsOfFile(Id).size() + ELF_GetFileRange(Id).second;
    }
    return Sum + static_cast<U64>(ELF_GetEntryFuncPC());
}

int main(int argc, char** argv) {
    QCoreApplication App(argc, argv);
    U64 Runs = 200000;
    U64 SeedValue = 1;
    QStringList Elfs;
    const QStringList Args = App.arguments().mid(1);
    for (int i = 0; i < Args.size(); ++i) {
        if (Args[i] == "--runs" && i + 1 < Args.size()) {
            Runs = Args[++i].toULongLong();
        } else if (Args[i] == "--seed" && i + 1 < Args.size()) {
            SeedValue = Args[++i].toULongLong();
        } else {
            Elfs << Args[i];
        }
    }
    if (Elfs.isEmpty()) {
        Elfs = QString::fromUtf8(ARNEX_FUZZ_SEED_ELFS).split('|', Qt::SkipEmptyParts);
    }
    // A folder in memory where there is one: every input goes through a file.
    QTemporaryDir Work(QDir("/dev/shm").isReadable()
                           ? QStringLiteral("/dev/shm/arnex-fuzz-XXXXXX")
                           : QDir::tempPath() + QStringLiteral("/arnex-fuzz-XXXXXX"));
    if (!Work.isValid()) {
        std::fprintf(stderr, "fuzz_program: no temporary folder\n");
        return 2;
    }

    std::vector<Seed> Seeds;
    for (const QString& Elf : Elfs) {
        Seed S{KIND_ELF, ReadAll(Elf), {}};
        if (S.Bytes.isEmpty()) {
            std::fprintf(stderr, "fuzz_program: cannot read seed %s\n", qPrintable(Elf));
            return 2;
        }
        if (ELF_FILE* F = ELF_Open(Elf, false)) {
            const ELF32_EHDR* H = ELF_GetHeader(F);
            S.Hot.push_back({0, 52});
            S.Hot.push_back({H->e_phoff, 32u * H->e_phnum});
            S.Hot.push_back({H->e_shoff, 40u * H->e_shnum});
            for (U32 i = 0; i < ELF_GetSectionCount(F); ++i) {
                const U32 Type = ELF_GetSectionType(F, i);
                // The tables, and the debug sections that the debug information reader walks.
                if (Type == 2 || Type == 3 || std::strncmp(ELF_GetSectionName(F, i), ".debug_", 7) == 0) {
                    S.Hot.push_back({ELF_GetSectionOffset(F, i), ELF_GetSectionSize(F, i)});
                }
            }
            ELF_Close(F);
        }
        Seeds.push_back(S);
        for (KIND Kind : {KIND_HEX, KIND_SREC}) {
            const QString Out = Work.filePath(QStringLiteral("seed.") + EXTENSIONS[Kind]);
            const QStringList Convert = {"-O",
                                         Kind == KIND_HEX ? "ihex" : "srec",
                                         "--change-addresses",
                                         Seeds.size() % 2 ? "0x0800FF00" : "0",
                                         Elf,
                                         Out};
            if (QProcess::execute(QStringLiteral(ARNEX_FUZZ_OBJCOPY), Convert) != 0) {
                std::fprintf(stderr, "fuzz_program: objcopy failed for %s\n", qPrintable(Elf));
                return 2;
            }
            Seeds.push_back(Seed{Kind, ReadAll(Out), {}});
        }
    }

    Fuzzer Fuzz(SeedValue);
    TFile::CFileWorker* Worker = TFile::CFileWorker::Instance();
    QElapsedTimer Timer;
    Timer.start();
    U64 Opened = 0;
    U64 Blocks = 0;
    U64 Sum = 0;
    U64 PerKind[KIND_COUNT] = {};
    U64 Stored = 0;
    for (U64 Run = 0; Run < Runs; ++Run) {
        const Seed& S = Seeds[Fuzz.Below(Seeds.size())];
        const QByteArray Input = Fuzz.Mutate(S, Seeds);
        const QString Path = Work.filePath(QStringLiteral("input.") + EXTENSIONS[S.Kind]);
        {
            QFile Out(Path);
            if (!Out.open(QIODevice::WriteOnly | QIODevice::Truncate) || Out.write(Input) != Input.size()) {
                std::fprintf(stderr, "fuzz_program: cannot write %s\n", qPrintable(Path));
                return 2;
            }
        }
        ++PerKind[S.Kind];
        if (S.Kind == KIND_ELF) {
            if (ELF_FILE* F = ELF_Open(Path, true)) {
                ++Opened;
                Sum += Exercise(F);
                // The data reader opens the same file a second time, beside the first.
                Blocks += Worker->ReadFile(Path).size();
                ELF_Close(F);
            }
            // Every eighth file goes through the whole program load as well: the symbol store's pass
            // and its look-ups on what the damaged debug information gave.
            if (Run % 8 == 0 && ELF_Load(Path, [](const ELF_ERROR_RECORD&, void*) {}) == 0) {
                Sum += ExerciseStore();
                ++Stored;
                ELF_Unload();
            }
        } else {
            Sum += ParseLines(Input, S.Kind);
            Blocks += Worker->ReadFile(Path, Run % 2 ? -1 : 0x20000000).size();
        }
    }
    std::printf(
        "fuzz_program: %llu inputs (%llu ELF, %llu Intel Hex, %llu S-record) in %.1f s; %llu ELF files "
        "opened, %llu loaded with their symbol store, %llu blocks read, checksum %llx\n",
        static_cast<unsigned long long>(Runs), static_cast<unsigned long long>(PerKind[KIND_ELF]),
        static_cast<unsigned long long>(PerKind[KIND_HEX]),
        static_cast<unsigned long long>(PerKind[KIND_SREC]), Timer.elapsed() / 1000.0,
        static_cast<unsigned long long>(Opened), static_cast<unsigned long long>(Stored),
        static_cast<unsigned long long>(Blocks), static_cast<unsigned long long>(Sum));
    return 0;
}
