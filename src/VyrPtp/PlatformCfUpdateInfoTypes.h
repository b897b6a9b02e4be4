// The platform's description of the correction-field handling of every
// interface, per logical FAP: on ingress whether the chip rewrites the
// correction field, on egress the update mode, dropping of invalid 1588
// packets and the two-step update. The platform sets an interface's fields
// first and its generation last; readers react to the generation only.
// CfUpdateProgrammedStatus is written back: which interfaces of a chip have
// some correction-field handling programmed.
#pragma once

#include <cstdint>

#include "Asic/CfControlTable.h"
#include "Asic/ChipInfo.h"
#include "Kiv/Entity.h"
#include "VyrPtp/Export.h"
#include "Wyx/IntfId.h"

namespace CorrectionField {

using Asic::EgressCFUpdateMode;
using Pondo::LogicalFapId;

class VYRPTP_EXPORT PlatformCfUpdateIntfInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId {
         intfId,
         swTableIndex,
         cfUpdateBits,
         ingressCfUpdateEnable,
         egressCfUpdateMode,
         egressDropInvalid1588Pkt,
         twoStepTsCfUpdateEnable,
         ingressForceItsSignFromTs,
         generation
      };
   };
   explicit PlatformCfUpdateIntfInfo(Wyx::IntfId intfId) : intfId_(intfId) {}

   Wyx::IntfId intfId() const { return intfId_; }
   // Row of the interface in both correction-field control tables of the chip.
   std::uint32_t swTableIndex() const { return swTableIndex_; }
   void swTableIndexIs(std::uint32_t v) { set(swTableIndex_, v, F::swTableIndex); }
   // The platform's own; programming ignores it.
   std::uint8_t cfUpdateBits() const { return cfUpdateBits_; }
   void cfUpdateBitsIs(std::uint8_t v) { set(cfUpdateBits_, v, F::cfUpdateBits); }
   bool ingressCfUpdateEnable() const { return ingressCfUpdateEnable_; }
   void ingressCfUpdateEnableIs(bool v) { set(ingressCfUpdateEnable_, v, F::ingressCfUpdateEnable); }
   EgressCFUpdateMode egressCfUpdateMode() const { return egressCfUpdateMode_; }
   void egressCfUpdateModeIs(EgressCFUpdateMode v) { set(egressCfUpdateMode_, v, F::egressCfUpdateMode); }
   bool egressDropInvalid1588Pkt() const { return egressDropInvalid1588Pkt_; }
   void egressDropInvalid1588PktIs(bool v) { set(egressDropInvalid1588Pkt_, v, F::egressDropInvalid1588Pkt); }
   bool twoStepTsCfUpdateEnable() const { return twoStepTsCfUpdateEnable_; }
   void twoStepTsCfUpdateEnableIs(bool v) { set(twoStepTsCfUpdateEnable_, v, F::twoStepTsCfUpdateEnable); }
   bool ingressForceItsSignFromTs() const { return ingressForceItsSignFromTs_; }
   void ingressForceItsSignFromTsIs(bool v) { set(ingressForceItsSignFromTs_, v, F::ingressForceItsSignFromTs); }
   // Version of the whole record; its flag says the record is complete and valid.
   Pondo::Generation generation() const { return generation_; }
   void generationIs(Pondo::Generation g) { set(generation_, g, F::generation); }

  private:
   Wyx::IntfId intfId_;
   std::uint32_t swTableIndex_ = 0;
   std::uint8_t cfUpdateBits_ = 0;
   bool ingressCfUpdateEnable_ = false;
   EgressCFUpdateMode egressCfUpdateMode_ = EgressCFUpdateMode::none;
   bool egressDropInvalid1588Pkt_ = false;
   bool twoStepTsCfUpdateEnable_ = false;
   bool ingressForceItsSignFromTs_ = false;
   Pondo::Generation generation_;
};

class VYRPTP_EXPORT PlatformCfUpdateLogicalFapInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapId, chipInfoGif, intfInfo };
   };
   // A null chipInfoGif is taken: the chip's programmer refuses it.
   PlatformCfUpdateLogicalFapInfo(LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif)
       : logicalFapId_(logicalFapId), chipInfoGif_(std::move(chipInfoGif)) {}
   auto fixedArgs() const { return std::make_tuple(chipInfoGif_); }

   LogicalFapId logicalFapId() const { return logicalFapId_; }
   const Pondo::Ptr<const Asic::GenericIf>& chipInfoGif() const { return chipInfoGif_; }

   const PlatformCfUpdateIntfInfo* intfInfo(Wyx::IntfId i) const { return intfInfo_.find(i); }

   PlatformCfUpdateIntfInfo* intfInfo(Wyx::IntfId i) { return intfInfo_.find(i); }
   const Kiv::Collection<Wyx::IntfId, PlatformCfUpdateIntfInfo>& intfInfo() const { return intfInfo_; }
   Pondo::Ptr<PlatformCfUpdateIntfInfo> intfInfoIs(Wyx::IntfId i) { return intfInfo_.is(i); }
   Pondo::Ptr<PlatformCfUpdateIntfInfo> intfInfoDel(Wyx::IntfId i) { return intfInfo_.del(i); }
   void intfInfoDelAll() { intfInfo_.delAll(); }

  private:
   LogicalFapId logicalFapId_;
   Pondo::Ptr<const Asic::GenericIf> chipInfoGif_;
   Kiv::Collection<Wyx::IntfId, PlatformCfUpdateIntfInfo> intfInfo_{this, F::intfInfo, "intfInfo"};
};

class VYRPTP_EXPORT PlatformCfUpdateInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapInfo };
   };
   const PlatformCfUpdateLogicalFapInfo* logicalFapInfo(LogicalFapId id) const { return logicalFapInfo_.find(id); }
   PlatformCfUpdateLogicalFapInfo* logicalFapInfo(LogicalFapId id) { return logicalFapInfo_.find(id); }
   const Kiv::Collection<LogicalFapId, PlatformCfUpdateLogicalFapInfo>& logicalFapInfo() const {
      return logicalFapInfo_;
   }
   Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> logicalFapInfoIs(LogicalFapId id,
                                                               Pondo::Ptr<const Asic::GenericIf> chipInfoGif) {
      return logicalFapInfo_.is(id, std::move(chipInfoGif));
   }
   Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> logicalFapInfoDel(LogicalFapId id) { return logicalFapInfo_.del(id); }
   void logicalFapInfoDelAll() { logicalFapInfo_.delAll(); }
   // For test and simulation set-ups only: stops the process otherwise.
   Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> addLogicalFapInfo(LogicalFapId id,
                                                                Pondo::Ptr<const Asic::ChipInfo> chipInfo);

  private:
   Kiv::Collection<LogicalFapId, PlatformCfUpdateLogicalFapInfo> logicalFapInfo_{this, F::logicalFapInfo,
                                                                                 "logicalFapInfo"};
};

class VYRPTP_EXPORT CfUpdateProgrammedStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapId, programmedIntf };
   };
   explicit CfUpdateProgrammedStatus(LogicalFapId logicalFapId) : logicalFapId_(logicalFapId) {}

   LogicalFapId logicalFapId() const { return logicalFapId_; }
   // Interfaces whose rows enable some correction-field handling.
   const Kiv::Set<Wyx::IntfId>& programmedIntf() const { return programmedIntf_; }
   bool programmedIntf(Wyx::IntfId i) const { return programmedIntf_.contains(i); }
   void programmedIntfIs(Wyx::IntfId i) { programmedIntf_.is(i); }
   bool programmedIntfDel(Wyx::IntfId i) { return programmedIntf_.del(i); }
   void programmedIntfDelAll() { programmedIntf_.delAll(); }

  private:
   LogicalFapId logicalFapId_;
   Kiv::Set<Wyx::IntfId> programmedIntf_{this, F::programmedIntf, "programmedIntf"};
};

VYRPTP_EXPORT Pondo::Ptr<PlatformCfUpdateInfo> platformCfUpdateInfoFactory();
VYRPTP_EXPORT Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> platformCfUpdateLogicalFapInfoFactory(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif);
VYRPTP_EXPORT Pondo::Ptr<PlatformCfUpdateIntfInfo> platformCfUpdateIntfInfoFactory(Wyx::IntfId intfId);
VYRPTP_EXPORT Pondo::Ptr<CfUpdateProgrammedStatus> cfUpdateProgrammedStatusFactory(LogicalFapId logicalFapId);
VYRPTP_EXPORT Pondo::Ptr<PlatformCfUpdateInfo> PlatformCfUpdateInfoIs();
VYRPTP_EXPORT Pondo::Ptr<PlatformCfUpdateLogicalFapInfo> PlatformCfUpdateLogicalFapInfoIs(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif);
VYRPTP_EXPORT Pondo::Ptr<PlatformCfUpdateIntfInfo> PlatformCfUpdateIntfInfoIs(Wyx::IntfId intfId);
VYRPTP_EXPORT Pondo::Ptr<CfUpdateProgrammedStatus> CfUpdateProgrammedStatusIs(LogicalFapId logicalFapId);

}  // namespace CorrectionField

namespace VyrPtp {
namespace CorrectionField = ::CorrectionField;
}  // namespace VyrPtp
