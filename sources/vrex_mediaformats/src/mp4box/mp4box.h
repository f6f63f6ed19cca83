// Read-only MP4 boxes: the moov tree of a file, parsed far enough to list its samples. Each
// box keeps the standard's fields under their standard names; a parent owns its children.
//
// Box header: size (32) | type (32) [| 64-bit size when size is 1]; size 0 runs to the end of
// the source.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "abstraction/datasource.h"
#include "media/frame.h"
#include "mp4box/payload_reader.h"

namespace vrex {
namespace mediaformats {
namespace internal {
namespace mp4box {

using abstraction::DataSource;

constexpr uint32_t Fourcc(const char (&s)[5]) {
  return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
         (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}

// Four letters; a zero byte prints as a blank, anything but a letter, digit or blank as '.'.
std::string type2str(uint32_t type);

class box_t {
 public:
  virtual ~box_t() = default;

  // Reads the box at the cursor: its header, then the class for its type. On success the
  // cursor stands at the end of the box. Null with `error` set: ERR_MEDIAFORMATS_MP4_PARSING
  // for a header that does not fit the source, ERR_MEDIAFORMATS_INTERNAL_STATE for a content
  // that does not fit the box.
  static std::unique_ptr<box_t> ReadBox(DataSource* source, int& error);

  int64_t start = 0;
  uint64_t size = 0;
  uint32_t type = 0;
  uint64_t payloadSize = 0;
  int64_t end = 0;

 protected:
  // Reads the payload from the cursor (just past the header). Returns 0 or a negative code.
  virtual int Read(DataSource* source) = 0;
  // Reads bytes up to a zero byte (consumed, not kept) or the end of the box.
  int ReadString(DataSource* source, std::string& out) const;
  // Reads boxes from the cursor to the end of this box into `out`; a child that runs past
  // this box fails.
  int ReadChildBoxes(DataSource* source, std::vector<std::unique_ptr<box_t>>& out) const;
};

// Any box stepped over: mdat, free, skip and the types not parsed.
class free_t : public box_t {
 protected:
  int Read(DataSource* source) override;
};

// A box made of boxes. Children that fail make the parent fail.
class container_t : public box_t {
 public:
  // The first child of that type and class, or null.
  template <typename T>
  const T* Find(uint32_t childType) const {
    for (const auto& child : children) {
      if (child->type == childType) return dynamic_cast<const T*>(child.get());
    }
    return nullptr;
  }

  std::vector<std::unique_ptr<box_t>> children;

 protected:
  int Read(DataSource* source) override { return ReadChildren(source); }
  int ReadChildren(DataSource* source) { return ReadChildBoxes(source, children); }
};

// A box read whole into memory and parsed from there.
class leaf_box_t : public box_t {
 protected:
  int Read(DataSource* source) final;
  virtual void Parse(payload_reader_t& in) = 0;
};

class full_box_t : public leaf_box_t {
 public:
  uint8_t version = 0;
  uint32_t flags = 0;

 protected:
  void Parse(payload_reader_t& in) final;
  virtual void ReadFullBox(payload_reader_t& in) = 0;
};

class mvhd_t : public full_box_t {
 public:
  uint64_t creation_time = 0, modification_time = 0;
  uint32_t timescale = 0;
  uint64_t duration = 0;
  uint32_t rate = 0;
  uint16_t volume = 0;
  uint32_t matrix[9] = {};
  uint32_t next_track_ID = 0;

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};

class tkhd_t : public full_box_t {
 public:
  uint64_t creation_time = 0, modification_time = 0;
  uint32_t track_ID = 0;
  uint64_t duration = 0;
  int16_t layer = 0, alternate_group = 0;
  uint16_t volume = 0;
  uint32_t matrix[9] = {};
  uint32_t width = 0, height = 0;  // 16.16

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};

class mdhd_t : public full_box_t {
 public:
  uint64_t creation_time = 0, modification_time = 0;
  uint32_t timescale = 0;
  uint64_t duration = 0;
  uint16_t language = 0;

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};

class hdlr_t : public full_box_t {
 public:
  uint32_t handler_type = 0;
  std::string name;

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};

// stts and ctts: (sample_count, sample_delta or sample_offset) pairs.
class time_table_t : public full_box_t {
 public:
  std::vector<std::pair<uint32_t, uint32_t>> entries;

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};
class stts_t : public time_table_t {};
class ctts_t : public time_table_t {};

class stss_t : public full_box_t {
 public:
  std::vector<uint32_t> sample_number;  // stored less one: 0-based

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};

class stsz_t : public full_box_t {
 public:
  uint32_t sample_size = 0;
  uint32_t sample_count = 0;
  std::vector<uint32_t> entry_size;  // empty when sample_size is not 0

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};

struct stsc_entry_t {
  uint32_t first_chunk;
  uint32_t samples_per_chunk;
  uint32_t sample_description_index;
};

class stsc_t : public full_box_t {
 public:
  std::vector<stsc_entry_t> entries;

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};

// stco (32-bit) and co64 (64-bit) chunk offsets.
class chunk_offsets_t : public full_box_t {
 public:
  std::vector<uint64_t> chunk_offset;

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};
class stco_t : public chunk_offsets_t {};
class co64_t : public chunk_offsets_t {};

// The ES descriptor, its decoder config and the decoder specific info (an AAC's
// AudioSpecificConfig).
class esds_t : public full_box_t {
 public:
  uint16_t ES_ID = 0;
  uint8_t objectTypeIndication = 0;
  uint8_t streamType = 0;
  std::vector<uint8_t> decoderSpecificInfo;

 protected:
  void ReadFullBox(payload_reader_t& in) override;
};

// A configuration record kept as its body bytes: avcC, hvcC, dac3.
class config_record_t : public leaf_box_t {
 public:
  std::vector<uint8_t> body;

 protected:
  void Parse(payload_reader_t& in) override;
};

class avcC_t : public config_record_t {
 public:
  uint8_t configurationVersion = 0, AVCProfileIndication = 0, profile_compatibility = 0,
          AVCLevelIndication = 0, lengthSizeMinusOne = 0;
  std::vector<std::vector<uint8_t>> sequenceParameterSets, pictureParameterSets;

 protected:
  void Parse(payload_reader_t& in) override;
};
class hvcC_t : public config_record_t {};
class dac3_t : public config_record_t {};

class btrt_t : public leaf_box_t {
 public:
  uint32_t bufferSizeDB = 0, maxBitrate = 0, avgBitrate = 0;

 protected:
  void Parse(payload_reader_t& in) override;
};

// A sample entry: 6 reserved bytes, data_reference_index, the entry's own fields, then child
// boxes up to its end.
class sample_entry_t : public container_t {
 public:
  uint16_t data_reference_index = 0;
  // The codec tag of this entry's type; UNK for entries not known.
  virtual uint64_t Tag() const = 0;
  // The out-of-band configuration of the frames: avcC or hvcC body, or the AAC specific info.
  virtual const std::vector<uint8_t>* CodecConfig() const { return nullptr; }

 protected:
  int Read(DataSource* source) final;
  virtual int ReadSampleEntry(DataSource* source) = 0;
};

class visual_sample_entry_t : public sample_entry_t {
 public:
  uint16_t width = 0, height = 0;
  uint32_t horizresolution = 0, vertresolution = 0;
  uint16_t frame_count = 0;
  std::string compressorname;
  uint16_t depth = 0;

 protected:
  int ReadSampleEntry(DataSource* source) override;
};

class avc1_t : public visual_sample_entry_t {
 public:
  uint64_t Tag() const override;
  const std::vector<uint8_t>* CodecConfig() const override;
};

class hev1_t : public visual_sample_entry_t {
 public:
  uint64_t Tag() const override;
  const std::vector<uint8_t>* CodecConfig() const override;
};

class audio_sample_entry_t : public sample_entry_t {
 public:
  uint16_t channelcount = 0, samplesize = 0;
  uint32_t samplerate = 0;  // 16.16

 protected:
  int ReadSampleEntry(DataSource* source) override;
};

class mp4a_t : public audio_sample_entry_t {
 public:
  uint64_t Tag() const override;
  const std::vector<uint8_t>* CodecConfig() const override;
};

class ac3_t : public audio_sample_entry_t {
 public:
  uint64_t Tag() const override;
};

// stsd: version, flags, entry_count, then the sample entries.
class stsd_t : public container_t {
 public:
  uint8_t version = 0;
  uint32_t flags = 0;
  uint32_t entry_count = 0;
  const sample_entry_t* FirstEntry() const;

 protected:
  int Read(DataSource* source) override;
};

class trak_t : public container_t {};
class mdia_t : public container_t {};
class minf_t : public container_t {};
class stbl_t : public container_t {};

// moov: the movie header, the tracks and, built from their tables, every sample of the file
// as a frame sorted by decoding time. The frames point into this tree and live as long as it.
class moov_t : public box_t {
 public:
  std::unique_ptr<mvhd_t> mvhd;
  std::vector<std::unique_ptr<trak_t>> traks;
  std::vector<media::frame_t> frames;

 protected:
  int Read(DataSource* source) override;

 private:
  int AddTrackFrames(const trak_t& trak, DataSource* source);
};

}  // namespace mp4box
}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
