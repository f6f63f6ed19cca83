// Recordings for the reader tests: the ffmpeg-made H.264 and AAC fixtures written through
// WriterVREX in a chosen shape, and managed files laid out from such partitions the way the
// appender lays them (skip packets between, a tail chain, contents lengths and seek offsets
// rebased into the file).
#pragma once

#include <string>
#include <vector>

#include "abstraction/byte_order.h"
#include "mediaformats/vrx/vrx_packet.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "vrx_test_util.h"

namespace vrex {
namespace mediaformats {
namespace vrx_testing {

struct shape_t {
  const char* name;
  uint32_t videoRate = 90000;
  uint32_t audioRate = 8000;
  int64_t dtsBase = 0;           // added to every DTS (in the track's rate); past 2^32 for 64-bit
  bool withCts = false;          // video CTS of 0, 1 or 2 frame durations
  unsigned fragmentLimit = 0xFFFFFFFF;
  bool syncBeforeKey = true;     // a sync node before every key frame, else one at the start
  long wallClockBase = 1763800000000;
  int firstFrame = 0;            // of the 90 video frames
  int frameCount = 90;
  bool partitioned = true;       // a WriterVREX partition, else bare packets
  bool audioBeforeSync = false;  // each frame's audio before it: the first audio has no sync
};

// A frame as a reader returns it, or should.
struct frame_record_t {
  uint16_t tid;
  bool key;
  int64_t dts;
  uint32_t cts;
  uint32_t rate;
  long wallClock;
  Bytes bytes;
  long offset;  // of the payload in the source; -1 when not known
};

struct recording_t {
  Bytes bytes;                           // one partition as WriterVREX emitted it
  std::vector<frame_record_t> frames;  // in file order
  std::vector<long> keyWallClocks;       // of the video key frames with a sync node
  media::clock_sync_t lastSync;          // the last sync node written
};

// Writes video frames [firstFrame, firstFrame + frameCount) with the audio frames of the same
// time span interleaved, in one partition.
inline recording_t MakeRecording(const shape_t& shape) {
  static const std::vector<fixture_frame_t> video = LoadFixture("h264_gop15.h264");
  static const std::vector<fixture_frame_t> audio = LoadFixture("aac_8000.aac");
  recording_t out;
  ByteSink sink;
  int err = 0;
  auto writer = WriterVREX::Create(shape.fragmentLimit, &sink, err);
  WriterVREX::partition_info_t info;
  for (int i = 0; i < 12; ++i) info.fixedMetadata[i] = static_cast<unsigned char>(i + 1);
  if (shape.partitioned) writer->OpenPartition(&info);
  media::clock_sync_t sync;
  auto writeSync = [&](int64_t dts, long wallClock) {
    sync.sc = media::timestamp_t(dts, shape.videoRate);
    sync.wc = media::timestamp_t(wallClock, 1000);
    EXPECT_GT(writer->WriteClockSync(sync), 0);
  };
  size_t nextAudio = 0;
  // Audio up to the time of video frame `next`.
  auto writeAudio = [&](int next) {
    while (nextAudio < audio.size() && audio[nextAudio].dts * 1000 / 8000 <= next * 1000L / 30) {
      const fixture_frame_t& sound = audio[nextAudio++];
      if (sound.dts * 1000 / 8000 < shape.firstFrame * 1000L / 30) continue;
      const int64_t adts = shape.dtsBase + media::rescale(sound.dts, 8000, shape.audioRate);
      EXPECT_GT(writer->WriteAudioData(sound.bytes.data(), sound.bytes.size(),
                                       media::dts_cts_t(adts, shape.audioRate)), 0);
      out.frames.push_back({VRX_TID_AAC_ADTS, true, adts, 0, shape.audioRate,
                            sync.ComputeWallClock(media::timestamp_t(adts, shape.audioRate), 1000),
                            sound.bytes, -1});
    }
  };
  const int end = std::min<int>(shape.firstFrame + shape.frameCount, video.size());
  for (int i = shape.firstFrame; i < end; ++i) {
    const long millis = (i - shape.firstFrame) * 1000L / 30;
    const int64_t dts = shape.dtsBase + media::rescale(i * 3000L, 90000, shape.videoRate);
    const uint32_t cts = shape.withCts ? static_cast<uint32_t>(media::rescale((i % 3) * 3000, 90000, shape.videoRate)) : 0;
    const fixture_frame_t& frame = video[i];
    if (shape.audioBeforeSync) writeAudio(i + 1);
    if (i == shape.firstFrame || (frame.key && shape.syncBeforeKey)) writeSync(dts, shape.wallClockBase + millis);
    EXPECT_GT(writer->WriteVideoData(frame.bytes.data(), frame.bytes.size(),
                                     media::dts_cts_t(dts, shape.videoRate, cts), frame.key), 0);
    const long wallClock = sync.ComputeWallClock(media::timestamp_t(dts, shape.videoRate), 1000);
    out.frames.push_back({VRX_TID_H264_AVCC, frame.key, dts, cts, shape.videoRate, wallClock, frame.bytes, -1});
    if (frame.key) out.keyWallClocks.push_back(wallClock);
    if (!shape.audioBeforeSync) writeAudio(i + 1);
  }
  if (shape.partitioned) {
    EXPECT_GT(writer->ClosePartition(), 0);
  }
  out.lastSync = sync;
  out.bytes = sink.bytes;
  return out;
}

// Skip packets over `length` bytes (a multiple of 4, at least 16), payloads filled with 0xEE.
inline Bytes SkipRun(long length) {
  Bytes out;
  while (length > 0) {
    const long payload = GetSkipPacketPayloadLength(length);
    EXPECT_GE(payload, 0);
    out.insert(out.end(), kSkipPacketHeader, kSkipPacketHeader + 8);
    Put32(out, static_cast<uint32_t>(payload));
    out.insert(out.end(), payload, 0xEE);
    Put32(out, static_cast<uint32_t>(payload + 12));
    length -= payload + 16;
  }
  return out;
}

// Places a WriterVREX partition at the end of `file` as the appender does: the header's
// contents length is filled in and the seek offsets become file offsets.
inline void PlacePartition(Bytes& file, const Bytes& partition) {
  using abstraction::LoadBE32;
  using abstraction::LoadBE64;
  using abstraction::StoreBE64;
  const long at = static_cast<long>(file.size());
  vrx_packet_t header;
  EXPECT_EQ(header.Parse(partition.data(), 32, 0, partition.size()), 1);
  const long size = static_cast<long>(partition.size());
  const long footer = size - LoadBE32(&partition[size - 4]) - 4;
  const long tableLength = LoadBE32(&partition[size - 8]);
  Bytes placed = partition;
  StoreBE64(&placed[header.headerSize], footer - header.packetSize);
  for (long entry = size - 8 - tableLength; entry < size - 8; entry += 16) {
    StoreBE64(&placed[entry], LoadBE64(&placed[entry]) + at);
  }
  file.insert(file.end(), placed.begin(), placed.end());
}

// Reader helpers.
inline std::unique_ptr<ReaderVREX> Open(const std::string& path, ReaderVREX::Observer* observer = nullptr,
                                 long offset = 0, long length = -1) {
  int err = 0;
  auto reader = ReaderVREX::Create(observer, path.c_str(), true, offset, length, err);
  EXPECT_EQ(err, 0);
  return reader;
}

// The partitions of `path` as the reader walks them; `err` ends as the walk's code.
inline std::vector<partition_t> ReadPartitions(const std::string& path, int& err) {
  std::vector<partition_t> partitions;
  auto reader = ReaderVREX::Create(nullptr, path.c_str(), true, 0, -1, err);
  while (const partition_t* partition = reader ? reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err) : nullptr) {
    partitions.push_back(*partition);
  }
  return partitions;
}

// Reads frames to the end, or `bound` of them, with their payloads.
inline std::vector<frame_record_t> ReadAll(ReaderVREX& reader, int& err, size_t bound = SIZE_MAX) {
  std::vector<frame_record_t> frames;
  media::frame_t* frame = nullptr;
  while (frames.size() < bound && (frame = reader.ReadFrame(err)) != nullptr) {
    EXPECT_GE(frame->size, 0);
    Bytes bytes(frame->size);
    EXPECT_EQ(media::CopyFramePayload(*frame, bytes.data()), frame->size);
    const long wallClock = frame->clockSync != nullptr
                               ? frame->clockSync->ComputeWallClock(frame->dtsCts.Dts(), 1000)
                               : -2;
    frames.push_back({frame->trackId, frame->keyFrame, frame->dtsCts.dts, frame->dtsCts.cts,
                      frame->dtsCts.clockRate, wallClock, bytes, static_cast<long>(frame->offset)});
  }
  return frames;
}

inline void ExpectFrames(const std::vector<frame_record_t>& got,
                         const std::vector<frame_record_t>& want, const std::string& what) {
  ASSERT_EQ(got.size(), want.size()) << what;
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].tid, want[i].tid) << what << " frame " << i;
    EXPECT_EQ(got[i].key, want[i].key) << what << " frame " << i;
    EXPECT_EQ(got[i].dts, want[i].dts) << what << " frame " << i;
    EXPECT_EQ(got[i].cts, want[i].cts) << what << " frame " << i;
    EXPECT_EQ(got[i].rate, want[i].rate) << what << " frame " << i;
    EXPECT_EQ(got[i].wallClock, want[i].wallClock) << what << " frame " << i;
    EXPECT_EQ(got[i].bytes, want[i].bytes) << what << " frame " << i;
  }
}

}  // namespace vrx_testing
}  // namespace mediaformats
}  // namespace vrex
