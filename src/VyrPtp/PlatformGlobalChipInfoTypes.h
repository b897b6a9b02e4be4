// The platform's list of forwarding chips as PTP programming needs it: one
// record per logical FAP with the chip's generic interface (through which its
// hardware tables are initialised) and a printable description of the chip.
// Logical FAPs on one chip share the description.
#pragma once

#include "Asic/ChipInfo.h"
#include "Kiv/Entity.h"
#include "VyrPtp/Export.h"

namespace VyrPtp {

using Pondo::LogicalFapId;

class VYRPTP_EXPORT PlatformGlobalChipLogicalFapInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapId, chipInfoGif, chipInfoString };
   };
   // Kiv::Error when `chipInfoGif` is null.
   PlatformGlobalChipLogicalFapInfo(LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif,
                                    Pondo::String chipInfoString);
   auto fixedArgs() const { return std::make_tuple(chipInfoGif_, chipInfoString_); }

   LogicalFapId logicalFapId() const { return logicalFapId_; }
   const Pondo::Ptr<const Asic::GenericIf>& chipInfoGif() const { return chipInfoGif_; }
   const Pondo::String& chipInfoString() const { return chipInfoString_; }

  private:
   LogicalFapId logicalFapId_;
   Pondo::Ptr<const Asic::GenericIf> chipInfoGif_;
   Pondo::String chipInfoString_;
};

class VYRPTP_EXPORT PlatformGlobalChipInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapInfo };
   };
   const PlatformGlobalChipLogicalFapInfo* logicalFapInfo(LogicalFapId id) const { return logicalFapInfo_.find(id); }
   PlatformGlobalChipLogicalFapInfo* logicalFapInfo(LogicalFapId id) { return logicalFapInfo_.find(id); }
   const Kiv::Collection<LogicalFapId, PlatformGlobalChipLogicalFapInfo>& logicalFapInfo() const {
      return logicalFapInfo_;
   }
   Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> logicalFapInfoIs(LogicalFapId id,
                                                                 Pondo::Ptr<const Asic::GenericIf> chipInfoGif,
                                                                 const Pondo::String& chipInfoString) {
      return logicalFapInfo_.is(id, std::move(chipInfoGif), chipInfoString);
   }
   Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> logicalFapInfoDel(LogicalFapId id) { return logicalFapInfo_.del(id); }
   void logicalFapInfoDelAll() { logicalFapInfo_.delAll(); }
   // logicalFapInfoIs with the chip's generic interface. For test and
   // simulation set-ups only: stops the process otherwise.
   Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> addLogicalFapInfo(LogicalFapId id,
                                                                  Pondo::Ptr<const Asic::ChipInfo> chipInfo,
                                                                  const Pondo::String& chipInfoString);

  private:
   Kiv::Collection<LogicalFapId, PlatformGlobalChipLogicalFapInfo> logicalFapInfo_{this, F::logicalFapInfo,
                                                                                   "logicalFapInfo"};
};

// Factories, and the makers named after each type.
VYRPTP_EXPORT Pondo::Ptr<PlatformGlobalChipInfo> platformGlobalChipInfoFactory();
VYRPTP_EXPORT Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> platformGlobalChipLogicalFapInfoFactory(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif, const Pondo::String& chipInfoString);
VYRPTP_EXPORT Pondo::Ptr<PlatformGlobalChipInfo> PlatformGlobalChipInfoIs();
VYRPTP_EXPORT Pondo::Ptr<PlatformGlobalChipLogicalFapInfo> PlatformGlobalChipLogicalFapInfoIs(
    LogicalFapId logicalFapId, Pondo::Ptr<const Asic::GenericIf> chipInfoGif, const Pondo::String& chipInfoString);

}  // namespace VyrPtp
