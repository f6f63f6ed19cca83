// vrx_walk: reads every frame of a .vrx file with ReaderVREX, as a baseline for the listing
// benchmark and as the reference of the frame rows that `vidora frames` prints.
//
// Usage: vrx_walk FILE            prints {"frames":N,"bytes":B,"micros":T} (payloads not read)
//        vrx_walk FILE --rows     prints frame_t::ToString's header and rows (own clock rate)
//        vrx_walk FILE --human    the same with the human wall clock
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "media/frame.h"
#include "mediaformats/vrx/reader_vrex.h"

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    fprintf(stderr, "usage: vrx_walk FILE [--rows|--human]\n");
    return 2;
  }
  const bool rows = argc == 3 && strcmp(argv[2], "--rows") == 0;
  const bool human = argc == 3 && strcmp(argv[2], "--human") == 0;
  const auto start = std::chrono::steady_clock::now();
  vrex::mediaformats::ReaderVREX::Observer observer;
  int err = 0;
  std::unique_ptr<vrex::mediaformats::ReaderVREX> reader =
      vrex::mediaformats::ReaderVREX::Create(&observer, argv[1], false, 0, -1, err);
  if (reader == nullptr) {
    fprintf(stderr, "vrx_walk: cannot read %s: err=0x%08x\n", argv[1], static_cast<unsigned>(err));
    return 1;
  }
  if (rows || human) printf("%s\n", vrex::media::frame_t::ToStringHeader(human));
  long frames = 0;
  long bytes = 0;
  while (const vrex::media::frame_t* frame = reader->ReadFrame(err)) {
    ++frames;
    bytes += static_cast<long>(frame->size);
    if (rows || human) {
      const unsigned rate = frame->dtsCts.dts >= 0 ? frame->dtsCts.clockRate : 0;
      printf("%s\n", frame->ToString(rate, -1, human).c_str());
    }
  }
  if (err < 0) {
    fprintf(stderr, "vrx_walk: read failed: err=0x%08x\n", static_cast<unsigned>(err));
    return 1;
  }
  const long micros = static_cast<long>(std::chrono::duration_cast<std::chrono::microseconds>(
                                            std::chrono::steady_clock::now() - start).count());
  if (!rows && !human) printf("{\"frames\":%ld,\"bytes\":%ld,\"micros\":%ld}\n", frames, bytes, micros);
  return 0;
}
