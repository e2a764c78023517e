#include "probe/rsp/TargetDescription.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>

namespace tarvo::rsp {

namespace {

struct Tag {
    std::string Name;
    std::map<std::string, std::string> Attributes;
    bool Closing = false;
};

bool ParseTag(std::string_view Text, Tag& Out) {
    size_t I = 0;
    if (I < Text.size() && Text[I] == '/') {
        Out.Closing = true;
        ++I;
    }
    const size_t NameStart = I;
    while (I < Text.size() && !std::isspace(static_cast<unsigned char>(Text[I])) && Text[I] != '/') {
        ++I;
    }
    Out.Name.assign(Text.substr(NameStart, I - NameStart));
    for (;;) {
        while (I < Text.size() && (std::isspace(static_cast<unsigned char>(Text[I])) || Text[I] == '/')) {
            ++I;
        }
        if (I >= Text.size()) {
            return !Out.Name.empty();
        }
        const size_t KeyStart = I;
        while (I < Text.size() && Text[I] != '=' && !std::isspace(static_cast<unsigned char>(Text[I]))) {
            ++I;
        }
        std::string Key(Text.substr(KeyStart, I - KeyStart));
        while (I < Text.size() && std::isspace(static_cast<unsigned char>(Text[I]))) {
            ++I;
        }
        if (I >= Text.size() || Text[I] != '=') {
            return false;
        }
        ++I;
        while (I < Text.size() && std::isspace(static_cast<unsigned char>(Text[I]))) {
            ++I;
        }
        if (I >= Text.size() || (Text[I] != '"' && Text[I] != '\'')) {
            return false;
        }
        const char Quote = Text[I++];
        const size_t End = Text.find(Quote, I);
        if (End == std::string_view::npos) {
            return false;
        }
        Out.Attributes[Key] = std::string(Text.substr(I, End - I));
        I = End + 1;
    }
}

bool ParseNumber(const std::string& Text, int& Out) {
    char* End = nullptr;
    const long V = std::strtol(Text.c_str(), &End, 0);
    if (Text.empty() || *End != '\0' || V < 0 || V > 100000) {
        return false;
    }
    Out = static_cast<int>(V);
    return true;
}

bool EqualNoCase(std::string_view A, std::string_view B) {
    return A.size() == B.size() && std::equal(A.begin(), A.end(), B.begin(), [](char X, char Y) {
               return std::tolower(static_cast<unsigned char>(X)) ==
                      std::tolower(static_cast<unsigned char>(Y));
           });
}

} // namespace

bool TargetDescription::Parse(std::string_view Xml, const IncludeReader& Include, std::string& Error) {
    m_Registers.clear();
    m_Architecture.clear();
    m_NextNumber = 0;
    return ParseDocument(Xml, Include, 0, Error);
}

bool TargetDescription::ParseDocument(std::string_view Xml, const IncludeReader& Include, int Depth,
                                      std::string& Error) {
    if (Depth > 8) {
        Error = "target description includes nest too deeply";
        return false;
    }
    size_t I = 0;
    bool InArchitecture = false;
    while (I < Xml.size()) {
        const size_t Open = Xml.find('<', I);
        if (Open == std::string_view::npos) {
            break;
        }
        if (InArchitecture) {
            const std::string_view Text = Xml.substr(I, Open - I);
            m_Architecture.assign(Text);
        }
        if (Xml.substr(Open, 4) == "<!--") {
            const size_t End = Xml.find("-->", Open + 4);
            if (End == std::string_view::npos) {
                Error = "unterminated comment in target description";
                return false;
            }
            I = End + 3;
            continue;
        }
        const size_t Close = Xml.find('>', Open);
        if (Close == std::string_view::npos) {
            Error = "unterminated tag in target description";
            return false;
        }
        I = Close + 1;
        const std::string_view Body = Xml.substr(Open + 1, Close - Open - 1);
        if (!Body.empty() && (Body[0] == '?' || Body[0] == '!')) {
            continue; // declaration or DOCTYPE
        }
        Tag T;
        if (!ParseTag(Body, T)) {
            Error = "malformed tag <" + std::string(Body) + "> in target description";
            return false;
        }
        if (T.Name == "architecture") {
            InArchitecture = !T.Closing;
        } else if (T.Name == "feature" && !T.Closing) {
            m_Feature = T.Attributes["name"];
        } else if (T.Name == "xi:include" && !T.Closing) {
            const std::string Href = T.Attributes["href"];
            std::optional<std::string> Text = Include ? Include(Href) : std::nullopt;
            if (!Text) {
                Error = "could not read \"" + Href + "\" of the target description";
                return false;
            }
            if (!ParseDocument(*Text, Include, Depth + 1, Error)) {
                return false;
            }
        } else if (T.Name == "reg" && !T.Closing) {
            RegisterInfo R;
            R.Name = T.Attributes["name"];
            if (R.Name.empty() || !ParseNumber(T.Attributes["bitsize"], R.BitSize) || R.BitSize == 0) {
                Error = "register without name or size in target description";
                return false;
            }
            R.Number = m_NextNumber;
            if (T.Attributes.count("regnum") && !ParseNumber(T.Attributes["regnum"], R.Number)) {
                Error = "bad register number of " + R.Name + " in target description";
                return false;
            }
            m_NextNumber = R.Number + 1;
            R.Type = T.Attributes["type"];
            R.Feature = m_Feature;
            m_Registers.push_back(std::move(R));
        }
    }
    return true;
}

void TargetDescription::LayoutG(size_t GBytes) {
    std::vector<RegisterInfo*> Order;
    for (RegisterInfo& R : m_Registers) {
        Order.push_back(&R);
    }
    std::stable_sort(Order.begin(), Order.end(),
                     [](const RegisterInfo* A, const RegisterInfo* B) { return A->Number < B->Number; });
    size_t Offset = 0;
    for (RegisterInfo* R : Order) {
        const size_t Size = static_cast<size_t>(R->ByteSize());
        R->GOffset = Offset + Size <= GBytes ? static_cast<int>(Offset) : -1;
        Offset += Size;
    }
}

const RegisterInfo* TargetDescription::Find(std::string_view Name) const {
    for (const RegisterInfo& R : m_Registers) {
        if (EqualNoCase(R.Name, Name)) {
            return &R;
        }
    }
    return nullptr;
}

} // namespace tarvo::rsp
