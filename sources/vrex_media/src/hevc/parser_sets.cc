// H.265 SPS, PPS and SEI parsing (ITU-T H.265 7.3.2.2, 7.3.2.3, 7.3.5, D.2).
#include <stdexcept>

#include "abstraction/logging.h"
#include "media/hevc/parser.h"
#include "parser_checks.h"

namespace HEVC {

using internal::kMaxSubLayers;
using internal::Require;

namespace {
constexpr uint32_t kMaxShortTermRefPicSets = 64;
constexpr uint32_t kMaxLongTermRefPics = 32;
constexpr uint32_t kMaxTiles = 64;
constexpr uint32_t kMaxPocLsbBits = 16;
}  // namespace

void Parser::processSPS(std::shared_ptr<SPS> sps, BitstreamReader& bs) {
  sps->sps_video_parameter_set_id = bs.getBits(4);
  sps->sps_max_sub_layers_minus1 = bs.getBits(3);
  Require(sps->sps_max_sub_layers_minus1 < kMaxSubLayers, "SPS: sps_max_sub_layers_minus1");
  sps->sps_temporal_id_nesting_flag = bs.getBit();
  processProfileTierLevel(sps->sps_max_sub_layers_minus1, sps->profile_tier_level, bs);
  sps->sps_seq_parameter_set_id = bs.getU32();
  sps->chroma_format_idc = bs.getU32();
  if (sps->chroma_format_idc == 3) sps->separate_colour_plane_flag = bs.getBit();
  sps->pic_width_in_luma_samples = bs.getU32();
  sps->pic_height_in_luma_samples = bs.getU32();
  sps->conformance_window_flag = bs.getBit();
  if (sps->conformance_window_flag) {
    sps->conf_win_left_offset = bs.getU32();
    sps->conf_win_right_offset = bs.getU32();
    sps->conf_win_top_offset = bs.getU32();
    sps->conf_win_bottom_offset = bs.getU32();
  }
  sps->bit_depth_luma_minus8 = bs.getU32();
  sps->bit_depth_chroma_minus8 = bs.getU32();
  sps->log2_max_pic_order_cnt_lsb_minus4 = bs.getU32();
  Require(sps->log2_max_pic_order_cnt_lsb_minus4 + 4 <= kMaxPocLsbBits,
          "SPS: log2_max_pic_order_cnt_lsb_minus4");
  sps->sps_sub_layer_ordering_info_present_flag = bs.getBit();
  const size_t layers = sps->sps_max_sub_layers_minus1 + 1;
  sps->sps_max_dec_pic_buffering_minus1.assign(layers, 0);
  sps->sps_max_num_reorder_pics.assign(layers, 0);
  sps->sps_max_latency_increase_plus1.assign(layers, 0);
  for (size_t i = sps->sps_sub_layer_ordering_info_present_flag ? 0 : layers - 1; i < layers; ++i) {
    sps->sps_max_dec_pic_buffering_minus1[i] = bs.getU32();
    sps->sps_max_num_reorder_pics[i] = bs.getU32();
    sps->sps_max_latency_increase_plus1[i] = bs.getU32();
  }
  sps->log2_min_luma_coding_block_size_minus3 = bs.getU32();
  sps->log2_diff_max_min_luma_coding_block_size = bs.getU32();
  sps->log2_min_luma_transform_block_size_minus2 = bs.getU32();
  sps->log2_diff_max_min_luma_transform_block_size = bs.getU32();
  sps->max_transform_hierarchy_depth_inter = bs.getU32();
  sps->max_transform_hierarchy_depth_intra = bs.getU32();
  sps->scaling_list_enabled_flag = bs.getBit();
  if (sps->scaling_list_enabled_flag) {
    sps->sps_scaling_list_data_present_flag = bs.getBit();
    if (sps->sps_scaling_list_data_present_flag) processScalingListData(sps->scaling_list_data, bs);
  }
  sps->amp_enabled_flag = bs.getBit();
  sps->sample_adaptive_offset_enabled_flag = bs.getBit();
  sps->pcm_enabled_flag = bs.getBit();
  if (sps->pcm_enabled_flag) {
    sps->pcm_sample_bit_depth_luma_minus1 = bs.getBits(4);
    sps->pcm_sample_bit_depth_chroma_minus1 = bs.getBits(4);
    sps->log2_min_pcm_luma_coding_block_size_minus3 = bs.getU32();
    sps->log2_diff_max_min_pcm_luma_coding_block_size = bs.getU32();
    sps->pcm_loop_filter_disabled_flag = bs.getBit();
  }
  sps->num_short_term_ref_pic_sets = bs.getU32();
  Require(sps->num_short_term_ref_pic_sets <= kMaxShortTermRefPicSets,
          "SPS: num_short_term_ref_pic_sets");
  sps->short_term_ref_pic_set.resize(sps->num_short_term_ref_pic_sets);
  for (size_t i = 0; i < sps->num_short_term_ref_pic_sets; ++i)
    processShortTermRefPicSet(i, sps->short_term_ref_pic_set, sps->short_term_ref_pic_set[i], bs);
  sps->long_term_ref_pics_present_flag = bs.getBit();
  if (sps->long_term_ref_pics_present_flag) {
    sps->num_long_term_ref_pics_sps = bs.getU32();
    Require(sps->num_long_term_ref_pics_sps <= kMaxLongTermRefPics,
            "SPS: num_long_term_ref_pics_sps");
    sps->lt_ref_pic_poc_lsb_sps.resize(sps->num_long_term_ref_pics_sps);
    sps->used_by_curr_pic_lt_sps_flag.resize(sps->num_long_term_ref_pics_sps);
    for (size_t i = 0; i < sps->num_long_term_ref_pics_sps; ++i) {
      sps->lt_ref_pic_poc_lsb_sps[i] = bs.getBits(sps->log2_max_pic_order_cnt_lsb_minus4 + 4);
      sps->used_by_curr_pic_lt_sps_flag[i] = bs.getBit();
    }
  }
  sps->sps_temporal_mvp_enabled_flag = bs.getBit();
  sps->strong_intra_smoothing_enabled_flag = bs.getBit();
  sps->vui_parameters_present_flag = bs.getBit();
  if (sps->vui_parameters_present_flag)
    processVuiParameters(sps->sps_max_sub_layers_minus1, sps->vui_parameters, bs);
  sps->sps_extension_present_flag = bs.getBit();  // the extensions are not read
}

void Parser::processPPS(std::shared_ptr<PPS> pps, BitstreamReader& bs) {
  pps->pps_pic_parameter_set_id = bs.getU32();
  pps->pps_seq_parameter_set_id = bs.getU32();
  pps->dependent_slice_segments_enabled_flag = bs.getBit();
  pps->output_flag_present_flag = bs.getBit();
  pps->num_extra_slice_header_bits = bs.getBits(3);
  pps->sign_data_hiding_enabled_flag = bs.getBit();
  pps->cabac_init_present_flag = bs.getBit();
  pps->num_ref_idx_l0_default_active_minus1 = bs.getU32();
  pps->num_ref_idx_l1_default_active_minus1 = bs.getU32();
  pps->init_qp_minus26 = bs.getI32();
  pps->constrained_intra_pred_flag = bs.getBit();
  pps->transform_skip_enabled_flag = bs.getBit();
  pps->cu_qp_delta_enabled_flag = bs.getBit();
  if (pps->cu_qp_delta_enabled_flag) pps->diff_cu_qp_delta_depth = bs.getU32();
  pps->pps_cb_qp_offset = bs.getI32();
  pps->pps_cr_qp_offset = bs.getI32();
  pps->pps_slice_chroma_qp_offsets_present_flag = bs.getBit();
  pps->weighted_pred_flag = bs.getBit();
  pps->weighted_bipred_flag = bs.getBit();
  pps->transquant_bypass_enabled_flag = bs.getBit();
  pps->tiles_enabled_flag = bs.getBit();
  pps->entropy_coding_sync_enabled_flag = bs.getBit();
  if (pps->tiles_enabled_flag) {
    pps->num_tile_columns_minus1 = bs.getU32();
    pps->num_tile_rows_minus1 = bs.getU32();
    Require(pps->num_tile_columns_minus1 < kMaxTiles && pps->num_tile_rows_minus1 < kMaxTiles,
            "PPS: tile count");
    pps->uniform_spacing_flag = bs.getBit();
    if (!pps->uniform_spacing_flag) {
      pps->column_width_minus1.resize(pps->num_tile_columns_minus1);
      for (uint32_t& width : pps->column_width_minus1) width = bs.getU32();
      pps->row_height_minus1.resize(pps->num_tile_rows_minus1);
      for (uint32_t& height : pps->row_height_minus1) height = bs.getU32();
    }
    pps->loop_filter_across_tiles_enabled_flag = bs.getBit();
  }
  pps->pps_loop_filter_across_slices_enabled_flag = bs.getBit();
  pps->deblocking_filter_control_present_flag = bs.getBit();
  if (pps->deblocking_filter_control_present_flag) {
    pps->deblocking_filter_override_enabled_flag = bs.getBit();
    pps->pps_deblocking_filter_disabled_flag = bs.getBit();
    if (!pps->pps_deblocking_filter_disabled_flag) {
      pps->pps_beta_offset_div2 = bs.getI32();
      pps->pps_tc_offset_div2 = bs.getI32();
    }
  }
  pps->pps_scaling_list_data_present_flag = bs.getBit();
  if (pps->pps_scaling_list_data_present_flag) processScalingListData(pps->scaling_list_data, bs);
  pps->lists_modification_present_flag = bs.getBit();
  pps->log2_parallel_merge_level_minus2 = bs.getU32();
  pps->slice_segment_header_extension_present_flag = bs.getBit();
  pps->pps_extension_present_flag = bs.getBit();  // the extensions are not read
}

namespace {
enum SeiPayloadType : uint32_t {
  kUserDataUnregistered = 5,
  kRecoveryPoint = 6,
  kActiveParameterSets = 129,
  kMasteringDisplayInfo = 137,
  kContentLightLevelInfo = 144,
};

// Reads the payloads this system knows from the message's own bytes; others stay raw.
std::shared_ptr<SeiMessage> DecodePayload(uint32_t type, const std::vector<uint8_t>& bytes) {
  BitstreamReader bs(bytes.data(), bytes.size());
  switch (type) {
    case kUserDataUnregistered: {
      auto msg = std::make_shared<UserDataUnregistered>();
      for (uint8_t& b : msg->uuid_iso_iec_11578) b = static_cast<uint8_t>(bs.getBits(8));
      msg->user_data_payload_byte.assign(bytes.begin() + 16, bytes.end());
      return msg;
    }
    case kRecoveryPoint: {
      auto msg = std::make_shared<RecoveryPoint>();
      msg->recovery_poc_cnt = bs.getI32();
      msg->exact_match_flag = bs.getBit();
      msg->broken_link_flag = bs.getBit();
      return msg;
    }
    case kActiveParameterSets: {
      auto msg = std::make_shared<ActiveParameterSets>();
      msg->active_video_parameter_set_id = bs.getBits(4);
      msg->self_contained_cvs_flag = bs.getBit();
      msg->no_parameter_set_update_flag = bs.getBit();
      msg->num_sps_ids_minus1 = bs.getU32();
      Require(msg->num_sps_ids_minus1 < 16, "SEI: num_sps_ids_minus1");
      msg->active_seq_parameter_set_id.resize(msg->num_sps_ids_minus1 + 1);
      for (uint32_t& id : msg->active_seq_parameter_set_id) id = bs.getU32();
      return msg;
    }
    case kMasteringDisplayInfo: {
      auto msg = std::make_shared<MasteringDisplayInfo>();
      for (int c = 0; c < 3; ++c) {
        msg->display_primaries_x[c] = static_cast<uint16_t>(bs.getBits(16));
        msg->display_primaries_y[c] = static_cast<uint16_t>(bs.getBits(16));
      }
      msg->white_point_x = static_cast<uint16_t>(bs.getBits(16));
      msg->white_point_y = static_cast<uint16_t>(bs.getBits(16));
      msg->max_display_mastering_luminance = bs.getBits(32);
      msg->min_display_mastering_luminance = bs.getBits(32);
      return msg;
    }
    case kContentLightLevelInfo: {
      auto msg = std::make_shared<ContentLightLevelInfo>();
      msg->max_content_light_level = static_cast<uint16_t>(bs.getBits(16));
      msg->max_pic_average_light_level = static_cast<uint16_t>(bs.getBits(16));
      return msg;
    }
    default:
      return std::make_shared<SeiMessage>();
  }
}
}  // namespace

void Parser::processSEI(std::shared_ptr<SEI> sei, BitstreamReader& bs) {
  // sei_message() until only the rbsp trailing bits remain.
  while (bs.available() > 8 || (bs.available() == 8 && bs.showBits(8) != 0x80)) {
    uint32_t payloadType = 0;
    uint32_t byte = 0;
    while ((byte = bs.getBits(8)) == 0xFF) payloadType += 255;
    payloadType += byte;
    uint32_t payloadSize = 0;
    while ((byte = bs.getBits(8)) == 0xFF) payloadSize += 255;
    payloadSize += byte;
    if (static_cast<size_t>(payloadSize) * 8 > bs.available()) {
      LOGW << "HEVC::Parser::processSEI SEI: sei message payload size more then nal unit size "
              "(payloadSize="
           << payloadSize << ")";
      return;
    }
    std::vector<uint8_t> bytes(payloadSize);
    for (uint8_t& b : bytes) b = static_cast<uint8_t>(bs.getBits(8));
    std::shared_ptr<SeiMessage> msg;
    try {
      msg = DecodePayload(payloadType, bytes);
    } catch (const std::exception&) {
      msg = std::make_shared<SeiMessage>();  // a payload shorter than its syntax stays raw
    }
    msg->payloadType = payloadType;
    msg->payloadSize = payloadSize;
    msg->payload = std::move(bytes);
    sei->sei_message.push_back(msg);
  }
}

}  // namespace HEVC
