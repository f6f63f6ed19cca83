// VREXFileAppenderCache: the process's open appenders and the reservations of maintenance.
#include "vrxfile/vrex_file_appender_cache.h"

#include <cstdio>

#include "abstraction/logging.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {
namespace internal {

using abstraction::file_id_t;

VREXFileAppenderCache::map_t& VREXFileAppenderCache::_cached = *new map_t();
std::mutex& VREXFileAppenderCache::_mutex = *new std::mutex();

namespace {
std::string Hex(uint64_t value) {
  char text[24];
  snprintf(text, sizeof text, "0x%lx", static_cast<unsigned long>(value));
  return text;
}
}  // namespace

int VREXFileAppenderCache::SameInodeError(const std::string& existingPath,
                                          const std::string& newPath, const file_id_t& id) {
  LOGE << "<-# VREXFileAppenderCache FAILED! appender of " << existingPath
       << " is asked for by another path " << newPath;
  const int err = VREX_ERROR(ERR_MEDIAFORMATS_APPENDER_PATH_MISMATCH);
  ::vrex::errors::addExtraInfo("existingPath", existingPath);
  ::vrex::errors::addExtraInfo("newPath", newPath);
  ::vrex::errors::addExtraInfo("dev", Hex(id.device));
  ::vrex::errors::addExtraInfo("inode", Hex(id.inode));
  return err;
}

std::shared_ptr<VREXFileAppender> VREXFileAppenderCache::Find(const file_id_t& id, int& err) {
  err = 0;
  std::lock_guard<std::mutex> lock(_mutex);
  const map_t::iterator entry = _cached.find(id);
  if (entry == _cached.end()) return nullptr;
  if (entry->first.path != id.path) {
    err = SameInodeError(entry->first.path, id.path, id);
    return nullptr;
  }
  std::shared_ptr<VREXFileAppender> found = entry->second;
  // The cache, this copy, and one more: somebody else appends right now.
  if (found && found.use_count() >= 3) {
    err = VREX_ERROR(ERR_MEDIAFORMATS_SIMULTANEOUS_APPEND);
    return nullptr;
  }
  return found;
}

int VREXFileAppenderCache::PutAndLock(const std::shared_ptr<VREXFileAppender>& appender) {
  if (!appender) return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  std::lock_guard<std::mutex> lock(_mutex);
  if (_cached.count(appender->FileId()) != 0) {
    return VREX_ERROR(ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE);
  }
  Clear_UNSAFE(kIdleSeconds);
  _cached.emplace(appender->FileId(), appender);
  return 0;
}

int VREXFileAppenderCache::Evict_UNSAFE(const file_id_t& id) {
  const map_t::iterator entry = _cached.find(id);
  if (entry == _cached.end()) return 0;
  if (entry->first.path != id.path) return SameInodeError(entry->first.path, id.path, id);
  _cached.erase(entry);
  return 0;
}

int VREXFileAppenderCache::Evict(const file_id_t& id) {
  std::lock_guard<std::mutex> lock(_mutex);
  const int err = Evict_UNSAFE(id);
  Clear_UNSAFE(kIdleSeconds);
  return err;
}

int VREXFileAppenderCache::Evict(const std::shared_ptr<VREXFileAppender>& appender) {
  return appender ? Evict(appender->FileId()) : 0;
}

int VREXFileAppenderCache::EvictAndLock(const file_id_t& id) {
  std::lock_guard<std::mutex> lock(_mutex);
  const map_t::iterator entry = _cached.find(id);
  if (entry != _cached.end()) {
    if (entry->second && entry->second.use_count() > 1) {
      LOGE << "<-# VREXFileAppenderCache::EvictAndLock FAILED! an append runs on " << id.path;
      return VREX_ERROR(ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE);
    }
    // The reservation takes this caller's path, so that its Evict(id) finds it.
    _cached.erase(entry);
  }
  _cached.emplace(id, nullptr);
  return 0;
}

void VREXFileAppenderCache::Clear_UNSAFE(int ageSeconds) {
  const auto now = std::chrono::steady_clock::now();
  for (map_t::iterator entry = _cached.begin(); entry != _cached.end();) {
    const std::shared_ptr<VREXFileAppender>& appender = entry->second;
    const bool idle = appender && appender.use_count() == 1 &&
                      now - appender->LastUse() > std::chrono::seconds(ageSeconds);
    entry = idle ? _cached.erase(entry) : std::next(entry);
  }
}

void VREXFileAppenderCache::Clear(int ageSeconds) {
  std::lock_guard<std::mutex> lock(_mutex);
  Clear_UNSAFE(ageSeconds);
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
