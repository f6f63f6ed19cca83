// Fuzzes ReaderVREX: the input is a .vrx file held in memory. It is read whole through a
// memory-backed descriptor (every reader operation), and pushed in two chunks through
// FeedData. The reader must end every walk, and never read out of bounds.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "media/frame.h"
#include "mediaformats/vrx/reader_vrex.h"

namespace {

using vrex::mediaformats::ReaderVREX;

// Collects nothing; a push reader needs an observer.
class NullObserver : public ReaderVREX::Observer {};

void Walk(ReaderVREX& reader, size_t size) {
  const size_t bound = size / 12 + 2;  // a packet is at least 12 bytes
  int err = 0;
  size_t partitions = 0;
  while (reader.ReadPartition(vrex::mediaformats::PARTITION_LAST_TIMESTAMP_ALL_BUT_AUDIO, err)) {
    if (++partitions > bound) __builtin_trap();
  }
  reader.SeekToRawOffset(0);
  std::vector<unsigned char> payload;
  size_t frames = 0;
  while (vrex::media::frame_t* frame = reader.ReadFrame(err)) {
    if (++frames > bound) __builtin_trap();
    payload.resize(static_cast<size_t>(frame->size));
    vrex::media::CopyFramePayload(*frame, payload.data());
  }
  for (long target : {0L, 1000000L, 1763800000000L}) {
    for (auto mode : {vrex::mediaformats::SNAP_TO_IDR_BEFORE, vrex::mediaformats::SNAP_TO_IDR_AFTER,
                      vrex::mediaformats::SNAP_TO_IDR_CLOSEST}) {
      if (reader.SeekToWallClock(target, mode).second == 0) reader.ReadFrame(err);
    }
  }
  std::vector<vrex::mediaformats::fragment_t> fragments;
  reader.ListFragments(0, 0, fragments);
  long start = -1, stop = -1;
  reader.GetStartStopTimestamp(start, stop);
  reader.SeekToWc(1000000L);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int fd = memfd_create("vrx", MFD_CLOEXEC);
  if (fd < 0) return 0;
  if (size > 0 && write(fd, data, size) != static_cast<ssize_t>(size)) {
    close(fd);
    return 0;
  }
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  int err = 0;
  std::unique_ptr<ReaderVREX> reader = ReaderVREX::Create(nullptr, path.c_str(), true, 0, -1, err);
  if (reader) Walk(*reader, size);
  close(fd);

  NullObserver observer;
  std::unique_ptr<ReaderVREX> push = ReaderVREX::Create(&observer, err);
  const size_t split = size > 0 ? data[0] % (size + 1) : 0;
  if (push->FeedData(data, split) >= 0) push->FeedData(data + split, size - split);
  return 0;
}
