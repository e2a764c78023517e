#include "views/ConsoleWindow.h"

#include "app/core/Automation.h"
#include "app/core/Colors.h"
#include "app/core/CommandTable.h"
#include "app/core/ConsoleRing.h"
#include "app/core/Fonts.h"
#include "app/core/Log.h"
#include "app/core/SysVars.h"

#include <QAction>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTextBlock>
#include <QTimer>
#include <QVBoxLayout>

#include <cstdio>

namespace {

constexpr int UPDATE_INTERVAL_MS = 100;
constexpr int MESSAGES_PER_UPDATE = 100;
// Bounds the memory of a long session; both panes trim in step because they hold the same lines.
constexpr int MAX_LINES = 200000;
// Text keeps the colour it was printed in by table id, so that a colour change reaches shown lines too.
constexpr int COLOR_ID_PROPERTY = QTextFormat::UserProperty + 1;
constexpr int PALETTE_TEXT_ID = -2;

QPlainTextEdit* MakePane(QWidget* Parent, const QString& Name) {
    auto* Pane = new QPlainTextEdit(Parent);
    Pane->setObjectName(Name);
    Pane->setReadOnly(true);
    Pane->setLineWrapMode(QPlainTextEdit::NoWrap);
    Pane->setUndoRedoEnabled(false);
    Pane->setMaximumBlockCount(MAX_LINES);
    Pane->setContextMenuPolicy(Qt::CustomContextMenu);
    return Pane;
}

} // namespace

CConsoleWindow::CConsoleWindow(QWidget* Parent) : CWindow(QStringLiteral("Console"), Parent) {
    setObjectName(QStringLiteral("ConsoleWindow"));

    auto* Central = new QWidget(this);
    auto* Panes = new QHBoxLayout;
    Panes->setContentsMargins(0, 0, 0, 0);
    Panes->setSpacing(0);
    m_TimeStamps = MakePane(Central, QStringLiteral("textEditorTS"));
    m_TimeStamps->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_TimeStamps->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_Text = MakePane(Central, QStringLiteral("textEditor"));
    Panes->addWidget(m_TimeStamps);
    Panes->addWidget(m_Text, 1);

    m_Input = new QLineEdit(Central);
    m_Input->setObjectName(QStringLiteral("inputField"));
    m_Input->setPlaceholderText(QStringLiteral("Type a command, or ? for the list of commands"));
    m_Input->installEventFilter(this);
    m_Text->installEventFilter(this);
    m_TimeStamps->installEventFilter(this);

    auto* Layout = new QVBoxLayout(Central);
    Layout->setContentsMargins(0, 0, 0, 0);
    Layout->setSpacing(2);
    Layout->addLayout(Panes, 1);
    Layout->addWidget(m_Input);
    setCentralWidget(Central);

    m_Text->setFont(Fonts::GetFont(FONT_CONSOLE));
    m_TimeStamps->setFont(Fonts::GetFont(FONT_CONSOLE));

    // The panes scroll together.
    connect(m_Text->verticalScrollBar(), &QScrollBar::valueChanged, m_TimeStamps->verticalScrollBar(),
            &QScrollBar::setValue);
    connect(m_TimeStamps->verticalScrollBar(), &QScrollBar::valueChanged, m_Text->verticalScrollBar(),
            &QScrollBar::setValue);

    m_UpdateTimer = new QTimer(this);
    m_UpdateTimer->setSingleShot(true);
    m_UpdateTimer->setInterval(UPDATE_INTERVAL_MS);
    connect(m_UpdateTimer, &QTimer::timeout, this, &CConsoleWindow::OnUpdateTimerTimeout);

    m_ActionHelp = new QAction(QStringLiteral("&Help"), this);
    m_ActionHelp->setObjectName(QStringLiteral("actionConsoleHelp"));
    m_ActionShowSidebar = new QAction(QStringLiteral("Show &Timestamps"), this);
    m_ActionShowSidebar->setObjectName(QStringLiteral("actionConsoleShowSidebar"));
    m_ActionShowSidebar->setCheckable(true);
    m_ActionClear = new QAction(QStringLiteral("&Clear"), this);
    ConnectAction(m_ActionHelp, this, &CConsoleWindow::OnActionHelpTriggered);
    ConnectAction(m_ActionShowSidebar, this, &CConsoleWindow::OnActionShowSidebarTriggered);
    connect(m_ActionClear, &QAction::triggered, this, &CConsoleWindow::Clear);
    // Escape anywhere in the Console stops a script that runs away.
    auto* StopScript = new QAction(QStringLiteral("Stop Script"), this);
    StopScript->setObjectName(QStringLiteral("actionConsoleStopScript"));
    StopScript->setShortcut(QKeySequence(Qt::Key_Escape));
    StopScript->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    addAction(StopScript);
    connect(StopScript, &QAction::triggered, this, &CConsoleWindow::StopScriptRequested);

    connect(m_Input, &QLineEdit::returnPressed, this, [this]() { OnCommandEntered(m_Input->text()); });
    connect(m_Text, &QWidget::customContextMenuRequested, this,
            &CConsoleWindow::OnEditorContextMenuRequested);
    connect(m_TimeStamps, &QWidget::customContextMenuRequested, this,
            &CConsoleWindow::OnSidebarContextMenuRequested);

    SetSidebarVisible(SysVars::GetVarValue(PREF_SHOW_TIMESTAMPS_CONSOLE) != 0);
    AddCommandListener(this);

    ConsoleRing::RestartClock();
    // Any thread may push; the update is queued onto this window's thread.
    QPointer<CConsoleWindow> Self(this);
    ConsoleRing::SetNotifier([Self]() {
        if (Self) {
            QMetaObject::invokeMethod(Self.data(), "Update", Qt::QueuedConnection);
        }
    });
    SetConsoleAttached(true);
}

CConsoleWindow::~CConsoleWindow() {
    SetConsoleAttached(false);
    ConsoleRing::SetNotifier(nullptr);
}

void CConsoleWindow::Update() {
    if (!m_UpdateTimer->isActive()) {
        m_UpdateTimer->start();
    }
}

void CConsoleWindow::OnUpdateTimerTimeout() {
    if (TakeMessages(MESSAGES_PER_UPDATE) > 0) {
        m_UpdateTimer->start();
    }
}

void CConsoleWindow::Drain() {
    while (TakeMessages(MESSAGES_PER_UPDATE) > 0) {
    }
}

int CConsoleWindow::TakeMessages(int Max) {
    int Taken = 0;
    CConsoleMsg Msg;
    while (Taken < Max && ConsoleRing::Pop(Msg)) {
        ShowMessage(Msg);
        ++Taken;
    }
    if (Taken > 0) {
        m_Text->verticalScrollBar()->setValue(m_Text->verticalScrollBar()->maximum());
        m_Text->horizontalScrollBar()->setValue(0);
    }
    return Taken;
}

void CConsoleWindow::ShowMessage(const CConsoleMsg& Msg) {
    const QString Text = QString::fromUtf8(Msg.Text);
    QTextCharFormat Format;
    if (Msg.ColorIndex != -1) {
        Format.setForeground(GetColor(Msg.ColorIndex));
        if (Msg.ColorIndex >= 0 && Msg.ColorIndex < COLOR_COUNT) {
            Format.setProperty(COLOR_ID_PROPERTY, Msg.ColorIndex);
        }
    } else {
        Format.setForeground(ResolveColor(Msg.ColorRGBA));
        if (Msg.ColorRGBA == COLOR_VALUE_TRANSPARENT) {
            Format.setProperty(COLOR_ID_PROPERTY, PALETTE_TEXT_ID);
        }
    }
    if (static_cast<bool>(Msg.Bold) != m_Bold) {
        m_Bold = Msg.Bold;
    }
    Format.setFontWeight(m_Bold ? QFont::Bold : QFont::Normal);

    QTextCursor Cursor(m_Text->document());
    Cursor.movePosition(QTextCursor::End);
    if (Msg.NewLine && !m_Text->document()->isEmpty()) {
        Cursor.insertBlock();
    }
    Cursor.insertText(Text, Format);
    m_Text->setTextCursor(Cursor);

    WriteLogChannel(LOG_CHANNEL_CONSOLE, Msg.NewLine ? Msg.Text + QByteArray("\n") : QByteArray(Msg.Text));
    if (Automation::IsActive()) {
        std::fputs(Msg.Text, stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
    }

    // One timestamp per message, and an empty line for each further line of its text, so that the
    // panes stay line for line.
    QTextCursor Stamps(m_TimeStamps->document());
    Stamps.movePosition(QTextCursor::End);
    QString StampText;
    if (Msg.NewLine) {
        StampText = FormatTimestamp(Msg.Timestamp);
        if (!m_TimeStamps->document()->isEmpty()) {
            Stamps.insertBlock();
        }
    }
    Stamps.insertText(StampText + QString(static_cast<int>(Msg.LineCount) - 1, QLatin1Char('\n')));
    if (IsSidebarVisible()) {
        ResizeSidebarToOptWidth();
    }
}

QString CConsoleWindow::FormatTimestamp(quint64 Micros) {
    const quint64 Seconds = Micros / 1000000;
    const unsigned Millis = static_cast<unsigned>((Micros / 1000) % 1000);
    const unsigned Us = static_cast<unsigned>(Micros % 1000);
    char Buffer[64];
    if (Seconds >= 3600) {
        std::snprintf(Buffer, sizeof(Buffer), "%u:%02u:%02u.%03u%s%03u%s",
                      static_cast<unsigned>(Seconds / 3600), static_cast<unsigned>((Seconds / 60) % 60),
                      static_cast<unsigned>(Seconds % 60), Millis, " ", Us, "");
    } else if (Seconds >= 60) {
        std::snprintf(Buffer, sizeof(Buffer), "%02u:%02u.%03u%s%03u%s", static_cast<unsigned>(Seconds / 60),
                      static_cast<unsigned>(Seconds % 60), Millis, " ", Us, "");
    } else {
        std::snprintf(Buffer, sizeof(Buffer), "%u.%03u%s%03u%s", static_cast<unsigned>(Seconds), Millis, " ",
                      Us, "");
    }
    return QString::fromLatin1(Buffer);
}

QString CConsoleWindow::GetText() const {
    return m_Text->toPlainText();
}

void CConsoleWindow::Clear() {
    m_Input->clear();
    m_Text->clear();
    m_TimeStamps->clear();
    ConsoleRing::Clear();
    ResizeSidebarToOptWidth();
}

void CConsoleWindow::SetFont(int Id, const QFont& Font) {
    if (Id == FONT_CONSOLE) {
        m_Text->setFont(Font);
        m_TimeStamps->setFont(Font);
        ResizeSidebarToOptWidth();
    }
}

void CConsoleWindow::SetColor(int Id, const QColor&) {
    Recolor(Id);
}

void CConsoleWindow::SetPreference(int Id, I64 Value) {
    if (Id == PREF_SHOW_TIMESTAMPS_CONSOLE) {
        SetSidebarVisible(Value != 0);
    }
}

void CConsoleWindow::changeEvent(QEvent* Event) {
    // Symbolic colours follow the palette.
    if (Event->type() == QEvent::PaletteChange) {
        Recolor(PALETTE_TEXT_ID);
        for (int Id = 0; Id < COLOR_COUNT; ++Id) {
            if (GetColorValue(Id) >= SYMCOLOR_BASE && GetColorValue(Id) <= SYMCOLOR_BASE_DARK) {
                Recolor(Id);
            }
        }
    }
    CWindow::changeEvent(Event);
}

void CConsoleWindow::Recolor(int Id) {
    const QColor Color = Id == PALETTE_TEXT_ID ? ResolveColor(COLOR_VALUE_TRANSPARENT) : GetColor(Id);
    QTextCursor Cursor(m_Text->document());
    for (QTextBlock Block = m_Text->document()->begin(); Block.isValid(); Block = Block.next()) {
        for (auto It = Block.begin(); !It.atEnd(); ++It) {
            const QTextFragment Fragment = It.fragment();
            QTextCharFormat Format = Fragment.charFormat();
            if (!Format.hasProperty(COLOR_ID_PROPERTY) || Format.intProperty(COLOR_ID_PROPERTY) != Id) {
                continue;
            }
            Format.setForeground(Color);
            Cursor.setPosition(Fragment.position());
            Cursor.setPosition(Fragment.position() + Fragment.length(), QTextCursor::KeepAnchor);
            Cursor.setCharFormat(Format);
        }
    }
}

void CConsoleWindow::SetLogFile(const QString& Path) {
    if (Path.isEmpty()) {
        CloseLogChannel(LOG_CHANNEL_CONSOLE);
    } else {
        OpenLogChannel(LOG_CHANNEL_CONSOLE, Path);
    }
}

bool CConsoleWindow::IsSidebarVisible() const {
    return !m_TimeStamps->isHidden();
}

void CConsoleWindow::SetSidebarVisible(bool Visible) {
    m_TimeStamps->setVisible(Visible);
    m_ActionShowSidebar->setChecked(Visible);
    if (Visible) {
        ResizeSidebarToOptWidth();
    }
}

void CConsoleWindow::ResizeSidebarToOptWidth() {
    const QFontMetrics Metrics(m_TimeStamps->font());
    int Widest = Metrics.horizontalAdvance(QStringLiteral("0.000 000"));
    const QTextBlock First = m_TimeStamps->cursorForPosition(QPoint(0, 0)).block();
    int Count = 0;
    for (QTextBlock B = First; B.isValid() && Count < 500; B = B.next(), ++Count) {
        Widest = qMax(Widest, Metrics.horizontalAdvance(B.text()));
    }
    m_TimeStamps->setFixedWidth(Widest + 2 * m_TimeStamps->frameWidth() +
                                static_cast<int>(m_TimeStamps->document()->documentMargin() * 2) + 4);
}

int CConsoleWindow::ExecuteCommand(const QString& Text) {
    return Commands::ExecuteCommandLine(Text);
}

void CConsoleWindow::AddCommandListener(CWindow* Window) {
    if (!Window || m_Listened.contains(QPointer<CWindow>(Window))) {
        return;
    }
    m_Listened.append(QPointer<CWindow>(Window));
    connect(Window, &CWindow::ActionTriggered, this, qOverload<QAction*>(&CConsoleWindow::OnActionTriggered));
    connect(Window, &CWindow::ActionPerformed, this, qOverload<QAction*>(&CConsoleWindow::OnActionPerformed));
}

void CConsoleWindow::RemoveCommandListener(CWindow* Window) {
    if (!Window) {
        return;
    }
    m_Listened.removeAll(QPointer<CWindow>(Window));
    disconnect(Window, &CWindow::ActionTriggered, this,
               qOverload<QAction*>(&CConsoleWindow::OnActionTriggered));
    disconnect(Window, &CWindow::ActionPerformed, this,
               qOverload<QAction*>(&CConsoleWindow::OnActionPerformed));
}

void CConsoleWindow::PrintCommandHelp() {
    const QStringList Help = Commands::GetCommandHelp();
    for (const QString& Line : Help) {
        PrintConsole(Line, COLOR_LOGGING_USER);
    }
}

void CConsoleWindow::PrintCommandDisabled(const QString& Text) {
    Commands::PrintCommandDisabled(Text);
}

void CConsoleWindow::OnCommandEntered(const QString& Text) {
    const bool Blank = Text.trimmed().isEmpty();
    if (!Blank && !m_History.contains(Text)) {
        m_History.prepend(Text);
    }
    m_HistoryIndex = -1;
    m_Input->clear();
    if (Blank) {
        AppendConsoleMsg(QStringLiteral(" "), COLOR_LOGGING_USER);
        return;
    }
    ExecuteCommand(Text);
}

bool CConsoleWindow::eventFilter(QObject* Watched, QEvent* Event) {
    // A pane copies its selection itself: Edit.Copy would echo into the pane and lose the selection.
    if ((Watched == m_Text || Watched == m_TimeStamps) &&
        (Event->type() == QEvent::ShortcutOverride || Event->type() == QEvent::KeyPress) &&
        static_cast<QKeyEvent*>(Event)->matches(QKeySequence::Copy)) {
        if (Event->type() == QEvent::KeyPress) {
            static_cast<QPlainTextEdit*>(Watched)->copy();
        }
        Event->accept();
        return true;
    }
    if (Watched == m_Input && Event->type() == QEvent::KeyPress) {
        auto* Key = static_cast<QKeyEvent*>(Event);
        if (Key->key() == Qt::Key_Up || Key->key() == Qt::Key_Down) {
            OnInputFieldKeyPressed(Key);
            return true;
        }
    }
    return CWindow::eventFilter(Watched, Event);
}

void CConsoleWindow::OnInputFieldKeyPressed(QKeyEvent* Event) {
    if (m_History.isEmpty()) {
        return;
    }
    const int Size = static_cast<int>(m_History.size());
    if (Event->key() == Qt::Key_Up) {
        m_HistoryIndex = m_HistoryIndex + 1 >= Size ? 0 : m_HistoryIndex + 1;
    } else {
        m_HistoryIndex = m_HistoryIndex - 1 < 0 ? Size - 1 : m_HistoryIndex - 1;
    }
    m_Input->setText(m_History[m_HistoryIndex]);
}

void CConsoleWindow::OnEditorContextMenuRequested(const QPoint& Pos) {
    QMenu* Menu = m_Text->createStandardContextMenu(Pos);
    Menu->addSeparator();
    Menu->addAction(m_ActionClear);
    Menu->addAction(m_ActionHelp);
    Menu->addAction(m_ActionShowSidebar);
    Menu->exec(m_Text->viewport()->mapToGlobal(Pos));
    delete Menu;
}

void CConsoleWindow::OnSidebarContextMenuRequested(const QPoint& Pos) {
    QMenu Menu;
    Menu.addAction(m_ActionShowSidebar);
    Menu.exec(m_TimeStamps->viewport()->mapToGlobal(Pos));
}

void CConsoleWindow::OnActionHelpTriggered() {
    PrintCommandHelp();
}

void CConsoleWindow::OnActionShowSidebarTriggered() {
    SetSidebarVisible(m_ActionShowSidebar->isChecked());
}

void CConsoleWindow::OnActionTriggered(QAction* Action) {
    Commands::ReportCommandTriggered(Action);
}

void CConsoleWindow::OnActionPerformed(QAction* Action) {
    Commands::ReportCommandPerformed(Action);
}
