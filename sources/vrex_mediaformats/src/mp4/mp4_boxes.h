// The write-only boxes of the plain MP4 writer: each knows its fixed fields and writes itself
// into a BoxBuffer. The sample tables grow one sample at a time while the file is written and
// are serialised once, at Flush, inside the moov.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mediaformats/mp4/mp4_track_info.h"
#include "mp4/box_buffer.h"

namespace vrex {
namespace mediaformats {
namespace internal {

class box_t {
 public:
  explicit box_t(const char* type);
  virtual ~box_t() = default;
  // Size word, type, body; the size word is patched when the body is complete.
  void Write(BoxBuffer& out) const;

 protected:
  virtual void WriteBoxInternal(BoxBuffer& out) const = 0;

 private:
  char _type[4];
};

class full_box_t : public box_t {
 public:
  full_box_t(const char* type, uint8_t version, uint32_t flags);

 protected:
  void WriteBoxInternal(BoxBuffer& out) const final;
  virtual void WriteFullBoxInternal(BoxBuffer& out) const = 0;

 private:
  uint32_t _versionAndFlags;
};

// 6 reserved bytes and data reference index 1 in front of every sample entry.
class sample_entry_t : public box_t {
 public:
  using box_t::box_t;

 protected:
  void WriteBoxInternal(BoxBuffer& out) const final;
  virtual void WriteSampleEntryInternal(BoxBuffer& out) const = 0;
};

// avcC, hvcC, av1C: the configuration record as the track info holds it.
class codec_config_box_t : public box_t {
 public:
  codec_config_box_t(const char* type, const MP4TrackInfo& info);

 protected:
  void WriteBoxInternal(BoxBuffer& out) const override;

 private:
  std::vector<uint8_t> _record;
};

// avc1, hvc1, av01: picture size, the compressor name (a length byte and up to 31 letters,
// zero padded: all zeros when empty), then the configuration box.
class visual_sample_entry_t : public sample_entry_t {
 public:
  visual_sample_entry_t(const char* type, const char* configType, const MP4TrackInfo& info,
                        const std::string& compressorName);

 protected:
  void WriteSampleEntryInternal(BoxBuffer& out) const final;

 private:
  uint16_t _width;
  uint16_t _height;
  std::string _compressorName;
  codec_config_box_t _config;
};

// mp4a with its esds: 27 descriptor bytes around the track id and the 2 config bytes.
class mp4a_t : public sample_entry_t {
 public:
  mp4a_t(const MP4TrackInfo& info, uint16_t channels);

 protected:
  void WriteSampleEntryInternal(BoxBuffer& out) const final;

 private:
  uint16_t _channels;
  uint32_t _sampleRate;
  uint32_t _trackId;
  uint8_t _config[2];
};

// The sample entry of a track: mp4a with `channels` for audio, else by the codec tag avc1,
// hvc1 or av01; null for another video codec.
std::unique_ptr<sample_entry_t> MakeSampleEntry(const MP4TrackInfo& info, bool isAudio,
                                                uint16_t channels, const std::string& compressorName);

// hdlr ("vide" or "soun" and `name`), then the start of minf with vmhd or smhd and dinf
// (one self-contained url). Returns where minf starts, for EndBox after the sample tables.
size_t PutHandlerAndMinfHead(BoxBuffer& out, bool isVideo, const char* name);

// Decoding time deltas, run-length coded in the clock of the frames.
class stts_t : public full_box_t {
 public:
  explicit stts_t(uint32_t defaultDuration);
  void AddSample(const media::dts_cts_t& dtsCts);
  uint32_t rate() const { return _rate; }
  int64_t total() const { return _total; }

 protected:
  void WriteFullBoxInternal(BoxBuffer& out) const override;

 private:
  std::vector<std::pair<uint32_t, uint32_t>> _runs;  // (sample count, delta)
  uint32_t _rate = 0;
  int64_t _lastDts = -1;
  uint32_t _defaultDuration;
  int64_t _total = 0;
};

// A list of 32-bit or 64-bit words after the entry count: stss, stsz (with sample size 0 in
// front), co64.
class word_table_t : public full_box_t {
 public:
  word_table_t(const char* type, bool wide, bool sampleSizeField);
  void Add(uint64_t v) { _values.push_back(v); }
  size_t count() const { return _values.size(); }

 protected:
  void WriteFullBoxInternal(BoxBuffer& out) const override;

 private:
  bool _wide;
  bool _sampleSizeField;
  std::vector<uint64_t> _values;
};

// Sample-to-chunk: one entry for each chunk whose sample count differs from the previous one.
class stsc_t : public full_box_t {
 public:
  stsc_t() : full_box_t("stsc", 0, 0) {}
  void AddChunk(uint32_t chunkNumber, uint32_t sampleCount);

 protected:
  void WriteFullBoxInternal(BoxBuffer& out) const override;

 private:
  struct entry_t {
    uint32_t firstChunk;
    uint32_t samplesPerChunk;
  };
  std::vector<entry_t> _entries;
};

// One track: tkhd, then mdia with mdhd, hdlr, minf and the sample tables. The durations are
// set at Flush.
class trak_t : public box_t {
 public:
  // Fails with ERR_MEDIAFORMATS_INVALID_TRACK_INFO for a track the sample entries can't
  // describe.
  static std::unique_ptr<trak_t> Create(const MP4TrackInfo& info, int& error);

  void SaveSample(const media::dts_cts_t& dtsCts, uint32_t size, bool keyFrame);
  void PushChunk(uint64_t offset, uint32_t sampleCount);
  void ComputeDurations();
  int64_t tkhdDuration() const { return _tkhdDuration; }
  uint32_t trackId() const { return _info.trackId; }

 protected:
  void WriteBoxInternal(BoxBuffer& out) const override;

 private:
  struct track_fields_t {
    uint32_t trackId;
    uint64_t creationTime;
    uint32_t timescale;
    uint32_t width;
    uint32_t height;
    bool isVideo;
  };
  trak_t(const track_fields_t& info, std::unique_ptr<sample_entry_t> entry,
         uint32_t defaultDuration);
  void WriteTkhd(BoxBuffer& out) const;
  void WriteMdia(BoxBuffer& out) const;
  void WriteStbl(BoxBuffer& out) const;

  track_fields_t _info;
  std::unique_ptr<sample_entry_t> _entry;
  stts_t _stts;
  word_table_t _stss;
  stsc_t _stsc;
  word_table_t _stsz;
  word_table_t _co64;
  uint32_t _sampleNumber = 0;
  int64_t _mdhdDuration = -1;
  int64_t _tkhdDuration = -1;
};

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
