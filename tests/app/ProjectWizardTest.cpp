// The New Project Wizard driven from the test: its pages, the lines it ends in and what it remembers.

#include "app/ProjectWizard.h"
#include "app/core/Settings.h"
#include "target/DeviceDataModel.h"
#include "target/ui/DeviceSelectionDialog.h"

#include <QApplication>
#include <QTableView>
#include <QTimer>

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>

#include <gtest/gtest.h>

namespace {

class WizardTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const QString& Key : Settings::Map().keys()) {
            if (Key.startsWith("AppData/ProjectWizard/")) {
                Settings::Remove(Key);
            }
        }
    }

    template <typename T>
    static T* Child(const CProjectWizard& W, const char* Name) {
        T* Found = W.findChild<T*>(QLatin1String(Name));
        EXPECT_NE(Found, nullptr) << Name;
        return Found;
    }

    /// Fills the pages and presses Finish; the lines handed over.
    static QStringList Run(CProjectWizard& W, const QString& Device, const QString& Peripherals,
                           const QString& TargetIF, const QString& Speed, const QString& HostIF,
                           const QString& Option, const QString& DataFile) {
        QStringList Lines;
        QObject::connect(&W, &CProjectWizard::Finished, [&Lines](QStringList& L) { Lines = L; });
        W.show();
        Child<QLineEdit>(W, "editBoxTargetDevice")->setText(Device);
        Child<QLineEdit>(W, "editBoxTargetPeripherals")->setText(Peripherals);
        Child<QPushButton>(W, "buttonNext")->click();
        Child<QComboBox>(W, "comboBoxTargetInterface")->setCurrentText(TargetIF);
        Child<QComboBox>(W, "comboBoxTIFSpeed")->setCurrentText(Speed);
        Child<QComboBox>(W, "comboBoxHostInterface")->setCurrentText(HostIF);
        Child<QLineEdit>(W, "editBoxHostOption")->setText(Option);
        Child<QPushButton>(W, "buttonNext")->click();
        Child<QLineEdit>(W, "editBoxDataFile")->setText(DataFile);
        Child<QPushButton>(W, "buttonFinish")->click();
        return Lines;
    }
};

TEST_F(WizardTest, PagesAndTheirButtons) {
    CProjectWizard W;
    W.show();
    EXPECT_EQ(W.windowTitle(), "New Project Wizard");
    auto* Title = Child<QLabel>(W, "labelPageTitle");
    auto* Sub = Child<QLabel>(W, "labelPageSubTitle");
    auto* Next = Child<QPushButton>(W, "buttonNext");
    auto* Back = Child<QPushButton>(W, "buttonBack");
    auto* Finish = Child<QPushButton>(W, "buttonFinish");
    EXPECT_EQ(Next->text(), "&Next >");
    EXPECT_EQ(Back->text(), "< &Back");
    EXPECT_EQ(Finish->text(), "&Finish");
    EXPECT_EQ(Title->text(), "Target Device");
    EXPECT_EQ(Sub->text(), "Choose a Target Device");
    EXPECT_FALSE(Back->isEnabled());
    EXPECT_FALSE(Finish->isVisible());
    // With no device the wizard can't leave its first page.
    EXPECT_FALSE(Next->isEnabled());
    Next->click();
    EXPECT_EQ(W.GetCurrentPage(), CProjectWizard::PAGE_TARGET_SETTINGS);
    auto* Device = Child<QLineEdit>(W, "editBoxTargetDevice");
    Device->setText("  ");
    EXPECT_FALSE(Next->isEnabled());
    Device->setText("STM32F407VG");
    EXPECT_TRUE(Next->isEnabled());
    auto* Choose = Child<QPushButton>(W, "buttonSelectDevice");
    EXPECT_EQ(Choose->text(), "Choose via Dialog");
    EXPECT_TRUE(Choose->isEnabled()) << "the probe library's device table is there";

    Next->click();
    EXPECT_EQ(Title->text(), "Connection Settings");
    EXPECT_EQ(Sub->text(), "Choose a Target and Host Interface");
    EXPECT_TRUE(Back->isEnabled());
    auto* Tif = Child<QComboBox>(W, "comboBoxTargetInterface");
    EXPECT_EQ(Tif->count(), 4);
    EXPECT_EQ(Tif->currentText(), "JTAG") << "the default";
    auto* Speed = Child<QComboBox>(W, "comboBoxTIFSpeed");
    EXPECT_EQ(Speed->count(), 21);
    EXPECT_EQ(Speed->itemText(0), "50 MHz");
    EXPECT_EQ(Speed->itemText(20), "1 kHz");
    EXPECT_EQ(Speed->currentText(), "1 MHz") << "the default";
    auto* Host = Child<QComboBox>(W, "comboBoxHostInterface");
    auto* Option = Child<QLineEdit>(W, "editBoxHostOption");
    Option->setText("123");
    Host->setCurrentText("IP");
    EXPECT_EQ(Option->placeholderText(), "192.168.0.1");
    EXPECT_TRUE(Option->text().isEmpty());
    Host->setCurrentText("USB");
    EXPECT_TRUE(Option->placeholderText().isEmpty());

    Next->click();
    EXPECT_EQ(Title->text(), "Program File");
    EXPECT_EQ(Sub->text(), "Choose the Program to be debugged");
    EXPECT_FALSE(Next->isVisible());
    EXPECT_TRUE(Finish->isVisible());
    EXPECT_NE(W.findChild<QWidget*>("pageDataFile"), nullptr);
    Back->click();
    EXPECT_EQ(W.GetCurrentPage(), CProjectWizard::PAGE_CONNECTION_SETTINGS);
}

TEST_F(WizardTest, TheDeviceComesFromTheLibrarysTable) {
    CProjectWizard W;
    W.show();
    auto* Device = Child<QLineEdit>(W, "editBoxTargetDevice");
    auto* Choose = Child<QPushButton>(W, "buttonSelectDevice");
    ASSERT_TRUE(Choose->isEnabled());
    Device->setText("LPC1768");
    QString Marked;
    QTimer::singleShot(20, &W, [&Marked]() {
        for (QWidget* Top : QApplication::topLevelWidgets()) {
            if (auto* D = qobject_cast<CDeviceSelectionDialog*>(Top)) {
                const CDeviceDataModel* M = D->GetModel();
                Marked = M->index(M->GetMarkedRow(), CDeviceDataModel::COL_DEVICE).data().toString();
                D->GetFilterBox(CDeviceDataModel::COL_DEVICE)->setCurrentText("*AN500");
                D->OnFilterTimerTimeout();
                D->GetView()->selectRow(1);
                D->findChild<QComboBox*>("comboBoxEndian")->setCurrentIndex(1);
                D->accept();
            }
        }
    });
    Choose->click();
    EXPECT_EQ(Marked, "LPC1768") << "the dialog starts at the device of the field";
    EXPECT_EQ(Device->text(), "MPS2-AN500 (Big Endian)");
    EXPECT_EQ(CProjectWizard::DeviceNameOf(Device->text()), "MPS2-AN500");
}

TEST_F(WizardTest, FinishGivesTheProjectLines) {
    CProjectWizard W;
    const QStringList Lines =
        Run(W, "STM32F407VG", "/cfg/STM32F40x.svd", "SWD", "4 MHz", "USB", "123456", "/work/app.elf");
    EXPECT_EQ(Lines, QStringList(
                         {"Project.SetDevice (\"STM32F407VG\");", "Project.SetHostIF (\"USB\", \"123456\");",
                          "Project.SetTargetIF (\"SWD\");", "Project.SetTIFSpeed (\"4 MHz\");",
                          "Project.AddSvdFile (\"/cfg/STM32F40x.svd\");", "File.Open (\"/work/app.elf\");"}));
    EXPECT_EQ(W.result(), QDialog::Accepted);
}

TEST_F(WizardTest, EmptyOptionalFieldsGiveNoLinesAndBigEndianIsCutOff) {
    CProjectWizard W;
    const QStringList Lines = Run(W, "STM32 (Big Endian)", "", "cJTAG", "500 kHz", "IP", "", "");
    EXPECT_EQ(Lines, QStringList({"Project.SetDevice (\"STM32\");", "Project.SetHostIF (\"IP\", \"\");",
                                  "Project.SetTargetIF (\"cJTAG\");", "Project.SetTIFSpeed (\"500 kHz\");"}));
    EXPECT_EQ(CProjectWizard::DeviceNameOf("  Dev (A) (Big Endian) "), "Dev (A)");
    EXPECT_EQ(CProjectWizard::DeviceNameOf("Plain"), "Plain");
}

TEST_F(WizardTest, SecondRunStartsWithTheFirstRunsAnswers) {
    {
        CProjectWizard First;
        Run(First, "MK66FN2M0XXX18", "/cfg/k66.svd", "SWD", "2 MHz", "IP", "10.1.2.3", "/work/k66.elf");
    }
    EXPECT_EQ(Settings::Value("AppData/ProjectWizard/Device").toString(), "MK66FN2M0XXX18");
    CProjectWizard Second;
    EXPECT_EQ(Child<QLineEdit>(Second, "editBoxTargetDevice")->text(), "MK66FN2M0XXX18");
    EXPECT_EQ(Child<QLineEdit>(Second, "editBoxTargetPeripherals")->text(), "/cfg/k66.svd");
    EXPECT_EQ(Child<QComboBox>(Second, "comboBoxTargetInterface")->currentText(), "SWD");
    EXPECT_EQ(Child<QComboBox>(Second, "comboBoxTIFSpeed")->currentText(), "2 MHz");
    EXPECT_EQ(Child<QComboBox>(Second, "comboBoxHostInterface")->currentText(), "IP");
    EXPECT_EQ(Child<QLineEdit>(Second, "editBoxHostOption")->text(), "10.1.2.3");
    EXPECT_EQ(Child<QLineEdit>(Second, "editBoxDataFile")->text(), "/work/k66.elf");

    // An answer left empty isn't kept; Cancel keeps nothing at all.
    Run(Second, "MK66FN2M0XXX18", "", "SWD", "2 MHz", "IP", "10.1.2.3", "");
    EXPECT_FALSE(Settings::Map().contains("AppData/ProjectWizard/DataFile"));
    EXPECT_FALSE(Settings::Map().contains("AppData/ProjectWizard/PeripheralFile"));
    CProjectWizard Third;
    Child<QLineEdit>(Third, "editBoxTargetDevice")->setText("Other");
    Child<QPushButton>(Third, "buttonCancel")->click();
    EXPECT_EQ(Third.result(), QDialog::Rejected);
    EXPECT_EQ(Settings::Value("AppData/ProjectWizard/Device").toString(), "MK66FN2M0XXX18");
}

} // namespace
