#include "app/core/CommandTable.h"

#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/ScriptConstants.h"

#include <QAction>
#include <QHash>
#include <QKeySequence>
#include <QMap>
#include <QRegularExpression>

namespace Commands {
namespace {

const char* const ENABLED_PROPERTY = "arnexCommandEnabled";
// Stands for a separator inside double quotes while a Console line is split; a private-use
// character, so that no character a user types is changed by the split.
const QChar QUOTED_SEPARATOR(0xE000);

const struct {
    const char* Name;
    const char* Second;
} s_Aliases[] = {
    {"Trace", "Trace.Add"},
    {"Watch", "Watch.Add"},
    {"Window.SetNumberBase", "Window.SetDisplayFormat"},
    {"Break.Edit", "Edit.Break"},
    {"Project.SetPeripheralFile", "Project.AddSvdFile"},
    {"Project.SetRootPath", "Project.AddRootPath"},
    {"Debug.SetNextStmnt", "Debug.SetNextStatement"},
    {"Debug.ReadIntoTraceCache", "Debug.ReadIntoInstCache"},
    {"Project.SetTIFScanChain", "Project.SetJTAGConfig"},
    {"Edit.TarvoSettings", "Tools.TarvoSettings"},
    {"Edit.Preferences", "Tools.Preferences"},
    {"Edit.TraceSettings", "Tools.TraceSettings"},
    {"Edit.SysVars", "Tools.SysVars"},
    {"Edit.Find", "Find.Text"},
    {"View.InstrTrace", "View.InstTrace"},
    {"Help.Manual", "Help.UserGuide"},
};

const struct {
    const char* Hotkey;
    const char* Alternative;
} s_AltHotkeys[] = {{"Ctrl++", "Ctrl+="}, {"Alt++", "Alt+="}, {"+", "="}, {"Ctrl+F5", "F6"}};

/// Run-time state beside the compiled rows.
struct Runtime {
    QString Names[COMMAND_COUNT];
    QString Aliases[COMMAND_COUNT];
    QStringList ParamTypes[COMMAND_COUNT];
    QAction* Actions[COMMAND_COUNT] = {};
    COMMAND_FUNC Funcs[COMMAND_COUNT] = {};
    QHash<const QAction*, U32> ActionToId;
    QHash<U32, I64> CommandResults;
    QStringList UnlinkedActions;
    bool (*SrcLocFormatter)(const QString&, QString&) = nullptr;

    Runtime() {
        for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
            const QString Proto = QString::fromLatin1(g_CommandRows[Id].Prototype);
            const int Open = Proto.indexOf(QLatin1Char('('));
            if (Open < 0) {
                continue;
            }
            const QStringList Words = Proto.left(Open).trimmed().split(QLatin1Char(' '), Qt::SkipEmptyParts);
            Names[Id] = Words.isEmpty() ? QString() : Words.last();
            const int Close = Proto.lastIndexOf(QLatin1Char(')'));
            const QString Params = Close > Open ? Proto.mid(Open + 1, Close - Open - 1).trimmed() : QString();
            if (!Params.isEmpty() && Params.compare(QLatin1String("void"), Qt::CaseInsensitive) != 0) {
                for (const QString& P : Params.split(QLatin1Char(','))) {
                    ParamTypes[Id].append(P.trimmed());
                }
            }
            for (const auto& A : s_Aliases) {
                if (Names[Id] == QLatin1String(A.Name)) {
                    Aliases[Id] = QString::fromLatin1(A.Second);
                } else if (Names[Id] == QLatin1String(A.Second)) {
                    Aliases[Id] = QString::fromLatin1(A.Name);
                }
            }
        }
    }
};

Runtime& RT() {
    static Runtime s_Runtime;
    return s_Runtime;
}

bool ValidId(U32 Id) {
    return Id < COMMAND_COUNT;
}

/// Drops one pair of surrounding double quotes.
QString Unquote(const QString& Text) {
    if (Text.size() >= 2 && Text.startsWith(QLatin1Char('"')) && Text.endsWith(QLatin1Char('"'))) {
        return Text.mid(1, Text.size() - 2);
    }
    return Text;
}

/// Splits at Separator, except inside double quotes; empty items dropped, the rest trimmed and unquoted.
QStringList SplitArgs(const QString& Text, QChar Separator) {
    QString Marked = Text;
    bool InQuotes = false;
    for (QChar& C : Marked) {
        if (C == QLatin1Char('"')) {
            InQuotes = !InQuotes;
        } else if (InQuotes && C == Separator) {
            C = QUOTED_SEPARATOR;
        }
    }
    QStringList Items;
    for (QString Item : Marked.split(Separator, Qt::SkipEmptyParts)) {
        Item = Item.trimmed();
        if (Item.isEmpty()) {
            continue;
        }
        Item = Unquote(Item);
        Item.replace(QUOTED_SEPARATOR, Separator);
        Items.append(Item);
    }
    return Items;
}

/// The command name of a Console line, as typed.
QString NameOfLine(const QString& Text) {
    const int Open = Text.indexOf(QLatin1Char('('));
    if (Open < 0) {
        const QStringList Words =
            Text.trimmed().split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
        return Words.isEmpty() ? QString() : Words.first();
    }
    const QStringList Words =
        Text.left(Open).trimmed().split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
    return Words.isEmpty() ? QString() : Words.last();
}

QString PadTo(const QString& Text, int Width) {
    // A text as wide as its column still gets one blank before the next.
    return Text.size() < Width ? Text.leftJustified(Width, QLatin1Char(' ')) : Text + QLatin1Char(' ');
}

} // namespace

COMMAND_INFO GetCommandInfo(U32 Id) {
    COMMAND_INFO Info;
    if (!ValidId(Id)) {
        return Info;
    }
    const COMMAND_ROW_DEF& Def = g_CommandRows[Id];
    Info.Id = Def.Id;
    Info.Flags = Def.Flags;
    Info.Func = RT().Funcs[Id];
    Info.Hotkey = QString::fromLatin1(Def.Hotkey);
    Info.Prototype = QString::fromLatin1(Def.Prototype);
    Info.ArgHelp = QString::fromLatin1(Def.ArgHelp);
    Info.StatusTip = QString::fromLatin1(Def.StatusTip);
    Info.ToolTip = QString::fromLatin1(Def.ToolTip);
    Info.ActionName = QString::fromLatin1(Def.ActionName);
    Info.Action = RT().Actions[Id];
    Info.SysVar = Def.SysVar;
    return Info;
}

I32 FindCommand(const QString& Name) {
    if (Name.isEmpty()) {
        return -1;
    }
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        if (RT().Names[Id] == Name) {
            return static_cast<I32>(Id);
        }
    }
    // Scripts know the second names too, so a project may use them.
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        if (RT().Aliases[Id] == Name) {
            return static_cast<I32>(Id);
        }
    }
    return -1;
}

QString GetCommandName(U32 Id) {
    return ValidId(Id) ? RT().Names[Id] : QString();
}
QString GetCommandAlias(U32 Id) {
    return ValidId(Id) ? RT().Aliases[Id] : QString();
}
QAction* GetCommandAction(U32 Id) {
    return ValidId(Id) ? RT().Actions[Id] : nullptr;
}

I32 GetCommandIdOfAction(const QAction* Action) {
    auto It = RT().ActionToId.constFind(Action);
    return It == RT().ActionToId.constEnd() ? -1 : static_cast<I32>(It.value());
}

int GetCommandParamCount(U32 Id) {
    return ValidId(Id) ? RT().ParamTypes[Id].size() : 0;
}

bool IsStringParam(U32 Id, int Index) {
    if (!ValidId(Id) || Index < 0 || Index >= RT().ParamTypes[Id].size()) {
        return false;
    }
    const QString& Type = RT().ParamTypes[Id][Index];
    return Type.contains(QLatin1String("char")) && Type.contains(QLatin1Char('*'));
}

void SetCommandArgs(U32 Id, const QStringList& Args) {
    if (QAction* A = GetCommandAction(Id)) {
        A->setData(Args.isEmpty() ? QVariant() : QVariant(Args));
    }
}

QStringList GetCommandRawArgs(U32 Id) {
    QAction* A = GetCommandAction(Id);
    if (!A || A->data().typeId() != QMetaType::QStringList) {
        return QStringList();
    }
    return A->data().toStringList();
}

QStringList GetCommandArgs(U32 Id) {
    QStringList Args = GetCommandRawArgs(Id);
    if (ValidId(Id) && (g_CommandRows[Id].Flags & CF_RAW_ARGS)) {
        return Args;
    }
    for (QString& Arg : Args) {
        Arg.remove(QLatin1Char('"'));
    }
    return Args;
}

void SetDisplayArgs(U32 Id, const QStringList& Args) {
    if (!ValidId(Id)) {
        return;
    }
    const bool Raw = g_CommandRows[Id].Flags & CF_RAW_ARGS;
    QStringList Clean;
    for (const QString& Arg : Args) {
        Clean.append(Raw ? Arg : Unquote(QString(Arg).remove(QChar(0x2008))));
    }
    SetCommandArgs(Id, Clean);
}

bool CheckCommandArgCount(U32 Id, int Min) {
    const int Max = GetCommandParamCount(Id);
    const int Lower = Min < 0 ? Max : Min;
    const int Count = GetCommandRawArgs(Id).size();
    if (Count >= Lower && Count <= Max) {
        return true;
    }
    SetCommandError(Id, QStringLiteral("wrong parameter count"));
    return false;
}

void SetCommandError(U32 Id, const QString& Message, const QString& Detail) {
    QAction* A = GetCommandAction(Id);
    if (!A) {
        return;
    }
    if (GetCommandParamCount(Id) > 1 && !Detail.isEmpty()) {
        A->setWhatsThis(Message + QStringLiteral(": ") + Detail);
    } else {
        A->setWhatsThis(Message);
    }
}

QString GetCommandError(U32 Id) {
    QAction* A = GetCommandAction(Id);
    return A ? A->whatsThis() : QString();
}

void ClearCommandState(U32 Id) {
    if (QAction* A = GetCommandAction(Id)) {
        A->setData(QVariant());
        A->setWhatsThis(QString());
    }
}

void SetCommandDone(U32 Id) {
    if (QAction* A = GetCommandAction(Id)) {
        A->setData(QVariant(0));
    }
}

bool IsCommandDone(U32 Id) {
    QAction* A = GetCommandAction(Id);
    return A && A->data().typeId() == QMetaType::Int && A->data().toInt() == 0;
}

I64 GetCommandResult(U32 Id) {
    return RT().CommandResults.value(Id, 0);
}
void SetCommandResult(U32 Id, I64 Value) {
    RT().CommandResults.insert(Id, Value);
}

bool IsCommandEnabled(U32 Id) {
    QAction* A = GetCommandAction(Id);
    return A && A->property(ENABLED_PROPERTY).toBool();
}

void SetActionEnabled(QAction* Action, bool Enabled) {
    if (Action) {
        Action->setEnabled(Enabled);
        Action->setProperty(ENABLED_PROPERTY, Enabled);
    }
}

void SetCommandEnabled(U32 Id, bool Enabled) {
    SetActionEnabled(GetCommandAction(Id), Enabled);
}

void SetCommandFunc(U32 Id, COMMAND_FUNC Func) {
    if (ValidId(Id)) {
        RT().Funcs[Id] = Func;
    }
}

bool IsCommandScriptable(U32 Id) {
    return ValidId(Id) && g_CommandRows[Id].Scriptable;
}

int TriggerCommand(U32 Id) {
    if (!ValidId(Id)) {
        return -1;
    }
    if (!IsCommandEnabled(Id)) {
        PrintCommandDisabled(GetCommandName(Id));
        return -1;
    }
    QAction* A = GetCommandAction(Id);
    if (!A) {
        return -1;
    }
    A->trigger();
    return 0;
}

I64 ExecCommand(U32 Id, const QVariant& A1, const QVariant& A2, const QVariant& A3, const QVariant& A4,
                const QVariant& A5, const QVariant& A6, const QVariant& A7, const QVariant& A8) {
    if (!ValidId(Id)) {
        return -1;
    }
    QStringList Args;
    for (const QVariant* V : {&A1, &A2, &A3, &A4, &A5, &A6, &A7, &A8}) {
        if (V->isValid()) {
            Args.append(V->toString());
        }
    }
    // No arguments clears what an earlier run may have left, so the slot sees the call it was given.
    SetCommandArgs(Id, Args);
    if (TriggerCommand(Id) < 0) {
        return -1;
    }
    return GetCommandResult(Id);
}

QList<I64> ExecCommands(const QList<U32>& Ids) {
    QList<I64> Results;
    for (U32 Id : Ids) {
        if (IsCommandEnabled(Id)) {
            Results.append(ExecCommand(Id));
        }
    }
    return Results;
}

QString FormatCommandText(U32 Id) {
    return FormatCommandText(Id, GetCommandRawArgs(Id));
}

QString FormatCommandText(U32 Id, const QStringList& Raw) {
    const QString Name = GetCommandName(Id);
    if (Name.isEmpty()) {
        return QString();
    }
    QStringList Args;
    for (int i = 0; i < Raw.size(); ++i) {
        QString Arg = Raw[i];
        if (IsStringParam(Id, i)) {
            QString Canonical;
            if (Arg.contains(QLatin1Char(':')) && Arg.contains(QLatin1Char('.')) && RT().SrcLocFormatter &&
                RT().SrcLocFormatter(Arg, Canonical)) {
                Arg = Canonical;
            }
            Arg = QLatin1Char('"') + Unquote(Arg) + QLatin1Char('"');
        } else if (const SCRIPT_CONST* C = ScriptConstants::Lookup(Arg)) {
            Arg = C->Name;
        } else {
            I64 Value = 0;
            if (!Numbers::ParseInteger(Arg, Value)) {
                const I64 Hz = Numbers::ParseFrequency(Arg);
                if (Hz >= 0) {
                    Arg = QString::number(Hz);
                }
            }
        }
        Args.append(Arg);
    }
    if (Args.isEmpty()) {
        return Name + QStringLiteral("();");
    }
    return Name + QStringLiteral(" (") + Args.join(QStringLiteral(", ")) + QStringLiteral(");");
}

PARSED_COMMAND ParseCommandLine(const QString& Text) {
    PARSED_COMMAND Result;
    Result.Name = NameOfLine(Text);

    const int Open = Text.indexOf(QLatin1Char('('));
    if (Open >= 0) {
        const int Close = Text.lastIndexOf(QLatin1Char(')'));
        if (Close > Open) {
            Result.Args = SplitArgs(Text.mid(Open + 1, Close - Open - 1), QLatin1Char(','));
        }
    } else {
        const QString Trimmed = Text.trimmed();
        const int Blank = Trimmed.indexOf(QRegularExpression(QStringLiteral("\\s")));
        if (Blank >= 0) {
            // Tabs separate like blanks.
            QString Rest = Trimmed.mid(Blank + 1).trimmed();
            Rest.replace(QLatin1Char('\t'), QLatin1Char(' '));
            Result.Args = SplitArgs(Rest, QLatin1Char(' '));
        }
    }
    if (Result.Args.size() == 1 &&
        Result.Args.first().compare(QLatin1String("void"), Qt::CaseInsensitive) == 0) {
        Result.Args.clear();
    }
    if (Result.Name.isEmpty()) {
        return Result;
    }

    QMap<int, U32> ByCount;
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        const QString& N = RT().Names[Id];
        if (N.isEmpty()) {
            continue;
        }
        if (N.compare(Result.Name, Qt::CaseInsensitive) == 0 ||
            (!RT().Aliases[Id].isEmpty() &&
             RT().Aliases[Id].compare(Result.Name, Qt::CaseInsensitive) == 0)) {
            ByCount.insert(GetCommandParamCount(Id), Id);
        }
    }
    if (ByCount.isEmpty()) {
        return Result;
    }
    auto It = ByCount.constFind(static_cast<int>(Result.Args.size()));
    const U32 Id = It != ByCount.constEnd() ? It.value() : ByCount.last();
    Result.Found = true;
    Result.Id = static_cast<I32>(Id);
    if (QAction* A = GetCommandAction(Id)) {
        A->setData(Result.Args.isEmpty() ? QVariant() : QVariant(Result.Args));
    }
    return Result;
}

QStringList GetCommandHelp() {
    QMap<QString, QString> Lines;
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        const COMMAND_ROW_DEF& Def = g_CommandRows[Id];
        const QString& Name = RT().Names[Id];
        if (!RT().Actions[Id] || !(Def.Flags & CF_ECHO) || Name.isEmpty()) {
            continue;
        }
        Lines.insert(Name, PadTo(Name, 29) + PadTo(QString::fromLatin1(Def.ArgHelp), 27) +
                               PadTo(QString::fromLatin1(Def.Hotkey).trimmed(), 20) +
                               QString::fromLatin1(Def.StatusTip).trimmed());
    }
    QStringList Help;
    Help.append(PadTo(QStringLiteral("Command"), 29) + PadTo(QStringLiteral("Arguments"), 27) +
                PadTo(QStringLiteral("Hotkey"), 20) + QStringLiteral("Description"));
    Help.append(Lines.values());
    return Help;
}

int ExecuteCommandLine(const QString& Text) {
    if (Text == QLatin1String("?") || Text.toLower() == QLatin1String("help")) {
        ExecCommand(55);
        return 1;
    }
    if (Text.trimmed().isEmpty()) {
        PrintUnknownCommand(Text);
        return 0;
    }
    const PARSED_COMMAND Parsed = ParseCommandLine(Text);
    if (!Parsed.Found) {
        PrintUnknownCommand(Text);
        return 0;
    }
    if (IsCommandEnabled(static_cast<U32>(Parsed.Id))) {
        TriggerCommand(static_cast<U32>(Parsed.Id));
        return 1;
    }
    PrintCommandDisabled(Text);
    return 2;
}

void PrintCommandDisabled(const QString& Text) {
    CountError();
    PrintConsole(NameOfLine(Text) + QStringLiteral(": Command disabled"), COLOR_LOGGING_USER);
}

void PrintUnknownCommand(const QString& Text) {
    CountError();
    QString Line = Text;
    Line.remove(QLatin1Char(';'));
    PrintConsole(Line + QStringLiteral(": unknown command. Type ? or help for a list of available commands."),
                 COLOR_LOGGING_ERROR);
}

void ReportCommandTriggered(QAction* Action) {
    const I32 Id = GetCommandIdOfAction(Action);
    if (Id < 0) {
        return;
    }
    const U32 Flags = g_CommandRows[Id].Flags;
    if (Flags & CF_ECHO_AFTER) {
        return;
    }
    const QString Text = FormatCommandText(static_cast<U32>(Id));
    if (Text.isEmpty()) {
        ClearCommandState(static_cast<U32>(Id));
        return;
    }
    if (Flags & CF_ECHO) {
        PrintConsole(Text, COLOR_LOGGING_USER);
    }
}

void ReportCommandPerformed(QAction* Action) {
    const I32 Signed = GetCommandIdOfAction(Action);
    if (Signed < 0) {
        return;
    }
    const U32 Id = static_cast<U32>(Signed);
    const U32 Flags = g_CommandRows[Id].Flags;
    const QString Text = FormatCommandText(Id);
    if (IsCommandDone(Id) || Text.isEmpty()) {
        ClearCommandState(Id);
        return;
    }
    // A failing command writes one line: its error, not an echo as well.
    const QString Error = GetCommandError(Id);
    if ((Flags & CF_ECHO_AFTER) && (Flags & CF_ECHO) && Error.isEmpty()) {
        PrintConsole(Text, COLOR_LOGGING_USER);
    }
    if (!Error.isEmpty()) {
        CountError();
        PrintConsole(Text + QLatin1Char(' ') + Error, COLOR_LOGGING_ERROR);
    }
    ClearCommandState(Id);
}

void BindActions(QObject* Window) {
    if (!Window) {
        return;
    }
    Runtime& R = RT();
    const QList<QAction*> Actions = Window->findChildren<QAction*>();
    for (QAction* A : Actions) {
        const QString Name = A->objectName();
        if (Name.isEmpty()) {
            continue;
        }
        I32 Found = -1;
        for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
            const char* RowName = g_CommandRows[Id].ActionName;
            if (RowName && *RowName && Name.compare(QLatin1String(RowName), Qt::CaseInsensitive) == 0) {
                Found = static_cast<I32>(Id);
                break;
            }
        }
        if (Found < 0) {
            if (!R.UnlinkedActions.contains(Name)) {
                R.UnlinkedActions.append(Name);
            }
            continue;
        }
        const COMMAND_ROW_DEF& Def = g_CommandRows[Found];
        A->setShortcut(QKeySequence(QString::fromLatin1(Def.Hotkey)));
        A->setStatusTip(QString::fromLatin1(Def.StatusTip));
        QString Tip = QString::fromLatin1(Def.ToolTip);
        if (!A->shortcut().isEmpty()) {
            Tip += QStringLiteral(" (") + A->shortcut().toString(QKeySequence::NativeText) + QLatin1Char(')');
        }
        A->setToolTip(Tip);
        if (QAction* Old = R.Actions[Found]) {
            R.ActionToId.remove(Old);
        }
        R.Actions[Found] = A;
        R.ActionToId.insert(A, static_cast<U32>(Found));
        SetActionEnabled(A, A->isEnabled());
        QObject::connect(A, &QObject::destroyed, [A, Found]() {
            Runtime& Rt = RT();
            if (Rt.Actions[Found] == A) {
                Rt.Actions[Found] = nullptr;
            }
            Rt.ActionToId.remove(A);
        });
    }
}

QStringList GetUnlinkedActions() {
    QStringList Names = RT().UnlinkedActions;
    Names.sort();
    return Names;
}

void UnbindAll() {
    Runtime& R = RT();
    for (QAction*& A : R.Actions) {
        A = nullptr;
    }
    R.ActionToId.clear();
    R.UnlinkedActions.clear();
    R.CommandResults.clear();
}

QString AlternativeHotkeyFor(const QString& Hotkey) {
    for (const auto& H : s_AltHotkeys) {
        if (Hotkey == QLatin1String(H.Hotkey)) {
            return QString::fromLatin1(H.Alternative);
        }
    }
    return QString();
}

QList<U32> FindRowsByAlternativeHotkey(const QString& KeyText) {
    QList<U32> Rows;
    if (KeyText.isEmpty()) {
        return Rows;
    }
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        const QString Alt = AlternativeHotkeyFor(QString::fromLatin1(g_CommandRows[Id].Hotkey));
        if (!Alt.isEmpty() && QKeySequence(Alt) == QKeySequence(KeyText)) {
            Rows.append(Id);
        }
    }
    return Rows;
}

void SetSourceLocationFormatter(bool (*Formatter)(const QString& Text, QString& Canonical)) {
    RT().SrcLocFormatter = Formatter;
}

} // namespace Commands
