// File: opening, seeking within the known size, exact reads and writes, typed integers.
#include "common/file.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "abstraction/logging.h"

namespace vrex {
namespace common {

namespace {

constexpr uint64_t kMaxSingleTransfer = 0xFFFFFFFFull;

__attribute__((format(printf, 1, 2))) void LogFailure(const char* format, ...) {
  if (!abstraction::isLoggingCallbackRegistered()) return;
  char text[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  LOGE << text;
}

uint64_t DecodeInteger(const uint8_t* pBytes, unsigned width, bool networkOrder) {
  uint64_t value = 0;
  for (unsigned i = 0; i < width; ++i) {
    if (networkOrder) {
      value = (value << 8) | pBytes[i];
    } else {
      value |= static_cast<uint64_t>(pBytes[i]) << (8 * i);
    }
  }
  return value;
}

void EncodeInteger(uint64_t value, unsigned width, bool networkOrder, uint8_t* pBytes) {
  for (unsigned i = 0; i < width; ++i) {
    const unsigned shift = 8 * (networkOrder ? width - 1 - i : i);
    pBytes[i] = static_cast<uint8_t>(value >> shift);
  }
}

const char* StdioMode(int mode) {
  switch (mode) {
    case File::FILE_OPEN_MODE_READ:
      return "rb";
    case File::FILE_OPEN_MODE_READ_WRITE:
      return "r+b";
    case File::FILE_OPEN_MODE_TRUNCATE:
      return "w+b";
    case File::FILE_OPEN_MODE_APPEND:
      return "a+b";
    default:
      return nullptr;
  }
}

}  // namespace

File::~File() { Close(); }

bool File::Initialize(const std::string& path) { return Initialize(path, FILE_OPEN_MODE_READ); }

bool File::Initialize(const std::string& path, int mode) {
  Close();
  const char* stdioMode = StdioMode(mode);
  if (stdioMode == nullptr) {
    LogFailure("Invalid open mode");
    return false;
  }
  _pFile = fopen64(path.c_str(), stdioMode);
  if (_pFile == nullptr) {
    const int err = errno;
    if (!_suppressLogErrorsOnInit) {
      LogFailure("Unable to open file %s with mode `%s`. Error was: (%d) %s", path.c_str(),
                 stdioMode, err, strerror(err));
    }
    return false;
  }
  _path = path;
  _appendMode = mode == FILE_OPEN_MODE_APPEND;
  const off64_t size = SeekEnd() ? ftello64(_pFile) : -1;
  if (size < 0 || !SeekBegin()) {
    Close();
    return false;
  }
  _size = static_cast<uint64_t>(size);
  return true;
}

bool File::Close() {
  if (_pFile != nullptr) {
    fflush(_pFile);
    fclose(_pFile);
    _pFile = nullptr;
  }
  _size = 0;
  _path.clear();
  _appendMode = false;
  return true;
}

bool File::CheckOpen() {
  if (_pFile != nullptr) return true;
  LogFailure("File not opened");
  return false;
}

bool File::IsEOF() {
  if (!CheckOpen()) return true;
  return feof(_pFile) != 0;
}

uint64_t File::Cursor() {
  if (!CheckOpen()) return 0;
  const off64_t position = ftello64(_pFile);
  return position < 0 ? 0 : static_cast<uint64_t>(position);
}

uint64_t File::Size() {
  if (!CheckOpen()) return 0;
  if (_appendMode) return _size;
  const off64_t current = ftello64(_pFile);
  if (current < 0 || fseeko64(_pFile, 0, SEEK_END) != 0) return _size;
  const off64_t end = ftello64(_pFile);
  fseeko64(_pFile, current, SEEK_SET);
  if (end >= 0) _size = static_cast<uint64_t>(end);
  return _size;
}

bool File::SeekBegin() {
  if (!CheckOpen()) return false;
  if (fseeko64(_pFile, 0, SEEK_SET) != 0) {
    LogFailure("Unable to seek to the beginning of file");
    return false;
  }
  return true;
}

bool File::SeekEnd() {
  if (!CheckOpen()) return false;
  if (fseeko64(_pFile, 0, SEEK_END) != 0) {
    LogFailure("Unable to seek to the end of file");
    return false;
  }
  return true;
}

bool File::SeekTo(uint64_t position) {
  if (!CheckOpen()) return false;
  if (position > _size) {
    LogFailure("End of file will be reached");
    return false;
  }
  if (fseeko64(_pFile, static_cast<off64_t>(position), SEEK_SET) != 0) {
    LogFailure("Unable to seek to position %lu", static_cast<unsigned long>(position));
    return false;
  }
  return true;
}

bool File::SeekAhead(long count) {
  if (!CheckOpen()) return false;
  if (count < 0) {
    LogFailure("Invalid count");
    return false;
  }
  if (Cursor() + static_cast<uint64_t>(count) > _size) {
    LogFailure("End of file will be reached");
    return false;
  }
  if (fseeko64(_pFile, count, SEEK_CUR) != 0) {
    LogFailure("Unable to seek ahead %ld bytes", count);
    return false;
  }
  return true;
}

bool File::SeekBehind(long count) {
  if (!CheckOpen()) return false;
  if (count < 0) {
    LogFailure("Invalid count");
    return false;
  }
  if (static_cast<uint64_t>(count) > Cursor()) {
    LogFailure("Beginning of file will be reached");
    return false;
  }
  if (fseeko64(_pFile, -count, SEEK_CUR) != 0) {
    LogFailure("Unable to seek behind %ld bytes", count);
    return false;
  }
  return true;
}

bool File::ReadBuffer(uint8_t* pBuffer, uint64_t size) {
  if (!CheckOpen()) return false;
  if (size == 0) return true;
  if (size > kMaxSingleTransfer) {
    LogFailure("Can't read more than 4GB of data at once");
    return false;
  }
  errno = 0;
  if (fread(pBuffer, size, 1, _pFile) != 1) {
    const int err = errno;
    const unsigned long cursor = Cursor();
    LogFailure("Unable to read %lu bytes from the file. Cursor: %lu (0x%lx); (%d) %s",
               static_cast<unsigned long>(size), cursor, cursor, err, strerror(err));
    return false;
  }
  return true;
}

bool File::ReadInteger(uint64_t& value, unsigned width, bool networkOrder) {
  uint8_t bytes[8];
  if (!ReadBuffer(bytes, width)) return false;
  value = DecodeInteger(bytes, width, networkOrder);
  return true;
}

bool File::ReadFlvTimestamp(uint32_t& value) {
  uint8_t bytes[4];
  if (!ReadBuffer(bytes, sizeof(bytes))) return false;
  value = static_cast<uint32_t>(DecodeInteger(bytes, 3, true)) | (uint32_t{bytes[3]} << 24);
  return true;
}

// The typed reads: one width and byte order each, converted to the caller's type.
#define VREX_FILE_READ(Name, Type, width)                       \
  bool File::Name(Type* pValue, bool networkOrder) {            \
    uint64_t value;                                             \
    if (!ReadInteger(value, width, networkOrder)) return false; \
    *pValue = static_cast<Type>(value);                         \
    return true;                                                \
  }
VREX_FILE_READ(ReadI16, int16_t, 2)
VREX_FILE_READ(ReadUI16, uint16_t, 2)
VREX_FILE_READ(ReadI24, int32_t, 3)
VREX_FILE_READ(ReadUI24, uint32_t, 3)
VREX_FILE_READ(ReadI32, int32_t, 4)
VREX_FILE_READ(ReadUI32, uint32_t, 4)
VREX_FILE_READ(ReadI64, int64_t, 8)
VREX_FILE_READ(ReadUI64, uint64_t, 8)
#undef VREX_FILE_READ

bool File::ReadI8(int8_t* pValue) { return ReadBuffer(reinterpret_cast<uint8_t*>(pValue), 1); }
bool File::ReadUI8(uint8_t* pValue) { return ReadBuffer(pValue, 1); }

bool File::ReadSI32(int32_t* pValue) {
  uint32_t value;
  if (!ReadFlvTimestamp(value)) return false;
  *pValue = static_cast<int32_t>(value);
  return true;
}

bool File::ReadSUI32(uint32_t* pValue) { return ReadFlvTimestamp(*pValue); }

template <typename Read>
bool File::Peek(uint64_t width, Read read) {
  return read() && SeekBehind(static_cast<long>(width));
}

bool File::PeekBuffer(uint8_t* pBuffer, uint64_t size) {
  return Peek(size, [&] { return ReadBuffer(pBuffer, size); });
}

// The typed peeks: the matching read, then back by its width.
#define VREX_FILE_PEEK(Name, Read, Type, width)                     \
  bool File::Name(Type* pValue, bool networkOrder) {                \
    return Peek(width, [&] { return Read(pValue, networkOrder); }); \
  }
VREX_FILE_PEEK(PeekI16, ReadI16, int16_t, 2)
VREX_FILE_PEEK(PeekUI16, ReadUI16, uint16_t, 2)
VREX_FILE_PEEK(PeekI24, ReadI24, int32_t, 3)
VREX_FILE_PEEK(PeekUI24, ReadUI24, uint32_t, 3)
VREX_FILE_PEEK(PeekI32, ReadI32, int32_t, 4)
VREX_FILE_PEEK(PeekUI32, ReadUI32, uint32_t, 4)
VREX_FILE_PEEK(PeekI64, ReadI64, int64_t, 8)
VREX_FILE_PEEK(PeekUI64, ReadUI64, uint64_t, 8)
#undef VREX_FILE_PEEK

bool File::PeekI8(int8_t* pValue) {
  return Peek(1, [&] { return ReadI8(pValue); });
}
bool File::PeekUI8(uint8_t* pValue) {
  return Peek(1, [&] { return ReadUI8(pValue); });
}
bool File::PeekSI32(int32_t* pValue) {
  return Peek(4, [&] { return ReadSI32(pValue); });
}
bool File::PeekSUI32(uint32_t* pValue) {
  return Peek(4, [&] { return ReadSUI32(pValue); });
}

bool File::ReadAll(std::string& content) {
  content.clear();
  if (!CheckOpen()) return false;
  const uint64_t size = Size();
  if (size >= kMaxSingleTransfer) {
    LogFailure("ReadAll can only be done on files smaller than 2^32 bytes (4GB)");
    return false;
  }
  if (size == 0) return true;
  if (!SeekBegin()) return false;
  content.resize(size);
  if (!ReadBuffer(reinterpret_cast<uint8_t*>(&content[0]), size)) {
    content.clear();
    return false;
  }
  return true;
}

bool File::WriteBuffer(const uint8_t* pBuffer, uint64_t size) {
  if (!CheckOpen()) return false;
  if (size == 0) return true;
  if (size > kMaxSingleTransfer) {
    LogFailure("Can't write more than 4GB of data at once");
    return false;
  }
  if (fwrite(pBuffer, size, 1, _pFile) != 1) {
    LogFailure("Unable to write %lu bytes to file", static_cast<unsigned long>(size));
    return false;
  }
  _size += size;
  return true;
}

bool File::WriteInteger(uint64_t value, unsigned width, bool networkOrder) {
  uint8_t bytes[8];
  EncodeInteger(value, width, networkOrder, bytes);
  return WriteBuffer(bytes, width);
}

bool File::WriteI8(int8_t value) { return WriteInteger(static_cast<uint8_t>(value), 1, true); }
bool File::WriteUI8(uint8_t value) { return WriteInteger(value, 1, true); }
bool File::WriteI16(int16_t value, bool networkOrder) {
  return WriteInteger(static_cast<uint16_t>(value), 2, networkOrder);
}
bool File::WriteUI16(uint16_t value, bool networkOrder) {
  return WriteInteger(value, 2, networkOrder);
}
bool File::WriteI24(int32_t value, bool networkOrder) {
  return WriteInteger(static_cast<uint32_t>(value), 3, networkOrder);
}
bool File::WriteUI24(uint32_t value, bool networkOrder) {
  return WriteInteger(value, 3, networkOrder);
}
bool File::WriteI32(int32_t value, bool networkOrder) {
  return WriteInteger(static_cast<uint32_t>(value), 4, networkOrder);
}
bool File::WriteUI32(uint32_t value, bool networkOrder) {
  return WriteInteger(value, 4, networkOrder);
}
bool File::WriteI64(int64_t value, bool networkOrder) {
  return WriteInteger(static_cast<uint64_t>(value), 8, networkOrder);
}
bool File::WriteUI64(uint64_t value, bool networkOrder) {
  return WriteInteger(value, 8, networkOrder);
}

bool File::WriteSUI32(uint32_t value) {
  uint8_t bytes[4];
  EncodeInteger(value & 0x00FFFFFF, 3, true, bytes);
  bytes[3] = static_cast<uint8_t>(value >> 24);
  return WriteBuffer(bytes, sizeof(bytes));
}

bool File::WriteSI32(int32_t value) { return WriteSUI32(static_cast<uint32_t>(value)); }

bool File::WriteString(const std::string& text) {
  return WriteBuffer(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

bool File::Flush() {
  if (!CheckOpen()) return false;
  if (fflush(_pFile) != 0) {
    const int err = errno;
    LogFailure("Unable to flush file %s: (%d) %s", _path.c_str(), err, strerror(err));
    return false;
  }
  return true;
}

}  // namespace common
}  // namespace vrex
