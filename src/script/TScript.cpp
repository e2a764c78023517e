#include "script/TScript.h"

#include "app/core/Log.h"
#include "app/core/ScriptConstants.h"
#include "script/Interp.h"
#include "script/TApi.h"
#include "script/TScriptInternal.h"
#include "script/TextCodec.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include <memory>
#include <new>
#include <vector>

namespace TScript {
namespace {

/// Longest source excerpt kept with an error.
constexpr int ERROR_SOURCE_MAX = 512;
/// Longest name of a constant that Script.DefineConst keeps.
constexpr int CONST_NAME_MAX = 127;

struct SCRIPT_STATE {
    std::unique_ptr<U8[]> HeapBlock;
    CScriptHeap* Interp = nullptr;
    QByteArray ScriptText;
    U32 ScriptHash = 0;
    TextCodec::TEXT_FORM FileForm; ///< how the script's file stood on disk, for writing it back alike
    QString ScriptPath;
    QString ScriptDir;
    I32 CallLevel = 0;
    U8 ClosingFlag = 0;
    U32 ErrorPending = 0;
    QString LastErrorText;
    I32 LastErrorLine = -1;
    QString LastErrorSource;
    QString LastErrorFunction; ///< the script function in which the error arose; empty for none
    I32 CurrentFunction = -1;
    U32 ErrorsReported = 0; ///< errors the interpreter has reported, to tell a silent failure
};

SCRIPT_STATE& S() {
    static SCRIPT_STATE s_State;
    return s_State;
}

void SetError(const QString& Text, bool Pending) {
    S().LastErrorText = Text;
    S().LastErrorLine = -1;
    S().LastErrorSource.clear();
    S().LastErrorFunction.clear();
    if (Pending) {
        S().ErrorPending = 1;
    }
}

/// The interpreter's error callback: the message, the line and the failing source up to its ";".
void OnScriptError(CScriptHeap* Heap, const char* Message) {
    SCRIPT_STATE& St = S();
    St.LastErrorText = QString::fromUtf8(Message);
    St.LastErrorLine = Heap->Line;
    const char* From = Heap->LineStart;
    if (From && *From == '\n') {
        ++From;
    }
    int Length = 0;
    while (From && From[Length] && Length < ERROR_SOURCE_MAX) {
        if (From[Length++] == ';') {
            break;
        }
    }
    St.LastErrorSource = From ? QString::fromUtf8(From, Length) : QString();
    St.LastErrorFunction = Heap->Function ? QString::fromUtf8(Heap->Function->Name) : QString();
    St.ErrorPending = 1;
    ++St.ErrorsReported;
}

/// A script that runs long keeps the window alive, so that the user can stop it.
void OnScriptYield(CScriptHeap*) {
    if (QCoreApplication::instance()) {
        QCoreApplication::processEvents();
    }
}

void ReleaseBlock() {
    S().Interp = nullptr;
    S().HeapBlock.reset();
}

QString DirOf(const QString& Path) {
    return Path.isEmpty() ? QString() : QFileInfo(Path).absolutePath();
}

} // namespace

void Init() {
    static bool s_Done = false;
    if (!s_Done) {
        s_Done = true;
        TAPI::InstallBindings();
    }
}

int Parse(const QString& Text) {
    Init();
    SCRIPT_STATE& St = S();
    if (St.HeapBlock) {
        const QString Path = St.ScriptPath;
        qDebug("Script waiting to close.");
        RequestStop();
        // A running call sits below this one on the GUI thread's stack and cannot return before it: its
        // block stays, and the load is refused instead of freeing memory in use.
        if (St.CallLevel != 0) {
            SetError(QStringLiteral("script is closing"), false);
            return -1;
        }
        Close();
        qDebug("Script closed.");
        St.ScriptPath = Path;
        St.ScriptDir = DirOf(Path);
    }
    St.ErrorPending = 0;
    St.CurrentFunction = -1;
    St.FileForm = TextCodec::TEXT_FORM();
    SetError(QString(), false);

    if (Text.isEmpty()) {
        SetError(QStringLiteral("empty file"), true);
        LogDebugMsg(QStringLiteral("Script file not parsed. Empty script text"));
        return -1;
    }
    St.HeapBlock.reset(new (std::nothrow) U8[SCRIPT_HEAP_SIZE]);
    St.ScriptText = Text.toUtf8();
    St.ScriptHash = HashText(St.ScriptText);
    St.Interp = ScriptInterp::CreateInterpreter(St.HeapBlock.get(), St.ScriptText.constData());
    if (!St.Interp) {
        LogWarnMsg(QStringLiteral("Script file not parsed. could not allocate script heap"));
        ReleaseBlock();
        St.ScriptText.clear();
        St.ErrorPending = 1;
        return -1;
    }
    St.Interp->ErrorCallback = OnScriptError;
    St.Interp->YieldCallback = OnScriptYield;
    Detail::RegisterConstants(St.Interp);
    Detail::RegisterApi(St.Interp);
    if (ScriptInterp::ParseGlobals(St.Interp) == 0) {
        St.ClosingFlag = 0;
        St.ErrorPending = 0;
        return 0;
    }
    LogWarnMsg(QStringLiteral("Script file not parsed. could not create globals"));
    ReleaseBlock();
    St.ScriptText.clear();
    St.ErrorPending = 1;
    return -1;
}

int Load(const QString& Path) {
    SCRIPT_STATE& St = S();
    St.ScriptPath = Path;
    St.ScriptDir = DirOf(Path);
    QString Text;
    TextCodec::TEXT_FORM Form;
    QByteArray Raw;
    if (!TextCodec::ReadFile(Path, Text, &Form, &Raw)) {
        SetError(QStringLiteral("file not found"), true);
        return -1;
    }
    const int Result = Parse(Text);
    if (St.CallLevel == 0) {
        // The hash of the bytes on disk, so that a change from outside shows whatever the encoding.
        St.FileForm = Form;
        St.ScriptHash = HashText(Raw);
    }
    return Result;
}

int LoadProject(const QString& Path) {
    SCRIPT_STATE& St = S();
    St.ClosingFlag = 0;
    St.ScriptPath = Path;
    St.ScriptDir = DirOf(Path);
    if (!QFileInfo(Path).isFile()) {
        SetError(QStringLiteral("file not found"), true);
        LogWarnMsg(QStringLiteral("TScript::Load: could not load project file"));
        return -1;
    }
    if (Load(Path) < 0) {
        return -1;
    }
    if (!HasUserFunction(UF_ON_PROJECT_LOAD)) {
        SetError(QStringLiteral("Required user function missing: ") +
                     GetUserFunctionPrototype(UF_ON_PROJECT_LOAD),
                 true);
        return -1;
    }
    return 0;
}

bool ReloadIfChanged() {
    const QString Path = S().ScriptPath;
    QFile File(Path);
    if (Path.isEmpty() || !File.open(QIODevice::ReadOnly)) {
        return false;
    }
    const U32 Hash = HashText(File.readAll());
    File.close();
    if (Hash == S().ScriptHash) {
        return false;
    }
    LoadProject(Path);
    return true;
}

int Close() {
    SCRIPT_STATE& St = S();
    if (St.CallLevel != 0) {
        RequestStop();
        return -1;
    }
    ReleaseBlock();
    St.ScriptText.clear();
    St.ScriptHash = 0;
    St.FileForm = TextCodec::TEXT_FORM();
    St.ScriptPath.clear();
    St.ScriptDir.clear();
    St.ClosingFlag = 0;
    St.ErrorPending = 0;
    St.CurrentFunction = -1;
    SetError(QString(), false);
    return 0;
}

int ExecFunction(const QString& Name, I32 Id, int Argc, const U64* Args, U64* Result) {
    SCRIPT_STATE& St = S();
    if (!St.Interp) {
        SetError(QStringLiteral("Script interpreter not allocated"), false);
        return -1;
    }
    if (St.ClosingFlag) {
        SetError(QStringLiteral("script is closing"), false);
        return 0;
    }
    if (St.ErrorPending) {
        SetError(QStringLiteral("syntax error"), false);
        return -4;
    }
    if (Name.isEmpty()) {
        SetError(QStringLiteral("empty function name"), false);
        return -2;
    }
    if (St.CallLevel >= SCRIPT_MAX_CALL_LEVEL) {
        SetError(QStringLiteral("maximum call level reached."), false);
        return -5;
    }
    if (Argc >= 8) {
        SetError(QStringLiteral("maximum amount of parameters (7) exceeded"), false);
        return -6;
    }
    const QByteArray Utf8 = Name.toUtf8();
    if (!ScriptInterp::FindScriptFunction(St.Interp, Utf8.constData())) {
        SetError(QStringLiteral("unknown function"), false);
        return -2;
    }
    CScriptHeap* const Heap = St.Interp;
    // What an exception would leave unrestored on its way out of the interpreter.
    const CScriptHeap Before = *Heap;
    const I32 Outer = St.CurrentFunction;
    const U32 ReportedBefore = St.ErrorsReported;
    ++St.CallLevel;
    St.CurrentFunction = Id;
    int R = -1;
    bool Caught = false;
    try {
        if (Args) {
            R = ScriptInterp::CallFunctionEx(Heap, Utf8.constData(), Argc, Args, Result);
            St.ErrorPending = 0;
        } else {
            R = ScriptInterp::CallFunction(Heap, Utf8.constData());
        }
    } catch (...) {
        Caught = true;
        Heap->Cursor = Before.Cursor;
        Heap->LineStart = Before.LineStart;
        Heap->Line = Before.Line;
        Heap->High = Before.High;
        Heap->LocalsHead = Before.LocalsHead;
        Heap->LocalsTail = Before.LocalsTail;
        Heap->Function = Before.Function;
        const QString Proto = Id >= 1 && Id <= USER_FUNCTION_COUNT ? GetUserFunctionPrototype(Id) : Name;
        SetError(QStringLiteral("Error in script function ") + Proto, true);
        R = -1;
    }
    // The interpreter ends a run without a message only when a node finds no room in the block.
    if (R == -1 && !Caught && St.ErrorsReported == ReportedBefore) {
        SetError(QStringLiteral("out of memory."), !Args);
    }
    // A nested call gives the running function back to the outer one.
    St.CurrentFunction = Outer;
    --St.CallLevel;
    return R;
}

int ExecUserFunction(int Id) {
    if (Id < 1 || Id > USER_FUNCTION_COUNT) {
        SetError(QStringLiteral("unknown function"), false);
        return -2;
    }
    const QString Name = GetUserFunctionName(Id);
    if (Name.isEmpty()) {
        SetError(QStringLiteral("invalid function prototype"), false);
        return -3;
    }
    return ExecFunction(Name, Id, 0, nullptr, nullptr);
}

bool HasUserFunction(int Id) {
    const QString Name = GetUserFunctionName(Id);
    return !Name.isEmpty() && ScriptInterp::FindScriptFunction(S().Interp, Name.toUtf8().constData());
}

QString GetLastError() {
    QString Text = S().LastErrorText.simplified();
    Text.remove(QLatin1Char('.'));
    if (S().LastErrorLine >= 0) {
        Text += QStringLiteral(" at line ") + QString::number(S().LastErrorLine);
    }
    return Text;
}

bool HasError() {
    return S().ErrorPending != 0;
}

void ClearError() {
    S().ErrorPending = 0;
    ScriptInterp::ClearError(S().Interp);
}

int SetText(const QString& Path, const QString& Text, const TextCodec::TEXT_FORM* Form) {
    TextCodec::TEXT_FORM Used = Form ? *Form : S().FileForm;
    const QByteArray Bytes =
        TextCodec::Encode(Text.isEmpty() ? QString::fromUtf8(S().ScriptText) : Text, Used);
    // Written beside the file and renamed over it at the end, so that a full disk or a crash never
    // leaves half a project behind.
    QSaveFile File(Path);
    if (Path.isEmpty() || !File.open(QIODevice::WriteOnly) || File.write(Bytes) != Bytes.size() ||
        !File.commit()) {
        return -1;
    }
    S().ScriptHash = HashText(Bytes);
    S().FileForm = Used;
    S().ScriptPath = Path;
    S().ScriptDir = DirOf(Path);
    return 0;
}

void SetScriptPath(const QString& Path) {
    S().ScriptPath = Path;
    S().ScriptDir = DirOf(Path);
}

int ExecByName(const QString& Name, const QStringList& Params, I64& Result, QString& ErrorText) {
    std::vector<U64> Values(static_cast<size_t>(Params.size()) + 1, 0);
    for (int i = 0; i < Params.size(); ++i) {
        I64 V = 0;
        if (!ScriptConstants::ParseNumber(Params[i], V)) {
            ErrorText = QStringLiteral("not a number");
            return -1;
        }
        Values[static_cast<size_t>(i)] = static_cast<U64>(V);
    }
    U64 Value = 0;
    const int R = ExecFunction(Name, static_cast<I32>(HashText(Name)), static_cast<int>(Params.size()),
                               Values.data(), &Value);
    if (R < 0 || (R == 0 && S().ClosingFlag)) {
        ErrorText = GetLastError();
        return R < 0 ? R : -1;
    }
    Result = static_cast<I64>(Value);
    return 0;
}

int DefineConst(const QString& Name, const QString& Expression, I64& Value, QString& ErrorText) {
    const QString Cut = Name.trimmed().left(CONST_NAME_MAX);
    static const QRegularExpression NamePattern(QStringLiteral("^[A-Za-z_][A-Za-z0-9_.]*$"));
    if (!NamePattern.match(Cut).hasMatch()) {
        ErrorText = QStringLiteral("invalid parameter");
        return -1;
    }
    if (!ScriptConstants::ParseNumber(Expression, Value)) {
        SCRIPT_STATE& St = S();
        if (!St.Interp) {
            ErrorText = QStringLiteral("invalid parameter");
            return -1;
        }
        // The block must outlive the evaluation, which may run natives: count it as a call.
        ++St.CallLevel;
        U64 Result = 0;
        const int R = ScriptInterp::EvaluateText(St.Interp, Expression.toUtf8().constData(), &Result);
        --St.CallLevel;
        if (R < 0) {
            ErrorText = QString::fromUtf8(St.Interp->ErrorText);
            return -1;
        }
        Value = static_cast<I64>(Result);
    }
    ScriptConstants::Add(Value, Cut, Cut);
    if (S().Interp) {
        ScriptInterp::RegisterConstant(S().Interp, Cut.toUtf8().constData(), static_cast<I32>(Value));
    }
    return 0;
}

bool StopScript() {
    if (!S().Interp || S().CallLevel == 0) {
        return false;
    }
    S().Interp->AbortFlag = 1;
    return true;
}

void RequestStop() {
    S().ClosingFlag = 1;
    if (S().Interp) {
        S().Interp->StopFlag = 1;
    }
}

CScriptHeap* GetInterpreter() {
    return S().Interp;
}
const U8* GetHeapBlock() {
    return S().HeapBlock.get();
}
const QByteArray& GetScriptText() {
    return S().ScriptText;
}
U32 GetScriptHash() {
    return S().ScriptHash;
}
TextCodec::TEXT_FORM GetFileForm() {
    return S().FileForm;
}
QString GetScriptPath() {
    return S().ScriptPath;
}
QString GetScriptDir() {
    return S().ScriptDir;
}
int GetCallLevel() {
    return S().CallLevel;
}
bool IsClosing() {
    return S().ClosingFlag != 0;
}
I32 GetCurrentFunction() {
    return S().CurrentFunction;
}
QString GetLastErrorText() {
    return S().LastErrorText;
}
I32 GetLastErrorLine() {
    return S().LastErrorLine;
}
QString GetLastErrorSource() {
    return S().LastErrorSource;
}
QString GetLastErrorFunction() {
    return S().LastErrorFunction;
}

U32 HashText(const QByteArray& Bytes) {
    U32 H = 0;
    for (const char C : Bytes) {
        H = (H << 4) + static_cast<U8>(C);
        H ^= (H & 0xF0000000u) >> 23;
        H &= 0x0FFFFFFFu;
    }
    return H;
}

U32 HashText(const QString& Text) {
    U32 H = 0;
    for (const QChar C : Text) {
        H = (H << 4) + C.unicode();
        H ^= (H & 0xF0000000u) >> 23;
        H &= 0x0FFFFFFFu;
    }
    return H;
}

} // namespace TScript
