// The per-frame codec work of serving: StripAV1, ADTS stripping and the two NAL framing
// converters, each over the frames of the ffmpeg-made fixtures, against memcpy of the same
// frames in the same run; and building codec info from a key frame (once per stream, no
// baseline). Run from anywhere: the fixtures are found beside this file.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "media/aac/adts.h"
#include "media/aac/codec_info_aac.h"
#include "media/av1/av1.h"
#include "media/av1/codec_info_av1.h"
#include "media/h264/codec_info_h264.h"
#include "media/hevc/codec_info_h265.h"
#include "media/nalu.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Frames = std::vector<Bytes>;

std::string FixturePath(const std::string& name) {
  std::string dir = __FILE__;
  dir = dir.substr(0, dir.find_last_of('/'));
  return dir + "/../test/fixtures/codecs/" + name;
}

Bytes ReadFile(const std::string& name) {
  std::ifstream in(FixturePath(name), std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The frames of <name>.<ext> at the "pos:size" spans listed under `key` in <name>.txt.
Frames Slices(const std::string& name, const std::string& ext, const std::string& key) {
  const Bytes file = ReadFile(name + ext);
  std::ifstream txt(FixturePath(name + ".txt"));
  std::string line;
  Frames frames;
  while (std::getline(txt, line)) {
    if (line.compare(0, key.size() + 1, key + "=") != 0) continue;
    std::istringstream spans(line.substr(key.size() + 1));
    std::string span;
    while (spans >> span) {
      const size_t colon = span.find(':');
      const size_t pos = std::stoul(span.substr(0, colon));
      frames.emplace_back(file.begin() + pos,
                          file.begin() + pos + std::stoul(span.substr(colon + 1)));
    }
  }
  return frames;
}

Frames Collect(const std::vector<std::string>& names, const std::string& ext,
               const std::string& key) {
  Frames all;
  for (const std::string& name : names) {
    Frames frames = Slices(name, ext, key);
    all.insert(all.end(), frames.begin(), frames.end());
  }
  return all;
}

const std::vector<std::string> kH264 = {"h264_baseline", "h264_main", "h264_high", "h264_crop",
                                        "h264_ntsc"};
const std::vector<std::string> kH265 = {"h265_main", "h265_main10", "h265_notiming"};
const std::vector<std::string> kAv1 = {"av1_main8", "av1_main10"};
const std::vector<std::string> kAac = {"aac_44100_mono", "aac_44100_stereo", "aac_48000_mono",
                                       "aac_48000_stereo"};

Frames AvccFrames() {
  Frames frames = Collect(kH264, ".mp4", "mp4_samples");
  Frames hevc = Collect(kH265, ".mp4", "mp4_samples");
  frames.insert(frames.end(), hevc.begin(), hevc.end());
  return frames;
}

Frames AnnexBFrames() {
  Frames frames = Collect(kH264, ".h264", "es_packets");
  Frames hevc = Collect(kH265, ".h265", "es_packets");
  frames.insert(frames.end(), hevc.begin(), hevc.end());
  return frames;
}

int64_t TotalBytes(const Frames& frames) {
  int64_t total = 0;
  for (const Bytes& frame : frames) total += static_cast<int64_t>(frame.size());
  return total;
}

void Memcpy(benchmark::State& state, const Frames& frames) {
  Bytes dst(1 << 20);
  for (auto _ : state) {
    for (const Bytes& frame : frames) {
      std::memcpy(dst.data(), frame.data(), frame.size());
      benchmark::DoNotOptimize(dst.data());
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * TotalBytes(frames));
}

template <typename Converter>
void Convert(benchmark::State& state, const Frames& frames) {
  Converter converter;
  for (auto _ : state) {
    for (const Bytes& frame : frames) {
      if (converter.Work(frame.data(), frame.size()) < 0) state.SkipWithError("conversion failed");
      benchmark::DoNotOptimize(converter.pData);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * TotalBytes(frames));
}

void StripAv1(benchmark::State& state, const Frames& frames) {
  Bytes out;
  for (auto _ : state) {
    for (const Bytes& frame : frames) {
      if (!ms::media::av1::StripAV1(frame.data(), frame.size(), out))
        state.SkipWithError("strip failed");
      benchmark::DoNotOptimize(out.data());
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * TotalBytes(frames));
}

void StripAdts(benchmark::State& state, const Frames& frames) {
  for (auto _ : state) {
    for (const Bytes& frame : frames) {
      unsigned long size = frame.size();
      int error = 0;
      const unsigned char* raw = vrex::mediaformats::internal::StripAdts(frame.data(), size, error);
      if (raw == nullptr) state.SkipWithError("strip failed");
      benchmark::DoNotOptimize(raw);
      benchmark::DoNotOptimize(size);
    }
  }
  state.SetBytesProcessed(state.iterations() * TotalBytes(frames));
}

// `build(error)` makes one codec info object from a key frame.
template <typename Build>
void CodecInfo(benchmark::State& state, Build build) {
  for (auto _ : state) {
    int error = 0;
    vrex::media::codec_info_t* info = build(error);
    if (info == nullptr) state.SkipWithError("codec info failed");
    benchmark::DoNotOptimize(info);
    vrex::media::codec_info_t::FreeInstance(info);
  }
}

// Console output, then each converter's time as a multiple of memcpy over the same frames.
class PairReporter : public benchmark::ConsoleReporter {
 public:
  PairReporter() : ConsoleReporter(OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs)
      if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median")
        _times[run.run_name.str()] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\nTime over the same frames as a multiple of memcpy (same run):\n");
    std::printf("  %-32s %9s %9s\n", "", "real", "cpu");
    for (const auto& entry : _times) {
      const size_t slash = entry.first.find('/');
      if (slash == std::string::npos || entry.first.compare(0, slash, "memcpy") == 0) continue;
      const auto baseline = _times.find("memcpy" + entry.first.substr(slash));
      if (baseline == _times.end() || baseline->second.first <= 0) continue;
      std::printf("  %-32s %8.3fx %8.3fx\n", entry.first.c_str(),
                  entry.second.first / baseline->second.first,
                  entry.second.second / baseline->second.second);
    }
  }

 private:
  std::map<std::string, std::pair<double, double>> _times;  // real, cpu
};

}  // namespace

int main(int argc, char** argv) {
  static const Frames avcc = AvccFrames();
  static const Frames annexB = AnnexBFrames();
  static const Frames av1 = Collect(kAv1, ".obu", "es_packets");
  static const Frames adts = Collect(kAac, ".aac", "es_packets");
  static const Bytes h264Key = ReadFile("h264_high.key");
  static const Bytes h265Key = ReadFile("h265_main.key");
  static const Bytes av1Key = ReadFile("av1_main8.key");
  static const Bytes adtsFrame = adts.empty() ? Bytes() : adts.front();
  if (avcc.empty() || annexB.empty() || av1.empty() || adts.empty() || h264Key.empty()) {
    std::fprintf(stderr, "codec fixtures not found under %s\n", FixturePath("").c_str());
    return 1;
  }
  benchmark::RegisterBenchmark("memcpy/avcc", Memcpy, avcc);
  benchmark::RegisterBenchmark("nalu_avcc_to_b/avcc", Convert<vrex::media::nalu_avcc_to_b_t>, avcc);
  benchmark::RegisterBenchmark("memcpy/annexb", Memcpy, annexB);
  benchmark::RegisterBenchmark("nalu_b_to_avcc/annexb", Convert<vrex::media::nalu_b_to_avcc_t>,
                               annexB);
  benchmark::RegisterBenchmark("memcpy/av1", Memcpy, av1);
  benchmark::RegisterBenchmark("StripAV1/av1", StripAv1, av1);
  benchmark::RegisterBenchmark("memcpy/adts", Memcpy, adts);
  benchmark::RegisterBenchmark("StripAdts/adts", StripAdts, adts);
  using vrex::media::codec_info_t;
  benchmark::RegisterBenchmark("codec_info_h264", [&](benchmark::State& state) {
    CodecInfo(state, [&](int& error) -> codec_info_t* {
      return vrex::media::codec_info_video_h264_t::GetInstance(h264Key.data(), h264Key.size(),
                                                               90000, error);
    });
  });
  benchmark::RegisterBenchmark("codec_info_h265", [&](benchmark::State& state) {
    CodecInfo(state, [&](int& error) -> codec_info_t* {
      return vrex::media::codec_info_video_h265_t::GetInstance(h265Key.data(), h265Key.size(),
                                                               90000, error);
    });
  });
  benchmark::RegisterBenchmark("codec_info_av1", [&](benchmark::State& state) {
    CodecInfo(state, [&](int& error) -> codec_info_t* {
      return vrex::media::codec_info_video_av1_t::GetInstance(av1Key.data(), av1Key.size(), 90000,
                                                              error);
    });
  });
  benchmark::RegisterBenchmark("codec_info_aac", [&](benchmark::State& state) {
    CodecInfo(state, [&](int& error) -> codec_info_t* {
      return vrex::media::codec_info_audio_aac_t::GetInstance(adtsFrame.data(), adtsFrame.size(),
                                                              false, error);
    });
  });
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  PairReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
