#include "app/WarningsDialog.h"

#include "app/core/SysVars.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

CWarningsDialog::CWarningsDialog(const QString& ProjectPath, const QStringList& Warnings, QWidget* Parent)
    : QDialog(Parent), m_Path(ProjectPath) {
    setObjectName(QStringLiteral("WarningsDialog"));
    setWindowTitle(QStringLiteral("Project File Warnings"));

    m_List = new QListWidget(this);
    m_List->addItems(Warnings);
    m_List->setWordWrap(true);
    m_Edit = new QPushButton(QStringLiteral("Edit"), this);
    m_Edit->setEnabled(!m_Path.isEmpty());
    m_DoNotShow = new QPushButton(QStringLiteral("  Ignore && Do Not Show Again  "), this);
    m_Ignore = new QPushButton(QStringLiteral("Ignore"), this);
    m_Cancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_Ignore->setDefault(true);

    auto* Buttons = new QHBoxLayout;
    Buttons->addWidget(m_Edit);
    Buttons->addStretch(1);
    Buttons->addWidget(m_DoNotShow);
    Buttons->addWidget(m_Ignore);
    Buttons->addWidget(m_Cancel);
    auto* Layout = new QVBoxLayout(this);
    Layout->addWidget(new QLabel(QStringLiteral("The project file contains errors:"), this));
    Layout->addWidget(m_List, 1);
    Layout->addLayout(Buttons);
    resize(720, 300);

    connect(m_Edit, &QPushButton::clicked, this, &CWarningsDialog::OnEditClicked);
    connect(m_DoNotShow, &QPushButton::clicked, this, &CWarningsDialog::OnDoNotShowClicked);
    connect(m_Ignore, &QPushButton::clicked, this, &QDialog::accept);
    connect(m_Cancel, &QPushButton::clicked, this, &QDialog::reject);
}

void CWarningsDialog::OnEditClicked() {
    // The dialog stays up, so that the user can mend the file and then decide.
    QDesktopServices::openUrl(QUrl::fromLocalFile(m_Path));
}

void CWarningsDialog::OnDoNotShowClicked() {
    // A preference: it is kept in the settings as well.
    SysVars::SetVarValue(SysVars::GetVarRow(PREF_SHOW_PROJECT_WARNINGS_DIALOG), 0, true);
    accept();
}
