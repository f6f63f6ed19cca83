// The DataSource factories: the one way to make and release a source.
#include "abstraction/datasource.h"

#include "abstraction/errors.h"
#include "abstraction/logging.h"
#include "datasource/datasourceconstmemory.h"
#include "datasource/datasourcefile.h"
#include "datasource/datasourcememory.h"
#include "datasource/datasourcemultifile.h"

namespace vrex {
namespace abstraction {

long DataSource::Available() const {
  const long size = Size();
  const long cursor = Cursor();
  VREX_ASSERT(size >= cursor) << "Size() >= Cursor()";
  return size - cursor;
}

DataSource* DataSource::GetInstance(long size) { return new internal::DataSourceMemory(size); }

DataSource* DataSource::GetInstance(const void* data, unsigned long size, int&) {
  return new internal::DataSourceConstMemory(data, size);
}

DataSource* DataSource::GetInstance(const char* path, bool, int& err) {
  internal::DataSourceFile* file = new internal::DataSourceFile();
  err = file->Initialize(path);
  if (err < 0) {
    delete file;
    return nullptr;
  }
  return file;
}

DataSource* DataSource::GetInstance(const char* path, int& err) {
  err = 0;
  DataSource* source = GetInstance(path, true, err);
  if (source != nullptr) return source;
  err = 0;
  return GetInstance(path, false, err);
}

DataSource* DataSource::GetInstance(const std::vector<std::string>& paths, bool, int& err) {
  err = 0;
  internal::DataSourceMultiFile* files = new internal::DataSourceMultiFile();
  err = files->Initialize(paths);
  if (err < 0) {
    delete files;
    return nullptr;
  }
  return files;
}

DataSource* DataSource::GetInstance(const std::vector<std::string>& paths, int& err) {
  return GetInstance(paths, true, err);
}

void DataSource::FreeInstance(DataSource* source) { delete source; }

}  // namespace abstraction
}  // namespace vrex
