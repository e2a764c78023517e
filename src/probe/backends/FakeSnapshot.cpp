#include "probe/backends/ElfFile.h"
#include "probe/backends/FakeBackend.h"
#include "probe/backends/Snapshot.h"

#include <algorithm>
#include <cstdio>

namespace tarvo {

namespace {

void Report(const fake::SnapshotRequest* R, const std::string& Text) {
    if (R && R->Error && R->ErrorSize > 0) {
        std::snprintf(R->Error, R->ErrorSize, "%s", Text.c_str());
    }
}

std::string FolderOf(const std::string& Path) {
    const size_t Slash = Path.rfind('/');
    return Slash == std::string::npos ? std::string(".") : Path.substr(0, Slash == 0 ? 1 : Slash);
}

/// The parts of a segment that no RAM range covers: the captured RAM is what the board had, the
/// program file only what a download wrote.
void AddUncovered(const ElfSegment& Segment, const std::vector<SnapshotRange>& Ranges,
                  std::vector<FakeState::Region>& Out) {
    U64 At = Segment.Address;
    const U64 End = U64(Segment.Address) + Segment.Bytes.size();
    const auto Emit = [&](U64 From, U64 To) {
        if (To > From) {
            const auto First = Segment.Bytes.begin() + static_cast<std::ptrdiff_t>(From - Segment.Address);
            Out.push_back({static_cast<U32>(From), static_cast<U32>(To - From), false,
                           std::vector<U8>(First, First + static_cast<std::ptrdiff_t>(To - From))});
        }
    };
    for (const SnapshotRange& R : Ranges) { // sorted, disjoint
        if (R.End() <= At || R.Address >= End) {
            continue;
        }
        Emit(At, R.Address);
        At = std::max<U64>(At, R.End());
    }
    Emit(At, End);
}

} // namespace

int LoadFakeSnapshot(FakeState& S, const fake::SnapshotRequest* Request) {
    if (!Request || !Request->Snapshot || !*Request->Snapshot) {
        Report(Request, "No snapshot file given");
        return -1;
    }
    const std::string Path = Request->Snapshot;
    TargetSnapshot Snap;
    std::string Error;
    if (!ReadSnapshotFile(Path, Snap, Error)) {
        Report(Request, Error);
        return -1;
    }
    std::string ElfPath = Request->Elf ? Request->Elf : "";
    if (ElfPath.empty()) {
        ElfPath = Snap.Elf[0] == '/' ? Snap.Elf : FolderOf(Path) + "/" + Snap.Elf;
    }
    ElfFile Elf;
    if (!Elf.Load(ElfPath, Error)) {
        Report(Request, "Could not read the program of the snapshot " + Path + ": " + Error);
        return -1;
    }
    if (!SnapshotMatchesElf(Snap, Elf, ElfPath, Error)) {
        Report(Request, Error);
        return -1;
    }

    std::vector<ElfSegment> Segments = Elf.Segments();
    std::sort(Segments.begin(), Segments.end(),
              [](const ElfSegment& A, const ElfSegment& B) { return A.Address < B.Address; });
    std::vector<FakeState::Region> Regions;
    for (const ElfSegment& Segment : Segments) {
        AddUncovered(Segment, Snap.Ranges, Regions);
    }
    for (SnapshotRange& R : Snap.Ranges) {
        Regions.push_back({R.Address, static_cast<U32>(R.Bytes.size()), true, std::move(R.Bytes)});
    }

    std::lock_guard<std::mutex> Lock(S.Mutex);
    const bool WasConnected = S.Connected;
    S.SetDefaults();
    S.Connected = WasConnected;
    S.Regions = std::move(Regions);
    S.Available.fill(false);
    for (const auto& [Index, Value] : Snap.Registers) {
        S.Registers[Index] = Value;
        S.Available[Index] = true;
    }
    return 0;
}

} // namespace tarvo
