// OperationSendFile: sendFile, a byte range of one file streamed to a file, a socket or a
// JavaScript drain, on the "Serve" pool.
//
// The source is read in pieces, each under the file's locks (shared, within the process and
// among processes), so that an appender elsewhere waits at most one piece. The range is fixed
// when the operation starts: bytes appended later are not sent. With sendFileSize the length
// goes first, as 4 bytes big-endian. To a file, the kernel copies each piece from file to
// file where it can (copy_file_range); otherwise it passes through the operation's buffer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "abstraction/filelock.h"
#include "common/base_operation.h"
#include "common/send_file_params.h"
#include "mscommon/ipc_file_lock.h"

namespace vrex {
namespace nodejs {
namespace common {

class OperationSendFile : public BaseOperation {
 public:
  static constexpr unsigned long kDrainBufferSize = 4194304;
  static constexpr unsigned long kBufferSize = 262144;
  // A piece the kernel copies from file to file: it passes through no buffer, so it can be
  // larger, and the locks are taken less often; an appender waits a few milliseconds at most.
  static constexpr unsigned long kCopySize = 8388608;

  OperationSendFile(Napi::Env& env, long id, const SendFileParams& params);
  ~OperationSendFile() override;

 protected:
  // Opens the source, checks the range ("NodeJS invalid file offset and length") and prepares
  // the locks of the source and of the destination file.
  int Init(const std::string& dstFile) override;
  bool IsLowPriority() override { return false; }
  void GetOperationStartCallbackInfo(Napi::Object&) override {}
  void GetOperationEndCallbackInfo(Napi::Object&) override {}
  void GetOperationEndCallbackError(Napi::Object&) override {}
  int ProcessData(vrex::common::IOBuffer& buffer, int fd, unsigned long maxRead,
                  int& waitSeconds) override;
  // Closes the source and the lock descriptors on the worker: closing the last descriptor of
  // a file deleted meanwhile frees its blocks, which must not hold up the event loop.
  void SignalThreadCleanup() override;

 private:
  int AddLocks(const std::string& path, bool shared);
  // Copies up to `count` bytes of the range to `dstFd` inside the kernel. False when the kernel
  // cannot copy between these two files: the piece is to be read instead, and so are the next.
  // Otherwise true, with `result` set to the error of a failed or short copy.
  bool CopyInKernel(int dstFd, unsigned long count, int& result);
  void LockIPCLocks();
  void UnlockIPCLocks();

  const SendFileParams _params;
  int _fd = -1;
  long _length = 0;
  long _offset = 0;
  long _bytesSent = 0;
  std::vector<vrex::abstraction::file_lock_t> _fileLocks;
  std::vector<std::unique_ptr<ms::IPCFileLock>> _ipcLocks;
  bool _sizeSent = true;
  bool _copyInKernel = true;
};

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
