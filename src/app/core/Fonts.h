#pragma once

#include "app/core/Types.h"

#include <QFont>

/// Ids of the font table; the index is the id.
enum FONT_IDS : I32 {
    FONT_APP = 0,
    FONT_APP_MONO,
    FONT_ITEM_NAME,
    FONT_ITEM_VALUE,
    FONT_TABLE_HEADER,
    FONT_SRC_CODE,
    FONT_SRC_ASM_CODE,
    FONT_ASM_CODE,
    FONT_CONSOLE,
    FONT_LINE_NUMBERS,
    FONT_EXEC_COUNTERS,
    FONT_COUNT
};

/// One row of the font table.
struct FONT_INFO {
    const char* Name;
    const char* Label;
    const char* Description;
    I32 Id;
};

extern const FONT_INFO g_FontInfo[FONT_COUNT];

/// The fonts in use. GUI thread only.
namespace Fonts {

const FONT_INFO* GetFontInfo(I32 Id);
/// Row by exact name, or null.
const FONT_INFO* FindFont(const QString& Name);
/// The font of an id (its default until changed); an id outside the table gives the application font.
QFont GetFont(I32 Id);
/// Sets a font; false for an unknown id. The font counts as chosen by the user from now on.
bool SetFont(I32 Id, const QFont& Font);
/// Whether the user chose the font, so that it is kept in the settings.
bool IsFontChosen(I32 Id);
/// The platform's default for an id: proportional or fixed pitch.
QFont DefaultFont(I32 Id);
/// Every font back to its default.
void ResetAll();

} // namespace Fonts
