// BaseOperation: its state, and the calls of the main thread that change it.
#include "common/base_operation.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "abstraction/logging.h"
#include "common/base_operation_locked.h"
#include "common/clock.h"

namespace vrex {
namespace nodejs {
namespace common {

BaseOperation::BaseOperation(Napi::Env& env, long taskId, const std::string& name,
                             const std::string& poolName, unsigned long maxBufferSize, bool paused,
                             const async_callback_info_t& start, const async_callback_info_t& dst,
                             const async_callback_info_t& completion,
                             const async_callback_info_t& progress)
    : Task(env, taskId, name, poolName, true, -1, completion),
      _startCallback(start),
      _dstCallback(dst),
      _progressCallback(progress),
      _paused(paused),
      _maxBufferSize(maxBufferSize == 0 ? 1 : maxBufferSize) {
  pthread_mutex_init(&_mutex, nullptr);
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&_cond, &attributes);
  pthread_condattr_destroy(&attributes);
  AddFlip(paused);
}

BaseOperation::~BaseOperation() {
  if (_dstTcpFd >= 0) close(_dstTcpFd);
  pthread_cond_destroy(&_cond);
  pthread_mutex_destroy(&_mutex);
}

void BaseOperation::AddFlip(bool paused) {
  state_flip_t flip;
  flip.timestamp = static_cast<long>(GetTimestampMillis());
  flip.paused = paused;
  _stateFlips.push_back(flip);
}

void BaseOperation::Cancel() {
  OperationObserver* observer;
  {
    Locked lock(_mutex);
    _canceled = true;
    pthread_cond_signal(&_cond);
    observer = _observer;
  }
  if (observer != nullptr) observer->SignalCancel();
}

void BaseOperation::Pause() {
  OperationObserver* observer;
  {
    Locked lock(_mutex);
    observer = _observer;
  }
  if (observer != nullptr) observer->SignalPause();
  Locked lock(_mutex);
  AddFlip(true);
  _paused = true;
  LOGI << "BaseOperation::Pause ID:" << _actionId << " id=" << Id();
}

void BaseOperation::Resume() {
  OperationObserver* observer;
  {
    Locked lock(_mutex);
    observer = _observer;
  }
  if (observer != nullptr) observer->SignalResume();
  Locked lock(_mutex);
  AddFlip(false);
  _paused = false;
  pthread_cond_signal(&_cond);
  LOGI << "BaseOperation::Resume ID:" << _actionId << " id=" << Id();
}

unsigned long BaseOperation::BufferedBytesCount() {
  Locked lock(_mutex);
  return _buffer.GetAvailableBytesCount();
}

bool BaseOperation::IsPaused() {
  Locked lock(_mutex);
  return _paused;
}

bool BaseOperation::IsCanceled() {
  Locked lock(_mutex);
  return _canceled;
}

bool BaseOperation::IsComplete() {
  Locked lock(_mutex);
  return _complete;
}

bool BaseOperation::IsCompleteOrPaused() {
  Locked lock(_mutex);
  return _complete || _paused;
}

void BaseOperation::SetComplete(bool complete) {
  Locked lock(_mutex);
  _complete = complete;
}

unsigned long BaseOperation::GetMaxBufferSize() {
  Locked lock(_mutex);
  return _maxBufferSize;
}

void BaseOperation::SetMaxBufferSize(unsigned long size) {
  if (size == 0) return;
  Locked lock(_mutex);
  _maxBufferSize = size;
  // A larger limit may let a waiting worker go on.
  pthread_cond_signal(&_cond);
}

void BaseOperation::SetDestinationFile(const std::string& path) {
  Locked lock(_mutex);
  _dstFileName = path;
}

int BaseOperation::SetDestinationTcpFd(int fd) {
  if (fd < 0) return 0;
  const int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return VREX_ERROR(vrex::errors::SystemError(errno));
  Locked lock(_mutex);
  if (_dstTcpFd >= 0) close(_dstTcpFd);
  _dstTcpFd = copy;
  return 0;
}

void BaseOperation::SetObserver(OperationObserver* observer) {
  Locked lock(_mutex);
  _observer = observer;
}

void BaseOperation::SetAction(long actionStart, long actionId) {
  Locked lock(_mutex);
  _actionStart = actionStart;
  _actionId = actionId;
}

unsigned long BaseOperation::ConsumeData(void* data, unsigned long length) {
  Locked lock(_mutex);
  const unsigned long count = std::min<unsigned long>(length, _buffer.GetAvailableBytesCount());
  if (count > 0) {
    memcpy(data, _buffer.GetPointer() + _buffer.GetConsumed(), count);
    _buffer.Ignore(static_cast<uint32_t>(count));
  }
  pthread_cond_signal(&_cond);
  return count;
}

void BaseOperation::MoveAllData(vrex::common::IOBuffer& target) {
  Locked lock(_mutex);
  _totalWrite += _buffer.GetAvailableBytesCount();
  target.ReadFromInputBufferWithIgnore(_buffer);
  pthread_cond_signal(&_cond);
}

unsigned long BaseOperation::TotalRead() {
  Locked lock(_mutex);
  return _totalRead;
}

unsigned long BaseOperation::TotalWrite() {
  Locked lock(_mutex);
  return _totalWrite;
}

long BaseOperation::GetInitCompletedTimestamp() {
  Locked lock(_mutex);
  return _initCompletedTimestamp;
}

long BaseOperation::GetFirstReadTimestamp() {
  Locked lock(_mutex);
  return _firstReadTimestamp;
}

long BaseOperation::GetFirstSendTimestamp() {
  Locked lock(_mutex);
  return _firstSendTimestamp;
}

}  // namespace common
}  // namespace nodejs
}  // namespace vrex
