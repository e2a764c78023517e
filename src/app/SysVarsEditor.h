#pragma once

#include <QDialog>

#include <functional>

class QAbstractButton;
class QAction;
class QPushButton;
class QTableWidget;
class QTableWidgetItem;

/// "System Variables": the variables marked for the editor, their values, ranges and descriptions.
/// Changes take effect at once and are echoed as Edit.SysVar. GUI thread.
class CSysVarsEditor : public QDialog {
    Q_OBJECT

public:
    explicit CSysVarsEditor(QWidget* Parent = nullptr);

    /// What Save runs to write the system settings into the project; Save is disabled without it.
    static void SetWriteSystemSettings(std::function<bool()> Write);

    QTableWidget* GetTable() const { return m_Table; }
    /// Sets a value from a text as an edit of the value cell does; false when the text is refused.
    bool SetValueText(int TableRow, const QString& Text);

private slots:
    void OnButtonClicked(QAbstractButton* Button);
    void OnTableClicked(int Row, int Column);
    void OnItemTextChanged(QTableWidgetItem* Item);
    void OnMenuItemSelected(QAction* Action);

private:
    void Fill();
    void ShowValue(int TableRow);

    QTableWidget* m_Table;
    QPushButton* m_Save;
    QList<int> m_Ids;
    bool m_Filling = false;
    int m_MenuRow = -1;
};
