// Helpers of the delete tests: a managed file of several partitions appended from the
// ffmpeg-made fixtures, and what a cut must leave of it, worked out frame by frame from the
// cutting rules (a head goes up to a GOP's sync node, a tail from a video frame on), apart
// from the byte ranges the code computes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vrx_append_util.h"

namespace vrex {
namespace mediaformats {
namespace vrx_testing {

// What one step of a cut takes from partition `partition` of the file as it was made.
struct cut_t {
  enum kind_t { kWhole, kHead, kTail, kMiddle } kind;
  size_t partition;
  long startMillis = -1;  // kTail, kMiddle: from the first video frame at or after it
  long endMillis = -1;    // kHead, kMiddle: up to the first GOP whose key frame is at or after it
};

// A partition as the file holds it: its bounds and seek entries.
struct partition_record_t {
  long offset, size;
  long contentsOffset, contentsSize;
  std::vector<seek_point_t> seekPoints;
};

// The frames (with payload offsets) and partitions of a file, read with ReaderVREX.
struct file_state_t {
  std::vector<frame_record_t> frames;
  std::vector<partition_record_t> partitions;
  int framesErr = 0, partitionsErr = 0;
};
file_state_t ReadState(const std::string& path);

// A managed file of `size` bytes holding, in partitions of one to two sources each, recordings
// of one second (two GOPs of 15 frames with their AAC) whose wall clocks start `n` * 4 s after
// `Base()` for the numbers of `layout`, e.g. {{0, 1}, {2}, {4, 5}, {7}}.
class CutFile {
 public:
  CutFile(const std::vector<std::vector<int>>& layout, long size = 1 << 20);
  ~CutFile();
  static long Base();

  const std::string& path() const { return _file->path(); }
  const file_state_t& before() const { return _before; }

  // The state that the steps must leave: the frames outside them, and the partitions that
  // keep a frame, each with the seek entries whose key frame stays (its footer 16 bytes
  // shorter for each entry gone).
  file_state_t After(const std::vector<cut_t>& steps) const;
  // Empty when `path` now holds `want`, frame for frame and entry for entry, with a size that
  // did not change and a skip chain from the last partition to the end; else the difference.
  // After a recover (`recovered`), a table may also end in repeats of its last entry where
  // entries were (reindex rebuilds a table at its size), and the last partition may end at
  // its last frame (recover gives what follows it to the free space).
  std::string Mismatch(const file_state_t& want, bool recovered = false) const;
  // Writes the file back as it was made.
  void Restore() const;

 private:
  std::vector<bool> Deleted(const cut_t& step) const;

  std::vector<std::unique_ptr<source_t>> _sources;
  std::unique_ptr<Destination> _file;
  const long _size;
  file_state_t _before;
  Bytes _bytes;  // as made
};

}  // namespace vrx_testing
}  // namespace mediaformats
}  // namespace vrex
