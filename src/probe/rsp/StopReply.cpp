#include "probe/rsp/StopReply.h"

#include "probe/rsp/Hex.h"

namespace tarvo::rsp {

std::optional<StopReply> ParseStopReply(std::string_view Body) {
    if (Body.size() < 3) {
        return std::nullopt;
    }
    StopReply R;
    R.Kind = Body[0];
    if (R.Kind != 'T' && R.Kind != 'S' && R.Kind != 'W' && R.Kind != 'X') {
        return std::nullopt;
    }
    const std::optional<uint64_t> Signal = ParseHexNumber(Body.substr(1, 2));
    if (!Signal) {
        return std::nullopt;
    }
    R.Signal = static_cast<int>(*Signal);
    if (R.Kind != 'T') {
        return R;
    }
    std::string_view Rest = Body.substr(3);
    while (!Rest.empty()) {
        const size_t Semi = Rest.find(';');
        const std::string_view Pair = Rest.substr(0, Semi);
        Rest = Semi == std::string_view::npos ? std::string_view() : Rest.substr(Semi + 1);
        const size_t Colon = Pair.find(':');
        if (Colon == std::string_view::npos) {
            continue;
        }
        const std::string_view Key = Pair.substr(0, Colon);
        const std::string_view Value = Pair.substr(Colon + 1);
        if (Key == "watch" || Key == "rwatch" || Key == "awatch") {
            R.Reason.assign(Key);
            R.DataAddress = ParseHexNumber(Value).value_or(0);
        } else if (Key == "swbreak" || Key == "hwbreak") {
            R.Reason.assign(Key);
        } else if (const std::optional<uint64_t> Number = ParseHexNumber(Key)) {
            R.Registers.emplace_back(static_cast<int>(*Number), std::string(Value));
        }
        // thread, core and the other keys say nothing that a single-core client needs.
    }
    return R;
}

} // namespace tarvo::rsp
