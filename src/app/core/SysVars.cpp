#include "app/core/SysVars.h"

#include "app/core/Numbers.h"
#include "app/core/ScriptConstants.h"

#include <QByteArray>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>

extern const SYSVAR_INFO g_SysVarRows[SYSVAR_COUNT];

namespace {

/// Run-time values beside the compiled rows. Numbers are atomic because the device thread reads them
/// while the GUI thread sets them.
struct Storage {
    std::atomic<I64> Values[SYSVAR_COUNT];
    std::atomic<I64> Stored[SYSVAR_COUNT];
    std::atomic<bool> Set[SYSVAR_COUNT];
    std::mutex TextLock;
    QByteArray Texts[SYSVAR_COUNT];
    I64 (*DeviceGet)(I32) = nullptr;
    void (*DeviceSet)(I32, I64) = nullptr;

    Storage() { Reset(); }
    void Reset() {
        std::lock_guard<std::mutex> Guard(TextLock);
        for (int i = 0; i < SYSVAR_COUNT; ++i) {
            Values[i] = g_SysVarRows[i].Default;
            Stored[i] = g_SysVarRows[i].Default;
            Set[i] = false;
            Texts[i] = g_SysVarRows[i].DefaultText ? QByteArray(g_SysVarRows[i].DefaultText) : QByteArray();
        }
    }
};

Storage& Store() {
    static Storage s_Storage;
    return s_Storage;
}

int IdOf(const SYSVAR_INFO* Row) {
    if (!Row || Row < g_SysVarRows || Row >= g_SysVarRows + SYSVAR_COUNT) {
        return -1;
    }
    return static_cast<int>(Row - g_SysVarRows);
}

bool IsText(const SYSVAR_INFO* Row) {
    return Row->Type == &SYSVAR_TYPE_STRING;
}
bool IsSigned(const SYSVAR_INFO* Row) {
    return Row->Type == &SYSVAR_TYPE_SIGNED;
}
bool Is64(const SYSVAR_INFO* Row) {
    return Row->Type == &SYSVAR_TYPE_U64;
}

/// A value as the storage of its width keeps it.
I64 Narrow(const SYSVAR_INFO* Row, I64 Value) {
    if (Is64(Row)) {
        return Value;
    }
    return IsSigned(Row) ? static_cast<I64>(static_cast<I32>(Value))
                         : static_cast<I64>(static_cast<U32>(Value));
}

/// Parses "SysVarMin=..,SysVarMax=.."; the numbers as 64-bit patterns.
bool ParseBounds(const char* Range, I64& Min, I64& Max) {
    if (!Range || !std::strstr(Range, "SysVarMin") || !std::strstr(Range, "SysVarMax")) {
        return false;
    }
    bool HaveMin = false;
    bool HaveMax = false;
    for (const QString& Item : QString::fromLatin1(Range).split(QLatin1Char(','))) {
        const int Eq = Item.indexOf(QLatin1Char('='));
        if (Eq < 0) {
            return false;
        }
        I64 Value = 0;
        if (!Numbers::ParseInteger(Item.mid(Eq + 1), Value)) {
            return false;
        }
        const QString Key = Item.left(Eq).trimmed();
        if (Key == QLatin1String("SysVarMin")) {
            Min = Value;
            HaveMin = true;
        } else if (Key == QLatin1String("SysVarMax")) {
            Max = Value;
            HaveMax = true;
        }
    }
    return HaveMin && HaveMax;
}

bool ParseChoices(const char* Range, QStringList& Texts, QList<I64>& Values) {
    if (!Range || !*Range || std::strstr(Range, "SysVarMin")) {
        return false;
    }
    Texts.clear();
    Values.clear();
    for (const QString& Item : QString::fromLatin1(Range).split(QLatin1Char(','))) {
        const int Eq = Item.lastIndexOf(QLatin1Char('='));
        I64 Value = 0;
        if (Eq < 0 || !Numbers::ParseInteger(Item.mid(Eq + 1), Value)) {
            return false;
        }
        Texts.append(Item.left(Eq));
        Values.append(Value);
    }
    return !Texts.isEmpty();
}

bool InBounds(const SYSVAR_INFO* Row, I64 Value, I64 Min, I64 Max) {
    if (IsSigned(Row)) {
        return Value >= Min && Value <= Max;
    }
    return static_cast<U64>(Value) >= static_cast<U64>(Min) &&
           static_cast<U64>(Value) <= static_cast<U64>(Max);
}

int Print(char* Buffer, int Size, const QByteArray& Text) {
    if (!Buffer || Size <= 0) {
        return 0;
    }
    const int N = qMin(Size - 1, static_cast<int>(Text.size()));
    std::memcpy(Buffer, Text.constData(), static_cast<size_t>(N));
    Buffer[N] = '\0';
    return N;
}

/// The text of a value of a row, without touching the row.
QByteArray TextOfValue(const SYSVAR_INFO* Row, I64 Value) {
    char Buf[160];
    if (Row->Type == &SYSVAR_TYPE_SELECTION) {
        QStringList Texts;
        QList<I64> Values;
        if (ParseChoices(Row->Range, Texts, Values)) {
            const int At = static_cast<int>(Values.indexOf(Value));
            if (At >= 0) {
                return Texts[At].toUtf8();
            }
        }
        return QByteArray::number(Value);
    }
    if (Row->Type == &SYSVAR_TYPE_UNSIGNED || Row->Type == &SYSVAR_TYPE_SIGNED) {
        const bool Signed = IsSigned(Row);
        const char* Num = Signed ? "%d" : "%u";
        I64 Min = 0;
        I64 Max = 0;
        if (!ParseBounds(Row->Range, Min, Max)) {
            std::snprintf(Buf, sizeof(Buf),
                          Signed ? "%d (Could not check range)." : "%u (Could not check range).",
                          static_cast<int>(Value));
        } else if (!InBounds(Row, Value, Min, Max)) {
            if (Signed) {
                std::snprintf(Buf, sizeof(Buf), "Value %d is out of range (Min: %d, Max: %d)",
                              static_cast<int>(Value), static_cast<int>(Min), static_cast<int>(Max));
            } else {
                std::snprintf(Buf, sizeof(Buf), "Value %u is out of range (Min: %u, Max: %u)",
                              static_cast<unsigned>(Value), static_cast<unsigned>(Min),
                              static_cast<unsigned>(Max));
            }
        } else {
            std::snprintf(Buf, sizeof(Buf), Num, static_cast<int>(Value));
        }
        return QByteArray(Buf);
    }
    if (Row->Type == &SYSVAR_TYPE_U64) {
        return QByteArray::number(static_cast<qulonglong>(Value));
    }
    // Frequencies, and any type that gives no text of its own.
    return Numbers::FormatFrequency(static_cast<U64>(Value)).toUtf8();
}

int StoreNumber(const SYSVAR_INFO* Row, U32 Flags, I64 Value) {
    SysVars::SetVarValue(Row, Value, Flags >= 1);
    return 0;
}

// ToText of every type: the current value.
int ToTextNumber(const SYSVAR_INFO* Row, U32, char* Buffer, int Size) {
    return Print(Buffer, Size, TextOfValue(Row, SysVars::GetVarValue(Row)));
}

int ToTextString(const SYSVAR_INFO* Row, U32, char* Buffer, int Size) {
    return Print(Buffer, Size, SysVars::GetVarString(Row).toUtf8());
}

int ToValueSelection(const SYSVAR_INFO* Row, U32 Flags, const void* Pointer) {
    if (!Row || !Pointer) {
        return SYSVAR_ERR_NULL;
    }
    const QString Text = QString::fromUtf8(static_cast<const char*>(Pointer)).trimmed();
    QStringList Texts;
    QList<I64> Values;
    if (!ParseChoices(Row->Range, Texts, Values)) {
        return SYSVAR_ERR_UNREADABLE;
    }
    const int At = static_cast<int>(Texts.indexOf(Text));
    if (At >= 0) {
        return StoreNumber(Row, Flags, Values[At]);
    }
    I64 Value = 0;
    if (Numbers::ParseInteger(Text, Value) && Values.contains(Value)) {
        return StoreNumber(Row, Flags, Value);
    }
    return SYSVAR_ERR_UNREADABLE;
}

/// "0x" or "0X" is hexadecimal, any other text decimal; blanks may stand ahead of the digits.
int ToValueInteger(const SYSVAR_INFO* Row, U32 Flags, const void* Pointer) {
    if (!Row || !Pointer) {
        return SYSVAR_ERR_NULL;
    }
    QString Text = QString::fromUtf8(static_cast<const char*>(Pointer)).trimmed();
    bool Negative = false;
    if (Text.startsWith(QLatin1Char('-'))) {
        if (!IsSigned(Row)) {
            return SYSVAR_ERR_NEGATIVE;
        }
        Negative = true;
        Text = Text.mid(1).trimmed();
    }
    int Base = 10;
    if (Text.startsWith(QLatin1String("0x")) || Text.startsWith(QLatin1String("0X"))) {
        Base = 16;
        Text = Text.mid(2);
    }
    I64 Min = 0;
    I64 Max = 0;
    bool Ok = false;
    const U64 Magnitude = Text.toULongLong(&Ok, Base);
    if (!Ok || !ParseBounds(Row->Range, Min, Max)) {
        return SYSVAR_ERR_UNREADABLE;
    }
    const I64 Value = Negative ? -static_cast<I64>(Magnitude) : static_cast<I64>(Magnitude);
    if ((!Is64(Row) && Magnitude > 0xFFFFFFFFull) || !InBounds(Row, Value, Min, Max)) {
        return SYSVAR_ERR_OUT_OF_RANGE;
    }
    return StoreNumber(Row, Flags, Value);
}

int ToValueFrequency(const SYSVAR_INFO* Row, U32 Flags, const void* Pointer) {
    if (!Row || !Pointer) {
        return SYSVAR_ERR_NULL;
    }
    const I64 Hz = Numbers::ParseFrequency(QString::fromUtf8(static_cast<const char*>(Pointer)));
    I64 Min = 0;
    I64 Max = 0;
    if (Hz < 0 || !ParseBounds(Row->Range, Min, Max)) {
        return SYSVAR_ERR_UNREADABLE;
    }
    if (!InBounds(Row, Hz, Min, Max)) {
        return SYSVAR_ERR_OUT_OF_RANGE;
    }
    return StoreNumber(Row, Flags, Hz);
}

int ToValueString(const SYSVAR_INFO* Row, U32 Flags, const void* Pointer) {
    if (!Row || !Pointer) {
        return SYSVAR_ERR_NULL;
    }
    return SysVars::SetVarText(Row, static_cast<const char*>(Pointer), Flags);
}

int Width4(const SYSVAR_INFO*) {
    return 4;
}
int Width8(const SYSVAR_INFO*) {
    return 8;
}
int WidthText(const SYSVAR_INFO* Row) {
    return Row ? Row->TextSize : 0;
}

} // namespace

const SYSVAR_TYPE SYSVAR_TYPE_SELECTION = {ToTextNumber, ToValueSelection, Width4,
                                           []() { return "string selection"; }};
const SYSVAR_TYPE SYSVAR_TYPE_UNSIGNED = {ToTextNumber, ToValueInteger, Width4,
                                          []() { return "unsigned int"; }};
const SYSVAR_TYPE SYSVAR_TYPE_SIGNED = {ToTextNumber, ToValueInteger, Width4, []() { return "signed int"; }};
const SYSVAR_TYPE SYSVAR_TYPE_FREQUENCY = {ToTextNumber, ToValueFrequency, Width4,
                                           []() { return "unsigned int"; }};
const SYSVAR_TYPE SYSVAR_TYPE_STRING = {ToTextString, ToValueString, WidthText, []() { return "string"; }};
const SYSVAR_TYPE SYSVAR_TYPE_U64 = {ToTextNumber, ToValueInteger, Width8,
                                     []() { return "unsigned long long"; }};

namespace SysVars {

const SYSVAR_INFO* GetVarRow(I32 Id) {
    return Id >= 0 && Id < SYSVAR_COUNT ? &g_SysVarRows[Id] : nullptr;
}

const SYSVAR_INFO* FindVarByName(const QString& Name) {
    const QByteArray Key = Name.toLatin1();
    for (const SYSVAR_INFO& Row : g_SysVarRows) {
        if (Key == Row.Name) {
            return &Row;
        }
    }
    return nullptr;
}

I32 GetVarId(const SYSVAR_INFO* Row) {
    return IdOf(Row);
}

I64 GetVarValue(const SYSVAR_INFO* Row, I64 Default) {
    const int Id = IdOf(Row);
    if (Id < 0 || IsText(Row)) {
        return Default;
    }
    Storage& S = Store();
    if (!Row->HasStorage && S.DeviceGet) {
        return Narrow(Row, S.DeviceGet(Id));
    }
    return Narrow(Row, S.Values[Id].load(std::memory_order_relaxed));
}

I64 GetVarValue(I32 Id, I64 Default) {
    return GetVarValue(GetVarRow(Id), Default);
}

int SetVarValue(const SYSVAR_INFO* Row, I64 Value, bool AlsoStored) {
    const int Id = IdOf(Row);
    if (Id < 0 || IsText(Row)) {
        return -1;
    }
    Storage& S = Store();
    const I64 Narrowed = Narrow(Row, Value);
    if (!Row->HasStorage && S.DeviceSet) {
        S.DeviceSet(Id, Narrowed);
    }
    S.Values[Id].store(Narrowed, std::memory_order_relaxed);
    if (AlsoStored && Row->HasStored) {
        S.Stored[Id].store(Narrowed, std::memory_order_relaxed);
    }
    S.Set[Id] = true;
    return 0;
}

int SetVarText(const SYSVAR_INFO* Row, const char* Text, U32 Flags) {
    const int Id = IdOf(Row);
    if (Id < 0 || !Row->Type || !Text) {
        return -1;
    }
    if (!IsText(Row)) {
        return Row->Type->ToValue(Row, Flags, Text);
    }
    Storage& S = Store();
    QByteArray Bytes(Text);
    if (Row->TextSize > 0 && Bytes.size() >= Row->TextSize) {
        Bytes.truncate(Row->TextSize - 1);
    }
    {
        std::lock_guard<std::mutex> Guard(S.TextLock);
        S.Texts[Id] = Bytes;
    }
    S.Set[Id] = true;
    return 0;
}

QString GetVarString(const SYSVAR_INFO* Row) {
    const int Id = IdOf(Row);
    if (Id < 0) {
        return QString();
    }
    if (!IsText(Row)) {
        return GetVarText(Row);
    }
    Storage& S = Store();
    std::lock_guard<std::mutex> Guard(S.TextLock);
    return QString::fromUtf8(S.Texts[Id]);
}

I64 GetVarStored(const SYSVAR_INFO* Row) {
    const int Id = IdOf(Row);
    return Id < 0 ? 0 : Store().Stored[Id].load(std::memory_order_relaxed);
}

bool IsVarChanged(const SYSVAR_INFO* Row) {
    if (IdOf(Row) < 0) {
        return false;
    }
    if (IsText(Row)) {
        return GetVarString(Row) != QString::fromUtf8(Row->DefaultText ? Row->DefaultText : "");
    }
    const I64 Value = GetVarValue(Row);
    return Row->HasStorage ? Value != Narrow(Row, Row->Default) : Value != 0;
}

bool IsVarSet(const SYSVAR_INFO* Row) {
    const int Id = IdOf(Row);
    return Id >= 0 && Store().Set[Id].load();
}

QString GetVarText(const SYSVAR_INFO* Row, I64 Value) {
    if (IdOf(Row) < 0) {
        return QString();
    }
    if (IsText(Row)) {
        return GetVarString(Row);
    }
    return QString::fromUtf8(TextOfValue(Row, Value == -1 ? GetVarValue(Row) : Narrow(Row, Value)));
}

I64 ParseVarValue(const SYSVAR_INFO* Row, const QString& Text, bool& Ok) {
    Ok = false;
    if (IdOf(Row) < 0) {
        return 0;
    }
    QString T = Text.trimmed();
    QStringList Texts;
    QList<I64> Values;
    if (ParseChoices(Row->Range, Texts, Values)) {
        const int At = static_cast<int>(Texts.indexOf(T));
        if (At >= 0) {
            Ok = true;
            return Values[At];
        }
    }
    if (const SCRIPT_CONST* C = ScriptConstants::Lookup(T)) {
        T = QString::number(C->Value);
    }
    I64 Value = 0;
    if (Numbers::ParseInteger(T, Value)) {
        Ok = true;
        return Value;
    }
    const I64 Hz = Numbers::ParseFrequency(T);
    if (Hz >= 0) {
        Ok = true;
        return Hz;
    }
    return 0;
}

bool GetVarRange(const SYSVAR_INFO* Row, I64& Min, I64& Max) {
    return IdOf(Row) >= 0 && ParseBounds(Row->Range, Min, Max);
}

bool GetVarChoices(const SYSVAR_INFO* Row, QStringList& Texts, QList<I64>& Values) {
    return IdOf(Row) >= 0 && ParseChoices(Row->Range, Texts, Values);
}

void ResetAll() {
    Store().Reset();
}

void SetDeviceConfigAccess(I64 (*Get)(I32 Id), void (*Set)(I32 Id, I64 Value)) {
    Store().DeviceGet = Get;
    Store().DeviceSet = Set;
}

} // namespace SysVars
