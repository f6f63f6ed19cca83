// VREXFileUtils: the operations that change managed .vrx files in place, in one place. Each
// one settles the file's identity, closes it to appends in this process for its duration
// (VREXFileAppenderCache reservation), does its work and opens it again, so that no cached
// appender outlives a change made by another route.
//
// A managed file is preallocated at its final size and holds partitions among skip packets,
// then a chain of skip packets (free space) to its last byte:
//
//   [partition | skip packets]* ... tail partition | skip chain to the last byte
//
// Nothing moves in a managed file: content is added at the free space and deleted by laying
// skip packets over it, and seek tables are compacted inside their footers.
//
// Threads: any thread; the functions are static and keep no state of their own but the record
// of executed appends. File locks are the caller's business: take the exclusive locks of the
// file (file_lock_t, then ms::IPCFileLock) around every call but VRXFileCreate and
// VRXFileReindex, and shared ones of the sources of an append or a copy.
// Errors: 0 (or a byte count) on success, else a negative code, logged with the function's
// name and the path: vrex::mediaformats's codes (ERR_MEDIAFORMATS_INVALID_FILE_SIZE,
// ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE when a file is full, ERR_MEDIAFORMATS_DOUBLE_APPEND,
// ERR_MEDIAFORMATS_NO_SYNC_NODE, ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT for a file that is not
// managed or is damaged, ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE while an append of this
// process runs, ...), file_id_t::kFILE_NOT_FOUND, errno codes.
#pragma once

#include <string>
#include <vector>

#include "mediaformats/vrx/partition.h"
#include "mediaformats/vrx/vrx_format.h"

namespace vrex {
namespace mediaformats {

// What recover tells of the last partition it kept.
struct last_partition_info_t {
  partition_bounds_t bounds;
  unsigned char fixedMetadata[kFixedMetadataSize] = {0};
  long startMillis = -1;  // its first seek point
  long endMillis = -1;    // its last frame
};

class VREXFileUtils {
 public:
  // The smallest managed file, and the unit of its size.
  static constexpr long kMinFileSize = 0x100000;
  static constexpr long kFileSizeUnit = 0x1000;
  // How long a source stays recorded as appended, unless it is removed before.
  static constexpr long kExecutedAppendSeconds = 3600;

  // Creates (or truncates and refills, same inode) a managed file of `size` bytes with `mode`:
  // one chain of skip packets, reserved with fallocate where the file system has it. `size`
  // must be at least kMinFileSize and a multiple of kFileSizeUnit, else
  // ERR_MEDIAFORMATS_INVALID_FILE_SIZE. An appender cached for an existing file is dropped.
  static int VRXFileCreate(const std::string& path, long size, int mode);
  // Turns all of a managed file back into free space; with `zero` the file system is asked to
  // zero its bytes as well (a wish: where it cannot, they stay).
  static int VRXFileClear(const std::string& path, bool zero);
  // Drops this process's appender of the file, closing its descriptor. A file without one is
  // fine.
  static int VRXFileClose(const std::string& path);
  // Appends all of the finished file `src` to `dst`: onto the tail partition, or as a new
  // partition with these metadata (always, when `dst` has none). Returns the bytes by which the
  // used part of `dst` grew. A source is appended once: the same path again, to any file,
  // within kExecutedAppendSeconds and while it exists, gives ERR_MEDIAFORMATS_DOUBLE_APPEND; a
  // failed append does not count.
  static long VRXFileAppend(const std::string& src, const std::string& dst,
                            const unsigned char* fixedMetadata, const void* dynamicMetadata,
                            unsigned long dynamicLength, bool createNewPartition);
  // Copies what `srcs` hold between the two wall clocks (ms; cut on seek points, so up to one
  // GOP more at the start) into one new partition of `dst`. Returns the space the selection
  // takes, 0 when nothing matches.
  static long VRXFileCopy(const std::vector<std::string>& srcs, long startMillis, long endMillis,
                          const std::string& dst);
  // Deletes [startMillis, endMillis] from a managed file in place: whole partitions become skip
  // packets; the head of a partition is cut on a seek point (a GOP stays when its key frame is
  // at or after endMillis), its tail on a frame (the first video frame at or after
  // startMillis goes, with all after it). The file's size does not change.
  static int VRXFileDeleteContent(const std::string& path, long startMillis, long endMillis,
                                  bool zero);
  // Brings a file back after a crash: seek tables rebuilt from the frames, then everything up
  // to the last sound frame of the last readable partition kept, and the rest given back to
  // free space. `info` receives the last partition kept. With `salvage`, also the frames of a
  // torn tail partition whose header is intact (beyond what recover promises; see
  // VREXFileRecover).
  static int VRXFileRecover(const std::string& path, last_partition_info_t* info,
                            bool salvage = false);
  // Recover's walk alone, changing nothing: 0 for a file whose partitions all read, else the
  // error the walk stopped with.
  static int VRXFileCheckPartitions(const std::string& path);
  // Rebuilds the seek tables from the frames, each in place and at its size; with `dryRun`,
  // only logs what would change. Takes no reservation: run it within one.
  static int VRXFileReindex(const std::string& path, bool dryRun);
};

}  // namespace mediaformats
}  // namespace vrex
