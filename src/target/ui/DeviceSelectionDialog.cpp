#include "target/ui/DeviceSelectionDialog.h"

#include "target/DeviceDataModel.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

namespace {

constexpr int FILTER_DELAY_MS = 5;

/// Paints the marked device's row in the highlight colours of the theme.
class CMarkedRowDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* Option, const QModelIndex& Index) const override {
        QStyledItemDelegate::initStyleOption(Option, Index);
        if (Index.data(CDeviceDataModel::ROLE_MARKED).toBool()) {
            Option->backgroundBrush = Option->palette.brush(QPalette::Highlight);
            Option->palette.setBrush(QPalette::Text, Option->palette.brush(QPalette::HighlightedText));
        }
    }
};

} // namespace

CDeviceSelectionDialog::CDeviceSelectionDialog(QWidget* Parent) : QDialog(Parent) {
    setObjectName(QStringLiteral("DeviceSelectionDialog"));
    setWindowTitle(QStringLiteral("Target Device Settings"));
    m_Model = new CDeviceDataModel(this);
    m_Proxy = new CDeviceDataProxyModel(this);
    m_Proxy->setSourceModel(m_Model);

    m_View = new QTableView(this);
    m_View->setObjectName(QStringLiteral("tableViewDevices"));
    m_View->setModel(m_Proxy);
    m_View->setItemDelegate(new CMarkedRowDelegate(m_View));
    m_View->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_View->setSelectionMode(QAbstractItemView::SingleSelection);
    m_View->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_View->setSortingEnabled(true);
    m_View->sortByColumn(CDeviceDataModel::COL_MANUFACTURER, Qt::AscendingOrder);
    m_View->verticalHeader()->hide();
    m_View->horizontalHeader()->setStretchLastSection(true);
    m_View->setAlternatingRowColors(true);

    m_Endian = new QComboBox(this);
    m_Endian->setObjectName(QStringLiteral("comboBoxEndian"));
    m_Endian->addItems({QStringLiteral("Little Endian"), QStringLiteral("Big Endian")});

    auto* Buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(Buttons, &QDialogButtonBox::accepted, this, &CDeviceSelectionDialog::accept);
    connect(Buttons, &QDialogButtonBox::rejected, this, &CDeviceSelectionDialog::reject);
    connect(m_View, &QTableView::doubleClicked, this, [this](const QModelIndex& Index) {
        if (Index.data(CDeviceDataModel::ROLE_DEVICE_INDEX).toInt() > 0) {
            accept();
        }
    });

    m_FilterTimer = new QTimer(this);
    m_FilterTimer->setSingleShot(true);
    m_FilterTimer->setInterval(FILTER_DELAY_MS);
    connect(m_FilterTimer, &QTimer::timeout, this, &CDeviceSelectionDialog::OnFilterTimerTimeout);

    auto* Bottom = new QHBoxLayout;
    Bottom->addWidget(new QLabel(QStringLiteral("Endianess"), this));
    Bottom->addWidget(m_Endian);
    Bottom->addStretch(1);
    Bottom->addWidget(Buttons);
    auto* Layout = new QVBoxLayout(this);
    Layout->addWidget(m_View, 1);
    Layout->addLayout(Bottom);
    resize(760, 480);

    CreateFilterBoxes();
    for (int C = 0; C < CDeviceDataModel::COL_COUNT; ++C) {
        m_View->resizeColumnToContents(C);
    }
}

void CDeviceSelectionDialog::CreateFilterBoxes() {
    for (int C = 0; C < CDeviceDataModel::COL_COUNT; ++C) {
        auto* Box = new QComboBox(m_View);
        Box->setObjectName(QStringLiteral("comboBoxFilter%1").arg(C));
        Box->setEditable(true);
        Box->setInsertPolicy(QComboBox::NoInsert);
        Box->addItem(QString());
        Box->addItems(m_Model->GetKnownValues(C));
        Box->setCurrentIndex(0);
        // Each key stroke restarts the delay; the filter runs once typing pauses.
        connect(Box, &QComboBox::currentTextChanged, this, [this]() { m_FilterTimer->start(); });
        m_View->setIndexWidget(m_Proxy->index(0, C), Box);
        m_Filters[static_cast<size_t>(C)] = Box;
    }
}

QComboBox* CDeviceSelectionDialog::GetFilterBox(int Column) const {
    return Column >= 0 && Column < CDeviceDataModel::COL_COUNT ? m_Filters[static_cast<size_t>(Column)]
                                                               : nullptr;
}

void CDeviceSelectionDialog::OnFilterTimerTimeout() {
    for (int C = 0; C < CDeviceDataModel::COL_COUNT; ++C) {
        m_Model->SetFilter(C, m_Filters[static_cast<size_t>(C)]->currentText().trimmed());
    }
}

void CDeviceSelectionDialog::SetDevice(const QString& Name, int BigEndian, int CoreIndex) {
    m_Endian->setCurrentIndex(BigEndian ? 1 : 0);
    m_CoreIndex = CoreIndex;
    const int Row = m_Model->FindRow(Name);
    m_Model->SetMarkedRow(Row);
    if (Row > 0) {
        const QModelIndex At = m_Proxy->mapFromSource(m_Model->index(Row, 0));
        m_View->selectRow(At.row());
        m_View->scrollTo(At);
    }
}

int CDeviceSelectionDialog::GetEndian() const {
    return m_Endian->currentIndex() == 1 ? 1 : 0;
}

void CDeviceSelectionDialog::accept() {
    const QModelIndexList Rows = m_View->selectionModel()->selectedRows(CDeviceDataModel::COL_DEVICE);
    if (Rows.isEmpty() || Rows.first().data(CDeviceDataModel::ROLE_DEVICE_INDEX).toInt() <= 0) {
        return;
    }
    m_Name = Rows.first().data().toString();
    QDialog::accept();
}
