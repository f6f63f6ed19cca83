// vrx_write: writes a .vrx file with WriterVREX from a plain description, and prints what it
// wrote (every frame's payload offset and size, every partition's bounds and seek table) as
// JSON, so that tests can compare a listing with the truth.
//
// Usage: vrx_write OUTPUT.vrx [DESCRIPTION]    (the description is read from stdin without one)
//
// One command per line; '#' starts a comment:
//   partition FIXED_HEX24 [DYNAMIC_HEX]   open a partition (12 bytes of fixed metadata)
//   end                                   close it: header, contents, footer with seek table
//   sync SC RATE WALLCLOCK_MS             a clock sync node
//   video DTS RATE CTS KEY PAYLOAD [CODEC] an access unit (KEY 0 or 1); CODEC h264 (default),
//                                         h265 or av1
//   audio DTS RATE PAYLOAD                an AAC frame (ADTS)
//   pad FILE_SIZE                         skip packets up to FILE_SIZE (a managed file's tail)
//   fragments MAX                         cut frames into packets of at most MAX payload bytes
//                                         (first command only; the manifest then gives a frame
//                                         the offset of its first fragment's payload)
// PAYLOAD is pattern:SIZE:SEED (bytes (SEED + i) & 0xff), file:PATH:OFFSET:SIZE (bytes as they
// stand) or annexb:PATH:OFFSET:SIZE (Annex B, written with 4-byte lengths).
//
// Partitions are laid out here, as an appender does: the contents are written first, so that
// the header can carry their length, and the seek table gets one entry per key frame that has
// a sync node, aimed at the sync node when it was written just before the key frame.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "media/clock_sync.h"
#include "media/codec_tags.h"
#include "media/nalu.h"
#include "media/timestamp.h"
#include "mediaformats/vrx/vrx_format.h"
#include "mediaformats/vrx/writer_vrex.h"

namespace {

using vrex::media::clock_sync_t;
using vrex::media::dts_cts_t;
using vrex::mediaformats::WriterVREX;

// Collects packets in memory and notes where the caller's payloads land. `base` counts the
// bytes already moved out (to the file), so that offsets stay those of the file.
class Sink : public WriterVREX::Observer {
 public:
  bool WriteVREXData(const WriterVREX::message_t& message) override {
    for (int i = 0; i < message.count; ++i) {
      const auto* bytes = static_cast<const unsigned char*>(message.pieces[i].iov_base);
      if (bytes == _payload && _payload != nullptr) _payloadOffset = Position();
      data.insert(data.end(), bytes, bytes + message.pieces[i].iov_len);
    }
    return true;
  }
  // The next packet's payload is `payload`; PayloadOffset() says where it went.
  void Expect(const void* payload) {
    _payload = static_cast<const unsigned char*>(payload);
    _payloadOffset = -1;
  }
  long PayloadOffset() const { return _payloadOffset; }
  long Position() const { return base + static_cast<long>(data.size()); }
  // Appends the bytes to `out` and forgets them.
  bool MoveTo(FILE* out) {
    const bool ok = data.empty() || fwrite(data.data(), 1, data.size(), out) == data.size();
    base += static_cast<long>(data.size());
    data.clear();
    return ok;
  }

  // Appends `count` zero bytes to `out` (after MoveTo): skip packet payloads may be huge.
  bool ZerosTo(FILE* out, long count) {
    static const unsigned char kZeros[65536] = {0};
    for (long left = count; left > 0;) {
      const size_t n = static_cast<size_t>(std::min<long>(left, sizeof kZeros));
      if (fwrite(kZeros, 1, n, out) != n) return false;
      left -= static_cast<long>(n);
    }
    base += count;
    return true;
  }

  std::vector<unsigned char> data;
  long base = 0;

 private:
  const unsigned char* _payload = nullptr;
  long _payloadOffset = -1;
};

struct frame_record_t {
  long offset;
  long size;
};

struct seek_record_t {
  long offset;
  long wallClock;
};

struct partition_record_t {
  long offset, size, contentsOffset, contentsSize, dynamicOffset, dynamicSize;
  std::vector<seek_record_t> seekPoints;
};

std::vector<unsigned char> Hex(const std::string& text) {
  std::vector<unsigned char> bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  std::string part;
  while (std::getline(stream, part, separator)) parts.push_back(part);
  return parts;
}

bool ReadPayload(const std::string& description, std::vector<unsigned char>& out) {
  const std::vector<std::string> parts = Split(description, ':');
  out.clear();
  if (parts.size() == 3 && parts[0] == "pattern") {
    const unsigned long size = std::stoul(parts[1]);
    const unsigned long seed = std::stoul(parts[2]);
    for (unsigned long i = 0; i < size; ++i) out.push_back(static_cast<unsigned char>((seed + i) & 0xff));
    return true;
  }
  if (parts.size() != 4 || (parts[0] != "file" && parts[0] != "annexb")) return false;
  std::ifstream file(parts[1], std::ios::binary);
  const long size = std::stol(parts[3]);
  out.resize(static_cast<size_t>(size));
  file.seekg(std::stol(parts[2]));
  if (!file.read(reinterpret_cast<char*>(out.data()), size)) return false;
  if (parts[0] == "annexb") {
    vrex::media::nalu_b_to_avcc_t converter;
    converter.Work(out.data(), out.size());
    out.assign(converter.pData, converter.pData + converter.used);
  }
  return true;
}

class Builder {
 public:
  // Writes to `out`, which it does not own.
  explicit Builder(FILE* out) : _out(out) {
    int err = 0;
    _fileWriter = WriterVREX::Create(_maxPacketPayload, &_file, err);
  }

  bool Command(const std::string& line) {
    std::istringstream in(line);
    std::string verb;
    if (!(in >> verb) || verb[0] == '#') return true;
    bool ok = false;
    if (verb == "partition") ok = OpenPartition(in);
    else if (verb == "end") ok = ClosePartition();
    else if (verb == "sync") ok = Sync(in);
    else if (verb == "video" || verb == "audio") ok = Frame(verb == "video", in);
    else if (verb == "pad") ok = Pad(in);
    else if (verb == "fragments") ok = Fragments(in);
    return ok && _file.MoveTo(_out);
  }

  // Whether everything was written: no partition may be left open.
  bool Finish() const { return !_contents; }

  void PrintManifest() const {
    printf("{\"size\":%ld,\"frames\":[", _file.Position());
    for (size_t i = 0; i < _frames.size(); ++i) {
      printf("%s{\"offset\":%ld,\"size\":%ld}", i ? "," : "", _frames[i].offset, _frames[i].size);
    }
    printf("],\"partitions\":[");
    for (size_t i = 0; i < _partitions.size(); ++i) {
      const partition_record_t& p = _partitions[i];
      printf("%s{\"offset\":%ld,\"size\":%ld,\"contents\":[%ld,%ld],\"dynamic\":[%ld,%ld],\"seekPoints\":[",
             i ? "," : "", p.offset, p.size, p.contentsOffset, p.contentsSize, p.dynamicOffset, p.dynamicSize);
      for (size_t s = 0; s < p.seekPoints.size(); ++s) {
        printf("%s[%ld,%ld]", s ? "," : "", p.seekPoints[s].offset, p.seekPoints[s].wallClock);
      }
      printf("]}");
    }
    printf("]}\n");
  }

 private:
  // Where the next packet goes: the open partition's contents, or the file itself.
  Sink& Target() { return _contents ? *_contents : _file; }
  WriterVREX& TargetWriter() { return _contents ? *_contentsWriter : *_fileWriter; }

  bool OpenPartition(std::istringstream& in) {
    std::string fixed, dynamic;
    in >> fixed >> dynamic;
    if (_contents || fixed.size() != 24) return false;
    _fixed = Hex(fixed);
    _dynamic = Hex(dynamic);
    _contents = std::make_unique<Sink>();
    int err = 0;
    _contentsWriter = WriterVREX::Create(_maxPacketPayload, _contents.get(), err);
    _firstTs = dts_cts_t();
    _sync = clock_sync_t();
    _syncEnd = -1;
    _seekPoints.clear();
    _firstFrame = _frames.size();
    return _contentsWriter != nullptr;
  }

  bool ClosePartition() {
    if (!_contents) return false;
    const long contentsLength = static_cast<long>(_contents->data.size());
    partition_record_t record;
    record.offset = _file.Position();
    if (_fileWriter->WritePartitionDescriptorStart(_firstTs, contentsLength, _fixed.data(),
                                                   _dynamic.empty() ? nullptr : _dynamic.data(),
                                                   _dynamic.size()) < 0) {
      return false;
    }
    record.contentsOffset = _file.Position();
    record.contentsSize = contentsLength;
    // The dynamic metadata ends the header payload, before its padding and the trailer.
    const long padded = (static_cast<long>(_dynamic.size()) + 3) / 4 * 4;
    record.dynamicOffset = record.contentsOffset - 4 - padded;
    record.dynamicSize = static_cast<long>(_dynamic.size());
    for (size_t i = _firstFrame; i < _frames.size(); ++i) _frames[i].offset += record.contentsOffset;
    std::vector<unsigned char> table;
    for (seek_record_t& point : _seekPoints) {
      point.offset += record.contentsOffset;
      PutBE64(table, point.offset);
      PutBE64(table, point.wallClock);
    }
    record.seekPoints = _seekPoints;
    _file.data.insert(_file.data.end(), _contents->data.begin(), _contents->data.end());
    if (_fileWriter->WritePartitionDescriptorEnd(dts_cts_t(), contentsLength, table.data(),
                                                 static_cast<unsigned>(table.size())) < 0) {
      return false;
    }
    record.size = _file.Position() - record.offset;
    _partitions.push_back(record);
    _contentsWriter.reset();
    _contents.reset();
    return true;
  }

  bool Sync(std::istringstream& in) {
    long sc = 0, wc = 0;
    unsigned rate = 0;
    if (!(in >> sc >> rate >> wc)) return false;
    _sync.sc = vrex::media::timestamp_t(sc, rate);
    _sync.wc = vrex::media::timestamp_t(wc, 1000);
    NoteFirst(dts_cts_t(sc, rate));
    const long start = static_cast<long>(Target().data.size());
    if (TargetWriter().WriteClockSync(_sync) < 0) return false;
    _syncStart = start;
    _syncEnd = static_cast<long>(Target().data.size());
    return true;
  }

  bool Frame(bool video, std::istringstream& in) {
    long dts = 0;
    unsigned rate = 0, cts = 0, key = 1;
    std::string description;
    if (!(in >> dts >> rate)) return false;
    if (video && !(in >> cts >> key)) return false;
    if (!(in >> description) || !ReadPayload(description, _payload)) return false;
    std::string codec = "h264";
    if (video) in >> codec;
    const uint64_t tag = vrex::media::stringToTag(codec);
    if (video && vrex::media::tagKind(tag) != 'V') return false;
    const dts_cts_t ts(dts, rate, cts);
    NoteFirst(ts);
    Sink& sink = Target();
    const long start = static_cast<long>(sink.data.size());
    sink.Expect(_payload.data());
    const long written = video ? TargetWriter().WriteVideoData(_payload.data(), _payload.size(), ts, key != 0, tag)
                               : TargetWriter().WriteAudioData(_payload.data(), _payload.size(), ts);
    if (written < 0 || sink.PayloadOffset() < 0) return false;
    _frames.push_back({sink.PayloadOffset(), static_cast<long>(_payload.size())});
    if (_contents && video && key != 0 && _sync.IsValid()) {
      const long entry = _syncEnd == start ? _syncStart : start;
      _seekPoints.push_back({entry, _sync.ComputeWallClock(ts.Dts(), 1000)});
    }
    return true;
  }

  bool Pad(std::istringstream& in) {
    long size = 0;
    if (!(in >> size) || _contents) return false;
    long remaining = size - _file.Position();
    while (remaining > 0) {
      const long payload = vrex::mediaformats::GetSkipPacketPayloadLength(remaining);
      if (payload < 0) return false;
      unsigned char header[12], trailer[4];
      if (_fileWriter->ComputeSkipPacketHeaderAndFooter(static_cast<unsigned>(payload), header, trailer) < 0) {
        return false;
      }
      _file.data.insert(_file.data.end(), header, header + sizeof header);
      if (!_file.MoveTo(_out) || !_file.ZerosTo(_out, payload)) return false;
      _file.data.insert(_file.data.end(), trailer, trailer + sizeof trailer);
      remaining -= payload + 16;
    }
    return remaining == 0;
  }

  // Only before anything is written: a new writer starts its sequence numbers afresh.
  bool Fragments(std::istringstream& in) {
    unsigned max = 0;
    if (!(in >> max) || max == 0 || _contents || _file.Position() != 0) return false;
    _maxPacketPayload = max;
    int err = 0;
    _fileWriter = WriterVREX::Create(_maxPacketPayload, &_file, err);
    return _fileWriter != nullptr;
  }

  void NoteFirst(const dts_cts_t& ts) {
    if (_contents && _firstTs.dts < 0) _firstTs = ts;
  }

  static void PutBE64(std::vector<unsigned char>& out, long value) {
    for (int shift = 56; shift >= 0; shift -= 8) out.push_back(static_cast<unsigned char>(value >> shift));
  }

  FILE* _out;
  unsigned _maxPacketPayload = 0x7FFFFFFF;
  Sink _file;  // what goes to _out next
  std::unique_ptr<WriterVREX> _fileWriter;
  std::unique_ptr<Sink> _contents;  // the open partition's packets
  std::unique_ptr<WriterVREX> _contentsWriter;
  std::vector<unsigned char> _fixed, _dynamic, _payload;
  dts_cts_t _firstTs;
  clock_sync_t _sync;
  long _syncStart = -1, _syncEnd = -1;
  std::vector<seek_record_t> _seekPoints;
  size_t _firstFrame = 0;
  std::vector<frame_record_t> _frames;
  std::vector<partition_record_t> _partitions;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    fprintf(stderr, "usage: vrx_write OUTPUT.vrx [DESCRIPTION]\n");
    return 2;
  }
  std::ifstream file;
  if (argc == 3) file.open(argv[2]);
  std::istream& in = argc == 3 ? static_cast<std::istream&>(file) : std::cin;
  FILE* out = fopen(argv[1], "wb");
  if (out == nullptr) {
    fprintf(stderr, "vrx_write: cannot open %s: %s\n", argv[1], strerror(errno));
    return 1;
  }
  Builder builder(out);
  std::string line;
  for (unsigned number = 1; std::getline(in, line); ++number) {
    if (!builder.Command(line)) {
      fprintf(stderr, "vrx_write: line %u cannot be written: %s\n", number, line.c_str());
      fclose(out);
      return 1;
    }
  }
  if (fclose(out) != 0 || !builder.Finish()) {
    fprintf(stderr, "vrx_write: %s not complete (a partition left open?)\n", argv[1]);
    return 1;
  }
  builder.PrintManifest();
  return 0;
}
