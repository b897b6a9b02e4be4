// Whether each interface's hardware is ready to receive and send PTP packets
// with valid timestamps, published in the interfaces' hardware status. An
// interface timestamped at an external PHY is as ready as its PHY reports; one
// timestamped at the forwarding chip needs the chip's time source ready, the
// chip's time synchronisation stable (where the platform synchronises chips)
// and its PHY, if any, no longer timestamping. VyrPtpHwStatusSm keeps one
// VyrPtpHwStatusFapSm per forwarding chip of the unit and hands each the
// PHY island and time-sync status entities of its slice and chip.
#pragma once

#include <cstdint>
#include <string_view>

#include "Kiv/Dir.h"
#include "Kiv/Reactor.h"
#include "Platform/ProductAttributes.h"
#include "Ptp/HwConfig.h"
#include "Ptp/HwStatus.h"
#include "Ptp/PtpTimestampLocationConfig.h"
#include "Ptp/PtpTimestampStatus.h"
#include "PtpTimeSync/HwStatus.h"
#include "UnitPort/PlatformUnitPortInfo.h"
#include "VyrPtp/Export.h"
#include "VyrPtp/VyrHelperPtp.h"
#include "Wyx/IntfId.h"

namespace VyrPtp::Location {

using UnitPort::FapId;
using UnitPort::PlatformUnitPortFapInfo;
using UnitPort::PlatformUnitPortInfo;

// The readiness of the interfaces of one forwarding chip. It owns the
// machine that opens the chip's ASIC time file when the product reads chip
// time through those files.
class VYRPTP_EXPORT VyrPtpHwStatusFapSm final : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId {
         unitPortFapInfo,
         ptpHwConfig,
         externalPhyTimestampLocationConfig,
         timeSyncSupported,
         ptpHwStatus,
         ptpTimestampingStatus,
         timeSyncStatus,
         asicTimestampFileConfig,
         asicTimestampFileStatus,
         asicTimestampFileSm
      };
   };
   // The kernel unit of the ASIC time files of a machine without chip info.
   static constexpr unsigned kernelUnitWithoutChip = 128;

   VyrPtpHwStatusFapSm(Pondo::Ptr<const PlatformUnitPortFapInfo> unitPortFapInfo,
                       Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                       Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
                       bool timeSyncSupported, Pondo::Ptr<Ptp::HwStatus> ptpHwStatus);
   // Compared when the collection of chip machines is asked for an existing one.
   auto fixedArgs() const {
      return std::make_tuple(unitPortFapInfo_.ptr(), ptpHwConfig_.ptr(), externalPhyTimestampLocationConfig_.ptr(),
                             timeSyncSupported_, ptpHwStatus_);
   }

   const PlatformUnitPortFapInfo* unitPortFapInfo() const { return unitPortFapInfo_.get(); }
   const Ptp::HwConfig* ptpHwConfig() const { return ptpHwConfig_.get(); }
   const PtpTimestampLocationConfig* externalPhyTimestampLocationConfig() const {
      return externalPhyTimestampLocationConfig_.get();
   }
   bool timeSyncSupported() const { return timeSyncSupported_; }
   Ptp::HwStatus* ptpHwStatus() const { return ptpHwStatus_.get(); }

   // The PHY island status of the chip's slice, or null. Setting another
   // entity re-evaluates the interfaces it and the previous one list.
   const PtpTimestampStatus* ptpTimestampingStatus() const { return ptpTimestampingStatus_.get(); }
   void ptpTimestampingStatusIs(Pondo::Ptr<const PtpTimestampStatus> s) { ptpTimestampingStatus_ = std::move(s); }
   // The chip's time-sync status, or null. Setting another entity re-evaluates every interface.
   const PtpTimeSync::SwitchStatus* timeSyncStatus() const { return timeSyncStatus_.get(); }
   void timeSyncStatusIs(Pondo::Ptr<const PtpTimeSync::SwitchStatus> s) { timeSyncStatus_ = std::move(s); }

   // The chip's ASIC time file machine and what it works on; null when the
   // product does not read chip time through those files.
   AsicTimestampFileConfig* asicTimestampFileConfig() const { return asicTimestampFileConfig_.get(); }
   const AsicTimestampFileStatus* asicTimestampFileStatus() const { return asicTimestampFileStatus_.get(); }
   AsicTimestampFileSm* asicTimestampFileSm() const { return asicTimestampFileSm_.get(); }

   // Whether the chip can timestamp: its time source ready and, with time
   // synchronisation, its synchronisation stable.
   bool asicHardwareReady() const;
   // Whether the interface's PHY, if it reports at all, timestamps nothing.
   bool externalPhyHardwareStopped(Wyx::IntfId intfId) const;
   // The interface's hardware status, created with its fixed initial values if absent.
   Pondo::Ptr<Ptp::HwIntfStatus> getIntfStatus(Wyx::IntfId intfId);

   // Reactions.
   void handleIntfInfo(Wyx::IntfId intfId);
   void handleIntfEnabled(Wyx::IntfId intfId);
   void handleIntfTimestampLocation(Wyx::IntfId intfId);
   void handleIntfReadyForPacket(Wyx::IntfId intfId);
   void handleTimeSyncStatus();
   void handleAsicTimestampFileStatus();
   void processIntfReady(Wyx::IntfId intfId);
   void processIntfReady();

   // The framework's hooks, also callable directly.
   void onConstruct() override;

  private:
   void on_intfInfo(Wyx::IntfId intfId);
   void on_intfConfig(Wyx::IntfId intfId);
   void on_enabled(const Ptp::HwIntfConfig& config);
   void on_enabledPhysicalIntfConfig(Wyx::IntfId intfId);
   void on_location(const PtpTimestampLocationIntfConfig& entry);
   void on_physicalIntfStatus(Wyx::IntfId intfId);
   void on_intfReadyForPacket(const PtpTimestampIntfStatus& phy);
   void on_state();
   void onTimeSyncStatus(const PtpTimeSync::SwitchStatus* previous, bool initial);
   void on_timestampFd(std::int32_t previous, std::int32_t now);
   void startAsicTimestampFileSm(const Platform::Attributes& attributes);
   // Whether a change of a shared input about `intfId` concerns this chip.
   bool chipHas(Wyx::IntfId intfId) const;

   Kiv::Input<const PlatformUnitPortFapInfo> unitPortFapInfo_;
   Kiv::Input<const Ptp::HwConfig> ptpHwConfig_;
   Kiv::Input<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig_;
   const bool timeSyncSupported_;
   Pondo::Ptr<Ptp::HwStatus> ptpHwStatus_;
   Kiv::Input<const PtpTimestampStatus> ptpTimestampingStatus_;
   Kiv::Input<const PtpTimeSync::SwitchStatus> timeSyncStatus_;
   Pondo::Ptr<AsicTimestampFileConfig> asicTimestampFileConfig_;
   Kiv::Input<const AsicTimestampFileStatus> asicTimestampFileStatus_;
   Pondo::Ptr<AsicTimestampFileSm> asicTimestampFileSm_;
};

class VYRPTP_EXPORT VyrPtpHwStatusSm final : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId {
         unitPortInfo,
         ptpHwConfig,
         externalPhyTimestampLocationConfig,
         ptpTimestampingStatusDir,
         timeSyncHwStatusDir,
         timeSyncSupported,
         ptpHwStatus,
         hwStatusFapSm,
         timeSyncHwStatusSm
      };
   };
   // Island status entities are named by this prefix and a generic slice name.
   static constexpr std::string_view phyIslandPrefix = "PhyIsland-";

   VyrPtpHwStatusSm(Pondo::Ptr<const PlatformUnitPortInfo> unitPortInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
                    Pondo::Ptr<const Kiv::Dir> ptpTimestampingStatusDir, Pondo::Ptr<const Kiv::Dir> timeSyncHwStatusDir,
                    bool timeSyncSupported, Pondo::Ptr<Ptp::HwStatus> ptpHwStatus);

   const PlatformUnitPortInfo* unitPortInfo() const { return unitPortInfo_.get(); }
   const Ptp::HwConfig* ptpHwConfig() const { return ptpHwConfig_.get(); }
   const PtpTimestampLocationConfig* externalPhyTimestampLocationConfig() const {
      return externalPhyTimestampLocationConfig_.get();
   }
   const Kiv::Dir* ptpTimestampingStatusDir() const { return ptpTimestampingStatusDir_.get(); }
   const Kiv::Dir* timeSyncHwStatusDir() const { return timeSyncHwStatusDir_.get(); }
   bool timeSyncSupported() const { return timeSyncSupported_; }
   Ptp::HwStatus* ptpHwStatus() const { return ptpHwStatus_.get(); }

   const VyrPtpHwStatusFapSm* hwStatusFapSm(FapId fapId) const { return hwStatusFapSm_.find(fapId); }

   VyrPtpHwStatusFapSm* hwStatusFapSm(FapId fapId) { return hwStatusFapSm_.find(fapId); }
   const Kiv::Collection<FapId, VyrPtpHwStatusFapSm>& hwStatusFapSm() const { return hwStatusFapSm_; }
   Pondo::Ptr<VyrPtpHwStatusFapSm> hwStatusFapSmIs(FapId fapId, Pondo::Ptr<const PlatformUnitPortFapInfo> info);
   Pondo::Ptr<VyrPtpHwStatusFapSm> hwStatusFapSmDel(FapId fapId) { return hwStatusFapSm_.del(fapId); }

   // The island status entity name of a slice.
   static Pondo::String phyIslandName(const Pondo::String& sliceName);

   // Reactions.
   void handleFapId(FapId fapId);
   void handlePtpTimestampingStatus(const Pondo::String& name);
   void maybeSetPtpTimestampStatus(const Pondo::String& name);
   void handleTimeSyncHwStatus(const Pondo::String& sliceName, const Pondo::String& chipName);
   void maybeSetTimeSyncStatus(const Pondo::String& sliceName, const Pondo::String& chipName);

   // Follows one time-sync status entity of the directory: each chip entry
   // added, removed or changed in it is handed to the owner with the entity's
   // slice name.
   class NestedSm_TimeSyncHwStatus final : public Kiv::NestedSm<VyrPtpHwStatusSm, const PtpTimeSync::HwStatus> {
     public:
      NestedSm_TimeSyncHwStatus(Pondo::Ptr<const PtpTimeSync::HwStatus> hwStatus, VyrPtpHwStatusSm* owner,
                                Pondo::String sliceName)
          : NestedSm(std::move(hwStatus), owner,
                     Kiv::on<PtpTimeSync::HwStatus::switchAsic_t, &NestedSm_TimeSyncHwStatus::handleSwitchAsic>,
                     Kiv::on<Kiv::Inside<PtpTimeSync::HwStatus::switchAsic_t, PtpTimeSync::SwitchStatus::state_t>,
                             &NestedSm_TimeSyncHwStatus::handleState>),
            sliceName_(std::move(sliceName)) {}

     private:
      void handleSwitchAsic(const Pondo::String& chipName);
      void handleState(const PtpTimeSync::SwitchStatus& chip);

      Pondo::String sliceName_;
   };

  private:
   // An entry of the directory added, replaced or removed.
   void handlePtpTimestampingStatusDir(const Pondo::String& name);
   void handleTimeSyncHwStatusDir(const Pondo::String& sliceName);

   Kiv::Input<const PlatformUnitPortInfo> unitPortInfo_;
   Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig_;
   Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig_;
   Kiv::Input<const Kiv::Dir> ptpTimestampingStatusDir_;
   Kiv::Input<const Kiv::Dir> timeSyncHwStatusDir_;
   const bool timeSyncSupported_;
   Pondo::Ptr<Ptp::HwStatus> ptpHwStatus_;
   Kiv::Collection<FapId, VyrPtpHwStatusFapSm> hwStatusFapSm_{this, F::hwStatusFapSm, "hwStatusFapSm"};
   // One per time-sync status entity of the directory, by slice name.
   Kiv::Collection<Pondo::String, NestedSm_TimeSyncHwStatus> timeSyncHwStatusSm_{this, F::timeSyncHwStatusSm,
                                                                                 "timeSyncHwStatusSm"};
};

VYRPTP_EXPORT Pondo::Ptr<VyrPtpHwStatusFapSm> vyrPtpHwStatusFapSmFactory(
    Pondo::Ptr<const PlatformUnitPortFapInfo> unitPortFapInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig, bool timeSyncSupported,
    Pondo::Ptr<Ptp::HwStatus> ptpHwStatus);
VYRPTP_EXPORT Pondo::Ptr<VyrPtpHwStatusFapSm> VyrPtpHwStatusFapSmIs(
    Pondo::Ptr<const PlatformUnitPortFapInfo> unitPortFapInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig, bool timeSyncSupported,
    Pondo::Ptr<Ptp::HwStatus> ptpHwStatus);
VYRPTP_EXPORT Pondo::Ptr<VyrPtpHwStatusSm> vyrPtpHwStatusSmFactory(
    Pondo::Ptr<const PlatformUnitPortInfo> unitPortInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
    Pondo::Ptr<const Kiv::Dir> ptpTimestampingStatusDir, Pondo::Ptr<const Kiv::Dir> timeSyncHwStatusDir,
    bool timeSyncSupported, Pondo::Ptr<Ptp::HwStatus> ptpHwStatus);
VYRPTP_EXPORT Pondo::Ptr<VyrPtpHwStatusSm::NestedSm_TimeSyncHwStatus> nestedSm_TimeSyncHwStatusFactory(
    Pondo::Ptr<const PtpTimeSync::HwStatus> hwStatus, VyrPtpHwStatusSm* owner, Pondo::String sliceName);
VYRPTP_EXPORT Pondo::Ptr<VyrPtpHwStatusSm> VyrPtpHwStatusSmIs(
    Pondo::Ptr<const PlatformUnitPortInfo> unitPortInfo, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const PtpTimestampLocationConfig> externalPhyTimestampLocationConfig,
    Pondo::Ptr<const Kiv::Dir> ptpTimestampingStatusDir, Pondo::Ptr<const Kiv::Dir> timeSyncHwStatusDir,
    bool timeSyncSupported, Pondo::Ptr<Ptp::HwStatus> ptpHwStatus);

VYRPTP_EXPORT Pondo::Ptr<VyrPtpHwStatusSm::NestedSm_TimeSyncHwStatus> NestedSm_TimeSyncHwStatusIs(
    Pondo::Ptr<const PtpTimeSync::HwStatus> hwStatus, VyrPtpHwStatusSm* owner, Pondo::String sliceName);

}  // namespace VyrPtp::Location
