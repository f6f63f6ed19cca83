// VREXFileAppenderCache: one appender per destination file kept open between appends, since
// working out the free space and tail partition of a large file is costly. Entries are keyed
// by device and inode, so two paths to one file meet the same entry.
//
// An entry whose pointer is null is a reservation: a maintenance operation (delete, recover,
// clear) has closed the file to appends with EvictAndLock and reopens it with Evict. So no
// stale appender survives a change made by another route.
//
// Threads: any; _mutex guards the map and is held for map changes only, never for file I/O.
// Errors: ERR_MEDIAFORMATS_APPENDER_PATH_MISMATCH (another path to a cached file, with the extra
// error fields existingPath, newPath, dev and inode), ERR_MEDIAFORMATS_SIMULTANEOUS_APPEND (the
// cached appender is in use), ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE (a reservation or an
// append stands in the way), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "abstraction/filelock.h"
#include "vrxfile/vrex_file_appender.h"

namespace vrex {
namespace mediaformats {
namespace internal {

class VREXFileAppenderCache {
 public:
  // Entries idle for longer than this are dropped whenever an entry is added or evicted.
  static constexpr int kIdleSeconds = 600;

  // The cached appender of `id`, shared with the caller. Null with `err` 0 when there is
  // none or the file is reserved.
  static std::shared_ptr<VREXFileAppender> Find(const abstraction::file_id_t& id, int& err);
  // Adds an appender that was not in the cache.
  static int PutAndLock(const std::shared_ptr<VREXFileAppender>& appender);
  // Removes the entry of `id` (an appender or a reservation); none is fine.
  static int Evict(const abstraction::file_id_t& id);
  static int Evict(const std::shared_ptr<VREXFileAppender>& appender);
  // Reserves `id` for a maintenance operation, dropping an idle appender; fails while an
  // append runs. The operation ends with Evict(id).
  static int EvictAndLock(const abstraction::file_id_t& id);
  // Drops the appenders that only the cache holds and that were idle longer than `ageSeconds`.
  static void Clear(int ageSeconds);

 private:
  static int SameInodeError(const std::string& existingPath, const std::string& newPath,
                            const abstraction::file_id_t& id);
  static int Evict_UNSAFE(const abstraction::file_id_t& id);
  static void Clear_UNSAFE(int ageSeconds);

  typedef std::map<abstraction::file_id_t, std::shared_ptr<VREXFileAppender>> map_t;
  // Never destroyed: worker threads may still append while the host exits.
  static map_t& _cached;  // guarded by _mutex
  static std::mutex& _mutex;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
