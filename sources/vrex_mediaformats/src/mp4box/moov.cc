// moov: the tracks' sample tables turned into one list of frames sorted by decoding time.
#include <algorithm>

#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mp4box/mp4box.h"

namespace vrex {
namespace mediaformats {
namespace internal {
namespace mp4box {

namespace {

// The boxes of one track that the frames are built from; null when absent.
struct track_tables_t {
  const tkhd_t* tkhd = nullptr;
  const mdhd_t* mdhd = nullptr;
  const sample_entry_t* entry = nullptr;
  const stts_t* stts = nullptr;
  const ctts_t* ctts = nullptr;
  const stss_t* stss = nullptr;
  const stsz_t* stsz = nullptr;
  const stsc_t* stsc = nullptr;
  const chunk_offsets_t* offsets = nullptr;
};

track_tables_t FindTables(const trak_t& trak) {
  track_tables_t t;
  t.tkhd = trak.Find<tkhd_t>(Fourcc("tkhd"));
  const mdia_t* mdia = trak.Find<mdia_t>(Fourcc("mdia"));
  const minf_t* minf = mdia ? mdia->Find<minf_t>(Fourcc("minf")) : nullptr;
  const stbl_t* stbl = minf ? minf->Find<stbl_t>(Fourcc("stbl")) : nullptr;
  if (mdia) t.mdhd = mdia->Find<mdhd_t>(Fourcc("mdhd"));
  if (stbl == nullptr) return t;
  const stsd_t* stsd = stbl->Find<stsd_t>(Fourcc("stsd"));
  t.entry = stsd ? stsd->FirstEntry() : nullptr;
  t.stts = stbl->Find<stts_t>(Fourcc("stts"));
  t.ctts = stbl->Find<ctts_t>(Fourcc("ctts"));
  t.stss = stbl->Find<stss_t>(Fourcc("stss"));
  t.stsz = stbl->Find<stsz_t>(Fourcc("stsz"));
  t.stsc = stbl->Find<stsc_t>(Fourcc("stsc"));
  t.offsets = stbl->Find<stco_t>(Fourcc("stco"));
  if (t.offsets == nullptr) t.offsets = stbl->Find<co64_t>(Fourcc("co64"));
  return t;
}

// Run-length table (count, value) applied to consecutive frames. False when it names more
// samples than there are frames.
template <typename Apply>
bool WalkRuns(const std::vector<std::pair<uint32_t, uint32_t>>& runs, size_t frameCount, Apply apply) {
  size_t index = 0;
  for (const auto& run : runs) {
    if (run.first > frameCount - index) return false;
    for (uint32_t i = 0; i < run.first; ++i) apply(index++, run.second);
  }
  return true;
}

// Offsets and sizes from stsc, the chunk offsets and stsz. False when the chunks hold more
// samples than there are frames or the table is out of order.
bool PlaceSamples(const track_tables_t& t, media::frame_t* frames, size_t count) {
  const std::vector<stsc_entry_t>& entries = t.stsc->entries;
  const std::vector<uint64_t>& chunks = t.offsets->chunk_offset;
  size_t sample = 0;
  for (size_t e = 0; e < entries.size(); ++e) {
    uint64_t first = entries[e].first_chunk;
    uint64_t last = e + 1 < entries.size() ? uint64_t(entries[e + 1].first_chunk) - 1 : chunks.size();
    if (first == 0 || last > chunks.size()) return false;
    for (uint64_t chunk = first; chunk <= last; ++chunk) {
      uint64_t offset = chunks[chunk - 1];
      if (entries[e].samples_per_chunk > count - sample) return false;
      for (uint32_t i = 0; i < entries[e].samples_per_chunk; ++i, ++sample) {
        frames[sample].offset = static_cast<int64_t>(offset);
        offset += static_cast<uint64_t>(frames[sample].size);
      }
    }
  }
  return true;
}

// Earlier decoding time first, across clock rates; frames without a time go first.
bool EarlierDts(const media::frame_t& a, const media::frame_t& b) {
  bool aValid = a.dtsCts.dts >= 0 && a.dtsCts.clockRate != 0;
  bool bValid = b.dtsCts.dts >= 0 && b.dtsCts.clockRate != 0;
  if (!aValid || !bValid) return !aValid && bValid;
  return static_cast<__int128>(a.dtsCts.dts) * b.dtsCts.clockRate <
         static_cast<__int128>(b.dtsCts.dts) * a.dtsCts.clockRate;
}

}  // namespace

int moov_t::Read(DataSource* source) {
  std::vector<std::unique_ptr<box_t>> children;
  int err = ReadChildBoxes(source, children);
  if (err < 0) return err;
  for (auto& child : children) {
    if (child->type == Fourcc("mvhd")) {
      if (mvhd) {
        LOGE << "<-# moov_t::Read FAILED! a second mvhd at " << child->start;
        return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
      }
      mvhd.reset(static_cast<mvhd_t*>(child.release()));
    } else if (child->type == Fourcc("trak")) {
      traks.emplace_back(static_cast<trak_t*>(child.release()));
    } else if (child->type != Fourcc("udta") && child->type != Fourcc("iods")) {
      LOGW << " moov_t::Read enountered unexpected box type: case 0x" << std::hex << child->type
           << " (" << type2str(child->type) << ")";
    }
  }
  if (!mvhd || traks.empty()) {
    LOGE << "<-# moov_t::Read FAILED! mvhd or trak missing";
    return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  }
  for (const auto& trak : traks) {
    err = AddTrackFrames(*trak, source);
    if (err < 0) return err;
  }
  std::stable_sort(frames.begin(), frames.end(), EarlierDts);
  return 0;
}

int moov_t::AddTrackFrames(const trak_t& trak, DataSource* source) {
  track_tables_t t = FindTables(trak);
  if (!t.tkhd || !t.mdhd || !t.stts || !t.stsz || !t.stsc || !t.offsets) {
    LOGE << "<-# moov_t::AddTrackFrames FAILED! a table of the track at " << trak.start << " is missing";
    return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  }
  size_t count = t.stsz->sample_count;
  // A count without a size table is bounded by the bytes its samples would fill.
  if (t.stsz->sample_size != 0 && count > static_cast<uint64_t>(source->Size()) / t.stsz->sample_size) {
    LOGE << "<-# moov_t::AddTrackFrames FAILED! " << count << " samples of " << t.stsz->sample_size
         << " bytes do not fit the file";
    return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  }
  size_t first = frames.size();
  frames.resize(first + count);
  media::frame_t* track = frames.data() + first;

  media::frame_t model;
  model.trackId = static_cast<uint16_t>(t.tkhd->track_ID);
  model.tag = t.entry ? t.entry->Tag() : media::TAG_UNK;
  model.keyFrame = media::tagKind(model.tag) == 'A';
  model.dtsCts.clockRate = t.mdhd->timescale;
  model.pDataSource = source;
  const std::vector<uint8_t>* config = t.entry ? t.entry->CodecConfig() : nullptr;
  if (config != nullptr && !config->empty()) {
    model.pCodecConfig = config->data();
    model.codecConfigSize = config->size();
  }
  for (size_t i = 0; i < count; ++i) {
    track[i] = model;
    track[i].size = t.stsz->sample_size != 0 ? t.stsz->sample_size : t.stsz->entry_size[i];
  }

  if (t.stss) {
    for (uint32_t number : t.stss->sample_number) {
      if (number >= count) return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
      track[number].keyFrame = true;
    }
  }
  if (!PlaceSamples(t, track, count)) {
    LOGE << "<-# moov_t::AddTrackFrames FAILED! chunks of track " << model.trackId
         << " do not match its " << count << " samples";
    return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  }
  int64_t dts = 0;
  bool timed = WalkRuns(t.stts->entries, count, [&](size_t i, uint32_t delta) {
    track[i].dtsCts.dts = dts;
    dts += delta;
  });
  if (timed && t.ctts) {
    timed = WalkRuns(t.ctts->entries, count, [&](size_t i, uint32_t offset) { track[i].dtsCts.cts = offset; });
  }
  if (!timed) {
    LOGE << "<-# moov_t::AddTrackFrames FAILED! time tables of track " << model.trackId
         << " name more than its " << count << " samples";
    return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  }
  return 0;
}

}  // namespace mp4box
}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
