// The H.265 syntax parser: parameter sets, AUD and SEI NAL units. Parse failures are thrown
// inside and caught in processNALUnit, which logs them; a caller sees a failure as a map
// that stayed empty. Nothing else escapes as an exception.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>

#include "media/hevc/bitstream_reader.h"
#include "media/hevc/hevc.h"

namespace HEVC {

class Parser {
 public:
  // Where a NAL unit lies in the buffer handed to process().
  struct Info {
    size_t position = 0;
  };

  // Told about each NAL unit as it is parsed; has no user in this system yet.
  class Consumer {
   public:
    virtual ~Consumer() = default;
    virtual void onNALUnit(std::shared_ptr<NALUnit> unit, const Info& info) = 0;
  };

  void addConsumer(Consumer* consumer) { m_consumers.push_back(consumer); }
  void releaseConsumer(Consumer* consumer) { m_consumers.remove(consumer); }

  // Splits an Annex B buffer at its start codes and parses each NAL unit. Returns the number
  // of NAL units seen.
  size_t process(const unsigned char* data, size_t size, size_t offset = 0);
  // Parses one NAL unit, from its 2-byte header on.
  void processNALUnit(const unsigned char* data, size_t size, const Info& info);

  std::map<uint32_t, std::shared_ptr<VPS>> m_vpsMap;
  std::map<uint32_t, std::shared_ptr<SPS>> m_spsMap;
  std::map<uint32_t, std::shared_ptr<PPS>> m_ppsMap;

 private:
  NALHeader processNALUnitHeader(BitstreamReader& bs);
  void processVPS(std::shared_ptr<VPS> vps, BitstreamReader& bs);
  void processSPS(std::shared_ptr<SPS> sps, BitstreamReader& bs);
  void processPPS(std::shared_ptr<PPS> pps, BitstreamReader& bs);
  void processSEI(std::shared_ptr<SEI> sei, BitstreamReader& bs);
  void processProfileTierLevel(size_t maxSubLayersMinus1, ProfileTierLevel& ptl,
                               BitstreamReader& bs);
  void processHrdParameters(uint8_t commonInfPresentFlag, size_t maxSubLayersMinus1,
                            HrdParameters& hrd, BitstreamReader& bs);
  void processSubLayerHrdParameters(uint8_t subPicHrdParamsPresentFlag, size_t cpbCnt,
                                    SubLayerHrdParameters& sub, BitstreamReader& bs);
  void processShortTermRefPicSet(size_t stRpsIdx, const std::vector<ShortTermRefPicSet>& sets,
                                 ShortTermRefPicSet& rps, BitstreamReader& bs);
  void processScalingListData(ScalingListData& data, BitstreamReader& bs);
  void processVuiParameters(size_t spsMaxSubLayersMinus1, VuiParameters& vui, BitstreamReader& bs);
  void notify(std::shared_ptr<NALUnit> unit, const Info& info);

  std::list<Consumer*> m_consumers;
};

}  // namespace HEVC
