#pragma once

// Hexadecimal helpers of the remote protocol: memory and registers travel as pairs of hex digits,
// addresses and lengths as plain hex numbers.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo::rsp {

inline int HexDigitValue(char C) {
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

inline void AppendHexBytes(std::string& Out, const uint8_t* Data, size_t Size) {
    static const char Digits[] = "0123456789abcdef";
    const size_t Start = Out.size();
    Out.resize(Start + Size * 2);
    char* P = Out.data() + Start;
    for (size_t i = 0; i < Size; ++i) {
        *P++ = Digits[Data[i] >> 4];
        *P++ = Digits[Data[i] & 15];
    }
}

inline void AppendHexNumber(std::string& Out, uint64_t Value) {
    char Buf[17];
    int N = 0;
    do {
        Buf[N++] = "0123456789abcdef"[Value & 15];
        Value >>= 4;
    } while (Value != 0);
    while (N > 0) {
        Out.push_back(Buf[--N]);
    }
}

// Decodes pairs of hex digits into Out; false on an odd length or a character that isn't a digit.
inline bool DecodeHexBytes(std::string_view Text, uint8_t* Out, size_t MaxBytes) {
    if (Text.size() % 2 != 0 || Text.size() / 2 > MaxBytes) {
        return false;
    }
    for (size_t i = 0; i < Text.size(); i += 2) {
        const int Hi = HexDigitValue(Text[i]);
        const int Lo = HexDigitValue(Text[i + 1]);
        if (Hi < 0 || Lo < 0) {
            return false;
        }
        Out[i / 2] = static_cast<uint8_t>(Hi << 4 | Lo);
    }
    return true;
}

inline std::optional<uint64_t> ParseHexNumber(std::string_view Text) {
    if (Text.empty() || Text.size() > 16) {
        return std::nullopt;
    }
    uint64_t Value = 0;
    for (char C : Text) {
        const int D = HexDigitValue(C);
        if (D < 0) {
            return std::nullopt;
        }
        Value = Value << 4 | static_cast<uint64_t>(D);
    }
    return Value;
}

inline std::string HexOfText(std::string_view Text) {
    std::string Out;
    AppendHexBytes(Out, reinterpret_cast<const uint8_t*>(Text.data()), Text.size());
    return Out;
}

} // namespace tarvo::rsp
