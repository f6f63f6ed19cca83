// ReaderVREX over a 1 GiB recording made at start in VIDORA_BENCH_DIR or /tmp (removed at
// exit): about 30 frames per second of H.264-like sizes, a key frame with its sync node every 2
// seconds, a partition per minute, laid out as a managed file. Baseline: the same file read with
// plain read() in 1 MiB steps, page cache warm. The frame walk that fetches every payload is
// what a served range costs; the same walk dropping the read-ahead every 1000 frames shows what
// a caller that gives way to writers (unlocks, relocks, drops) pays for it.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "abstraction/byte_order.h"
#include "bench_ratio.h"
#include "media/frame.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "vrx_bench_files.h"

namespace {

using vrex::mediaformats::ReaderVREX;
using vrex::mediaformats::WriterVREX;

constexpr long kTargetSize = 1L << 30;
constexpr long kFramesPerPartition = 30 * 60;
constexpr long kFramesPerKey = 30 * 2;
constexpr long kStartMillis = 1763800000000L;

// Keeps one partition's bytes until it is placed in the file.
class PartitionBuffer : public WriterVREX::Observer {
 public:
  bool WriteVREXData(const WriterVREX::message_t& message) override {
    for (int i = 0; i < message.count; ++i) {
      const unsigned char* piece = static_cast<const unsigned char*>(message.pieces[i].iov_base);
      bytes.insert(bytes.end(), piece, piece + message.pieces[i].iov_len);
    }
    return true;
  }
  std::vector<unsigned char> bytes;
};

struct recording_t {
  std::string path;
  long size = 0;
  long frames = 0;
  long partitions = 0;
  long lastMillis = 0;
};

// As the appender leaves a partition at `at`: contents length in the header, file offsets in
// the seek table.
void PlaceInFile(std::vector<unsigned char>& partition, long at) {
  using namespace vrex::abstraction;
  vrex::mediaformats::vrx_packet_t header;
  header.Parse(partition.data(), 32, 0, static_cast<long>(partition.size()));
  const long size = static_cast<long>(partition.size());
  const long footer = size - LoadBE32(&partition[size - 4]) - 4;
  const long table = LoadBE32(&partition[size - 8]);
  StoreBE64(&partition[header.headerSize], footer - header.packetSize);
  for (long entry = size - 8 - table; entry < size - 8; entry += 16) {
    StoreBE64(&partition[entry], LoadBE64(&partition[entry]) + at);
  }
}

recording_t Generate() {
  recording_t out;
  out.path = vidora_bench::ScratchPath("reader.vrx");
  const int fd = open(out.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) abort();
  std::mt19937 random(42);
  std::vector<unsigned char> payload(256 * 1024);
  for (unsigned char& byte : payload) byte = static_cast<unsigned char>(random());
  std::uniform_real_distribution<double> spread(0.6, 1.4);
  long frame = 0;
  while (out.size < kTargetSize) {
    PartitionBuffer buffer;
    int err = 0;
    auto writer = WriterVREX::Create(0xFFFFFFFF, &buffer, err);
    WriterVREX::partition_info_t info;
    writer->OpenPartition(&info);
    vrex::media::clock_sync_t sync;
    for (long i = 0; i < kFramesPerPartition; ++i, ++frame) {
      const long dts = frame * 3000;
      const long millis = kStartMillis + frame * 1000 / 30;
      const bool key = frame % kFramesPerKey == 0;
      if (key) {
        sync.sc = vrex::media::timestamp_t(dts, 90000);
        sync.wc = vrex::media::timestamp_t(millis, 1000);
        writer->WriteClockSync(sync);
      }
      // About 4 Mbit/s: key frames near 120 KB, others near 14 KB.
      const size_t size = static_cast<size_t>((key ? 120000 : 14000) * spread(random));
      writer->WriteVideoData(payload.data(), size, vrex::media::dts_cts_t(dts, 90000), key);
      out.lastMillis = millis;
    }
    writer->ClosePartition();
    PlaceInFile(buffer.bytes, out.size);
    if (write(fd, buffer.bytes.data(), buffer.bytes.size()) != static_cast<ssize_t>(buffer.bytes.size())) abort();
    out.size += static_cast<long>(buffer.bytes.size());
    ++out.partitions;
  }
  out.frames = frame;
  close(fd);
  return out;
}

const recording_t& Recording() {
  static const recording_t recording = Generate();
  return recording;
}

std::unique_ptr<ReaderVREX> OpenReader() {
  int err = 0;
  auto reader = ReaderVREX::Create(nullptr, Recording().path.c_str(), true, 0, -1, err);
  if (!reader) abort();
  return reader;
}

void BM_PlainRead(benchmark::State& state) {
  const recording_t& recording = Recording();
  std::vector<unsigned char> buffer(1 << 20);
  for (auto _ : state) {
    const int fd = open(recording.path.c_str(), O_RDONLY);
    long total = 0;
    ssize_t got;
    while ((got = read(fd, buffer.data(), buffer.size())) > 0) total += got;
    close(fd);
    if (total != recording.size) state.SkipWithError("short read");
  }
  state.SetBytesProcessed(state.iterations() * recording.size);
  state.counters["frames/s"] = benchmark::Counter(static_cast<double>(recording.frames),
                                                  benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_PlainRead)->Unit(benchmark::kMillisecond)->UseRealTime();

// `dropEvery`: frames between two DropReadAhead calls; 0 for none.
void WalkFrames(benchmark::State& state, bool fetchPayloads, long dropEvery = 0) {
  const recording_t& recording = Recording();
  std::vector<unsigned char> buffer(1 << 20);
  for (auto _ : state) {
    auto reader = OpenReader();
    int err = 0;
    long frames = 0;
    while (vrex::media::frame_t* frame = reader->ReadFrame(err)) {
      if (fetchPayloads && vrex::media::CopyFramePayload(*frame, buffer.data()) != frame->size) {
        state.SkipWithError("payload");
      }
      ++frames;
      if (dropEvery > 0 && frames % dropEvery == 0 && reader->DropReadAhead() != 0) {
        state.SkipWithError("drop");
      }
    }
    if (err != 0 || frames != recording.frames) state.SkipWithError("frame count");
  }
  state.SetBytesProcessed(state.iterations() * recording.size);
  state.counters["frames/s"] = benchmark::Counter(static_cast<double>(recording.frames),
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

void BM_ReadFrameWithPayloads(benchmark::State& state) { WalkFrames(state, true); }
BENCHMARK(BM_ReadFrameWithPayloads)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ReadFrameWithPayloadsDropEvery1000(benchmark::State& state) {
  WalkFrames(state, true, 1000);
}
BENCHMARK(BM_ReadFrameWithPayloadsDropEvery1000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ReadFrameHeadersOnly(benchmark::State& state) { WalkFrames(state, false); }
BENCHMARK(BM_ReadFrameHeadersOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ReadPartitions(benchmark::State& state) {
  const recording_t& recording = Recording();
  for (auto _ : state) {
    auto reader = OpenReader();
    int err = 0;
    long partitions = 0;
    while (reader->ReadPartition(vrex::mediaformats::PARTITION_LAST_TIMESTAMP_NONE, err)) ++partitions;
    if (err != 0 || partitions != recording.partitions) state.SkipWithError("partition count");
  }
  state.counters["partitions"] = static_cast<double>(recording.partitions);
}
BENCHMARK(BM_ReadPartitions)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SeekToWallClock1000(benchmark::State& state) {
  const recording_t& recording = Recording();
  std::mt19937 random(7);
  std::uniform_int_distribution<long> target(kStartMillis, recording.lastMillis);
  auto reader = OpenReader();
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i) {
      if (reader->SeekToWallClock(target(random), vrex::mediaformats::SNAP_TO_IDR_CLOSEST).second != 0) {
        state.SkipWithError("seek");
      }
    }
  }
  state.counters["seeks/s"] = benchmark::Counter(1000, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_SeekToWallClock1000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  const recording_t& recording = Recording();
  printf("recording: %ld bytes, %ld frames, %ld partitions\n", recording.size, recording.frames,
         recording.partitions);
  return vidora_bench::RunWithRatios(argc, argv, "BM_PlainRead/real_time");
}
