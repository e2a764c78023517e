#pragma once

// The state behind the exported functions: the chosen host interface and device, the text
// callbacks, the back end of the connection and the tables of breakpoints and data events.

#include "probe/Tarvo.h"
#include "probe/backends/Backend.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tarvo::api {

constexpr U32 LibraryVersion = 62200;

enum class HostInterface { None, Ip, Usb };

struct BreakpointRecord {
    int Handle;
    U32 Address;
    U32 Type;
    PointKind Kind;
    U32 Size;
    U32 ImplFlags; // bit 0 hardware, bit 1 software in RAM, bit 4 software in flash
};

struct DataEventRecord {
    int Handle;
    TARVO_DATA_EVENT Event; // as given, with the address mask widened to the access width
    PointKind Kind;
    U32 WatchAddress;
    U32 WatchSize;
};

/// Process-wide. Every exported function holds Mutex for its whole run, which serialises the device
/// thread and the GUI thread; the text callbacks need no lock and may fire on any thread.
class Session {
public:
    static Session& Instance();

    std::recursive_mutex Mutex;

    HostInterface Host = HostInterface::None;
    std::string HostName;
    uint16_t Port = 3333;
    bool Opened = false;
    std::string DeviceName;
    int DeviceIndex = -1;
    U32 SpeedKHz = 0;
    bool SoftBreakpoints = true;
    std::string QemuBinary = "qemu-system-arm";
    std::vector<std::string> QemuArgs;
    int TimeoutMs = 3000;
    std::string MctSettings;
    std::unique_ptr<Backend> Target;
    std::vector<BreakpointRecord> Breakpoints;
    std::vector<DataEventRecord> DataEvents;
    int NextHandle = 1;
    std::string LastError; // keeps the text that TARVOARM_Open returns alive

    std::atomic<TARVO_LOG_FUNC> LogFunc{nullptr};
    std::atomic<TARVO_LOG_FUNC> ErrorFunc{nullptr};
    std::atomic<TARVO_LOG_FUNC> WarnFunc{nullptr};

    void Info(const std::string& Text);
    void Warn(const std::string& Text);
    void Error(const std::string& Text);
    void SetLogFile(const std::string& Path);
    TextSink Sink();

    /// The back end if it is connected, else null.
    Backend* Connected();
    /// Whether the device chosen would run on the emulated board (or the fake target).
    bool DeviceIsEmulated() const;
    bool DeviceIsFake() const;
    /// Creates the back end for the host interface and device and connects it. Canceled tells whether
    /// a failure came from Cancel.
    bool Connect(std::string& Error, bool& Canceled);
    /// Any thread, without Mutex: a Connect under way on another thread fails at once (or, at the
    /// latest, when its current wait for the target ends). Nothing else changes.
    void Cancel();
    /// Ends the connection and forgets every breakpoint and data event.
    void Disconnect();
    /// Runs a command of TARVOARM_ExecCommand; empty on success, else the error text.
    std::string Execute(const std::string& Command);

private:
    void Emit(std::atomic<TARVO_LOG_FUNC>& Func, const char* Level, const std::string& Text);
    std::mutex m_CancelMutex; // the back end that connects, and whether it was canceled
    Backend* m_Connecting = nullptr;
    bool m_Canceled = false;
    std::mutex m_LogMutex;
    FILE* m_LogFile = nullptr;
};

/// Copies Text into a caller's buffer of Size bytes, cut and zero-terminated.
void CopyText(const std::string& Text, char* Buffer, int Size);

} // namespace tarvo::api
