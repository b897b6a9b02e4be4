#include "VyrPtp/AggregatorSmTypes.h"

namespace VyrPtp {

Pondo::Ptr<PtpPipelineAggState> ptpPipelineAggStateFactory() { return Kiv::make<PtpPipelineAggState>(); }
Pondo::Ptr<PtpPipelineAggState> PtpPipelineAggStateIs() { return ptpPipelineAggStateFactory(); }

}  // namespace VyrPtp
