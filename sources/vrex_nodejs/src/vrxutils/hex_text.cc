// Hex and Unhex.
#include "vrxutils/hex_text.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {
int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
}  // namespace

std::string Hex(const unsigned char* bytes, size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(count * 2);
  for (size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0f];
  }
  return text;
}

bool Unhex(const std::string& text, std::vector<unsigned char>& out) {
  if (text.size() % 2 != 0) return false;
  std::vector<unsigned char> bytes(text.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    const int high = DigitValue(text[2 * i]), low = DigitValue(text[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    bytes[i] = static_cast<unsigned char>(high << 4 | low);
  }
  out.swap(bytes);
  return true;
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
