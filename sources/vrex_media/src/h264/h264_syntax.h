// Pieces of H.264 syntax shared by the SPS and PPS parsers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "media/bitsreaderstate.h"

namespace ms {
namespace media {
namespace h264 {

// scaling_list() of 7.3.2.1.1.1, values thrown away. `context` names the list in the failure
// log. Returns 0, the bit reader's code, or ERR_MEDIA_CODEC_PARAMETERS for a delta_scale
// outside -128..127.
int SkipScalingList(BitsReaderState& bits, size_t sizeOfList, const char* context);

// The scaling list present flags and lists of an SPS or PPS: `count` lists, the first six of
// 16 entries. Each flag read is stored in `flags` when not null.
int SkipScalingLists(BitsReaderState& bits, size_t count, const char* context,
                     std::vector<uint64_t>* flags);

}  // namespace h264
}  // namespace media
}  // namespace ms
