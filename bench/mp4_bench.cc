// The MP4 family's cost: WriterMP4 and WriterFMP4 (plain and progressive) turning three
// minutes of 1080p-sized H.264 frames held in memory into a file for a sink that only counts
// bytes, against memcpy of the same payload bytes in the same run; and ReaderMp4 opening a
// one-hour MP4 that ffmpeg makes at the first run in /tmp (time to build the frame list, and
// the heap it holds per sample).
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_ratio.h"
#include "media/codec_tags.h"
#include "mediaformats/mp4/reader_mp4.h"
#include "mediaformats/mp4/writer_fmp4.h"
#include "mediaformats/mp4/writer_mp4.h"

namespace {

using vrex::media::dts_cts_t;
using vrex::mediaformats::MP4TrackInfo;

constexpr uint32_t kRate = 90000;
constexpr uint32_t kFrameTicks = 3600;  // 25 fps
constexpr int kFrames = 3 * 60 * 25;
constexpr int kGop = 50;
constexpr size_t kKeySize = 160 * 1024;  // about 6 Mbit/s at 1080p
constexpr size_t kOtherSize = 24 * 1024;

struct frame_t {
  std::vector<uint8_t> bytes;  // one length-prefixed slice NAL unit
  bool key;
  int64_t dts;
};

const std::vector<frame_t>& Frames() {
  static const std::vector<frame_t> frames = [] {
    std::vector<frame_t> all;
    uint32_t seed = 1;
    for (int i = 0; i < kFrames; ++i) {
      bool key = i % kGop == 0;
      size_t size = key ? kKeySize : kOtherSize;
      std::vector<uint8_t> bytes(size);
      uint32_t length = static_cast<uint32_t>(size - 4);
      bytes[0] = length >> 24, bytes[1] = length >> 16, bytes[2] = length >> 8, bytes[3] = length;
      bytes[4] = key ? 0x65 : 0x41;
      for (size_t b = 5; b < size; ++b) bytes[b] = static_cast<uint8_t>((seed = seed * 1103515245 + 12345) >> 24);
      all.push_back({std::move(bytes), key, int64_t(i) * kFrameTicks});
    }
    return all;
  }();
  return frames;
}

const uint8_t kAvcC[] = {1, 0x64, 0, 0x28, 0xFF, 0xE1, 0, 4, 0x67, 0x64, 0, 0x28, 1, 0, 2, 0x68, 0xEE};

MP4TrackInfo Video() {
  MP4TrackInfo v;
  v._pCodecBytes = kAvcC;
  v._codecBytesSize = sizeof(kAvcC);
  v._defaultSampleDuration = kFrameTicks;
  v._timescale = kRate;
  v._width = 1920;
  v._height = 1080;
  v._codecType = vrex::media::TAG_VH264;
  v._rfc6381Codec = "avc1.640028";
  return v;
}

struct CountingMp4Sink : vrex::mediaformats::WriterMP4::Observer {
  bool WriteMP4Data(const unsigned char*, size_t size) override { return (bytes += size), true; }
  bool SeekIntoMP4Data(long, long) override { return true; }
  void WriteMP4Complete() override {}
  uint64_t bytes = 0;
};

struct CountingFmp4Sink : vrex::mediaformats::WriterFMP4::Observer {
  bool SignalBeginWriteMOOV() override { return true; }
  bool SignalEndWriteMOOV(unsigned int, bool) override { return true; }
  bool SignalBeginWriteFragment(long) override { return true; }
  bool SignalEndWriteFragment(long) override { return true; }
  bool SignalWriteProgressiveBuffer(vrex::mediaformats::FMP4ProgressiveBufferType, const void*, size_t size) override {
    return (bytes += size), true;
  }
  bool SignalWriteBuffer(vrex::mediaformats::FMP4WriteState, const void*, size_t size) override {
    return (bytes += size), true;
  }
  uint64_t bytes = 0;
};

uint64_t PayloadBytes() {
  uint64_t total = 0;
  for (const frame_t& f : Frames()) total += f.bytes.size();
  return total;
}

void BM_MemcpyPayload(benchmark::State& state) {
  std::vector<uint8_t> sink(kKeySize);
  uint64_t bytes = 0;
  for (auto _ : state) {
    for (const frame_t& f : Frames()) {
      memcpy(sink.data(), f.bytes.data(), f.bytes.size());
      benchmark::ClobberMemory();
      bytes += f.bytes.size();
    }
  }
  benchmark::DoNotOptimize(bytes);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * PayloadBytes()));
}

void BM_WriterMP4(benchmark::State& state) {
  MP4TrackInfo video = Video();
  for (auto _ : state) {
    CountingMp4Sink sink;
    int error = 0;
    std::unique_ptr<vrex::mediaformats::WriterMP4> writer(
        vrex::mediaformats::WriterMP4::Create("bench", nullptr, &video, &sink, error));
    for (const frame_t& f : Frames()) writer->WriteVideoData(f.bytes.data(), f.bytes.size(), dts_cts_t(f.dts, kRate), f.key);
    if (writer->Flush() != 0) state.SkipWithError("Flush failed");
    benchmark::DoNotOptimize(sink.bytes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * PayloadBytes()));
}

void BM_WriterFMP4(benchmark::State& state, bool progressive) {
  MP4TrackInfo video = Video();
  for (auto _ : state) {
    CountingFmp4Sink sink;
    int error = 0;
    std::unique_ptr<vrex::mediaformats::WriterFMP4> writer(vrex::mediaformats::WriterFMP4::Create(
        "bench", nullptr, &video, progressive, vrex::media::timestamp_t(2000, 1000), false, false, &sink, error));
    for (const frame_t& f : Frames()) writer->WriteVideoData(f.bytes.data(), f.bytes.size(), dts_cts_t(f.dts, kRate), f.key);
    if (writer->Flush(nullptr, nullptr) != 0) state.SkipWithError("Flush failed");
    benchmark::DoNotOptimize(sink.bytes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * PayloadBytes()));
}

// One hour of 25 fps video and 48 kHz AAC: ten seconds encoded, then looped by stream copy.
const std::string& OneHourMp4() {
  static const std::string path = [] {
    std::string out = "/tmp/vidora_mp4_bench_1h.mp4";
    std::string ten = "/tmp/vidora_mp4_bench_10s.mp4";
    std::string make =
        "test -s " + out + " || (ffmpeg -v error -y -f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi "
        "-i sine=sample_rate=48000 -t 10 -c:v libx264 -preset ultrafast -g 50 -c:a aac " + ten +
        " && ffmpeg -v error -y -stream_loop 359 -i " + ten + " -c copy -map_metadata -1 " + out + ")";
    return system(make.c_str()) == 0 ? out : std::string();
  }();
  return path;
}

struct NullReaderObserver : vrex::mediaformats::ReaderMp4::Observer {};

void BM_ReaderMp4OpenOneHour(benchmark::State& state) {
  const std::string& path = OneHourMp4();
  if (path.empty()) {
    state.SkipWithError("ffmpeg could not make the one-hour file");
    return;
  }
  NullReaderObserver observer;
  size_t frames = 0, heap = 0;
  for (auto _ : state) {
    size_t before = mallinfo2().uordblks;
    int error = 0;
    std::unique_ptr<vrex::mediaformats::ReaderMp4> reader(vrex::mediaformats::ReaderMp4::Create(&observer, path, false, error));
    if (!reader) {
      state.SkipWithError("ReaderMp4::Create failed");
      return;
    }
    heap = mallinfo2().uordblks - before;
    frames = 0;
    while (reader->ReadFrame(error) != nullptr) ++frames;
  }
  state.counters["samples"] = static_cast<double>(frames);
  state.counters["heap_MiB"] = static_cast<double>(heap) / (1 << 20);
  state.counters["heap_B_per_sample"] = static_cast<double>(heap) / static_cast<double>(frames);
}

BENCHMARK(BM_MemcpyPayload)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriterMP4)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WriterFMP4, plain, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WriterFMP4, progressive, true)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderMp4OpenOneHour)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) { return vidora_bench::RunWithRatios(argc, argv, "BM_MemcpyPayload"); }
