#pragma once

#include <QDialog>
#include <QList>

class QLabel;
class QStackedWidget;
class QTreeWidget;
class QTreeWidgetItem;
class QWidget;

/// "Preferences": a tree of pages, each with its variables, fonts and colours. Every change takes effect at
/// once through Edit.Preference, Edit.Font or Edit.Color, so it is echoed; Close keeps the changes. The
/// dialog opens on the page it showed last. GUI thread.
class CPreferencesDialog : public QDialog {
    Q_OBJECT

public:
    explicit CPreferencesDialog(QWidget* Parent = nullptr);

    QTreeWidget* GetTree() const { return m_Tree; }
    /// Page titles in tree order ("General/Console Window", ...).
    QStringList GetPageTitles() const;

public slots:
    void OnCurrentTreeItemChanged(QTreeWidgetItem* Current, QTreeWidgetItem* Previous);
    void OnButtonCloseClicked();

protected:
    void done(int Result) override;

private:
    struct PAGE {
        const char* Group;
        const char* Title;
        QList<int> Preferences;
        QList<int> Fonts;
        QList<int> Colors;
    };
    QWidget* BuildPage(const PAGE& Page);
    QWidget* BuildPreferenceRow(int Id, QWidget* Parent);

    QTreeWidget* m_Tree;
    QStackedWidget* m_Pages;
    QLabel* m_PageTitle;
};
