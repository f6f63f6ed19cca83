// The initialisation segment of the fragmented writer.
#include "fmp4/init_segment.h"

#include <cstring>

#include "abstraction/logging.h"
#include "mp4/mp4_boxes.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {

constexpr uint64_t kMp4EpochOffset = 2082844800;  // seconds from 1904 to 1970
const char kCompressorName[] = "Tessarin Media Server ";

void PutTrex(BoxBuffer& out, const TrackContext& track) {
  if (!track.exists()) return;
  size_t trex = out.BeginFullBox("trex", 0, 0);
  out.Put32(track._id);
  out.Put32(1);  // sample description index
  out.Put32(track._defaultSampleDuration);
  out.Put32(0);
  out.Put32(track._isAudio ? 0 : 0x00010000);
  out.EndBox(trex);
}

void PutEmptyTable(BoxBuffer& out, const char* type, bool withSampleSize) {
  size_t box = out.BeginFullBox(type, 0, 0);
  if (withSampleSize) out.Put32(0);
  out.Put32(0);
  out.EndBox(box);
}

bool PutStbl(BoxBuffer& out, const TrackContext& track) {
  MP4TrackInfo info;
  info._pCodecBytes = track._codecBytes.data();
  info._codecBytesSize = track._codecBytes.size();
  info._timescale = track._timescale;
  info._width = track._isAudio ? 0 : track._width;
  info._height = track._height;
  info._trackId = track._id;
  info._codecType = track._codecType;
  if (track._isAudio && track._codecBytes.size() < 2) {
    LOGE << "<-# BuildInitSegment FAILED! Unable to write atom STSD MP4A";
    return false;
  }
  std::unique_ptr<sample_entry_t> entry = MakeSampleEntry(info, track._isAudio, 2, kCompressorName);
  if (!entry) {
    LOGE << "<-# BuildInitSegment FAILED! Unknown codec type: " << media::tagToString(track._codecType);
    return false;
  }
  size_t stbl = out.BeginBox("stbl");
  size_t stsd = out.BeginFullBox("stsd", 0, 0);
  out.Put32(1);
  entry->Write(out);
  out.EndBox(stsd);
  PutEmptyTable(out, "stts", false);
  PutEmptyTable(out, "stsc", false);
  PutEmptyTable(out, "stsz", true);
  PutEmptyTable(out, "stco", false);
  out.EndBox(stbl);
  return true;
}

bool PutTrak(BoxBuffer& out, const TrackContext& track, uint32_t creation) {
  if (!track.exists()) return true;
  size_t trak = out.BeginBox("trak");
  size_t tkhd = out.BeginFullBox("tkhd", 0, 7);
  out.Put32(creation);
  out.Put32(creation);
  out.Put32(track._id);
  out.Put32(0);
  out.Put32(0);  // duration
  out.PutZeros(8);
  out.Put16(0);  // layer
  out.Put16(0);  // alternate group
  out.Put16(track._isAudio ? 0x0100 : 0);
  out.Put16(0);
  PutUnityMatrix(out);
  out.Put32(track._width << 16);
  out.Put32(track._height << 16);
  out.EndBox(tkhd);

  size_t edts = out.BeginBox("edts");
  size_t elst = out.BeginFullBox("elst", 0, 0);
  out.Put32(1);
  out.Put32(0);  // segment duration
  out.Put32(0);  // media time
  out.Put16(1);  // rate
  out.Put16(0);
  out.EndBox(elst);
  out.EndBox(edts);

  size_t mdia = out.BeginBox("mdia");
  size_t mdhd = out.BeginFullBox("mdhd", 0, 0);
  out.Put32(creation);
  out.Put32(creation);
  out.Put32(track._timescale);
  out.Put32(0);
  out.Put16(0x55C4);  // "und"
  out.Put16(0);
  out.EndBox(mdhd);
  size_t minf = PutHandlerAndMinfHead(out, !track._isAudio, track._isAudio ? "SoundHandler" : "VideoHandler");
  if (!PutStbl(out, track)) return false;
  out.EndBox(minf);
  out.EndBox(mdia);
  out.EndBox(trak);
  return true;
}

}  // namespace

bool BuildInitSegment(uint64_t creationTime, const TrackContext& video, const TrackContext& audio,
                      BoxBuffer& out, uint32_t& mvhdDurationOffset) {
  uint32_t creation = static_cast<uint32_t>(creationTime + kMp4EpochOffset);
  size_t ftyp = out.BeginBox("ftyp");
  out.PutFourcc("dash");
  out.Put32(0);
  for (const char* brand : {"iso6", "hvc1", "avc1", "mp41"}) out.PutFourcc(brand);
  out.EndBox(ftyp);

  size_t moov = out.BeginBox("moov");
  size_t mvhd = out.BeginFullBox("mvhd", 0, 0);
  out.Put32(creation);
  out.Put32(creation);
  out.Put32(1000);
  mvhdDurationOffset = static_cast<uint32_t>(mvhd + 24);
  out.Put32(0);
  out.Put32(0x00010000);
  out.Put16(0x0100);
  out.PutZeros(2 + 8);
  PutUnityMatrix(out);
  out.PutZeros(24);
  out.Put32((video.exists() ? 1 : 0) + (audio.exists() ? 1 : 0) + 1);
  out.EndBox(mvhd);
  size_t mvex = out.BeginBox("mvex");
  PutTrex(out, video);
  PutTrex(out, audio);
  out.EndBox(mvex);
  bool ok = PutTrak(out, video, creation) && PutTrak(out, audio, creation);
  if (!ok) {
    LOGE << "<-# BuildInitSegment FAILED! Unable to write atom MOOV";
    return false;
  }
  out.EndBox(moov);
  return true;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
