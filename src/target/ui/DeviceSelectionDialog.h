#pragma once

#include <QDialog>

#include <array>

class CDeviceDataModel;
class CDeviceDataProxyModel;
class QComboBox;
class QTableView;
class QTimer;

/// The probe library's device table to choose a device from: a filter row of combo boxes above the table,
/// the current device marked in the theme's highlight colours, and the byte order. Accepting gives the
/// device name, the byte order and the core index. GUI thread.
class CDeviceSelectionDialog : public QDialog {
    Q_OBJECT

public:
    explicit CDeviceSelectionDialog(QWidget* Parent = nullptr);

    /// The choice the dialog starts with: the device's row is marked and selected.
    void SetDevice(const QString& Name, int BigEndian, int CoreIndex);
    QString GetDeviceName() const { return m_Name; }
    /// ENDIAN: 0 "Little Endian", 1 "Big Endian".
    int GetEndian() const;
    int GetCoreIndex() const { return m_CoreIndex; }

    CDeviceDataModel* GetModel() const { return m_Model; }
    CDeviceDataProxyModel* GetProxy() const { return m_Proxy; }
    QTableView* GetView() const { return m_View; }
    /// The filter box of a column, for tests.
    QComboBox* GetFilterBox(int Column) const;

public slots:
    void accept() override;
    /// Applies the filter texts typed so far; runs 5 ms after the last key stroke.
    void OnFilterTimerTimeout();

private:
    void CreateFilterBoxes();

    CDeviceDataModel* m_Model;
    CDeviceDataProxyModel* m_Proxy;
    QTableView* m_View;
    QComboBox* m_Endian;
    QTimer* m_FilterTimer;
    std::array<QComboBox*, 6> m_Filters = {};
    QString m_Name;
    int m_CoreIndex = 0;
};
