#pragma once

#include <QDialog>
#include <QStringList>

class QListWidget;
class QPushButton;

/// "Project File Warnings": the list of what the project check found, with Edit (opens the project file
/// in the system's editor and stays up), "Ignore && Do Not Show Again" (turns the dialog off and accepts),
/// Ignore (the default, accepts) and Cancel (refuses). GUI thread.
class CWarningsDialog : public QDialog {
    Q_OBJECT

public:
    CWarningsDialog(const QString& ProjectPath, const QStringList& Warnings, QWidget* Parent = nullptr);

    QListWidget* GetList() const { return m_List; }
    QPushButton* GetEditButton() const { return m_Edit; }
    QPushButton* GetDoNotShowButton() const { return m_DoNotShow; }
    QPushButton* GetIgnoreButton() const { return m_Ignore; }
    QPushButton* GetCancelButton() const { return m_Cancel; }

private slots:
    void OnEditClicked();
    void OnDoNotShowClicked();

private:
    QString m_Path;
    QListWidget* m_List;
    QPushButton* m_Edit;
    QPushButton* m_DoNotShow;
    QPushButton* m_Ignore;
    QPushButton* m_Cancel;
};
