// H.265 parameter set parsing (ITU-T H.265 7.3.1 to 7.3.4, E.2.1).
#include "media/hevc/parser.h"

#include <algorithm>
#include <stdexcept>

#include "abstraction/logging.h"
#include "parser_checks.h"

namespace HEVC {

using internal::kMaxSubLayers;
using internal::Require;

namespace {
constexpr uint32_t kMaxCpbCount = 32;
constexpr uint32_t kMaxPicsPerSet = 16;
constexpr uint32_t kMaxLayerSets = 1024;
constexpr uint32_t kMaxHrdParameters = 1024;
}  // namespace

const char* NalUnitTypeToString(unsigned type) {
  switch (type) {
    case NAL_TRAIL_N:
      return "TRAIL_N";
    case NAL_TRAIL_R:
      return "TRAIL_R";
    case NAL_TSA_N:
      return "TSA_N";
    case NAL_TSA_R:
      return "TSA_R";
    case NAL_STSA_N:
      return "STSA_N";
    case NAL_STSA_R:
      return "STSA_R";
    case NAL_RADL_N:
      return "RADL_N";
    case NAL_RADL_R:
      return "RADL_R";
    case NAL_RASL_N:
      return "RASL_N";
    case NAL_RASL_R:
      return "RASL_R";
    case NAL_BLA_W_LP:
      return "BLA_W_LP";
    case NAL_BLA_W_RADL:
      return "BLA_W_RADL";
    case NAL_BLA_N_LP:
      return "BLA_N_LP";
    case NAL_IDR_W_RADL:
      return "IDR_W_RADL";
    case NAL_IDR_N_LP:
      return "IDR_N_LP";
    case NAL_CRA_NUT:
      return "CRA_NUT";
    case NAL_IRAP_VCL23:
      return "IRAP_VCL23";
    case NAL_VPS:
      return "VPS";
    case NAL_SPS:
      return "SPS";
    case NAL_PPS:
      return "PPS";
    case NAL_AUD:
      return "AUD";
    case NAL_EOS_NUT:
      return "EOS_NUT";
    case NAL_EOB_NUT:
      return "EOB_NUT";
    case NAL_FD_NUT:
      return "FD_NUT";
    case NAL_SEI_PREFIX:
      return "SEI_PREFIX";
    case NAL_SEI_SUFFIX:
      return "SEI_SUFFIX";
    default:
      return "Unknown";
  }
}

size_t Parser::process(const unsigned char* data, size_t size, size_t offset) {
  size_t count = 0;
  size_t pos = offset;
  auto isStart = [&](size_t i) {
    return i + 2 < size && data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1;
  };
  while (pos < size && !isStart(pos)) ++pos;
  while (pos < size) {
    const size_t begin = pos + 3;
    size_t end = begin;
    while (end < size && !isStart(end)) ++end;
    size_t last = end;
    while (end < size && last > begin && data[last - 1] == 0) --last;  // trailing zero bytes
    Info info;
    info.position = begin;
    if (last > begin) processNALUnit(data + begin, last - begin, info);
    ++count;
    pos = end;
  }
  return count;
}

void Parser::processNALUnit(const unsigned char* data, size_t size, const Info& info) {
  try {
    BitstreamReader bs(data, size);
    const NALHeader header = processNALUnitHeader(bs);
    switch (header.type) {
      case NAL_VPS: {
        auto vps = std::make_shared<VPS>(header);
        processVPS(vps, bs);
        m_vpsMap[vps->vps_video_parameter_set_id] = vps;
        notify(vps, info);
        break;
      }
      case NAL_SPS: {
        auto sps = std::make_shared<SPS>(header);
        processSPS(sps, bs);
        m_spsMap[sps->sps_seq_parameter_set_id] = sps;
        notify(sps, info);
        break;
      }
      case NAL_PPS: {
        auto pps = std::make_shared<PPS>(header);
        processPPS(pps, bs);
        m_ppsMap[pps->pps_pic_parameter_set_id] = pps;
        notify(pps, info);
        break;
      }
      case NAL_AUD: {
        auto aud = std::make_shared<AUD>(header);
        aud->pic_type = bs.getBits(3);
        notify(aud, info);
        break;
      }
      case NAL_SEI_PREFIX:
      case NAL_SEI_SUFFIX: {
        auto sei = std::make_shared<SEI>(header);
        processSEI(sei, bs);
        notify(sei, info);
        break;
      }
      default:
        break;  // slices and the rest: nothing here reads them
    }
  } catch (const std::exception& e) {
    LOGE << "<-# HEVC::Parser::processNALUnit FAILED! Exception: " << e.what();
  }
}

void Parser::notify(std::shared_ptr<NALUnit> unit, const Info& info) {
  for (Consumer* consumer : m_consumers) consumer->onNALUnit(unit, info);
}

NALHeader Parser::processNALUnitHeader(BitstreamReader& bs) {
  NALHeader header;
  bs.getBit();  // forbidden_zero_bit
  header.type = bs.getBits(6);
  header.layer_id = bs.getBits(6);
  header.temporal_id_plus1 = bs.getBits(3);
  return header;
}

void Parser::processProfileTierLevel(size_t maxSubLayersMinus1, ProfileTierLevel& ptl,
                                     BitstreamReader& bs) {
  ptl.general_profile_space = bs.getBits(2);
  ptl.general_tier_flag = bs.getBit();
  ptl.general_profile_idc = bs.getBits(5);
  for (uint32_t& flag : ptl.general_profile_compatibility_flag) flag = bs.getBit();
  ptl.general_progressive_source_flag = bs.getBit();
  ptl.general_interlaced_source_flag = bs.getBit();
  ptl.general_non_packed_constraint_flag = bs.getBit();
  ptl.general_frame_only_constraint_flag = bs.getBit();
  bs.skipBits(44);  // the remaining constraint flags
  ptl.general_level_idc = bs.getBits(8);
  ptl.sub_layer_profile_present_flag.resize(maxSubLayersMinus1);
  ptl.sub_layer_level_present_flag.resize(maxSubLayersMinus1);
  ptl.sub_layer_profile_idc.resize(maxSubLayersMinus1);
  ptl.sub_layer_level_idc.resize(maxSubLayersMinus1);
  for (size_t i = 0; i < maxSubLayersMinus1; ++i) {
    ptl.sub_layer_profile_present_flag[i] = bs.getBit();
    ptl.sub_layer_level_present_flag[i] = bs.getBit();
  }
  if (maxSubLayersMinus1 > 0) bs.skipBits(2 * (8 - maxSubLayersMinus1));  // reserved_zero_2bits
  for (size_t i = 0; i < maxSubLayersMinus1; ++i) {
    if (ptl.sub_layer_profile_present_flag[i]) {
      bs.skipBits(3);
      ptl.sub_layer_profile_idc[i] = bs.getBits(5);
      bs.skipBits(32 + 4 + 44);
    }
    if (ptl.sub_layer_level_present_flag[i]) ptl.sub_layer_level_idc[i] = bs.getBits(8);
  }
}

void Parser::processSubLayerHrdParameters(uint8_t subPicHrdParamsPresentFlag, size_t cpbCnt,
                                          SubLayerHrdParameters& sub, BitstreamReader& bs) {
  sub.bit_rate_value_minus1.resize(cpbCnt);
  sub.cpb_size_value_minus1.resize(cpbCnt);
  sub.cpb_size_du_value_minus1.resize(cpbCnt);
  sub.bit_rate_du_value_minus1.resize(cpbCnt);
  sub.cbr_flag.resize(cpbCnt);
  for (size_t i = 0; i < cpbCnt; ++i) {
    sub.bit_rate_value_minus1[i] = bs.getU32();
    sub.cpb_size_value_minus1[i] = bs.getU32();
    if (subPicHrdParamsPresentFlag) {
      sub.cpb_size_du_value_minus1[i] = bs.getU32();
      sub.bit_rate_du_value_minus1[i] = bs.getU32();
    }
    sub.cbr_flag[i] = bs.getBit();
  }
}

void Parser::processHrdParameters(uint8_t commonInfPresentFlag, size_t maxSubLayersMinus1,
                                  HrdParameters& hrd, BitstreamReader& bs) {
  if (commonInfPresentFlag) {
    hrd.nal_hrd_parameters_present_flag = bs.getBit();
    hrd.vcl_hrd_parameters_present_flag = bs.getBit();
    if (hrd.nal_hrd_parameters_present_flag || hrd.vcl_hrd_parameters_present_flag) {
      hrd.sub_pic_hrd_params_present_flag = bs.getBit();
      if (hrd.sub_pic_hrd_params_present_flag) {
        hrd.tick_divisor_minus2 = bs.getBits(8);
        hrd.du_cpb_removal_delay_increment_length_minus1 = bs.getBits(5);
        hrd.sub_pic_cpb_params_in_pic_timing_sei_flag = bs.getBit();
        hrd.dpb_output_delay_du_length_minus1 = bs.getBits(5);
      }
      hrd.bit_rate_scale = bs.getBits(4);
      hrd.cpb_size_scale = bs.getBits(4);
      if (hrd.sub_pic_hrd_params_present_flag) hrd.cpb_size_du_scale = bs.getBits(4);
      hrd.initial_cpb_removal_delay_length_minus1 = bs.getBits(5);
      hrd.au_cpb_removal_delay_length_minus1 = bs.getBits(5);
      hrd.dpb_output_delay_length_minus1 = bs.getBits(5);
    }
  }
  const size_t layers = maxSubLayersMinus1 + 1;
  hrd.fixed_pic_rate_general_flag.assign(layers, 0);
  hrd.fixed_pic_rate_within_cvs_flag.assign(layers, 0);
  hrd.elemental_duration_in_tc_minus1.assign(layers, 0);
  hrd.low_delay_hrd_flag.assign(layers, 0);
  hrd.cpb_cnt_minus1.assign(layers, 0);
  hrd.nal_sub_layer_hrd_parameters.resize(layers);
  hrd.vcl_sub_layer_hrd_parameters.resize(layers);
  for (size_t i = 0; i < layers; ++i) {
    hrd.fixed_pic_rate_general_flag[i] = bs.getBit();
    hrd.fixed_pic_rate_within_cvs_flag[i] = 1;
    if (!hrd.fixed_pic_rate_general_flag[i]) hrd.fixed_pic_rate_within_cvs_flag[i] = bs.getBit();
    if (hrd.fixed_pic_rate_within_cvs_flag[i])
      hrd.elemental_duration_in_tc_minus1[i] = bs.getU32();
    else
      hrd.low_delay_hrd_flag[i] = bs.getBit();
    if (!hrd.low_delay_hrd_flag[i]) hrd.cpb_cnt_minus1[i] = bs.getU32();
    Require(hrd.cpb_cnt_minus1[i] < kMaxCpbCount, "HRD: cpb_cnt_minus1 out of range");
    const size_t cpbCnt = hrd.cpb_cnt_minus1[i] + 1;
    if (hrd.nal_hrd_parameters_present_flag)
      processSubLayerHrdParameters(hrd.sub_pic_hrd_params_present_flag, cpbCnt,
                                   hrd.nal_sub_layer_hrd_parameters[i], bs);
    if (hrd.vcl_hrd_parameters_present_flag)
      processSubLayerHrdParameters(hrd.sub_pic_hrd_params_present_flag, cpbCnt,
                                   hrd.vcl_sub_layer_hrd_parameters[i], bs);
  }
}

void Parser::processVPS(std::shared_ptr<VPS> vps, BitstreamReader& bs) {
  vps->vps_video_parameter_set_id = bs.getBits(4);
  bs.skipBits(2);  // vps_base_layer_internal_flag, vps_base_layer_available_flag
  vps->vps_max_layers_minus1 = bs.getBits(6);
  vps->vps_max_sub_layers_minus1 = bs.getBits(3);
  Require(vps->vps_max_sub_layers_minus1 < kMaxSubLayers, "VPS: vps_max_sub_layers_minus1");
  vps->vps_temporal_id_nesting_flag = bs.getBit();
  bs.skipBits(16);  // vps_reserved_0xffff_16bits
  processProfileTierLevel(vps->vps_max_sub_layers_minus1, vps->profile_tier_level, bs);
  vps->vps_sub_layer_ordering_info_present_flag = bs.getBit();
  const size_t layers = vps->vps_max_sub_layers_minus1 + 1;
  vps->vps_max_dec_pic_buffering_minus1.assign(layers, 0);
  vps->vps_max_num_reorder_pics.assign(layers, 0);
  vps->vps_max_latency_increase_plus1.assign(layers, 0);
  for (size_t i = vps->vps_sub_layer_ordering_info_present_flag ? 0 : layers - 1; i < layers; ++i) {
    vps->vps_max_dec_pic_buffering_minus1[i] = bs.getU32();
    vps->vps_max_num_reorder_pics[i] = bs.getU32();
    vps->vps_max_latency_increase_plus1[i] = bs.getU32();
  }
  vps->vps_max_layer_id = bs.getBits(6);
  vps->vps_num_layer_sets_minus1 = bs.getU32();
  Require(vps->vps_num_layer_sets_minus1 < kMaxLayerSets, "VPS: vps_num_layer_sets_minus1");
  for (size_t i = 1; i <= vps->vps_num_layer_sets_minus1; ++i)
    bs.skipBits(vps->vps_max_layer_id + 1);  // layer_id_included_flag[i][j]
  vps->vps_timing_info_present_flag = bs.getBit();
  if (vps->vps_timing_info_present_flag) {
    vps->vps_num_units_in_tick = bs.getBits(32);
    vps->vps_time_scale = bs.getBits(32);
    vps->vps_poc_proportional_to_timing_flag = bs.getBit();
    if (vps->vps_poc_proportional_to_timing_flag)
      vps->vps_num_ticks_poc_diff_one_minus1 = bs.getU32();
    vps->vps_num_hrd_parameters = bs.getU32();
    Require(vps->vps_num_hrd_parameters < kMaxHrdParameters, "VPS: vps_num_hrd_parameters");
    vps->hrd_layer_set_idx.resize(vps->vps_num_hrd_parameters);
    vps->cprms_present_flag.assign(vps->vps_num_hrd_parameters, 1);
    vps->hrd_parameters.resize(vps->vps_num_hrd_parameters);
    for (size_t i = 0; i < vps->vps_num_hrd_parameters; ++i) {
      vps->hrd_layer_set_idx[i] = bs.getU32();
      if (i > 0) vps->cprms_present_flag[i] = bs.getBit();
      processHrdParameters(static_cast<uint8_t>(vps->cprms_present_flag[i]),
                           vps->vps_max_sub_layers_minus1, vps->hrd_parameters[i], bs);
    }
  }
  vps->vps_extension_flag = bs.getBit();
}

void Parser::processScalingListData(ScalingListData& data, BitstreamReader& bs) {
  for (size_t sizeId = 0; sizeId < 4; ++sizeId) {
    for (size_t matrixId = 0; matrixId < 6; matrixId += (sizeId == 3) ? 3 : 1) {
      data.scaling_list_pred_mode_flag[sizeId][matrixId] = bs.getBit();
      if (!data.scaling_list_pred_mode_flag[sizeId][matrixId]) {
        data.scaling_list_pred_matrix_id_delta[sizeId][matrixId] = bs.getU32();
        continue;
      }
      const size_t coefNum = std::min<size_t>(64, size_t{1} << (4 + (sizeId << 1)));
      if (sizeId > 1) data.scaling_list_dc_coef_minus8[sizeId - 2][matrixId] = bs.getI32();
      for (size_t i = 0; i < coefNum; ++i) bs.getI32();  // scaling_list_delta_coef
    }
  }
}

void Parser::processShortTermRefPicSet(size_t stRpsIdx, const std::vector<ShortTermRefPicSet>& sets,
                                       ShortTermRefPicSet& rps, BitstreamReader& bs) {
  if (stRpsIdx != 0) rps.inter_ref_pic_set_prediction_flag = bs.getBit();
  if (rps.inter_ref_pic_set_prediction_flag) {
    // In an SPS the set predicts from the one before it (delta_idx_minus1 is a slice field).
    const ShortTermRefPicSet& ref = sets[stRpsIdx - 1];
    rps.delta_rps_sign = bs.getBit();
    rps.abs_delta_rps_minus1 = bs.getU32();
    rps.used_by_curr_pic_flag.assign(ref.numDeltaPocs + 1, 0);
    rps.use_delta_flag.assign(ref.numDeltaPocs + 1, 1);
    for (size_t j = 0; j <= ref.numDeltaPocs; ++j) {
      rps.used_by_curr_pic_flag[j] = bs.getBit();
      if (!rps.used_by_curr_pic_flag[j]) rps.use_delta_flag[j] = bs.getBit();
      rps.numDeltaPocs += rps.use_delta_flag[j];
    }
    Require(rps.numDeltaPocs <= kMaxPicsPerSet, "SPS: too many pictures in a short-term set");
    return;
  }
  rps.num_negative_pics = bs.getU32();
  rps.num_positive_pics = bs.getU32();
  Require(rps.num_negative_pics <= kMaxPicsPerSet && rps.num_positive_pics <= kMaxPicsPerSet,
          "SPS: too many pictures in a short-term set");
  rps.delta_poc_s0_minus1.resize(rps.num_negative_pics);
  rps.used_by_curr_pic_s0_flag.resize(rps.num_negative_pics);
  for (size_t i = 0; i < rps.num_negative_pics; ++i) {
    rps.delta_poc_s0_minus1[i] = bs.getU32();
    rps.used_by_curr_pic_s0_flag[i] = bs.getBit();
  }
  rps.delta_poc_s1_minus1.resize(rps.num_positive_pics);
  rps.used_by_curr_pic_s1_flag.resize(rps.num_positive_pics);
  for (size_t i = 0; i < rps.num_positive_pics; ++i) {
    rps.delta_poc_s1_minus1[i] = bs.getU32();
    rps.used_by_curr_pic_s1_flag[i] = bs.getBit();
  }
  rps.numDeltaPocs = rps.num_negative_pics + rps.num_positive_pics;
}

void Parser::processVuiParameters(size_t spsMaxSubLayersMinus1, VuiParameters& vui,
                                  BitstreamReader& bs) {
  constexpr uint32_t kExtendedSar = 255;
  vui.aspect_ratio_info_present_flag = bs.getBit();
  if (vui.aspect_ratio_info_present_flag) {
    vui.aspect_ratio_idc = bs.getBits(8);
    if (vui.aspect_ratio_idc == kExtendedSar) {
      vui.sar_width = bs.getBits(16);
      vui.sar_height = bs.getBits(16);
    }
  }
  vui.overscan_info_present_flag = bs.getBit();
  if (vui.overscan_info_present_flag) vui.overscan_appropriate_flag = bs.getBit();
  vui.video_signal_type_present_flag = bs.getBit();
  if (vui.video_signal_type_present_flag) {
    vui.video_format = bs.getBits(3);
    vui.video_full_range_flag = bs.getBit();
    vui.colour_description_present_flag = bs.getBit();
    if (vui.colour_description_present_flag) {
      vui.colour_primaries = bs.getBits(8);
      vui.transfer_characteristics = bs.getBits(8);
      vui.matrix_coeffs = bs.getBits(8);
    }
  }
  vui.chroma_loc_info_present_flag = bs.getBit();
  if (vui.chroma_loc_info_present_flag) {
    vui.chroma_sample_loc_type_top_field = bs.getU32();
    vui.chroma_sample_loc_type_bottom_field = bs.getU32();
  }
  vui.neutral_chroma_indication_flag = bs.getBit();
  vui.field_seq_flag = bs.getBit();
  vui.frame_field_info_present_flag = bs.getBit();
  vui.default_display_window_flag = bs.getBit();
  if (vui.default_display_window_flag) {
    vui.def_disp_win_left_offset = bs.getU32();
    vui.def_disp_win_right_offset = bs.getU32();
    vui.def_disp_win_top_offset = bs.getU32();
    vui.def_disp_win_bottom_offset = bs.getU32();
  }
  vui.vui_timing_info_present_flag = bs.getBit();
  if (vui.vui_timing_info_present_flag) {
    vui.vui_num_units_in_tick = bs.getBits(32);
    vui.vui_time_scale = bs.getBits(32);
    vui.vui_poc_proportional_to_timing_flag = bs.getBit();
    if (vui.vui_poc_proportional_to_timing_flag)
      vui.vui_num_ticks_poc_diff_one_minus1 = bs.getU32();
    vui.vui_hrd_parameters_present_flag = bs.getBit();
    if (vui.vui_hrd_parameters_present_flag)
      processHrdParameters(1, spsMaxSubLayersMinus1, vui.hrd_parameters, bs);
  }
  vui.bitstream_restriction_flag = bs.getBit();
  if (vui.bitstream_restriction_flag) {
    vui.tiles_fixed_structure_flag = bs.getBit();
    vui.motion_vectors_over_pic_boundaries_flag = bs.getBit();
    vui.restricted_ref_pic_lists_flag = bs.getBit();
    vui.min_spatial_segmentation_idc = bs.getU32();
    vui.max_bytes_per_pic_denom = bs.getU32();
    vui.max_bits_per_min_cu_denom = bs.getU32();
    vui.log2_max_mv_length_horizontal = bs.getU32();
    vui.log2_max_mv_length_vertical = bs.getU32();
  }
}

}  // namespace HEVC
