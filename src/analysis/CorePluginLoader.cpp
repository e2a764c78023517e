#include "analysis/CorePluginLoader.h"

#include "analysis/CoreDebuggerApi.h"
#include "app/core/Log.h"
#include "app/core/Paths.h"

#include <QFileInfo>
#include <QLibrary>
#include <QRecursiveMutex>

#include <cstring>
#include <memory>

namespace CorePluginLoader {
namespace {

typedef int (*GET_API_FUNC)(CORE_PLUGIN_API* pApi, U32 Size);
typedef int (*SET_API_FUNC)(const CORE_DEBUGGER_API* pApi, U32 Size);

QRecursiveMutex s_Mutex;
std::unique_ptr<QLibrary> s_pLibrary;
QString s_LoadedPath;
CORE_PLUGIN_API s_Api{};
QString s_ProjectPath;
QString s_DialogDefaultName; ///< for a path the user picked: the default plug-in it stands in for
FILE_DIALOG_HOOK s_DialogHook;
QString s_LastError;

#ifdef Q_OS_WIN
const char* const PLUGIN_SUFFIX = ".dll";
#else
const char* const PLUGIN_SUFFIX = ".so";
#endif

void Fail(const QString& Text) {
    s_LastError = Text;
    LogMessage(Text, MSG_ERROR | MSG_TO_ALL | MSG_FROM_PLUGIN);
}

void Warn(const QString& Text) {
    s_LastError = Text;
    LogMessage(Text, MSG_WARNING | MSG_TO_ALL | MSG_FROM_PLUGIN);
}

QString Canonical(const QString& Path) {
    const QString C = QFileInfo(Path).canonicalFilePath();
    return C.isEmpty() ? QFileInfo(Path).absoluteFilePath() : C;
}

void UnloadLocked() {
    memset(&s_Api, 0, sizeof s_Api);
    if (s_pLibrary) {
        s_pLibrary->unload();
        s_pLibrary.reset();
    }
    s_LoadedPath.clear();
}

/// Loading steps: the library, its four exports, the two records and Init. Any failure unloads.
int LoadLocked(const QString& Path, const CORE_PLUGIN_CONFIG& Config) {
    UnloadLocked();
    auto pLib = std::make_unique<QLibrary>(Path);
    if (!pLib->load()) {
        Fail(QString::asprintf("Failed to load library at %s", qPrintable(Path)));
        LogDebugMsg(pLib->errorString());
        return LOAD_FAILED;
    }
    static const char* const Exports[] = {"CORE_PLUGIN_GetAPI", "CORE_PLUGIN_SetAPI",
                                          "CORE_PLUGIN_GetVersion", "CORE_PLUGIN_GetName"};
    QFunctionPointer Funcs[4];
    for (int i = 0; i < 4; ++i) {
        Funcs[i] = pLib->resolve(Exports[i]);
        if (Funcs[i] == nullptr) {
            Fail(QString::asprintf("invalid target core support plugin: required function '%s' not found.",
                                   Exports[i]));
            pLib->unload();
            return LOAD_FAILED;
        }
    }
    CORE_PLUGIN_API Api;
    memset(&Api, 0, sizeof Api);
    auto Undo = [&](const QString& Text) {
        Fail(Text);
        memset(&s_Api, 0, sizeof s_Api);
        pLib->unload();
        return LOAD_FAILED;
    };
    if (reinterpret_cast<GET_API_FUNC>(Funcs[0])(&Api, sizeof Api) != 0) {
        return Undo(
            QStringLiteral("Target core support plugin initialization failed: incompatible plugin API"));
    }
    if (reinterpret_cast<SET_API_FUNC>(Funcs[1])(CoreDebugger::GetApi(), sizeof(CORE_DEBUGGER_API)) != 0) {
        return Undo(
            QStringLiteral("Target core support plugin initialization failed: incompatible debugger API"));
    }
    if (Api.Init == nullptr) {
        return Undo(QStringLiteral(
            "Target core support plugin initialization failed: plugin API is missing init function"));
    }
    const int Result = Api.Init(&Config);
    if (Result != 0) {
        return Undo(QString::asprintf("Target core support plugin initialization failed: plugin API function "
                                      "'Init' returned error code %d",
                                      Result));
    }
    s_Api = Api;
    s_pLibrary = std::move(pLib);
    s_LoadedPath = Canonical(Path);
    s_LastError.clear();
    return LOAD_DONE;
}

} // namespace

QString GetDefaultName(U32 Core) {
    const U32 Family = Core >> 24;
    if (Family == 3 || (Family >= 6 && Family <= 12) || Family == 14 || Family == 15) {
        return QStringLiteral("CorePluginARM");
    }
    if (Family == 19) {
        return QStringLiteral("CorePluginRISCV");
    }
    return QString();
}

QString GetDefaultPath(U32 Core) {
    const QString Name = GetDefaultName(Core);
    return Name.isEmpty() ? QString() : Paths::GetCorePluginDir() + Name + QLatin1String(PLUGIN_SUFFIX);
}

void SetProjectPath(const QString& Path) {
    QMutexLocker Lock(&s_Mutex);
    s_ProjectPath = Path;
    s_DialogDefaultName.clear();
}

QString GetProjectPath() {
    QMutexLocker Lock(&s_Mutex);
    return s_ProjectPath;
}

void SetFileDialogHook(FILE_DIALOG_HOOK Hook) {
    QMutexLocker Lock(&s_Mutex);
    s_DialogHook = std::move(Hook);
}

QString ChoosePath(U32 Core, bool AllowDialog) {
    QMutexLocker Lock(&s_Mutex);
    // A file the user picked in place of another family's plug-in doesn't serve this core.
    if (!s_DialogDefaultName.isEmpty() && s_DialogDefaultName != GetDefaultName(Core)) {
        s_ProjectPath.clear();
        s_DialogDefaultName.clear();
    }
    if (!s_ProjectPath.isEmpty()) {
        return s_ProjectPath;
    }
    const QString Default = GetDefaultPath(Core);
    if (!Default.isEmpty() && QFileInfo(Default).isFile()) {
        return Default;
    }
    if (AllowDialog && s_DialogHook) {
        const QString Chosen = s_DialogHook(
            QStringLiteral("Project Warning"),
            QStringLiteral("Arnex could not locate the target core support plugin for the selected device.\n"
                           "Please specify the file location manually."));
        if (!Chosen.isEmpty()) {
            s_ProjectPath = Chosen;
            s_DialogDefaultName = GetDefaultName(Core);
            return Chosen;
        }
    }
    return QString();
}

int Load(const CORE_PLUGIN_CONFIG& Config, bool AllowDialog) {
    QMutexLocker Lock(&s_Mutex);
    if (static_cast<I32>(Config.Core) <= 0) {
        Warn(QStringLiteral("Project Warning: unknown target device specified."));
        return LOAD_FAILED;
    }
    const QString Path = ChoosePath(Config.Core, AllowDialog);
    if (Path.isEmpty()) {
        Warn(QStringLiteral(
            "Project Warning: target core support plugin not specified and could not determine "
            "default."));
        return LOAD_FAILED;
    }
    if (!QFileInfo(Path).isFile()) {
        Warn(QString::asprintf("Project Warning: target core support plugin not found at %s",
                               qPrintable(Path)));
        return LOAD_FAILED;
    }
    return LoadFile(Path, Config);
}

int LoadFile(const QString& Path, const CORE_PLUGIN_CONFIG& Config) {
    QMutexLocker Lock(&s_Mutex);
    // The file in use takes the new configuration in place of a reload, if it can.
    if (s_pLibrary && Canonical(Path) == s_LoadedPath && s_Api.Reconfigure != nullptr) {
        const int Result = s_Api.Reconfigure(&Config);
        if (Result == 0 || Result == 1) {
            s_LastError.clear();
            return Result == 0 ? LOAD_RECONFIGURED : LOAD_RECONFIGURE_PASSED;
        }
    }
    return LoadLocked(Path, Config);
}

void Unload() {
    QMutexLocker Lock(&s_Mutex);
    UnloadLocked();
}

bool IsLoaded() {
    QMutexLocker Lock(&s_Mutex);
    return s_pLibrary != nullptr;
}

QString GetLoadedPath() {
    QMutexLocker Lock(&s_Mutex);
    return s_LoadedPath;
}

const CORE_PLUGIN_API& GetApi() {
    return s_Api;
}

QString GetLastError() {
    QMutexLocker Lock(&s_Mutex);
    return s_LastError;
}

} // namespace CorePluginLoader
