#include "app/SysVarsEditor.h"

#include "app/core/CommandTable.h"
#include "app/core/SysVars.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QMenu>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

enum COLUMNS { COL_NAME, COL_VALUE, COL_RANGE, COL_DESCRIPTION };

std::function<bool()>& WriteHook() {
    static std::function<bool()> s_Write;
    return s_Write;
}

/// The range as a hint: the choices, the bounds, or the room of a text.
QString RangeHint(const SYSVAR_INFO* Row) {
    QStringList Texts;
    QList<I64> Values;
    if (SysVars::GetVarChoices(Row, Texts, Values)) {
        return Texts.join(QStringLiteral(", "));
    }
    I64 Min = 0;
    I64 Max = 0;
    if (SysVars::GetVarRange(Row, Min, Max)) {
        if (Row->Type == &SYSVAR_TYPE_SIGNED) {
            return QStringLiteral("%1 .. %2").arg(Min).arg(Max);
        }
        return QStringLiteral("%1 .. %2").arg(static_cast<U64>(Min)).arg(static_cast<U64>(Max));
    }
    if (Row->Type == &SYSVAR_TYPE_STRING) {
        return QStringLiteral("text of up to %1 characters").arg(Row->TextSize - 1);
    }
    return QString();
}

} // namespace

void CSysVarsEditor::SetWriteSystemSettings(std::function<bool()> Write) {
    WriteHook() = std::move(Write);
}

CSysVarsEditor::CSysVarsEditor(QWidget* Parent) : QDialog(Parent) {
    setObjectName(QStringLiteral("SysVarsEditor"));
    setWindowTitle(QStringLiteral("System Variables"));
    m_Table = new QTableWidget(0, 4, this);
    m_Table->setHorizontalHeaderLabels({QStringLiteral("Name"), QStringLiteral("Value"),
                                        QStringLiteral("Range"), QStringLiteral("Description")});
    m_Table->verticalHeader()->hide();
    m_Table->horizontalHeader()->setStretchLastSection(true);
    m_Table->setSelectionBehavior(QAbstractItemView::SelectRows);

    auto* Buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    m_Save = Buttons->addButton(QStringLiteral("&Save"), QDialogButtonBox::AcceptRole);
    m_Save->setEnabled(static_cast<bool>(WriteHook()));
    if (!WriteHook()) {
        m_Save->setToolTip(QStringLiteral("Open a project to save the system settings into it"));
    }

    auto* Layout = new QVBoxLayout(this);
    Layout->addWidget(m_Table);
    Layout->addWidget(Buttons);
    resize(820, 360);

    Fill();
    connect(Buttons, &QDialogButtonBox::clicked, this, &CSysVarsEditor::OnButtonClicked);
    connect(m_Table, &QTableWidget::cellClicked, this, &CSysVarsEditor::OnTableClicked);
    connect(m_Table, &QTableWidget::itemChanged, this, &CSysVarsEditor::OnItemTextChanged);
}

void CSysVarsEditor::Fill() {
    m_Filling = true;
    for (I32 Id = 0; Id < SYSVAR_COUNT; ++Id) {
        const SYSVAR_INFO* Row = SysVars::GetVarRow(Id);
        if (Row->InEditor != 1) {
            continue;
        }
        const int R = m_Table->rowCount();
        m_Table->insertRow(R);
        m_Ids.append(Id);
        auto* Name = new QTableWidgetItem(QString::fromLatin1(Row->Label));
        Name->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        Name->setToolTip(QString::fromLatin1(Row->Name));
        auto* Value = new QTableWidgetItem;
        QStringList Texts;
        QList<I64> Values;
        if (SysVars::GetVarChoices(Row, Texts, Values)) {
            // A choice is made from the drop-down menu, not typed.
            Value->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
            Value->setData(Qt::DecorationRole, style()->standardIcon(QStyle::SP_ArrowDown));
        }
        auto* Range = new QTableWidgetItem(RangeHint(Row));
        Range->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        auto* Description = new QTableWidgetItem(QString::fromLatin1(Row->Description));
        Description->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        m_Table->setItem(R, COL_NAME, Name);
        m_Table->setItem(R, COL_VALUE, Value);
        m_Table->setItem(R, COL_RANGE, Range);
        m_Table->setItem(R, COL_DESCRIPTION, Description);
        ShowValue(R);
    }
    m_Table->resizeColumnsToContents();
    m_Filling = false;
}

void CSysVarsEditor::ShowValue(int TableRow) {
    const bool Was = m_Filling;
    m_Filling = true;
    m_Table->item(TableRow, COL_VALUE)->setText(SysVars::GetVarText(SysVars::GetVarRow(m_Ids[TableRow])));
    m_Filling = Was;
}

bool CSysVarsEditor::SetValueText(int TableRow, const QString& Text) {
    if (TableRow < 0 || TableRow >= m_Ids.size()) {
        return false;
    }
    const SYSVAR_INFO* Row = SysVars::GetVarRow(m_Ids[TableRow]);
    const QByteArray Bytes = Text.trimmed().toUtf8();
    // The editor checks the text against the range; the command then sets it, tells the owners and echoes.
    const I64 Before = SysVars::GetVarValue(Row);
    const QString BeforeText = SysVars::GetVarString(Row);
    const int Result = Row->Type->ToValue(Row, 0, Bytes.constData());
    bool Accepted = Result >= 0;
    if (Accepted) {
        const QString Canonical = SysVars::GetVarText(Row);
        if (Row->Type == &SYSVAR_TYPE_STRING) {
            SysVars::SetVarText(Row, BeforeText.toUtf8().constData(), 0);
        } else {
            SysVars::SetVarValue(Row, Before, false);
        }
        Commands::ExecCommand(CMD_EDIT_SYSVAR, QString::fromLatin1(Row->Name), Canonical);
    }
    ShowValue(TableRow);
    return Accepted;
}

void CSysVarsEditor::OnItemTextChanged(QTableWidgetItem* Item) {
    if (m_Filling || !Item || Item->column() != COL_VALUE) {
        return;
    }
    SetValueText(Item->row(), Item->text());
}

void CSysVarsEditor::OnTableClicked(int Row, int Column) {
    if (Column != COL_VALUE || Row < 0 || Row >= m_Ids.size()) {
        return;
    }
    QStringList Texts;
    QList<I64> Values;
    if (!SysVars::GetVarChoices(SysVars::GetVarRow(m_Ids[Row]), Texts, Values)) {
        m_Table->editItem(m_Table->item(Row, Column));
        return;
    }
    QMenu Menu(this);
    for (const QString& Text : Texts) {
        Menu.addAction(Text);
    }
    m_MenuRow = Row;
    connect(&Menu, &QMenu::triggered, this, &CSysVarsEditor::OnMenuItemSelected);
    const QRect Cell = m_Table->visualItemRect(m_Table->item(Row, Column));
    Menu.exec(m_Table->viewport()->mapToGlobal(Cell.bottomLeft()));
}

void CSysVarsEditor::OnMenuItemSelected(QAction* Action) {
    SetValueText(m_MenuRow, Action->text());
}

void CSysVarsEditor::OnButtonClicked(QAbstractButton* Button) {
    if (Button == m_Save) {
        m_Table->setCurrentItem(nullptr);
        if (WriteHook()) {
            WriteHook()();
        }
        accept();
    } else {
        reject();
    }
}
