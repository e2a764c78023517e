#include "target/DeviceDataModel.h"

#include "probe/Tarvo.h"

#include <QSet>

#include <algorithm>
#include <cstring>

namespace {

const char* const s_Headers[CDeviceDataModel::COL_COUNT] = {"Manufacturer", "Device",     "Core",
                                                            "NumCores",     "Flash Size", "RAM Size"};

} // namespace

CDeviceDataModel::CDeviceDataModel(QObject* Parent) : QAbstractTableModel(Parent) {
    // Index 0 of the library's table is its placeholder for no device; its row is the filter row.
    m_Count = qMax(0, TARVOARM_DEVICE_GetInfo(-1, nullptr));
}

int CDeviceDataModel::rowCount(const QModelIndex& Parent) const {
    return Parent.isValid() ? 0 : qMax(1, m_Count);
}

int CDeviceDataModel::columnCount(const QModelIndex& Parent) const {
    return Parent.isValid() ? 0 : COL_COUNT;
}

QString CDeviceDataModel::SizeText(U32 Bytes) {
    if (Bytes != 0 && Bytes % (1024u * 1024u) == 0) {
        return QStringLiteral("%1 MB").arg(Bytes / (1024u * 1024u));
    }
    if (Bytes != 0 && Bytes % 1024u == 0) {
        return QStringLiteral("%1 KB").arg(Bytes / 1024u);
    }
    return QString::number(Bytes);
}

const CDeviceDataModel::ROW_TEXTS& CDeviceDataModel::Row(int Row) const {
    auto It = m_Rows.constFind(Row);
    if (It != m_Rows.constEnd()) {
        return It.value();
    }
    ROW_TEXTS Texts;
    TARVO_DEVICE_INFO Entry;
    std::memset(&Entry, 0, sizeof(Entry));
    Entry.SizeOfStruct = sizeof(Entry);
    if (TARVOARM_DEVICE_GetInfo(Row, &Entry) >= 0) {
        const char* Core = TARVOARM_Core2CoreName(Entry.Core);
        Texts.Text[COL_MANUFACTURER] = QString::fromUtf8(Entry.sManu ? Entry.sManu : "");
        Texts.Text[COL_DEVICE] = QString::fromUtf8(Entry.sName ? Entry.sName : "");
        Texts.Text[COL_CORE] = QString::fromUtf8(Core ? Core : "");
        Texts.Text[COL_NUM_CORES] = QStringLiteral("1");
        Texts.Text[COL_FLASH_SIZE] = SizeText(Entry.FlashSize);
        Texts.Text[COL_RAM_SIZE] = SizeText(Entry.RAMSize);
        Texts.Core = Entry.Core;
    }
    return *m_Rows.insert(Row, Texts);
}

QVariant CDeviceDataModel::data(const QModelIndex& Index, int Role) const {
    if (!Index.isValid() || Index.column() >= COL_COUNT || Index.row() >= rowCount()) {
        return QVariant();
    }
    if (Role == ROLE_DEVICE_INDEX) {
        return Index.row() == 0 ? -1 : Index.row();
    }
    if (Role == ROLE_MARKED) {
        return Index.row() != 0 && Index.row() == m_Marked;
    }
    if (Role != Qt::DisplayRole && Role != Qt::EditRole) {
        return QVariant();
    }
    if (Index.row() == 0) {
        return m_Filters[Index.column()];
    }
    return Row(Index.row()).Text[Index.column()];
}

QVariant CDeviceDataModel::headerData(int Section, Qt::Orientation Orientation, int Role) const {
    if (Orientation == Qt::Horizontal && Role == Qt::DisplayRole && Section >= 0 && Section < COL_COUNT) {
        return QLatin1String(s_Headers[Section]);
    }
    return QAbstractTableModel::headerData(Section, Orientation, Role);
}

bool CDeviceDataModel::setData(const QModelIndex& Index, const QVariant& Value, int Role) {
    if (!Index.isValid() || Index.row() != 0 || Role != Qt::EditRole || Index.column() >= COL_COUNT) {
        return false;
    }
    SetFilter(Index.column(), Value.toString());
    return true;
}

Qt::ItemFlags CDeviceDataModel::flags(const QModelIndex& Index) const {
    if (!Index.isValid()) {
        return Qt::NoItemFlags;
    }
    return Index.row() == 0 ? Qt::ItemIsEnabled | Qt::ItemIsEditable
                            : Qt::ItemIsEnabled | Qt::ItemIsSelectable;
}

QString CDeviceDataModel::GetFilter(int Column) const {
    return Column >= 0 && Column < COL_COUNT ? m_Filters[Column] : QString();
}

void CDeviceDataModel::SetFilter(int Column, const QString& Text) {
    if (Column < 0 || Column >= COL_COUNT || m_Filters[Column] == Text) {
        return;
    }
    m_Filters[Column] = Text;
    emit dataChanged(index(0, Column), index(0, Column));
    emit FilterChanged();
}

QStringList CDeviceDataModel::GetKnownValues(int Column) const {
    if (Column < 0 || Column >= COL_COUNT) {
        return {};
    }
    QStringList Values;
    QSet<QString> Seen;
    for (int R = 1; R < m_Count; ++R) {
        const QString& Text = Row(R).Text[Column];
        if (!Text.isEmpty() && !Seen.contains(Text.toLower())) {
            Seen.insert(Text.toLower());
            Values << Text;
        }
    }
    std::sort(Values.begin(), Values.end(),
              [](const QString& A, const QString& B) { return A.compare(B, Qt::CaseInsensitive) < 0; });
    return Values;
}

int CDeviceDataModel::FindRow(const QString& Name) const {
    const QString Wanted = Name.trimmed();
    for (int R = 1; R < m_Count; ++R) {
        if (Row(R).Text[COL_DEVICE].compare(Wanted, Qt::CaseInsensitive) == 0) {
            return R;
        }
    }
    return -1;
}

void CDeviceDataModel::SetMarkedRow(int RowNo) {
    const int Old = m_Marked;
    m_Marked = RowNo > 0 && RowNo < m_Count ? RowNo : -1;
    for (int R : {Old, m_Marked}) {
        if (R > 0) {
            emit dataChanged(index(R, 0), index(R, COL_COUNT - 1));
        }
    }
}

U32 CDeviceDataModel::GetCore(int RowNo) const {
    return RowNo > 0 && RowNo < m_Count ? Row(RowNo).Core : 0;
}

// ---------------------------------------------------------------------------------------------------------

CDeviceDataProxyModel::CDeviceDataProxyModel(QObject* Parent) : QSortFilterProxyModel(Parent) {
    setSortCaseSensitivity(Qt::CaseInsensitive);
}

bool CDeviceDataProxyModel::Matches(const QString& Filter, const QString& Text) {
    if (Filter.isEmpty() || Filter == QLatin1String("*")) {
        return true;
    }
    if (Filter.size() > 1 && Filter.startsWith(QLatin1Char('*'))) {
        return Text.endsWith(Filter.mid(1), Qt::CaseInsensitive);
    }
    if (Filter.size() > 1 && Filter.endsWith(QLatin1Char('*'))) {
        return Text.startsWith(Filter.left(Filter.size() - 1), Qt::CaseInsensitive);
    }
    return Text.contains(Filter, Qt::CaseInsensitive);
}

void CDeviceDataProxyModel::setSourceModel(QAbstractItemModel* Source) {
    if (auto* Old = qobject_cast<CDeviceDataModel*>(sourceModel())) {
        disconnect(Old, &CDeviceDataModel::FilterChanged, this, nullptr);
    }
    QSortFilterProxyModel::setSourceModel(Source);
    if (auto* Table = qobject_cast<CDeviceDataModel*>(Source)) {
        connect(Table, &CDeviceDataModel::FilterChanged, this, [this]() { invalidateFilter(); });
    }
}

bool CDeviceDataProxyModel::filterAcceptsRow(int SourceRow, const QModelIndex& SourceParent) const {
    if (SourceRow == 0) {
        return true;
    }
    const QAbstractItemModel* Source = sourceModel();
    for (int C = 0; C < Source->columnCount(SourceParent); ++C) {
        const QString Filter = Source->index(0, C, SourceParent).data(Qt::EditRole).toString();
        if (!Filter.isEmpty() &&
            !Matches(Filter, Source->index(SourceRow, C, SourceParent).data(Qt::DisplayRole).toString())) {
            return false;
        }
    }
    return true;
}

bool CDeviceDataProxyModel::lessThan(const QModelIndex& Left, const QModelIndex& Right) const {
    // The filter row comes first in either order: the view reverses the comparison when descending.
    const bool Ascending = sortOrder() == Qt::AscendingOrder;
    if (Left.row() == 0) {
        return Right.row() != 0 && Ascending;
    }
    if (Right.row() == 0) {
        return !Ascending;
    }
    // Equal texts keep the library's order.
    const int Order = Left.data().toString().compare(Right.data().toString(), Qt::CaseInsensitive);
    return Order != 0 ? Order < 0 : Left.row() < Right.row();
}
