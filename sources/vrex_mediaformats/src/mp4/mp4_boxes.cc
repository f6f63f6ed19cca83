// Serialisation of the plain MP4 writer's boxes; field values are fixed by the file layout
// that players and our own readers expect.
#include "mp4/mp4_boxes.h"

#include <cstring>

#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {
constexpr uint16_t kLanguageUnd = 0x55C4;
}  // namespace

box_t::box_t(const char* type) { memcpy(_type, type, 4); }

void box_t::Write(BoxBuffer& out) const {
  char type[5] = {_type[0], _type[1], _type[2], _type[3], 0};
  size_t start = out.BeginBox(type);
  WriteBoxInternal(out);
  out.EndBox(start);
}

full_box_t::full_box_t(const char* type, uint8_t version, uint32_t flags)
    : box_t(type), _versionAndFlags((static_cast<uint32_t>(version) << 24) | (flags & 0xffffff)) {}

void full_box_t::WriteBoxInternal(BoxBuffer& out) const {
  out.Put32(_versionAndFlags);
  WriteFullBoxInternal(out);
}

void sample_entry_t::WriteBoxInternal(BoxBuffer& out) const {
  out.PutZeros(6);
  out.Put16(1);  // data reference index
  WriteSampleEntryInternal(out);
}

codec_config_box_t::codec_config_box_t(const char* type, const MP4TrackInfo& info)
    : box_t(type), _record(info._pCodecBytes, info._pCodecBytes + info._codecBytesSize) {}

void codec_config_box_t::WriteBoxInternal(BoxBuffer& out) const {
  out.PutBytes(_record.data(), _record.size());
}

visual_sample_entry_t::visual_sample_entry_t(const char* type, const char* configType,
                                             const MP4TrackInfo& info,
                                             const std::string& compressorName)
    : sample_entry_t(type),
      _width(static_cast<uint16_t>(info._width)),
      _height(static_cast<uint16_t>(info._height)),
      _compressorName(compressorName.substr(0, 31)),
      _config(configType, info) {}

void visual_sample_entry_t::WriteSampleEntryInternal(BoxBuffer& out) const {
  out.Put16(0);  // pre-defined
  out.Put16(0);  // reserved
  out.PutZeros(12);
  out.Put16(_width);
  out.Put16(_height);
  out.Put32(0x00480000);  // 72 dpi
  out.Put32(0x00480000);
  out.Put32(0);
  out.Put16(1);  // frame count
  out.Put8(static_cast<uint8_t>(_compressorName.size()));
  out.PutBytes(_compressorName.data(), _compressorName.size());
  out.PutZeros(31 - _compressorName.size());
  out.Put16(0x0018);
  out.Put16(0xFFFF);
  _config.Write(out);
}

mp4a_t::mp4a_t(const MP4TrackInfo& info, uint16_t channels)
    : sample_entry_t("mp4a"),
      _channels(channels),
      _sampleRate(info._timescale),
      _trackId(info._trackId),
      _config{info._pCodecBytes[0], info._pCodecBytes[1]} {}

void mp4a_t::WriteSampleEntryInternal(BoxBuffer& out) const {
  out.PutZeros(8);
  out.Put16(_channels);
  out.Put16(16);  // sample size
  out.Put16(0);
  out.Put16(0);
  out.Put32(_sampleRate << 16);
  size_t esds = out.BeginFullBox("esds", 0, 0);
  // ES descriptor (tag 3, 25 bytes): ES id, no flags; decoder config (tag 4, 17 bytes): AAC
  // (0x40), audio stream (0x15), buffer size and bit rates 0; decoder specific info (tag 5, 2
  // bytes); SL config (tag 6) predefined 2.
  const uint8_t descriptor[27] = {0x03, 0x19, static_cast<uint8_t>(_trackId >> 8),
                                  static_cast<uint8_t>(_trackId), 0x00, 0x04, 0x11, 0x40, 0x15,
                                  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05, 0x02, _config[0],
                                  _config[1], 0x06, 0x01, 0x02};
  out.PutBytes(descriptor, sizeof(descriptor));
  out.EndBox(esds);
}

std::unique_ptr<sample_entry_t> MakeSampleEntry(const MP4TrackInfo& info, bool isAudio,
                                                uint16_t channels, const std::string& compressorName) {
  std::unique_ptr<sample_entry_t> entry;
  if (isAudio) {
    entry.reset(new mp4a_t(info, channels));
  } else if (info._codecType == media::TAG_VH264) {
    entry.reset(new visual_sample_entry_t("avc1", "avcC", info, compressorName));
  } else if (info._codecType == media::TAG_VH265) {
    entry.reset(new visual_sample_entry_t("hvc1", "hvcC", info, compressorName));
  } else if (info._codecType == media::TAG_VAV1) {
    entry.reset(new visual_sample_entry_t("av01", "av1C", info, compressorName));
  }
  return entry;
}

size_t PutHandlerAndMinfHead(BoxBuffer& out, bool isVideo, const char* name) {
  size_t hdlr = out.BeginFullBox("hdlr", 0, 0);
  out.Put32(0);
  out.PutFourcc(isVideo ? "vide" : "soun");
  out.PutZeros(12);
  out.PutBytes(name, strlen(name) + 1);
  out.EndBox(hdlr);
  size_t minf = out.BeginBox("minf");
  // vmhd: graphics mode and colour; smhd: balance and reserved.
  size_t mediaHeader = out.BeginFullBox(isVideo ? "vmhd" : "smhd", 0, isVideo ? 1 : 0);
  out.PutZeros(isVideo ? 8 : 4);
  out.EndBox(mediaHeader);
  size_t dinf = out.BeginBox("dinf");
  size_t dref = out.BeginFullBox("dref", 0, 0);
  out.Put32(1);
  out.EndBox(out.BeginFullBox("url ", 0, 1));
  out.EndBox(dref);
  out.EndBox(dinf);
  return minf;
}

stts_t::stts_t(uint32_t defaultDuration) : full_box_t("stts", 0, 0), _defaultDuration(defaultDuration) {}

void stts_t::AddSample(const media::dts_cts_t& dtsCts) {
  if (_lastDts < 0) {
    _rate = dtsCts.dts >= 0 ? dtsCts.clockRate : 0;
    _lastDts = dtsCts.dts - _defaultDuration;  // the first sample lasts one default duration
  }
  // A backward jump costs one default duration, no more.
  uint32_t delta = _lastDts > dtsCts.dts ? _defaultDuration : static_cast<uint32_t>(dtsCts.dts - _lastDts);
  _total += delta;
  if (!_runs.empty() && _runs.back().second == delta) {
    ++_runs.back().first;
  } else {
    _runs.emplace_back(1, delta);
  }
  _lastDts = dtsCts.dts;
}

void stts_t::WriteFullBoxInternal(BoxBuffer& out) const {
  out.Put32(static_cast<uint32_t>(_runs.size()));
  for (const auto& run : _runs) {
    out.Put32(run.first);
    out.Put32(run.second);
  }
}

word_table_t::word_table_t(const char* type, bool wide, bool sampleSizeField)
    : full_box_t(type, 0, 0), _wide(wide), _sampleSizeField(sampleSizeField) {}

void word_table_t::WriteFullBoxInternal(BoxBuffer& out) const {
  if (_sampleSizeField) out.Put32(0);
  out.Put32(static_cast<uint32_t>(_values.size()));
  for (uint64_t v : _values) {
    if (_wide) {
      out.Put64(v);
    } else {
      out.Put32(static_cast<uint32_t>(v));
    }
  }
}

void stsc_t::AddChunk(uint32_t chunkNumber, uint32_t sampleCount) {
  if (_entries.empty() || _entries.back().samplesPerChunk != sampleCount) {
    _entries.push_back({chunkNumber, sampleCount});
  }
}

void stsc_t::WriteFullBoxInternal(BoxBuffer& out) const {
  out.Put32(static_cast<uint32_t>(_entries.size()));
  for (const entry_t& e : _entries) {
    out.Put32(e.firstChunk);
    out.Put32(e.samplesPerChunk);
    out.Put32(1);  // sample description index
  }
}

std::unique_ptr<trak_t> trak_t::Create(const MP4TrackInfo& info, int& error) {
  std::unique_ptr<sample_entry_t> entry;
  bool isVideo = info._width != 0;
  if (!isVideo) {
    if (info._timescale > 65535 || info._codecBytesSize != 2 || info._pCodecBytes == nullptr) {
      LOGE << "<-# trak_t::Create FAILED! audio timescale=" << info._timescale
           << " config size=" << info._codecBytesSize;
      error = VREX_ERROR(ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
      return nullptr;
    }
    entry = MakeSampleEntry(info, true, info._channels, "");
  } else if (info._height == 0 || info._pCodecBytes == nullptr) {
    LOGE << "<-# trak_t::Create FAILED! video " << info._width << "x" << info._height;
    error = VREX_ERROR(ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
    return nullptr;
  } else if (!(entry = MakeSampleEntry(info, false, 0, ""))) {
    LOGE << "<-# trak_t::Create FAILED! video codec " << media::tagToString(info._codecType);
    error = VREX_ERROR(ERR_MEDIAFORMATS_INVALID_TRACK_INFO);
    return nullptr;
  }
  track_fields_t fields{info._trackId, info._creationTime, info._timescale,
                        info._width,   info._height,       isVideo};
  return std::unique_ptr<trak_t>(new trak_t(fields, std::move(entry), info._defaultSampleDuration));
}

trak_t::trak_t(const track_fields_t& info, std::unique_ptr<sample_entry_t> entry,
               uint32_t defaultDuration)
    : box_t("trak"),
      _info(info),
      _entry(std::move(entry)),
      _stts(defaultDuration),
      _stss("stss", false, false),
      _stsz("stsz", false, true),
      _co64("co64", true, false) {}

void trak_t::SaveSample(const media::dts_cts_t& dtsCts, uint32_t size, bool keyFrame) {
  _stts.AddSample(dtsCts);
  ++_sampleNumber;
  if (_info.isVideo && keyFrame) _stss.Add(_sampleNumber);
  _stsz.Add(size);
}

void trak_t::PushChunk(uint64_t offset, uint32_t sampleCount) {
  _co64.Add(offset);
  _stsc.AddChunk(static_cast<uint32_t>(_co64.count()), sampleCount);
}

void trak_t::ComputeDurations() {
  uint32_t rate = _stts.rate();
  int64_t total = _stts.total();
  _mdhdDuration = (_info.timescale != 0 && rate != 0 && total >= 0)
                      ? media::rescale(total, rate, _info.timescale)
                      : -1;
  _tkhdDuration = rate != 0 ? media::rescale(total, rate, 1000) : -1;
}

void trak_t::WriteBoxInternal(BoxBuffer& out) const {
  WriteTkhd(out);
  WriteMdia(out);
}

void trak_t::WriteTkhd(BoxBuffer& out) const {
  size_t tkhd = out.BeginFullBox("tkhd", 1, 1);
  out.Put64(_info.creationTime);
  out.Put64(_info.creationTime);
  out.Put32(_info.trackId);
  out.Put32(0);
  out.Put64(static_cast<uint64_t>(_tkhdDuration));
  out.PutZeros(8);
  out.Put16(0);                           // layer
  out.Put16(_info.isVideo ? 0 : 1);       // alternate group
  out.Put16(_info.isVideo ? 0 : 0x0100);  // volume
  out.Put16(0);
  PutUnityMatrix(out);
  out.Put32(_info.width << 16);
  out.Put32(_info.height << 16);
  out.EndBox(tkhd);
}

void trak_t::WriteMdia(BoxBuffer& out) const {
  size_t mdia = out.BeginBox("mdia");
  size_t mdhd = out.BeginFullBox("mdhd", 1, 0);
  out.Put64(_info.creationTime);
  out.Put64(_info.creationTime);
  out.Put32(_info.timescale);
  out.Put64(static_cast<uint64_t>(_mdhdDuration));
  out.Put16(kLanguageUnd);
  out.Put16(0);
  out.EndBox(mdhd);

  size_t minf = PutHandlerAndMinfHead(out, _info.isVideo, _info.isVideo ? "Video track" : "Sound track");
  WriteStbl(out);
  out.EndBox(minf);
  out.EndBox(mdia);
}

void trak_t::WriteStbl(BoxBuffer& out) const {
  size_t stbl = out.BeginBox("stbl");
  size_t stsd = out.BeginFullBox("stsd", 0, 0);
  out.Put32(1);
  _entry->Write(out);
  out.EndBox(stsd);
  _stts.Write(out);
  if (_info.isVideo) _stss.Write(out);
  _stsc.Write(out);
  _stsz.Write(out);
  _co64.Write(out);
  out.EndBox(stbl);
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
