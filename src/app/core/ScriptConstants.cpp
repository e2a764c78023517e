#include "app/core/ScriptConstants.h"

#include "app/core/Numbers.h"

#include <QVector>

namespace ScriptConstants {
namespace {

struct BuiltIn {
    I64 Value;
    const char* Name;
    const char* Display; // null: the name
};

// The built-in constants in their order of registration; display texts are those of the dialogs that
// offer the values.
const BuiltIn s_BuiltIn[] = {
    {0, "RM_RESET_HALT", "Reset & Halt"},
    {1, "RM_BREAK_AT_SYMBOL", "Reset & Break At Symbol"},
    {2, "RM_RESET_AND_RUN", "Reset & Run"},
    {0, "CM_DOWNLOAD_RESET", "Download & Reset Program"},
    {1, "CM_ATTACH", "Attach to Running Program"},
    {2, "CM_ATTACH_HALT", "Attach & Halt Program"},
    {0, "GO_USER", nullptr},
    {1, "GO_RUN_TO", nullptr},
    {2, "NUMBER_BASE_BINARY", nullptr},
    {10, "NUMBER_BASE_DEC", nullptr},
    {16, "NUMBER_BASE_HEX", nullptr},
    {0, "DISPLAY_FORMAT_AUTO", nullptr},
    {2, "DISPLAY_FORMAT_BINARY", nullptr},
    {8, "DISPLAY_FORMAT_CHAR", nullptr},
    {10, "DISPLAY_FORMAT_DEC", nullptr},
    {16, "DISPLAY_FORMAT_HEX", nullptr},
    {0, "AW_ANY", "Auto Access"},
    {1, "AW_BYTE", "Byte"},
    {2, "AW_HALF_WORD", "HalfWord"},
    {4, "AW_WORD", "Word"},
    {0, "AT_READ_ONLY", nullptr},
    {1, "AT_WRITE_ONLY", nullptr},
    {2, "AT_READ_WRITE", nullptr},
    {3, "AT_NO_ACCESS", nullptr},
    {0, "BP_STATE_OFF", nullptr},
    {1, "BP_STATE_ON", nullptr},
    {3, "BP_STATE_DISABLED", nullptr},
    {2, "BP_STATE_ON_HIDDEN", nullptr},
    {4, "BP_STATE_MIXED", nullptr},
    {5, "BP_STATE_UNKNOWN", nullptr},
    {0, "BP_TYPE_ANY", "Any"},
    {1, "BP_TYPE_HARD", "Hardware"},
    {2, "BP_TYPE_SOFT", "Software"},
    {4, "BP_TYPE_RAM", nullptr},
    {3, "BP_TYPE_FLASH", nullptr},
    {5, "BP_TYPE_Pending", nullptr},
    {6, "BP_TYPE_MIXED", nullptr},
    {0, "FREQ_AUTO", "Auto Speed"},
    {65535, "FREQ_ADAPTIVE", "Adaptive Speed"},
    {1, "FREQ_1_HZ", "1 Hz"},
    {2, "FREQ_2_HZ", "2 Hz"},
    {5, "FREQ_5_HZ", "5 Hz"},
    {10, "FREQ_10_HZ", "10 Hz"},
    {20, "FREQ_20_HZ", "20 Hz"},
    {50, "FREQ_50_HZ", "50 Hz"},
    {100, "FREQ_100_HZ", "100 Hz"},
    {200, "FREQ_200_HZ", "200 Hz"},
    {500, "FREQ_500_HZ", "500 Hz"},
    {1000, "FREQ_1_KHZ", "1 kHz"},
    {2000, "FREQ_2_KHZ", "2 kHz"},
    {5000, "FREQ_5_KHZ", "5 kHz"},
    {10000, "FREQ_10_KHZ", "10 kHz"},
    {20000, "FREQ_20_KHZ", "20 kHz"},
    {50000, "FREQ_50_KHZ", "50 kHz"},
    {100000, "FREQ_100_KHZ", "100 kHz"},
    {200000, "FREQ_200_KHZ", "200 kHz"},
    {500000, "FREQ_500_KHZ", "500 kHz"},
    {1000000, "FREQ_1_MHZ", "1 MHz"},
    {2000000, "FREQ_2_MHZ", "2 MHz"},
    {3000000, "FREQ_3_MHZ", "3 MHz"},
    {4000000, "FREQ_4_MHZ", "4 MHz"},
    {5000000, "FREQ_5_MHZ", "5 MHz"},
    {8000000, "FREQ_8_MHZ", "8 MHz"},
    {10000000, "FREQ_10_MHZ", "10 MHz"},
    {12000000, "FREQ_12_MHZ", "12 MHz"},
    {15000000, "FREQ_15_MHZ", "15 MHz"},
    {20000000, "FREQ_20_MHZ", "20 MHz"},
    {25000000, "FREQ_25_MHZ", "25 MHz"},
    {50000000, "FREQ_50_MHZ", "50 MHz"},
    {1, "1", "yes"},
    {1, "YES", "yes"},
    {1, "ON", "yes"},
    {1, "TRUE", "yes"},
    {1, "0x1", "yes"},
    {1, "ACTIVE", "yes"},
    {1, "ENABLED", "yes"},
    {0, "0", "no"},
    {0, "NO", "no"},
    {0, "OFF", "no"},
    {0, "FALSE", "no"},
    {0, "0x0", "no"},
    {0, "INACTIVE", "no"},
    {0, "DISABLED", "no"},
    {1, "USB", nullptr},
    {2, "IP", nullptr},
    {0, "JTAG", nullptr},
    {7, "cJTAG", nullptr},
    {3, "FINE", nullptr},
    {1, "SWD", nullptr},
    {0, "TRACE_SOURCE_NONE", nullptr},
    {1, "TRACE_SOURCE_ETM", "Trace Pins"},
    {2, "TRACE_SOURCE_ETB", "Trace Buffer"},
    {3, "TRACE_SOURCE_SWO", nullptr},
    {0, "EOL_FORMAT_WIN", "Windows format (CR+LF)"},
    {1, "EOL_FORMAT_UNIX", "Unix format (LF)"},
    {2, "EOL_FORMAT_MAC", "Mac format (CR)"},
    {3, "EOL_FORMAT_NONE", nullptr},
    {0, "CSV_FUNCS", nullptr},
    {1, "CSV_LINES", nullptr},
    {2, "CSV_INSTS", nullptr},
    {0, "TP_OP_START", nullptr},
    {1, "TP_OP_STOP", nullptr},
    {1, "DISABLE_SAVE_WINDOW_LAYOUT", nullptr},
    {2, "DISABLE_SAVE_TABLE_LAYOUT", nullptr},
    {4, "DISABLE_SAVE_OPEN_FILES", nullptr},
    {8, "DISABLE_SAVE_BREAKPOINTS", nullptr},
    {16, "DISABLE_SAVE_EXPRESSIONS", nullptr},
    {32, "DISABLE_SAVE_SELECTED_REGS", nullptr},
    {4294967295LL, "DISABLE_SAVE_ANY", nullptr},
    {1000000, "POWER_UNIT_MICROAMPS", nullptr},
    {1000, "POWER_UNIT_MILLIAMPS", nullptr},
    {0, "LAYOUT_CURR_FRAME_ON_TOP", "Current Frame at Top"},
    {1, "LAYOUT_CURR_FRAME_ON_BOTTOM", "Current Frame at Bottom"},
    {0, "TIMESTAMP_FORMAT_OFF", nullptr},
    {1, "TIMESTAMP_FORMAT_INST_CNT", "Instruction Count"},
    {2, "TIMESTAMP_FORMAT_CYCLES", "Cycles"},
    {3, "TIMESTAMP_FORMAT_TIME", "Time"},
};

constexpr int BUILT_IN_COUNT = sizeof(s_BuiltIn) / sizeof(s_BuiltIn[0]);
static_assert(BUILT_IN_COUNT == 117, "the script knows 117 built-in constants");

const struct {
    const char* Old;
    const char* New;
} s_OldSpellings[] = {{"RM_BREAK_AT_MAIN", "RM_BREAK_AT_SYMBOL"}, {"AW_AUTO", "AW_ANY"}};

QVector<SCRIPT_CONST>& Table() {
    static QVector<SCRIPT_CONST> s_Table = [] {
        QVector<SCRIPT_CONST> T;
        T.reserve(BUILT_IN_COUNT);
        for (const BuiltIn& B : s_BuiltIn) {
            const QString Name = QString::fromLatin1(B.Name);
            T.append({B.Value, Name, B.Display ? QString::fromLatin1(B.Display) : Name});
        }
        return T;
    }();
    return s_Table;
}

QString Unquote(QString Text) {
    Text = Text.trimmed();
    Text.remove(QLatin1Char('"'));
    return Text.trimmed();
}

} // namespace

int Count() {
    return Table().size();
}

const SCRIPT_CONST* At(int Index) {
    return Index >= 0 && Index < Count() ? &Table()[Index] : nullptr;
}

int Add(I64 Value, const QString& Name, const QString& DisplayText) {
    Table().append({Value, Name, DisplayText});
    return Count() - 1;
}

void ResetToBuiltIn() {
    Table().resize(BUILT_IN_COUNT);
}

QString NewSpelling(const QString& OldName) {
    for (const auto& S : s_OldSpellings) {
        if (OldName.compare(QLatin1String(S.Old), Qt::CaseInsensitive) == 0) {
            return QString::fromLatin1(S.New);
        }
    }
    return QString();
}

QString OldSpelling(const QString& Name) {
    for (const auto& S : s_OldSpellings) {
        if (Name == QLatin1String(S.New)) {
            return QString::fromLatin1(S.Old);
        }
    }
    return QString();
}

const SCRIPT_CONST* Lookup(const QString& Text) {
    const QString Key = Unquote(Text);
    if (Key.isEmpty()) {
        return nullptr;
    }
    for (const SCRIPT_CONST& C : Table()) {
        if (Key.compare(C.DisplayText, Qt::CaseInsensitive) == 0 ||
            Key.compare(C.Name, Qt::CaseInsensitive) == 0) {
            return &C;
        }
    }
    const QString Replaced = NewSpelling(Key);
    return Replaced.isEmpty() ? nullptr : Lookup(Replaced);
}

bool ParseNumber(const QString& Text, I64& Value) {
    if (const SCRIPT_CONST* C = Lookup(Text)) {
        Value = C->Value;
        return true;
    }
    return Numbers::ParseInteger(Text, Value);
}

I64 ParseConstantOrNumber(const QString& Text) {
    if (const SCRIPT_CONST* C = Lookup(Text)) {
        return C->Value;
    }
    I64 Value = 0;
    return Numbers::ParseInteger(Unquote(Text), Value) ? Value : -1;
}

} // namespace ScriptConstants
