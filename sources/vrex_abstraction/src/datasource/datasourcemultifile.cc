// DataSourceMultiFile: one cursor over a concatenation; a read may span file seams.
#include "datasource/datasourcemultifile.h"

#include <algorithm>

#include "datasource/datasourcefile.h"
#include "datasource/memory_bytes.h"

namespace vrex {
namespace abstraction {
namespace internal {

DataSourceMultiFile::~DataSourceMultiFile() {
  for (DataSource* file : _files) FreeInstance(file);
}

int DataSourceMultiFile::Initialize(const std::vector<std::string>& paths) {
  if (paths.empty()) return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  for (const std::string& path : paths) {
    DataSourceFile* file = new DataSourceFile(&_window);
    const int err = file->Initialize(path.c_str());
    if (err < 0) {
      delete file;
      return err;
    }
    if (file->Size() == 0) {
      delete file;
      continue;
    }
    _files.push_back(file);
    _baseOffsets.push_back(_totalSize);
    _totalSize += file->Size();
  }
  return 0;
}

long DataSourceMultiFile::MultifileBaseOffset() const {
  return _files.empty() ? 0 : _baseOffsets[_current];
}

long DataSourceMultiFile::Cursor(long pos) {
  _cursor = ClampToSize(pos, _totalSize);
  for (size_t i = 0; i < _files.size(); ++i) {
    if (_cursor < _baseOffsets[i] + _files[i]->Size()) {
      _current = i;
      _files[i]->Cursor(_cursor - _baseOffsets[i]);
      break;
    }
  }
  return _cursor;
}

int DataSourceMultiFile::MoveToNextFileIfExhausted() {
  while (_files[_current]->Available() == 0 && _current + 1 < _files.size()) {
    ++_current;
    if (_files[_current]->Cursor(0) != 0) return VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
  }
  return 0;
}

long DataSourceMultiFile::ReadBuffer(unsigned char* dst, unsigned long count) {
  if (count > static_cast<unsigned long>(_totalSize - _cursor)) {
    return VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
  }
  unsigned long done = 0;
  long result = 0;
  while (done < count) {
    DataSource* file = _files[_current];
    const unsigned long take =
        std::min(count - done, static_cast<unsigned long>(file->Available()));
    const long got = file->ReadBuffer(dst + done, take);
    if (got < 0) {
      result = got;
      break;
    }
    if (static_cast<unsigned long>(got) != take) {
      result = VREX_ERROR(ERR_ABSTRACTION_READ_INCOMPLETE);
      break;
    }
    done += take;
    result = MoveToNextFileIfExhausted();
    if (result < 0) break;
    if (take == 0 && done < count) {
      result = VREX_ERROR(ERR_ABSTRACTION_READ_INCOMPLETE);
      break;
    }
  }
  if (result < 0) {
    Cursor(_cursor);  // the inner cursors go back to where this read began
    return result;
  }
  _cursor += static_cast<long>(count);
  return static_cast<long>(count);
}

const unsigned char* DataSourceMultiFile::PeekBuffer(unsigned char* dst, long offset,
                                                     unsigned long count, int& err) {
  err = 0;
  if (dst == nullptr || offset < 0 || offset > _totalSize ||
      count > static_cast<unsigned long>(_totalSize - offset)) {
    err = VREX_ERROR(ERR_ABSTRACTION_INVALID_PARAMETERS);
    return nullptr;
  }
  const long remembered = _cursor;
  if (Cursor(offset) != offset) {
    err = VREX_ERROR(ERR_ABSTRACTION_INVALID_FILE_OFFSET);
    Cursor(remembered);
    return nullptr;
  }
  const long got = ReadBuffer(dst, count);
  Cursor(remembered);
  if (got < 0) {
    err = static_cast<int>(got);
    return nullptr;
  }
  if (static_cast<unsigned long>(got) != count) {
    err = VREX_ERROR(ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
    return nullptr;
  }
  return dst;
}

int DataSourceMultiFile::DropReadAhead() {
  int result = 0;
  _totalSize = 0;
  for (size_t i = 0; i < _files.size(); ++i) {
    const int err = _files[i]->DropReadAhead();  // a file whose size failed keeps the old one
    if (err < 0 && result == 0) result = err;
    _baseOffsets[i] = _totalSize;
    _totalSize += _files[i]->Size();
  }
  Cursor(std::min(_cursor, _totalSize));
  return result;
}

void DataSourceMultiFile::ReadIntegerBytes(unsigned char* dst, unsigned width) {
  const long got = ReadBuffer(dst, width);
  VREX_ASSERT(got == static_cast<long>(width)) << "ReadBuffer() failed: sizeof(result): " << width;
}

}  // namespace internal
}  // namespace abstraction
}  // namespace vrex
