#include "app/PreferencesDialog.h"

#include "app/core/Colors.h"
#include "app/core/CommandTable.h"
#include "app/core/Fonts.h"
#include "app/core/Numbers.h"
#include "app/core/Settings.h"
#include "app/core/SysVars.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFontDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

const QString KEY_RECENT_PAGE = QStringLiteral("AppData/PreferencesDialog/RecentPageID");
const QString KEY_DNSA_GROUP = QStringLiteral("AppData/Dialogs/");

/// Sets a preference as the user would, through its command, and keeps it in the settings.
void SetPreference(int Id, I64 Value) {
    Commands::ExecCommand(CMD_EDIT_PREFERENCE, QString::fromLatin1(SysVars::GetVarRow(Id)->Name),
                          QString::number(Value), QStringLiteral("1"), QStringLiteral("1"));
}

QString ColorButtonStyle(const QColor& Color) {
    return QStringLiteral("background-color: %1; min-width: 48px;").arg(Color.name());
}

} // namespace

CPreferencesDialog::CPreferencesDialog(QWidget* Parent) : QDialog(Parent) {
    setObjectName(QStringLiteral("PreferencesDialog"));
    setWindowTitle(QStringLiteral("Preferences"));

    // Which preference stands on which page: each window's page has its own settings, the appearance
    // pages have the fonts and colours.
    const QList<PAGE> Pages = {
        {"General",
         "Application",
         {PREF_START_WITH_MOST_RECENT_PROJ, PREF_SHOW_PROJECT_WARNINGS_DIALOG,
          PREF_SHOW_PROGBAR_WHILE_RUNNING, PREF_SHOW_TOOLTIPS, PREF_DIALOG_SHOW_DNSA, PREF_RESET_DIALOG_DNSA,
          PREF_SESSION_SAVE_FLAGS, PREF_TIMESTAMP_FORMAT, PREF_SHOW_HEX_BLOCKS, PREF_HEX_BLOCK_SEPARATOR,
          PREF_DEC_BLOCK_SEPARATOR, PREF_BIN_BLOCK_SEPARATOR},
         {},
         {}},
        {"General", "Callgraph Window", {PREF_CG_GROUP_BY_ROOT_FUNCS}, {}, {}},
        {"General", "Callstack Window", {PREF_CALLSTACK_LAYOUT, PREF_CALLSTACK_DEPTH_LIMIT}, {}, {}},
        {"General", "Console Window", {PREF_SHOW_TIMESTAMPS_CONSOLE}, {}, {}},
        {"General",
         "Disassembly Window",
         {PREF_SHOW_SIDEBAR_ASM, PREF_SHOW_ASM_CODE_PROFILE, PREF_SHOW_ASM_SOURCE, PREF_SHOW_ASM_LABELS,
          PREF_SHOW_ENCODINGS_ASM},
         {},
         {}},
        {"General", "Functions Window", {PREF_PREPEND_FUNC_CLASS_NAMES}, {}, {}},
        {"General", "Instruction Trace Window", {PREF_SHOW_ENCODINGS_ITRACE}, {}, {}},
        {"General", "Power Graph Window", {PREF_MAX_POWER_SAMPLES}, {}, {}},
        {"General",
         "Source Viewer",
         {PREF_SHOW_EXPANSION_BAR, PREF_SHOW_SIDEBAR_SRC, PREF_SHOW_SRC_CODE_PROFILE,
          PREF_INDENT_INLINE_ASSEMBLY, PREF_LINE_NUMBER_FREQ, PREF_LOCK_HEADER_BAR, PREF_TAB_SPACING,
          PREF_SHOW_ENCODINGS_SRC, PREF_RESTRICT_SRC_EDIT},
         {},
         {}},
        {"General",
         "Table Windows",
         {PREF_SHOW_SYMBOL_ICONS, PREF_RESIZE_COL_ON_EXPAND, PREF_RESIZE_COL_ON_COLLAPSE,
          PREF_FILTER_BARS_DISABLED, PREF_MAX_SYMBOL_MEMBERS, PREF_SHOW_CHAR_TEXT, PREF_SHOW_SHORT_TEXT,
          PREF_SHOW_INT_TEXT, PREF_SHOW_CHAR_PTR_TEXT, PREF_SHOW_SHORT_PTR_TEXT, PREF_SHOW_INT_PTR_TEXT},
         {},
         {}},
        {"General",
         "Terminal Window",
         {PREF_TERMINAL_EOL_FORMAT, PREF_TERMINAL_ECHO_INPUT, PREF_TERMINAL_ZERO_TERM_INPUT,
          PREF_TERMINAL_NO_CONTROL_CHARS, PREF_TERMINAL_CLEAR_ON_RESET, PREF_TERMINAL_CAPTURE_SIZE_LIMIT},
         {},
         {}},
        {"General", "Timeline Window", {PREF_TIMELINE_TOOLTIPS}, {}, {}},
        {"Appearance",
         "Application",
         {},
         {FONT_APP, FONT_APP_MONO},
         {COLOR_SELECTION_HIGHLIGHT, COLOR_SELECTION_HIGHLIGHT_TEXT, COLOR_PROGRESS_BAR_PROGRESS,
          COLOR_PROGRESS_BAR_REMAINING}},
        {"Appearance",
         "Source Viewer",
         {},
         {FONT_SRC_CODE, FONT_SRC_ASM_CODE, FONT_LINE_NUMBERS, FONT_EXEC_COUNTERS},
         {COLOR_PC_ACTIVE, COLOR_PC_INACTIVE, COLOR_PC_BACKTRACE, COLOR_CALL_SITE_ACTIVE,
          COLOR_CALL_SITE_INACTIVE, COLOR_SYNTAX_KEYWORD, COLOR_SYNTAX_DIRECTIVE, COLOR_SYNTAX_STRING,
          COLOR_SYNTAX_COMMENT, COLOR_SYNTAX_TEXT, COLOR_EXEC_PROFILE_GOOD_INSTR,
          COLOR_EXEC_PROFILE_BAD_INSTR}},
        {"Appearance",
         "Disassembly",
         {},
         {FONT_ASM_CODE},
         {COLOR_SYNTAX_REGISTER, COLOR_SYNTAX_LABEL, COLOR_SYNTAX_MNEMONIC, COLOR_SYNTAX_IMMEDIATE,
          COLOR_ASM_LABEL_BACKG, COLOR_ASM_BACKG}},
        {"Appearance",
         "Console",
         {},
         {FONT_CONSOLE},
         {COLOR_LOGGING_SCRIPT, COLOR_LOGGING_USER, COLOR_LOGGING_ERROR, COLOR_LOGGING_TARVO}},
        {"Appearance",
         "Tables",
         {},
         {FONT_ITEM_NAME, FONT_ITEM_VALUE, FONT_TABLE_HEADER},
         {COLOR_CHANGE_LEVEL_1_BG, COLOR_CHANGE_LEVEL_2_BG, COLOR_CHANGE_LEVEL_3_BG, COLOR_CHANGE_LEVEL_1_FG,
          COLOR_CHANGE_LEVEL_2_FG, COLOR_CHANGE_LEVEL_3_FG, COLOR_TABLE_GRID_LINES, COLOR_SYMBOL_GLOBAL_VAR,
          COLOR_SYMBOL_LOCAL_VAR, COLOR_SYMBOL_CONSTANT, COLOR_SYMBOL_MEMBER, COLOR_SYMBOL_FUNCTION,
          COLOR_TABLE_FILTER_MATCH}},
    };

    m_Tree = new QTreeWidget(this);
    m_Tree->setHeaderHidden(true);
    m_Tree->setMaximumWidth(220);
    m_Pages = new QStackedWidget(this);
    m_PageTitle = new QLabel(this);
    QFont TitleFont = m_PageTitle->font();
    TitleFont.setBold(true);
    TitleFont.setPointSize(TitleFont.pointSize() + 2);
    m_PageTitle->setFont(TitleFont);

    QMap<QString, QTreeWidgetItem*> Groups;
    for (const PAGE& P : Pages) {
        const QString Group = QString::fromLatin1(P.Group);
        if (!Groups.contains(Group)) {
            auto* G = new QTreeWidgetItem(m_Tree, {Group});
            G->setFlags(Qt::ItemIsEnabled);
            G->setExpanded(true);
            Groups.insert(Group, G);
        }
        auto* Item = new QTreeWidgetItem(Groups[Group], {QString::fromLatin1(P.Title)});
        Item->setData(0, Qt::UserRole, m_Pages->addWidget(BuildPage(P)));
    }
    m_Tree->expandAll();

    auto* Right = new QVBoxLayout;
    Right->addWidget(m_PageTitle);
    Right->addWidget(m_Pages, 1);
    auto* Body = new QHBoxLayout;
    Body->addWidget(m_Tree);
    Body->addLayout(Right, 1);
    auto* Buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    auto* Layout = new QVBoxLayout(this);
    Layout->addLayout(Body, 1);
    Layout->addWidget(Buttons);
    resize(760, 520);

    connect(m_Tree, &QTreeWidget::currentItemChanged, this, &CPreferencesDialog::OnCurrentTreeItemChanged);
    connect(Buttons, &QDialogButtonBox::rejected, this, &CPreferencesDialog::OnButtonCloseClicked);

    // The page shown last, or the first.
    const int Recent = Settings::Value(KEY_RECENT_PAGE, 0).toInt();
    QTreeWidgetItem* Current = nullptr;
    for (QTreeWidgetItemIterator It(m_Tree); *It; ++It) {
        if ((*It)->data(0, Qt::UserRole).isValid() &&
            (!Current || (*It)->data(0, Qt::UserRole).toInt() == Recent)) {
            Current = *It;
            if (Current->data(0, Qt::UserRole).toInt() == Recent) {
                break;
            }
        }
    }
    m_Tree->setCurrentItem(Current);
}

QStringList CPreferencesDialog::GetPageTitles() const {
    QStringList Titles;
    for (QTreeWidgetItemIterator It(m_Tree); *It; ++It) {
        if ((*It)->parent()) {
            Titles << (*It)->parent()->text(0) + QLatin1Char('/') + (*It)->text(0);
        }
    }
    return Titles;
}

QWidget* CPreferencesDialog::BuildPreferenceRow(int Id, QWidget* Parent) {
    const SYSVAR_INFO* Row = SysVars::GetVarRow(Id);
    QStringList Texts;
    QList<I64> Values;
    const QString Label = QString::fromLatin1(Row->Label);
    if (SysVars::GetVarChoices(Row, Texts, Values)) {
        if (Texts == QStringList({QStringLiteral("no"), QStringLiteral("yes")})) {
            auto* Box = new QCheckBox(Label, Parent);
            Box->setObjectName(QLatin1String(Row->Name));
            Box->setChecked(SysVars::GetVarValue(Row) != 0);
            connect(Box, &QCheckBox::toggled, this, [Id](bool On) { SetPreference(Id, On ? 1 : 0); });
            return Box;
        }
        auto* Combo = new QComboBox(Parent);
        Combo->setObjectName(QLatin1String(Row->Name));
        for (int i = 0; i < Texts.size(); ++i) {
            Combo->addItem(Texts[i], QVariant::fromValue<qlonglong>(Values[i]));
        }
        Combo->setCurrentIndex(static_cast<int>(Values.indexOf(SysVars::GetVarValue(Row))));
        connect(Combo, &QComboBox::activated, this,
                [Id, Combo](int Index) { SetPreference(Id, Combo->itemData(Index).toLongLong()); });
        return Combo;
    }
    auto* Edit = new QLineEdit(SysVars::GetVarText(Row), Parent);
    Edit->setObjectName(QLatin1String(Row->Name));
    connect(Edit, &QLineEdit::editingFinished, this, [Id, Edit]() {
        I64 Value = 0;
        const SYSVAR_INFO* R = SysVars::GetVarRow(Id);
        I64 Min = 0;
        I64 Max = 0;
        if (Numbers::ParseInteger(Edit->text(), Value) && SysVars::GetVarRange(R, Min, Max) &&
            static_cast<U64>(Value) >= static_cast<U64>(Min) &&
            static_cast<U64>(Value) <= static_cast<U64>(Max)) {
            SetPreference(Id, Value);
        }
        Edit->setText(SysVars::GetVarText(R));
    });
    return Edit;
}

QWidget* CPreferencesDialog::BuildPage(const PAGE& Page) {
    auto* Widget = new QWidget(m_Pages);
    auto* Layout = new QVBoxLayout(Widget);
    if (!Page.Preferences.isEmpty()) {
        auto* Box = new QGroupBox(QStringLiteral("Settings"), Widget);
        auto* Form = new QFormLayout(Box);
        QGroupBox* CharGroup = nullptr;
        QFormLayout* CharForm = nullptr;
        for (int Id : Page.Preferences) {
            QWidget* Row = BuildPreferenceRow(Id, Box);
            if (Id >= PREF_SHOW_CHAR_TEXT && Id <= PREF_SHOW_INT_PTR_TEXT) {
                // The character value switches stand together.
                if (!CharGroup) {
                    CharGroup = new QGroupBox(QStringLiteral("Show Character Value"), Box);
                    CharForm = new QFormLayout(CharGroup);
                    Form->addRow(CharGroup);
                }
                Row->setParent(CharGroup);
                CharForm->addRow(Row);
            } else if (qobject_cast<QCheckBox*>(Row)) {
                Form->addRow(Row);
            } else {
                Form->addRow(QString::fromLatin1(SysVars::GetVarRow(Id)->Label), Row);
            }
        }
        Layout->addWidget(Box);
    }
    if (!Page.Fonts.isEmpty()) {
        auto* Box = new QGroupBox(QStringLiteral("Fonts"), Widget);
        auto* Form = new QFormLayout(Box);
        for (int Id : Page.Fonts) {
            auto* Button =
                new QPushButton(Fonts::GetFont(Id).toString().section(QLatin1Char(','), 0, 1), Box);
            Button->setObjectName(QLatin1String(g_FontInfo[Id].Name));
            Button->setToolTip(QLatin1String(g_FontInfo[Id].Description));
            connect(Button, &QPushButton::clicked, this, [this, Id, Button]() {
                bool Ok = false;
                const QFont Font = QFontDialog::getFont(&Ok, Fonts::GetFont(Id), this);
                if (Ok) {
                    Commands::ExecCommand(CMD_EDIT_FONT, QLatin1String(g_FontInfo[Id].Name), Font.toString());
                    Button->setText(Fonts::GetFont(Id).toString().section(QLatin1Char(','), 0, 1));
                }
            });
            Form->addRow(QLatin1String(g_FontInfo[Id].Label), Button);
        }
        Layout->addWidget(Box);
    }
    if (!Page.Colors.isEmpty()) {
        auto* Box = new QGroupBox(QStringLiteral("Colors"), Widget);
        auto* Form = new QFormLayout(Box);
        for (int Id : Page.Colors) {
            auto* Button = new QPushButton(Box);
            Button->setObjectName(QLatin1String(g_ColorInfo[Id].Name));
            Button->setToolTip(QLatin1String(g_ColorInfo[Id].Description));
            Button->setStyleSheet(ColorButtonStyle(GetColor(Id)));
            connect(Button, &QPushButton::clicked, this, [this, Id, Button]() {
                const QColor Color =
                    QColorDialog::getColor(GetColor(Id), this, QLatin1String(g_ColorInfo[Id].Label));
                if (Color.isValid()) {
                    Commands::ExecCommand(CMD_EDIT_COLOR, QLatin1String(g_ColorInfo[Id].Name), Color.name());
                    Button->setStyleSheet(ColorButtonStyle(GetColor(Id)));
                }
            });
            Form->addRow(QLatin1String(g_ColorInfo[Id].Label), Button);
        }
        Layout->addWidget(Box);
    }
    Layout->addStretch(1);
    return Widget;
}

void CPreferencesDialog::OnCurrentTreeItemChanged(QTreeWidgetItem* Current, QTreeWidgetItem*) {
    if (!Current || !Current->data(0, Qt::UserRole).isValid()) {
        return;
    }
    const int Page = Current->data(0, Qt::UserRole).toInt();
    m_Pages->setCurrentIndex(Page);
    m_PageTitle->setText(Current->text(0));
    Settings::SetValue(KEY_RECENT_PAGE, Page);
}

void CPreferencesDialog::OnButtonCloseClicked() {
    accept();
}

void CPreferencesDialog::done(int Result) {
    // The reset switch acts when the dialog is closed, and never stays on.
    const SYSVAR_INFO* Reset = SysVars::GetVarRow(PREF_RESET_DIALOG_DNSA);
    if (Result == QDialog::Accepted && SysVars::GetVarValue(Reset) != 0) {
        const QStringList Keys = Settings::Map().keys();
        for (const QString& Key : Keys) {
            if (Key.startsWith(KEY_DNSA_GROUP)) {
                Settings::Remove(Key);
            }
        }
    }
    SysVars::SetVarValue(Reset, 0, true);
    QDialog::done(Result);
}
