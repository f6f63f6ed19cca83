// Bytes as hexadecimal text and back, as the functions show and take fixed metadata.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vrex {
namespace nodejs {
namespace vrxutils {

// Two lowercase digits a byte.
std::string Hex(const unsigned char* bytes, size_t count);
// The bytes of `text`: pairs of digits of either case. False, with `out` untouched, for text of
// odd length or with anything else in it.
bool Unhex(const std::string& text, std::vector<unsigned char>& out);

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
