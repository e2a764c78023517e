// The main window's actions, menus and tool bars, built from the command table.

#include "app/MainWindow.h"

#include "app/core/CommandTable.h"
#include "script/TScript.h"
#include "views/DockWindow.h"

#include <QAction>
#include <QActionGroup>
#include <QMenu>
#include <QMenuBar>
#include <QStyle>
#include <QToolBar>
#include <QToolButton>

namespace {

/// Action-only rows that belong to the main window; the other action-only rows belong to the debug
/// windows that own them.
bool IsMainWindowActionRow(U32 Id) {
    return Id == 8 || (Id >= 47 && Id <= 52) || (Id >= 61 && Id <= 81) || Id == 85 || Id == 86 ||
           (Id >= 97 && Id <= 100);
}

constexpr int SEPARATOR = -1;

} // namespace

QAction* CMainWindow::Action(U32 Id) const {
    return m_Actions.value(Id, nullptr);
}

void CMainWindow::CreateActions() {
    const struct {
        U32 Id;
        QStyle::StandardPixmap Icon;
    } Icons[] = {
        {0, QStyle::SP_FileIcon},
        {2, QStyle::SP_DialogOpenButton},
        {10, QStyle::SP_DialogSaveButton},
        {12, QStyle::SP_DriveFDIcon},
        {30, QStyle::SP_MediaPlay},
        {31, QStyle::SP_MediaStop},
        {35, QStyle::SP_MediaPlay},
        {36, QStyle::SP_MediaPause},
        {37, QStyle::SP_BrowserReload},
        {38, QStyle::SP_ArrowDown},
        {39, QStyle::SP_ArrowForward},
        {40, QStyle::SP_ArrowUp},
        {53, QStyle::SP_MessageBoxInformation},
        {54, QStyle::SP_DialogHelpButton},
        {72, QStyle::SP_ComputerIcon},
        {167, QStyle::SP_DialogDiscardButton},
    };
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        const COMMAND_ROW_DEF& Row = g_CommandRows[Id];
        const bool Named = Row.Prototype && *Row.Prototype;
        if (!Named && !IsMainWindowActionRow(Id)) {
            continue;
        }
        auto* A = new QAction(QString::fromLatin1(Row.Text), this);
        A->setObjectName(QString::fromLatin1(Row.ActionName));
        // Every command starts disabled; a command is enabled where its feature is connected.
        Commands::SetActionEnabled(A, false);
        m_Actions.insert(Id, A);
    }
    for (const auto& I : Icons) {
        if (QAction* A = Action(I.Id)) {
            A->setIcon(style()->standardIcon(I.Icon));
        }
    }
    // The window toggles show a check mark for open windows.
    for (U32 Id = 61; Id <= 81; ++Id) {
        Action(Id)->setCheckable(true);
    }
    for (U32 Id = 97; Id <= 100; ++Id) {
        Action(Id)->setCheckable(true);
    }
    // Connection and reset modes are each one choice of three.
    auto* ConnectModes = new QActionGroup(this);
    auto* ResetModes = new QActionGroup(this);
    for (U32 Id = 47; Id <= 49; ++Id) {
        Action(Id)->setCheckable(true);
        ConnectModes->addAction(Action(Id));
    }
    for (U32 Id = 50; Id <= 52; ++Id) {
        Action(Id)->setCheckable(true);
        ResetModes->addAction(Action(Id));
    }
}

QMenu* CMainWindow::AddCommandMenu(const QString& Title, const QList<int>& Ids) {
    QMenu* Menu = menuBar()->addMenu(Title);
    for (int Id : Ids) {
        if (Id == SEPARATOR) {
            Menu->addSeparator();
        } else if (QAction* A = Action(static_cast<U32>(Id))) {
            Menu->addAction(A);
        }
    }
    return Menu;
}

void CMainWindow::CreateMenus() {
    QMenu* File = AddCommandMenu(QStringLiteral("&File"),
                                 {0, 1, 2, 4, SEPARATOR, 5, 6, 7, 8, SEPARATOR, 10, 11, 12, SEPARATOR, 13});
    File->addSeparator();
    File->addAction(Action(14));

    AddCommandMenu(QStringLiteral("&Edit"), {15, SEPARATOR, 23, 24, 25, 9});
    AddCommandMenu(QStringLiteral("&View"),
                   {131,       132, 133, 134, 135, SEPARATOR, 139, 140, SEPARATOR, 141, 142,
                    SEPARATOR, 76,  75,  62,  71,  78,        79,  77,  64,        65,  74,
                    70,        66,  68,  73,  67,  63,        72,  80,  81,        61,  69});

    QMenu* Debug =
        AddCommandMenu(QStringLiteral("&Debug"), {30, 31, SEPARATOR, 35, 36, 38, 39, 40, SEPARATOR, 43, 41,
                                                  42, SEPARATOR, 37, SEPARATOR, 32, 33, 34, 46});
    Debug->addSeparator();
    QMenu* ConnectMode = Debug->addMenu(QStringLiteral("Connection &Mode"));
    ConnectMode->addActions({Action(47), Action(48), Action(49)});
    QMenu* ResetMode = Debug->addMenu(QStringLiteral("&Reset Mode"));
    ResetMode->addActions({Action(51), Action(50), Action(52)});

    AddCommandMenu(QStringLiteral("&Break"), {167, 168, 147});
    QMenu* Tools = AddCommandMenu(QStringLiteral("&Tools"), {26, 27, SEPARATOR, 28, 29});
    Tools->addSeparator();
    AddScriptStopAction(Tools);
    QMenu* Window = AddCommandMenu(QStringLiteral("&Window"), {85, 86, SEPARATOR, 84, SEPARATOR, 94});
    Window->addSeparator();
    QMenu* Bars = Window->addMenu(QStringLiteral("&Toolbars"));
    Bars->addActions({Action(97), Action(98), Action(99), Action(100)});
    AddCommandMenu(QStringLiteral("&Help"), {54, 55, SEPARATOR, 53});
}

void CMainWindow::CreateToolBars() {
    const struct {
        const char* Title;
        const char* Name;
        QList<int> Ids;
    } Bars[] = {
        {"File", "toolBarFile", {0, 2, 10, 12}},
        {"Window", "toolBarWindow", {72, 76, 71, 77, 79, 78, 69, 61}},
        {"Debug", "toolBarDebug", {}},
        {"Breakpoint", "toolBarBreakpoint", {167, 168, 147}},
    };
    for (const auto& B : Bars) {
        auto* Bar = new QToolBar(QLatin1String(B.Title), this);
        Bar->setObjectName(QLatin1String(B.Name));
        for (int Id : B.Ids) {
            Bar->addAction(Action(static_cast<U32>(Id)));
        }
        addToolBar(Qt::TopToolBarArea, Bar);
        m_ToolBars.append(Bar);
    }

    // The connect and reset panels: a button with the modes in its menu.
    QToolBar* Debug = FindToolBar(QStringLiteral("Debug"));
    m_StartButton = new QToolButton(Debug);
    m_StartButton->setObjectName(QStringLiteral("toolButtonDebugStart"));
    // The buttons show the chosen mode, so they follow their command only in what they run and whether
    // they are enabled.
    auto Follow = [](QToolButton* Button, QAction* Command) {
        connect(Button, &QToolButton::clicked, Command, &QAction::trigger);
        connect(Command, &QAction::changed, Button,
                [Button, Command]() { Button->setEnabled(Command->isEnabled()); });
        Button->setEnabled(Command->isEnabled());
    };
    Follow(m_StartButton, Action(30));
    m_StartButton->setStatusTip(QStringLiteral("Start Debugging"));
    m_StartButton->setPopupMode(QToolButton::MenuButtonPopup);
    m_StartButton->setMaximumHeight(20 + 2 * m_StartButton->style()->pixelMetric(QStyle::PM_ButtonMargin));
    auto* StartMenu = new QMenu(m_StartButton);
    StartMenu->addActions({Action(47), Action(48), Action(49)});
    m_StartButton->setMenu(StartMenu);
    Debug->addWidget(m_StartButton);
    Debug->addAction(Action(31));
    Debug->addSeparator();
    Debug->addActions({Action(35), Action(36), Action(38), Action(39), Action(40)});
    Debug->addSeparator();
    m_ResetButton = new QToolButton(Debug);
    m_ResetButton->setObjectName(QStringLiteral("toolButtonDebugReset"));
    Follow(m_ResetButton, Action(37));
    m_ResetButton->setStatusTip(QStringLiteral("Resets the Program"));
    m_ResetButton->setPopupMode(QToolButton::MenuButtonPopup);
    auto* ResetMenu = new QMenu(m_ResetButton);
    ResetMenu->addActions({Action(51), Action(50), Action(52)});
    m_ResetButton->setMenu(ResetMenu);
    Debug->addWidget(m_ResetButton);
}

void CMainWindow::ConnectCommands() {
    // Scripts reach the commands through natives that the script layer installs on the table.
    TScript::Init();
    const struct {
        U32 Id;
        void (CMainWindow::*Slot)();
    } Slots[] = {
        {2, &CMainWindow::OnActionFileOpenTriggered},
        {4, &CMainWindow::OnActionFileLoadTriggered},
        {14, &CMainWindow::OnActionFileExitTriggered},
        {15, &CMainWindow::OnActionEditCopyTriggered},
        {16, &CMainWindow::OnActionEditPreferenceTriggered},
        {17, &CMainWindow::OnActionEditSysVarTriggered},
        {18, &CMainWindow::OnActionEditColorTriggered},
        {19, &CMainWindow::OnActionEditFontTriggered},
        {28, &CMainWindow::OnActionToolsPreferencesTriggered},
        {29, &CMainWindow::OnActionToolsSysVarsTriggered},
        {44, &CMainWindow::OnActionDebugSetResetModeTriggered},
        {175, &CMainWindow::OnActionTargetSetRegTriggered},
        {176, &CMainWindow::OnActionTargetGetRegTriggered},
        {177, &CMainWindow::OnActionTargetWriteU64Triggered},
        {178, &CMainWindow::OnActionTargetWriteU32Triggered},
        {179, &CMainWindow::OnActionTargetWriteU16Triggered},
        {180, &CMainWindow::OnActionTargetWriteU8Triggered},
        {181, &CMainWindow::OnActionTargetReadU32Triggered},
        {182, &CMainWindow::OnActionTargetReadU16Triggered},
        {183, &CMainWindow::OnActionTargetReadU8Triggered},
        {184, &CMainWindow::OnActionTargetFillMemoryTriggered},
        {187, &CMainWindow::OnActionTargetSetAccessWidthTriggered},
        {188, &CMainWindow::OnActionTargetSetEndianessTriggered},
        {45, &CMainWindow::OnActionDebugSetConnectModeTriggered},
        {53, &CMainWindow::OnActionHelpAboutTriggered},
        {55, &CMainWindow::OnActionHelpCommandsTriggered},
        {56, &CMainWindow::OnActionUtilSleepTriggered},
        {57, &CMainWindow::OnActionUtilLogTriggered},
        {58, &CMainWindow::OnActionUtilLogHexTriggered},
        {59, &CMainWindow::OnActionScriptExecTriggered},
        {60, &CMainWindow::OnActionScriptDefineConstTriggered},
        {82, &CMainWindow::OnActionWindowShowTriggered},
        {83, &CMainWindow::OnActionWindowCloseTriggered},
        {84, &CMainWindow::OnActionWindowCloseAllTriggered},
        {85, &CMainWindow::OnActionWindowDockTriggered},
        {86, &CMainWindow::OnActionWindowUndockTriggered},
        {91, &CMainWindow::OnActionWindowClearTriggered},
        {94, &CMainWindow::OnActionWindowShowFullScreenTriggered},
        {95, &CMainWindow::OnActionToolbarShowTriggered},
        {96, &CMainWindow::OnActionToolbarCloseTriggered},
        {196, &CMainWindow::OnActionElfGetBaseAddrTriggered},
        {197, &CMainWindow::OnActionElfGetEntryPointPCTriggered},
        {198, &CMainWindow::OnActionElfGetEntryFuncPCTriggered},
        {200, &CMainWindow::OnActionElfGetEndianessTriggered},
        {122, &CMainWindow::OnActionProjectRelocateSymbolsTriggered},
        {0, &CMainWindow::OnActionFileNewProjectTriggered},
        {1, &CMainWindow::OnActionFileNewProjectWizardTriggered},
        {3, &CMainWindow::OnActionFileOpenRecentTriggered},
        {11, &CMainWindow::OnActionFileSaveProjectAsTriggered},
        {12, &CMainWindow::OnActionFileSaveAllTriggered},
        {101, &CMainWindow::OnActionProjectSetDeviceTriggered},
        {102, &CMainWindow::OnActionProjectSetTarvoScriptTriggered},
        {103, &CMainWindow::OnActionProjectSetTarvoLogFileTriggered},
        {104, &CMainWindow::OnActionProjectAddSvdFileTriggered},
        {105, &CMainWindow::OnActionProjectSetHostIFTriggered},
        {106, &CMainWindow::OnActionProjectSetTargetIFTriggered},
        {107, &CMainWindow::OnActionProjectSetTIFSpeedTriggered},
        {108, &CMainWindow::OnActionProjectSetJTAGConfigTriggered},
        {109, &CMainWindow::OnActionProjectConfigSWOTriggered},
        {110, &CMainWindow::OnActionProjectSetSWOTriggered},
        {111, &CMainWindow::OnActionProjectSetSemihostingTriggered},
        {112, &CMainWindow::OnActionProjectConfigSemihostingTriggered},
        {113, &CMainWindow::OnActionProjectSetMCTTriggered},
        {114, &CMainWindow::OnActionProjectAddMCTSearchRangeTriggered},
        {115, &CMainWindow::OnActionProjectAddRootPathTriggered},
        {116, &CMainWindow::OnActionProjectAddSearchPathTriggered},
        {117, &CMainWindow::OnActionProjectAddFileAliasTriggered},
        {118, &CMainWindow::OnActionProjectAddPathSubstituteTriggered},
        {119, &CMainWindow::OnActionProjectSetOSPluginTriggered},
        {120, &CMainWindow::OnActionProjectSetCorePluginTriggered},
        {121, &CMainWindow::OnActionProjectSetBPTypeTriggered},
        {123, &CMainWindow::OnActionProjectSetTraceSourceTriggered},
        {124, &CMainWindow::OnActionProjectSetTracePortWidthTriggered},
        {125, &CMainWindow::OnActionProjectSetTraceTimingTriggered},
        {126, &CMainWindow::OnActionProjectSetTraceFileTriggered},
        {127, &CMainWindow::OnActionProjectSetConsoleLogFileTriggered},
        {128, &CMainWindow::OnActionProjectSetTerminalLogFileTriggered},
        {129, &CMainWindow::OnActionProjectDisableSessionSaveTriggered},
        {130, &CMainWindow::OnActionProjectSetMemZoneRunningTriggered},
        {31, &CMainWindow::OnActionDebugStopTriggered},
        {32, &CMainWindow::OnActionDebugConnectTriggered},
        {33, &CMainWindow::OnActionDebugDisconnectTriggered},
        {34, &CMainWindow::OnActionDebugDownloadTriggered},
        {37, &CMainWindow::OnActionDebugResetTriggered},
        {185, &CMainWindow::OnActionTargetSaveMemoryTriggered},
        {186, &CMainWindow::OnActionTargetLoadMemoryTriggered},
        {191, &CMainWindow::OnActionTargetPowerOnTriggered},
        {192, &CMainWindow::OnActionExecConnectTriggered},
        {193, &CMainWindow::OnActionExecResetTriggered},
        {194, &CMainWindow::OnActionExecDownloadTriggered},
        {195, &CMainWindow::OnActionExecCommandTriggered},
    };
    for (const auto& S : Slots) {
        ConnectAction(Action(S.Id), this, S.Slot);
        Commands::SetActionEnabled(Action(S.Id), true);
    }

    // Window and tool bar toggles follow what is shown.
    const struct {
        U32 Id;
        const char* Window;
    } WindowToggles[] = {{72, "Console"}};
    for (const auto& T : WindowToggles) {
        CWindow* W = FindDebugWindow(QLatin1String(T.Window));
        QAction* A = Action(T.Id);
        if (!W || !W->GetDock()) {
            continue;
        }
        CDockWindow* Dock = W->GetDock();
        BracketAction(A, [Dock, A]() {
            Dock->setVisible(A->isChecked());
            if (A->isChecked()) {
                Dock->raise();
            }
        });
        connect(Dock, &QDockWidget::visibilityChanged, A, [A, Dock]() { A->setChecked(!Dock->isHidden()); });
        Commands::SetActionEnabled(A, true);
    }
    const struct {
        U32 Id;
        const char* Bar;
    } BarToggles[] = {{97, "File"}, {98, "Debug"}, {99, "Window"}, {100, "Breakpoint"}};
    for (const auto& T : BarToggles) {
        QToolBar* Bar = FindToolBar(QLatin1String(T.Bar));
        QAction* A = Action(T.Id);
        BracketAction(A, [Bar, A]() { Bar->setVisible(A->isChecked()); });
        connect(Bar, &QToolBar::visibilityChanged, A, [A, Bar]() { A->setChecked(!Bar->isHidden()); });
        Commands::SetActionEnabled(A, true);
    }
    ConnectModeActions();
    connect(this, &CMainWindow::SysVarEdited, this, &CMainWindow::OnSysVarChanged);
    connect(this, &CMainWindow::UserPreferenceEdited, this, &CMainWindow::OnUserPreferenceChanged);
    UpdateFullScreenText();
    ConnectProject();
    UpdateProjectActions();
}
