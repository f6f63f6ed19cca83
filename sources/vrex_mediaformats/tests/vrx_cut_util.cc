// Helpers of the delete tests: the file, and the frames and seek entries that a cut leaves.
#include "vrx_cut_util.h"

#include <sstream>

#include "vrxfile/vrex_file_appender_cache.h"

namespace vrex {
namespace mediaformats {
namespace vrx_testing {

namespace {

bool IsVideo(const frame_record_t& frame) { return frame.tid != VRX_TID_AAC_ADTS; }

bool SameFrames(const frame_record_t& a, const frame_record_t& b) {
  return a.tid == b.tid && a.key == b.key && a.dts == b.dts && a.cts == b.cts && a.rate == b.rate &&
         a.wallClock == b.wallClock && a.bytes == b.bytes && a.offset == b.offset;
}

}  // namespace

file_state_t ReadState(const std::string& path) {
  file_state_t state;
  int err = 0;
  for (const partition_t& p : ReadPartitions(path, err)) {
    state.partitions.push_back({p._offset, p._size, p._contents._offset, p._contents._size,
                                std::vector<seek_point_t>(p._pSeekPoints, p._pSeekPoints + p._seekPointsCount)});
  }
  state.partitionsErr = err;
  auto reader = ReaderVREX::Create(nullptr, path.c_str(), true, 0, -1, err);
  if (reader) state.frames = ReadAll(*reader, err);
  state.framesErr = err;
  return state;
}

long CutFile::Base() { return shape_t{"base"}.wallClockBase; }

CutFile::CutFile(const std::vector<std::vector<int>>& layout, long size)
    : _file(new Destination(size)), _size(size) {
  for (const std::vector<int>& partition : layout) {
    for (size_t i = 0; i < partition.size(); ++i) {
      _sources.push_back(WriteSource(NumberedShape(partition[i])));
      EXPECT_GT(_file->Append(_sources.back()->file.path(), i == 0), 0);
    }
  }
  internal::VREXFileAppenderCache::Evict(_file->id());
  _before = ReadState(path());
  _bytes = ReadFileBytes(path());
  EXPECT_EQ(_before.partitions.size(), layout.size());
}

void CutFile::Restore() const {
  internal::VREXFileAppenderCache::Evict(_file->id());
  _file->Write(_bytes);
}

CutFile::~CutFile() = default;

std::vector<bool> CutFile::Deleted(const cut_t& step) const {
  const partition_record_t& p = _before.partitions[step.partition];
  const std::vector<frame_record_t>& frames = _before.frames;
  const auto inside = [&p](const frame_record_t& f) {
    return f.offset >= p.contentsOffset && f.offset < p.contentsOffset + p.contentsSize;
  };
  // Up to the sync node of the first GOP whose key frame is at or after `end`.
  const auto head = [&](long end) {
    long limit = p.contentsOffset + p.contentsSize;
    for (const seek_point_t& point : p.seekPoints) {
      if (point._wallClockMillis >= end) {
        limit = point._offset;
        break;
      }
    }
    std::vector<bool> out(frames.size());
    for (size_t i = 0; i < frames.size(); ++i) out[i] = inside(frames[i]) && frames[i].offset < limit;
    return out;
  };
  // From the first video frame at or after `start`; the audio before it stays.
  const auto tail = [&](long start) {
    std::vector<bool> out(frames.size());
    bool cutting = false;
    for (size_t i = 0; i < frames.size(); ++i) {
      cutting = cutting || (inside(frames[i]) && IsVideo(frames[i]) && frames[i].wallClock >= start);
      out[i] = cutting && inside(frames[i]);
    }
    return out;
  };
  std::vector<bool> out(frames.size());
  switch (step.kind) {
    case cut_t::kWhole:
      for (size_t i = 0; i < frames.size(); ++i) out[i] = inside(frames[i]);
      return out;
    case cut_t::kHead:
      return head(step.endMillis);
    case cut_t::kTail:
      return tail(step.startMillis);
    case cut_t::kMiddle: {
      // From the partition's first seek point on, a middle cut is a head cut.
      if (step.startMillis <= p.seekPoints[0]._wallClockMillis) return head(step.endMillis);
      const std::vector<bool> h = head(step.endMillis), t = tail(step.startMillis);
      for (size_t i = 0; i < frames.size(); ++i) out[i] = h[i] && t[i];
      return out;
    }
  }
  return out;
}

file_state_t CutFile::After(const std::vector<cut_t>& steps) const {
  std::vector<bool> gone(_before.frames.size());
  for (const cut_t& step : steps) {
    const std::vector<bool> deleted = Deleted(step);
    for (size_t i = 0; i < gone.size(); ++i) gone[i] = gone[i] || deleted[i];
  }
  file_state_t want;
  for (size_t i = 0; i < gone.size(); ++i) {
    if (!gone[i]) want.frames.push_back(_before.frames[i]);
  }
  for (const partition_record_t& p : _before.partitions) {
    partition_record_t kept = p;
    kept.seekPoints.clear();
    bool any = false;
    for (size_t i = 0; i < gone.size(); ++i) {
      const frame_record_t& f = _before.frames[i];
      if (f.offset < p.contentsOffset || f.offset >= p.contentsOffset + p.contentsSize) continue;
      any = any || !gone[i];
      // An entry goes with the key frame it leads to.
      for (const seek_point_t& point : p.seekPoints) {
        const bool leadsHere = IsVideo(f) && f.key && f.offset > point._offset &&
                               (&point == &p.seekPoints.back() || f.offset < (&point + 1)->_offset);
        if (leadsHere && !gone[i]) kept.seekPoints.push_back(point);
      }
    }
    kept.size -= static_cast<long>((p.seekPoints.size() - kept.seekPoints.size()) * kSeekPointSize);
    if (any) want.partitions.push_back(kept);
  }
  return want;
}

std::string CutFile::Mismatch(const file_state_t& want, bool recovered) const {
  std::ostringstream why;
  const file_state_t got = ReadState(path());
  if (got.partitionsErr != 0 || got.framesErr != 0) {
    why << "walks failed: partitions err=" << got.partitionsErr << " frames err=" << got.framesErr;
    return why.str();
  }
  const long size = static_cast<long>(ReadFileBytes(path()).size());
  if (size != _size) {
    why << "the file has " << size << " bytes instead of " << _size;
    return why.str();
  }
  if (got.partitions.size() != want.partitions.size()) {
    why << got.partitions.size() << " partitions instead of " << want.partitions.size();
    return why.str();
  }
  for (size_t j = 0; j < want.partitions.size(); ++j) {
    partition_record_t g = got.partitions[j];
    const partition_record_t& w = want.partitions[j];
    while (recovered && g.seekPoints.size() > std::max<size_t>(w.seekPoints.size(), 1) &&
           g.seekPoints.back()._offset == g.seekPoints[g.seekPoints.size() - 2]._offset) {
      g.seekPoints.pop_back();
      g.size -= kSeekPointSize;
    }
    const bool rebuilt = recovered && j + 1 == want.partitions.size();
    if (g.offset != w.offset || g.contentsOffset != w.contentsOffset ||
        (!rebuilt && (g.size != w.size || g.contentsSize != w.contentsSize))) {
      why << "partition " << j << " at " << g.offset << "+" << g.size << " instead of " << w.offset
          << "+" << w.size;
      return why.str();
    }
    if (g.seekPoints.size() != w.seekPoints.size()) {
      why << "partition " << j << " has " << g.seekPoints.size() << " seek points instead of "
          << w.seekPoints.size();
      return why.str();
    }
    for (size_t i = 0; i < w.seekPoints.size(); ++i) {
      if (g.seekPoints[i]._offset != w.seekPoints[i]._offset ||
          g.seekPoints[i]._wallClockMillis != w.seekPoints[i]._wallClockMillis) {
        why << "partition " << j << " seek point " << i << " is " << g.seekPoints[i]._wallClockMillis;
        return why.str();
      }
    }
  }
  for (size_t i = 0; i < std::min(got.frames.size(), want.frames.size()); ++i) {
    if (!SameFrames(got.frames[i], want.frames[i])) {
      why << "frame " << i << " at " << got.frames[i].offset << " instead of " << want.frames[i].offset;
      return why.str();
    }
  }
  if (got.frames.size() != want.frames.size()) {
    why << got.frames.size() << " frames instead of " << want.frames.size();
    return why.str();
  }
  const long end = got.partitions.empty() ? 0 : got.partitions.back().offset + got.partitions.back().size;
  std::string error;
  if (WalkSkipChain(path(), end, error) != end) return "skip chain: " + error;
  return "";
}

}  // namespace vrx_testing
}  // namespace mediaformats
}  // namespace vrex
