#pragma once

#include "app/core/Types.h"

#include <QString>
#include <QStringList>

struct SYSVAR_INFO;

/// Ids of the variables table: 0 to 32 are system variables, 33 to 83 user preferences.
enum SYSVAR_IDS : I32 {
    VAR_RESET_MODE = 0,
    VAR_CONNECT_MODE,
    VAR_SEMIHOSTING_ENABLED,
    VAR_MCT_ENABLED,
    VAR_TIF_SPEED,
    VAR_TIF_SCAN_CHAIN_POS,
    VAR_TIF_SCAN_CHAIN_LEN,
    VAR_SWO_CPU_SPEED,
    VAR_SWO_SPEED,
    VAR_ACCESS_WIDTH,
    VAR_BREAKPOINT_TYPE,
    VAR_VERIFY_DOWNLOAD,
    VAR_BREAK_AT_THIS_SYMBOL,
    VAR_HSS_SPEED,
    VAR_POWER_SAMPLING_SPEED,
    VAR_ALLOW_BMA_EMULATION,
    VAR_MEM_ZONE_RUNNING,
    VAR_TARGET_POWER_ON,
    VAR_TRACE_SOURCE,
    VAR_TRACE_PORT_WIDTH,
    VAR_TRACE_OVERRIDE_TIMINGS,
    VAR_TRACE_PORT_DELAY_0,
    VAR_TRACE_PORT_DELAY_1,
    VAR_TRACE_PORT_DELAY_2,
    VAR_TRACE_PORT_DELAY_3,
    VAR_TRACE_INIT_ON_ATTACH,
    VAR_TRACE_MAX_INST_CNT,
    VAR_TRACE_FILE_ENABLED,
    VAR_TRACE_FILE_PATH,
    VAR_TRACE_FILE_MAX_SIZE,
    VAR_TRACE_FILE_KEEP_START,
    VAR_TRACE_TIMESTAMPS_ENABLED,
    VAR_TRACE_CORE_CLOCK,
    PREF_SHOW_EXPANSION_BAR,
    PREF_SHOW_SIDEBAR_SRC,
    PREF_SHOW_SIDEBAR_ASM,
    PREF_SHOW_SRC_CODE_PROFILE,
    PREF_SHOW_ASM_CODE_PROFILE,
    PREF_SHOW_SYMBOL_ICONS,
    PREF_SHOW_PROJECT_WARNINGS_DIALOG,
    PREF_INDENT_INLINE_ASSEMBLY,
    PREF_LINE_NUMBER_FREQ,
    PREF_LOCK_HEADER_BAR,
    PREF_SHOW_ASM_SOURCE,
    PREF_SHOW_ASM_LABELS,
    PREF_TAB_SPACING,
    PREF_START_WITH_MOST_RECENT_PROJ,
    PREF_PREPEND_FUNC_CLASS_NAMES,
    PREF_SHOW_PROGBAR_WHILE_RUNNING,
    PREF_SHOW_CHAR_TEXT,
    PREF_SHOW_SHORT_TEXT,
    PREF_SHOW_INT_TEXT,
    PREF_SHOW_CHAR_PTR_TEXT,
    PREF_SHOW_SHORT_PTR_TEXT,
    PREF_SHOW_INT_PTR_TEXT,
    PREF_DIALOG_SHOW_DNSA,
    PREF_SHOW_HEX_BLOCKS,
    PREF_SHOW_TOOLTIPS,
    PREF_RESIZE_COL_ON_EXPAND,
    PREF_RESIZE_COL_ON_COLLAPSE,
    PREF_FILTER_BARS_DISABLED,
    PREF_MAX_SYMBOL_MEMBERS,
    PREF_SHOW_ENCODINGS_SRC,
    PREF_SHOW_ENCODINGS_ASM,
    PREF_SHOW_ENCODINGS_ITRACE,
    PREF_TIMESTAMP_FORMAT,
    PREF_RESTRICT_SRC_EDIT,
    PREF_TERMINAL_EOL_FORMAT,
    PREF_TERMINAL_ECHO_INPUT,
    PREF_TERMINAL_ZERO_TERM_INPUT,
    PREF_TERMINAL_NO_CONTROL_CHARS,
    PREF_TERMINAL_CLEAR_ON_RESET,
    PREF_TERMINAL_CAPTURE_SIZE_LIMIT,
    PREF_SHOW_TIMESTAMPS_CONSOLE,
    PREF_RESET_DIALOG_DNSA,
    PREF_SESSION_SAVE_FLAGS,
    PREF_TIMELINE_TOOLTIPS,
    PREF_CALLSTACK_LAYOUT,
    PREF_CALLSTACK_DEPTH_LIMIT,
    PREF_CG_GROUP_BY_ROOT_FUNCS,
    PREF_MAX_POWER_SAMPLES,
    PREF_HEX_BLOCK_SEPARATOR,
    PREF_DEC_BLOCK_SEPARATOR,
    PREF_BIN_BLOCK_SEPARATOR,
    SYSVAR_COUNT
};

constexpr I32 FIRST_PREFERENCE = PREF_SHOW_EXPANSION_BAR;

/// A type of the variables table: four operations in a fixed order.
struct SYSVAR_TYPE {
    /// Writes the value as text; returns the length.
    int (*ToText)(const SYSVAR_INFO* Row, U32 Flags, char* Buffer, int Size);
    /// Sets the value from a text (Pointer is a zero-terminated UTF-8 text); 0 or a negative error.
    /// Flags 1 or more also writes the stored copy.
    int (*ToValue)(const SYSVAR_INFO* Row, U32 Flags, const void* Pointer);
    /// Bytes of the value in storage: 4, 8, or the size of the text buffer.
    int (*Width)(const SYSVAR_INFO* Row);
    const char* (*TypeName)();
};

/// The six types.
extern const SYSVAR_TYPE SYSVAR_TYPE_SELECTION;
extern const SYSVAR_TYPE SYSVAR_TYPE_UNSIGNED;
extern const SYSVAR_TYPE SYSVAR_TYPE_SIGNED;
extern const SYSVAR_TYPE SYSVAR_TYPE_FREQUENCY;
extern const SYSVAR_TYPE SYSVAR_TYPE_STRING;
extern const SYSVAR_TYPE SYSVAR_TYPE_U64;

/// One row of the variables table.
struct SYSVAR_INFO {
    const char* Name;        ///< identifier, also the script constant
    const char* Description; ///< long text, the editor's "Description" column
    const SYSVAR_TYPE* Type;
    I64 Default;             ///< default value of a number row
    const char* DefaultText; ///< default of a text row
    bool HasStorage;         ///< false for rows whose value lives in the device configuration
    bool HasStored;          ///< preferences keep a second copy for the settings
    I32 InEditor;            ///< 1: listed in the System Variables editor
    const char* Label;       ///< short text of dialogs
    const char* Range;       ///< "Text=Value,..." choices or "SysVarMin=..,SysVarMax=.." bounds; may be empty
    int TextSize;            ///< size of a text row's buffer
};

/// Error results of ToValue.
enum SYSVAR_ERRORS : int {
    SYSVAR_ERR_NULL = -1,
    SYSVAR_ERR_NEGATIVE = -2, ///< a "-" given to an unsigned row
    SYSVAR_ERR_OUT_OF_RANGE = -3,
    SYSVAR_ERR_UNREADABLE = -4, ///< no digits, or a range that cannot be read
};

/// Access to the variables. Setters run on the GUI thread; the device thread reads the values without a
/// lock (numbers are atomic, texts are copied under a small lock).
namespace SysVars {

const SYSVAR_INFO* GetVarRow(I32 Id);
const SYSVAR_INFO* FindVarByName(const QString& Name);
I32 GetVarId(const SYSVAR_INFO* Row);
/// The value: 8 bytes for 64-bit rows, 4 for the others (signed rows are widened with their sign).
/// Default comes back for a null row.
I64 GetVarValue(const SYSVAR_INFO* Row, I64 Default = 0);
I64 GetVarValue(I32 Id, I64 Default = 0);
/// -1 on a null row or a text row; writes the value, with AlsoStored the stored copy too; marks the row set.
int SetVarValue(const SYSVAR_INFO* Row, I64 Value, bool AlsoStored);
/// The text of a text row; any other row parses the text through its type. -1 on a null row or text.
int SetVarText(const SYSVAR_INFO* Row, const char* Text, U32 Flags);
QString GetVarString(const SYSVAR_INFO* Row);
/// The stored copy of a preference.
I64 GetVarStored(const SYSVAR_INFO* Row);
/// The value differs from the default (a row without one: the value is not 0).
bool IsVarChanged(const SYSVAR_INFO* Row);
/// The row was written since the start by any setter.
bool IsVarSet(const SYSVAR_INFO* Row);
/// The value as the user sees it; a Value other than -1 is shown instead of the current one.
QString GetVarText(const SYSVAR_INFO* Row, I64 Value = -1);
/// A text to a value: a choice's text, a script constant, a number of automatic base or a frequency.
I64 ParseVarValue(const SYSVAR_INFO* Row, const QString& Text, bool& Ok);
/// Reads a bounds range; false when the row has none or it cannot be read.
bool GetVarRange(const SYSVAR_INFO* Row, I64& Min, I64& Max);
/// The texts and values of a choice range.
bool GetVarChoices(const SYSVAR_INFO* Row, QStringList& Texts, QList<I64>& Values);
/// Every row back to its default; nothing counts as set afterwards.
void ResetAll();

/// The value of rows without storage of their own comes from the device configuration.
void SetDeviceConfigAccess(I64 (*Get)(I32 Id), void (*Set)(I32 Id, I64 Value));

} // namespace SysVars
