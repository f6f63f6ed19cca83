// VREXFileRecover: brings a managed .vrx file back, after a crash or a power loss, to a state
// that VREXFileAppender accepts. It walks the partitions from the start through their headers
// and footers, keeps everything up to the last sound frame of the last readable partition,
// writes that partition a fresh footer (seek table rebuilt from the frames) and gives all that
// follows back to free space.
//
// What it fixes: a last partition whose contents stop in a torn or corrupt packet; a footer
// wrong in position, length or table; a seek table out of step with the contents; a broken or
// missing tail chain; any damage after the last readable partition.
// What it does not: the walk stops at the first partition that cannot be read through its
// header and footer, and that partition is lost with every partition behind it, intact or
// not. Damage inside an earlier partition that the walk does not read goes unnoticed. A file
// whose first partition is unreadable is left as it stands.
//
// Salvage, asked for at construction, goes one step further where the walk stopped at a
// partition whose header is intact (the tail partition of a growth torn by a crash, most
// often): it keeps that partition's complete frames, read from its header on, and writes it
// a fresh footer, contents length and chain, instead of dropping it. It keeps only what it can
// vouch for: the walk stops at the next descriptor, at a packet whose trailer did not reach
// the disk, at a track whose sequence neither goes on nor starts over at 1 (after a hole left
// by a delete it may jump), and at a sync node that moves the wall clock back, since past a
// torn write the bytes are leftovers of older recordings. Partitions behind it are lost as
// without salvage; a first partition with nothing to keep is given back to free space.
//
// Threads: one object does one run on one thread, with the file reserved in
// VREXFileAppenderCache and held under the caller's exclusive locks.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "abstraction/filelock.h"
#include "mediaformats/vrx/partition.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "mediaformats/vrx/vrex_file_utils.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "vrx/vrx_track.h"

namespace vrex {
namespace mediaformats {
namespace internal {

class VREXFileRecover : public ReaderVREX::Observer, public WriterVREX::Observer {
 public:
  // `info` receives the last partition's description; it must outlive the object.
  VREXFileRecover(const std::string& path, last_partition_info_t* info, bool salvage = false);
  ~VREXFileRecover() override;

  // The full repair. Returns 0, or the first failure: ERR_MEDIAFORMATS_DELETE_OFFSET for a file
  // left without any partition (nothing was changed), ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE when
  // the rebuilt footer does not fit, errno codes. A failure in describing the last partition
  // comes after the repair, which stands.
  int Recover();
  // The walk alone, changing nothing: 0 for a file whose partitions all read, or the error the
  // walk stopped with.
  int Check();

  // Lays skip packets from `offset` to the end of the file.
  int Chop(long offset);

  bool WriteVREXData(const WriterVREX::message_t& message) override;
  int SignalPayloadScToWc(const media::clock_sync_t& sync) override;
  // While salvaging: stops the frame walk at a packet whose trailer did not reach the disk,
  // and at the next descriptor.
  int SignalPacket(unsigned short tid, VREXPayloadType type, abstraction::DataSource* ds,
                   long offset, long size, bool start, bool end) override;
  // While salvaging: stops it at a track whose sequence neither goes on nor starts over.
  int SignalPacketsLoss(unsigned short tid, VREXPayloadType type, long offset,
                        unsigned short last, unsigned short expected, unsigned short got) override;

 private:
  std::unique_ptr<ReaderVREX> OpenReader(ReaderVREX::Observer* observer, long offset,
                                         long length, int& err);
  int DetectIssuesOffset();
  int CorrectIssues();
  // The partition header at which the walk stopped, past the last good partition and the
  // skip packets after it; -1 when the walk did not stop at a readable header.
  long FindTornPartition();
  // Rebuilds the partition whose header is `_header` from its frames; `length` limits the
  // walk (< 1: to the end of the file).
  int CollectFrames(long length);
  int SavePartitionFooter();
  int GetLastPartInfo();

  last_partition_info_t* _info;
  std::unique_ptr<ReaderVREX> _reader;
  std::unique_ptr<WriterVREX> _writer;
  std::string _path;
  partition_header_record_t _header;  // of the partition being rebuilt
  long _contentsStart = -1;
  long _contentsLength = 0;  // bytes of good frames
  std::vector<unsigned char> _seekPoints;  // rebuilt, big-endian
  media::clock_sync_t _clockSync;  // the last one seen
  int _fd = -1;
  abstraction::file_id_t _id;
  media::dts_cts_t _lastTs;  // of the last good frame
  long _lastPartitionOffset = -1;
  long _lastPartitionEnd = 0;
  int _walkError = 0;
  const bool _salvage;
  bool _salvaging = false;
  bool _inHole = false;     // while salvaging: the packet being read is a skip packet
  bool _afterHole = false;  // the one before it was
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
