#include "VyrPtp/AggregatorSmTypes.h"

namespace VyrPtp {

Pondo::Ptr<PtpPipelineAggState> ptpPipelineAggStateFactory() { return Kiv::make<PtpPipelineAggState>(); }

}  // namespace VyrPtp
