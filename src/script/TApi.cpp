#include "script/TApi.h"

#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "script/Interp.h"
#include "script/TApiWaits.h"
#include "script/TScript.h"

#include <array>
#include <cstring>
#include <type_traits>
#include <utility>

// The command table's bindings are registered as the interpreter's natives as they are.
static_assert(std::is_same_v<COMMAND_FUNC, SCRIPT_NATIVE>);

namespace TAPI {
namespace {

/// One native per row, so that a binding knows its command without a second table.
template <U32 Id>
I32 Entry(const U64* Args, int Count) {
    return CallCommand(Id, Args, Count);
}

template <size_t... Ids>
constexpr std::array<COMMAND_FUNC, sizeof...(Ids)> MakeEntries(std::index_sequence<Ids...>) {
    return {&Entry<static_cast<U32>(Ids)>...};
}

constexpr std::array<COMMAND_FUNC, COMMAND_COUNT> s_Entries =
    MakeEntries(std::make_index_sequence<COMMAND_COUNT>());

/// The characters a checked string argument points at, up to its zero or the end of the block.
QString ReadString(U64 Pointer) {
    const U8* Block = TScript::GetHeapBlock();
    const auto* Start = reinterpret_cast<const char*>(static_cast<uintptr_t>(Pointer));
    const size_t Room = static_cast<size_t>(Block + SCRIPT_HEAP_SIZE - reinterpret_cast<const U8*>(Start));
    return QString::fromUtf8(Start, static_cast<qsizetype>(strnlen(Start, Room)));
}

/// Edit.SysVar (VAR_BREAK_AT_THIS_SYMBOL, "main"): the value of a text variable is a string of the script,
/// although the parameter is a number.
bool IsTextOfTextVariable(U32 Id, const U64* Args, int Count) {
    if (Count < 2 || Commands::GetCommandName(Id) != QLatin1String("Edit.SysVar")) {
        return false;
    }
    const SYSVAR_INFO* Row = SysVars::GetVarRow(static_cast<I32>(static_cast<U32>(Args[0])));
    const U8* Block = TScript::GetHeapBlock();
    const auto Address = static_cast<uintptr_t>(Args[1]);
    return Row && Row->Type == &SYSVAR_TYPE_STRING && Block &&
           Address >= reinterpret_cast<uintptr_t>(Block) &&
           Address < reinterpret_cast<uintptr_t>(Block) + SCRIPT_HEAP_SIZE;
}

} // namespace

void InstallBindings() {
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        if (Commands::IsCommandScriptable(Id)) {
            Commands::SetCommandFunc(Id, s_Entries[Id]);
        }
    }
}

COMMAND_FUNC GetEntry(U32 Id) {
    return Id < COMMAND_COUNT && Commands::IsCommandScriptable(Id) ? s_Entries[Id] : nullptr;
}

QByteArray WrapperName(U32 Id) {
    return "TAPI::" + Commands::GetCommandName(Id).remove(QLatin1Char('.')).toLatin1() + "Gen";
}

int ParamBits(U32 Id, int Index) {
    const QString Proto = Commands::GetCommandInfo(Id).Prototype;
    const int Open = Proto.indexOf(QLatin1Char('('));
    const int Close = Proto.lastIndexOf(QLatin1Char(')'));
    const QStringList Params = Proto.mid(Open + 1, Close - Open - 1).split(QLatin1Char(','));
    const QString Type = Index >= 0 && Index < Params.size() ? Params[Index] : QString();
    if (Type.contains(QLatin1String("__int64"))) {
        return 64;
    }
    return Type.contains(QLatin1String("char")) ? 8 : 32;
}

QString FormatNumberArg(U64 Value, int Bits) {
    const U64 Cut = Bits >= 64 ? Value : Value & ((U64(1) << Bits) - 1);
    return QStringLiteral("0x") + QString::number(Cut, 16).toUpper();
}

bool CheckStringArg(U64 Pointer, const char* WrapperName) {
    const U8* Block = TScript::GetHeapBlock();
    const auto Address = static_cast<uintptr_t>(Pointer);
    if (Block && Address >= reinterpret_cast<uintptr_t>(Block) &&
        Address < reinterpret_cast<uintptr_t>(Block) + SCRIPT_HEAP_SIZE) {
        return true;
    }
    QString Name = QString::fromLatin1(WrapperName);
    if (Name.startsWith(QLatin1String("TAPI::"))) {
        Name.remove(0, 6);
    }
    if (Name.endsWith(QLatin1String("Gen"))) {
        Name.chop(3);
    }
    LogErrorMsg(QStringLiteral("Invalid command argument in command \"") + Name + QStringLiteral("\": 0x") +
                QString::number(Pointer, 16).toUpper() + QStringLiteral(" (") +
                QString::number(static_cast<I64>(Pointer)) + QLatin1Char(')'));
    return false;
}

I32 CallCommand(U32 Id, const U64* Args, int Count) {
    const int Params = std::min({Count, Commands::GetCommandParamCount(Id), SCRIPT_MAX_NATIVE_ARGS});
    // Strings are checked first, so that a bad call runs nothing.
    for (int i = 0; i < Params; ++i) {
        if (Commands::IsStringParam(Id, i) && !CheckStringArg(Args[i], WrapperName(Id).constData())) {
            return -1;
        }
    }
    std::array<QVariant, SCRIPT_MAX_NATIVE_ARGS> V;
    for (int i = 0; i < Params; ++i) {
        V[i] =
            Commands::IsStringParam(Id, i) ? ReadString(Args[i]) : FormatNumberArg(Args[i], ParamBits(Id, i));
    }
    if (IsTextOfTextVariable(Id, Args, Params)) {
        V[1] = ReadString(Args[1]);
    }
    const I64 Result = Commands::ExecCommand(Id, V[0], V[1], V[2], V[3], V[4], V[5], V[6], V[7]);
    if (Result < 0) {
        return static_cast<I32>(Result);
    }
    TapiWaits::WaitAfterCommand(Id, Args, Params);
    return static_cast<I32>(static_cast<U32>(Result));
}

} // namespace TAPI
