#include "app/ProjectWizard.h"

#include "analysis/CorePluginLoader.h"
#include "app/core/Automation.h"
#include "app/core/Settings.h"
#include "script/ProjectText.h"
#include "target/DeviceDataModel.h"
#include "target/ui/DeviceSelectionDialog.h"
#include "views/MessageBox.h"

#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace {

const QString KEY = QStringLiteral("AppData/ProjectWizard/");

const struct {
    const char* Title;
    const char* SubTitle;
} s_PageTexts[] = {{"Target Device", "Choose a Target Device"},
                   {"Connection Settings", "Choose a Target and Host Interface"},
                   {"Program File", "Choose the Program to be debugged"}};

const char* const s_Speeds[] = {"50 MHz",  "25 MHz", "20 MHz", "15 MHz", "12 MHz", "10 MHz",  "8 MHz",
                                "5 MHz",   "4 MHz",  "3 MHz",  "2 MHz",  "1 MHz",  "500 kHz", "200 kHz",
                                "100 kHz", "50 kHz", "20 kHz", "10 kHz", "5 kHz",  "2 kHz",   "1 kHz"};

/// A line edit with a button behind it.
QHBoxLayout* Row(QLineEdit* Edit, QPushButton* Button) {
    auto* Layout = new QHBoxLayout;
    Layout->addWidget(Edit, 1);
    Layout->addWidget(Button);
    return Layout;
}

QString DirOfText(const QString& Text) {
    return Text.trimmed().isEmpty() ? QString() : QFileInfo(Text.trimmed()).absolutePath();
}

void SelectText(QComboBox* Box, const QString& Text) {
    const int Index = Box->findText(Text);
    if (Index >= 0) {
        Box->setCurrentIndex(Index);
    }
}

} // namespace

CProjectWizard::CProjectWizard(QWidget* Parent) : QDialog(Parent) {
    setObjectName(QStringLiteral("ProjectWizard"));
    setWindowTitle(QStringLiteral("New Project Wizard"));

    m_Title = new QLabel(this);
    m_Title->setObjectName(QStringLiteral("labelPageTitle"));
    QFont Bold = m_Title->font();
    Bold.setBold(true);
    Bold.setPointSize(Bold.pointSize() + 2);
    m_Title->setFont(Bold);
    m_SubTitle = new QLabel(this);
    m_SubTitle->setObjectName(QStringLiteral("labelPageSubTitle"));

    m_Pages = new QStackedWidget(this);
    m_Pages->addWidget(MakeTargetPage());
    m_Pages->addWidget(MakeConnectionPage());
    m_Pages->addWidget(MakeDataFilePage());

    m_Back = new QPushButton(QStringLiteral("< &Back"), this);
    m_Back->setObjectName(QStringLiteral("buttonBack"));
    m_Next = new QPushButton(QStringLiteral("&Next >"), this);
    m_Next->setObjectName(QStringLiteral("buttonNext"));
    m_Finish = new QPushButton(QStringLiteral("&Finish"), this);
    m_Finish->setObjectName(QStringLiteral("buttonFinish"));
    m_Cancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_Cancel->setObjectName(QStringLiteral("buttonCancel"));
    auto* Buttons = new QHBoxLayout;
    Buttons->addStretch(1);
    Buttons->addWidget(m_Back);
    Buttons->addWidget(m_Next);
    Buttons->addWidget(m_Finish);
    Buttons->addWidget(m_Cancel);

    auto* Layout = new QVBoxLayout(this);
    Layout->addWidget(m_Title);
    Layout->addWidget(m_SubTitle);
    Layout->addWidget(m_Pages, 1);
    Layout->addLayout(Buttons);
    resize(560, 300);

    connect(m_Pages, &QStackedWidget::currentChanged, this, &CProjectWizard::OnCurrentPageChanged);
    connect(m_Device, &QLineEdit::textChanged, this, &CProjectWizard::ValidatePageTargetSettings);
    connect(m_SelectDevice, &QPushButton::clicked, this, &CProjectWizard::OnButtonSelectDevicePressed);
    connect(m_SelectPeripherals, &QPushButton::clicked, this,
            &CProjectWizard::OnButtonSelectPeripheralsPressed);
    connect(m_SelectDataFile, &QPushButton::clicked, this, &CProjectWizard::OnButtonSelectDataFilePressed);
    connect(m_HostIF, &QComboBox::currentIndexChanged, this,
            &CProjectWizard::OnComboBoxHostInterfaceItemChanged);
    connect(m_Back, &QPushButton::clicked, this, &CProjectWizard::OnButtonBackPressed);
    connect(m_Next, &QPushButton::clicked, this, &CProjectWizard::OnButtonNextPressed);
    connect(m_Finish, &QPushButton::clicked, this, &CProjectWizard::OnButtonFinishPressed);
    connect(m_Cancel, &QPushButton::clicked, this, &CProjectWizard::OnButtonCancelPressed);

    LoadRemembered();
    OnCurrentPageChanged(PAGE_TARGET_SETTINGS);
}

QWidget* CProjectWizard::MakeTargetPage() {
    auto* Page = new QWidget(this);
    Page->setObjectName(QStringLiteral("pageTargetSettings"));
    m_Device = new QLineEdit(Page);
    m_Device->setObjectName(QStringLiteral("editBoxTargetDevice"));
    m_SelectDevice = new QPushButton(QStringLiteral("Choose via Dialog"), Page);
    m_SelectDevice->setObjectName(QStringLiteral("buttonSelectDevice"));
    m_Peripherals = new QLineEdit(Page);
    m_Peripherals->setObjectName(QStringLiteral("editBoxTargetPeripherals"));
    m_SelectPeripherals = new QPushButton(QStringLiteral("..."), Page);
    m_SelectPeripherals->setObjectName(QStringLiteral("buttonSelectPeripherals"));
    auto* Form = new QFormLayout(Page);
    Form->addRow(QStringLiteral("Device"), Row(m_Device, m_SelectDevice));
    Form->addRow(QStringLiteral("Peripherals (optional)"), Row(m_Peripherals, m_SelectPeripherals));
    return Page;
}

QWidget* CProjectWizard::MakeConnectionPage() {
    auto* Page = new QWidget(this);
    Page->setObjectName(QStringLiteral("pageConnectionSettings"));
    m_TargetIF = new QComboBox(Page);
    m_TargetIF->setObjectName(QStringLiteral("comboBoxTargetInterface"));
    m_TargetIF->addItems(
        {QStringLiteral("JTAG"), QStringLiteral("SWD"), QStringLiteral("FINE"), QStringLiteral("cJTAG")});
    m_Speed = new QComboBox(Page);
    m_Speed->setObjectName(QStringLiteral("comboBoxTIFSpeed"));
    for (const char* Speed : s_Speeds) {
        m_Speed->addItem(QLatin1String(Speed));
    }
    m_HostIF = new QComboBox(Page);
    m_HostIF->setObjectName(QStringLiteral("comboBoxHostInterface"));
    m_HostIF->addItems({QStringLiteral("USB"), QStringLiteral("IP")});
    m_HostOption = new QLineEdit(Page);
    m_HostOption->setObjectName(QStringLiteral("editBoxHostOption"));
    m_HostOptionLabel = new QLabel(QStringLiteral("Serial No (optional)"), Page);
    auto* Form = new QFormLayout(Page);
    Form->addRow(QStringLiteral("Target Interface"), m_TargetIF);
    Form->addRow(QStringLiteral("Target Interface Speed"), m_Speed);
    Form->addRow(QStringLiteral("Host Interface"), m_HostIF);
    Form->addRow(m_HostOptionLabel, m_HostOption);
    return Page;
}

QWidget* CProjectWizard::MakeDataFilePage() {
    auto* Page = new QWidget(this);
    Page->setObjectName(QStringLiteral("pageDataFile"));
    m_DataFile = new QLineEdit(Page);
    m_DataFile->setObjectName(QStringLiteral("editBoxDataFile"));
    m_SelectDataFile = new QPushButton(QStringLiteral("..."), Page);
    m_SelectDataFile->setObjectName(QStringLiteral("buttonSelectDataFile"));
    auto* Layout = new QVBoxLayout(Page);
    Layout->addWidget(
        new QLabel(QStringLiteral("ELF, Motorola S-record, Intel Hex, or Binary file (optional)"), Page));
    Layout->addLayout(Row(m_DataFile, m_SelectDataFile));
    Layout->addStretch(1);
    return Page;
}

int CProjectWizard::GetCurrentPage() const {
    return m_Pages->currentIndex();
}

QString CProjectWizard::DeviceNameOf(const QString& Text) {
    const qsizetype Open = Text.lastIndexOf(QLatin1Char('('));
    return (Open >= 0 ? Text.left(Open) : Text).trimmed();
}

void CProjectWizard::LoadRemembered() {
    m_Device->setText(Settings::Value(KEY + QStringLiteral("Device")).toString());
    m_Peripherals->setText(Settings::Value(KEY + QStringLiteral("PeripheralFile")).toString());
    SelectText(m_TargetIF,
               Settings::Value(KEY + QStringLiteral("TargetInterface"), QStringLiteral("JTAG")).toString());
    SelectText(m_Speed,
               Settings::Value(KEY + QStringLiteral("TifSpeed"), QStringLiteral("1 MHz")).toString());
    SelectText(m_HostIF,
               Settings::Value(KEY + QStringLiteral("HostInterface"), QStringLiteral("USB")).toString());
    OnComboBoxHostInterfaceItemChanged();
    m_HostOption->setText(Settings::Value(KEY + QStringLiteral("HostOption")).toString());
    m_DataFile->setText(Settings::Value(KEY + QStringLiteral("DataFile")).toString());
}

void CProjectWizard::StoreRemembered() {
    const struct {
        const char* Key;
        QString Value;
    } Values[] = {
        {"Device", m_Device->text().trimmed()},         {"PeripheralFile", m_Peripherals->text().trimmed()},
        {"TargetInterface", m_TargetIF->currentText()}, {"TifSpeed", m_Speed->currentText()},
        {"HostInterface", m_HostIF->currentText()},     {"HostOption", m_HostOption->text().trimmed()},
        {"DataFile", m_DataFile->text().trimmed()}};
    // An empty answer isn't kept, so the next run doesn't bring back an older one.
    for (const auto& V : Values) {
        if (V.Value.isEmpty()) {
            Settings::Remove(KEY + QLatin1String(V.Key));
        } else {
            Settings::SetValue(KEY + QLatin1String(V.Key), V.Value);
        }
    }
}

QStringList CProjectWizard::MakeLines() const {
    using ProjectText::CommandLine;
    QStringList Lines;
    if (!m_CorePluginPath.isEmpty()) {
        Lines << CommandLine("Project.SetCorePlugin", {m_CorePluginPath});
    }
    Lines << CommandLine("Project.SetDevice", {DeviceNameOf(m_Device->text())})
          << CommandLine("Project.SetHostIF", {m_HostIF->currentText(), m_HostOption->text().trimmed()})
          << CommandLine("Project.SetTargetIF", {m_TargetIF->currentText()})
          << CommandLine("Project.SetTIFSpeed", {m_Speed->currentText()});
    if (!m_Peripherals->text().trimmed().isEmpty()) {
        Lines << CommandLine("Project.AddSvdFile", {m_Peripherals->text().trimmed()});
    }
    if (!m_DataFile->text().trimmed().isEmpty()) {
        Lines << CommandLine("File.Open", {m_DataFile->text().trimmed()});
    }
    return Lines;
}

void CProjectWizard::ValidatePageTargetSettings() {
    m_Next->setEnabled(!m_Device->text().trimmed().isEmpty());
}

void CProjectWizard::ValidatePageConnectionSettings() {
    // Every choice of the lists is valid, and so is an empty serial number or address.
    m_Next->setEnabled(true);
}

void CProjectWizard::ValidatePageDataFile() {
    // No program file is a valid answer: the project gets none.
    m_Finish->setEnabled(true);
}

void CProjectWizard::OnCurrentPageChanged(int Page) {
    const int Index = qBound(0, Page, 2);
    m_Title->setText(QLatin1String(s_PageTexts[Index].Title));
    m_SubTitle->setText(QLatin1String(s_PageTexts[Index].SubTitle));
    m_Back->setEnabled(Index > PAGE_TARGET_SETTINGS);
    const bool Last = Index == PAGE_DATA_FILE;
    m_Next->setVisible(!Last);
    m_Finish->setVisible(Last);
    m_Next->setDefault(!Last);
    m_Finish->setDefault(Last);
    switch (Index) {
    case PAGE_TARGET_SETTINGS:
        ValidatePageTargetSettings();
        break;
    case PAGE_CONNECTION_SETTINGS:
        ValidatePageConnectionSettings();
        break;
    default:
        ValidatePageDataFile();
        break;
    }
}

void CProjectWizard::OnButtonSelectDevicePressed() {
    CDeviceSelectionDialog Dialog(this);
    const QString Current = m_Device->text();
    Dialog.SetDevice(DeviceNameOf(Current), Current.contains(QLatin1String("(Big Endian)")) ? 1 : 0, 0);
    if (MessageBox::Exec(&Dialog, QDialog::Rejected) != QDialog::Accepted) {
        return;
    }
    const QString Name = Dialog.GetDeviceName();
    m_Device->setText(Dialog.GetEndian() ? Name + QStringLiteral(" (Big Endian)") : Name);
    // The core plug-in of the device's core: without its default file the user names one, which the
    // project then keeps.
    const CDeviceDataModel* Model = Dialog.GetModel();
    const U32 Core = Model->GetCore(Model->FindRow(Name));
    m_CorePluginPath.clear();
    const QString Default = CorePluginLoader::GetDefaultPath(Core);
    if (Default.isEmpty() || QFileInfo(Default).isFile() || Automation::IsActive()) {
        return;
    }
    MessageBox::Inform(
        this, QMessageBox::Warning, QStringLiteral("Project Warning"),
        QStringLiteral("Arnex could not locate the target core support plugin for the selected "
                       "device.\nPlease specify the file location manually."));
    m_CorePluginPath = QFileDialog::getOpenFileName(this, QStringLiteral("Project Warning"), QString(),
                                                    QStringLiteral("Core plug-ins (*.so)"));
}

void CProjectWizard::OnButtonSelectPeripheralsPressed() {
    const QString Path =
        QFileDialog::getOpenFileName(this, QStringLiteral("Open File"), DirOfText(m_Peripherals->text()),
                                     QStringLiteral("Svd Files (*.svd *.xml)"));
    if (!Path.isEmpty()) {
        m_Peripherals->setText(Path);
    }
}

void CProjectWizard::OnButtonSelectDataFilePressed() {
    const QString Path = QFileDialog::getOpenFileName(
        this, QStringLiteral("Open File"), DirOfText(m_DataFile->text()),
        QStringLiteral("Data Files (*.bin *.mot *.srec *.hex *.elf *.out *.axf)"));
    if (!Path.isEmpty()) {
        m_DataFile->setText(Path);
    }
}

void CProjectWizard::OnComboBoxHostInterfaceItemChanged() {
    if (m_HostIF->currentText() == QLatin1String("IP")) {
        m_HostOptionLabel->setText(QStringLiteral("IP Address"));
        m_HostOption->setPlaceholderText(QStringLiteral("192.168.0.1"));
    } else {
        m_HostOptionLabel->setText(QStringLiteral("Serial No"));
        m_HostOption->setPlaceholderText(QString());
    }
    m_HostOption->clear();
}

void CProjectWizard::OnButtonNextPressed() {
    if (GetCurrentPage() == PAGE_TARGET_SETTINGS && m_Device->text().trimmed().isEmpty()) {
        return;
    }
    if (GetCurrentPage() < PAGE_DATA_FILE) {
        m_Pages->setCurrentIndex(GetCurrentPage() + 1);
    }
}

void CProjectWizard::OnButtonBackPressed() {
    if (GetCurrentPage() > PAGE_TARGET_SETTINGS) {
        m_Pages->setCurrentIndex(GetCurrentPage() - 1);
    }
}

void CProjectWizard::OnButtonFinishPressed() {
    accept();
}

void CProjectWizard::OnButtonCancelPressed() {
    reject();
}

void CProjectWizard::accept() {
    if (m_Device->text().trimmed().isEmpty()) {
        return;
    }
    StoreRemembered();
    m_Lines = MakeLines();
    QDialog::accept();
    emit Finished(m_Lines);
}

void CProjectWizard::reject() {
    // The current project stays as it is, and nothing is remembered.
    QDialog::reject();
}

void CProjectWizard::showEvent(QShowEvent* Event) {
    m_Pages->setCurrentIndex(PAGE_TARGET_SETTINGS);
    OnCurrentPageChanged(PAGE_TARGET_SETTINGS);
    m_Device->setFocus();
    QDialog::showEvent(Event);
}

void CProjectWizard::closeEvent(QCloseEvent* Event) {
    QDialog::closeEvent(Event);
}
