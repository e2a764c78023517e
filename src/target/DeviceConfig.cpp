#include "target/DeviceConfig.h"

#include "app/core/Log.h"
#include "app/core/Numbers.h"

#include <QHash>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace {

const I32 s_Defaults[CONFIG_INT_COUNT] = {-1, 0, 0, 0, HOST_IF_USB, TIF_JTAG, 0, 1, 0,
                                          0,  0, 0, 0, 6,           -1,       0, 0};

QString Hex(I32 Value) {
    return QStringLiteral("0x") + QString::number(static_cast<U32>(Value), 16).toUpper();
}

/// Speed in kHz for the text and the probe; 0 and 65535 keep their meaning.
I32 ToKHz(I32 Hz) {
    return Hz == TIF_SPEED_MAX || Hz == TIF_SPEED_ADAPTIVE ? Hz : Hz / 1000;
}
I32 FromKHz(I32 KHz) {
    return KHz == TIF_SPEED_MAX || KHz == TIF_SPEED_ADAPTIVE ? KHz : KHz * 1000;
}

QByteArray Cut(const char* Text, int Size) {
    QByteArray Bytes(Text);
    if (Bytes.size() > Size - 1) {
        Bytes.truncate(Size - 1);
    }
    return Bytes;
}

/// An attribute's number, in the forms the commands read; kept to its low 32 bits like the settings it feeds.
bool ParseNumber(const QString& Text, I32& Value) {
    I64 V = 0;
    if (!Numbers::ParseInteger(Text, V)) {
        return false;
    }
    Value = static_cast<I32>(V);
    return true;
}

} // namespace

CDeviceConfig::CDeviceConfig() {
    Reset();
}

void CDeviceConfig::Reset() {
    for (int i = 0; i < CONFIG_INT_COUNT; ++i) {
        m_Params[i] = s_Defaults[i];
    }
    {
        std::lock_guard<std::mutex> Guard(m_Lock);
        m_HostName = DEFAULT_HOST_NAME;
        m_DeviceName.clear();
        m_ScriptFile.clear();
        m_LogFile.clear();
        std::fill(std::begin(m_MctRanges), std::end(m_MctRanges), 0u);
    }
    RewriteSettingsText();
}

int CDeviceConfig::SetParam(int Param, I32 Value) {
    if (Param < 0 || Param >= CONFIG_INT_COUNT) {
        LogWarnMsg(QStringLiteral("Unknown configuration parameter with ID %1").arg(Param));
        return -1;
    }
    m_Params[Param] = Value;
    switch (Param) {
    case TIF_SPEED:
        m_Params[USE_MAX_SPEED] = Value == TIF_SPEED_MAX ? 1 : 0;
        m_Params[USE_ADAPTIVE] = Value == TIF_SPEED_ADAPTIVE ? 1 : 0;
        break;
    case USE_ADAPTIVE:
        if (Value > 0) {
            m_Params[TIF_SPEED] = TIF_SPEED_ADAPTIVE;
            m_Params[USE_MAX_SPEED] = 0;
        }
        break;
    case USE_MAX_SPEED:
        if (Value > 0) {
            m_Params[TIF_SPEED] = TIF_SPEED_MAX;
            m_Params[USE_ADAPTIVE] = 0;
        }
        break;
    default:
        break;
    }
    RewriteSettingsText();
    Changed(Param, Value);
    return 0;
}

int CDeviceConfig::SetText(int Param, const char* Text) {
    if (!Text) {
        LogWarnMsg(QStringLiteral("Invalid configuration parameter string value"));
        return -1;
    }
    switch (Param) {
    case HOST_NAME: {
        std::lock_guard<std::mutex> Guard(m_Lock);
        m_HostName = Cut(Text, HOST_NAME_SIZE);
        break;
    }
    case DEVICE_NAME: {
        {
            std::lock_guard<std::mutex> Guard(m_Lock);
            m_DeviceName = Cut(Text, DEVICE_NAME_SIZE);
        }
        const int Index = *Text && m_Lookup ? m_Lookup(Text) : -1;
        m_Params[DEVICE_INDEX] = Index < 0 ? -1 : Index;
        RewriteSettingsText();
        Changed(DEVICE_INDEX, m_Params[DEVICE_INDEX]);
        Changed(DEVICE_NAME, 0);
        return 0;
    }
    case SCRIPT_FILE: {
        std::lock_guard<std::mutex> Guard(m_Lock);
        m_ScriptFile = Cut(Text, PATH_SIZE);
        break;
    }
    case LOG_FILE: {
        std::lock_guard<std::mutex> Guard(m_Lock);
        m_LogFile = Cut(Text, PATH_SIZE);
        break;
    }
    default:
        LogWarnMsg(QStringLiteral("Invalid configuration parameter"));
        return -1;
    }
    RewriteSettingsText();
    Changed(Param, 0);
    return 0;
}

I32 CDeviceConfig::GetParam(int Param) const {
    return Param >= 0 && Param < CONFIG_INT_COUNT ? m_Params[Param].load() : 0;
}

QString CDeviceConfig::GetText(int Param) const {
    std::lock_guard<std::mutex> Guard(m_Lock);
    switch (Param) {
    case HOST_NAME:
        return QString::fromUtf8(m_HostName);
    case DEVICE_NAME:
        return QString::fromUtf8(m_DeviceName);
    case SCRIPT_FILE:
        return QString::fromUtf8(m_ScriptFile);
    case LOG_FILE:
        return QString::fromUtf8(m_LogFile);
    default:
        return QString();
    }
}

bool CDeviceConfig::AddMctSearchRange(U32 Addr, U32 Size) {
    const I32 Count = m_Params[MCT_SEARCH_RANGE_COUNT];
    if (Count < 0 || Count >= MCT_RANGES_MAX) {
        return false;
    }
    {
        std::lock_guard<std::mutex> Guard(m_Lock);
        m_MctRanges[Count * 2] = Addr;
        m_MctRanges[Count * 2 + 1] = Size;
    }
    SetParam(MCT_SEARCH_RANGE_COUNT, Count + 1);
    return true;
}

void CDeviceConfig::ClearMctSearchRanges() {
    SetParam(MCT_SEARCH_RANGE_COUNT, 0);
}

int CDeviceConfig::GetMctSearchRanges(U32* Pairs, int MaxPairs) const {
    std::lock_guard<std::mutex> Guard(m_Lock);
    const int Count = qMin(static_cast<int>(m_Params[MCT_SEARCH_RANGE_COUNT]), MaxPairs);
    for (int i = 0; i < Count * 2; ++i) {
        Pairs[i] = m_MctRanges[i];
    }
    return Count;
}

void CDeviceConfig::Changed(int Param, I32 Value) {
    if (m_Listener) {
        m_Listener(Param, Value);
    }
}

void CDeviceConfig::RewriteSettingsText() {
    QString Text;
    QXmlStreamWriter Xml(&Text);
    QString DeviceName;
    QString HostName;
    {
        std::lock_guard<std::mutex> Guard(m_Lock);
        DeviceName = QString::fromUtf8(m_DeviceName);
        HostName = QString::fromUtf8(m_HostName);
    }
    // A name with a blank stands in quotes, so that it reads back as one name.
    if (DeviceName.contains(QLatin1Char(' ')) && !DeviceName.startsWith(QLatin1Char('"'))) {
        DeviceName = QLatin1Char('"') + DeviceName + QLatin1Char('"');
    }
    Xml.writeStartElement(QStringLiteral("TarvoSettings"));
    Xml.writeStartElement(QStringLiteral("HostInterface"));
    Xml.writeAttribute(QStringLiteral("ConnectMode"), Hex(m_Params[HOST_IF]));
    Xml.writeAttribute(QStringLiteral("USBSerialNo"), Hex(m_Params[USB_SERIAL_NO]));
    Xml.writeAttribute(QStringLiteral("HostName"), HostName);
    Xml.writeAttribute(QStringLiteral("UseSerialNo"), Hex(m_Params[USE_SERIAL_NO]));
    Xml.writeEndElement();
    Xml.writeStartElement(QStringLiteral("TargetDevice"));
    Xml.writeAttribute(QStringLiteral("CoreIndex"), Hex(m_Params[CORE_INDEX]));
    Xml.writeAttribute(QStringLiteral("Endian"), Hex(m_Params[ENDIAN]));
    Xml.writeTextElement(QStringLiteral("DeviceName"), DeviceName);
    Xml.writeEndElement();
    Xml.writeStartElement(QStringLiteral("TargetInterface"));
    Xml.writeAttribute(QStringLiteral("TargetIF"), QString::number(m_Params[TARGET_IF]));
    Xml.writeAttribute(QStringLiteral("DRPre"), QString::number(m_Params[DR_PRE]));
    Xml.writeAttribute(QStringLiteral("IRPre"), QString::number(m_Params[IR_PRE]));
    Xml.writeAttribute(QStringLiteral("MultipleTargets"), QString::number(m_Params[MULTIPLE_TARGETS]));
    Xml.writeAttribute(QStringLiteral("Speed"), QString::number(ToKHz(m_Params[TIF_SPEED])));
    Xml.writeAttribute(QStringLiteral("UseAdaptive"), QString::number(m_Params[USE_ADAPTIVE]));
    Xml.writeAttribute(QStringLiteral("UseMaxSpeed"), QString::number(m_Params[USE_MAX_SPEED]));
    Xml.writeEndElement();
    Xml.writeEndElement();
    std::lock_guard<std::mutex> Guard(m_Lock);
    m_SettingsText = Text.left(2047);
}

QString CDeviceConfig::GetSettingsText() const {
    std::lock_guard<std::mutex> Guard(m_Lock);
    return m_SettingsText;
}

int CDeviceConfig::Configure(const QString& Text) {
    // Collect the root's attributes first, then those of its children and the texts of its leaf children;
    // an item found at the root is not looked for further down.
    QXmlStreamReader Xml(Text);
    QHash<QString, QString> Items;
    int Depth = 0;
    QString Open;
    bool Root = false;
    while (!Xml.atEnd()) {
        const QXmlStreamReader::TokenType Token = Xml.readNext();
        if (Token == QXmlStreamReader::StartElement) {
            ++Depth;
            if (Depth == 1) {
                Root = Xml.name() == QLatin1String("TarvoSettings");
            }
            for (const QXmlStreamAttribute& A : Xml.attributes()) {
                const QString Key = A.name().toString();
                if (!Items.contains(Key)) {
                    Items.insert(Key, A.value().toString());
                }
            }
            Open = Xml.name().toString();
        } else if (Token == QXmlStreamReader::Characters && !Xml.isWhitespace() && Depth > 1) {
            if (!Items.contains(Open)) {
                Items.insert(Open, Xml.text().toString());
            }
        } else if (Token == QXmlStreamReader::EndElement) {
            --Depth;
            Open.clear();
        }
    }
    if (Xml.hasError() || !Root) {
        return -1;
    }
    const struct {
        const char* Key;
        int Param;
    } Ints[] = {{"ConnectMode", HOST_IF},
                {"USBSerialNo", USB_SERIAL_NO},
                {"UseSerialNo", USE_SERIAL_NO},
                {"CoreIndex", CORE_INDEX},
                {"Endian", ENDIAN},
                {"TargetIF", TARGET_IF},
                {"DRPre", DR_PRE},
                {"IRPre", IR_PRE},
                {"MultipleTargets", MULTIPLE_TARGETS}};
    int Taken = 0;
    for (const auto& I : Ints) {
        I32 Value = 0;
        auto It = Items.constFind(QLatin1String(I.Key));
        if (It != Items.constEnd() && ParseNumber(It.value(), Value)) {
            SetParam(I.Param, Value);
            ++Taken;
        }
    }
    I32 Value = 0;
    // Speed first, then the two switches that override it.
    if (Items.contains(QStringLiteral("Speed")) && ParseNumber(Items.value(QStringLiteral("Speed")), Value)) {
        SetParam(TIF_SPEED, FromKHz(Value));
        ++Taken;
    }
    for (const auto& S :
         {std::pair<const char*, int>{"UseAdaptive", USE_ADAPTIVE}, {"UseMaxSpeed", USE_MAX_SPEED}}) {
        if (Items.contains(QLatin1String(S.first)) &&
            ParseNumber(Items.value(QLatin1String(S.first)), Value) && Value > 0) {
            SetParam(S.second, Value);
        }
    }
    if (Items.contains(QStringLiteral("HostName"))) {
        SetText(HOST_NAME, Items.value(QStringLiteral("HostName")).toUtf8().constData());
        ++Taken;
    }
    if (Items.contains(QStringLiteral("DeviceName"))) {
        QString Name = Items.value(QStringLiteral("DeviceName"));
        Name.remove(QLatin1Char('"'));
        SetText(DEVICE_NAME, Name.toUtf8().constData());
        ++Taken;
    }
    return Taken;
}

CDeviceConfig& GetDeviceConfig() {
    static CDeviceConfig s_Config;
    return s_Config;
}
