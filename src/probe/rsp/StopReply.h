#pragma once

// Stop replies of the GDB remote protocol: "S05", "T05thread:p01.01;watch:20000020;", "W00", "X09".

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvo::rsp {

struct StopReply {
    char Kind = 'T';          // T or S: stopped; W: exited; X: ended by a signal
    int Signal = 0;           // or the exit code for W
    std::string Reason;       // "watch", "rwatch", "awatch", "swbreak", "hwbreak" or empty
    uint64_t DataAddress = 0; // the address of a watchpoint stop
    std::vector<std::pair<int, std::string>> Registers; // register number and hex value
    bool Exited() const { return Kind == 'W' || Kind == 'X'; }
    bool IsWatchpoint() const { return Reason == "watch" || Reason == "rwatch" || Reason == "awatch"; }
};

std::optional<StopReply> ParseStopReply(std::string_view Body);

} // namespace tarvo::rsp
