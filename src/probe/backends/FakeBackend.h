#pragma once

// The in-process fake target behind the device "FAKE" (see FakeTarget.h for its behaviour). Its state
// is process-wide, so that a test configures it before the library connects and changes it while a
// session runs.

#include "probe/FakeTarget.h"
#include "probe/backends/Backend.h"

#include <array>
#include <mutex>
#include <set>
#include <vector>

namespace tarvo {

struct FakeState {
    struct Region {
        U32 Address;
        U32 Size;
        bool Writable;
        std::vector<U8> Bytes;
    };
    struct Range {
        U32 Address;
        U32 Size;
        bool Contains(U32 A) const { return A >= Address && A - Address < Size; }
    };
    struct Point {
        PointKind Kind;
        U32 Address;
        U32 Size;
        bool operator<(const Point& O) const;
    };

    std::mutex Mutex;
    std::vector<Region> Regions;
    std::array<U64, TARVO_REG_COUNT> Registers{};
    std::array<bool, TARVO_REG_COUNT> Available{};
    std::vector<fake::Step> Script;
    size_t Position = 0;
    std::array<bool, 4> Faults{};
    std::vector<Range> FailedReads;
    std::vector<Range> FailedWrites;
    U32 RunPolls = 1;
    U32 HardBreakLimit = 6;
    U32 WatchLimit = 4;
    bool RunningAtConnect = false;
    std::array<int, 7> Counters{};
    // Session state
    bool Connected = false;
    bool Running = false;
    long HaltAt = -1; // script entry where a resume ends, -1 for none
    U32 PollsLeft = 0;
    std::set<Point> Points;

    static FakeState& Instance();
    void SetDefaults();
    Region* RegionAt(U32 Address);
    bool Fault(fake::Fault F) const { return Faults[F]; }
    /// Caller holds Mutex.
    void MoveTo(size_t Entry);
    long FindStop(size_t From) const;
};

/// Library lock held by the caller; the state has its own mutex against the test's configuration calls.
class FakeBackend : public Backend {
public:
    bool Connect(std::string& Error) override;
    void Disconnect() override;
    bool IsConnected() const override;
    std::string LostReason() const override;
    int HaltState() override;
    bool Halt() override;
    bool Go(bool StepOverBreakpoint) override;
    bool Step() override;
    bool Reset() override;
    size_t ReadMemory(U32 Address, size_t Size, U8* Out) override;
    size_t WriteMemory(U32 Address, size_t Size, const U8* Data) override;
    int BackgroundAccess() const override { return 1; }
    bool ReadRegisters(const U32* Indices, U64* Values, U8* Status, size_t Count) override;
    bool WriteRegister(U32 Index, U64 Value) override;
    InsertResult InsertPoint(PointKind Kind, U32 Address, U32 Size) override;
    bool RemovePoint(PointKind Kind, U32 Address, U32 Size) override;
    bool IsRam(U32 Address) const override;
    std::string Firmware() const override;
    U32 SerialNumber() const override { return TARVO_EMU_SERIAL_NO; }
};

/// The exported configuration entry of FakeTarget.h.
int FakeControl(U32 Cmd, U64 Arg0, U64 Arg1, void* Data);
/// CmdLoadSnapshot: reads the files without the state's lock, then replaces the state under it.
int LoadFakeSnapshot(FakeState& State, const fake::SnapshotRequest* Request);

} // namespace tarvo
