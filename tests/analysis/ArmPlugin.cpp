#include "ArmPlugin.h"

#include <cstring>

namespace ArmPlugin {

CORE_PLUGIN_CONFIG Config(U32 Core, bool DataBigEndian) {
    CORE_PLUGIN_CONFIG C;
    memset(&C, 0, sizeof C);
    C.Core = Core;
    C.DataEndian = DataBigEndian ? 1 : 0;
    return C;
}

int Load(U32 Core, bool DataBigEndian) {
    return CorePluginLoader::Load(Config(Core, DataBigEndian), false);
}

const CORE_PLUGIN_API& Api() {
    return CorePluginLoader::GetApi();
}

void SetCode(U64 Addr, std::initializer_list<U16> Halfwords) {
    QByteArray Bytes;
    for (U16 H : Halfwords) {
        Bytes.append(static_cast<char>(H & 0xFF));
        Bytes.append(static_cast<char>(H >> 8));
    }
    CoreDebugger::SetProgramImage({{Addr, Bytes}});
}

INST_INFO Analyze(U64 Addr, int* pResult) {
    INST_INFO Info;
    memset(&Info, 0xA5, sizeof Info);
    const int Result = Api().AnalyzeInst ? Api().AnalyzeInst(Addr, &Info, 2) : -100;
    if (pResult) {
        *pResult = Result;
    }
    return Info;
}

QString Print(U64 Addr) {
    const INST_INFO Info = Analyze(Addr);
    char Text[256];
    if (Api().PrintInst == nullptr || Api().PrintInst(Addr, Info.Size, Text, sizeof Text) < 1) {
        return QString();
    }
    return QString::fromUtf8(Text);
}

} // namespace ArmPlugin
