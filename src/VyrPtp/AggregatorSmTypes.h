// The readiness aggregator's verdict on the pipeline as a whole.
#pragma once

#include "Kiv/Entity.h"
#include "Pondo/Types.h"
#include "VyrPtp/Export.h"

namespace VyrPtp {

// counter = the action generation last judged; flag = the pipeline is ready
// for PTP packets for that generation. A reader compares the counter with the
// generation it published before trusting the flag.
class VYRPTP_EXPORT PtpPipelineAggState : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { generation };
   };

   Pondo::Generation generation() const { return generation_; }
   void generationIs(Pondo::Generation g) { set(generation_, g, F::generation); }

  private:
   Pondo::Generation generation_;
};

VYRPTP_EXPORT Pondo::Ptr<PtpPipelineAggState> ptpPipelineAggStateFactory();
VYRPTP_EXPORT Pondo::Ptr<PtpPipelineAggState> PtpPipelineAggStateIs();

}  // namespace VyrPtp
