// libFuzzer target: ReaderMp4 over arbitrary bytes in memory. Every frame it lists is read
// back through its data source, so offsets and sizes out of the input show up as failures of
// the read, never as reads outside it.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "abstraction/datasource.h"
#include "mediaformats/mp4/reader_mp4.h"

namespace {
class NullObserver : public vrex::mediaformats::ReaderMp4::Observer {};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static NullObserver observer;
  int error = 0;
  vrex::abstraction::DataSource* source = vrex::abstraction::DataSource::GetInstance(data, size, error);
  std::unique_ptr<vrex::mediaformats::ReaderMp4> reader(vrex::mediaformats::ReaderMp4::Create(&observer, source, error));
  if (!reader) return 0;
  std::vector<unsigned char> payload;
  while (const vrex::media::frame_t* frame = reader->ReadFrame(error)) {
    if (frame->size <= 0 || frame->offset < 0 || frame->size > static_cast<int64_t>(size)) continue;
    payload.resize(static_cast<size_t>(frame->size));
    int peekError = 0;
    frame->pDataSource->PeekBuffer(payload.data(), frame->offset, payload.size(), peekError);
  }
  reader->SeekToWallClock(0, vrex::mediaformats::SNAP_TO_IDR_BEFORE);
  return 0;
}
