// VREXFileAppender: copies finished .vrx files into a preallocated managed file, as a new
// partition or as growth of the tail partition, and keeps the skip chain at the end of the
// file whole. The file's layout is:
//
//   [partition | skip packets]* ... tail partition | skip chain to the last byte (free space)
//
// Free space is the run of skip packets at the end, found backward through their trailers;
// the tail partition is the one whose footer ends where that run begins.
//
// Ownership: Create returns a shared pointer that VREXFileAppenderCache shares; the appender
// owns its descriptors, reader and writer. A cached appender is checked against the end of the
// file before it is handed out, and read again when another process has changed it.
// Threads: no lock of its own. The caller holds the exclusive file locks of the destination;
// the cache refuses a second user of one appender.
// Errors: ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE and ERR_MEDIAFORMATS_NO_SYNC_NODE are expected in
// service and leave the destination untouched; ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT for a
// destination whose tail cannot be worked out (not managed, or left broken by a crash: recover
// first); errno codes. After any failure the caller evicts the appender from the cache.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "abstraction/filelock.h"
#include "mediaformats/vrx/partition.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "mediaformats/vrx/writer_vrex.h"

namespace vrex {
namespace mediaformats {
namespace internal {

// What is to be copied from one source file.
struct file_partitions_t {
  std::string path;
  std::vector<partition_t> partitions;
  // The path, then each partition's ToString.
  std::string ToString(bool humanTimes) const;
};

class VREXFileAppender : public ReaderVREX::Observer, public WriterVREX::Observer {
 public:
  // The tail partition of the destination; _offset -1 when the file has no partitions.
  struct tail_partition_t {
    long _offset = -1;
    long _dynamicMetadataSize = 0;
    long _contentsOffset = -1;
    long _footerOffset = -1;
    long _totalSize = 0;  // header through footer
    std::vector<unsigned char> _seekTable;  // as it stands in the footer, big-endian
  };
  // The skip chain at the end of the file.
  struct free_space_t {
    long _offset = 0;
    long _size = 0;
  };

  // The cached appender of `id`, or a new one that has read the destination's tail and is put
  // in the cache. Null with `err` set when the cache refuses (ERR_MEDIAFORMATS_SIMULTANEOUS_APPEND,
  // ERR_MEDIAFORMATS_APPENDER_PATH_MISMATCH, ERR_MEDIAFORMATS_FILE_LOCKED_BY_MAINTENANCE) or
  // the destination cannot be opened or worked out.
  static std::shared_ptr<VREXFileAppender> Create(const abstraction::file_id_t& id, int& err);

  ~VREXFileAppender() override;

  // Copies all of `src`'s partitions (or, for a stream of packets without partitions, all of
  // it) into a new partition with this metadata, or onto the tail partition. A new partition
  // is made when asked or when the file has none. Returns the bytes by which the used part of
  // the file grew. Nothing is written unless the source has a sync node, all its partitions
  // read well and they fit.
  long Append(const std::string& src, const unsigned char* fixedMetadata,
              const void* dynamicMetadata, unsigned long dynamicLength, bool createNewPartition);
  // Copies what `srcs` hold between the two wall clocks (cut on seek points, so up to one GOP
  // more) into one new partition with zero metadata. Returns the space the selection needs
  // (0 when nothing matches).
  long Append(const std::vector<std::string>& srcs, long startMillis, long endMillis);
  // Releases the source reader and descriptor.
  void Close();

  // Lays skip packets over `length` bytes at `offset` (negative: the current position; a
  // negative length: up to the end of the file), both multiples of 4. Only each packet's
  // header and trailer are written; with `zero` the file system is then asked to zero its
  // payload.
  static int AddSkipPackets(int fd, long offset, long length, bool zero);
  static long GetSkipPacketPayloadLength(long total) {
    return mediaformats::GetSkipPacketPayloadLength(total);
  }

  const abstraction::file_id_t& FileId() const { return _id; }
  std::chrono::steady_clock::time_point LastUse() const { return _lastUse; }
  const tail_partition_t& TailPartition() const { return _dstPartitionInfo; }
  const free_space_t& FreeSpace() const { return _freeSpaceBounds; }

  // Notes where the source's sync node stands.
  int SignalPayloadScToWc(const media::clock_sync_t& sync) override;
  // Writes one packet at the destination's current position.
  bool WriteVREXData(const WriterVREX::message_t& message) override;

 private:
  explicit VREXFileAppender(const abstraction::file_id_t& id);

  int Initialize();
  // Whether the end of the file is still as this appender left it: the same free space behind
  // the same footer. Another process may have appended or cut since (the cache knows only this
  // process's changes); a footer that a cut compacted gives its bytes to the free space.
  bool TailIsCurrent();
  int GetFreeSpaceBounds();
  int GetTailPartitionBounds();
  // Opens `path` read-only as the source; refuses the destination itself.
  int OpenSource(const std::string& path);
  // Reads the source up to its first frame placed on the wall clock.
  int FindFirstSyncedFrame(const std::string& src, media::dts_cts_t& ts, long& wallClock);
  // The source's partitions, or one covering all of a source without partitions.
  int ListSourcePartitions(long firstWallClock, std::vector<partition_t>& out);
  int CreatePartition(const media::dts_cts_t& ts, const partition_t& partition,
                      const unsigned char* fixedMetadata, const void* dynamicMetadata,
                      unsigned long dynamicLength);
  int UpdatePartition(const media::dts_cts_t& ts, const partition_t& partition);
  // Points the skip chain at the free space as it now stands.
  int LayFreeSpace();
  int ScanFiles(const std::vector<std::string>& srcs, long startMillis, long endMillis,
                std::vector<file_partitions_t>& out);
  int ScanFile(ReaderVREX& reader, long startMillis, long endMillis, file_partitions_t& out);
  int AppendInternal(const file_partitions_t& file, bool isFirstFile);
  void LogTimes(const char* what, const long (&micros)[5]) const;

  abstraction::file_id_t _id;  // as the caller named it: the cache's key
  std::chrono::steady_clock::time_point _lastUse;
  std::unique_ptr<ReaderVREX> _reader;  // on the current source
  std::unique_ptr<WriterVREX> _writer;
  int _fd = -1;                     // the destination, read and write
  abstraction::file_id_t _dstId;    // as opened
  int _srcFd = -1;
  abstraction::file_id_t _srcId;
  tail_partition_t _dstPartitionInfo;
  free_space_t _freeSpaceBounds;
  long _srcSyncNodeOffset = -1;
  bool _trace = false;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
