// AV1 sequence header OBU (AV1 specification 5.5).
#include <cstring>

#include "bit_reader.h"
#include "media/av1/av1.h"

namespace ms {
namespace media {
namespace av1 {

namespace {
using internal::BitReader;

constexpr uint8_t kSelectScreenContentTools = 2;
constexpr uint8_t kSelectIntegerMv = 2;
// Colour values of the specification's tables 6.4.2.
constexpr uint8_t kCpBt709 = 1;
constexpr uint8_t kCpUnspecified = 2;
constexpr uint8_t kTcSrgb = 13;
constexpr uint8_t kMcIdentity = 0;

void ParseOperatingPoints(BitReader& br, OBPSequenceHeader& sh) {
  sh.operating_points_cnt_minus_1 = static_cast<uint8_t>(br.f(5));
  for (unsigned i = 0; i <= sh.operating_points_cnt_minus_1; ++i) {
    sh.operating_point_idc[i] = static_cast<uint16_t>(br.f(12));
    sh.seq_level_idx[i] = static_cast<uint8_t>(br.f(5));
    sh.seq_tier[i] = sh.seq_level_idx[i] > 7 ? static_cast<uint8_t>(br.f(1)) : 0;
    if (sh.decoder_model_info_present_flag) {
      sh.decoder_model_present_for_this_op[i] = static_cast<uint8_t>(br.f(1));
      if (sh.decoder_model_present_for_this_op[i]) {
        const unsigned n = sh.decoder_model_info.buffer_delay_length_minus_1 + 1u;
        sh.operating_parameters_info[i].decoder_buffer_delay = br.f(n);
        sh.operating_parameters_info[i].encoder_buffer_delay = br.f(n);
        sh.operating_parameters_info[i].low_delay_mode_flag = static_cast<uint8_t>(br.f(1));
      }
    }
    if (sh.initial_display_delay_present_flag) {
      sh.initial_display_delay_present_for_this_op[i] = static_cast<uint8_t>(br.f(1));
      if (sh.initial_display_delay_present_for_this_op[i])
        sh.initial_display_delay_minus_1[i] = static_cast<uint8_t>(br.f(4));
    }
  }
}

void ParseColorConfig(BitReader& br, OBPSequenceHeader& sh) {
  auto& cc = sh.color_config;
  cc.high_bitdepth = static_cast<uint8_t>(br.f(1));
  if (sh.seq_profile == 2 && cc.high_bitdepth) {
    cc.twelve_bit = static_cast<uint8_t>(br.f(1));
    cc.BitDepth = cc.twelve_bit ? 12 : 10;
  } else {
    cc.BitDepth = cc.high_bitdepth ? 10 : 8;
  }
  cc.mono_chrome = sh.seq_profile == 1 ? 0 : static_cast<uint8_t>(br.f(1));
  cc.color_description_present_flag = static_cast<uint8_t>(br.f(1));
  if (cc.color_description_present_flag) {
    cc.color_primaries = static_cast<uint8_t>(br.f(8));
    cc.transfer_characteristics = static_cast<uint8_t>(br.f(8));
    cc.matrix_coefficients = static_cast<uint8_t>(br.f(8));
  } else {
    cc.color_primaries = kCpUnspecified;
    cc.transfer_characteristics = kCpUnspecified;
    cc.matrix_coefficients = kCpUnspecified;
  }
  if (cc.mono_chrome) {
    cc.color_range = static_cast<uint8_t>(br.f(1));
    cc.subsampling_x = 1;
    cc.subsampling_y = 1;
    cc.chroma_sample_position = 0;
    cc.separate_uv_delta_q = 0;
    return;
  }
  if (cc.color_primaries == kCpBt709 && cc.transfer_characteristics == kTcSrgb &&
      cc.matrix_coefficients == kMcIdentity) {
    cc.color_range = 1;
    cc.subsampling_x = 0;
    cc.subsampling_y = 0;
  } else {
    cc.color_range = static_cast<uint8_t>(br.f(1));
    if (sh.seq_profile == 0) {
      cc.subsampling_x = 1;
      cc.subsampling_y = 1;
    } else if (sh.seq_profile == 1) {
      cc.subsampling_x = 0;
      cc.subsampling_y = 0;
    } else if (cc.BitDepth == 12) {
      cc.subsampling_x = static_cast<uint8_t>(br.f(1));
      cc.subsampling_y = cc.subsampling_x ? static_cast<uint8_t>(br.f(1)) : 0;
    } else {
      cc.subsampling_x = 1;
      cc.subsampling_y = 0;
    }
    if (cc.subsampling_x && cc.subsampling_y)
      cc.chroma_sample_position = static_cast<uint8_t>(br.f(2));
  }
  cc.separate_uv_delta_q = static_cast<uint8_t>(br.f(1));
}

void ParseTools(BitReader& br, OBPSequenceHeader& sh) {
  sh.use_128x128_superblock = static_cast<uint8_t>(br.f(1));
  sh.enable_filter_intra = static_cast<uint8_t>(br.f(1));
  sh.enable_intra_edge_filter = static_cast<uint8_t>(br.f(1));
  if (sh.reduced_still_picture_header) {
    sh.seq_force_screen_content_tools = kSelectScreenContentTools;
    sh.seq_force_integer_mv = kSelectIntegerMv;
    return;
  }
  sh.enable_interintra_compound = static_cast<uint8_t>(br.f(1));
  sh.enable_masked_compound = static_cast<uint8_t>(br.f(1));
  sh.enable_warped_motion = static_cast<uint8_t>(br.f(1));
  sh.enable_dual_filter = static_cast<uint8_t>(br.f(1));
  sh.enable_order_hint = static_cast<uint8_t>(br.f(1));
  if (sh.enable_order_hint) {
    sh.enable_jnt_comp = static_cast<uint8_t>(br.f(1));
    sh.enable_ref_frame_mvs = static_cast<uint8_t>(br.f(1));
  }
  sh.seq_choose_screen_content_tools = static_cast<uint8_t>(br.f(1));
  sh.seq_force_screen_content_tools = sh.seq_choose_screen_content_tools
                                          ? kSelectScreenContentTools
                                          : static_cast<uint8_t>(br.f(1));
  if (sh.seq_force_screen_content_tools > 0) {
    sh.seq_choose_integer_mv = static_cast<uint8_t>(br.f(1));
    sh.seq_force_integer_mv =
        sh.seq_choose_integer_mv ? kSelectIntegerMv : static_cast<uint8_t>(br.f(1));
  } else {
    sh.seq_force_integer_mv = kSelectIntegerMv;
  }
  if (sh.enable_order_hint) {
    sh.order_hint_bits_minus_1 = static_cast<uint8_t>(br.f(3));
    sh.OrderHintBits = static_cast<uint8_t>(sh.order_hint_bits_minus_1 + 1);
  }
}

void ParseSequenceHeader(BitReader& br, OBPSequenceHeader& sh) {
  sh.seq_profile = static_cast<uint8_t>(br.f(3));
  sh.still_picture = static_cast<uint8_t>(br.f(1));
  sh.reduced_still_picture_header = static_cast<uint8_t>(br.f(1));
  if (sh.reduced_still_picture_header) {
    sh.seq_level_idx[0] = static_cast<uint8_t>(br.f(5));
  } else {
    sh.timing_info_present_flag = static_cast<uint8_t>(br.f(1));
    if (sh.timing_info_present_flag) {
      sh.timing_info.num_units_in_display_tick = br.f(32);
      sh.timing_info.time_scale = br.f(32);
      sh.timing_info.equal_picture_interval = static_cast<uint8_t>(br.f(1));
      if (sh.timing_info.equal_picture_interval)
        sh.timing_info.num_ticks_per_picture_minus_1 = br.uvlc();
      sh.decoder_model_info_present_flag = static_cast<uint8_t>(br.f(1));
      if (sh.decoder_model_info_present_flag) {
        sh.decoder_model_info.buffer_delay_length_minus_1 = static_cast<uint8_t>(br.f(5));
        sh.decoder_model_info.num_units_in_decoding_tick = br.f(32);
        sh.decoder_model_info.buffer_removal_time_length_minus_1 = static_cast<uint8_t>(br.f(5));
        sh.decoder_model_info.frame_presentation_time_length_minus_1 =
            static_cast<uint8_t>(br.f(5));
      }
    }
    sh.initial_display_delay_present_flag = static_cast<uint8_t>(br.f(1));
    ParseOperatingPoints(br, sh);
  }
  sh.frame_width_bits_minus_1 = static_cast<uint8_t>(br.f(4));
  sh.frame_height_bits_minus_1 = static_cast<uint8_t>(br.f(4));
  sh.max_frame_width_minus_1 = br.f(sh.frame_width_bits_minus_1 + 1u);
  sh.max_frame_height_minus_1 = br.f(sh.frame_height_bits_minus_1 + 1u);
  if (!sh.reduced_still_picture_header)
    sh.frame_id_numbers_present_flag = static_cast<uint8_t>(br.f(1));
  if (sh.frame_id_numbers_present_flag) {
    sh.delta_frame_id_length_minus_2 = static_cast<uint8_t>(br.f(4));
    sh.additional_frame_id_length_minus_1 = static_cast<uint8_t>(br.f(3));
  }
  ParseTools(br, sh);
  sh.enable_superres = static_cast<uint8_t>(br.f(1));
  sh.enable_cdef = static_cast<uint8_t>(br.f(1));
  sh.enable_restoration = static_cast<uint8_t>(br.f(1));
  ParseColorConfig(br, sh);
  sh.film_grain_params_present = static_cast<uint8_t>(br.f(1));
}
}  // namespace

int obp_parse_sequence_header(const uint8_t* buf, size_t buf_size, OBPSequenceHeader* seq_header,
                              OBPError* err) {
  std::memset(seq_header, 0, sizeof(*seq_header));
  try {
    BitReader br(buf, buf_size);
    ParseSequenceHeader(br, *seq_header);
  } catch (const std::exception& e) {
    internal::SetError(err, e.what());
    return -1;
  }
  return 0;
}

}  // namespace av1
}  // namespace media
}  // namespace ms
