// IOBuffer: growth, copies in, descriptor I/O and diagnostics.
#include "common/iobuffer.h"

#include <arpa/inet.h>
#include <endian.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "abstraction/logging.h"
#include "common/file.h"

#ifdef VIDORA_HAVE_OPENSSL
#include <openssl/bio.h>
#endif

namespace vrex {
namespace common {

namespace {
// The largest UDP payload, so one datagram always fits.
constexpr uint32_t kMaxDatagramSize = 65536;
constexpr double kGrowthFactor = 1.3;
// Buffers this large take transparent huge pages where the system offers them on request: a
// buffer handed on whole (to JavaScript, to the next stage) is often a fresh allocation, and
// touching it page by page costs more than filling it.
constexpr size_t kHugePage = 2 * 1024 * 1024;

uint8_t* AllocateBlock(uint64_t size) {
  if (size < kHugePage) return static_cast<uint8_t*>(malloc(size));
  const size_t rounded = (size + kHugePage - 1) / kHugePage * kHugePage;
  void* block = aligned_alloc(kHugePage, rounded);
  if (block != nullptr) madvise(block, rounded, MADV_HUGEPAGE);
  return static_cast<uint8_t*>(block);
}

}  // namespace

IOBuffer::~IOBuffer() { free(_pBuffer); }

bool IOBuffer::Initialize(uint32_t expected) {
  const bool unused = _pBuffer == nullptr && _size == 0 && _published == 0 && _consumed == 0;
  VREX_ASSERT(unused) << "This buffer was used before. Please initialize it before using";
  return EnsureSize(expected);
}

void IOBuffer::SetMinChunkSize(uint32_t minChunkSize) {
  VREX_ASSERT(minChunkSize > 0 && minChunkSize < 16 * 1024 * 1024);
  _minChunkSize = minChunkSize;
}

bool IOBuffer::EnsureSize(uint32_t expected) {
  if (_size - _published >= expected) return true;
  if (_size - _published + _consumed >= expected) {
    MoveData();
    if (_size - _published >= expected) return true;
  }
  const uint32_t active = _published - _consumed;
  uint64_t newSize = static_cast<uint64_t>(expected) + active;
  if (newSize > 0xFFFFFFFFull) {
    LOGE << "<-# IOBuffer::EnsureSize FAILED! Buffer can't hold " << newSize << " bytes";
    return false;
  }
  const double grown = _size * kGrowthFactor;
  if (static_cast<double>(newSize) < grown) {
    newSize = std::min<uint64_t>(static_cast<uint64_t>(grown), 0xFFFFFFFFull);
  }
  if (_minChunkSize > newSize) newSize = _minChunkSize;

  uint8_t* pNew = AllocateBlock(newSize);
  if (pNew == nullptr) {
    LOGE << "<-# IOBuffer::EnsureSize FAILED! Unable to allocate " << newSize << " bytes";
    return false;
  }
  if (active > 0) memcpy(pNew, _pBuffer + _consumed, active);
  free(_pBuffer);
  _pBuffer = pNew;
  _size = static_cast<uint32_t>(newSize);
  _consumed = 0;
  _published = active;
  return true;
}

bool IOBuffer::MoveData() {
  const uint32_t active = _published - _consumed;
  // Overlapping regions: leave the data where it is, the caller grows instead.
  if (_consumed < active) return true;
  if (active > 0) memcpy(_pBuffer, _pBuffer + _consumed, active);
  _published -= _consumed;
  _consumed = 0;
  return true;
}

bool IOBuffer::ReadFromBuffer(const void* pBuffer, uint32_t size) {
  if (size == 0) return true;
  if (!EnsureSize(size)) return false;
  memcpy(_pBuffer + _published, pBuffer, size);
  _published += size;
  return true;
}

bool IOBuffer::ReadFromByte(uint8_t byte) { return ReadFromBuffer(&byte, 1); }

bool IOBuffer::ReadFromRepeat(uint8_t byte, uint32_t count) {
  if (count == 0) return true;
  if (!EnsureSize(count)) return false;
  memset(_pBuffer + _published, byte, count);
  _published += count;
  return true;
}

bool IOBuffer::ReadFromString(const std::string& text) {
  if (text.size() > 0xFFFFFFFFu) return false;
  return ReadFromBuffer(text.data(), static_cast<uint32_t>(text.size()));
}

bool IOBuffer::ReadFromU16(uint16_t value, bool networkOrder) {
  if (networkOrder) value = htons(value);
  return ReadFromBuffer(&value, sizeof(value));
}

bool IOBuffer::ReadFromU32(uint32_t value, bool networkOrder) {
  if (networkOrder) value = htonl(value);
  return ReadFromBuffer(&value, sizeof(value));
}

bool IOBuffer::ReadFromU64(uint64_t value, bool networkOrder) {
  if (networkOrder) value = htobe64(value);
  return ReadFromBuffer(&value, sizeof(value));
}

bool IOBuffer::ReadFromInputBuffer(const IOBuffer* pSrc, uint32_t start, uint32_t size) {
  if (pSrc == nullptr || static_cast<uint64_t>(start) + size > pSrc->GetAvailableBytesCount()) {
    LOGE << "<-# IOBuffer::ReadFromInputBuffer FAILED! Invalid range: start=" << start
         << " size=" << size;
    return false;
  }
  if (size == 0) return true;
  if (pSrc == this) {
    // The source bytes may move while this buffer makes room: copy them out first.
    const std::string copy(reinterpret_cast<const char*>(_pBuffer + _consumed + start), size);
    return ReadFromBuffer(copy.data(), size);
  }
  return ReadFromBuffer(pSrc->_pBuffer + pSrc->_consumed + start, size);
}

bool IOBuffer::ReadFromInputBuffer(const IOBuffer& src, uint32_t size) {
  return ReadFromInputBuffer(&src, 0, size);
}

bool IOBuffer::SwapWith(IOBuffer& other) {
  std::swap(_pBuffer, other._pBuffer);
  std::swap(_size, other._size);
  std::swap(_published, other._published);
  std::swap(_consumed, other._consumed);
  return true;
}

bool IOBuffer::ReadFromInputBufferWithIgnore(IOBuffer& src) {
  const uint32_t available = src.GetAvailableBytesCount();
  if (available == 0 || &src == this) return true;
  if (GetAvailableBytesCount() == 0 && _sendLimit == kUnlimited && src._sendLimit == kUnlimited) {
    return SwapWith(src);
  }
  const uint32_t count = std::min(available, src._sendLimit);
  if (count == 0) return true;
  if (!ReadFromBuffer(src._pBuffer + src._consumed, count)) {
    LOGE << "Unable to copy data";
    return false;
  }
  if (!src.Ignore(count)) {
    LOGE << "Unable to ignore data";
    return false;
  }
  return true;
}

ssize_t IOBuffer::ReadOnce(int fd, uint32_t count, bool isSocket) {
  if (count == 0) return 0;
  if (!EnsureSize(count)) {
    errno = ENOMEM;
    return -1;
  }
  errno = 0;
  const ssize_t result =
      isSocket ? recv(fd, _pBuffer + _published, count, 0) : read(fd, _pBuffer + _published, count);
  if (result > 0) {
    _published += static_cast<uint32_t>(result);
    if (_pSampler != nullptr) _pSampler->Sample(static_cast<uint32_t>(result));
  }
  return result;
}

bool IOBuffer::ReadSucceeded(ssize_t result, int& err) {
  err = result >= 0 ? 0 : errno;
  if (result > 0) return true;
  if (err == EAGAIN || err == EWOULDBLOCK) {
    err = 0;
    return true;
  }
  return false;
}

bool IOBuffer::ReadFromFd(int fd, unsigned long count, long& got, int& err) {
  got = 0;
  if (count < 1 || count >= 0xFFFFFFFFul) {
    err = kInvalidCountError;
    return false;
  }
  const ssize_t result = ReadOnce(fd, static_cast<uint32_t>(count), false);
  if (result > 0) got = result;
  return ReadSucceeded(result, err);
}

bool IOBuffer::ReadFromTCPFd(int fd, uint32_t count, int& got, int& err) {
  got = 0;
  if (count == 0) {
    err = kInvalidCountError;
    return false;
  }
  const ssize_t result = ReadOnce(fd, count, true);
  if (result > 0) got = static_cast<int>(result);
  return ReadSucceeded(result, err);
}

bool IOBuffer::ReadFromUDPFd(int fd, int& got, sockaddr* pPeer, uint32_t* pPeerLength) {
  got = 0;
  if (!EnsureSize(kMaxDatagramSize)) return false;
  socklen_t peerLength = pPeerLength != nullptr ? *pPeerLength : 0;
  const ssize_t result = recvfrom(fd, _pBuffer + _published, kMaxDatagramSize, 0, pPeer,
                                  pPeer != nullptr ? &peerLength : nullptr);
  if (result < 0) {
    char text[96];
    snprintf(text, sizeof(text), "Unable to read data from UDP socket. Error was: %d", errno);
    LOGE << text;
    return false;
  }
  if (pPeerLength != nullptr) *pPeerLength = peerLength;
  got = static_cast<int>(result);
  _published += static_cast<uint32_t>(result);
  if (_pSampler != nullptr) _pSampler->Sample(static_cast<uint32_t>(result));
  return true;
}

bool IOBuffer::ReadFromStdio(int fd, uint32_t count, int& got) {
  const ssize_t result = ReadOnce(fd, count, false);
  got = result > 0 ? static_cast<int>(result) : 0;
  if (result < 0) {
    const int err = errno;
    LOGE << "<-# IOBuffer::ReadFromStdio FAILED! Unable to read " << count << " bytes: err=" << err
         << " " << strerror(err);
    return false;
  }
  return true;
}

bool IOBuffer::ReadFromFs(File& file, uint32_t count) {
  if (count == 0) return true;
  if (!EnsureSize(count)) return false;
  if (!file.ReadBuffer(_pBuffer + _published, count)) return false;
  _published += count;
  return true;
}

bool IOBuffer::ReadFromBIO(void* pBIO) {
#ifdef VIDORA_HAVE_OPENSSL
  BIO* bio = static_cast<BIO*>(pBIO);
  const int pending = BIO_pending(bio);
  if (pending < 0) {
    LOGE << "BIO_pending failed";
    return false;
  }
  if (pending == 0) return true;
  if (!EnsureSize(static_cast<uint32_t>(pending))) return false;
  const int result = BIO_read(bio, _pBuffer + _published, pending);
  if (result != pending) {
    LOGE << "<-# IOBuffer::ReadFromBIO FAILED! BIO_read gave " << result << " of " << pending
         << " bytes";
    return false;
  }
  _published += static_cast<uint32_t>(result);
  return true;
#else
  (void)pBIO;
  LOGE << "<-# IOBuffer::ReadFromBIO FAILED! This build has no OpenSSL";
  return false;
#endif
}

bool IOBuffer::WriteToTCPFd(int fd, uint32_t size, int& sent, int& err) {
  return WriteToFd(fd, size, true, sent, err);
}

bool IOBuffer::WriteToStdio(int fd, uint32_t size, int& sent) {
  int err = 0;
  return WriteToFd(fd, size, false, sent, err);
}

bool IOBuffer::WriteToFd(int fd, uint32_t size, bool isSocket, int& sent, int& err) {
  sent = 0;
  err = 0;
  const uint32_t limit = std::min(_sendLimit, size);
  const uint32_t count = std::min(limit, GetAvailableBytesCount());
  if (count == 0) return true;
  const uint8_t* pData = _pBuffer + _consumed;
  const ssize_t result = isSocket ? send(fd, pData, count, MSG_NOSIGNAL) : write(fd, pData, count);
  if (result < 0) {
    err = errno;
    if (_pSampler != nullptr) _pSampler->Sample(0);
    if (err == EINPROGRESS || err == EAGAIN || err == EWOULDBLOCK) return true;
    char text[160];
    snprintf(text, sizeof(text),
             "Unable to send %u bytes of data data. Size advertised by network layer was %u. "
             "Permanent error",
             count, size);
    LOGE << text << ": err=" << err << " " << strerror(err);
    return false;
  }
  sent = static_cast<int>(result);
  if (_pSampler != nullptr) _pSampler->Sample(static_cast<uint32_t>(result));
  return Ignore(static_cast<uint32_t>(result));
}

bool IOBuffer::Ignore(uint32_t count) {
  _consumed += count;
  if (_sendLimit != kUnlimited) _sendLimit = count >= _sendLimit ? 0 : _sendLimit - count;
  Recycle();
  return true;
}

bool IOBuffer::IgnoreAll() {
  _consumed = _published;
  _sendLimit = kUnlimited;
  Recycle();
  return true;
}

void IOBuffer::Recycle() {
  if (_consumed == _published) {
    _consumed = 0;
    _published = 0;
  }
}

void IOBuffer::Cleanup() {
  free(_pBuffer);
  _pBuffer = nullptr;
  _size = 0;
  _published = 0;
  _consumed = 0;
}

std::string IOBuffer::ToString(uint32_t startIndex, uint32_t limit) const {
  std::string out = "Size: " + std::to_string(_size) + "\n";
  out += "Published: " + std::to_string(_published) + "\n";
  out += "Consumed: " + std::to_string(_consumed) + "\n";
  out += "Send limit: " +
         (_sendLimit == kUnlimited ? std::string("unlimited") : std::to_string(_sendLimit)) + "\n";
  char line[64];
  snprintf(line, sizeof(line), "Address: %p\n", static_cast<const void*>(_pBuffer));
  out += line;
  const uint32_t available = GetAvailableBytesCount();
  if (startIndex >= available) return out;
  uint32_t length = available - startIndex;
  if (limit != 0 && limit < length) {
    length = limit;
    snprintf(line, sizeof(line), "Limited to %u bytes\n", limit);
    out += line;
  }
  return out + DumpBuffer(_pBuffer + _consumed + startIndex, length);
}

std::string IOBuffer::DumpBuffer(const unsigned char* pBuffer, uint32_t length) {
  if (pBuffer == nullptr || length == 0) return std::string();
  return abstraction::dump_s(pBuffer, length);
}

IOBuffer::operator std::string() const { return ToString(0, kDefaultDumpLimit); }

}  // namespace common
}  // namespace vrex
