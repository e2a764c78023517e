#include "app/core/Preferences.h"

#include "app/core/Colors.h"
#include "app/core/Fonts.h"
#include "app/core/Settings.h"
#include "app/core/SysVars.h"

#include <QColor>

namespace {

const QString KEY_PREFERENCES = QStringLiteral("AppData/Preferences/Preferences/");
const QString KEY_COLORS = QStringLiteral("AppData/Preferences/Colors/");
const QString KEY_FONTS = QStringLiteral("AppData/Preferences/Fonts/");

} // namespace

namespace Preferences {

void LoadPreferences() {
    for (I32 Id = FIRST_PREFERENCE; Id < SYSVAR_COUNT; ++Id) {
        const SYSVAR_INFO* Row = SysVars::GetVarRow(Id);
        const QString Key = KEY_PREFERENCES + QLatin1String(Row->Name);
        if (!Settings::Map().contains(Key)) {
            continue;
        }
        bool Ok = false;
        I64 Value = Settings::Value(Key).toString().trimmed().toLongLong(&Ok, 10);
        if (!Ok) {
            // A 64-bit row may hold more than a signed number takes.
            Value = static_cast<I64>(Settings::Value(Key).toString().trimmed().toULongLong(&Ok, 10));
        }
        SysVars::SetVarValue(Row, Ok ? Value : 0, true);
    }
}

void SavePreferences() {
    for (I32 Id = FIRST_PREFERENCE; Id < SYSVAR_COUNT; ++Id) {
        const SYSVAR_INFO* Row = SysVars::GetVarRow(Id);
        if (Row->HasStored && Row->Name) {
            const I64 Stored = SysVars::GetVarStored(Row);
            Settings::SetValue(KEY_PREFERENCES + QLatin1String(Row->Name),
                               Row->Type == &SYSVAR_TYPE_U64 ? QString::number(static_cast<U64>(Stored))
                                                             : QString::number(Stored));
        }
    }
}

void LoadColorsAndFonts() {
    for (I32 Id = 0; Id < COLOR_COUNT; ++Id) {
        const QString Key = KEY_COLORS + QLatin1String(g_ColorInfo[Id].Name);
        if (Settings::Map().contains(Key)) {
            const QColor Color = QColor::fromString(Settings::Value(Key).toString());
            if (Color.isValid()) {
                SetColorValue(Id, Color.rgba());
            }
        }
    }
    for (I32 Id = 0; Id < FONT_COUNT; ++Id) {
        const QString Key = KEY_FONTS + QLatin1String(g_FontInfo[Id].Name);
        if (Settings::Map().contains(Key)) {
            QFont Font;
            if (Font.fromString(Settings::Value(Key).toString())) {
                Fonts::SetFont(Id, Font);
            }
        }
    }
}

void SaveColorsAndFonts() {
    for (I32 Id = 0; Id < COLOR_COUNT; ++Id) {
        const QString Key = KEY_COLORS + QLatin1String(g_ColorInfo[Id].Name);
        const U32 Value = GetColorValue(Id);
        if (Value == g_ColorInfo[Id].Value) {
            Settings::Remove(Key);
        } else {
            Settings::SetValue(Key, ResolveColor(Value).name());
        }
    }
    for (I32 Id = 0; Id < FONT_COUNT; ++Id) {
        const QString Key = KEY_FONTS + QLatin1String(g_FontInfo[Id].Name);
        if (Fonts::IsFontChosen(Id)) {
            Settings::SetValue(Key, Fonts::GetFont(Id).toString());
        } else {
            Settings::Remove(Key);
        }
    }
}

} // namespace Preferences
