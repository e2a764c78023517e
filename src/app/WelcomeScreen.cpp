#include "app/WelcomeScreen.h"

#include "app/core/Version.h"

#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

CWelcomeScreen::CWelcomeScreen(const QStringList& RecentProjects, const QFont& Font, QWidget* Parent)
    : QDialog(Parent) {
    setObjectName(QStringLiteral("WelcomeScreen"));
    setWindowTitle(QStringLiteral("Welcome to ") + Version::GetAppName(true));
    setFont(Font);

    auto* Title = new QLabel(Version::GetAppName(false, true), this);
    QFont Big = Font;
    Big.setPointSize(Font.pointSize() + 6);
    Big.setBold(true);
    Title->setFont(Big);

    auto* NewButton = new QPushButton(QStringLiteral("&New Project"), this);
    auto* WizardButton = new QPushButton(QStringLiteral("New Project &Wizard..."), this);
    auto* OpenButton = new QPushButton(QStringLiteral("&Open Project..."), this);
    auto* Buttons = new QVBoxLayout;
    Buttons->addWidget(NewButton);
    Buttons->addWidget(WizardButton);
    Buttons->addWidget(OpenButton);
    Buttons->addStretch(1);

    m_List = new QListWidget(this);
    for (const QString& Path : RecentProjects) {
        auto* Item = new QListWidgetItem(QFileInfo(Path).fileName() + QStringLiteral("  —  ") +
                                         QDir::toNativeSeparators(QFileInfo(Path).absolutePath()));
        Item->setData(Qt::UserRole, Path);
        Item->setToolTip(Path);
        m_List->addItem(Item);
    }
    // Enter opens the highlighted project, wherever the focus is but on another button.
    auto* OpenRecentButton = new QPushButton(QStringLiteral("Open &Recent Project"), this);
    OpenRecentButton->setDefault(true);
    connect(m_List, &QListWidget::currentItemChanged, OpenRecentButton,
            [OpenRecentButton](QListWidgetItem* Item) { OpenRecentButton->setEnabled(Item != nullptr); });
    OpenRecentButton->setEnabled(false);
    if (m_List->count() > 0) {
        m_List->setCurrentRow(0);
    }
    auto* Recent = new QVBoxLayout;
    Recent->addWidget(new QLabel(QStringLiteral("Recent Projects"), this));
    Recent->addWidget(m_List, 1);
    Recent->addWidget(OpenRecentButton, 0, Qt::AlignRight);

    auto* Body = new QHBoxLayout;
    Body->addLayout(Buttons);
    Body->addLayout(Recent, 1);
    auto* Layout = new QVBoxLayout(this);
    Layout->addWidget(Title);
    Layout->addLayout(Body, 1);
    resize(640, 360);

    connect(NewButton, &QPushButton::clicked, this, [this]() { Choose(NEW_PROJECT); });
    connect(WizardButton, &QPushButton::clicked, this, [this]() { Choose(NEW_PROJECT_WIZARD); });
    connect(OpenButton, &QPushButton::clicked, this, [this]() { Choose(OPEN_PROJECT); });
    connect(OpenRecentButton, &QPushButton::clicked, this, &CWelcomeScreen::OpenHighlighted);
    connect(m_List, &QListWidget::itemActivated, this, &CWelcomeScreen::OpenHighlighted);
    // The arrow keys move the highlight from the start.
    m_List->setFocus();
}

void CWelcomeScreen::OpenHighlighted() {
    const QListWidgetItem* Item = m_List->currentItem();
    if (!Item) {
        return;
    }
    m_Chosen = Item->data(Qt::UserRole).toString();
    Choose(OPEN_RECENT);
}

void CWelcomeScreen::Choose(int Result) {
    // exec() gives 0 for a closed dialog as well, so the choice is kept apart from it.
    m_Result = Result;
    accept();
}
