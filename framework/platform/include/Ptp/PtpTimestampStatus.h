// What an island of external PHYs reports about timestamping: per interface,
// whether its PHY is ready to timestamp received and sent PTP packets. One
// entity per island of PHYs.
#pragma once

#include "Kiv/Entity.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace VyrPtp {

class PtpTimestampIntfStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfId, intfReadyForRx, intfReadyForTx };
   };
   explicit PtpTimestampIntfStatus(Wyx::IntfId intfId) : intfId_(intfId) {}

   Wyx::IntfId intfId() const { return intfId_; }
   bool intfReadyForRx() const { return intfReadyForRx_; }
   void intfReadyForRxIs(bool v) { set(intfReadyForRx_, v, F::intfReadyForRx); }
   bool intfReadyForTx() const { return intfReadyForTx_; }
   void intfReadyForTxIs(bool v) { set(intfReadyForTx_, v, F::intfReadyForTx); }

  private:
   Wyx::IntfId intfId_;
   bool intfReadyForRx_ = false;
   bool intfReadyForTx_ = false;
};

class PtpTimestampStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, physicalIntfStatus };
   };
   explicit PtpTimestampStatus(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }
   const PtpTimestampIntfStatus* physicalIntfStatus(Wyx::IntfId i) const { return physicalIntfStatus_.find(i); }
   PtpTimestampIntfStatus* physicalIntfStatus(Wyx::IntfId i) { return physicalIntfStatus_.find(i); }
   const Kiv::Collection<Wyx::IntfId, PtpTimestampIntfStatus>& physicalIntfStatus() const {
      return physicalIntfStatus_;
   }
   Pondo::Ptr<PtpTimestampIntfStatus> physicalIntfStatusIs(Wyx::IntfId i) { return physicalIntfStatus_.is(i); }
   Pondo::Ptr<PtpTimestampIntfStatus> physicalIntfStatusDel(Wyx::IntfId i) { return physicalIntfStatus_.del(i); }
   void physicalIntfStatusDelAll() { physicalIntfStatus_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<Wyx::IntfId, PtpTimestampIntfStatus> physicalIntfStatus_{this, F::physicalIntfStatus,
                                                                            "physicalIntfStatus"};
};

}  // namespace VyrPtp
