#pragma once

#include "app/core/Types.h"

#include <QString>

#include <atomic>
#include <mutex>

/// Numbers of the configuration parameters: 0 to 16 are integers, 18 to 21 texts.
enum DEV_CONFIG_PARAMS : int {
    DEVICE_INDEX = 0,
    CORE_INDEX = 1,
    USB_SERIAL_NO = 2,
    USE_SERIAL_NO = 3,
    HOST_IF = 4,
    TARGET_IF = 5,
    TIF_SPEED = 6,
    USE_MAX_SPEED = 7,
    USE_ADAPTIVE = 8,
    ENDIAN = 9,
    DR_PRE = 10,
    IR_PRE = 11,
    MULTIPLE_TARGETS = 12,
    CONFIG_UNUSED_13 = 13,
    BREAK_SYMBOL_ADDR = 14,
    MCT_CTRL_BLOCK_ADDR = 15,
    MCT_SEARCH_RANGE_COUNT = 16,
    CONFIG_INT_COUNT = 17,
    HOST_NAME = 18,
    DEVICE_NAME = 19,
    SCRIPT_FILE = 20,
    LOG_FILE = 21,
};

/// Values of HOST_IF and TARGET_IF.
enum HOST_INTERFACES : I32 { HOST_IF_USB = 1, HOST_IF_IP = 2 };
enum TARGET_INTERFACES : I32 { TIF_JTAG = 0, TIF_SWD = 1, TIF_FINE = 3, TIF_CJTAG = 7 };

/// Speed values with a meaning of their own.
constexpr I32 TIF_SPEED_MAX = 0;
constexpr I32 TIF_SPEED_ADAPTIVE = 65535;

/// How the probe and the device are reached: the configuration record of the device, its defaults and the
/// settings text written after every change. Written on the device thread (or before it runs, by the
/// project); read from any thread: an integer at a time, or the settings text.
class CDeviceConfig {
public:
    static constexpr int HOST_NAME_SIZE = 256;
    static constexpr int DEVICE_NAME_SIZE = 256;
    static constexpr int PATH_SIZE = 2048;
    static constexpr int MCT_RANGES_MAX = 50;
    static constexpr const char* DEFAULT_HOST_NAME = "192.168.0.1";

    CDeviceConfig();

    /// Back to the defaults.
    void Reset();

    /// The integer form: -1 with the warning "Unknown configuration parameter with ID %d" for 17 and
    /// above; the speed parameters keep each other consistent. 0 on success.
    int SetParam(int Param, I32 Value);
    /// The text form: -1 with "Invalid configuration parameter string value" for a null text and
    /// "Invalid configuration parameter" for a number other than 18 to 21. Texts are cut to their field.
    /// DEVICE_NAME also sets DEVICE_INDEX through the device look-up. 0 on success.
    int SetText(int Param, const char* Text);

    I32 GetParam(int Param) const;
    QString GetText(int Param) const;

    /// Appends an MCT search range; false when the list is full.
    bool AddMctSearchRange(U32 Addr, U32 Size);
    void ClearMctSearchRanges();
    int GetMctSearchRanges(U32* Pairs, int MaxPairs) const;

    /// The settings text (XML, at most 2048 bytes) of the current values.
    QString GetSettingsText() const;
    /// Reads a settings text; each item is looked for among the root's attributes, then in its children.
    /// Returns the number of values taken, or -1 for a text that is no settings text.
    int Configure(const QString& Text);

    /// Maps a device name to the library's index (the probe library's look-up); -1 for unknown.
    void SetDeviceIndexLookup(int (*Lookup)(const char* Name)) { m_Lookup = Lookup; }
    /// Called after each change with the parameter and its value (0 for texts).
    void SetChangeListener(void (*Listener)(int Param, I32 Value)) { m_Listener = Listener; }

private:
    void Changed(int Param, I32 Value);
    void RewriteSettingsText();

    std::atomic<I32> m_Params[CONFIG_INT_COUNT];
    mutable std::mutex m_Lock; // the texts and the settings text
    QByteArray m_HostName;
    QByteArray m_DeviceName;
    QByteArray m_ScriptFile;
    QByteArray m_LogFile;
    U32 m_MctRanges[MCT_RANGES_MAX * 2] = {};
    QString m_SettingsText;
    int (*m_Lookup)(const char*) = nullptr;
    void (*m_Listener)(int, I32) = nullptr;
};

/// The configuration of the process's device.
CDeviceConfig& GetDeviceConfig();
