// OperationSendFile: the range check, the locks, and one locked read per round.
#include "common/operation_send_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "abstraction/filelock_closure.h"
#include "abstraction/logging.h"
#include "nodejs/errors.h"

namespace vrex {
namespace nodejs {
namespace common {

using vrex::webrtcnodejs::ERR_NODEJS_INVALID_FILE_RANGE;

OperationSendFile::OperationSendFile(Napi::Env& env, long id, const SendFileParams& params)
    : BaseOperation(env, id, "sendFile", "Serve",
                    params.dstCallback.function != nullptr ? kDrainBufferSize : kBufferSize,
                    params.paused, params.startCallback, params.dstCallback, params.CallbackInfo(),
                    params.progressCallback),
      _params(params),
      _length(params.length),
      _offset(params.offset) {}

OperationSendFile::~OperationSendFile() {
  if (_fd >= 0) close(_fd);
}

int OperationSendFile::AddLocks(const std::string& path, bool shared) {
  _fileLocks.emplace_back();
  const int result = _fileLocks.back().Init(path.c_str(), shared);
  if (result != 0) {
    UnlockIPCLocks();
    return result;
  }
  auto ipc = std::make_unique<ms::IPCFileLock>(path, shared);
  // A file this process may not write cannot be locked among processes: it is read without.
  if (ipc->IsInitialized()) _ipcLocks.push_back(std::move(ipc));
  return 0;
}

int OperationSendFile::Init(const std::string& dstFile) {
  if (_fd >= 0) close(_fd);
  const std::string& source = _params.srcFileNames[0];
  _fd = open(source.c_str(), O_RDONLY | O_CLOEXEC);
  if (_fd < 0) return VREX_ERROR(vrex::errors::SystemError(errno));
  const off_t size = lseek(_fd, 0, SEEK_END);
  if (size < 0) return VREX_ERROR(vrex::errors::SystemError(errno));
  if (_offset >= size) {
    LOGE << "Offset " << _offset << " bigger than the size " << size << " of the file " << source;
    return VREX_ERROR(ERR_NODEJS_INVALID_FILE_RANGE);
  }
  if (_length < 0) _length = size - _offset;
  if (_length == 0) {
    LOGE << "Invalid length provided";
    return VREX_ERROR(ERR_NODEJS_INVALID_FILE_RANGE);
  }
  long end = 0;
  if (__builtin_add_overflow(_offset, _length, &end) || end > size) {
    LOGE << "Offset " << _offset << " + length " << _length << " bigger than the size " << size
         << " of the file " << source;
    return VREX_ERROR(ERR_NODEJS_INVALID_FILE_RANGE);
  }
  // The size goes out in 32 bits.
  if (_params.sendFileSize && _length > 0xffffffffL) return VREX_ERROR(ERR_NODEJS_INVALID_FILE_RANGE);
  _sizeSent = !_params.sendFileSize;
  if (lseek(_fd, _offset, SEEK_SET) != _offset) return VREX_ERROR(vrex::errors::SystemError(errno));
  if (!dstFile.empty()) {
    const int result = AddLocks(dstFile, false);
    if (result != 0) return result;
  }
  return AddLocks(source, true);
}

void OperationSendFile::LockIPCLocks() {
  for (const auto& lock : _ipcLocks) lock->Lock();
}

void OperationSendFile::UnlockIPCLocks() {
  for (const auto& lock : _ipcLocks) lock->Unlock();
}

int OperationSendFile::ProcessData(vrex::common::IOBuffer& buffer, int fd, unsigned long maxRead,
                                   int&) {
  if (!_sizeSent) {
    buffer.ReadFromU32(static_cast<uint32_t>(_length), true);
    _sizeSent = true;
  }
  vrex::abstraction::file_locks_closure_t locks(_fileLocks);
  if (!locks.IsLocked()) {
    locks.UnlockAll();
    return locks.Error();
  }
  LockIPCLocks();
  const unsigned long toRead = std::min<unsigned long>(maxRead, _length - _bytesSent);
  int result = 0;
  if (toRead == 0) {
    SetComplete(true);
  } else if (fd >= 0 && _copyInKernel && buffer.GetAvailableBytesCount() == 0 &&
             CopyInKernel(fd, std::min<unsigned long>(_length - _bytesSent, kCopySize), result)) {
    // Copied by the kernel. A round whose buffer holds the size word reads instead, so that
    // the word stays ahead of the data.
  } else {
    long got = 0;
    int err = 0;
    if (buffer.ReadFromFd(_fd, toRead, got, err)) {
      _bytesSent += got;
    } else {
      // A read of nothing before the end of the range: the file was cut short under us.
      result = VREX_ERROR(err != 0 ? vrex::errors::SystemError(err) : vrex::webrtcnodejs::ERR_NODEJS_FILE_IO);
    }
  }
  UnlockIPCLocks();
  locks.UnlockAll();
  return result;
}

void OperationSendFile::SignalThreadCleanup() {
  _ipcLocks.clear();
  _fileLocks.clear();
  if (_fd >= 0) close(_fd);
  _fd = -1;
}

bool OperationSendFile::CopyInKernel(int dstFd, unsigned long count, int& result) {
  const ssize_t copied = copy_file_range(_fd, nullptr, dstFd, nullptr, count, 0);
  if (copied > 0) {
    _bytesSent += copied;
    CountCopied(static_cast<unsigned long>(copied));
    return true;
  }
  const int err = copied < 0 ? errno : 0;
  if (err == EXDEV || err == EINVAL || err == ENOSYS || err == EOPNOTSUPP) {
    LOGI << "    OperationSendFile::CopyInKernel the kernel cannot copy between these files (errno "
         << err << "): the bytes go through the buffer";
    _copyInKernel = false;
    return false;
  }
  if (err == EINTR) return true;
  // Nothing before the end of the range: the file was cut short under us.
  result = VREX_ERROR(err != 0 ? vrex::errors::SystemError(err) : vrex::webrtcnodejs::ERR_NODEJS_FILE_IO);
  return true;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
