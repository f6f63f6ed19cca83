// H.264 PPS parsing (ITU-T H.264 7.3.2.2). Ready for callers; the codec info does not need it.
#include "abstraction/errors.h"
#include "abstraction/logging.h"
#include "h264_syntax.h"
#include "media/errors.h"
#include "media/h264/h264.h"

namespace ms {
namespace media {
namespace h264 {

namespace {
constexpr uint64_t kMaxSliceGroups = 8;
constexpr uint64_t kMaxMapUnits = 139264;  // level 6.2: MaxFS

int Fail(const char* what, int err) {
  LOGE << "ParsePPS FAILED " << what << ", errorCode=" << err;
  return err;
}

// Slice group maps of 7.3.2.2, for num_slice_groups_minus1 > 0.
int ParseSliceGroups(BitsReaderState& bits, pps_t& pps) {
  int err = 0;
  if ((err = bits.ReadUEG(pps.slice_group_map_type)) < 0)
    return Fail("reading slice_group_map_type", err);
  const uint64_t groups = pps.num_slice_groups_minus1 + 1;
  if (pps.slice_group_map_type == 0) {
    pps.run_length_minus1.resize(groups);
    for (uint64_t i = 0; i < groups; ++i)
      if ((err = bits.ReadUEG(pps.run_length_minus1[i])) < 0)
        return Fail("reading run_length_minus1[]", err);
  } else if (pps.slice_group_map_type == 2) {
    pps.top_left.resize(groups - 1);
    pps.bottom_right.resize(groups - 1);
    for (uint64_t i = 0; i + 1 < groups; ++i)
      if ((err = bits.ReadUEG(pps.top_left[i])) < 0 ||
          (err = bits.ReadUEG(pps.bottom_right[i])) < 0)
        return Fail("reading top_left/bottom_right", err);
  } else if (pps.slice_group_map_type >= 3 && pps.slice_group_map_type <= 5) {
    if ((err = bits.ReadBits(1, pps.slice_group_change_direction_flag)) < 0 ||
        (err = bits.ReadUEG(pps.slice_group_change_rate_minus1)) < 0)
      return Fail("reading slice_group_change_direction_flag or slice_group_change_rate_minus1",
                  err);
  } else if (pps.slice_group_map_type == 6) {
    if ((err = bits.ReadUEG(pps.pic_size_in_map_units_minus1)) < 0)
      return Fail("reading pic_size_in_map_units_minus1", err);
    if (pps.pic_size_in_map_units_minus1 >= kMaxMapUnits)
      return VREX_ERROR(vrex::media::ERR_MEDIA_CODEC_PARAMETERS);
    unsigned bitsPerId = 0;
    while ((uint64_t{1} << bitsPerId) < groups) ++bitsPerId;
    pps.slice_group_id.resize(pps.pic_size_in_map_units_minus1 + 1);
    for (auto& id : pps.slice_group_id)
      if ((err = bits.ReadBits(bitsPerId, id)) < 0) return Fail("reading slice_group_id[]", err);
  }
  return 0;
}

bool MoreRbspData(const BitsReaderState& bits) {
  // Data remains when a one bit other than the trailing stop bit follows the cursor.
  uint64_t last = bits.sizeBits;
  while (last > bits.cursorBits && !((bits.pData[(last - 1) >> 3] >> (7 - ((last - 1) & 7))) & 1))
    --last;
  return last > bits.cursorBits + 1;
}
}  // namespace

int ParsePPS(const uint8_t* nal, size_t size, uint64_t chromaFormatIdc, pps_t& pps) {
  if (size < 1) return VREX_ERROR(vrex::abstraction::ERR_ABSTRACTION_RANGE_NOT_AVAILABLE);
  BitsReaderState bits(nal + 1, size - 1);
  int err = 0;
  if ((err = bits.ReadUEG(pps.pic_parameter_set_id)) < 0 ||
      (err = bits.ReadUEG(pps.seq_parameter_set_id)) < 0 ||
      (err = bits.ReadBits(1, pps.entropy_coding_mode_flag)) < 0 ||
      (err = bits.ReadBits(1, pps.bottom_field_pic_order_in_frame_present_flag)) < 0 ||
      (err = bits.ReadUEG(pps.num_slice_groups_minus1)) < 0)
    return Fail("at initial fields", err);
  if (pps.num_slice_groups_minus1 >= kMaxSliceGroups)
    return VREX_ERROR(vrex::media::ERR_MEDIA_CODEC_PARAMETERS);
  if (pps.num_slice_groups_minus1 > 0) VREX_CHECK(ParseSliceGroups(bits, pps));
  long qp = 0;
  long qs = 0;
  long chromaOffset = 0;
  if ((err = bits.ReadUEG(pps.num_ref_idx_l0_default_active_minus1)) < 0 ||
      (err = bits.ReadUEG(pps.num_ref_idx_l1_default_active_minus1)) < 0 ||
      (err = bits.ReadBits(1, pps.weighted_pred_flag)) < 0 ||
      (err = bits.ReadBits(2, pps.weighted_bipred_idc)) < 0 || (err = bits.ReadSEG(qp)) < 0 ||
      (err = bits.ReadSEG(qs)) < 0 || (err = bits.ReadSEG(chromaOffset)) < 0 ||
      (err = bits.ReadBits(1, pps.deblocking_filter_control_present_flag)) < 0 ||
      (err = bits.ReadBits(1, pps.constrained_intra_pred_flag)) < 0 ||
      (err = bits.ReadBits(1, pps.redundant_pic_cnt_present_flag)) < 0)
    return Fail("during mid-section", err);
  pps.pic_init_qp_minus26 = qp;
  pps.pic_init_qs_minus26 = qs;
  pps.chroma_qp_index_offset = chromaOffset;
  pps.second_chroma_qp_index_offset = chromaOffset;
  if (!MoreRbspData(bits)) return 0;
  if ((err = bits.ReadBits(1, pps.transform_8x8_mode_flag)) < 0)
    return Fail("reading transform_8x8_mode_flag", err);
  if ((err = bits.ReadBits(1, pps.pic_scaling_matrix_present_flag)) < 0)
    return Fail("reading pic_scaling_matrix_present_flag", err);
  if (pps.pic_scaling_matrix_present_flag) {
    const size_t lists = 6 + (chromaFormatIdc != 3 ? 2 : 6) * pps.transform_8x8_mode_flag;
    VREX_CHECK(SkipScalingLists(bits, lists, "ParsePPS", &pps.pic_scaling_list_present_flag));
  }
  long second = 0;
  if ((err = bits.ReadSEG(second)) < 0) return Fail("during mid-section", err);
  pps.second_chroma_qp_index_offset = second;
  return 0;
}

}  // namespace h264
}  // namespace media
}  // namespace ms
