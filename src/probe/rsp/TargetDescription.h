#pragma once

// The target description a GDB server sends as XML (qXfer:features:read): the registers with their
// names, sizes and numbers. The client knows registers only by name; the numbers and the layout of the
// "g" packet come from here.

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::rsp {

struct RegisterInfo {
    std::string Name;
    int Number = 0; // the server's register number, for p and P
    int BitSize = 32;
    std::string Type;
    std::string Feature; // name of the enclosing feature element
    int GOffset = -1;    // byte offset in the g packet; -1 until LayoutG, or beyond the packet's end
    int ByteSize() const { return (BitSize + 7) / 8; }
};

class TargetDescription {
public:
    /// Reads an included document by its href; nullopt when it can't be had.
    using IncludeReader = std::function<std::optional<std::string>(const std::string& Href)>;

    /// Parses the document and, through Include, every xi:include in it. Numbers without a regnum
    /// attribute follow the previous register's. False with Error on malformed XML or a failed include.
    bool Parse(std::string_view Xml, const IncludeReader& Include, std::string& Error);

    /// Lays the registers out in number order as the g packet carries them, and marks those whose
    /// bytes lie beyond GBytes (the size of a g reply) as not in the packet.
    void LayoutG(size_t GBytes);

    const std::vector<RegisterInfo>& Registers() const { return m_Registers; }
    /// Case-insensitive look-up by name (servers differ: "xpsr", "xPSR").
    const RegisterInfo* Find(std::string_view Name) const;
    const std::string& Architecture() const { return m_Architecture; }

private:
    bool ParseDocument(std::string_view Xml, const IncludeReader& Include, int Depth, std::string& Error);

    std::vector<RegisterInfo> m_Registers;
    std::string m_Architecture;
    std::string m_Feature;
    int m_NextNumber = 0;
};

} // namespace tarvo::rsp
