#include "probe/backends/Snapshot.h"

#include "probe/backends/ElfFile.h"
#include "probe/backends/RegisterMap.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace tarvo {

namespace {

constexpr const char* Magic = "arnex-snapshot";
constexpr int Version = 1;
constexpr size_t BytesPerLine = 32;
constexpr size_t MaxFileSize = 64u << 20; // 4 MB of RAM as hex is 9 MB of text

std::string Hex32(U64 V) {
    char Text[24];
    std::snprintf(Text, sizeof Text, V > 0xFFFFFFFFu ? "0x%016llx" : "0x%08llx",
                  static_cast<unsigned long long>(V));
    return Text;
}

int HexDigit(char C) {
    if (C >= '0' && C <= '9') {
        return C - '0';
    }
    if (C >= 'a' && C <= 'f') {
        return C - 'a' + 10;
    }
    if (C >= 'A' && C <= 'F') {
        return C - 'A' + 10;
    }
    return -1;
}

/// "0x" and 1 to 16 hex digits.
bool ParseHexNumber(std::string_view T, U64& V) {
    if (T.size() < 3 || T.size() > 18 || T[0] != '0' || (T[1] != 'x' && T[1] != 'X')) {
        return false;
    }
    V = 0;
    for (char C : T.substr(2)) {
        const int D = HexDigit(C);
        if (D < 0) {
            return false;
        }
        V = V << 4 | static_cast<U64>(D);
    }
    return true;
}

bool ParseDecimal(std::string_view T, U64& V) {
    if (T.empty() || T.size() > 19) {
        return false;
    }
    V = 0;
    for (char C : T) {
        if (C < '0' || C > '9') {
            return false;
        }
        V = V * 10 + static_cast<U64>(C - '0');
    }
    return true;
}

/// The next space-separated word of Rest, which is advanced past it.
std::string_view NextWord(std::string_view& Rest) {
    const size_t Start = Rest.find_first_not_of(' ');
    if (Start == std::string_view::npos) {
        Rest = {};
        return {};
    }
    Rest.remove_prefix(Start);
    const size_t End = std::min(Rest.find(' '), Rest.size());
    const std::string_view Word = Rest.substr(0, End);
    Rest.remove_prefix(End);
    const size_t After = Rest.find_first_not_of(' ');
    Rest.remove_prefix(After == std::string_view::npos ? Rest.size() : After);
    return Word;
}

int RegisterIndex(std::string_view Name) {
    for (U32 i = 0; i < TARVO_REG_COUNT; ++i) {
        const std::string_view Known = RegisterMap::Name(i);
        if (!Known.empty() && Known.size() == Name.size() &&
            std::equal(Known.begin(), Known.end(), Name.begin(),
                       [](char A, char B) { return A == std::tolower(static_cast<unsigned char>(B)); })) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

/// Reads the text line by line and keeps track of where it is, for the error texts.
class Parser {
public:
    Parser(TargetSnapshot& Out, std::string& Error) : m_Out(Out), m_Error(Error) {}

    bool Line(std::string_view L, size_t Number) {
        m_Number = Number;
        if (m_Ended) {
            return L.empty() || L[0] == '#' || Fail("text after the end line");
        }
        if (m_Remaining > 0) {
            return DataLine(L);
        }
        if (L.empty() || L[0] == '#') {
            return true;
        }
        std::string_view Rest = L;
        const std::string Key(NextWord(Rest));
        if (!m_HaveMagic) {
            U64 V = 0;
            if (Key != Magic) {
                return Fail("not a target snapshot (it should start with \"arnex-snapshot\")");
            }
            const std::string_view Given = NextWord(Rest);
            if (!ParseDecimal(Given, V) || V != Version) {
                return Fail("snapshot format version \"" + std::string(Given) +
                            "\" is not the version 1 that this library reads");
            }
            m_HaveMagic = true;
            return true;
        }
        if (Key != "register" && Key != "memory" && !m_Seen.insert(Key).second) {
            return Fail("a second \"" + Key + "\" line");
        }
        if (Key == "elf" || Key == "elf-sha256" || Key == "device" || Key == "command") {
            std::string& Field = Key == "elf"          ? m_Out.Elf
                                 : Key == "elf-sha256" ? m_Out.ElfSha256
                                 : Key == "device"     ? m_Out.Device
                                                       : m_Out.Command;
            Field = std::string(Rest);
            if (Key == "elf-sha256") {
                std::transform(Field.begin(), Field.end(), Field.begin(), [](char C) {
                    return static_cast<char>(std::tolower(static_cast<unsigned char>(C)));
                });
            }
            if (Key == "elf-sha256" &&
                (Field.size() != 64 ||
                 !std::all_of(Field.begin(), Field.end(), [](char C) { return HexDigit(C) >= 0; }))) {
                return Fail("the SHA-256 of the program must be 64 hex digits");
            }
            return Key == "command" || Key == "device" || !Field.empty() ||
                   Fail("\"" + Key + "\" without a value");
        }
        if (Key == "elf-size") {
            return ParseDecimal(NextWord(Rest), m_Out.ElfSize) || Fail("the program's size is not a number");
        }
        if (Key == "stop") {
            U64 Pc = 0;
            if (!ParseHexNumber(NextWord(Rest), Pc) || Pc > 0xFFFFFFFFu) {
                return Fail("the stop must give a PC as 0x and hex digits");
            }
            m_Out.StopPc = static_cast<U32>(Pc);
            m_Out.StopReason = std::string(NextWord(Rest));
            m_Out.StopDetail = std::string(Rest);
            return !m_Out.StopReason.empty() || Fail("the stop has no reason");
        }
        if (Key == "register") {
            return Register(Rest);
        }
        if (Key == "memory") {
            return Memory(Rest);
        }
        if (Key == "end") {
            m_Ended = true;
            return true;
        }
        return Fail("unknown item \"" + Key + "\"");
    }

    bool Finish() {
        m_Number = 0;
        if (!m_HaveMagic) {
            return Fail("the file is empty: not a target snapshot");
        }
        if (m_Remaining > 0) {
            return Fail("the file ends inside the memory range at " + Hex32(m_Out.Ranges.back().Address) +
                        ": it is truncated");
        }
        if (!m_Ended) {
            return Fail("the file has no end line: it is truncated");
        }
        for (const char* Key : {"elf", "elf-size", "elf-sha256", "stop"}) {
            if (!m_Seen.count(Key)) {
                return Fail("the snapshot has no \"" + std::string(Key) + "\" line");
            }
        }
        for (const U32 Needed : {U32(TARVO_REG_SP), U32(TARVO_REG_PC)}) {
            if (!m_Out.Registers.count(Needed)) {
                return Fail("the snapshot has no register " + std::string(RegisterMap::Name(Needed)));
            }
        }
        if (m_Out.Registers.at(TARVO_REG_PC) != m_Out.StopPc) {
            return Fail("the stop at " + Hex32(m_Out.StopPc) + " and register pc " +
                        Hex32(m_Out.Registers.at(TARVO_REG_PC)) + " disagree");
        }
        return true;
    }

private:
    bool Fail(const std::string& What) {
        m_Error = m_Number > 0 ? "line " + std::to_string(m_Number) + ": " + What : What;
        return false;
    }

    bool Register(std::string_view Rest) {
        const std::string_view Name = NextWord(Rest);
        const int Index = RegisterIndex(Name);
        U64 Value = 0;
        if (Index < 0) {
            return Fail("unknown register \"" + std::string(Name) + "\"");
        }
        if (!ParseHexNumber(NextWord(Rest), Value) || !Rest.empty()) {
            return Fail("register " + std::string(Name) + " needs one value as 0x and hex digits");
        }
        if (!m_Out.Registers.emplace(static_cast<U32>(Index), Value).second) {
            return Fail("register " + std::string(Name) + " appears twice");
        }
        return true;
    }

    bool Memory(std::string_view Rest) {
        U64 Address = 0, Size = 0;
        if (!ParseHexNumber(NextWord(Rest), Address) || !ParseDecimal(NextWord(Rest), Size) ||
            !Rest.empty()) {
            return Fail("a memory range needs an address as 0x and hex digits and a size in bytes");
        }
        if (Size == 0 || Address + Size > 0x100000000ull) {
            return Fail("the memory range at " + Hex32(Address) + " is empty or runs past 4 GB");
        }
        if (!m_Out.Ranges.empty() && Address < m_Out.Ranges.back().End()) {
            return Fail("the memory range at " + Hex32(Address) +
                        " overlaps or comes before the one before it");
        }
        m_Out.Ranges.push_back({static_cast<U32>(Address), {}});
        m_Remaining = Size;
        return true;
    }

    bool DataLine(std::string_view L) {
        SnapshotRange& R = m_Out.Ranges.back();
        std::string_view Rest = L;
        U64 Address = 0;
        if (!ParseHexNumber(NextWord(Rest), Address) || Address != R.End()) {
            return Fail("expected the bytes at " + Hex32(R.End()) + " of the memory range at " +
                        Hex32(R.Address));
        }
        const size_t Count = static_cast<size_t>(std::min<U64>(m_Remaining, BytesPerLine));
        if (Rest.size() != 2 * Count) {
            return Fail("expected " + std::to_string(Count) + " bytes (" + std::to_string(2 * Count) +
                        " hex digits) at " + Hex32(Address));
        }
        for (size_t i = 0; i < Count; ++i) {
            const int High = HexDigit(Rest[2 * i]), Low = HexDigit(Rest[2 * i + 1]);
            if (High < 0 || Low < 0) {
                return Fail("a byte that is not two hex digits at " + Hex32(Address + i));
            }
            R.Bytes.push_back(static_cast<U8>(High << 4 | Low));
        }
        m_Remaining -= Count;
        return true;
    }

    TargetSnapshot& m_Out;
    std::string& m_Error;
    size_t m_Number = 0;
    bool m_HaveMagic = false;
    bool m_Ended = false;
    U64 m_Remaining = 0; // bytes still to come for the last memory range
    std::set<std::string> m_Seen;
};

} // namespace

bool ParseSnapshot(std::string_view Text, TargetSnapshot& Out, std::string& Error) {
    Out = TargetSnapshot();
    Parser P(Out, Error);
    size_t Number = 0;
    while (!Text.empty()) {
        const size_t End = std::min(Text.find('\n'), Text.size());
        std::string_view L = Text.substr(0, End);
        Text.remove_prefix(std::min(End + 1, Text.size()));
        if (!L.empty() && L.back() == '\r') {
            L.remove_suffix(1);
        }
        if (!P.Line(L, ++Number)) {
            return false;
        }
    }
    return P.Finish();
}

bool ReadSnapshotFile(const std::string& Path, TargetSnapshot& Out, std::string& Error) {
    std::ifstream In(Path, std::ios::binary);
    if (!In) {
        Error = "Could not open the snapshot " + Path;
        return false;
    }
    In.seekg(0, std::ios::end);
    if (static_cast<size_t>(In.tellg()) > MaxFileSize) {
        Error = "The snapshot " + Path + " is larger than 64 MB: not a snapshot of a microcontroller";
        return false;
    }
    In.seekg(0);
    const std::string Text((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
    if (!ParseSnapshot(Text, Out, Error)) {
        Error = "The snapshot " + Path + " is damaged: " + Error;
        return false;
    }
    return true;
}

void NormaliseRanges(std::vector<SnapshotRange>& Ranges) {
    std::stable_sort(Ranges.begin(), Ranges.end(),
                     [](const SnapshotRange& A, const SnapshotRange& B) { return A.Address < B.Address; });
    std::vector<SnapshotRange> Merged;
    for (SnapshotRange& R : Ranges) {
        if (R.Bytes.empty()) {
            continue;
        }
        if (Merged.empty() || R.Address > Merged.back().End()) {
            Merged.push_back(std::move(R));
            continue;
        }
        SnapshotRange& Last = Merged.back();
        const size_t Offset = R.Address - Last.Address;
        if (Last.Bytes.size() < Offset + R.Bytes.size()) {
            Last.Bytes.resize(Offset + R.Bytes.size());
        }
        std::copy(R.Bytes.begin(), R.Bytes.end(), Last.Bytes.begin() + static_cast<std::ptrdiff_t>(Offset));
    }
    Ranges = std::move(Merged);
}

std::string FormatSnapshot(TargetSnapshot S) {
    NormaliseRanges(S.Ranges);
    std::replace(S.Command.begin(), S.Command.end(), '\n', ' ');
    std::ostringstream Out;
    Out << "# Registers and RAM of a target program at a stop; code memory comes from the program file.\n"
        << Magic << ' ' << Version << '\n'
        << "elf " << S.Elf << '\n'
        << "elf-size " << S.ElfSize << '\n'
        << "elf-sha256 " << S.ElfSha256 << '\n'
        << "command " << S.Command << '\n'
        << "device " << S.Device << '\n'
        << "stop " << Hex32(S.StopPc) << ' ' << S.StopReason << (S.StopDetail.empty() ? "" : " ")
        << S.StopDetail << '\n';
    for (const auto& [Index, Value] : S.Registers) {
        Out << "register " << RegisterMap::Name(Index) << ' ' << Hex32(Value) << '\n';
    }
    static const char Digits[] = "0123456789abcdef";
    for (const SnapshotRange& R : S.Ranges) {
        Out << "memory " << Hex32(R.Address) << ' ' << R.Bytes.size() << '\n';
        for (size_t At = 0; At < R.Bytes.size(); At += BytesPerLine) {
            std::string Line = Hex32(R.Address + At) + ' ';
            for (size_t i = At; i < std::min(R.Bytes.size(), At + BytesPerLine); ++i) {
                Line += Digits[R.Bytes[i] >> 4];
                Line += Digits[R.Bytes[i] & 15];
            }
            Out << Line << '\n';
        }
    }
    Out << "end\n";
    return Out.str();
}

bool WriteSnapshotFile(const std::string& Path, const TargetSnapshot& S, std::string& Error) {
    std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
    Out << FormatSnapshot(S);
    Out.close();
    if (!Out) {
        Error = "Could not write the snapshot " + Path;
        return false;
    }
    return true;
}

bool SnapshotMatchesElf(const TargetSnapshot& S, const ElfFile& Elf, const std::string& ElfPath,
                        std::string& Error) {
    const std::string Hash = Elf.Sha256();
    if (Elf.FileSize() == S.ElfSize && Hash == S.ElfSha256) {
        return true;
    }
    Error = "The snapshot belongs to another program: it was made from " + S.Elf + " (" +
            std::to_string(S.ElfSize) + " bytes, SHA-256 " + S.ElfSha256 + "), but " + ElfPath + " has " +
            std::to_string(Elf.FileSize()) + " bytes, SHA-256 " + Hash;
    return false;
}

} // namespace tarvo
