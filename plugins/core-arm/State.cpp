// The plug-in's configuration and the debugger's services it calls.
#include "ArmCore.h"

#include <cstring>
#include <mutex>

namespace ArmCore {
namespace {

std::mutex s_Mutex;
PluginConfig s_Config;
CORE_DEBUGGER_API s_Debugger{};

CORE_DEBUGGER_API Debugger() {
    std::lock_guard<std::mutex> Lock(s_Mutex);
    return s_Debugger;
}

} // namespace

PluginConfig GetConfig() {
    std::lock_guard<std::mutex> Lock(s_Mutex);
    return s_Config;
}

void SetConfig(const PluginConfig& Config) {
    std::lock_guard<std::mutex> Lock(s_Mutex);
    s_Config = Config;
}

void SetDebuggerApi(const CORE_DEBUGGER_API& Api) {
    std::lock_guard<std::mutex> Lock(s_Mutex);
    s_Debugger = Api;
}

int ReadMem(U64 Addr, U32 Size, void* pBuf) {
    const CORE_DEBUGGER_API Api = Debugger();
    if (Size == 0 || pBuf == nullptr) {
        return -1;
    }
    if (Api.ReadMem != nullptr) {
        return Api.ReadMem(Addr, Size, pBuf) == 0 ? 0 : -1;
    }
    // Without the full read path the program image is all there is.
    if (Api.ReadProgramImage != nullptr) {
        return Api.ReadProgramImage(Addr, Size, pBuf) == static_cast<int>(Size) ? 0 : -1;
    }
    return -1;
}

void Log(const char* sText, int Level) {
    const CORE_DEBUGGER_API Api = Debugger();
    if (Api.Log != nullptr) {
        Api.Log(sText, Level);
    }
}

bool IsDataRegion(U64 Addr) {
    const CORE_DEBUGGER_API Api = Debugger();
    const char* sName = nullptr;
    U64 Start = 0;
    U64 End = 0;
    return Api.GetMappingRegion != nullptr && Api.GetMappingRegion(Addr, &sName, &Start, &End) == 0 &&
           sName != nullptr && strncmp(sName, "$d", 2) == 0;
}

const char* GetDataSymbol(U64 Addr) {
    const CORE_DEBUGGER_API Api = Debugger();
    if (Api.GetSymbolAt == nullptr) {
        return nullptr;
    }
    const char* sName = nullptr;
    U64 Start = 0;
    U64 End = 0;
    if (Api.GetSymbolAt(Addr, &sName, &Start, &End) <= 0 || sName == nullptr || *sName == '\0') {
        return nullptr;
    }
    return sName;
}

} // namespace ArmCore
