// What the device knows of the library, the probe and the chosen device: the device table's entry, the
// memory zones, the interface speed, the byte order, the capabilities and the web server's address.

#include "target/Device.h"

#include "app/core/Log.h"
#include "probe/Tarvo.h"
#include "target/DeviceConfig.h"
#include "target/DeviceEvents.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>

namespace {

typedef int (*INT_FUNC)(void);
typedef int (*RECORD_FUNC)(void* Record, int Size);

constexpr int WEB_SERVER_PORT = 19080;
constexpr int ZONES_MAX = 16;
constexpr int ZONE_NAME_MAX = 127;
constexpr size_t SUPPORTED_CORES_MAX = 1024;

/// Families whose cores this debugger supports: ARM families and RISC-V.
bool IsSupportedFamily(U32 Family) {
    return Family == 1 || Family == 3 || (Family >= 6 && Family <= 12) || Family == 14 || Family == 15 ||
           Family == 19;
}

} // namespace

void CDevice::ReadLibraryFacts() {
    Dl_info Info = {};
    QString Path;
    if (dladdr(reinterpret_cast<void*>(&TARVOARM_GetDLLVersion), &Info) != 0 && Info.dli_fname) {
        Path = QString::fromLocal8Bit(Info.dli_fname);
        Path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    }
    const U32 Version = TARVOARM_GetDLLVersion();
    const int Count = TARVOARM_DEVICE_GetInfo(-1, nullptr);
    {
        std::lock_guard<std::mutex> Guard(m_FactsLock);
        m_Facts.LibraryVersion = Version;
        m_Facts.LibraryPath = Path;
        m_Facts.DeviceCount = Count;
    }
    UpdateTarvoFuncPtrs();
    UpdateSupportedCoresList();
    UpdateDeviceInfo();
}

DEVICE_FACTS CDevice::GetFacts() const {
    std::lock_guard<std::mutex> Guard(m_FactsLock);
    return m_Facts;
}

void CDevice::UpdateTarvoFuncPtrs() {
    m_FuncEndian = TARVO_GetpFunc(12);
    m_FuncBMA = TARVO_GetpFunc(10);
    m_FuncWebInfo = TARVO_GetpFunc(33);
    m_FuncCancel = TARVO_GetpFunc(TARVO_PFUNC_CANCEL_CONNECT);
}

int CDevice::UpdateDeviceInfo() {
    {
        std::lock_guard<std::mutex> Guard(m_FactsLock);
        m_Facts.CoreName.clear();
        m_Facts.Core = 0;
        m_Facts.CoreFamily = 0;
    }
    CDeviceConfig& Config = GetDeviceConfig();
    int Index = Config.GetParam(DEVICE_INDEX);
    const QByteArray Name = Config.GetText(DEVICE_NAME).toUtf8();
    if (Index < 1 && !Name.isEmpty()) {
        const int Found = TARVOARM_DEVICE_GetIndex(Name.constData());
        const int Stored = Found < 0 ? -1 : Found;
        if (Stored != Index) {
            // The record takes the index; its listener comes back here with a valid one.
            Config.SetParam(DEVICE_INDEX, Stored);
            return Stored < 1 ? -1 : 0;
        }
    }
    // Index 0 is the library's placeholder, not a device.
    if (Index < 1) {
        return -1;
    }
    TARVO_DEVICE_INFO Entry;
    std::memset(&Entry, 0, sizeof(Entry));
    Entry.SizeOfStruct = sizeof(Entry);
    if (TARVOARM_DEVICE_GetInfo(Index, &Entry) < 0) {
        return -1;
    }
    const char* CoreName = TARVOARM_Core2CoreName(Entry.Core);
    std::lock_guard<std::mutex> Guard(m_FactsLock);
    m_Facts.DeviceName = Entry.sName && *Entry.sName ? QString::fromUtf8(Entry.sName).left(255)
                                                     : QStringLiteral("Unspecified");
    m_Facts.Core = Entry.Core;
    m_Facts.CoreFamily = Entry.Core >> 24;
    m_Facts.RamAddr = Entry.RAMAddr;
    m_Facts.RamSize = Entry.RAMSize;
    m_Facts.FlashAddr = Entry.FlashAddr;
    m_Facts.FlashSize = Entry.FlashSize;
    m_Facts.CoreName = QString::fromUtf8(CoreName ? CoreName : "").left(31);
    return 0;
}

void CDevice::OnDeviceIndexChanged() {
    UpdateDeviceInfo();
    UpdateTarvoFuncPtrs();
    UpdateMemZones();
    // A new device counts as able to do everything until the probe has been asked.
    for (int i = 0; i < 6; ++i) {
        Capabilities[i] = 1;
    }
}

void CDevice::UpdateMemZones() {
    if (!Connected.load()) {
        return;
    }
    TARVO_MEM_ZONE Zones[ZONES_MAX];
    std::memset(static_cast<void*>(Zones), 0, sizeof(Zones));
    const int Count = TARVO_GetMemZones(Zones, ZONES_MAX);
    QStringList Names;
    for (int i = 0; i < qBound(0, Count, ZONES_MAX); ++i) {
        Names << QString::fromUtf8(Zones[i].sName ? Zones[i].sName : "").left(ZONE_NAME_MAX);
    }
    std::lock_guard<std::mutex> Guard(m_FactsLock);
    m_Facts.Zones = Names;
}

void CDevice::UpdateTIFSpeed() {
    const U32 KHz = TARVOARM_GetSpeed() & 0xFFFF;
    const U32 Hz = KHz == 0 || KHz == 65535 ? KHz : KHz * 1000;
    std::lock_guard<std::mutex> Guard(m_FactsLock);
    m_Facts.TIFSpeedHz = Hz;
}

void CDevice::UpdateEndianess() {
    const U32 Configured = GetDeviceConfig().GetParam(ENDIAN) ? 1 : 0;
    U32 Data = Configured;
    U32 Inst = Configured;
    if (Connected.load()) {
        if (auto Func = reinterpret_cast<INT_FUNC>(m_FuncEndian.load())) {
            const int Order = Func();
            if (Order >= 0) {
                Data = (Order >> 1) & 1;
                Inst = Order & 1;
            }
        }
    }
    U32 OldData = 0;
    U32 OldInst = 0;
    {
        std::lock_guard<std::mutex> Guard(m_FactsLock);
        OldData = m_Facts.DataEndian;
        OldInst = m_Facts.InstEndian;
        m_Facts.DataEndian = Data;
        m_Facts.InstEndian = Inst;
    }
    if (OldData != Data || OldInst != Inst) {
        DeviceEvents::PostEndianessChanged(static_cast<int>(OldData), static_cast<int>(OldInst));
    }
}

void CDevice::ApplyDataEndianess(int BigEndian) {
    if (!Connected.load()) {
        return;
    }
    TARVOARM_SetEndian(BigEndian);
    UpdateEndianess();
}

void CDevice::ResetHWCapabilityFlags() {
    for (int i = 0; i < 6; ++i) {
        Capabilities[i] = 1;
    }
}

void CDevice::UpdateHWCapabilityFlags() {
    if (!Connected.load()) {
        return;
    }
    U8 New[6] = {0, 0, 0, 1, 1, 1};
    if (auto Func = reinterpret_cast<INT_FUNC>(m_FuncBMA.load())) {
        New[0] = static_cast<U8>(qBound(0, Func(), 2));
    }
    New[1] = TARVOARM_EMU_HasCapEx(23) != 0 ? 1 : 0;
    // Streaming trace: the library names no way to ask, so it counts as missing.
    New[2] = 0;
    for (int i = 0; i < 6; ++i) {
        const U8 Old = Capabilities[i].exchange(New[i]);
        if (Old != New[i]) {
            DeviceEvents::PostHWCapabilityChanged(i, New[i]);
        }
    }
    if (New[0] == 2) {
        LogInfoMsg(QStringLiteral("Using stop mode for background memory accesses: "));
    }
}

void CDevice::UpdateTarvoWebserverURL() {
    int Port = WEB_SERVER_PORT;
    const U32 Version = TARVOARM_GetDLLVersion();
    if (auto Func = reinterpret_cast<RECORD_FUNC>(m_FuncWebInfo.load())) {
        U32 Record[2] = {sizeof(Record), 0};
        Port = Func(Record, sizeof(Record)) == 0 ? static_cast<int>(Record[1]) : 0;
        if (Port == 0) {
            // Older libraries answer 0 for the default port; newer ones have no server then.
            Port = Version < 62006 || Version == 62100 || Version == 62101 ? WEB_SERVER_PORT : 0;
        }
    }
    std::lock_guard<std::mutex> Guard(m_FactsLock);
    m_Facts.WebServerURL =
        Port > 0 ? QStringLiteral("http://%1:%2").arg(QStringLiteral("127.0.0.1")).arg(Port) : QString();
}

int CDevice::UpdateSupportedCoresList() {
    std::vector<U32> Cores;
    const int Count = TARVOARM_DEVICE_GetInfo(-1, nullptr);
    int Result = 0;
    for (int i = 0; i < Count; ++i) {
        TARVO_DEVICE_INFO Entry;
        std::memset(&Entry, 0, sizeof(Entry));
        Entry.SizeOfStruct = sizeof(Entry);
        if (TARVOARM_DEVICE_GetInfo(i, &Entry) < 0 || !IsSupportedFamily(Entry.Core >> 24) ||
            std::find(Cores.begin(), Cores.end(), Entry.Core) != Cores.end()) {
            continue;
        }
        if (Cores.size() >= SUPPORTED_CORES_MAX) {
            LogErrorMsg(QStringLiteral("Internal error. supported cores list has insufficent size."));
            Result = -1;
            break;
        }
        Cores.push_back(Entry.Core);
    }
    std::lock_guard<std::mutex> Guard(m_FactsLock);
    m_Facts.SupportedCores = Cores;
    return Result < 0 ? -1 : static_cast<int>(Cores.size());
}
