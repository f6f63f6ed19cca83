// VREXFileUtils: identity, the appender cache's reservation, and the work of each operation.
#include "mediaformats/vrx/vrex_file_utils.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <functional>

#include "abstraction/fastfileoperations.h"
#include "abstraction/filelock.h"
#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "vrxfile/executed_appends.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"
#include "vrxfile/vrex_file_delete_content.h"
#include "vrxfile/vrex_file_recover.h"
#include "vrxfile/vrex_file_reindex.h"
#include "vrxfile/vrx_file_io.h"

namespace vrex {
namespace mediaformats {

using abstraction::file_id_t;
using internal::VREXFileAppender;
using internal::VREXFileAppenderCache;

namespace {

bool IsManagedSize(long size) {
  return size >= VREXFileUtils::kMinFileSize && size % VREXFileUtils::kFileSizeUnit == 0;
}

// The file closed to appends of this process for the life of the object.
class Reservation {
 public:
  Reservation() = default;
  Reservation(const Reservation&) = delete;
  Reservation& operator=(const Reservation&) = delete;
  ~Reservation() {
    if (_held) VREXFileAppenderCache::Evict(_id);
  }

  int Take(const std::string& path, const char* function) {
    int err = _id.Init(path);
    if (err < 0) {
      LOGE << "<-# VREXFileUtils::" << function << " " << path << " file.Init() error: " << err;
      return err;
    }
    err = VREXFileAppenderCache::EvictAndLock(_id);
    if (err < 0) {
      LOGE << "<-# VREXFileUtils::" << function << " " << path
           << " VREXFileAppenderCache::EvictAndLock() error: " << err;
      return err;
    }
    _held = true;
    return 0;
  }

 private:
  file_id_t _id;
  bool _held = false;
};

// Runs `append` on the appender of `dst`; a failed one leaves the cache.
long AppendTo(const std::string& dst, const char* function,
              const std::function<long(VREXFileAppender&)>& append) {
  file_id_t id;
  int err = id.Init(dst);
  if (err < 0) {
    LOGE << "<-# VREXFileUtils::" << function << " " << dst << " dstFile.Init() error: " << err;
    return err;
  }
  std::shared_ptr<VREXFileAppender> appender = VREXFileAppender::Create(id, err);
  if (!appender) {
    LOGE << "<-# VREXFileUtils::" << function << " " << dst << " VREXFileAppender::Create() error: "
         << err;
    return err;
  }
  const long result = append(*appender);
  if (result < 0) VREXFileAppenderCache::Evict(appender);
  return result;
}

}  // namespace

int VREXFileUtils::VRXFileCreate(const std::string& path, long size, int mode) {
  if (!IsManagedSize(size)) {
    LOGE << "<-# VRXFileCreate: Incorrect file size: " << size << " for file: " << path
         << " min size: " << kMinFileSize << " block size: " << kFileSizeUnit;
    return VREX_ERROR(ERR_MEDIAFORMATS_INVALID_FILE_SIZE);
  }
  file_id_t id;
  int err = id.Init(path);
  const bool existing = err != file_id_t::kFILE_NOT_FOUND;
  if (existing && err < 0) {
    LOGE << "<-# VREXFileUtils::VRXFileCreate " << path << " file.Init() error: " << err;
    return err;
  }
  // An appender of the old contents must not survive them.
  if (existing && (err = VREXFileAppenderCache::Evict(id)) < 0) {
    LOGE << "<-# VREXFileUtils::VRXFileCreate " << path << " VREXFileAppenderCache::Evict() error: " << err;
    return err;
  }
  const long fd = abstraction::FastAllocateFile(path.c_str(), size, mode);
  if (fd < 0) {
    LOGE << "<-# VREXFileUtils::VRXFileCreate " << path << " FastAllocateFile() error: " << fd;
    return static_cast<int>(fd);
  }
  err = internal::FileIdOf(static_cast<int>(fd), path, id);
  if (err >= 0) err = VREXFileAppender::AddSkipPackets(static_cast<int>(fd), 0, size, false);
  close(static_cast<int>(fd));
  if (existing) VREXFileAppenderCache::Evict(id);
  if (err < 0) LOGE << "<-# VREXFileUtils::VRXFileCreate " << path << " error: " << err;
  return err;
}

int VREXFileUtils::VRXFileClear(const std::string& path, bool zero) {
  Reservation reservation;
  VREX_CHECK(reservation.Take(path, "VRXFileClear"));
  const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    const int code = errno;
    LOGE << "<-# VREXFileUtils::VRXFileClear " << path << " open() errno=" << code;
    return VREX_ERROR(::vrex::errors::SystemError(code));
  }
  const long size = internal::FileSize(fd);
  int err = size < 0 ? static_cast<int>(size) : 0;
  if (err >= 0 && !IsManagedSize(size)) {
    LOGE << "<-# VREXFileUtils::VRXFileClear " << path << " incorrect file size: " << size;
    err = VREX_ERROR(ERR_MEDIAFORMATS_INVALID_FILE_SIZE);
  }
  if (err >= 0) err = VREXFileAppender::AddSkipPackets(fd, 0, size, zero);
  close(fd);
  return err;
}

int VREXFileUtils::VRXFileClose(const std::string& path) {
  file_id_t id;
  int err = id.Init(path);
  if (err >= 0) err = VREXFileAppenderCache::Evict(id);
  if (err < 0) LOGE << "<-# VREXFileUtils::VRXFileClose " << path << " error: " << err;
  return err;
}

long VREXFileUtils::VRXFileAppend(const std::string& src, const std::string& dst,
                                  const unsigned char* fixedMetadata, const void* dynamicMetadata,
                                  unsigned long dynamicLength, bool createNewPartition) {
  internal::ExecutedAppends& executed = internal::ExecutedAppends::Instance();
  VREX_CHECK(executed.Begin(src));
  const long added = AppendTo(dst, "VRXFileAppend", [&](VREXFileAppender& appender) {
    return appender.Append(src, fixedMetadata, dynamicMetadata, dynamicLength, createNewPartition);
  });
  if (added < 0) executed.Forget(src);
  return added;
}

long VREXFileUtils::VRXFileCopy(const std::vector<std::string>& srcs, long startMillis,
                                long endMillis, const std::string& dst) {
  return AppendTo(dst, "VRXFileCopy", [&](VREXFileAppender& appender) {
    return appender.Append(srcs, startMillis, endMillis);
  });
}

int VREXFileUtils::VRXFileDeleteContent(const std::string& path, long startMillis, long endMillis,
                                        bool zero) {
  Reservation reservation;
  VREX_CHECK(reservation.Take(path, "VRXFileDeleteContent"));
  return internal::VREXFileDeleteContent(path, startMillis, endMillis, zero).Work();
}

int VREXFileUtils::VRXFileRecover(const std::string& path, last_partition_info_t* info,
                                  bool salvage) {
  Reservation reservation;
  VREX_CHECK(reservation.Take(path, "VRXFileRecover"));
  // The tables first: a cut torn between a footer's entries and its sizes leaves a table that
  // reads but does not match the frames.
  internal::VREXFileReindex(path).Reindex(false);
  return internal::VREXFileRecover(path, info, salvage).Recover();
}

int VREXFileUtils::VRXFileCheckPartitions(const std::string& path) {
  Reservation reservation;
  VREX_CHECK(reservation.Take(path, "VRXFileCheckPartitions"));
  last_partition_info_t scratch;
  return internal::VREXFileRecover(path, &scratch).Check();
}

int VREXFileUtils::VRXFileReindex(const std::string& path, bool dryRun) {
  return internal::VREXFileReindex(path).Reindex(dryRun);
}

}  // namespace mediaformats
}  // namespace vrex
