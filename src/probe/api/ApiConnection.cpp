// Exported functions of the session: host interface, callbacks, open and close, configuration,
// connecting, and the optional functions of TARVO_GetpFunc.

#include "probe/api/Exports.h"

#include "probe/api/Session.h"
#include "probe/backends/FakeBackend.h"

#include <cstdlib>
#include <cstring>

using tarvo::api::HostInterface;
using tarvo::api::Session;

namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

Session& S() {
    return Session::Instance();
}

// GetpFunc(10): background memory access, 0 none, 1 yes, 2 by halting the target briefly.
int BackgroundAccessCapability() {
    Guard Lock(S().Mutex);
    if (tarvo::Backend* B = S().Connected()) {
        return B->BackgroundAccess();
    }
    switch (S().Host) {
    case HostInterface::Ip:
        return 2;
    case HostInterface::Usb:
        return 1;
    default:
        return 0;
    }
}

// GetpFunc(12): bit 1 data, bit 0 instruction endianness (1 big); negative while unknown. The
// targets served here are all little-endian.
int TargetEndianness() {
    Guard Lock(S().Mutex);
    return S().Connected() ? 0 : -1;
}

// GetpFunc(33): fills a record whose second U32 is the port of the probe's web server. This library
// has no web server: the port is 0.
int WebServerInfo(void* Record, int Size) {
    if (!Record || Size < 8) {
        return -1;
    }
    U32 Fields[2] = {8, 0};
    std::memcpy(Record, Fields, 8);
    return 0;
}

// GetpFunc(40): ends a TARVOARM_Connect under way on another thread. Takes no lock that a waiting
// connection holds, so any thread may call it at any time.
void CancelConnect() {
    S().Cancel();
}

const char* CompiledText() {
    return " compiled " __DATE__;
}

} // namespace

extern "C" {

U32 TARVOARM_GetDLLVersion(void) {
    return tarvo::api::LibraryVersion;
}

int TARVOARM_SelectIP(const char* sHost, int Port) {
    Guard Lock(S().Mutex);
    if (!sHost || !*sHost) {
        return 1;
    }
    std::string Host = sHost;
    int P = 3333;
    const size_t Colon = Host.rfind(':');
    if (Colon != std::string::npos && Host.find(':') == Colon) {
        char* End = nullptr;
        const long Value = std::strtol(Host.c_str() + Colon + 1, &End, 10);
        if (*End != '\0' || Value <= 0 || Value > 65535) {
            S().Error("Invalid port in \"" + Host + "\"");
            return 1;
        }
        P = static_cast<int>(Value);
        Host.resize(Colon);
    }
    if (Port > 0 && Port <= 65535) {
        P = Port;
    }
    if (Host.empty()) {
        return 1;
    }
    S().Host = HostInterface::Ip;
    S().HostName = Host;
    S().Port = static_cast<uint16_t>(P);
    return 0;
}

int TARVOARM_SelectUSB(int Port) {
    Guard Lock(S().Mutex);
    if (Port != 0) {
        return -1; // one emulated probe, at index 0
    }
    S().Host = HostInterface::Usb;
    return 0;
}

int TARVOARM_EMU_SelectByUSBSN(U32 SerialNo) {
    Guard Lock(S().Mutex);
    if (SerialNo != TARVO_EMU_SERIAL_NO) {
        return -1;
    }
    S().Host = HostInterface::Usb;
    return 0;
}

void TARVOARM_EnableLog(TARVO_LOG_FUNC f) {
    S().LogFunc = f;
}

void TARVOARM_SetErrorOutHandler(TARVO_LOG_FUNC f) {
    S().ErrorFunc = f;
}

void TARVOARM_SetWarnOutHandler(TARVO_LOG_FUNC f) {
    S().WarnFunc = f;
}

const char* TARVOARM_Open(void) {
    Guard Lock(S().Mutex);
    if (S().Host == HostInterface::None) {
        S().LastError = "No host interface selected";
        return S().LastError.c_str();
    }
    S().Opened = true;
    return nullptr;
}

char TARVOARM_IsOpen(void) {
    Guard Lock(S().Mutex);
    return S().Opened ? 1 : 0;
}

void TARVOARM_Close(void) {
    Guard Lock(S().Mutex);
    S().Disconnect();
    S().Opened = false;
}

U32 TARVOARM_GetSN(void) {
    Guard Lock(S().Mutex);
    if (tarvo::Backend* B = S().Connected()) {
        return B->SerialNumber();
    }
    return S().Host == HostInterface::Usb ? TARVO_EMU_SERIAL_NO : 0;
}

int TARVOARM_GetFirmwareString(char* s, int Size) {
    Guard Lock(S().Mutex);
    std::string Text;
    if (tarvo::Backend* B = S().Connected()) {
        Text = B->Firmware();
    } else if (S().Host == HostInterface::Ip) {
        Text = "Tarvo GDB remote client V6.22 for " + S().HostName + ":" + std::to_string(S().Port) +
               CompiledText();
    } else {
        Text = std::string("Tarvo emulated probe V6.22") + CompiledText();
    }
    tarvo::api::CopyText(Text, s, Size);
    return static_cast<int>(Text.size());
}

int TARVOARM_ExecCommand(const char* sCmd, char* sAnswer, int AnswerSize) {
    Guard Lock(S().Mutex);
    const std::string Answer = sCmd ? S().Execute(sCmd) : std::string("No command");
    tarvo::api::CopyText(Answer, sAnswer, AnswerSize);
    return Answer.empty() ? 0 : -1;
}

int TARVOARM_SetEndian(int BigEndian) {
    (void)BigEndian; // every target served here is little-endian; GetpFunc(12) says so
    return 0;
}

int TARVOARM_SetCoreIndex(U32 Index) {
    return Index == 0 ? 0 : -1;
}

int TARVOARM_TIF_Select(int Interface) {
    (void)Interface; // a GDB server and the emulated board choose their own debug port
    return 0;
}

int TARVOARM_ConfigJTAG(int IRPre, int DRPre) {
    (void)IRPre;
    (void)DRPre;
    return 0;
}

void TARVOARM_SetSpeed(U32 kHz) {
    Guard Lock(S().Mutex);
    S().SpeedKHz = kHz & 0xFFFF;
}

U32 TARVOARM_GetSpeed(void) {
    Guard Lock(S().Mutex);
    return S().SpeedKHz;
}

int TARVOARM_Connect(void) {
    Guard Lock(S().Mutex);
    if (!S().Opened) {
        S().Error("Connect: the probe is not open");
        return -1;
    }
    std::string Why;
    bool Canceled = false;
    if (!S().Connect(Why, Canceled)) {
        // The caller asked for the end of a cancel; it is no error of the target's.
        if (!Canceled) {
            S().Error(Why);
        }
        return -1;
    }
    return 0;
}

char TARVOARM_IsConnected(void) {
    Guard Lock(S().Mutex);
    return S().Connected() ? 1 : 0;
}

int TARVOARM_EnableSoftBPs(char Enable) {
    Guard Lock(S().Mutex);
    S().SoftBreakpoints = Enable != 0;
    return 0;
}

void TARVOARM_SetLogFile(const char* sPath) {
    S().SetLogFile(sPath ? sPath : "");
}

int TARVOARM_EMU_HasCapEx(int Cap) {
    (void)Cap; // no optional capabilities: no SWO (23), no trace
    return 0;
}

int TARVO_GetMemZones(TARVO_MEM_ZONE* Zones, int MaxZones) {
    // One zone: the target's normal memory, under the name that callers treat as the default.
    if (Zones && MaxZones >= 1) {
        std::memset(&Zones[0], 0, sizeof Zones[0]);
        Zones[0].sName = "Default";
        return 1;
    }
    return 0;
}

void* TARVO_GetpFunc(U32 Index) {
    switch (Index) {
    case 10:
        return reinterpret_cast<void*>(&BackgroundAccessCapability);
    case 12:
        return reinterpret_cast<void*>(&TargetEndianness);
    case 33:
        return reinterpret_cast<void*>(&WebServerInfo);
    case TARVO_PFUNC_CANCEL_CONNECT:
        return reinterpret_cast<void*>(&CancelConnect);
    default:
        return nullptr;
    }
}

int TARVO_FAKE_Control(U32 Cmd, U64 Arg0, U64 Arg1, void* pData) {
    return tarvo::FakeControl(Cmd, Arg0, Arg1, pData);
}

} // extern "C"
