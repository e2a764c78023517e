#include "app/MainWindow.h"

#include "app/MessageHandler.h"
#include "app/StatusBar.h"
#include "app/WelcomeScreen.h"
#include "app/core/Automation.h"
#include "app/core/CmdLineArgs.h"
#include "app/core/CommandTable.h"
#include "app/core/Fonts.h"
#include "app/core/Log.h"
#include "app/core/Paths.h"
#include "app/core/Preferences.h"
#include "app/core/Settings.h"
#include "app/core/SysVars.h"
#include "app/core/Version.h"
#include "app/session/SessionController.h"
#include "program/SymbolFind.h"
#include "script/Project.h"
#include "target/Device.h"
#include "target/DeviceEvents.h"
#include "views/ConsoleWindow.h"
#include "views/DockWindow.h"
#include "views/MessageBox.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QKeyEvent>
#include <QLocale>
#include <QPainter>
#include <QStyle>
#include <QStyleOption>
#include <QTabBar>
#include <QTimer>
#include <QToolBar>

namespace {

CMainWindow* s_MainWindow = nullptr;

const QString KEY_MAIN = QStringLiteral("AppData/MainWindow/");
const QString KEY_PERSPECTIVE_DEBUG = QStringLiteral("AppData/Perspectives/Debug/");
const QString KEY_PERSPECTIVE_EDIT = QStringLiteral("AppData/Perspectives/Edit/");

/// The window icon, a magnifier ("magnifier-32.png"), drawn so that no binary needs to be kept.
QIcon MagnifierIcon() {
    QPixmap Pixmap(32, 32);
    Pixmap.fill(Qt::transparent);
    QPainter P(&Pixmap);
    P.setRenderHint(QPainter::Antialiasing);
    P.setPen(QPen(QColor(0x30, 0x30, 0x30), 4, Qt::SolidLine, Qt::RoundCap));
    P.drawLine(QPointF(19, 19), QPointF(29, 29));
    P.setPen(QPen(QColor(0x20, 0x50, 0x90), 3));
    P.setBrush(QColor(0xC8, 0xE0, 0xFF));
    P.drawEllipse(QPointF(12.5, 12.5), 9, 9);
    return QIcon(Pixmap);
}

} // namespace

CMainWindow* CMainWindow::Instance() {
    if (!s_MainWindow) {
        s_MainWindow = new CMainWindow();
    }
    return s_MainWindow;
}

bool CMainWindow::Exists() {
    return s_MainWindow != nullptr;
}

void CMainWindow::Destroy() {
    delete s_MainWindow;
    s_MainWindow = nullptr;
}

CMainWindow::CMainWindow() : CWindow(QStringLiteral("MainWindow")) {
    setObjectName(QStringLiteral("MainWindow"));
    s_MainWindow = this;
    // The device's answers arrive through this timer from the start.
    m_EventWorker = new CDeviceEventWorker(this);
    DeviceEvents::ResetRing();
    // The toolkit's complaints about the steps below (settings, fonts, docks) go to the log too.
    InstallToolkitMessageHandler();
    RegisterMetaTypes();
    // Source location arguments echo in the one form that finds the same line again.
    Commands::SetSourceLocationFormatter(ELF_CanonicalSrcLocText);

    // Settings first: the steps below read them.
    Settings::Load();

    setDockNestingEnabled(true);
    setDockOptions(QMainWindow::AnimatedDocks | QMainWindow::AllowNestedDocks |
                   QMainWindow::AllowTabbedDocks);
    CreateActions();
    CreateMenus();
    CreateToolBars();
    m_StatusBar = CStatusBar::Instance(this);
    setStatusBar(m_StatusBar);
    m_StatusBar->SetStatusMessage(QStringLiteral("Ready"));

    QLocale::setDefault(QLocale::c());
    setLocale(QLocale::c());

    // Hotkeys work without a menu only for actions added to the window.
    Commands::BindActions(this);
    addActions(m_Actions.values());
    setWindowIcon(MagnifierIcon());

    SysVars::ResetAll();
    Preferences::LoadPreferences();
    // Never survives a start.
    SysVars::SetVarValue(SysVars::GetVarRow(PREF_RESET_DIALOG_DNSA), 0, true);
    Preferences::LoadColorsAndFonts();
    // The device thread starts here; its configuration holds the rows without storage of their own.
    ConnectDevice();
    CreateSession();

    CreateDebugWindows();
    CreateTimers();
    ConnectCommands();
    ApplyGUIFontsToDebugWindows();
    ApplyUserPreferencesToDebugWindows();

    LoadWindowSettings();
    RestorePerspective();
    UpdateTitle();

    installEventFilter(this);
    qApp->installEventFilter(this);
}

CMainWindow::~CMainWindow() {
    qApp->removeEventFilter(this);
    Commands::UnbindAll();
    if (s_MainWindow == this) {
        s_MainWindow = nullptr;
    }
}

void CMainWindow::RegisterMetaTypes() {
    qRegisterMetaType<U8>("U8");
    qRegisterMetaType<U32>("U32");
    qRegisterMetaType<I32>("I32");
    qRegisterMetaType<U64>("U64");
    qRegisterMetaType<I64>("I64");
    qRegisterMetaType<QList<U32>>("QList<U32>");
    qRegisterMetaType<QList<I64>>("QList<I64>");
    qRegisterMetaType<QList<QString>>("QList<QString>");
}

void CMainWindow::AddDebugWindow(CWindow* Window, const QString& Title, Qt::DockWidgetArea Area) {
    auto* Dock = new CDockWindow(Window, Title, this);
    addDockWidget(Area, Dock);
    m_DebugWindows.append(Window);
    connect(Dock, &CDockWindow::WindowClosed, this, [this](CWindow*) { UpdateTitle(); });
}

void CMainWindow::CreateDebugWindows() {
    m_Console = new CConsoleWindow(this);
    connect(m_Console, &CConsoleWindow::StopScriptRequested, this, &CMainWindow::OnActionScriptStopTriggered);
    AddDebugWindow(m_Console, QStringLiteral("Console"), Qt::BottomDockWidgetArea);
    for (CWindow* W : m_DebugWindows) {
        Commands::BindActions(W);
        m_Console->AddCommandListener(W);
    }
    // The Console reports the commands of every window, the main window's from the start.
    m_Console->AddCommandListener(this);
}

void CMainWindow::CreateTimers() {
    m_TabBarUpdateTimer = new QTimer(this);
    m_TabBarUpdateTimer->setSingleShot(true);
    m_TabBarUpdateTimer->setInterval(200);
    connect(m_TabBarUpdateTimer, &QTimer::timeout, this, &CMainWindow::OnTabBarUpdateTimerTimeout);

    m_PeriodicUpdateTimer = new QTimer(this);
    m_PeriodicUpdateTimer->setInterval(200);
    connect(m_PeriodicUpdateTimer, &QTimer::timeout, this, &CMainWindow::OnPeriodicUpdateTimerTimeout);
    m_PeriodicUpdateTimer->start();

    m_MessageBoxTimer = new QTimer(this);
    m_MessageBoxTimer->setSingleShot(true);
    m_MessageBoxTimer->setInterval(100);
    connect(m_MessageBoxTimer, &QTimer::timeout, this, &CMainWindow::OnMessageBoxTimerTimeout);

    m_WindowShownTimer = new QTimer(this);
    m_WindowShownTimer->setSingleShot(true);
    m_WindowShownTimer->setInterval(10);
    connect(m_WindowShownTimer, &QTimer::timeout, this, &CMainWindow::OnWindowShown);
}

void CMainWindow::LoadWindowSettings() {
    m_DefaultDirOpen =
        Settings::Value(KEY_MAIN + QStringLiteral("DefaultDirOpen"), QDir::homePath()).toString();
    m_DefaultDirSave =
        Settings::Value(KEY_MAIN + QStringLiteral("DefaultDirSave"), QDir::homePath()).toString();
    const QByteArray Geometry = Settings::Value(KEY_MAIN + QStringLiteral("Geometry")).toByteArray();
    if (Geometry.isEmpty() || !restoreGeometry(Geometry)) {
        resize(1200, 800);
    }
    m_RecentProjects = Settings::Value(KEY_MAIN + QStringLiteral("RecentProjects")).toStringList();
    m_RecentPrograms = Settings::Value(KEY_MAIN + QStringLiteral("RecentPrograms")).toStringList();
    FilterRecentLists();
}

void CMainWindow::RestorePerspective() {
    const QByteArray State =
        Settings::Value(KEY_PERSPECTIVE_DEBUG + QStringLiteral("WindowState")).toByteArray();
    if (!State.isEmpty()) {
        restoreState(State);
    }
    const struct {
        const char* Name;
        const char* Key;
        bool Default;
    } Bars[] = {{"File", "ToolbarFileState", false},
                {"Window", "ToolbarWindowState", false},
                {"Debug", "ToolbarDebugState", true},
                {"Breakpoint", "ToolbarBreakpointState", false}};
    for (const auto& B : Bars) {
        if (QToolBar* Bar = FindToolBar(QLatin1String(B.Name))) {
            const QVariant V = Settings::Value(KEY_PERSPECTIVE_DEBUG + QLatin1String(B.Key), B.Default);
            // Stored booleans read back from the INI file as text.
            Bar->setVisible(V.toString() == QLatin1String("true") || V.toString() == QLatin1String("1"));
        }
    }
    for (QTabBar* Bar : findChildren<QTabBar*>()) {
        Bar->setMovable(true);
        Bar->setElideMode(Qt::ElideRight);
    }
}

void CMainWindow::SaveWindowSettings() {
    Settings::SetValue(KEY_MAIN + QStringLiteral("Geometry"), saveGeometry());
    Settings::SetValue(KEY_MAIN + QStringLiteral("DefaultDirOpen"), m_DefaultDirOpen);
    Settings::SetValue(KEY_MAIN + QStringLiteral("DefaultDirSave"), m_DefaultDirSave);
    Settings::SetValue(KEY_MAIN + QStringLiteral("RecentProjects"), m_RecentProjects);
    Settings::SetValue(KEY_MAIN + QStringLiteral("RecentPrograms"), m_RecentPrograms);
    Settings::SetValue(KEY_MAIN + QStringLiteral("Version"), Version::GetVersionText());
    const QByteArray State = saveState();
    const struct {
        const char* Name;
        const char* Key;
    } Bars[] = {{"File", "ToolbarFileState"},
                {"Window", "ToolbarWindowState"},
                {"Debug", "ToolbarDebugState"},
                {"Breakpoint", "ToolbarBreakpointState"}};
    for (const QString& Perspective : {KEY_PERSPECTIVE_DEBUG, KEY_PERSPECTIVE_EDIT}) {
        Settings::SetValue(Perspective + QStringLiteral("WindowState"), State);
        for (const auto& B : Bars) {
            if (QToolBar* Bar = FindToolBar(QLatin1String(B.Name))) {
                Settings::SetValue(Perspective + QLatin1String(B.Key), !Bar->isHidden());
            }
        }
    }
}

CWindow* CMainWindow::FindDebugWindow(const QString& Name) const {
    for (CWindow* W : m_DebugWindows) {
        if (W->IsMatched(Name)) {
            return W;
        }
    }
    return nullptr;
}

QToolBar* CMainWindow::FindToolBar(const QString& Name) const {
    for (QToolBar* Bar : m_ToolBars) {
        if (Bar->windowTitle().compare(Name.trimmed(), Qt::CaseInsensitive) == 0) {
            return Bar;
        }
    }
    return nullptr;
}

void CMainWindow::UpdateTitle() {
    const CProject* Project = CProject::Instance();
    const QString Path = Project->GetPath();
    // During a session the title names the program under debug.
    if (CDevice::Exists() && CDevice::Instance()->Connected.load() && !m_ProgramPath.isEmpty() &&
        Project->IsLoaded() && !Path.isEmpty()) {
        setWindowTitle(Version::GetAppName() + QStringLiteral(" - ") + QFileInfo(m_ProgramPath).fileName());
        return;
    }
    if (!Project->IsLoaded() || Path.isEmpty()) {
        setWindowTitle(Version::GetAppName() + QStringLiteral(" - New Project"));
        return;
    }
    setWindowTitle(Version::GetAppName() +
                   (Project->IsModified() ? QStringLiteral(" - *") : QStringLiteral(" - ")) +
                   QFileInfo(Path).fileName());
}

bool CMainWindow::eventFilter(QObject* Watched, QEvent* Event) {
    if (Watched == this && Event->type() == QEvent::Paint && !m_FirstPaintSeen) {
        // The start-up decision runs with the window already on the screen.
        m_FirstPaintSeen = true;
        m_WindowShownTimer->start();
    }
    if (Event->type() == QEvent::KeyPress && !m_Closing) {
        if (HandleAlternativeHotkey(static_cast<QKeyEvent*>(Event))) {
            return true;
        }
    }
    return CWindow::eventFilter(Watched, Event);
}

bool CMainWindow::HandleAlternativeHotkey(QKeyEvent* Key) {
    if (Key->key() == Qt::Key_Escape || Key->key() == Qt::Key_unknown || Key->isAutoRepeat()) {
        return false;
    }
    const int Code = Key->key();
    if (Code == Qt::Key_Shift || Code == Qt::Key_Control || Code == Qt::Key_Alt || Code == Qt::Key_Meta) {
        return false;
    }
    const Qt::KeyboardModifiers Mods = Key->modifiers() & ~Qt::KeypadModifier;
    const QString Text = QKeySequence(QKeyCombination(Mods, static_cast<Qt::Key>(Code))).toString();
    const QList<U32> Rows = Commands::FindRowsByAlternativeHotkey(Text);
    if (Rows.isEmpty()) {
        return false;
    }
    CWindow* Focused = FocusedDebugWindow();
    for (U32 Id : Rows) {
        QAction* A = Commands::GetCommandAction(Id);
        if (!A) {
            continue;
        }
        QObject* Owner = A->parent();
        if (Owner == this || (Focused && Owner == Focused)) {
            Commands::TriggerCommand(Id);
            return true;
        }
    }
    return false;
}

CWindow* CMainWindow::FocusedDebugWindow() const {
    for (QWidget* W = QApplication::focusWidget(); W; W = W->parentWidget()) {
        if (auto* Window = qobject_cast<CWindow*>(W)) {
            if (Window != this) {
                return Window;
            }
        }
    }
    return nullptr;
}

void CMainWindow::ApplyStyleSeparatorFix() {
    // Some styles draw no frame around dock contents; then the separator needs a line of its own.
    QImage Image(3, 3, QImage::Format_ARGB32);
    Image.fill(palette().color(QPalette::Window));
    {
        QPainter P(&Image);
        QStyleOptionFrame Option;
        Option.initFrom(this);
        Option.rect = QRect(0, 0, 3, 3);
        Option.lineWidth = 1;
        style()->drawPrimitive(QStyle::PE_FrameDockWidget, &Option, &P, this);
    }
    const QRgb First = Image.pixel(0, 0);
    for (int Y = 0; Y < 3; ++Y) {
        for (int X = 0; X < 3; ++X) {
            if (Image.pixel(X, Y) != First) {
                return;
            }
        }
    }
    const QColor Line = palette().color(QPalette::Dark).lighter(115);
    setStyleSheet(QStringLiteral("QMainWindow::separator { width: 1px; height: 1px; background: %1; }")
                      .arg(Line.name()));
}

void CMainWindow::RunStartupCommand(U32 Id, const QString& Arg) {
    // Start-up offers what exists: a command whose feature is not there yet is passed over silently.
    if (!Commands::IsCommandEnabled(Id)) {
        return;
    }
    if (Arg.isEmpty()) {
        Commands::ExecCommand(Id);
    } else {
        Commands::ExecCommand(Id, Arg);
    }
}

void CMainWindow::OnWindowShown() {
    ApplyStyleSeparatorFix();

    const QString Library = Paths::GetInstallDir() + QStringLiteral("/libtarvo.so");
    if (QFileInfo::exists(Library)) {
        PrintConsole(QStringLiteral("Tarvo software found at: ") + Library, COLOR_LOGGING_TARVO);
    } else {
        LogWarnMsg(QStringLiteral("Tarvo software not found at: ") + Library);
    }

    for (CWindow* W : m_DebugWindows) {
        m_Console->AddCommandListener(W);
    }
    m_Console->AddCommandListener(this);
    m_InitComplete = true;
    emit InitComplete();

    const CCmdLineArgs& Args = GetCmdLineArgs();
    const QStringList Arguments = GetCmdLineArguments();
    const QString First = Arguments.isEmpty() ? QString() : Arguments.first();
    const bool Unattended = Automation::IsActive();
    if (QFileInfo(First).suffix() == QLatin1String("tvproj")) {
        RunStartupCommand(2, First);
    } else if (!Args.Device.isEmpty()) {
        CreateProjectFromCmdLine();
    } else if (Unattended) {
        // Unattended runs never wait in the wizard or the welcome screen.
    } else if (m_RecentProjects.isEmpty()) {
        RunStartupCommand(0);
        RunStartupCommand(1);
    } else if (Settings::Value(
                   QStringLiteral("AppData/Preferences/Preferences/PREF_START_WITH_MOST_RECENT_PROJ"))
                   .toInt() != 0) {
        RunStartupCommand(2, m_RecentProjects.first());
    } else {
        CWelcomeScreen Welcome(m_RecentProjects, Fonts::GetFont(FONT_APP), this);
        Welcome.exec();
        switch (Welcome.GetResult()) {
        case CWelcomeScreen::NEW_PROJECT:
            RunStartupCommand(0);
            break;
        case CWelcomeScreen::NEW_PROJECT_WIZARD:
            RunStartupCommand(0);
            RunStartupCommand(1);
            break;
        case CWelcomeScreen::OPEN_PROJECT:
            RunStartupCommand(2);
            break;
        case CWelcomeScreen::OPEN_RECENT:
            RunStartupCommand(2, Welcome.GetChosenProject());
            break;
        default:
            break;
        }
    }

    for (const QString& Name : Commands::GetUnlinkedActions()) {
        LogWarnMsg(QStringLiteral("Unknown GUI action could not be linked: ") + Name);
    }
    emit StartupDone();
}

void CMainWindow::OnTabBarUpdateTimerTimeout() {
    for (QTabBar* Bar : findChildren<QTabBar*>()) {
        Bar->setMovable(true);
        Bar->setElideMode(Qt::ElideRight);
    }
}

void CMainWindow::changeEvent(QEvent* Event) {
    if (Event->type() == QEvent::WindowStateChange) {
        UpdateFullScreenText();
    }
    CWindow::changeEvent(Event);
}

void CMainWindow::closeEvent(QCloseEvent* Event) {
    // A session ends first, if the user agrees; its end closes the window again. A second close while
    // that runs goes on.
    if (!m_Closing && m_Session->PendingAction() != PA_CLOSE_WINDOW &&
        CDevice::Instance()->Connected.load()) {
        Event->ignore();
        if (MessageBox::Ask(this, QStringLiteral("Stop Debugging"), QStringLiteral("Close this Session?"),
                            QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes) != QMessageBox::Yes) {
            return;
        }
        if (CDevice::Instance()->Connected.load()) {
            m_Session->SetPendingAction(PA_CLOSE_WINDOW);
            Disconnect();
        } else {
            // The session ended while the question was up: nothing to wait for.
            QTimer::singleShot(0, this, &QWidget::close);
        }
        return;
    }
    if (!m_Closing && AskSaveProjectChanges() == 2) {
        Event->ignore();
        return;
    }
    m_Closing = true;
    m_TabBarUpdateTimer->stop();
    SaveWindowSettings();
    // Writes the project's user file while the windows still stand.
    CProject::Instance()->Close();
    // Jobs that have not started are dropped; the thread ends while events go on being processed, so a
    // job that needs the GUI can still finish.
    CDevice::Shutdown();
    Preferences::SaveColorsAndFonts();
    Preferences::SavePreferences();
    SysVars::ResetAll();
    if (m_Console) {
        // Unattended runs must see every line before the window goes.
        m_Console->Drain();
    }
    Event->accept();
    CWindow::closeEvent(Event);
    for (QWidget* W : QApplication::topLevelWidgets()) {
        if (W != this && W->isVisible()) {
            W->close();
        }
    }
}
