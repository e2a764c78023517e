#pragma once

#include "app/core/Types.h"

#include <QDialog>
#include <QStringList>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;

/// "New Project Wizard": three pages (target device, connection, program file) that end in the command
/// lines of a new project, handed over by Finished. The answers are remembered under
/// AppData/ProjectWizard/ for the next run. GUI thread.
class CProjectWizard : public QDialog {
    Q_OBJECT

public:
    enum PAGES { PAGE_TARGET_SETTINGS = 0, PAGE_CONNECTION_SETTINGS = 1, PAGE_DATA_FILE = 2 };

    explicit CProjectWizard(QWidget* Parent = nullptr);

    int GetCurrentPage() const;
    /// The lines of the last Finish.
    QStringList GetLines() const { return m_Lines; }
    /// The device name of a device field's text: cut at its last "(", trimmed.
    static QString DeviceNameOf(const QString& Text);

signals:
    void Finished(QStringList& Lines);

public slots:
    void ValidatePageTargetSettings();
    void ValidatePageConnectionSettings();
    void ValidatePageDataFile();
    void accept() override;
    void reject() override;
    void OnCurrentPageChanged(int Page);
    void OnButtonSelectDevicePressed();
    void OnButtonSelectDataFilePressed();
    void OnButtonSelectPeripheralsPressed();
    void OnComboBoxHostInterfaceItemChanged();
    void OnButtonNextPressed();
    void OnButtonBackPressed();
    void OnButtonFinishPressed();
    void OnButtonCancelPressed();

protected:
    void showEvent(QShowEvent* Event) override;
    void closeEvent(QCloseEvent* Event) override;

private:
    QWidget* MakeTargetPage();
    QWidget* MakeConnectionPage();
    QWidget* MakeDataFilePage();
    void LoadRemembered();
    void StoreRemembered();
    QStringList MakeLines() const;

    QStackedWidget* m_Pages = nullptr;
    QLabel* m_Title = nullptr;
    QLabel* m_SubTitle = nullptr;
    QLineEdit* m_Device = nullptr;
    QPushButton* m_SelectDevice = nullptr;
    QLineEdit* m_Peripherals = nullptr;
    QPushButton* m_SelectPeripherals = nullptr;
    QComboBox* m_TargetIF = nullptr;
    QComboBox* m_Speed = nullptr;
    QComboBox* m_HostIF = nullptr;
    QLabel* m_HostOptionLabel = nullptr;
    QLineEdit* m_HostOption = nullptr;
    QLineEdit* m_DataFile = nullptr;
    QPushButton* m_SelectDataFile = nullptr;
    QPushButton* m_Back = nullptr;
    QPushButton* m_Next = nullptr;
    QPushButton* m_Finish = nullptr;
    QPushButton* m_Cancel = nullptr;
    /// A core plug-in file chosen with the device, for Project.SetCorePlugin; empty for the default.
    QString m_CorePluginPath;
    QStringList m_Lines;
};
