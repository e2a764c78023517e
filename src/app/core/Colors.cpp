#include "app/core/Colors.h"

#include <QGuiApplication>
#include <QPalette>

#include <cstring>

const COLOR_INFO g_ColorInfo[COLOR_COUNT] = {
    {0, SYMCOLOR_HIGHLIGHT, "COLOR_SELECTION_HIGHLIGHT", "Selection Background", "Selection Background"},
    {1, SYMCOLOR_HIGHLIGHTED_TEXT, "COLOR_SELECTION_HIGHLIGHT_TEXT", "Selection Foreground",
     "Selection Foreground"},
    {2, SYMCOLOR_BASE, "COLOR_CHANGE_LEVEL_1_BG", "Change Level 1 Fill Color",
     "Change Level 1 background color"},
    {3, SYMCOLOR_BASE, "COLOR_CHANGE_LEVEL_2_BG", "Change Level 2 Fill Color",
     "Change Level 2 background color"},
    {4, SYMCOLOR_BASE, "COLOR_CHANGE_LEVEL_3_BG", "Change Level 3 Fill Color",
     "Change Level 3 background color"},
    {5, 0xFFFF0000, "COLOR_CHANGE_LEVEL_1_FG", "Change Level 1 Text Color",
     "Change Level 1 foreground color"},
    {6, 0xFFAA0000, "COLOR_CHANGE_LEVEL_2_FG", "Change Level 2 Text Color",
     "Change Level 2 foreground color"},
    {7, 0xFF770000, "COLOR_CHANGE_LEVEL_3_FG", "Change Level 3 Text Color",
     "Change Level 3 foreground color"},
    {8, 0xFF77FF6D, "COLOR_PC_ACTIVE", "PC Row Active", "Program counter highlight"},
    {9, 0xFFE3FFC1, "COLOR_PC_INACTIVE", "PC Row Inactive", "Program counter highlight inactive window"},
    {10, 0xFFFFFF00, "COLOR_PC_BACKTRACE", "PC Backtrace Highlight", "PC backtrace highlight"},
    {11, 0xFFFFFCD6, "COLOR_CALL_SITE_ACTIVE", "Callsite Row Active", "Callsite highlight"},
    {12, 0xFFFFFCD6, "COLOR_CALL_SITE_INACTIVE", "Callsite Row Inactive",
     "Callsite highlight, inactive window"},
    {13, SYMCOLOR_BASE_DARK, "COLOR_TABLE_GRID_LINES", "Table Grid Lines", "Table grid line color"},
    {14, 0xFF00008B, "COLOR_SYNTAX_REGISTER", "Syntax Register",
     "Syntax color of register names in the disassembly window"},
    {15, 0xFF000000, "COLOR_SYNTAX_LABEL", "Syntax Label",
     "Syntax color of labels in the disassembly window"},
    {16, 0xFF8B008B, "COLOR_SYNTAX_MNEMONIC", "Syntax Mnemonic",
     "Syntax color of mnemonics in the disassembly window"},
    {17, 0xFF8B0000, "COLOR_SYNTAX_IMMEDIATE", "Syntax Immediate",
     "Syntax color of immediate values in the disassembly window"},
    {18, 0xFF0000FA, "COLOR_SYNTAX_KEYWORD", "Syntax Keyword", "Syntax color of C keywords"},
    {19, 0xFF0000FA, "COLOR_SYNTAX_DIRECTIVE", "Syntax Directive", "Syntax color of C directives"},
    {20, 0xFFB22222, "COLOR_SYNTAX_STRING", "Syntax String", "Syntax color of source code strings"},
    {21, 0xFF008000, "COLOR_SYNTAX_COMMENT", "Syntax Comment", "Syntax color of C comments"},
    {22, 0xFF000000, "COLOR_SYNTAX_TEXT", "Syntax Text", "Source code text color"},
    {23, 0xFF009900, "COLOR_LOGGING_SCRIPT", "Console Text (Script)", "Color used for script event logging"},
    {24, SYMCOLOR_TEXT, "COLOR_LOGGING_USER", "Console Text (User)", "Color used for user event logging"},
    {25, 0xFFB22222, "COLOR_LOGGING_ERROR", "Console Text (Error)", "Color used for error logging"},
    {26, 0xFF00008B, "COLOR_LOGGING_TARVO", "Console Text (Tarvo)", "Color used for Tarvo logging"},
    {27, 0xFFF7FFE4, "COLOR_PROGRESS_BAR_PROGRESS", "Progress Bar Progress",
     "Color used for rendering the progress slice of a p-bar"},
    {28, SYMCOLOR_BASE, "COLOR_PROGRESS_BAR_REMAINING", "Progress Bar Remaining",
     "Color used for rendering the remaining slice of a p-bar"},
    {29, 0xFF64005C, "COLOR_SYMBOL_GLOBAL_VAR", "Symbol Icon Global Variable",
     "Color used for rendering icons of global variables"},
    {30, 0xFF64005C, "COLOR_SYMBOL_LOCAL_VAR", "Symbol Icon Local Variable",
     "Color used for rendering icons of local variables"},
    {31, 0xFF000000, "COLOR_SYMBOL_CONSTANT", "Symbol Icon Constant",
     "Color used for rendering icons of constants"},
    {32, 0xFF000000, "COLOR_SYMBOL_MEMBER", "Symbol Icon Member",
     "Color used for rendering icons of symbol members"},
    {33, 0xFF000000, "COLOR_SYMBOL_FUNCTION", "Symbol Icon Function",
     "Color used for rendering icons of functions"},
    {34, 0xFFE5F1FF, "COLOR_ASM_LABEL_BACKG", "Label Background",
     "Color used for highlighting disassembly labels"},
    {35, 0xFFF8FFFF, "COLOR_ASM_BACKG", "Background Color", "Disassembly window background color"},
    {36, 0xFFE3FFC1, "COLOR_EXEC_PROFILE_GOOD_INSTR", "Execution Profile - good instruction",
     "Execution Profile - good instruction"},
    {37, 0xFFFFD700, "COLOR_EXEC_PROFILE_BAD_INSTR", "Execution Profile - bad instruction",
     "Execution Profile - bad instruction"},
    {38, 0xFFCC0000, "COLOR_TABLE_FILTER_MATCH", "Text Filter Match", "Text Filter Match"},
};

namespace {

U32* RuntimeValues() {
    // A function-local static is initialised once, even when the first caller is another thread.
    static struct Table {
        U32 Values[COLOR_COUNT];
        Table() {
            for (int i = 0; i < COLOR_COUNT; ++i) {
                Values[i] = g_ColorInfo[i].Value;
            }
        }
    } s_Table;
    return s_Table.Values;
}

} // namespace

const COLOR_INFO* GetColorInfo(I32 Id) {
    return Id >= 0 && Id < COLOR_COUNT ? &g_ColorInfo[Id] : nullptr;
}

const COLOR_INFO* FindColor(const char* Name) {
    if (!Name) {
        return nullptr;
    }
    for (const COLOR_INFO& Info : g_ColorInfo) {
        if (std::strcmp(Info.Name, Name) == 0) {
            return &Info;
        }
    }
    return nullptr;
}

U32 GetColorValue(I32 Id) {
    return Id >= 0 && Id < COLOR_COUNT ? RuntimeValues()[Id] : 0xFF000000;
}

bool SetColorValue(I32 Id, U32 Value) {
    if (Id < 0 || Id >= COLOR_COUNT) {
        return false;
    }
    RuntimeValues()[Id] = Value;
    return true;
}

QColor ResolveColor(U32 Value) {
    if (Value >= SYMCOLOR_BASE && Value <= SYMCOLOR_BASE_DARK) {
        const QPalette Pal = QGuiApplication::palette();
        switch (Value) {
        case SYMCOLOR_BASE:
            return Pal.color(QPalette::Base);
        case SYMCOLOR_TEXT:
            return Pal.color(QPalette::Text);
        case SYMCOLOR_HIGHLIGHT:
            return Pal.color(QPalette::Highlight);
        case SYMCOLOR_HIGHLIGHTED_TEXT:
            return Pal.color(QPalette::HighlightedText);
        default:
            // "darker by a factor of 40": 40 percent darker than the base.
            return Pal.color(QPalette::Base).darker(140);
        }
    }
    if (Value == COLOR_VALUE_TRANSPARENT) {
        return QGuiApplication::palette().color(QPalette::Text);
    }
    return QColor::fromRgba(Value);
}

QColor GetColor(I32 Id) {
    if (Id < 0 || Id >= COLOR_COUNT) {
        return QColor(Qt::black);
    }
    return ResolveColor(RuntimeValues()[Id]);
}
