// A core plug-in for the loader's tests, built in variants that each break one step of loading.
// The working variant takes its answers from the configuration's path text: "init=N" is the result
// of Init and "reconf=N" that of Reconfigure.
#include "probe/CorePluginAPI.h"

#include <cstdlib>
#include <cstring>

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {

int s_InitCount = 0;
int s_ReconfigureCount = 0;
U32 s_Core = 0;

int Answer(const CORE_PLUGIN_CONFIG* pConfig, const char* sKey) {
    const char* p = strstr(pConfig->sPath, sKey);
    return p ? atoi(p + strlen(sKey)) : 0;
}

[[maybe_unused]] int Init(const CORE_PLUGIN_CONFIG* pConfig) {
    ++s_InitCount;
    s_Core = pConfig->Core;
    return Answer(pConfig, "init=");
}

[[maybe_unused]] int Reconfigure(const CORE_PLUGIN_CONFIG* pConfig) {
    ++s_ReconfigureCount;
    s_Core = pConfig->Core;
    return Answer(pConfig, "reconf=");
}

} // namespace

EXPORT int CORE_PLUGIN_GetAPI(CORE_PLUGIN_API* pApi, U32 Size) {
#ifdef TEST_GETAPIFAILS
    (void)pApi;
    (void)Size;
    return 3;
#else
    if (Size != sizeof(CORE_PLUGIN_API)) {
        return -1;
    }
#ifndef TEST_NOINIT
    pApi->Init = Init;
#endif
    pApi->Reconfigure = Reconfigure;
    return 0;
#endif
}

EXPORT int CORE_PLUGIN_SetAPI(const CORE_DEBUGGER_API* pApi, U32 Size) {
#ifdef TEST_SETAPIFAILS
    (void)pApi;
    (void)Size;
    return 1;
#else
    return pApi != nullptr && Size == sizeof(CORE_DEBUGGER_API) ? 0 : -1;
#endif
}

EXPORT U32 CORE_PLUGIN_GetVersion(void) {
    return 1;
}

#ifndef TEST_NOGETNAME
EXPORT const char* CORE_PLUGIN_GetName(void) {
    return "TestPlugin";
}
#endif

/// What the tests look at: how often Init and Reconfigure ran, and the last core identifier.
EXPORT void TestPlugin_GetCounts(int* pInit, int* pReconfigure, U32* pCore) {
    *pInit = s_InitCount;
    *pReconfigure = s_ReconfigureCount;
    *pCore = s_Core;
}
