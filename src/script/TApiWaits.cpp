#include "script/TApiWaits.h"

#include "app/core/CommandTable.h"

#include <QString>

namespace TapiWaits {
namespace {

constexpr WAIT_STEP NONE = {WAIT_NONE, JT_NONE, JT_NONE};

constexpr WAIT_STEP Job(JOB_KINDS Kind) {
    return {WAIT_JOB, Kind, JT_NONE};
}
constexpr WAIT_STEP JobWithEvents(JOB_KINDS Kind) {
    return {WAIT_JOB_EVENTS, Kind, JT_NONE};
}
constexpr WAIT_STEP Either(JOB_KINDS Kind, JOB_KINDS Other) {
    return {WAIT_EITHER_JOB, Kind, Other};
}
constexpr WAIT_STEP OnOff(JOB_KINDS On, JOB_KINDS Off) {
    return {WAIT_ON_OFF_JOB, On, Off};
}
constexpr WAIT_STEP HALTED = {WAIT_HALTED, JT_NONE, JT_NONE};
constexpr WAIT_STEP IDLE = {WAIT_DEVICE_IDLE, JT_NONE, JT_NONE};

// Every command that asks the device for something, and what the script waits for before going on.
const COMMAND_WAIT s_Waits[] = {
    {"File.Open", {Job(JT_END_DOWNLOAD), NONE}},
    {"File.OpenRecent", {Job(JT_END_DOWNLOAD), NONE}},
    {"File.Load", {Job(JT_END_DOWNLOAD), NONE}},
    {"Debug.Download", {Job(JT_END_DOWNLOAD), NONE}},
    {"Edit.SysVar", {JobWithEvents(JT_SET_CONFIG_PARAM), NONE}},
    {"Tools.TarvoSettings", {Job(JT_CONFIGURE), NONE}},
    {"Debug.Connect", {IDLE, NONE}},
    {"Debug.Start", {IDLE, NONE}},
    {"Debug.Disconnect", {Job(JT_DISCONNECT), NONE}},
    {"Debug.Stop", {Job(JT_DISCONNECT), NONE}},
    {"Debug.Continue", {Job(JT_CONTINUE), NONE}},
    {"Debug.Halt", {Job(JT_HALT), HALTED}},
    // A step is at source level or, in the disassembly, at instruction level.
    {"Debug.StepOver", {Either(JT_STEP_OVER, JT_STEP_INST), NONE}},
    {"Debug.StepInto", {Either(JT_STEP_INTO, JT_STEP_INST), NONE}},
    {"Debug.StepOut", {Either(JT_STEP_OUT, JT_STEP_INST), NONE}},
    {"Debug.SetNextPC", {Job(JT_WRITE_REG), NONE}},
    {"Debug.SetNextStatement", {Job(JT_WRITE_REG), NONE}},
    {"Debug.RunTo", {Job(JT_RUN_TO), NONE}},
    {"Project.SetDevice", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Project.SetTarvoScript", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Project.SetTarvoLogFile", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Project.SetHostIF", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Project.SetTargetIF", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Project.SetTIFSpeed", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Project.SetJTAGConfig", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Target.SetAccessWidth", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Target.SetEndianess", {Job(JT_SET_CONFIG_PARAM), NONE}},
    {"Project.SetMCT", {OnOff(JT_START_MCT, JT_STOP_MCT), NONE}},
    {"Project.ConfigSWO", {Job(JT_START_SWO_TRACE), NONE}},
    {"Project.SetSWO", {Job(JT_START_SWO_TRACE), NONE}},
    {"Trace.SetPoint", {Job(JT_SET_TPS), NONE}},
    {"Trace.EnablePoint", {Job(JT_SET_TPS), NONE}},
    {"Trace.DisablePoint", {Job(JT_SET_TPS), NONE}},
    {"Trace.ClearPoint", {Job(JT_CLEAR_TPS), NONE}},
    {"Trace.ClearAllPoints", {Job(JT_CLEAR_ALL_TPS), NONE}},
    // A register of the core or of a coprocessor.
    {"Target.SetReg", {Either(JT_WRITE_REG, JT_WRITE_CP_REG), NONE}},
    {"Target.WriteU8", {Job(JT_WRITE_MEM), Job(JT_END_DOWNLOAD)}},
    {"Target.WriteU16", {Job(JT_WRITE_MEM), Job(JT_END_DOWNLOAD)}},
    {"Target.WriteU32", {Job(JT_WRITE_MEM), Job(JT_END_DOWNLOAD)}},
    {"Target.WriteU64", {Job(JT_WRITE_MEM), Job(JT_END_DOWNLOAD)}},
    {"Target.FillMemory", {Job(JT_WRITE_MEM), Job(JT_END_DOWNLOAD)}},
    {"Target.LoadMemory", {Job(JT_WRITE_MEM), Job(JT_END_DOWNLOAD)}},
    {"Exec.Download", {Job(JT_WRITE_MEM), Job(JT_END_DOWNLOAD)}},
    {"Target.SaveMemory", {Job(JT_READ_MEM), NONE}},
    {"Exec.Connect", {JobWithEvents(JT_CONNECT), NONE}},
    {"Exec.Reset", {Job(JT_RESET), HALTED}},
    {"Exec.Command", {Job(JT_EXEC_TARVO_CMD), NONE}},
    // One address or several: a source line may have code at more than one place.
    {"Break.SetOnSrc", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.EnableOnSrc", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.DisableOnSrc", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.Set", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.SetEx", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.Enable", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.Disable", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.ClearOnSrc", {Either(JT_CLEAR_BP, JT_CLEAR_BPS), NONE}},
    {"Break.Clear", {Either(JT_CLEAR_BP, JT_CLEAR_BPS), NONE}},
    {"Break.SetOnSrcEx", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.SetType", {Either(JT_SET_BP, JT_SET_BPS), NONE}},
    {"Break.SetOnData", {Job(JT_SET_WPS), NONE}},
    {"Break.EnableOnData", {Job(JT_SET_WPS), NONE}},
    {"Break.DisableOnData", {Job(JT_SET_WPS), NONE}},
    {"Break.SetOnSymbol", {Job(JT_SET_WPS), NONE}},
    {"Break.EnableOnSymbol", {Job(JT_SET_WPS), NONE}},
    {"Break.DisableOnSymbol", {Job(JT_SET_WPS), NONE}},
    {"Break.ClearOnData", {Job(JT_CLEAR_WPS), NONE}},
    {"Break.ClearOnSymbol", {Job(JT_CLEAR_WPS), NONE}},
    {"Break.ClearAll", {Job(JT_CLEAR_ALL_BPS), NONE}},
    {"Break.ClearAllOnData", {Job(JT_CLEAR_ALL_WPS), NONE}},
};

CDeviceWaits* s_Device = nullptr;

/// The rows by command id, resolved once through the command names.
const COMMAND_WAIT* const* ByCommand() {
    static const COMMAND_WAIT* s_ByCommand[COMMAND_COUNT] = {};
    static bool s_Built = false;
    if (!s_Built) {
        s_Built = true;
        for (const COMMAND_WAIT& W : s_Waits) {
            const I32 Id = Commands::FindCommand(QString::fromLatin1(W.Command));
            if (Id >= 0) {
                s_ByCommand[Id] = &W;
            }
        }
    }
    return s_ByCommand;
}

} // namespace

void SetDeviceWaits(CDeviceWaits* Device) {
    s_Device = Device;
}

CDeviceWaits* GetDeviceWaits() {
    return s_Device;
}

const COMMAND_WAIT* FindWait(U32 CommandId) {
    return CommandId < COMMAND_COUNT ? ByCommand()[CommandId] : nullptr;
}

const COMMAND_WAIT* GetRows(int* Count) {
    *Count = static_cast<int>(sizeof(s_Waits) / sizeof(s_Waits[0]));
    return s_Waits;
}

void WaitAfterCommand(U32 CommandId, const U64* Args, int Count) {
    const COMMAND_WAIT* W = FindWait(CommandId);
    CDeviceWaits* Device = s_Device;
    if (!W || !Device) {
        return;
    }
    for (const WAIT_STEP& Step : W->Steps) {
        switch (Step.Op) {
        case WAIT_NONE:
            break;
        case WAIT_JOB:
            Device->WaitForJobEvent(Step.Job, false);
            break;
        case WAIT_JOB_EVENTS:
            Device->WaitForJobEvent(Step.Job, true);
            break;
        case WAIT_EITHER_JOB:
            Device->WaitForJobEvent(Device->ScheduledKind(Step.Job, Step.Other), false);
            break;
        case WAIT_ON_OFF_JOB:
            // The argument is an int of the script: its low 32 bits.
            Device->WaitForJobEvent(Count > 0 && static_cast<U32>(Args[0]) != 0 ? Step.Job : Step.Other,
                                    false);
            break;
        case WAIT_HALTED:
            Device->WaitForHalted();
            break;
        case WAIT_DEVICE_IDLE:
            Device->WaitForDeviceIdle();
            break;
        }
    }
}

} // namespace TapiWaits
