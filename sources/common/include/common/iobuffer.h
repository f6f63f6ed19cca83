// IOBuffer: the program's byte queue. One flat allocation holds the bytes; data is appended at
// `published` and read from `consumed`:
//
//     0 ........ consumed ======== published ........ size
//                 (unread data)               (free)
//
// Invariant: consumed <= published <= size. "ReadFrom..." takes bytes into the buffer,
// "WriteTo..." sends bytes out of it. Failures are a false result and a log line; nothing
// throws. There is no lock: a buffer belongs to one thread at a time.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

namespace vrex {
namespace common {

class File;

class IOBuffer {
 public:
  // Told every byte count sent or received through a descriptor (0 for a send that would
  // block). Called synchronously on the thread that uses the buffer.
  class IOSampler {
   public:
    virtual ~IOSampler() = default;
    virtual void Sample(uint32_t bytes) = 0;
  };

  static constexpr uint32_t kDefaultMinChunkSize = 4096;
  static constexpr uint32_t kUnlimited = 0xFFFFFFFF;
  // Returned in `err` by ReadFromFd/ReadFromTCPFd for a count they refuse.
  static constexpr int kInvalidCountError = 104;

  IOBuffer() = default;
  virtual ~IOBuffer();
  IOBuffer(const IOBuffer&) = delete;
  IOBuffer& operator=(const IOBuffer&) = delete;

  // Reserves `expected` bytes. Only on a buffer never used (or Cleanup'ed): on a used one it
  // logs and aborts.
  bool Initialize(uint32_t expected);
  // The smallest allocation; must be in (0, 16 MiB), else it aborts.
  void SetMinChunkSize(uint32_t minChunkSize);
  uint32_t GetMinChunkSize() const { return _minChunkSize; }
  // Start of the allocation (null before the first growth); unread data starts at
  // GetPointer() + GetConsumed().
  uint8_t* GetPointer() const { return _pBuffer; }
  // Where the next appended byte goes; after writing there, Publish() the count.
  uint8_t* GetCurrentWritePosition() const {
    return _pBuffer == nullptr ? nullptr : _pBuffer + _published;
  }
  void SetIOSampler(IOSampler* pSampler) { _pSampler = pSampler; }

  uint32_t GetSize() const { return _size; }
  uint32_t GetPublished() const { return _published; }
  uint32_t GetConsumed() const { return _consumed; }
  uint32_t GetAvailableBytesCount() const { return _published - _consumed; }
  // Bytes the WriteTo... calls may still send; kUnlimited for no limit.
  uint32_t GetSendLimit() const { return _sendLimit; }
  void SetSendLimit(uint32_t sendLimit) { _sendLimit = sendLimit; }

  // Guarantees `expected` free bytes behind published, moving the data to the front or
  // growing (by at least 30%, to at least the min chunk size). May move the data: pointers
  // into the buffer are invalid afterwards.
  bool EnsureSize(uint32_t expected);
  // Moves the unread data to the front when source and destination don't overlap; otherwise
  // leaves it. Always true.
  bool MoveData();
  // Marks `count` bytes written at GetCurrentWritePosition() as data. The caller has made
  // room for them with EnsureSize.
  void Publish(uint32_t count) { _published += count; }

  bool ReadFromBuffer(const void* pBuffer, uint32_t size);
  bool ReadFromByte(uint8_t byte);
  bool ReadFromRepeat(uint8_t byte, uint32_t count);
  bool ReadFromString(const std::string& text);
  // Appends the value in host order, or in network (big-endian) order.
  bool ReadFromU16(uint16_t value, bool networkOrder);
  bool ReadFromU32(uint32_t value, bool networkOrder);
  bool ReadFromU64(uint64_t value, bool networkOrder);
  // Copies `size` bytes of `pSrc`'s unread data from offset `start`; `pSrc` is unchanged.
  // Fails when the range lies beyond its data.
  bool ReadFromInputBuffer(const IOBuffer* pSrc, uint32_t start, uint32_t size);
  bool ReadFromInputBuffer(const IOBuffer& src, uint32_t size);
  // Moves `src`'s data here: an empty buffer with no send limits on either side swaps
  // allocations without copying; otherwise copies what `src` may send and consumes it there.
  bool ReadFromInputBufferWithIgnore(IOBuffer& src);

  // One read(). `count` must be in [1, 0xFFFFFFFF), else err = kInvalidCountError and false.
  // EAGAIN: got 0, err 0, true. End of stream: got 0, err 0, false. Other errors: err = errno.
  bool ReadFromFd(int fd, unsigned long count, long& got, int& err);
  // The same through one recv(); `count` 0 is refused.
  bool ReadFromTCPFd(int fd, uint32_t count, int& got, int& err);
  // One recvfrom() of a whole datagram; `pPeer`/`pPeerLength` may be null.
  bool ReadFromUDPFd(int fd, int& got, sockaddr* pPeer, uint32_t* pPeerLength);
  // One read() on a pipe or file; end of stream is true with got 0.
  bool ReadFromStdio(int fd, uint32_t count, int& got);
  // Reads exactly `count` bytes from the file's cursor.
  bool ReadFromFs(File& file, uint32_t count);
  // Drains an OpenSSL BIO*. Fails when the build has no OpenSSL.
  bool ReadFromBIO(void* pBIO);

  // One send(MSG_NOSIGNAL) of at most `size` bytes, within the send limit. Would-block
  // (EAGAIN, EINPROGRESS) is true with sent 0; err = errno on any failure, 0 on success.
  bool WriteToTCPFd(int fd, uint32_t size, int& sent, int& err);
  // One write(); would-block is true with sent 0.
  bool WriteToStdio(int fd, uint32_t size, int& sent);

  // Consumes `count` bytes (unchecked: the caller knows they are there) and lowers the send
  // limit by them.
  bool Ignore(uint32_t count);
  // Consumes everything and lifts the send limit.
  bool IgnoreAll();
  // Rewinds both positions to 0 once all data is consumed, so a steady stream never moves.
  void Recycle();
  // Frees the allocation.
  void Cleanup();

  // "Size: ", "Published: ", "Consumed: ", "Send limit: ", "Address: " lines, then a dump of
  // at most `limit` unread bytes from offset `startIndex` (0: no limit).
  std::string ToString(uint32_t startIndex = 0, uint32_t limit = 0) const;
  static std::string DumpBuffer(const unsigned char* pBuffer, uint32_t length);
  // ToString with the dump cut at kDefaultDumpLimit bytes.
  operator std::string() const;
  static constexpr uint32_t kDefaultDumpLimit = 256;

 private:
  // One read() or recv() into the free space; publishes and samples what arrived.
  ssize_t ReadOnce(int fd, uint32_t count, bool isSocket);
  // Whether a read's result counts as success; sets err (0 for would-block and end of stream).
  static bool ReadSucceeded(ssize_t result, int& err);
  bool WriteToFd(int fd, uint32_t size, bool isSocket, int& sent, int& err);
  bool SwapWith(IOBuffer& other);

  uint8_t* _pBuffer = nullptr;  // owned, new[]
  uint32_t _size = 0;
  uint32_t _published = 0;
  uint32_t _consumed = 0;
  uint32_t _minChunkSize = kDefaultMinChunkSize;
  uint32_t _sendLimit = kUnlimited;
  IOSampler* _pSampler = nullptr;  // not owned
};

}  // namespace common
}  // namespace vrex
