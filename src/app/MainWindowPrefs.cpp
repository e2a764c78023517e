// System variables, user preferences, colours and fonts: their commands and who hears of a change.

#include "app/MainWindow.h"

#include "app/PreferencesDialog.h"
#include "app/SysVarsEditor.h"
#include "app/core/Catalogue.h"
#include "app/core/Colors.h"
#include "app/core/CommandTable.h"
#include "app/core/Fonts.h"
#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/ScriptConstants.h"
#include "app/core/SysVars.h"
#include "views/MessageBox.h"

#include <QAction>
#include <QStyle>
#include <QToolButton>

namespace {

/// A row of the variables table by name (exact, then without regard to case) or by number.
const SYSVAR_INFO* FindVar(const QString& Text, I32 First, I32 Last) {
    const QString T = Text.trimmed();
    const SYSVAR_INFO* Row = SysVars::FindVarByName(T);
    if (!Row) {
        for (I32 Id = First; Id <= Last && !Row; ++Id) {
            if (T.compare(QLatin1String(SysVars::GetVarRow(Id)->Name), Qt::CaseInsensitive) == 0) {
                Row = SysVars::GetVarRow(Id);
            }
        }
    }
    if (!Row) {
        I64 Id = -1;
        if (Numbers::ParseInteger(T, Id)) {
            Row = SysVars::GetVarRow(static_cast<I32>(Id));
        }
    }
    const I32 Id = SysVars::GetVarId(Row);
    return Id >= First && Id <= Last ? Row : nullptr;
}

bool ParseBool(const QString& Text, bool& Value) {
    const I64 V = ScriptConstants::ParseConstantOrNumber(Text);
    if (V < 0) {
        return false;
    }
    Value = V != 0;
    return true;
}

/// The mode action of a reset or connection mode, or -1.
int ResetModeAction(I64 Mode) {
    switch (Mode) {
    case 0:
        return CMD_DEBUG_RESET_HALT;
    case 1:
        return CMD_DEBUG_RESET_BREAK_AT_SYMBOL;
    case 2:
        return CMD_DEBUG_RESET_RUN;
    default:
        return -1;
    }
}

int ConnectModeAction(I64 Mode) {
    return Mode >= 0 && Mode <= 2 ? CMD_DEBUG_DOWNLOAD_RESET + static_cast<int>(Mode) : -1;
}

} // namespace

void CMainWindow::OnActionEditSysVarTriggered() {
    // A third argument, false, runs the command without an echo.
    const int Count = Commands::GetCommandRawArgs(CMD_EDIT_SYSVAR).size();
    if (Count < 2 || Count > 3) {
        Commands::SetCommandError(CMD_EDIT_SYSVAR, QStringLiteral("wrong parameter count"));
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_EDIT_SYSVAR);
    const SYSVAR_INFO* Row = FindVar(Args[0], 0, FIRST_PREFERENCE - 1);
    if (!Row) {
        Commands::SetCommandError(CMD_EDIT_SYSVAR, QStringLiteral("unknown system variable"));
        return;
    }
    const I32 Id = SysVars::GetVarId(Row);
    I64 Value = 0;
    if (Row->Type == &SYSVAR_TYPE_STRING) {
        SysVars::SetVarText(Row, Args[1].toUtf8().constData(), 0);
    } else {
        bool Ok = false;
        Value = SysVars::ParseVarValue(Row, Args[1], Ok);
        if (!Ok) {
            Commands::SetCommandError(CMD_EDIT_SYSVAR, QStringLiteral("invalid parameter"));
            return;
        }
        SysVars::SetVarValue(Row, Value, false);
    }
    bool Echo = true;
    if (Args.size() > 2 && ParseBool(Args[2], Echo) && !Echo) {
        emit SysVarEdited(Id, Value);
        Commands::SetCommandDone(CMD_EDIT_SYSVAR);
        return;
    }
    emit SysVarEdited(Id, Value);
    if (Commands::GetCommandError(CMD_EDIT_SYSVAR).isEmpty()) {
        Commands::SetDisplayArgs(CMD_EDIT_SYSVAR, {QLatin1String(Row->Name), SysVars::GetVarText(Row)});
    }
}

void CMainWindow::OnActionEditPreferenceTriggered() {
    // Two optional arguments: whether to tell the windows (default yes), and whether to keep the value in
    // the settings (default no).
    const int Count = Commands::GetCommandRawArgs(CMD_EDIT_PREFERENCE).size();
    if (Count < 2 || Count > 4) {
        Commands::SetCommandError(CMD_EDIT_PREFERENCE, QStringLiteral("wrong parameter count"));
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_EDIT_PREFERENCE);
    const SYSVAR_INFO* Row = FindVar(Args[0], FIRST_PREFERENCE, SYSVAR_COUNT - 1);
    if (!Row) {
        Commands::SetCommandError(CMD_EDIT_PREFERENCE, QStringLiteral("unknown preference"));
        return;
    }
    bool Ok = false;
    const I64 Value = SysVars::ParseVarValue(Row, Args[1], Ok);
    bool Emit = true;
    bool Store = false;
    if (!Ok || (Count > 2 && !ParseBool(Args[2], Emit)) || (Count > 3 && !ParseBool(Args[3], Store))) {
        Commands::SetCommandError(CMD_EDIT_PREFERENCE, QStringLiteral("invalid parameter"));
        return;
    }
    const I32 Id = SysVars::GetVarId(Row);
    SysVars::SetVarValue(Row, Value, Store);
    if (Emit) {
        emit UserPreferenceEdited(Id, SysVars::GetVarValue(Row));
    }
    QStringList Display = {QLatin1String(Row->Name), SysVars::GetVarText(Row)};
    for (int i = 2; i < Count; ++i) {
        Display.append(Args[i]);
    }
    Commands::SetDisplayArgs(CMD_EDIT_PREFERENCE, Display);
}

void CMainWindow::OnActionEditColorTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_EDIT_COLOR)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_EDIT_COLOR);
    const COLOR_INFO* Info = FindColor(Args[0].trimmed().toLatin1().constData());
    I64 Number = -1;
    if (!Info && Numbers::ParseInteger(Args[0], Number)) {
        Info = GetColorInfo(static_cast<I32>(Number));
    }
    if (!Info) {
        Commands::SetCommandError(CMD_EDIT_COLOR, QStringLiteral("unknown color"));
        return;
    }
    QColor Color = QColor::fromString(Args[1].trimmed());
    I64 Argb = 0;
    if (!Color.isValid() && Numbers::ParseInteger(Args[1], Argb) && Argb >= 0 && Argb <= 0xFFFFFFFFLL) {
        Color = QColor::fromRgba(static_cast<QRgb>(Argb));
    }
    if (!Color.isValid()) {
        Commands::SetCommandError(CMD_EDIT_COLOR, QStringLiteral("invalid parameter"));
        return;
    }
    SetColorValue(static_cast<I32>(Info->Id), Color.rgba());
    ApplyColorToDebugWindows(static_cast<int>(Info->Id));
    Commands::SetDisplayArgs(CMD_EDIT_COLOR, {QLatin1String(Info->Name), Color.name().toUpper()});
}

void CMainWindow::OnActionEditFontTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_EDIT_FONT)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_EDIT_FONT);
    const FONT_INFO* Info = Fonts::FindFont(Args[0].trimmed());
    I64 Number = -1;
    if (!Info && Numbers::ParseInteger(Args[0], Number)) {
        Info = Fonts::GetFontInfo(static_cast<I32>(Number));
    }
    if (!Info) {
        Commands::SetCommandError(CMD_EDIT_FONT, QStringLiteral("unknown font"));
        return;
    }
    QFont Font;
    if (Args[1].trimmed().isEmpty() || !Font.fromString(Args[1].trimmed())) {
        Commands::SetCommandError(CMD_EDIT_FONT, QStringLiteral("invalid parameter"));
        return;
    }
    Fonts::SetFont(Info->Id, Font);
    for (CWindow* W : m_DebugWindows) {
        W->SetFont(Info->Id, Font);
    }
    Commands::SetDisplayArgs(CMD_EDIT_FONT, {QLatin1String(Info->Name), Font.toString()});
}

void CMainWindow::OnActionToolsPreferencesTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_TOOLS_PREFERENCES)) {
        return;
    }
    CPreferencesDialog Dialog(this);
    MessageBox::Exec(&Dialog, QDialog::Rejected);
}

void CMainWindow::OnActionToolsSysVarsTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_TOOLS_SYSVARS)) {
        return;
    }
    CSysVarsEditor Editor(this);
    MessageBox::Exec(&Editor, QDialog::Rejected);
}

void CMainWindow::OnActionDebugSetResetModeTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_DEBUG_SET_RESET_MODE)) {
        return;
    }
    const QString Arg = Commands::GetCommandArgs(CMD_DEBUG_SET_RESET_MODE).first();
    bool Ok = false;
    const I64 Mode = SysVars::ParseVarValue(SysVars::GetVarRow(VAR_RESET_MODE), Arg, Ok);
    if (!Ok || ResetModeAction(Mode) < 0) {
        Commands::SetCommandError(CMD_DEBUG_SET_RESET_MODE, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_RESET_MODE), Mode, false);
    emit SysVarEdited(VAR_RESET_MODE, Mode);
}

void CMainWindow::OnActionDebugSetConnectModeTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_DEBUG_SET_CONNECT_MODE)) {
        return;
    }
    const QString Arg = Commands::GetCommandArgs(CMD_DEBUG_SET_CONNECT_MODE).first();
    bool Ok = false;
    const I64 Mode = SysVars::ParseVarValue(SysVars::GetVarRow(VAR_CONNECT_MODE), Arg, Ok);
    if (!Ok || ConnectModeAction(Mode) < 0) {
        Commands::SetCommandError(CMD_DEBUG_SET_CONNECT_MODE, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_CONNECT_MODE), Mode, false);
    emit SysVarEdited(VAR_CONNECT_MODE, Mode);
}

void CMainWindow::ConnectModeActions() {
    // The mode menus relay: they set the mode through its command, so that it is echoed, and then start or
    // reset where that is possible.
    const struct {
        U32 Action;
        U32 Command;
        const char* Constant;
        U32 Then;
    } Modes[] = {
        {CMD_DEBUG_DOWNLOAD_RESET, CMD_DEBUG_SET_CONNECT_MODE, "CM_DOWNLOAD_RESET", CMD_DEBUG_START},
        {CMD_DEBUG_ATTACH, CMD_DEBUG_SET_CONNECT_MODE, "CM_ATTACH", CMD_DEBUG_START},
        {CMD_DEBUG_ATTACH_HALT, CMD_DEBUG_SET_CONNECT_MODE, "CM_ATTACH_HALT", CMD_DEBUG_START},
        {CMD_DEBUG_RESET_BREAK_AT_SYMBOL, CMD_DEBUG_SET_RESET_MODE, "RM_BREAK_AT_SYMBOL", CMD_DEBUG_RESET},
        {CMD_DEBUG_RESET_HALT, CMD_DEBUG_SET_RESET_MODE, "RM_RESET_HALT", CMD_DEBUG_RESET},
        {CMD_DEBUG_RESET_RUN, CMD_DEBUG_SET_RESET_MODE, "RM_RESET_AND_RUN", CMD_DEBUG_RESET},
    };
    const QStyle::StandardPixmap Icons[] = {QStyle::SP_MediaPlay,   QStyle::SP_MediaSeekForward,
                                            QStyle::SP_MediaPause,  QStyle::SP_MediaSkipForward,
                                            QStyle::SP_BrowserStop, QStyle::SP_BrowserReload};
    for (int i = 0; i < 6; ++i) {
        const auto& M = Modes[i];
        QAction* A = Action(M.Action);
        A->setIcon(style()->standardIcon(Icons[i]));
        connect(A, &QAction::triggered, this, [M]() {
            Commands::ExecCommand(M.Command, QString::fromLatin1(M.Constant));
            if (Commands::IsCommandEnabled(M.Then)) {
                Commands::TriggerCommand(M.Then);
            }
        });
        Commands::SetActionEnabled(A, true);
    }
    OnSysVarResetModeChanged(SysVars::GetVarValue(VAR_RESET_MODE));
    OnSysVarConnectModeChanged(SysVars::GetVarValue(VAR_CONNECT_MODE));
}

void CMainWindow::ShowModeOnButton(QToolButton* Button, QAction* ModeAction, QAction* Command) {
    ModeAction->setChecked(true);
    Button->setIcon(ModeAction->icon());
    QString Tip = ModeAction->toolTip();
    if (!Command->shortcut().isEmpty()) {
        Tip +=
            QStringLiteral(" (") + Command->shortcut().toString(QKeySequence::NativeText) + QLatin1Char(')');
    }
    Button->setToolTip(Tip);
    Button->setStatusTip(ModeAction->statusTip());
}

void CMainWindow::OnSysVarResetModeChanged(I64 Value) {
    const int ModeAction = ResetModeAction(Value);
    if (ModeAction < 0) {
        // Not a mode: the variable keeps the mode it had.
        SysVars::SetVarValue(SysVars::GetVarRow(VAR_RESET_MODE), m_ResetMode, false);
        Commands::SetCommandError(CMD_EDIT_SYSVAR, QStringLiteral("invalid parameter"));
        return;
    }
    m_ResetMode = Value;
    ShowModeOnButton(m_ResetButton, Action(static_cast<U32>(ModeAction)), Action(CMD_DEBUG_RESET));
}

void CMainWindow::OnSysVarConnectModeChanged(I64 Value) {
    const int ModeAction = ConnectModeAction(Value);
    if (ModeAction < 0) {
        SysVars::SetVarValue(SysVars::GetVarRow(VAR_CONNECT_MODE), m_ConnectMode, false);
        Commands::SetCommandError(CMD_EDIT_SYSVAR, QStringLiteral("invalid parameter"));
        return;
    }
    m_ConnectMode = Value;
    ShowModeOnButton(m_StartButton, Action(static_cast<U32>(ModeAction)), Action(CMD_DEBUG_START));
}

void CMainWindow::OnSysVarTracePortDelayChanged(int Id, I64 Value) {
    // Delays are set in steps of 50 ps: cut toward zero.
    const I64 Cut = (Value / 50) * 50;
    if (Cut != Value) {
        SysVars::SetVarValue(SysVars::GetVarRow(Id), Cut, false);
    }
}

void CMainWindow::OnSysVarTraceTimestampsChanged(I64 Value) {
    const I64 Format = SysVars::GetVarValue(PREF_TIMESTAMP_FORMAT);
    if (Value == 0 && (Format == 2 || Format == 3)) {
        const SYSVAR_INFO* Row = SysVars::GetVarRow(PREF_TIMESTAMP_FORMAT);
        PrintConsole(CatalogText(78, SysVars::GetVarText(Row, Format).toUtf8().constData(),
                                 SysVars::GetVarText(Row, 1).toUtf8().constData()),
                     COLOR_LOGGING_USER);
        SysVars::SetVarValue(Row, 1, true);
        OnUserPreferenceChanged(PREF_TIMESTAMP_FORMAT, 1);
    }
}

void CMainWindow::OnSysVarChanged(int Id, I64 Value) {
    switch (Id) {
    case VAR_RESET_MODE:
        OnSysVarResetModeChanged(Value);
        break;
    case VAR_CONNECT_MODE:
        OnSysVarConnectModeChanged(Value);
        break;
    case VAR_TRACE_PORT_DELAY_0:
    case VAR_TRACE_PORT_DELAY_1:
    case VAR_TRACE_PORT_DELAY_2:
    case VAR_TRACE_PORT_DELAY_3:
        OnSysVarTracePortDelayChanged(Id, Value);
        break;
    case VAR_TRACE_TIMESTAMPS_ENABLED:
        OnSysVarTraceTimestampsChanged(Value);
        break;
    default:
        // The others are read where they are used.
        break;
    }
}

void CMainWindow::OnPreferenceTimestampFormatChanged(int Id, I64 Value) {
    // Cycle and time stamps need the trace's time stamps while a trace source is active.
    if (SysVars::GetVarValue(VAR_TRACE_SOURCE) == 0 ||
        SysVars::GetVarValue(VAR_TRACE_TIMESTAMPS_ENABLED) != 0 || (Value != 2 && Value != 3)) {
        return;
    }
    const SYSVAR_INFO* Row = SysVars::GetVarRow(Id);
    PrintConsole(CatalogText(77, SysVars::GetVarText(Row, Value).toUtf8().constData(),
                             SysVars::GetVarText(Row, 1).toUtf8().constData()),
                 COLOR_LOGGING_ERROR);
    SysVars::SetVarValue(Row, 1, true);
}

void CMainWindow::OnUserPreferenceChanged(int Id, I64 Value) {
    if (Id == PREF_TIMESTAMP_FORMAT) {
        OnPreferenceTimestampFormatChanged(Id, Value);
        Value = SysVars::GetVarValue(Id);
    }
    for (CWindow* W : m_DebugWindows) {
        W->SetPreference(Id, Value);
        W->Repaint();
    }
}

void CMainWindow::ApplyGUIFontsToDebugWindows() {
    for (int Id = 0; Id < FONT_COUNT; ++Id) {
        const QFont Font = Fonts::GetFont(Id);
        for (CWindow* W : m_DebugWindows) {
            W->SetFont(Id, Font);
        }
    }
}

void CMainWindow::ApplyUserPreferencesToDebugWindows() {
    for (int Id = FIRST_PREFERENCE; Id < SYSVAR_COUNT; ++Id) {
        const I64 Value = SysVars::GetVarValue(Id);
        for (CWindow* W : m_DebugWindows) {
            W->SetPreference(Id, Value);
        }
    }
}

void CMainWindow::ApplyColorToDebugWindows(int Id) {
    const QColor Color = GetColor(Id);
    for (CWindow* W : m_DebugWindows) {
        W->SetColor(Id, Color);
        W->Repaint();
    }
}
