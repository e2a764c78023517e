// Reading the debug information of a file at its open: unit headers, the units on one or more threads
// (each with its own consumer), then the merge in unit order, frames, start function and name index.

#include "program/DwarfInternal.h"

#include "app/core/Log.h"

#include <QElapsedTimer>

#include <algorithm>
#include <atomic>
#include <thread>

using namespace ElfInternal;

namespace DwarfInternal {
namespace {

struct READER_SETTINGS {
    ELF_PROGRESS_CALLBACK Progress = nullptr;
    void* ProgressUser = nullptr;
    int Threads = 0;
};

READER_SETTINGS& Settings() {
    static READER_SETTINGS Instance;
    return Instance;
}

/// Below this much debug information a second consumer costs more than it saves.
constexpr U32 PARALLEL_THRESHOLD = 512 * 1024;
/// More units than this are taken for a broken header chain.
constexpr size_t MAX_UNITS = 4000000;

void LogLine(const QString& Text) {
    LogMessage(Text, MSG_INFO | MSG_TO_LOGFILE | MSG_FROM_PROGRAM_DATA);
}

I32 FindSectionInternal(const ELF_FILE* File, const char* Name) {
    for (U32 i = 0; i < File->Sections.size(); ++i) {
        if (std::strcmp(SectionName(File, i), Name) == 0) {
            return static_cast<I32>(i);
        }
    }
    return -1;
}

U32 SectionSize(const ELF_FILE* File, I32 Index) {
    if (Index < 0 || !SectionData(File, static_cast<U32>(Index))) {
        return 0;
    }
    return File->Sections[static_cast<size_t>(Index)].sh_size;
}

/// The unit headers of one section, in order; stops at the first broken header.
void ReadHeaders(DEBUG_INFO* Info, bool IsInfo, std::vector<UNIT_HEADER>& Out) {
    Dwarf_Debug Dbg = Info->Main->Dbg;
    U64 Offset = 0;
    const U64 Size = IsInfo ? Info->InfoSize : Info->TypesSize;
    while (Out.size() < MAX_UNITS) {
        Dwarf_Unsigned Length = 0, TypeOffset = 0, Next = 0;
        Dwarf_Half Version = 0, AddrSize = 0, LengthSize = 0, ExtSize = 0, UnitType = 0;
        Dwarf_Off Abbrev = 0;
        Dwarf_Sig8 Sig{};
        Dwarf_Error Err = nullptr;
        const int Res =
            dwarf_next_cu_header_d(Dbg, IsInfo, &Length, &Version, &Abbrev, &AddrSize, &LengthSize, &ExtSize,
                                   &Sig, &TypeOffset, &Next, &UnitType, &Err);
        if (Res == DW_DLV_NO_ENTRY) {
            break;
        }
        if (Res == DW_DLV_ERROR) {
            Report(Info, LibraryError(Dbg, Err, QStringLiteral("reading a unit header")));
            Report(Info, ReaderError(IsInfo ? ELF_ERR_COMPILE_UNIT : ELF_ERR_TYPE_UNIT,
                                     QStringLiteral("unit header at offset 0x%1").arg(Offset, 0, 16)));
            break;
        }
        Dwarf_Off DieOffset = 0;
        if (dwarf_get_cu_die_offset_given_cu_header_offset_b(Dbg, Offset, IsInfo, &DieOffset, &Err) !=
            DW_DLV_OK) {
            DropError(Dbg, Err);
            break;
        }
        if (Next <= Offset || Next > Size || DieOffset >= Next) {
            Report(Info, ReaderError(ELF_LIBERR_UNIT_SIZE,
                                     QStringLiteral("unit header at offset 0x%1").arg(Offset, 0, 16)));
            break;
        }
        UNIT_HEADER H;
        H.HeaderOffset = static_cast<U32>(Offset);
        H.DieOffset = static_cast<U32>(DieOffset);
        H.End = static_cast<U32>(Next);
        H.Version = Version;
        H.AddressSize = AddrSize;
        H.IsTypes = !IsInfo;
        std::memcpy(&H.Signature, Sig.signature, 8);
        H.TypeOffset = static_cast<U32>(Offset + TypeOffset);
        const bool TypeUnit = !IsInfo || UnitType == DW_UT_type;
        if (TypeUnit && TypeOffset != 0 && Offset + TypeOffset < Next) {
            Info->Signatures[H.Signature] = KeyOf(Info->InfoSize, Offset + TypeOffset, !IsInfo);
        }
        Out.push_back(H);
        Offset = Next;
    }
}

/// Reads the units: the calling thread and, for large files, helpers with consumers of their own.
void ReadUnits(DEBUG_INFO* Info, const std::vector<UNIT_HEADER>& Headers, std::vector<UNIT_RESULT>& Results) {
    std::unordered_set<U64> MacroSets;
    std::mutex Lock;
    WALK_CONTEXT Context{Info->File, Info->InfoSize, Info->TypesSize, &Info->Signatures, &MacroSets, &Lock};
    Results.resize(Headers.size());
    std::atomic<size_t> NextUnit{0};
    std::atomic<U64> BytesDone{0};
    const U64 Total = static_cast<U64>(Info->InfoSize) + Info->TypesSize;
    const auto Work = [&](SESSION* S, bool Reports) {
        for (size_t i; (i = NextUnit.fetch_add(1)) < Headers.size();) {
            ReadUnit(S, Context, Headers[i], static_cast<U32>(i), Results[i]);
            const U64 Done = BytesDone += Headers[i].End - Headers[i].HeaderOffset;
            // The whole only once the merge, frames and name index are done too.
            if (Reports && Settings().Progress && Total) {
                Settings().Progress(std::min(Done, Total - 1), Total, Settings().ProgressUser);
            }
        }
    };
    // One consumer by default: two consumers of the library on two threads corrupted the heap once in
    // the corpus tests (the library keeps state outside its handles), so more threads are opt-in.
    int Threads = Settings().Threads;
    if (Threads <= 0) {
        Threads = 1;
    }
    if (Total < PARALLEL_THRESHOLD || Headers.size() < 4) {
        Threads = 1;
    }
    std::vector<std::unique_ptr<SESSION>> Helpers;
    std::vector<std::thread> Pool;
    for (int t = 1; t < Threads; ++t) {
        std::unique_ptr<SESSION> S = OpenSession(Info->File, nullptr);
        if (!S) {
            break;
        }
        Helpers.push_back(std::move(S));
    }
    for (auto& S : Helpers) {
        Pool.emplace_back(Work, S.get(), false);
    }
    Work(Info->Main.get(), true);
    for (std::thread& T : Pool) {
        T.join();
    }
    for (auto& S : Helpers) {
        CloseSession(S.get());
    }
}

bool SkippedFileName(const char* Name) {
    return std::strstr(Name, "<built-in>") || std::strstr(Name, "<stdin>");
}

struct TIMES {
    double TypeTree = 0, InfoTree = 0, Files = 0, Lines = 0, Macros = 0;
};

void Merge(DEBUG_INFO* Info, std::vector<UNIT_RESULT>& Results, TIMES& Times) {
    bool HasTypes = false;
    size_t EntryCount = 0, LineCount = 0;
    for (const UNIT_RESULT& R : Results) {
        EntryCount += R.Entries.size();
        LineCount += R.Lines.size();
    }
    Info->Entries.reserve(EntryCount);
    Info->Lines.reserve(LineCount);
    for (size_t u = 0; u < Results.size(); ++u) {
        UNIT_RESULT& R = Results[u];
        const U32 UnitIndex = static_cast<U32>(u);
        const U32 RangeBase = static_cast<U32>(Info->Ranges.size());
        HasTypes |= R.Unit.IsTypes;
        for (ENTRY& E : R.Entries) {
            E.RangeFirst += RangeBase;
            Info->Entries.push_back(E);
        }
        Info->Ranges.insert(Info->Ranges.end(), R.Ranges.begin(), R.Ranges.end());
        Info->Links.insert(Info->Links.end(), R.Links.begin(), R.Links.end());
        for (const auto& [List, Key] : R.ListItems) {
            Info->Lists[List].push_back(Key);
        }
        if (!R.Unit.IsTypes) {
            Info->Lists[ELF_LIST_UNITS].push_back(R.Unit.Key);
        }
        // Source files: one name per distinct text, each with the units that use it.
        R.Unit.Files.assign(R.FileNames.size(), 0xFFFFFFFF);
        for (size_t f = 0; f < R.FileNames.size(); ++f) {
            const char* Name = R.FileNames[f];
            if (SkippedFileName(Name)) {
                continue;
            }
            auto [It, New] = Info->SourceFileIndex.try_emplace(std::string_view(Name),
                                                               static_cast<U32>(Info->SourceFiles.size()));
            if (New) {
                Info->SourceFiles.push_back(Name);
                Info->SourceFileUnits.emplace_back();
            }
            R.Unit.Files[f] = It->second;
            std::vector<U32>& Users = Info->SourceFileUnits[It->second];
            if (Users.empty() || Users.back() != UnitIndex) {
                Users.push_back(UnitIndex);
            }
        }
        const auto MapFile = [&R](U32 Local) {
            return Local < R.Unit.Files.size() ? R.Unit.Files[Local] : 0xFFFFFFFF;
        };
        for (LINE L : R.Lines) {
            L.File = MapFile(L.File);
            L.Unit = UnitIndex;
            Info->Lines.push_back(L);
        }
        for (ELF_MACRO M : R.Macros) {
            M.File = MapFile(M.File);
            Info->Macros.push_back(M);
        }
        // The unit's problems in the order they were met, then what failed of it.
        for (const ELF_ERROR_RECORD& E : R.Errors) {
            Report(Info, E);
        }
        const QString UnitName = QStringLiteral("unit at offset 0x%1").arg(R.Unit.HeaderOffset, 0, 16);
        if (R.Failed) {
            Report(Info, ReaderError(R.Unit.IsTypes ? ELF_ERR_TYPE_UNIT : ELF_ERR_COMPILE_UNIT, UnitName));
        }
        if (R.FilesFailed) {
            Report(Info, ReaderError(ELF_ERR_SOURCE_FILES, UnitName));
        }
        if (R.LinesFailed) {
            Report(Info, ReaderError(ELF_ERR_SOURCE_LINES, UnitName));
        }
        if (R.MacrosFailed) {
            Report(Info, ReaderError(ELF_ERR_MACROS, UnitName));
        }
        if (R.Language == 2) {
            Info->File->SrcLang = 2;
        }
        Info->File->DwarfVersion = std::max<U32>(Info->File->DwarfVersion, R.Unit.Version);
        (R.Unit.IsTypes ? Times.TypeTree : Times.InfoTree) += R.TreeMs;
        Times.Files += R.FileMs;
        Times.Lines += R.LineMs;
        Times.Macros += R.MacroMs;
        Info->Arenas.push_back(std::move(R.Arena));
        Info->Units.push_back(std::move(R.Unit));
        UNIT_RESULT().Entries.swap(R.Entries);
    }
    if (HasTypes) {
        std::sort(Info->Entries.begin(), Info->Entries.end(),
                  [](const ENTRY& A, const ENTRY& B) { return A.Key < B.Key; });
    }
    // Each list of a container in walk order, the containers in key order.
    std::stable_sort(Info->Links.begin(), Info->Links.end(), [](const LINK& A, const LINK& B) {
        return A.Owner != B.Owner ? A.Owner < B.Owner : A.Kind < B.Kind;
    });
    for (const ENTRY& E : Info->Entries) {
        if (E.Spec != NO_KEY) {
            Info->Definitions[E.Spec] = E.Key;
        }
    }
    for (U32 u = 0; u < Info->Units.size(); ++u) {
        Info->UnitKeys.push_back({Info->Units[u].Key, u});
    }
    std::sort(Info->UnitKeys.begin(), Info->UnitKeys.end());
}

void FindEntryFunc(DEBUG_INFO* Info) {
    U32 ByName = NO_KEY;
    for (U32 Key : Info->Lists[ELF_LIST_FUNCTIONS]) {
        const ENTRY* E = Entry(Info, Key);
        if (!E) {
            continue;
        }
        if (E->Flags & EF_MAIN) {
            Info->EntryFunc = Key;
            return;
        }
        if (ByName == NO_KEY && E->Name && std::strcmp(E->Name, "main") == 0) {
            ByName = Key;
        }
    }
    Info->EntryFunc = ByName;
}

bool IndexedTag(U16 Tag) {
    switch (Tag) {
    case 36:
    case 1:
    case 2:
    case 19:
    case 4:
    case 23:
    case 25:
    case 31:
    case 32:
    case 38:
    case 53:
    case 15:
    case 16:
    case 55:
    case 66:
    case 13:
    case 5:
    case 52:
    case 39:
    case 46:
    case 29:
    case 21:
        return true;
    default:
        return false;
    }
}

void BuildNameIndex(DEBUG_INFO* Info) {
    const size_t Size = Info->Lists[ELF_LIST_TYPES].size() + Info->Lists[ELF_LIST_GLOBALS].size() +
                        Info->Lists[ELF_LIST_FUNCTIONS].size();
    Info->NameIndex.reserve(Size ? Size : 1021);
    for (int List : {ELF_LIST_TYPES, ELF_LIST_GLOBALS, ELF_LIST_FUNCTIONS}) {
        for (U32 Key : Info->Lists[List]) {
            const ENTRY* E = Entry(Info, Key);
            if (E && E->Name && !(E->Flags & EF_DECLARATION) && E->Tag != DW_TAG_typedef &&
                IndexedTag(E->Tag)) {
                Info->NameIndex[Djb2(E->Name)] = Key;
            }
        }
    }
}

} // namespace
} // namespace DwarfInternal

using namespace DwarfInternal;

void ELF_SetDebugProgressCallback(ELF_PROGRESS_CALLBACK Callback, void* User) {
    Settings().Progress = Callback;
    Settings().ProgressUser = User;
}

void ELF_SetDebugReaderThreads(int Count) {
    Settings().Threads = Count;
}

int ELF_ReadDebugInfo(ELF_FILE* File) {
    // Wall time: the units may be read on several threads.
    QElapsedTimer Total;
    Total.start();
    ELF_FreeDebugInfo(File);
    auto* Info = new DEBUG_INFO;
    File->Debug = Info;
    Info->File = File;
    Info->InfoSection = FindSectionInternal(File, ".debug_info");
    Info->TypesSection = FindSectionInternal(File, ".debug_types");
    Info->InfoSize = SectionSize(File, Info->InfoSection);
    Info->TypesSize = SectionSize(File, Info->TypesSection);
    // Offsets carry 31 bits in a handle.
    if (Info->InfoSize > 0x7FFFFFFF || Info->TypesSize > 0x7FFFFFFF) {
        Report(Info, ReaderError(ELF_LIBERR_UNIT_SIZE, QStringLiteral("debug sections larger than 2 GB")));
        Info->InfoSize = std::min<U32>(Info->InfoSize, 0x7FFFFFFF);
        Info->TypesSize = std::min<U32>(Info->TypesSize, 0x7FFFFFFF);
    }
    for (const char* Lists : {".debug_rnglists", ".debug_loclists"}) {
        const I32 Index = FindSectionInternal(File, Lists);
        if (Index >= 0 && !ValidListsSection(File, static_cast<U32>(Index))) {
            ELF_ERROR_RECORD R =
                ReaderError(Lists[7] == 'r' ? ELF_LIBERR_RANGE_OFFSET : ELF_LIBERR_BAD_LOCLIST,
                            QStringLiteral("%1: broken table header, section left out").arg(Lists));
            Report(Info, R);
        }
    }
    int Result = 0;
    TIMES Times;
    qint64 FrameMs = 0, IndexMs = 0;
    std::vector<ELF_ERROR_RECORD> OpenErrors;
    Info->Main = OpenSession(File, &OpenErrors);
    for (const ELF_ERROR_RECORD& R : OpenErrors) {
        Report(Info, R);
        if (R.Code != ELF_LIBERR_NO_DEBUG_INFO) {
            Result = -1;
        }
    }
    const U64 ProgressTotal = static_cast<U64>(Info->InfoSize) + Info->TypesSize;
    if (Settings().Progress && ProgressTotal) {
        Settings().Progress(0, ProgressTotal, Settings().ProgressUser);
    }
    if (Info->Main) {
        if (Info->InfoSize == 0) {
            Report(Info, ReaderError(ELF_LIBERR_NO_DEBUG_INFO, QString(), ELF_SEVERITY_NOTE));
        }
        std::vector<UNIT_HEADER> Headers;
        if (Info->TypesSize) {
            ReadHeaders(Info, false, Headers);
        }
        if (Info->InfoSize) {
            ReadHeaders(Info, true, Headers);
        }
        std::vector<UNIT_RESULT> Results;
        ReadUnits(Info, Headers, Results);
        Merge(Info, Results, Times);
        FindEntryFunc(Info);
        QElapsedTimer Step;
        Step.start();
        if (ReadFrames(Info) < 0) {
            Report(Info, ReaderError(ELF_ERR_FRAMES, QString()));
        }
        FrameMs = Step.restart();
        BuildNameIndex(Info);
        IndexMs = Step.elapsed();
    }
    if (Settings().Progress && ProgressTotal) {
        Settings().Progress(ProgressTotal, ProgressTotal, Settings().ProgressUser);
    }
    const auto Line = [](const char* Format, long Value) { LogLine(QString::asprintf(Format, Value)); };
    Line("parsed type unit tree in ms:   %ld", static_cast<long>(Times.TypeTree));
    Line("parsed debug info tree in ms:  %ld", static_cast<long>(Times.InfoTree));
    Line("parsed source file info in ms: %ld", static_cast<long>(Times.Files));
    Line("parsed source line info in ms: %ld", static_cast<long>(Times.Lines));
    Line("parsed macro info in ms: %ld", static_cast<long>(Times.Macros));
    Line("parsed call frame info in ms:  %ld", static_cast<long>(FrameMs));
    Line("intialized symbol name index in ms:  %ld", static_cast<long>(IndexMs));
    LogLine(QString::asprintf("File Size: %u", File->FileSize));
    LogLine(QString::asprintf("DWARF Symbol Count: %u", static_cast<U32>(Info->Entries.size())));
    LogLine(QString::asprintf("ELF Symbol Count: %u", File->SymCount));
    const U8 Encoding = File->Header.e_ident[5];
    LogLine(QStringLiteral("Data Encoding: ") +
            (Encoding == ElfFormat::ELFDATA2LSB   ? QStringLiteral("Little Endian")
             : Encoding == ElfFormat::ELFDATA2MSB ? QStringLiteral("Big Endian")
                                                  : QStringLiteral("Unknown data encoding")));
    LogLine(QStringLiteral("Source Language: ") + (File->SrcLang == 2 ? "C++" : "C"));
    Line("total init time: %ld ms", static_cast<long>(Total.elapsed()));
    LogLine(QString::asprintf("DWARF Version: %d", static_cast<int>(File->DwarfVersion)));
    return Result;
}

void ELF_FreeDebugInfo(ELF_FILE* File) {
    if (!File || !File->Debug) {
        return;
    }
    DEBUG_INFO* Info = File->Debug;
    FreeFrames(Info);
    CloseSession(Info->Main.get());
    File->Debug = nullptr;
    delete Info;
}

U32 ELF_GetDebugEntryCount(const ELF_FILE* File) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info ? static_cast<U32>(Info->Entries.size()) : 0;
}
