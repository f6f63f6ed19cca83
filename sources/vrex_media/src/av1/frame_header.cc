// AV1 uncompressed frame header (AV1 specification 5.9.2 to 5.9.6), through frame size,
// render size and allow_intrabc, with the reference slots' sizes carried in OBPState.
#include <cstring>

#include "bit_reader.h"
#include "media/av1/av1.h"

namespace ms {
namespace media {
namespace av1 {

namespace {
using internal::BitReader;

constexpr uint8_t kPrimaryRefNone = 7;
constexpr uint8_t kAllFrames = 0xFF;
constexpr unsigned kRefsPerFrame = 7;
constexpr unsigned kSelect = 2;

struct Sizes {
  uint32_t upscaledWidth = 0;
  uint32_t frameHeight = 0;
  uint32_t renderWidth = 0;
  uint32_t renderHeight = 0;
};

void SuperresParams(BitReader& br, const OBPSequenceHeader& sh, OBPFrameHeader& fh) {
  fh.use_superres = sh.enable_superres ? static_cast<uint8_t>(br.f(1)) : 0;
  if (fh.use_superres) fh.coded_denom = static_cast<uint8_t>(br.f(3));
}

void FrameSize(BitReader& br, const OBPSequenceHeader& sh, OBPFrameHeader& fh, Sizes& sizes) {
  if (fh.frame_size_override_flag) {
    fh.frame_width_minus_1 = br.f(sh.frame_width_bits_minus_1 + 1u);
    fh.frame_height_minus_1 = br.f(sh.frame_height_bits_minus_1 + 1u);
  } else {
    fh.frame_width_minus_1 = sh.max_frame_width_minus_1;
    fh.frame_height_minus_1 = sh.max_frame_height_minus_1;
  }
  SuperresParams(br, sh, fh);
  sizes.upscaledWidth = fh.frame_width_minus_1 + 1;
  sizes.frameHeight = fh.frame_height_minus_1 + 1;
}

void RenderSize(BitReader& br, OBPFrameHeader& fh, Sizes& sizes) {
  fh.render_and_frame_size_different = static_cast<uint8_t>(br.f(1));
  if (fh.render_and_frame_size_different) {
    fh.render_width_minus_1 = br.f(16);
    fh.render_height_minus_1 = br.f(16);
    sizes.renderWidth = fh.render_width_minus_1 + 1;
    sizes.renderHeight = fh.render_height_minus_1 + 1;
  } else {
    sizes.renderWidth = sizes.upscaledWidth;
    sizes.renderHeight = sizes.frameHeight;
  }
}

// frame_size_with_refs(): the size of a reference slot, or an explicit one.
void FrameSizeWithRefs(BitReader& br, const OBPSequenceHeader& sh, const OBPState& state,
                       OBPFrameHeader& fh, Sizes& sizes) {
  for (unsigned i = 0; i < kRefsPerFrame; ++i) {
    if (br.f(1)) {  // found_ref
      const unsigned slot = fh.ref_frame_idx[i];
      sizes.upscaledWidth = state.RefUpscaledWidth[slot];
      sizes.frameHeight = state.RefFrameHeight[slot];
      sizes.renderWidth = state.RefRenderWidth[slot];
      sizes.renderHeight = state.RefRenderHeight[slot];
      fh.frame_width_minus_1 = sizes.upscaledWidth - 1;
      fh.frame_height_minus_1 = sizes.frameHeight - 1;
      SuperresParams(br, sh, fh);
      return;
    }
  }
  FrameSize(br, sh, fh, sizes);
  RenderSize(br, fh, sizes);
}

void ParseInterRefs(BitReader& br, const OBPSequenceHeader& sh, OBPFrameHeader& fh) {
  fh.frame_refs_short_signaling = sh.enable_order_hint ? static_cast<uint8_t>(br.f(1)) : 0;
  if (fh.frame_refs_short_signaling) {
    fh.last_frame_idx = static_cast<uint8_t>(br.f(3));
    fh.gold_frame_idx = static_cast<uint8_t>(br.f(3));
  }
  for (unsigned i = 0; i < kRefsPerFrame; ++i) {
    // With short signalling the slots would be derived from order hints; the sizes here
    // only need a slot, and the last frame's is the closest guess.
    fh.ref_frame_idx[i] =
        fh.frame_refs_short_signaling ? fh.last_frame_idx : static_cast<uint8_t>(br.f(3));
    if (sh.frame_id_numbers_present_flag) br.f(sh.delta_frame_id_length_minus_2 + 2u);
  }
}

void ParseFrameHeader(BitReader& br, const OBPSequenceHeader& sh, OBPState& state, int temporal_id,
                      int spatial_id, OBPFrameHeader& fh) {
  const unsigned idLen =
      sh.frame_id_numbers_present_flag
          ? sh.additional_frame_id_length_minus_1 + sh.delta_frame_id_length_minus_2 + 3u
          : 0;
  const bool temporalPointInfo =
      sh.decoder_model_info_present_flag && !sh.timing_info.equal_picture_interval;
  const unsigned presentationTimeBits =
      sh.decoder_model_info.frame_presentation_time_length_minus_1 + 1u;
  if (sh.reduced_still_picture_header) {
    fh.frame_type = OBP_KEY_FRAME;
    fh.show_frame = 1;
  } else {
    fh.show_existing_frame = static_cast<uint8_t>(br.f(1));
    if (fh.show_existing_frame) {
      fh.frame_to_show_map_idx = static_cast<uint8_t>(br.f(3));
      if (temporalPointInfo) br.f(presentationTimeBits);
      if (sh.frame_id_numbers_present_flag) fh.display_frame_id = br.f(idLen);
      const unsigned slot = fh.frame_to_show_map_idx;
      fh.frame_type = state.RefFrameType[slot];
      fh.frame_width_minus_1 = state.RefUpscaledWidth[slot] - 1;
      fh.frame_height_minus_1 = state.RefFrameHeight[slot] - 1;
      return;
    }
    fh.frame_type = static_cast<uint8_t>(br.f(2));
    fh.show_frame = static_cast<uint8_t>(br.f(1));
    if (fh.show_frame && temporalPointInfo) br.f(presentationTimeBits);
    fh.showable_frame =
        fh.show_frame ? fh.frame_type != OBP_KEY_FRAME : static_cast<uint8_t>(br.f(1));
    const bool resilient =
        fh.frame_type == OBP_SWITCH_FRAME || (fh.frame_type == OBP_KEY_FRAME && fh.show_frame);
    fh.error_resilient_mode = resilient ? 1 : static_cast<uint8_t>(br.f(1));
  }
  const bool frameIsIntra = fh.frame_type == OBP_INTRA_ONLY_FRAME || fh.frame_type == OBP_KEY_FRAME;
  if (fh.frame_type == OBP_KEY_FRAME && fh.show_frame) std::memset(state.RefValid, 0, 8);
  fh.disable_cdf_update = static_cast<uint8_t>(br.f(1));
  fh.allow_screen_content_tools = sh.seq_force_screen_content_tools == kSelect
                                      ? static_cast<uint8_t>(br.f(1))
                                      : sh.seq_force_screen_content_tools;
  if (fh.allow_screen_content_tools)
    fh.force_integer_mv = sh.seq_force_integer_mv == kSelect ? static_cast<uint8_t>(br.f(1))
                                                             : sh.seq_force_integer_mv;
  if (frameIsIntra) fh.force_integer_mv = 1;
  if (sh.frame_id_numbers_present_flag) fh.current_frame_id = br.f(idLen);
  if (fh.frame_type == OBP_SWITCH_FRAME)
    fh.frame_size_override_flag = 1;
  else if (!sh.reduced_still_picture_header)
    fh.frame_size_override_flag = static_cast<uint8_t>(br.f(1));
  fh.order_hint = br.f(sh.OrderHintBits);
  fh.primary_ref_frame =
      frameIsIntra || fh.error_resilient_mode ? kPrimaryRefNone : static_cast<uint8_t>(br.f(3));
  if (sh.decoder_model_info_present_flag) {
    fh.buffer_removal_time_present_flag = static_cast<uint8_t>(br.f(1));
    if (fh.buffer_removal_time_present_flag) {
      for (unsigned op = 0; op <= sh.operating_points_cnt_minus_1; ++op) {
        if (!sh.decoder_model_present_for_this_op[op]) continue;
        const unsigned idc = sh.operating_point_idc[op];
        const bool inTemporal = (idc >> temporal_id) & 1;
        const bool inSpatial = (idc >> (spatial_id + 8)) & 1;
        if (idc == 0 || (inTemporal && inSpatial))
          fh.buffer_removal_time[op] =
              br.f(sh.decoder_model_info.buffer_removal_time_length_minus_1 + 1u);
      }
    }
  }
  const bool refreshAll =
      fh.frame_type == OBP_SWITCH_FRAME || (fh.frame_type == OBP_KEY_FRAME && fh.show_frame);
  fh.refresh_frame_flags = refreshAll ? kAllFrames : static_cast<uint8_t>(br.f(8));
  if ((!frameIsIntra || fh.refresh_frame_flags != kAllFrames) && fh.error_resilient_mode &&
      sh.enable_order_hint)
    for (uint32_t& hint : fh.ref_order_hint) hint = br.f(sh.OrderHintBits);
  Sizes sizes;
  if (frameIsIntra) {
    FrameSize(br, sh, fh, sizes);
    RenderSize(br, fh, sizes);
    if (fh.allow_screen_content_tools && fh.use_superres == 0)
      fh.allow_intrabc = static_cast<uint8_t>(br.f(1));
  } else {
    ParseInterRefs(br, sh, fh);
    if (fh.frame_size_override_flag && !fh.error_resilient_mode) {
      FrameSizeWithRefs(br, sh, state, fh, sizes);
    } else {
      FrameSize(br, sh, fh, sizes);
      RenderSize(br, fh, sizes);
    }
  }
  for (unsigned slot = 0; slot < 8; ++slot) {
    if (!((fh.refresh_frame_flags >> slot) & 1)) continue;
    state.RefUpscaledWidth[slot] = sizes.upscaledWidth;
    state.RefFrameHeight[slot] = sizes.frameHeight;
    state.RefRenderWidth[slot] = sizes.renderWidth;
    state.RefRenderHeight[slot] = sizes.renderHeight;
    state.RefFrameType[slot] = fh.frame_type;
    state.RefValid[slot] = 1;
  }
}
}  // namespace

int obp_parse_frame_header(const uint8_t* buf, size_t buf_size, const OBPSequenceHeader* seq_header,
                           OBPState* state, int temporal_id, int spatial_id,
                           OBPFrameHeader* frame_header, OBPError* err) {
  std::memset(frame_header, 0, sizeof(*frame_header));
  try {
    BitReader br(buf, buf_size);
    ParseFrameHeader(br, *seq_header, *state, temporal_id, spatial_id, *frame_header);
  } catch (const std::exception& e) {
    internal::SetError(err, e.what());
    return -1;
  }
  return 0;
}

}  // namespace av1
}  // namespace media
}  // namespace ms
