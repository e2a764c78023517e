#pragma once

#include <QDialog>
#include <QStringList>

class QListWidget;

/// The start dialog shown when there are recent projects and the most recent is not opened by itself.
/// Results: 0 new project, 1 new project with the wizard, 2 open a project, 3 open the chosen recent one.
class CWelcomeScreen : public QDialog {
    Q_OBJECT

public:
    enum RESULTS { NEW_PROJECT = 0, NEW_PROJECT_WIZARD = 1, OPEN_PROJECT = 2, OPEN_RECENT = 3 };

    CWelcomeScreen(const QStringList& RecentProjects, const QFont& Font, QWidget* Parent = nullptr);
    /// The result after exec(), or -1 when the dialog was closed without a choice.
    int GetResult() const { return m_Result; }
    /// The recent project chosen with result 3.
    QString GetChosenProject() const { return m_Chosen; }

private:
    void Choose(int Result);
    void OpenHighlighted();

    QListWidget* m_List;
    QString m_Chosen;
    int m_Result = -1;
};
