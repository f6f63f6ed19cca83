// Async-signal-safe output of the crash log.
#include "crashhandler/crash_output.h"

#include <errno.h>
#include <unistd.h>

#include <cstring>

namespace vrex {
namespace abstraction {
namespace internal {

namespace {

// "<tag: 5>0x<16>; \n" with room to spare.
char gScratch[64];

}  // namespace

ssize_t WriteFully(int fd, const void* data, size_t length) {
  const char* bytes = static_cast<const char*>(data);
  size_t done = 0;
  while (done < length) {
    const ssize_t written = write(fd, bytes + done, length - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return -1;
    done += static_cast<size_t>(written);
  }
  return static_cast<ssize_t>(length);
}

void WriteSynced(int fd, const void* data, size_t length) {
  WriteFully(fd, data, length);
  fsync(fd);
}

void WriteSynced(int fd, const char* text) { WriteSynced(fd, text, strlen(text)); }

void WriteHexLine(int fd, const char* tag, uint64_t value, int digits) {
  char* out = gScratch;
  while (*tag != '\0') *out++ = *tag++;
  *out++ = '0';
  *out++ = 'x';
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
    const char nibble = static_cast<char>((value >> shift) & 0xf);
    // '7' + 10 is 'A'.
    *out++ = static_cast<char>(nibble + (nibble < 10 ? '0' : '7'));
  }
  *out++ = ';';
  *out++ = ' ';
  *out++ = '\n';
  WriteSynced(fd, gScratch, static_cast<size_t>(out - gScratch));
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
