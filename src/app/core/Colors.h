#pragma once

#include "app/core/Types.h"

#include <QColor>

/// Ids of the colour table; the index is the id.
enum COLOR_IDS : I32 {
    COLOR_SELECTION_HIGHLIGHT = 0,
    COLOR_SELECTION_HIGHLIGHT_TEXT,
    COLOR_CHANGE_LEVEL_1_BG,
    COLOR_CHANGE_LEVEL_2_BG,
    COLOR_CHANGE_LEVEL_3_BG,
    COLOR_CHANGE_LEVEL_1_FG,
    COLOR_CHANGE_LEVEL_2_FG,
    COLOR_CHANGE_LEVEL_3_FG,
    COLOR_PC_ACTIVE,
    COLOR_PC_INACTIVE,
    COLOR_PC_BACKTRACE,
    COLOR_CALL_SITE_ACTIVE,
    COLOR_CALL_SITE_INACTIVE,
    COLOR_TABLE_GRID_LINES,
    COLOR_SYNTAX_REGISTER,
    COLOR_SYNTAX_LABEL,
    COLOR_SYNTAX_MNEMONIC,
    COLOR_SYNTAX_IMMEDIATE,
    COLOR_SYNTAX_KEYWORD,
    COLOR_SYNTAX_DIRECTIVE,
    COLOR_SYNTAX_STRING,
    COLOR_SYNTAX_COMMENT,
    COLOR_SYNTAX_TEXT,
    COLOR_LOGGING_SCRIPT,
    COLOR_LOGGING_USER,
    COLOR_LOGGING_ERROR,
    COLOR_LOGGING_TARVO,
    COLOR_PROGRESS_BAR_PROGRESS,
    COLOR_PROGRESS_BAR_REMAINING,
    COLOR_SYMBOL_GLOBAL_VAR,
    COLOR_SYMBOL_LOCAL_VAR,
    COLOR_SYMBOL_CONSTANT,
    COLOR_SYMBOL_MEMBER,
    COLOR_SYMBOL_FUNCTION,
    COLOR_ASM_LABEL_BACKG,
    COLOR_ASM_BACKG,
    COLOR_EXEC_PROFILE_GOOD_INSTR,
    COLOR_EXEC_PROFILE_BAD_INSTR,
    COLOR_TABLE_FILTER_MATCH,
    COLOR_COUNT
};

/// Symbolic colour values: resolved from the application palette at the moment of use.
enum SYMBOLIC_COLORS : U32 {
    SYMCOLOR_BASE = 0xFF000001,
    SYMCOLOR_TEXT = 0xFF000002,
    SYMCOLOR_HIGHLIGHT = 0xFF000003,
    SYMCOLOR_HIGHLIGHTED_TEXT = 0xFF000004,
    SYMCOLOR_BASE_DARK = 0xFF000005,
};

/// "transparent": stands for the palette's text colour, replaced when printed.
constexpr U32 COLOR_VALUE_TRANSPARENT = 0x00000000;

/// One row of the colour table.
struct COLOR_INFO {
    U32 Id;
    U32 Value; ///< default, ARGB or symbolic
    const char* Name;
    const char* Label;
    const char* Description;
};

extern const COLOR_INFO g_ColorInfo[COLOR_COUNT];

/// Row by id, or null.
const COLOR_INFO* GetColorInfo(I32 Id);
/// Row by exact name, or null.
const COLOR_INFO* FindColor(const char* Name);
/// The current value of a colour (its default until changed), as ARGB or symbolic.
U32 GetColorValue(I32 Id);
/// Sets the current value; false for an unknown id.
bool SetColorValue(I32 Id, U32 Value);
/// ARGB of a value: symbolic values from the application palette. GUI thread.
QColor ResolveColor(U32 Value);
/// Resolved colour of an id; an id outside the table gives black.
QColor GetColor(I32 Id);
