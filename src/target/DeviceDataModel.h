#pragma once

#include "app/core/Types.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QSortFilterProxyModel>
#include <QStringList>

#include <array>

/// The probe library's device table as a table: row 0 is the filter row, whose cells hold the filter
/// texts; row n (1 and up) is the library's device n, whose texts are read when first asked for and then
/// kept. No widgets: GUI thread, or a test without a display.
class CDeviceDataModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum COLUMNS {
        COL_MANUFACTURER,
        COL_DEVICE,
        COL_CORE,
        COL_NUM_CORES,
        COL_FLASH_SIZE,
        COL_RAM_SIZE,
        COL_COUNT
    };
    /// Roles of the rows: the device's index in the library's table (row 0: -1), and whether the row is the
    /// device marked as the current choice.
    enum ROLES { ROLE_DEVICE_INDEX = Qt::UserRole + 1, ROLE_MARKED };

    explicit CDeviceDataModel(QObject* Parent = nullptr);

    int rowCount(const QModelIndex& Parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& Parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& Index, int Role = Qt::DisplayRole) const override;
    QVariant headerData(int Section, Qt::Orientation Orientation, int Role = Qt::DisplayRole) const override;
    /// Only the cells of the filter row take text.
    bool setData(const QModelIndex& Index, const QVariant& Value, int Role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& Index) const override;

    QString GetFilter(int Column) const;
    void SetFilter(int Column, const QString& Text);
    /// The texts of a column's devices, sorted without regard to case and without repeats: what the
    /// filter's list offers.
    QStringList GetKnownValues(int Column) const;
    /// The row of a device name (without regard to case), or -1.
    int FindRow(const QString& Name) const;
    /// Marks the row of the current device; -1 marks none.
    void SetMarkedRow(int Row);
    int GetMarkedRow() const { return m_Marked; }
    /// Core identifier of a device row, 0 for none.
    U32 GetCore(int Row) const;

    /// The size text of a flash or RAM size: "0", or KB or MB for whole numbers of them.
    static QString SizeText(U32 Bytes);

signals:
    void FilterChanged();

private:
    struct ROW_TEXTS {
        std::array<QString, COL_COUNT> Text;
        U32 Core = 0;
    };
    const ROW_TEXTS& Row(int Row) const;

    int m_Count = 0;
    std::array<QString, COL_COUNT> m_Filters;
    mutable QHash<int, ROW_TEXTS> m_Rows;
    int m_Marked = -1;
};

/// Filters and sorts the device table: a row stays if it matches every column filter that isn't empty,
/// and the filter row stays on top whatever the order.
class CDeviceDataProxyModel : public QSortFilterProxyModel {
    Q_OBJECT

public:
    explicit CDeviceDataProxyModel(QObject* Parent = nullptr);

    /// "*" matches everything; "*abc" a text that ends in abc, "abc*" one that starts with it, any other
    /// filter a text that contains it; all without regard to case. An empty filter matches everything.
    static bool Matches(const QString& Filter, const QString& Text);
    /// A device table as source filters anew whenever one of its filter texts changes.
    void setSourceModel(QAbstractItemModel* Source) override;

protected:
    bool filterAcceptsRow(int SourceRow, const QModelIndex& SourceParent) const override;
    bool lessThan(const QModelIndex& Left, const QModelIndex& Right) const override;
};
