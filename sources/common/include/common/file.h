// File: a thin, logging wrapper over 64-bit buffered stdio, with typed integer access in
// either byte order. Every failure is a false result and one log line; nothing throws.
// A File belongs to one thread at a time.
//
// The known size is learnt at open and kept up to date by Size() and by writes; the seeks
// refuse to go beyond it. Writes add their length to it even when they overwrite old bytes,
// so after writing over existing content call Size() to learn the truth again. As with stdio,
// a seek must stand between a write and a following read (and the other way round).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vrex {
namespace common {

class File {
 public:
  enum OpenMode : int {
    FILE_OPEN_MODE_READ = 0,        // "rb"
    FILE_OPEN_MODE_READ_WRITE = 1,  // "r+b"
    FILE_OPEN_MODE_TRUNCATE = 2,    // "w+b"
    FILE_OPEN_MODE_APPEND = 3,      // "a+b": every write goes to the end
  };

  File() = default;
  // Closes the file.
  virtual ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Closes what was open, then opens `path`. `mode` is one of OpenMode.
  bool Initialize(const std::string& path, int mode);
  bool Initialize(const std::string& path);  // read only
  // A failed Initialize stays silent from now on, across Close (for probing files that may
  // not exist).
  void SuppressLogErrorsOnInit() { _suppressLogErrorsOnInit = true; }
  // Flushes and closes; true when nothing was open.
  bool Close();

  bool IsOpen() const { return _pFile != nullptr; }
  // True at end of file, and for a closed file.
  bool IsEOF();
  const std::string& GetPath() const { return _path; }
  // The read/write position; 0 for a closed file.
  uint64_t Cursor();
  // The size; in append mode the size known from the open and the writes since.
  uint64_t Size();

  bool SeekBegin();
  bool SeekEnd();
  // Refuses a position beyond the known size, leaving the cursor where it was.
  bool SeekTo(uint64_t position);
  bool SeekAhead(long count);
  bool SeekBehind(long count);

  // Reads exactly `size` bytes; a short read fails. At most 0xFFFFFFFF bytes at once.
  bool ReadBuffer(uint8_t* pBuffer, uint64_t size);
  // `networkOrder`: big-endian in the file; otherwise little-endian.
  bool ReadI8(int8_t* pValue);
  bool ReadUI8(uint8_t* pValue);
  bool ReadI16(int16_t* pValue, bool networkOrder);
  bool ReadUI16(uint16_t* pValue, bool networkOrder);
  // 3 bytes; the top byte of the result is 0 (no sign extension).
  bool ReadI24(int32_t* pValue, bool networkOrder);
  bool ReadUI24(uint32_t* pValue, bool networkOrder);
  bool ReadI32(int32_t* pValue, bool networkOrder);
  bool ReadUI32(uint32_t* pValue, bool networkOrder);
  bool ReadI64(int64_t* pValue, bool networkOrder);
  bool ReadUI64(uint64_t* pValue, bool networkOrder);
  // FLV timestamps: 3 bytes big-endian (bits 23..0), then the high byte (bits 31..24).
  bool ReadSI32(int32_t* pValue);
  bool ReadSUI32(uint32_t* pValue);

  // As the reads, leaving the cursor where it was.
  bool PeekBuffer(uint8_t* pBuffer, uint64_t size);
  bool PeekI8(int8_t* pValue);
  bool PeekUI8(uint8_t* pValue);
  bool PeekI16(int16_t* pValue, bool networkOrder);
  bool PeekUI16(uint16_t* pValue, bool networkOrder);
  bool PeekI24(int32_t* pValue, bool networkOrder);
  bool PeekUI24(uint32_t* pValue, bool networkOrder);
  bool PeekI32(int32_t* pValue, bool networkOrder);
  bool PeekUI32(uint32_t* pValue, bool networkOrder);
  bool PeekI64(int64_t* pValue, bool networkOrder);
  bool PeekUI64(uint64_t* pValue, bool networkOrder);
  bool PeekSI32(int32_t* pValue);
  bool PeekSUI32(uint32_t* pValue);

  // The whole file, from the beginning; refuses files of 0xFFFFFFFF bytes and more.
  bool ReadAll(std::string& content);

  // Writes all `size` bytes (at most 0xFFFFFFFF) and adds them to the known size.
  bool WriteBuffer(const uint8_t* pBuffer, uint64_t size);
  bool WriteI8(int8_t value);
  bool WriteUI8(uint8_t value);
  bool WriteI16(int16_t value, bool networkOrder);
  bool WriteUI16(uint16_t value, bool networkOrder);
  // The low 3 bytes.
  bool WriteI24(int32_t value, bool networkOrder);
  bool WriteUI24(uint32_t value, bool networkOrder);
  bool WriteI32(int32_t value, bool networkOrder);
  bool WriteUI32(uint32_t value, bool networkOrder);
  bool WriteI64(int64_t value, bool networkOrder);
  bool WriteUI64(uint64_t value, bool networkOrder);
  // FLV timestamps: bits 23..0 as 3 bytes big-endian, then bits 31..24.
  bool WriteSI32(int32_t value);
  bool WriteSUI32(uint32_t value);
  // The bytes of `text`, without a terminator.
  bool WriteString(const std::string& text);

  bool Flush();

 private:
  bool CheckOpen();
  bool ReadInteger(uint64_t& value, unsigned width, bool networkOrder);
  bool ReadFlvTimestamp(uint32_t& value);
  bool WriteInteger(uint64_t value, unsigned width, bool networkOrder);
  // Runs `read`, then moves back by `width` bytes.
  template <typename Read>
  bool Peek(uint64_t width, Read read);

  FILE* _pFile = nullptr;
  uint64_t _size = 0;
  std::string _path;
  bool _appendMode = false;
  bool _suppressLogErrorsOnInit = false;
};

}  // namespace common
}  // namespace vrex
