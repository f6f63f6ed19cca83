// VREXFileAppender on real files: sources written by WriterVREX from the ffmpeg-made fixtures,
// appended into preallocated files as new partitions and as growth, then read back with
// ReaderVREX and walked through the skip chain to the last byte.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "abstraction/byte_order.h"
#include "abstraction/errors.h"
#include "mediaformats/errors.h"
#include "scratch_mount.h"
#include "vrx_append_util.h"
#include "vrxfile/vrex_file_appender.h"
#include "vrxfile/vrex_file_appender_cache.h"
#include "vrxfile/vrex_file_recover.h"

namespace vrex {
namespace mediaformats {
namespace {

using namespace vrx_testing;
using internal::VREXFileAppender;

Bytes Pattern(size_t size, unsigned char seed) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(seed + 7 * i);
  return bytes;
}

// The used part of a managed file: where its skip chain starts.
long UsedBytes(const std::string& path) {
  int err = 0;
  const std::vector<partition_t> partitions = ReadPartitions(path, err);
  return partitions.empty() ? 0 : partitions.back()._offset + partitions.back()._size;
}

shape_t Variant(int n, const char* kind) {
  shape_t shape = NumberedShape(n);
  const std::string name = kind;
  if (name == "fragmented") shape.fragmentLimit = 256;
  if (name == "dts64") shape.dtsBase = 0x100000000L + 12345;
  if (name == "cts") shape.withCts = true;
  if (name == "explicit-rate") shape.videoRate = 25000;
  if (name == "sync-once") shape.syncBeforeKey = false;
  if (name == "audio-first") shape.audioBeforeSync = true;
  if (name == "bare") shape.partitioned = false;
  return shape;
}

TEST(VrxAppenderTest, AppendsAsNewPartitionsAndGrowth) {
  struct step_t {
    const char* kind;  // of the source, see Variant
    bool createNew;
    size_t dynamicLength;
  };
  struct scenario_t {
    const char* name;
    std::vector<step_t> steps;
  };
  const scenario_t scenarios[] = {
      {"growth", {{"plain", false, 0}, {"plain", false, 0}, {"plain", false, 0}}},
      {"new partitions, metadata of every padding",
       {{"plain", true, 0}, {"plain", true, 1}, {"plain", true, 5}, {"plain", true, 20}, {"plain", false, 0}}},
      {"packet shapes",
       {{"fragmented", false, 3}, {"dts64", false, 0}, {"cts", true, 2}, {"explicit-rate", false, 0},
        {"sync-once", false, 0}, {"dts64", true, 0}, {"cts", false, 0}}},
      {"audio before the first sync node", {{"audio-first", true, 0}, {"audio-first", false, 0}, {"plain", false, 0}}},
      {"bare packets", {{"bare", false, 0}, {"plain", false, 0}, {"bare", false, 0}, {"bare", true, 4}}},
  };
  for (const scenario_t& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    Destination dst(1 << 20);
    std::vector<std::unique_ptr<source_t>> sources;
    std::vector<expected_partition_t> want;
    for (const step_t& step : scenario.steps) {
      sources.push_back(WriteSource(Variant(static_cast<int>(sources.size()), step.kind)));
      const Bytes fixed = Pattern(12, static_cast<unsigned char>(sources.size()));
      const Bytes dynamic = Pattern(step.dynamicLength, 0x40);
      const long before = UsedBytes(dst.path());
      const long added = dst.Append(sources.back()->file.path(), step.createNew, fixed, dynamic);
      if (step.createNew || want.empty()) want.push_back({fixed, dynamic, {}});
      want.back().sources.push_back(sources.back().get());
      EXPECT_EQ(added, UsedBytes(dst.path()) - before) << step.kind;
      ASSERT_EQ(Mismatch(dst.path(), want), "") << "after " << sources.size() << " appends";
    }
    // One span of recording per partition, from its first to its last seek point: the sources
    // follow each other within 20 s.
    int err = 0;
    auto reader = ReaderVREX::Create(nullptr, dst.path().c_str(), true, 0, -1, err);
    std::vector<fragment_t> fragments;
    ASSERT_EQ(reader->ListFragments(0, 0, fragments), 0);
    ASSERT_EQ(fragments.size(), want.size());
    for (const fragment_t& fragment : fragments) {
      const partition_t* partition = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err);
      ASSERT_NE(partition, nullptr);
      EXPECT_EQ(fragment.start, partition->_pSeekPoints[0]._wallClockMillis);
      EXPECT_EQ(fragment.end, partition->_pSeekPoints[partition->_seekPointsCount - 1]._wallClockMillis);
    }
  }
}

TEST(VrxAppenderTest, SourceWithSeveralPartitionsGrowsOnePartition) {
  const auto first = WriteSource(NumberedShape(0));
  const auto second = WriteSource(NumberedShape(1, 30, 40));
  Bytes both;
  PlacePartition(both, first->recording.bytes);
  PlacePartition(both, second->recording.bytes);
  TempFile source(both);
  Destination dst(1 << 20);
  ASSERT_GT(dst.Append(source.path(), true), 0);
  EXPECT_EQ(Mismatch(dst.path(), {{Bytes(12, 0), {}, {first.get(), second.get()}}}), "");
}

TEST(VrxAppenderTest, FillsUpThenRefusesWithoutTouchingTheFile) {
  Destination dst(64 * 1024);
  std::vector<std::unique_ptr<source_t>> sources;
  std::vector<expected_partition_t> want;
  for (int n = 0;; ++n) {
    sources.push_back(WriteSource(NumberedShape(n)));
    const bool createNew = n % 3 == 1;
    const Bytes before = ReadFileBytes(dst.path());
    const long added = dst.Append(sources.back()->file.path(), createNew);
    if (added == ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE) {
      EXPECT_EQ(ReadFileBytes(dst.path()), before) << "a refused append writes nothing";
      EXPECT_GT(n, 5);
      break;
    }
    ASSERT_GT(added, 0);
    if (createNew || want.empty()) want.push_back({});
    want.back().sources.push_back(sources.back().get());
  }
  EXPECT_EQ(Mismatch(dst.path(), want), "");
}

TEST(VrxAppenderTest, FreeSpaceMustLeaveOneSkipPacket) {
  const auto first = WriteSource(NumberedShape(0));
  const auto second = WriteSource(NumberedShape(1));
  // What each append needs: measured on a roomy file, then given exactly (slack 16) or less.
  Destination roomy(1 << 20);
  const long firstSize = roomy.Append(first->file.path(), true);
  const long grown = roomy.Append(second->file.path(), false);
  ASSERT_GT(firstSize, 0);
  ASSERT_GT(grown, 0);
  struct row_t {
    bool grow;
    long slack;
    long result;
  };
  const row_t rows[] = {{false, 16, firstSize}, {false, 12, ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE},
                        {true, 16, grown}, {true, 12, ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE}};
  for (const row_t& row : rows) {
    Destination dst(firstSize + (row.grow ? grown : 0) + row.slack);
    if (row.grow) {
      ASSERT_EQ(dst.Append(first->file.path(), true), firstSize);
    }
    const Bytes before = ReadFileBytes(dst.path());
    EXPECT_EQ(dst.Append((row.grow ? second : first)->file.path(), false), row.result);
    if (row.result < 0) {
      EXPECT_EQ(ReadFileBytes(dst.path()), before);
      continue;
    }
    std::vector<expected_partition_t> want = {{Bytes(12, 0), {}, {first.get()}}};
    if (row.grow) want[0].sources.push_back(second.get());
    EXPECT_EQ(Mismatch(dst.path(), want), "") << "one empty skip packet ends the file";
  }
}

// A source of the given packets only, as WriterVREX writes them in a partition.
Bytes PacketsOnly(bool withSync, bool withAudio) {
  static const std::vector<fixture_frame_t> audio = LoadFixture("aac_8000.aac");
  ByteSink sink;
  int err = 0;
  auto writer = WriterVREX::Create(0xFFFFFFFF, &sink, err);
  WriterVREX::partition_info_t info;
  writer->OpenPartition(&info);
  media::clock_sync_t sync;
  sync.sc = media::timestamp_t(0, 90000);
  sync.wc = media::timestamp_t(1763800000000L, 1000);
  if (withSync) writer->WriteClockSync(sync);
  for (size_t i = 0; withAudio && i < 10; ++i) {
    writer->WriteAudioData(audio[i].bytes.data(), audio[i].bytes.size(), media::dts_cts_t(audio[i].dts, 8000));
  }
  writer->ClosePartition();
  return sink.bytes;
}

TEST(VrxAppenderTest, BadSourcesLeaveTheDestinationAlone) {
  const auto good = WriteSource(NumberedShape(0));
  const Bytes& bytes = good->recording.bytes;
  Bytes noFooter = bytes;
  std::fill(noFooter.end() - 40, noFooter.end(), 0);
  Destination dst(1 << 20);
  ASSERT_GT(dst.Append(good->file.path(), true), 0);
  const std::string link = dst.path() + ".link";
  ASSERT_EQ(::link(dst.path().c_str(), link.c_str()), 0);
  struct row_t {
    const char* name;
    Bytes bytes;
    const char* path;  // instead of the bytes
    int result;
  };
  const row_t rows[] = {
      {"audio without a sync node", PacketsOnly(false, true), nullptr, ERR_MEDIAFORMATS_NO_SYNC_NODE},
      {"a sync node and no frame", PacketsOnly(true, false), nullptr, ERR_MEDIAFORMATS_NO_SYNC_NODE},
      {"empty", Bytes(), nullptr, ERR_MEDIAFORMATS_INCORRECT_OFFSET},
      {"cut in half", Bytes(bytes.begin(), bytes.begin() + bytes.size() / 2), nullptr,
       ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
      {"footer lost", noFooter, nullptr, ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
      {"missing", Bytes(), "/tmp/vidora-no-such-source.vrx", static_cast<int>(0x80000002)},
      {"the destination", Bytes(), dst.path().c_str(), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS},
      {"a link to the destination", Bytes(), link.c_str(), ERR_MEDIAFORMATS_INCORRECT_PARAMETERS},
  };
  for (const row_t& row : rows) {
    TempFile source(row.bytes);
    const Bytes before = ReadFileBytes(dst.path());
    // Refused as a new partition and as growth alike.
    const bool createNew = (&row - rows) % 2 == 0;
    EXPECT_EQ(dst.Append(row.path ? row.path : source.path(), createNew), row.result) << row.name;
    EXPECT_EQ(ReadFileBytes(dst.path()), before) << row.name;
  }
  unlink(link.c_str());
  const auto next = WriteSource(NumberedShape(1));
  ASSERT_GT(dst.Append(next->file.path(), false), 0);
  EXPECT_EQ(Mismatch(dst.path(), {{Bytes(12, 0), {}, {good.get(), next.get()}}}), "");
}

TEST(VrxAppenderTest, BadDestinationsAreRefusedUnchanged) {
  const auto source = WriteSource(NumberedShape(0));
  Bytes mediaBeforeChain;  // bare packets where a footer should end the used part
  mediaBeforeChain = WriteSource(Variant(1, "bare"))->recording.bytes;
  const Bytes chain = SkipRun(4096);
  mediaBeforeChain.insert(mediaBeforeChain.end(), chain.begin(), chain.end());
  struct row_t {
    const char* name;
    Bytes bytes;
    int result;
  };
  const row_t rows[] = {
      {"empty, not preallocated", Bytes(), ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE},
      {"a recording, not managed", source->recording.bytes, ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE},
      {"text", Bytes(4000, 'x'), ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
      {"odd size", Bytes(4001, 0), ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
      {"no footer before the free space", mediaBeforeChain, ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT},
  };
  for (const row_t& row : rows) {
    TempFile file(row.bytes);
    const abstraction::file_id_t id = IdOf(file.path());
    int err = 0;
    auto appender = VREXFileAppender::Create(id, err);
    const long result = appender ? appender->Append(source->file.path(), nullptr, nullptr, 0, true) : err;
    appender.reset();
    internal::VREXFileAppenderCache::Evict(id);
    EXPECT_EQ(result, row.result) << row.name;
    EXPECT_EQ(ReadFileBytes(file.path()), row.bytes) << row.name;
  }
}

TEST(VrxAppenderTest, ReadOnlyDestinationIsRefused) {
  vidora_testing::ScratchMount mount("tmpfs", "size=2m");
  if (!mount.ok()) GTEST_SKIP() << "cannot mount tmpfs here";
  const std::string path = mount.File("ro.vrx");
  CreateManagedFile(path, 1 << 20);
  ASSERT_TRUE(mount.RemountReadOnly());
  const abstraction::file_id_t id = IdOf(path);
  int err = 0;
  EXPECT_EQ(VREXFileAppender::Create(id, err), nullptr);
  EXPECT_EQ(err, ::vrex::errors::SystemError(EROFS));
  Bytes empty = SkipRun(1 << 20);
  std::fill(empty.begin() + 12, empty.end() - 4, 0);  // fallocate's zeros in the payload
  EXPECT_EQ(ReadFileBytes(path), empty);
}

TEST(VrxAppenderTest, FullFileSystem) {
  vidora_testing::ScratchMount mount("tmpfs", "size=2m");
  if (!mount.ok()) GTEST_SKIP() << "cannot mount tmpfs here";
  // A preallocated file keeps taking appends on a file system that has no byte left.
  const std::string path = mount.File("full.vrx");
  CreateManagedFile(path, 256 * 1024);
  ASSERT_TRUE(mount.FillUp("filler"));
  abstraction::file_id_t id = IdOf(path);
  int err = 0;
  auto appender = VREXFileAppender::Create(id, err);
  ASSERT_NE(appender, nullptr);
  std::vector<std::unique_ptr<source_t>> sources;
  expected_partition_t want;
  for (long added = 1; added > 0;) {
    sources.push_back(WriteSource(NumberedShape(static_cast<int>(sources.size()))));
    added = appender->Append(sources.back()->file.path(), want.fixed.data(), nullptr, 0, false);
    if (added > 0) want.sources.push_back(sources.back().get());
    EXPECT_TRUE(added > 0 || added == ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE) << added;
  }
  EXPECT_GT(want.sources.size(), 10u);
  EXPECT_EQ(Mismatch(path, {want}), "");
  appender.reset();
  internal::VREXFileAppenderCache::Evict(id);

  // A sparse destination has no room reserved: the growth of its tail partition stops in the
  // middle of its copy, and salvage gets back all that was there, and what of the copy landed.
  unlink(mount.File("filler").c_str());
  const std::string sparse = mount.File("sparse.vrx");
  const int fd = open(sparse.c_str(), O_RDWR | O_CREAT, 0644);
  ASSERT_EQ(ftruncate(fd, 1 << 20), 0);
  ASSERT_EQ(VREXFileAppender::AddSkipPackets(fd, 0, -1, false), 0);
  close(fd);
  id = IdOf(sparse);
  appender = VREXFileAppender::Create(id, err);
  ASSERT_GT(appender->Append(sources[0]->file.path(), want.fixed.data(), nullptr, 0, true), 0);
  ASSERT_GT(appender->Append(sources[1]->file.path(), want.fixed.data(), nullptr, 0, true), 0);
  ASSERT_TRUE(mount.FillUp("filler"));
  const long torn = appender->Append(sources[2]->file.path(), want.fixed.data(), nullptr, 0, false);
  EXPECT_TRUE(torn == ::vrex::errors::SystemError(ENOSPC) || torn == abstraction::ERR_ABSTRACTION_WRITE_INCOMPLETE) << torn;
  appender.reset();
  internal::VREXFileAppenderCache::Evict(id);
  last_partition_info_t info;
  ASSERT_EQ(internal::VREXFileRecover(sparse, &info, true).Recover(), 0);
  std::vector<expected_partition_t> kept = {{want.fixed, {}, {sources[0].get()}},
                                            {want.fixed, {}, {sources[1].get(), sources[2].get()}}};
  std::string mismatch = "no prefix of the torn append matches";
  for (size_t frames = 0; frames <= sources[2]->frameEnds.size() && !mismatch.empty(); ++frames) {
    kept[1].sources.back().frames = frames;
    mismatch = Mismatch(sparse, kept, false);
  }
  EXPECT_EQ(mismatch, "");
}

// Copies of wall-clock selections out of two recording files, each row stating which part of
// which partition must land: seek points [first, end] (end's offset ends the contents; -1:
// the contents end, with the entries to the last).
TEST(VrxAppenderTest, CopiesWallClockSelections) {
  std::vector<std::unique_ptr<source_t>> sources;
  Destination a(1 << 20), b(1 << 20);
  const int layout[][2] = {{0, true}, {1, false}, {2, true}, {3, true}, {4, false}};
  for (const auto& step : layout) {
    sources.push_back(WriteSource(NumberedShape(step[0])));
    ASSERT_GT((step[0] < 3 ? a : b).Append(sources.back()->file.path(), step[1]), 0);
  }
  internal::VREXFileAppenderCache::Evict(a.id());
  internal::VREXFileAppenderCache::Evict(b.id());
  std::vector<std::pair<std::string, partition_t>> partitions;  // A0, A1, B0
  for (const Destination* file : {&a, &b}) {
    int err = 0;
    for (const partition_t& p : ReadPartitions(file->path(), err)) partitions.push_back({file->path(), p});
  }
  ASSERT_EQ(partitions.size(), 3u);
  struct cut_t {
    int partition;
    int first, end;
  };
  struct row_t {
    long start, end;  // from the first wall clock
    std::vector<cut_t> cuts;
  };
  const row_t rows[] = {
      {0, 20000, {{0, 0, -1}, {1, 0, -1}, {2, 0, -1}}},   // all whole
      {4100, 4600, {{0, 2, -1}}},                         // within one partition, to its end
      {100, 4200, {{0, 0, 3}}},                           // within one, cut before a key frame
      {4200, 12200, {{0, 2, -1}, {1, 0, -1}, {2, 0, 1}}}, // tail, whole, head
      {8000, 8000, {{1, 0, 1}}},
      {9500, 11000, {}},                                  // between partitions: nothing
  };
  const long base = NumberedShape(0).wallClockBase;
  for (const row_t& row : rows) {
    SCOPED_TRACE(std::to_string(row.start) + ".." + std::to_string(row.end));
    Destination dst(1 << 20);
    int err = 0;
    auto appender = VREXFileAppender::Create(dst.id(), err);
    const long required = appender->Append({a.path(), b.path()}, base + row.start, base + row.end);
    appender.reset();
    Bytes contents;
    std::vector<seek_point_t> points;  // offsets from the destination's contents start
    std::vector<frame_record_t> frames;
    for (const cut_t& cut : row.cuts) {
      const partition_t& p = partitions[cut.partition].second;
      const long from = cut.first == 0 && cut.end == -1 ? p._contents._offset : p._pSeekPoints[cut.first]._offset;
      const long to = cut.end == -1 ? p._contents._offset + p._contents._size : p._pSeekPoints[cut.end]._offset;
      const unsigned long last = cut.end == -1 ? p._seekPointsCount - 1 : cut.end;
      for (unsigned long i = cut.first; i <= last; ++i) {
        points.push_back({p._pSeekPoints[i]._offset - from + static_cast<long>(contents.size()),
                          p._pSeekPoints[i]._wallClockMillis});
      }
      const Bytes file = ReadFileBytes(partitions[cut.partition].first);
      contents.insert(contents.end(), file.begin() + from, file.begin() + to);
      auto reader = ReaderVREX::Create(nullptr, partitions[cut.partition].first.c_str(), true, from, to - from, err);
      const std::vector<frame_record_t> part = ReadAll(*reader, err);
      frames.insert(frames.end(), part.begin(), part.end());
    }
    if (row.cuts.empty()) {
      EXPECT_EQ(required, 0);
      EXPECT_EQ(UsedBytes(dst.path()), 0);
      continue;
    }
    auto reader = ReaderVREX::Create(nullptr, dst.path().c_str(), true, 0, -1, err);
    const partition_t* read = reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err);
    ASSERT_NE(read, nullptr);
    const partition_t copyOf = *read;
    const partition_t* copy = &copyOf;
    EXPECT_EQ(required, copy->_size);
    EXPECT_EQ(Bytes(12, 0), Bytes(copy->_fixedMetadata, copy->_fixedMetadata + 12));
    const Bytes file = ReadFileBytes(dst.path());
    EXPECT_EQ(Bytes(file.begin() + copy->_contents._offset,
                    file.begin() + copy->_contents._offset + copy->_contents._size), contents);
    ASSERT_EQ(copy->_seekPointsCount, points.size());
    for (size_t i = 0; i < points.size(); ++i) {
      EXPECT_EQ(copy->_pSeekPoints[i]._offset, points[i]._offset + copy->_contents._offset) << i;
      EXPECT_EQ(copy->_pSeekPoints[i]._wallClockMillis, points[i]._wallClockMillis) << i;
    }
    EXPECT_EQ(reader->ReadPartition(PARTITION_LAST_TIMESTAMP_NONE, err), nullptr);
    reader = ReaderVREX::Create(nullptr, dst.path().c_str(), true, 0, -1, err);
    ExpectFrames(ReadAll(*reader, err), frames, "frames of the copy");
    std::string error;
    EXPECT_EQ(WalkSkipChain(dst.path(), copy->_offset + copy->_size, error), copy->_offset + copy->_size) << error;
  }
  // The space test looks at the destination's tail partition, which here outgrows a small
  // selection: refused, as it always was, and the file is left alone.
  Destination big(1 << 20);
  for (int n = 0; n < 4; ++n) ASSERT_GT(big.Append(sources[n]->file.path(), false), 0);
  const Bytes before = ReadFileBytes(big.path());
  int err = 0;
  auto appender = VREXFileAppender::Create(big.id(), err);
  EXPECT_EQ(appender->Append({a.path()}, base + 8000, base + 8000), ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE);
  EXPECT_EQ(ReadFileBytes(big.path()), before);
}

// Skip packets over ranges up to past 4 GiB, on sparse files: only headers and trailers are
// written, so the payload keeps its bytes unless zeroing is asked for.
TEST(VrxAppenderTest, LaysSkipPackets) {
  struct row_t {
    long fileSize, position, offset, length;
    bool zero;
    int result;
    std::vector<long> payloads;  // of the packets laid, from the range's start
  };
  const long k4G = 0x100000000L;
  const row_t rows[] = {
      {4096, 0, 0, 4096, false, 0, {4096 - 16}},
      {4096, 0, 1024, -1, true, 0, {3072 - 16}},
      {4096, 2048, -1, -1, false, 0, {2048 - 16}},
      {4096, 0, 4080, 16, false, 0, {0}},
      {k4G, 0, 0, -1, false, 0, {k4G - 16}},
      {k4G + 8, 0, 0, -1, false, 0, {k4G + 8 - 32, 0}},
      {k4G + 16, 0, 0, -1, false, 0, {k4G - 16, 0}},
      {2 * k4G + 64, 0, 0, -1, false, 0, {k4G - 16, k4G - 16, 64 - 16}},
      {4096, 0, 0, 0, false, 0, {}},
      {4096, 0, 2, 16, false, ERR_MEDIAFORMATS_INCORRECT_PARAMETERS, {}},
      {4096, 0, 0, 18, false, ERR_MEDIAFORMATS_INCORRECT_PARAMETERS, {}},
      {4096, 0, 4000, 100, false, ERR_MEDIAFORMATS_INCORRECT_PARAMETERS, {}},
      {4096, 0, 5000, -1, false, ERR_MEDIAFORMATS_INCORRECT_PARAMETERS, {}},
      {4096, 0, 0, 12, false, ERR_MEDIAFORMATS_INVALID_FILE_SIZE, {}},
  };
  for (const row_t& row : rows) {
    SCOPED_TRACE(std::to_string(row.fileSize) + " " + std::to_string(row.offset) + "+" + std::to_string(row.length));
    TempFile file;
    const int fd = open(file.path().c_str(), O_RDWR);
    ASSERT_EQ(ftruncate(fd, row.fileSize), 0);
    const long start = row.offset < 0 ? row.position : row.offset;
    const unsigned char old[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    if (start + 24 <= row.fileSize) {
      ASSERT_EQ(pwrite(fd, old, 4, start + 20), 4);  // in the first payload
    }
    lseek(fd, row.position, SEEK_SET);
    EXPECT_EQ(VREXFileAppender::AddSkipPackets(fd, row.offset, row.length, row.zero), row.result);
    long at = start;
    for (const long payload : row.payloads) {
      unsigned char header[12], trailer[4];
      ASSERT_EQ(pread(fd, header, 12, at), 12);
      ASSERT_EQ(pread(fd, trailer, 4, at + 12 + payload), 4);
      EXPECT_EQ(Bytes(header, header + 8), Bytes(kSkipPacketHeader, kSkipPacketHeader + 8));
      EXPECT_EQ(abstraction::LoadBE32(header + 8), payload);
      EXPECT_EQ(abstraction::LoadBE32(trailer), payload + 12);
      at += payload + 16;
    }
    unsigned char kept[4];
    if (!row.payloads.empty() && row.payloads[0] >= 12 && pread(fd, kept, 4, start + 20) == 4) {
      EXPECT_EQ(kept[0], row.zero ? 0 : 0xEE) << "the payload is left alone unless zeroed";
    }
    close(fd);
    if (row.offset == 0 && row.length == -1) {
      // The appender finds the same packets backward from the end: all of the file is free.
      const abstraction::file_id_t id = IdOf(file.path());
      int err = 0;
      auto appender = VREXFileAppender::Create(id, err);
      ASSERT_NE(appender, nullptr);
      EXPECT_EQ(appender->FreeSpace()._offset, 0);
      EXPECT_EQ(appender->FreeSpace()._size, row.fileSize);
      appender.reset();
      internal::VREXFileAppenderCache::Evict(id);
    }
  }
}

}  // namespace
}  // namespace mediaformats
}  // namespace vrex
