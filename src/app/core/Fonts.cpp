#include "app/core/Fonts.h"

#include <QFontDatabase>
#include <QGuiApplication>

const FONT_INFO g_FontInfo[FONT_COUNT] = {
    {"FONT_APP", "Text", "Default Font used to display text", 0},
    {"FONT_APP_MONO", "Value", "Default Font used to display text", 1},
    {"FONT_ITEM_NAME", "Text", "Table text font", 2},
    {"FONT_ITEM_VALUE", "Value", "Table value text font", 3},
    {"FONT_TABLE_HEADER", "Text", "Table header font", 4},
    {"FONT_SRC_CODE", "Text", "Source code font as used by the source viewer", 5},
    {"FONT_SRC_ASM_CODE", "Assembly Code", "Font used for inline disassembly", 6},
    {"FONT_ASM_CODE", "Text", "Assembly code font as used by the disassembly and instruction trace windows",
     7},
    {"FONT_CONSOLE", "Text", "Console window font", 8},
    {"FONT_LINE_NUMBERS", "Line Numbers", "Font used for line numbers", 9},
    {"FONT_EXEC_COUNTERS", "Execution Counters", "Font used for execution counters", 10},
};

namespace {

struct FontTable {
    QFont Fonts[FONT_COUNT];
    bool Chosen[FONT_COUNT] = {};
    bool Ready = false;
};

FontTable& Table() {
    static FontTable s_Table;
    if (!s_Table.Ready) {
        for (int i = 0; i < FONT_COUNT; ++i) {
            s_Table.Fonts[i] = Fonts::DefaultFont(i);
        }
        s_Table.Ready = true;
    }
    return s_Table;
}

bool IsFixedPitch(I32 Id) {
    switch (Id) {
    case FONT_APP:
    case FONT_ITEM_NAME:
    case FONT_TABLE_HEADER:
        return false;
    default:
        return true;
    }
}

} // namespace

namespace Fonts {

const FONT_INFO* GetFontInfo(I32 Id) {
    return Id >= 0 && Id < FONT_COUNT ? &g_FontInfo[Id] : nullptr;
}

const FONT_INFO* FindFont(const QString& Name) {
    for (const FONT_INFO& Info : g_FontInfo) {
        if (Name == QLatin1String(Info.Name)) {
            return &Info;
        }
    }
    return nullptr;
}

QFont DefaultFont(I32 Id) {
    if (Id == FONT_APP) {
        // The application font of slot 0: the toolkit's default family at 8 points, normal style.
        QFont Font = QGuiApplication::font();
        Font.setPointSize(8);
        Font.setStyleName(QStringLiteral("Normal"));
        return Font;
    }
    if (IsFixedPitch(Id)) {
        return QFontDatabase::systemFont(QFontDatabase::FixedFont);
    }
    return QGuiApplication::font();
}

QFont GetFont(I32 Id) {
    if (Id < 0 || Id >= FONT_COUNT) {
        return QGuiApplication::font();
    }
    return Table().Fonts[Id];
}

bool SetFont(I32 Id, const QFont& Font) {
    if (Id < 0 || Id >= FONT_COUNT) {
        return false;
    }
    Table().Fonts[Id] = Font;
    Table().Chosen[Id] = true;
    return true;
}

bool IsFontChosen(I32 Id) {
    return Id >= 0 && Id < FONT_COUNT && Table().Chosen[Id];
}

void ResetAll() {
    FontTable& T = Table();
    for (int i = 0; i < FONT_COUNT; ++i) {
        T.Fonts[i] = DefaultFont(i);
        T.Chosen[i] = false;
    }
}

} // namespace Fonts
