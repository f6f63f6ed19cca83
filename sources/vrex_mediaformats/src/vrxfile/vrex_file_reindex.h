// VREXFileReindex: rebuilds the seek tables of a .vrx file from its frames, each table in place
// and at its own size. An entry is made for each video key frame met right after a sync node
// of its own (the entry aims at that sync node), as the writer makes them; JPEG images make
// none. A table with more entries than found repeats the last one found; a partition where
// none is found is left as it stands.
//
// Threads: one object does one Reindex() on one thread; run it where the file is reserved and
// locked exclusively, as recover does.
#pragma once

#include <string>
#include <vector>

#include "media/clock_sync.h"
#include "mediaformats/vrx/partition.h"
#include "mediaformats/vrx/reader_vrex.h"

namespace vrex {
namespace mediaformats {
namespace internal {

class VREXFileReindex : public ReaderVREX::Observer {
 public:
  explicit VREXFileReindex(const std::string& path);

  // Walks every partition. With `dryRun` nothing is written and the log says what would be.
  // Returns 0 or the reader's failure to open the file; the failure of one partition is logged
  // and the walk goes on.
  int Reindex(bool dryRun);

  int SignalPayloadScToWc(const media::clock_sync_t& sync) override;

 private:
  int ReindexPartition(const partition_t& partition, bool dryRun);
  int UpdatePartitionSeekPoints(const partition_t& partition, const std::vector<seek_point_t>& found,
                                bool dryRun);

  const std::string _path;
  media::clock_sync_t _lastClockSync;
  const bool _trace;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
