// The device table of the selection dialog, without widgets: the rows of the library's table, the filter
// row and its patterns, and the sort that keeps the filter row on top.

#include "probe/Tarvo.h"
#include "target/DeviceDataModel.h"

#include <QAbstractItemModelTester>

#include <gtest/gtest.h>

namespace {

/// The device names the proxy shows below its filter row, in order.
QStringList Shown(const CDeviceDataProxyModel& Proxy) {
    QStringList Names;
    for (int R = 1; R < Proxy.rowCount(); ++R) {
        Names << Proxy.index(R, CDeviceDataModel::COL_DEVICE).data().toString();
    }
    return Names;
}

TEST(DeviceModel, RowsAreTheLibrarysDevicesBelowTheFilterRow) {
    CDeviceDataModel Model;
    QAbstractItemModelTester Tester(&Model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const int Count = TARVOARM_DEVICE_GetInfo(-1, nullptr);
    ASSERT_GT(Count, 10);
    EXPECT_EQ(Model.rowCount(), Count) << "row 0 filters; the library's entry 0 is no device";
    const QStringList Headers = {"Manufacturer", "Device", "Core", "NumCores", "Flash Size", "RAM Size"};
    for (int C = 0; C < Headers.size(); ++C) {
        EXPECT_EQ(Model.headerData(C, Qt::Horizontal).toString(), Headers[C]);
    }
    const int Row = Model.FindRow(QStringLiteral("mps2-an385"));
    ASSERT_GT(Row, 0);
    const auto Cell = [&](int C) { return Model.index(Row, C).data().toString(); };
    EXPECT_EQ(Cell(CDeviceDataModel::COL_MANUFACTURER), QStringLiteral("ARM"));
    EXPECT_EQ(Cell(CDeviceDataModel::COL_DEVICE), QStringLiteral("MPS2-AN385"));
    EXPECT_EQ(Cell(CDeviceDataModel::COL_CORE), QStringLiteral("Cortex-M3"));
    EXPECT_EQ(Cell(CDeviceDataModel::COL_NUM_CORES), QStringLiteral("1"));
    EXPECT_EQ(Cell(CDeviceDataModel::COL_FLASH_SIZE), QStringLiteral("4 MB"));
    EXPECT_EQ(Cell(CDeviceDataModel::COL_RAM_SIZE), QStringLiteral("4 MB"));
    EXPECT_EQ(Model.index(Row, 0).data(CDeviceDataModel::ROLE_DEVICE_INDEX).toInt(),
              TARVOARM_DEVICE_GetIndex("MPS2-AN385"));
    EXPECT_EQ(Model.index(0, 0).data(CDeviceDataModel::ROLE_DEVICE_INDEX).toInt(), -1);
    EXPECT_EQ(CDeviceDataModel::SizeText(20 * 1024), QStringLiteral("20 KB"));
    EXPECT_EQ(CDeviceDataModel::SizeText(608 * 1024), QStringLiteral("608 KB"));
    EXPECT_EQ(CDeviceDataModel::SizeText(1000), QStringLiteral("1000"));
    EXPECT_EQ(Model.FindRow(QStringLiteral("NOPE")), -1);
}

TEST(DeviceModel, OnlyTheFilterRowTakesText) {
    CDeviceDataModel Model;
    EXPECT_TRUE(Model.flags(Model.index(0, 1)) & Qt::ItemIsEditable);
    EXPECT_FALSE(Model.flags(Model.index(1, 1)) & Qt::ItemIsEditable);
    EXPECT_TRUE(Model.setData(Model.index(0, 1), QStringLiteral("STM*")));
    EXPECT_EQ(Model.GetFilter(1), QStringLiteral("STM*"));
    EXPECT_FALSE(Model.setData(Model.index(2, 1), QStringLiteral("x")));
}

TEST(DeviceModel, KnownValuesAreSortedAndUnique) {
    CDeviceDataModel Model;
    const QStringList Makers = Model.GetKnownValues(CDeviceDataModel::COL_MANUFACTURER);
    EXPECT_TRUE(Makers.contains(QStringLiteral("ST")));
    EXPECT_EQ(Makers.count(QStringLiteral("ST")), 1);
    QStringList Sorted = Makers;
    std::sort(Sorted.begin(), Sorted.end(),
              [](const QString& A, const QString& B) { return A.compare(B, Qt::CaseInsensitive) < 0; });
    EXPECT_EQ(Makers, Sorted);
    EXPECT_EQ(Model.GetKnownValues(CDeviceDataModel::COL_NUM_CORES), QStringList{QStringLiteral("1")});
}

TEST(DeviceFilter, PatternsMatchWithoutRegardToCase) {
    struct CASE {
        const char* Filter;
        const char* Text;
        bool Match;
    } Cases[] = {
        {"*", "anything", true},       {"", "anything", true},          {"*405", "STM32F405", true},
        {"*405", "STM32F4050", false}, {"stm32*", "STM32F103C8", true}, {"stm32*", "GD32F103", false},
        {"f103", "STM32F103C8", true}, {"F103", "stm32f407", false},    {"m4", "Cortex-M4", true},
        {"*M4*", "Cortex-M4", false}, // only a leading or a trailing star is a wildcard
    };
    for (const CASE& C : Cases) {
        EXPECT_EQ(CDeviceDataProxyModel::Matches(QString::fromLatin1(C.Filter), QString::fromLatin1(C.Text)),
                  C.Match)
            << C.Filter << " / " << C.Text;
    }
}

TEST(DeviceFilter, ARowMustMatchEveryColumnFilter) {
    CDeviceDataModel Model;
    CDeviceDataProxyModel Proxy;
    Proxy.setSourceModel(&Model);
    QAbstractItemModelTester Tester(&Proxy, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const int All = Proxy.rowCount();
    Model.SetFilter(CDeviceDataModel::COL_MANUFACTURER, QStringLiteral("st*"));
    const QStringList St = Shown(Proxy);
    ASSERT_FALSE(St.isEmpty());
    for (const QString& Name : St) {
        EXPECT_TRUE(Name.startsWith(QLatin1String("STM32"))) << Name.toStdString();
    }
    Model.SetFilter(CDeviceDataModel::COL_CORE, QStringLiteral("*M7"));
    EXPECT_EQ(Shown(Proxy), QStringList({"STM32F746NG", "STM32F767ZI", "STM32H743ZI"}));
    Model.SetFilter(CDeviceDataModel::COL_DEVICE, QStringLiteral("NOPE"));
    EXPECT_EQ(Proxy.rowCount(), 1) << "the filter row stays when nothing matches";
    for (int C = 0; C < CDeviceDataModel::COL_COUNT; ++C) {
        Model.SetFilter(C, QString());
    }
    EXPECT_EQ(Proxy.rowCount(), All);
}

TEST(DeviceFilter, TheFilterRowStaysOnTopInEitherOrder) {
    CDeviceDataModel Model;
    CDeviceDataProxyModel Proxy;
    Proxy.setSourceModel(&Model);
    Model.SetFilter(CDeviceDataModel::COL_MANUFACTURER, QStringLiteral("nordic*"));
    for (Qt::SortOrder Order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
        Proxy.sort(CDeviceDataModel::COL_DEVICE, Order);
        EXPECT_EQ(Proxy.mapToSource(Proxy.index(0, 0)).row(), 0) << Order;
        const QStringList Names = Shown(Proxy);
        ASSERT_EQ(Names.size(), 4);
        QStringList Sorted = Names;
        std::sort(Sorted.begin(), Sorted.end(), [Order](const QString& A, const QString& B) {
            const int C = A.compare(B, Qt::CaseInsensitive);
            return Order == Qt::AscendingOrder ? C < 0 : C > 0;
        });
        EXPECT_EQ(Names, Sorted);
    }
}

TEST(DeviceModel, TheMarkedRowIsTheCurrentDevice) {
    CDeviceDataModel Model;
    const int Row = Model.FindRow(QStringLiteral("LPC1768"));
    Model.SetMarkedRow(Row);
    EXPECT_TRUE(Model.index(Row, 3).data(CDeviceDataModel::ROLE_MARKED).toBool());
    EXPECT_FALSE(Model.index(Row + 1, 3).data(CDeviceDataModel::ROLE_MARKED).toBool());
    Model.SetMarkedRow(0);
    EXPECT_EQ(Model.GetMarkedRow(), -1) << "the filter row is no device";
}

} // namespace
