// ADTS header stripping; runs on every AAC frame served into MP4.
#include "media/aac/adts.h"

#include <cstdio>
#include <string>

#include "errors/errors.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {
// The container module's "Incorrect parameters provided": callers compare this code, and
// the media module sits below the container module, so it is built here from its number.
constexpr int kAdtsError = ::vrex::errors::MakeError(12, 16);

// ADTS fixed header: FFF (sync) | ID 1 | layer 2 | protection_absent 1 | ... the 13-bit
// aac_frame_length starts at bit 6 of byte 3.
constexpr unsigned long kAdtsHeader = 7;
constexpr unsigned long kAdtsHeaderWithCrc = 9;

std::string Format(const char* format, const void* value) {
  char text[32];
  std::snprintf(text, sizeof(text), format, value);
  return text;
}

int Fail(int line, const unsigned char* data, unsigned long size, const unsigned long* adtsSize) {
  const int error = ::vrex::errors::returnErrorWithTracking(kAdtsError, __FILE__, line);
  ::vrex::errors::addExtraInfo("size", std::to_string(size));
  if (adtsSize != nullptr) ::vrex::errors::addExtraInfo("adtsSize", std::to_string(*adtsSize));
  ::vrex::errors::addExtraInfo("pData", Format("%p", data));
  static const char kHex[] = "0123456789abcdef";
  std::string first;
  for (unsigned long i = 0; i < size && i < 10; ++i) {
    first += kHex[data[i] >> 4];
    first += kHex[data[i] & 15];
  }
  ::vrex::errors::addExtraInfo("first10BytesOfData", first);
  return error;
}
}  // namespace

const unsigned char* StripAdts(const unsigned char* data, unsigned long& size, int& error) {
  if (size < kAdtsHeader || data[0] != 0xFF) return data;
  if ((data[1] & 0xF0) != 0xF0 || (data[1] & 0x08) != 0 || (data[1] & 0x06) != 0) {
    error = Fail(__LINE__, data, size, nullptr);
    return nullptr;
  }
  const unsigned long headerSize = (data[1] & 1) ? kAdtsHeader : kAdtsHeaderWithCrc;
  const unsigned long frameLength =
      ((data[3] & 3ul) << 11) | (static_cast<unsigned long>(data[4]) << 3) | (data[5] >> 5);
  if (size < frameLength || size < headerSize) {
    error = Fail(__LINE__, data, size, &frameLength);
    return nullptr;
  }
  size -= headerSize;
  return data + headerSize;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
