#include "app/core/Numbers.h"

#include <cmath>

namespace Numbers {

bool ParseInteger(const QString& Text, I64& Value) {
    QString T = Text.trimmed();
    if (T.isEmpty()) {
        return false;
    }
    bool Negative = false;
    if (T.startsWith(QLatin1Char('-')) || T.startsWith(QLatin1Char('+'))) {
        Negative = T[0] == QLatin1Char('-');
        T.remove(0, 1);
    }
    int Base = 10;
    if (T.startsWith(QLatin1String("0x"), Qt::CaseInsensitive)) {
        Base = 16;
        T.remove(0, 2);
    } else if (T.startsWith(QLatin1String("0b"), Qt::CaseInsensitive)) {
        Base = 2;
        T.remove(0, 2);
    }
    if (T.isEmpty() || T.startsWith(QLatin1Char('-')) || T.startsWith(QLatin1Char('+'))) {
        return false;
    }
    bool Ok = false;
    const U64 Magnitude = T.toULongLong(&Ok, Base);
    if (!Ok) {
        return false;
    }
    Value = Negative ? static_cast<I64>(0 - Magnitude) : static_cast<I64>(Magnitude);
    return true;
}

bool ParseHex(const QString& Text, U64& Value) {
    QString T = Text.trimmed();
    if (T.startsWith(QLatin1String("0x"), Qt::CaseInsensitive)) {
        T.remove(0, 2);
    }
    if (T.isEmpty()) {
        return false;
    }
    bool Ok = false;
    Value = T.toULongLong(&Ok, 16);
    return Ok;
}

I64 ParseFrequency(const QString& Text) {
    QString T = Text.trimmed();
    if (T.isEmpty()) {
        return -1;
    }
    double Scale = 1.0;
    const struct {
        const char* Unit;
        double Scale;
    } Units[] = {{"ghz", 1e9}, {"mhz", 1e6}, {"khz", 1e3}, {"hz", 1.0}};
    const QString Lower = T.toLower();
    for (const auto& U : Units) {
        if (Lower.endsWith(QLatin1String(U.Unit))) {
            Scale = U.Scale;
            T.chop(static_cast<int>(qstrlen(U.Unit)));
            T = T.trimmed();
            break;
        }
    }
    bool Ok = false;
    const double Number = T.toDouble(&Ok);
    if (!Ok || Number < 0 || !std::isfinite(Number)) {
        return -1;
    }
    const double Hz = std::round(Number * Scale);
    if (Hz > 9.2e18) {
        return -1;
    }
    return static_cast<I64>(Hz);
}

QString FormatFrequency(U64 Hz) {
    if (Hz != 0 && Hz % 1000000 == 0) {
        return QStringLiteral("%1 MHz").arg(Hz / 1000000);
    }
    if (Hz != 0 && Hz % 1000 == 0) {
        return QStringLiteral("%1 kHz").arg(Hz / 1000);
    }
    return QStringLiteral("%1 Hz").arg(Hz);
}

} // namespace Numbers
