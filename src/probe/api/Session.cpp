#include "probe/api/Session.h"

#include "probe/backends/Devices.h"
#include "probe/backends/FakeBackend.h"
#include "probe/backends/QemuBackend.h"
#include "probe/backends/QemuProcess.h"
#include "probe/backends/RemoteBackend.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sstream>

namespace tarvo::api {

Session& Session::Instance() {
    // Never destroyed: callbacks from back-end threads may still arrive while the process ends.
    static Session* S = new Session;
    return *S;
}

void CopyText(const std::string& Text, char* Buffer, int Size) {
    if (!Buffer || Size <= 0) {
        return;
    }
    const size_t N = std::min(Text.size(), static_cast<size_t>(Size - 1));
    std::memcpy(Buffer, Text.data(), N);
    Buffer[N] = '\0';
}

void Session::Emit(std::atomic<TARVO_LOG_FUNC>& Func, const char* Level, const std::string& Text) {
    {
        std::lock_guard<std::mutex> Lock(m_LogMutex);
        if (m_LogFile) {
            std::fprintf(m_LogFile, "%s: %s\n", Level, Text.c_str());
            std::fflush(m_LogFile);
        }
    }
    if (TARVO_LOG_FUNC F = Func.load()) {
        F(Text.c_str());
    }
}

void Session::Info(const std::string& Text) {
    Emit(LogFunc, "info", Text);
}

void Session::Warn(const std::string& Text) {
    Emit(WarnFunc, "warning", Text);
}

void Session::Error(const std::string& Text) {
    Emit(ErrorFunc, "error", Text);
}

void Session::SetLogFile(const std::string& Path) {
    std::lock_guard<std::mutex> Lock(m_LogMutex);
    if (m_LogFile) {
        std::fclose(m_LogFile);
        m_LogFile = nullptr;
    }
    if (!Path.empty()) {
        m_LogFile = std::fopen(Path.c_str(), "a");
    }
}

TextSink Session::Sink() {
    TextSink S;
    S.Info = [this](const std::string& T) { Info(T); };
    S.Warn = [this](const std::string& T) { Warn(T); };
    S.Error = [this](const std::string& T) { Error(T); };
    return S;
}

Backend* Session::Connected() {
    return Target && Target->IsConnected() ? Target.get() : nullptr;
}

bool Session::DeviceIsFake() const {
    return DeviceIndex > 0 &&
           std::strcmp(DeviceTable()[static_cast<size_t>(DeviceIndex)].Name, FakeDeviceName) == 0;
}

bool Session::DeviceIsEmulated() const {
    return DeviceIndex > 0 && DeviceTable()[static_cast<size_t>(DeviceIndex)].Machine != nullptr;
}

void Session::Cancel() {
    std::lock_guard<std::mutex> Lock(m_CancelMutex);
    if (m_Connecting) {
        m_Canceled = true;
        m_Connecting->Abort();
    }
}

bool Session::Connect(std::string& Why, bool& Canceled) {
    Canceled = false;
    if (Connected()) {
        return true;
    }
    Target.reset();
    Breakpoints.clear();
    DataEvents.clear();
    std::unique_ptr<Backend> B;
    if (Host == HostInterface::Ip) {
        auto Remote = std::make_unique<RemoteBackend>(HostName, Port, Sink());
        Remote->SetTimeout(TimeoutMs);
        B = std::move(Remote);
    } else if (Host == HostInterface::Usb) {
        if (DeviceIsFake()) {
            B = std::make_unique<FakeBackend>();
        } else if (DeviceIsEmulated()) {
            B = std::make_unique<QemuBackend>(DeviceTable()[static_cast<size_t>(DeviceIndex)], QemuBinary,
                                              QemuArgs, Sink());
        } else {
            Why = "No device to emulate: choose MPS2-AN385, MPS2-AN386, MPS2-AN500 or MPS2-AN505, or connect "
                  "to a GDB server over IP";
            return false;
        }
    } else {
        Why = "No host interface selected";
        return false;
    }
    {
        std::lock_guard<std::mutex> Lock(m_CancelMutex);
        m_Connecting = B.get();
        m_Canceled = false;
    }
    const bool Ok = B->Connect(Why);
    {
        std::lock_guard<std::mutex> Lock(m_CancelMutex);
        m_Connecting = nullptr;
        Canceled = m_Canceled;
    }
    if (Canceled) {
        // A connection made in the moment of the cancel is given up as well.
        B->Disconnect();
        Why = "the connection was canceled";
        return false;
    }
    if (!Ok) {
        return false;
    }
    Target = std::move(B);
    return true;
}

void Session::Disconnect() {
    if (Target) {
        Target->Disconnect();
        Target.reset();
    }
    Breakpoints.clear();
    DataEvents.clear();
}

namespace {

std::string Trim(std::string Text) {
    while (!Text.empty() && std::isspace(static_cast<unsigned char>(Text.back()))) {
        Text.pop_back();
    }
    size_t Start = 0;
    while (Start < Text.size() && std::isspace(static_cast<unsigned char>(Text[Start]))) {
        ++Start;
    }
    return Text.substr(Start);
}

bool EqualNoCase(const std::string& A, const char* B) {
    return A.size() == std::strlen(B) && std::equal(A.begin(), A.end(), B, [](char X, char Y) {
               return std::tolower(static_cast<unsigned char>(X)) ==
                      std::tolower(static_cast<unsigned char>(Y));
           });
}

} // namespace

std::string Session::Execute(const std::string& Command) {
    // "name=value" or "name value"; names are compared without regard to case.
    const size_t Split = Command.find_first_of("= ");
    const std::string Name = Trim(Command.substr(0, Split));
    const std::string Value = Split == std::string::npos ? std::string() : Trim(Command.substr(Split + 1));
    if (EqualNoCase(Name, "device")) {
        if (Connected()) {
            return "The device can't change while connected";
        }
        std::string Device = Value;
        if (Device.size() >= 2 && Device.front() == '"' && Device.back() == '"') {
            Device = Device.substr(1, Device.size() - 2);
        }
        if (Device.empty()) {
            DeviceName.clear();
            DeviceIndex = -1;
            return {};
        }
        const int Index = FindDevice(Device);
        if (Index <= 0) {
            return "Unknown device \"" + Device + "\"";
        }
        DeviceName = Device;
        DeviceIndex = Index;
        if (Host == HostInterface::Usb && !DeviceIsFake()) {
            if (!DeviceIsEmulated()) {
                return "The device \"" + Device +
                       "\" can't be emulated: the emulated probe knows MPS2-AN385, MPS2-AN386, MPS2-AN500 "
                       "and "
                       "MPS2-AN505; connect to the device's GDB server over IP instead";
            }
            if (QemuProcess::FindExecutable(QemuBinary).empty()) {
                return QemuBinary + " was not found: install the package qemu-system-arm";
            }
        }
        return {};
    }
    if (EqualNoCase(Name, "HideDeviceSelection")) {
        return {}; // this library never shows a dialog of its own
    }
    if (EqualNoCase(Name, "ScriptFile")) {
        return "Script files are not supported by this probe library";
    }
    if (EqualNoCase(Name, "SupplyPower")) {
        if (Host == HostInterface::Usb && DeviceIsFake()) {
            return {};
        }
        return "This probe can't switch the target's power";
    }
    if (EqualNoCase(Name, "SetMCTAddr") || EqualNoCase(Name, "SetMCTSearchRanges")) {
        MctSettings = Command;
        return {};
    }
    if (EqualNoCase(Name, "TraceSampleAdjust") || EqualNoCase(Name, "SelectTraceSource") ||
        EqualNoCase(Name, "TRACE_SetEnableTimestamps") || EqualNoCase(Name, "ReadIntoTraceCache") ||
        EqualNoCase(Name, "PortWidth")) {
        return "Instruction trace is not supported by this probe";
    }
    if (EqualNoCase(Name, "QemuPath")) {
        QemuBinary = Value.empty() ? "qemu-system-arm" : Value;
        return {};
    }
    if (EqualNoCase(Name, "QemuArgs")) {
        QemuArgs.clear();
        std::istringstream In(Value);
        for (std::string Arg; In >> Arg;) {
            QemuArgs.push_back(Arg);
        }
        return {};
    }
    if (EqualNoCase(Name, "Timeout")) {
        const int Ms = std::atoi(Value.c_str());
        if (Ms <= 0) {
            return "Invalid time-out \"" + Value + "\"";
        }
        TimeoutMs = Ms;
        if (auto* Remote = dynamic_cast<RemoteBackend*>(Target.get())) {
            Remote->SetTimeout(Ms);
        }
        return {};
    }
    if (EqualNoCase(Name, "InvalidateCache")) {
        if (Target) {
            Target->InvalidateCache();
        }
        return {};
    }
    if (EqualNoCase(Name, "monitor")) {
        Backend* B = Connected();
        if (!B) {
            return "Not connected";
        }
        std::string Output;
        const bool Ok = B->Monitor(Value, Output);
        if (Ok && !Output.empty()) {
            Info(Output);
        }
        return Ok ? std::string() : Output;
    }
    return "Unknown command \"" + Name + "\"";
}

} // namespace tarvo::api
