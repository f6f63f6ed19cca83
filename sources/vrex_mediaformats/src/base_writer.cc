// The tagged write forms that writers without codec tags leave alone.
#include "mediaformats/base_writer.h"

namespace vrex {
namespace mediaformats {

int BaseWriter::WriteVideoData(const void*, size_t, const media::dts_cts_t&, bool, unsigned long) {
  return 0;
}

int BaseWriter::WriteAudioData(const void*, size_t, const media::dts_cts_t&, unsigned long) {
  return 0;
}

}  // namespace mediaformats
}  // namespace vrex
