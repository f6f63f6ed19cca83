// The locks and the reader of a listing task: both lock layers shared, then a reader on the
// one file. Taken on the worker thread, released in reverse order.
#pragma once

#include <memory>
#include <string>

#include "mediaformats/vrx/reader_vrex.h"
#include "vrxutils/vrx_file_locks.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

class VrxReadSession {
 public:
  // `owner` names the task in log lines; `detailedLog` selects TaskVRXFileInfo's texts.
  VrxReadSession(const char* owner, bool detailedLog)
      : _owner(owner), _detailedLog(detailedLog), _locks(owner) {}
  ~VrxReadSession() { Close(); }
  VrxReadSession(const VrxReadSession&) = delete;
  VrxReadSession& operator=(const VrxReadSession&) = delete;

  // Locks `path` shared (in this process without limit, against other processes for 1,500 ms)
  // and creates the reader from `offset` to the end. Returns the failure of the step at fault:
  // file_lock_t's code, ms::IPCFileLock::kTIMED_OUT, or the reader's.
  int Open(const std::string& path, long offset);
  // Destroys the reader, then releases the locks.
  void Close();

  mediaformats::ReaderVREX* reader() { return _reader.get(); }

 private:
  const char* _owner;
  const bool _detailedLog;
  VrxFileLocks _locks;
  mediaformats::ReaderVREX::Observer _observer;  // the listings watch no packets
  std::unique_ptr<mediaformats::ReaderVREX> _reader;
};

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
