// The device selection dialog: the filter boxes above the table, their delay, the marked device and what
// accepting gives. With ARNEX_SCREENSHOT_DIR set the filtered dialog is saved there as a picture.

#include "target/ui/DeviceSelectionDialog.h"
#include "target/DeviceDataModel.h"

#include <QComboBox>
#include <QDir>
#include <QPixmap>
#include <QTableView>
#include <QTest>

#include <gtest/gtest.h>

namespace {

QStringList ShownDevices(const CDeviceSelectionDialog& D) {
    QStringList Names;
    const CDeviceDataProxyModel* P = D.GetProxy();
    for (int R = 1; R < P->rowCount(); ++R) {
        Names << P->index(R, CDeviceDataModel::COL_DEVICE).data().toString();
    }
    return Names;
}

/// The devices shown once the filter timer has run; on a loaded machine that may take longer than its delay.
QStringList ShownAfterPause(const CDeviceSelectionDialog& D, const QStringList& Expected) {
    (void)QTest::qWaitFor([&] { return ShownDevices(D) == Expected; }, 5000);
    return ShownDevices(D);
}

TEST(DeviceSelectionDialog, FiltersAMomentAfterTyping) {
    CDeviceSelectionDialog Dialog;
    Dialog.SetDevice(QStringLiteral("MPS2-AN385"), 0, 0);
    Dialog.show();
    const int All = Dialog.GetProxy()->rowCount();
    QComboBox* Device = Dialog.GetFilterBox(CDeviceDataModel::COL_DEVICE);
    ASSERT_NE(Device, nullptr);
    EXPECT_TRUE(Device->isEditable());
    EXPECT_GT(Device->count(), 10) << "the known device names to choose from";
    Device->setCurrentText(QStringLiteral("mps2*"));
    EXPECT_EQ(Dialog.GetProxy()->rowCount(), All) << "the filter waits for the typing to pause";
    const QStringList Mps2 = {"MPS2-AN385", "MPS2-AN386", "MPS2-AN500", "MPS2-AN505"};
    EXPECT_EQ(ShownAfterPause(Dialog, Mps2), Mps2);
    Dialog.GetFilterBox(CDeviceDataModel::COL_CORE)->setCurrentText(QStringLiteral("*m4"));
    EXPECT_EQ(ShownAfterPause(Dialog, {"MPS2-AN386"}), QStringList({"MPS2-AN386"}));
    EXPECT_EQ(Dialog.GetView()->indexWidget(Dialog.GetProxy()->index(0, 0)),
              Dialog.GetFilterBox(CDeviceDataModel::COL_MANUFACTURER))
        << "the filter boxes stand in row 0";
    Dialog.GetFilterBox(CDeviceDataModel::COL_CORE)->setCurrentText(QString());
    EXPECT_EQ(ShownAfterPause(Dialog, Mps2), Mps2);
    if (qEnvironmentVariableIsSet("ARNEX_SCREENSHOT_DIR")) {
        Dialog.resize(760, 300);
        QTest::qWait(50);
        EXPECT_TRUE(Dialog.grab().save(QDir(qEnvironmentVariable("ARNEX_SCREENSHOT_DIR"))
                                           .filePath(QStringLiteral("device-selection.png"))));
    }
}

TEST(DeviceSelectionDialog, AcceptingGivesTheChosenDevice) {
    CDeviceSelectionDialog Dialog;
    Dialog.SetDevice(QStringLiteral("lpc1768"), 1, 0);
    const CDeviceDataModel* Model = Dialog.GetModel();
    EXPECT_EQ(Model->index(Model->GetMarkedRow(), CDeviceDataModel::COL_DEVICE).data().toString(), "LPC1768");
    EXPECT_EQ(Dialog.GetEndian(), 1) << "\"Big Endian\"";
    Dialog.accept();
    EXPECT_EQ(Dialog.result(), QDialog::Accepted) << "the current device is selected from the start";
    EXPECT_EQ(Dialog.GetDeviceName(), "LPC1768");

    CDeviceSelectionDialog Other;
    Other.GetView()->selectRow(0);
    Other.accept();
    EXPECT_NE(Other.result(), QDialog::Accepted) << "the filter row is no device";
    EXPECT_TRUE(Other.GetDeviceName().isEmpty());
}

} // namespace
