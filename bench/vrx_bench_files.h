// Scratch files of the VRX benchmarks: paths under VIDORA_BENCH_DIR (else /tmp) that go at
// exit, and temporary files as a camera leaves them, written by WriterVREX.
#pragma once

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "media/clock_sync.h"
#include "mediaformats/vrx/writer_vrex.h"

namespace vidora_bench {

using vrex::mediaformats::WriterVREX;

inline std::string ScratchPath(const char* name) {
  static std::vector<std::string> made;
  const char* dir = getenv("VIDORA_BENCH_DIR");
  made.push_back(std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/vidora_bench_" +
                 std::to_string(getpid()) + "_" + name);
  if (made.size() == 1) {
    atexit([] {
      for (const std::string& path : made) unlink(path.c_str());
    });
  }
  return made.back();
}

// Writes each packet straight to a descriptor.
class FileSink : public WriterVREX::Observer {
 public:
  explicit FileSink(int fd) : _fd(fd) {}
  bool WriteVREXData(const WriterVREX::message_t& message) override {
    return writev(_fd, message.pieces, message.count) == static_cast<ssize_t>(message.total);
  }

 private:
  int _fd;
};

// A temporary file as a camera leaves it: `frames` of 30 fps video, a key frame with its
// sync node every 2 s, with AAC frames between, in one partition. At full `scale` (1.0) about
// 4 Mbit/s, like 1080p H.264: key frames near 120 KB, others near 16 KB.
inline std::string WriteTemporary(const char* name, long frames, long startMillis, double scale) {
  const std::string path = ScratchPath(name);
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  FileSink sink(fd);
  int err = 0;
  auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
  WriterVREX::partition_info_t info;
  writer->OpenPartition(&info);
  std::mt19937 random(static_cast<unsigned>(frames));
  std::vector<unsigned char> payload(400 * 1024);
  for (unsigned char& byte : payload) byte = static_cast<unsigned char>(random());
  std::uniform_int_distribution<size_t> delta(12000 * scale, 20000 * scale);
  std::uniform_int_distribution<size_t> keySize(100000 * scale, 140000 * scale);
  vrex::media::clock_sync_t sync;
  for (long frame = 0; frame < frames; ++frame) {
    const long dts = frame * 3000;
    if (frame % 60 == 0) {
      sync.sc = vrex::media::timestamp_t(dts, 90000);
      sync.wc = vrex::media::timestamp_t(startMillis + frame * 1000 / 30, 1000);
      writer->WriteClockSync(sync);
    }
    const size_t size = frame % 60 == 0 ? keySize(random) : delta(random);
    writer->WriteVideoData(payload.data(), size, vrex::media::dts_cts_t(dts, 90000), frame % 60 == 0);
    writer->WriteAudioData(payload.data(), 300, vrex::media::dts_cts_t(frame * 1600 / 30, 48000));
  }
  writer->ClosePartition();
  close(fd);
  return path;
}

}  // namespace vidora_bench
