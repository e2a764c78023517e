#include "analysis/CoreBinding.h"

#include "analysis/CoreDebuggerApi.h"
#include "analysis/CorePluginLoader.h"
#include "app/core/Log.h"
#include "probe/Tarvo.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"
#include "target/DeviceEvents.h"

#include <cstring>

namespace {

/// What the plug-in asks of the target: memory, read directly through the device.
class CDeviceServices : public ICoreDebuggerServices {
public:
    int ReadTargetMem(U64 Addr, U32 Size, void* pBuf) override {
        if (Addr > 0xFFFFFFFFull || !CDevice::Exists()) {
            return -1;
        }
        return CDevice::Instance()->ReadMemDirect(static_cast<U32>(Addr), nullptr, Size,
                                                  static_cast<U8*>(pBuf), nullptr) < 0
                   ? -1
                   : 0;
    }
};

bool ReadCpuMode(U32* Mode) {
    const CORE_PLUGIN_API* Api = CDevice::Instance()->CorePlugin();
    if (!Api || !Api->GetCPUMode) {
        *Mode = 0;
        return true;
    }
    return Api->GetCPUMode(Mode) == 0;
}

bool ReadExecMode(U32* Mode) {
    const CORE_PLUGIN_API* Api = CDevice::Instance()->CorePlugin();
    if (!Api || !Api->GetExecMode) {
        *Mode = 0;
        return true;
    }
    return Api->GetExecMode(Mode) == 0;
}

} // namespace

namespace CoreBinding {

void InstallServices() {
    static CDeviceServices s_Services;
    CoreDebugger::SetServices(&s_Services);
    DeviceEvents::SetModeReaders(&ReadCpuMode, &ReadExecMode);
}

int LoadForCore(U32 Core, bool AllowDialog) {
    CDevice* Device = CDevice::Instance();
    QMutexLocker Lock(&Device->Mutex());
    CORE_PLUGIN_CONFIG Config;
    std::memset(&Config, 0, sizeof(Config));
    Config.Core = Core;
    const U32 Big = GetDeviceConfig().GetParam(ENDIAN) != 0 ? 1 : 0;
    Config.InstEndian = Big;
    Config.DataEndian = Big;
    // The device lets go of the record before the loader replaces it.
    Device->SetCorePlugin(nullptr, nullptr);
    if (CorePluginLoader::Load(Config, AllowDialog) < 0) {
        // No plug-in of another device stays behind for this one.
        CorePluginLoader::Unload();
        return -1;
    }
    const CORE_PLUGIN_API& Api = CorePluginLoader::GetApi();
    CORE_INFO Info;
    std::memset(&Info, 0, sizeof(Info));
    if (!Api.GetCoreInfo || Api.GetCoreInfo(&Info, sizeof(Info)) != 0) {
        LogErrorMsg(QStringLiteral("Error reading static core information from plugin"));
        CorePluginLoader::Unload();
        return -1;
    }
    Device->SetCorePlugin(&Api, &Info);
    return 0;
}

int LoadForConfiguredDevice(bool AllowDialog) {
    // An unknown device gives the loader's own message for a core of 0.
    return LoadForCore(GetConfiguredCore(), AllowDialog);
}

U32 GetConfiguredCore() {
    const int Index = GetDeviceConfig().GetParam(DEVICE_INDEX);
    TARVO_DEVICE_INFO Entry;
    std::memset(&Entry, 0, sizeof(Entry));
    Entry.SizeOfStruct = sizeof(Entry);
    return Index > 0 && TARVOARM_DEVICE_GetInfo(Index, &Entry) >= 0 ? Entry.Core : 0;
}

void Unload() {
    CDevice* Device = CDevice::Instance();
    QMutexLocker Lock(&Device->Mutex());
    Device->SetCorePlugin(nullptr, nullptr);
    CorePluginLoader::Unload();
}

} // namespace CoreBinding
