// Helpers of the appender and recover tests: preallocated managed files, source files written
// by WriterVREX from the ffmpeg-made fixtures, and a comparison of what a managed file should
// hold after a run of appends with what the reader and the skip chain say it holds.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "abstraction/filelock.h"
#include "mp4_test_util.h"
#include "vrx_recording.h"
#include "vrx_test_util.h"

namespace vrex {
namespace mediaformats {
namespace vrx_testing {

using testing::ReadFileBytes;

// Makes `path` a managed file as one is created: `size` bytes of skip packets, reserved with
// fallocate.
void CreateManagedFile(const std::string& path, long size);

// The identity of the file at `path`, as the appender cache knows it.
inline abstraction::file_id_t IdOf(const std::string& path) {
  abstraction::file_id_t id;
  EXPECT_EQ(id.Init(path), 0);
  return id;
}

class ManagedFile : public TempFile {
 public:
  explicit ManagedFile(long size) { CreateManagedFile(path(), size); }
};

// A managed file appended to through the process's appender cache, as the service does it;
// its cache entry goes with the object (the cache outlives each test's files).
class Destination : public ManagedFile {
 public:
  explicit Destination(long size) : ManagedFile(size), _id(IdOf(path())) {}
  ~Destination();
  // The result of VREXFileAppender::Append; a failure evicts the appender.
  long Append(const std::string& src, bool createNew, const Bytes& fixed = Bytes(12, 0),
              const Bytes& dynamic = Bytes());
  const abstraction::file_id_t& id() const { return _id; }

 private:
  abstraction::file_id_t _id;
};

// A temporary file as a recorder leaves it for appending: one recording by WriterVREX.
struct source_t {
  recording_t recording;
  TempFile file;
  bool bare = false;            // packets without a partition: one seek point, at the start
  long contentsOffset = 0;      // of its partition's contents (0 for bare packets)
  long contentsSize = 0;
  media::dts_cts_t appendTs;    // of its first frame on the wall clock: the append's timestamp
  std::vector<long> frameEnds;  // where each frame's packet ends, from the contents start
};
std::unique_ptr<source_t> WriteSource(const shape_t& shape);

// A shape numbered `n`: the fixture's frames [first, first + count) on a wall clock that
// starts `n` * 4 s after the base, so that sources follow each other in time.
shape_t NumberedShape(int n, int first = 0, int count = 30);

// One append as a managed file should hold it: all of a source's frames, or the first
// `frames` of them (as salvage keeps a torn append).
struct appended_t {
  appended_t(const source_t* s, size_t f = SIZE_MAX) : source(s), frames(f) {}
  // The bytes of the source's contents that stay: up to the end of its last frame kept.
  long ContentsSize() const;
  const source_t* source;
  size_t frames;
};

// One partition of a managed file: the appends made into it, in order.
struct expected_partition_t {
  Bytes fixed = Bytes(12, 0);
  Bytes dynamic;
  std::vector<appended_t> sources;
};

// Empty when `path` holds exactly `want`: partitions back to back from offset 0, with their
// metadata, contents (byte for byte the sources' contents), seek tables (one entry per key
// frame, aimed at its sync node or at itself) and frames as the reader returns them; then a
// skip chain from the end of the last partition to the last byte. Else the first difference.
// `exactFooters` also checks each footer's size against the timestamp of the partition's last
// append (recover writes footers of its own).
std::string Mismatch(const std::string& path, const std::vector<expected_partition_t>& want,
                     bool exactFooters = true);

// Runs tools/vrx_append with `args` (its output dropped), killing it with SIGKILL after
// `killAfterMicros` unless that is negative. Returns the wait status.
int RunTool(const std::vector<std::string>& args, long killAfterMicros = -1);

// The free space the appender finds: the end of the last partition, checked to be one skip
// chain to the last byte. -1 with `error` set when it is not.
long WalkSkipChain(const std::string& path, long from, std::string& error);

}  // namespace vrx_testing
}  // namespace mediaformats
}  // namespace vrex
