// Helpers of the VRX tests: a writer observer that keeps the bytes, temporary files, the
// ffmpeg-made fixtures split into frames, and a reader observer that records what it is told.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "abstraction/byte_order.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "mediaformats/vrx/writer_vrex.h"

namespace vrex {
namespace mediaformats {
namespace vrx_testing {

using Bytes = std::vector<unsigned char>;

// Keeps every byte the writer emits; refuses calls from `refuseAt` on (counting from 0).
class ByteSink : public WriterVREX::Observer {
 public:
  bool WriteVREXData(const WriterVREX::message_t& message) override {
    if (calls++ == refuseAt) return false;
    unsigned long total = 0;
    for (int i = 0; i < message.count; ++i) {
      const unsigned char* piece = static_cast<const unsigned char*>(message.pieces[i].iov_base);
      bytes.insert(bytes.end(), piece, piece + message.pieces[i].iov_len);
      total += message.pieces[i].iov_len;
    }
    EXPECT_EQ(total, message.total);
    sizes.push_back(total);
    return true;
  }
  Bytes bytes;
  std::vector<unsigned long> sizes;  // per call
  int calls = 0;
  int refuseAt = -1;
};

// A file under /tmp, removed with the object.
class TempFile {
 public:
  TempFile() {
    char name[] = "/tmp/vidora_vrx_XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    close(fd);
    _path = name;
  }
  explicit TempFile(const Bytes& bytes) : TempFile() { Write(bytes); }
  ~TempFile() { unlink(_path.c_str()); }
  void Write(const Bytes& bytes) const {
    std::ofstream out(_path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }
  const std::string& path() const { return _path; }

 private:
  std::string _path;
};

// One frame of a fixture stream, as ffprobe split it.
struct fixture_frame_t {
  Bytes bytes;
  bool key = false;
  long dts = -1;
};

// Loads test/fixtures/vrx/<name> and the frame list beside it (<stem>.txt).
inline std::vector<fixture_frame_t> LoadFixture(const std::string& name) {
  const std::string dir = std::string(VIDORA_FIXTURES_DIR) + "/vrx/";
  std::ifstream stream(dir + name, std::ios::binary);
  const Bytes all((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  std::ifstream list(dir + name.substr(0, name.rfind('.')) + ".txt");
  std::vector<fixture_frame_t> frames;
  long offset, size, pts;
  int key;
  fixture_frame_t frame;
  while (list >> offset >> size >> key >> frame.dts >> pts) {
    EXPECT_LE(static_cast<size_t>(offset + size), all.size());
    frame.bytes.assign(all.begin() + offset, all.begin() + offset + size);
    frame.key = key != 0;
    frames.push_back(frame);
  }
  EXPECT_FALSE(frames.empty()) << name;
  return frames;
}

// What a reader's observer was told, as text lines in order.
class RecordingObserver : public ReaderVREX::Observer {
 public:
  int SignalPacketsLoss(unsigned short tid, VREXPayloadType, long offset, unsigned short last,
                        unsigned short expected, unsigned short got) override {
    return Add("loss tid=" + std::to_string(tid) + " at=" + std::to_string(offset) + " last=" +
        std::to_string(last) + " expected=" + std::to_string(expected) + " got=" +
        std::to_string(got));
  }
  int SignalMalformedPacketsDetected(unsigned short tid, VREXPayloadType) override {
    return Add("malformed tid=" + std::to_string(tid));
  }
  int SignalPayloadRaw(unsigned short tid, VREXPayloadType, abstraction::DataSource* ds,
                       long offset, const void* data, long size) override {
    Bytes bytes(size);
    if (data != nullptr) {
      memcpy(bytes.data(), data, size);
    } else {
      int err = 0;
      EXPECT_NE(ds->PeekBuffer(bytes.data(), offset, size, err), nullptr);
    }
    return Add("raw tid=" + std::to_string(tid) + " size=" + std::to_string(size) + " first=" +
        (size > 0 ? std::to_string(bytes[0]) : std::string("-")));
  }
  int SignalPayloadScToWc(const media::clock_sync_t& sync) override {
    return Add("sync " + sync.ToString() + " at=" + std::to_string(sync.offset));
  }
  int SignalPartitionHeader(unsigned short) override { return Add("header"); }
  int SignalPartitionFooter(unsigned short) override { return Add("footer"); }
  int SignalPayloadMilestone(unsigned short) override { return Add("milestone"); }
  int SignalPayloadSkip(unsigned short) override { return Add("skip"); }
  int SignalPayloadAudioAacAdts(unsigned short, media::frame_t& frame) override {
    return Frame("aac", frame);
  }
  int SignalPayloadAudioOpus(unsigned short, media::frame_t& frame) override {
    return Frame("opus", frame);
  }
  int SignalPayloadVideoH264NaluAvcc(unsigned short, media::frame_t& frame) override {
    return Frame("h264", frame);
  }
  int SignalPayloadVideoH264NaluB(unsigned short, media::frame_t& frame) override {
    return Frame("h264b", frame);
  }
  int SignalPayloadVideoH265NaluAvcc(unsigned short, media::frame_t& frame) override {
    return Frame("h265", frame);
  }
  int SignalPayloadVideoAV1(unsigned short, media::frame_t& frame) override {
    return Frame("av1", frame);
  }
  int SignalPayloadImageJpeg(unsigned short, media::frame_t& frame) override {
    return Frame("jpeg", frame);
  }
  int SignalPayloadSnapshotMeta(unsigned short, media::dts_cts_t& ts, unsigned long tag) override {
    return Add("snapshot dts=" + std::to_string(ts.dts) + " tag=" + std::to_string(tag));
  }

  std::vector<std::string> events;
  std::vector<Bytes> payloads;  // of every frame, in order
  int refuseAt = -1;            // event index at which to answer non-zero

 private:
  int Add(const std::string& event) {
    events.push_back(event);
    return static_cast<int>(events.size()) - 1 == refuseAt ? 1 : 0;
  }
  int Frame(const char* kind, const media::frame_t& frame) {
    Bytes bytes(frame.size);
    EXPECT_EQ(media::CopyFramePayload(frame, bytes.data()), frame.size);
    payloads.push_back(bytes);
    return Add(std::string(kind) + " key=" + std::to_string(frame.keyFrame) +
               " dts=" + std::to_string(frame.dtsCts.dts) + " cts=" +
               std::to_string(frame.dtsCts.cts) + " rate=" + std::to_string(frame.dtsCts.clockRate) +
               " size=" + std::to_string(frame.size));
  }
};

// Big-endian appenders for laying out packets by hand.
inline void Put16(Bytes& out, uint16_t v) {
  out.push_back(v >> 8);
  out.push_back(v & 0xFF);
}
inline void Put32(Bytes& out, uint32_t v) {
  Put16(out, v >> 16);
  Put16(out, v & 0xFFFF);
}
inline void Put64(Bytes& out, uint64_t v) {
  Put32(out, v >> 32);
  Put32(out, v & 0xFFFFFFFF);
}

// The packets of bytes [from, to) (to the end when `to` is -1), walked by their sizes; each one
// must parse. Continuation fragments end with a trailer word their flags do not announce: it is
// counted in their size.
inline std::vector<vrx_packet_t> WalkPackets(const Bytes& bytes, long from = 0, long to = -1) {
  if (to < 0) to = static_cast<long>(bytes.size());
  std::vector<vrx_packet_t> packets;
  long at = from;
  while (at < to) {
    vrx_packet_t packet;
    EXPECT_EQ(packet.Parse(bytes.data() + at, std::min(32L, to - at), at, to), 1) << "at " << at;
    if (packet.packetSize <= 0) break;
    if (!(packet.flags & 0x8100)) packet.packetSize += 4;
    packets.push_back(packet);
    at += packet.packetSize;
  }
  EXPECT_EQ(at, to);
  return packets;
}

}  // namespace vrx_testing
}  // namespace mediaformats
}  // namespace vrex
