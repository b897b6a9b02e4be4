// The platform's description of where each interface's egress timestamps
// are latched: per logical FAP, the chip, its ASIC time unit and one table
// slot per interface; and the per-chip egress timestamp tables.
#pragma once

#include <cstdint>

#include "Asic/ChipInfo.h"
#include "Asic/EgressTimestampTable.h"
#include "Kiv/Entity.h"
#include "VyrPtp/Export.h"
#include "Wyx/IntfId.h"

namespace VyrPtp {

using Asic::EgressTsSwTableKey;
using Asic::PortType;
using Pondo::LogicalFapId;

struct VYRPTP_EXPORT PlatformEgressTsIntfInfo {
   Wyx::IntfId intfId;
   std::uint32_t numBitsInAsicProvidedEgressTs = 0;
   EgressTsSwTableKey swTableIndex;

   friend auto operator<=>(const PlatformEgressTsIntfInfo&, const PlatformEgressTsIntfInfo&) = default;
   // "PlatformEgressTsIntfInfo(intfId: Ethernet1/1, numBitsInAsicProvidedEgressTs: 32, swTableIndex: (index: 3,
   // portType: network))"
   std::string toString() const;
   // Parses the text form; throws Pondo::RangeError when it is malformed.
   static PlatformEgressTsIntfInfo fromString(std::string_view text);
};

class VYRPTP_EXPORT PlatformEgressTsLogicalFapInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapId, asicTimeId, chipInfo, chipInfoGif, intfInfo };
   };
   PlatformEgressTsLogicalFapInfo(LogicalFapId logicalFapId, std::uint8_t asicTimeId,
                                  Pondo::Ptr<const Asic::ChipInfo> chipInfo);
   auto fixedArgs() const { return std::make_tuple(asicTimeId_, chipInfo_); }

   LogicalFapId logicalFapId() const { return logicalFapId_; }
   std::uint8_t asicTimeId() const { return asicTimeId_; }
   const Pondo::Ptr<const Asic::ChipInfo>& chipInfo() const { return chipInfo_; }
   const Pondo::Ptr<const Asic::GenericIf>& chipInfoGif() const { return chipInfoGif_; }

   const PlatformEgressTsIntfInfo* intfInfo(Wyx::IntfId i) const { return intfInfo_.find(i); }
   const Kiv::Map<Wyx::IntfId, PlatformEgressTsIntfInfo>& intfInfo() const { return intfInfo_; }
   // Inserts the interface's info or replaces it.
   void intfInfoIs(const PlatformEgressTsIntfInfo& info) { intfInfo_.is(info.intfId, info); }
   bool intfInfoDel(Wyx::IntfId i) { return intfInfo_.del(i); }
   void intfInfoDelAll() { intfInfo_.delAll(); }

  private:
   LogicalFapId logicalFapId_;
   std::uint8_t asicTimeId_;
   Pondo::Ptr<const Asic::ChipInfo> chipInfo_;
   Pondo::Ptr<const Asic::GenericIf> chipInfoGif_;
   Kiv::Map<Wyx::IntfId, PlatformEgressTsIntfInfo> intfInfo_{this, F::intfInfo, "intfInfo"};
};

class VYRPTP_EXPORT PlatformEgressTsInfo : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapInfo };
   };
   const PlatformEgressTsLogicalFapInfo* logicalFapInfo(LogicalFapId id) const { return logicalFapInfo_.find(id); }
   PlatformEgressTsLogicalFapInfo* logicalFapInfo(LogicalFapId id) { return logicalFapInfo_.find(id); }
   const Kiv::Collection<LogicalFapId, PlatformEgressTsLogicalFapInfo>& logicalFapInfo() const {
      return logicalFapInfo_;
   }
   Pondo::Ptr<PlatformEgressTsLogicalFapInfo> logicalFapInfoIs(LogicalFapId id, std::uint8_t asicTimeId,
                                                               Pondo::Ptr<const Asic::ChipInfo> chipInfo) {
      return logicalFapInfo_.is(id, asicTimeId, Kiv::nonNull(chipInfo, "chipInfo"));
   }
   Pondo::Ptr<PlatformEgressTsLogicalFapInfo> logicalFapInfoDel(LogicalFapId id) { return logicalFapInfo_.del(id); }
   void logicalFapInfoDelAll() { logicalFapInfo_.delAll(); }
   // For test and simulation set-ups only: stops the process otherwise.
   Pondo::Ptr<PlatformEgressTsLogicalFapInfo> addLogicalFapInfo(LogicalFapId id, std::uint8_t asicTimeId,
                                                                Pondo::Ptr<const Asic::ChipInfo> chipInfo);

  private:
   Kiv::Collection<LogicalFapId, PlatformEgressTsLogicalFapInfo> logicalFapInfo_{this, F::logicalFapInfo,
                                                                                 "logicalFapInfo"};
};

// The egress timestamp status tables of one logical FAP, by port type.
class VYRPTP_EXPORT LogicalFapArmTables : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapId, egressTimestampStatusTableCol };
   };
   explicit LogicalFapArmTables(LogicalFapId id) : logicalFapId_(id) {}
   LogicalFapId logicalFapId() const { return logicalFapId_; }

   const Asic::EgressTimestampTable* egressTimestampStatusTableCol(PortType t) const {
      return egressTimestampStatusTableCol_.find(t);
   }

   Asic::EgressTimestampTable* egressTimestampStatusTableCol(PortType t) {
      return egressTimestampStatusTableCol_.find(t);
   }
   const Kiv::Collection<PortType, Asic::EgressTimestampTable>& egressTimestampStatusTableCol() const {
      return egressTimestampStatusTableCol_;
   }
   Pondo::Ptr<Asic::EgressTimestampTable> egressTimestampStatusTableColIs(PortType t) {
      return egressTimestampStatusTableCol_.is(t);
   }
   Pondo::Ptr<Asic::EgressTimestampTable> egressTimestampStatusTableColDel(PortType t) {
      return egressTimestampStatusTableCol_.del(t);
   }
   void egressTimestampStatusTableColDelAll() { egressTimestampStatusTableCol_.delAll(); }

  private:
   LogicalFapId logicalFapId_;
   Kiv::Collection<PortType, Asic::EgressTimestampTable> egressTimestampStatusTableCol_{
       this, F::egressTimestampStatusTableCol, "egressTimestampStatusTableCol"};
};

class VYRPTP_EXPORT ArmTables : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { logicalFapTable };
   };
   const LogicalFapArmTables* logicalFapTable(LogicalFapId id) const { return logicalFapTable_.find(id); }
   LogicalFapArmTables* logicalFapTable(LogicalFapId id) { return logicalFapTable_.find(id); }
   const Kiv::Collection<LogicalFapId, LogicalFapArmTables>& logicalFapTable() const { return logicalFapTable_; }
   Pondo::Ptr<LogicalFapArmTables> logicalFapTableIs(LogicalFapId id) { return logicalFapTable_.is(id); }
   Pondo::Ptr<LogicalFapArmTables> logicalFapTableDel(LogicalFapId id) { return logicalFapTable_.del(id); }
   void logicalFapTableDelAll() { logicalFapTable_.delAll(); }

  private:
   Kiv::Collection<LogicalFapId, LogicalFapArmTables> logicalFapTable_{this, F::logicalFapTable, "logicalFapTable"};
};

VYRPTP_EXPORT Pondo::Ptr<PlatformEgressTsInfo> platformEgressTsInfoFactory();
VYRPTP_EXPORT Pondo::Ptr<LogicalFapArmTables> logicalFapArmTablesFactory(LogicalFapId logicalFapId);
VYRPTP_EXPORT Pondo::Ptr<ArmTables> armTablesFactory();
VYRPTP_EXPORT Pondo::Ptr<PlatformEgressTsLogicalFapInfo> platformEgressTsLogicalFapInfoFactory(
    LogicalFapId logicalFapId, std::uint8_t asicTimeId, Pondo::Ptr<const Asic::ChipInfo> chipInfo);
VYRPTP_EXPORT Pondo::Ptr<PlatformEgressTsInfo> PlatformEgressTsInfoIs();
VYRPTP_EXPORT Pondo::Ptr<LogicalFapArmTables> LogicalFapArmTablesIs(LogicalFapId logicalFapId);
VYRPTP_EXPORT Pondo::Ptr<ArmTables> ArmTablesIs();
VYRPTP_EXPORT Pondo::Ptr<PlatformEgressTsLogicalFapInfo> PlatformEgressTsLogicalFapInfoIs(
    LogicalFapId logicalFapId, std::uint8_t asicTimeId, Pondo::Ptr<const Asic::ChipInfo> chipInfo);

}  // namespace VyrPtp

template <>
struct std::hash<VyrPtp::PlatformEgressTsIntfInfo> {
   std::size_t operator()(const VyrPtp::PlatformEgressTsIntfInfo& i) const noexcept {
      std::size_t h = Pondo::hashMix(std::hash<Wyx::IntfId>{}(i.intfId), i.numBitsInAsicProvidedEgressTs);
      return Pondo::hashMix(h, std::hash<Asic::EgressTsSwTableKey>{}(i.swTableIndex));
   }
};
