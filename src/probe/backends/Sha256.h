#pragma once

// SHA-256 of a byte string, as lower-case hex: the fingerprint by which a target snapshot names the
// program it belongs to, the same text `sha256sum` prints.

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarvo {

std::string Sha256Hex(const uint8_t* Data, size_t Size);

} // namespace tarvo
