// Per PTP port data set, whether the hardware must capture egress timestamps
// (two-step operation) or update the correction field itself (one-step), and
// on which physical interfaces: a port data set on a LAG acts on each of its
// programmed members that is up.
#pragma once

#include <cstdint>

#include "Hardware/Lag/Status.h"
#include "Interface/EthPhyIntfStatus.h"
#include "Kiv/Reactor.h"
#include "Ptp/HwConfig.h"
#include "Ptp/Status.h"
#include "VyrPtp/Export.h"
#include "Wyx/IntfId.h"

namespace VyrPtp {

// The egress decisions per physical interface, written only by EgressTimestampIntfSm.
class VYRPTP_EXPORT EgressTimestampIntfStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, clockId, physicalIntfNeedsOneStepCfUpdate, physicalIntfNeedsPolling };
   };
   explicit EgressTimestampIntfStatus(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }

   // The clock identity of the port that last enabled polling on the interface.
   const Kiv::Map<Wyx::IntfId, Ptp::ClockIdentity>& clockId() const { return clockId_; }
   void clockIdIs(Wyx::IntfId intf, const Ptp::ClockIdentity& c) { clockId_.is(intf, c); }
   bool clockIdDel(Wyx::IntfId intf) { return clockId_.del(intf); }
   void clockIdDelAll() { clockId_.delAll(); }

   // Whether the hardware updates the correction field of outgoing PTP
   // messages; false is an entry of its own.
   const Kiv::Map<Wyx::IntfId, bool>& physicalIntfNeedsOneStepCfUpdate() const {
      return physicalIntfNeedsOneStepCfUpdate_;
   }
   void physicalIntfNeedsOneStepCfUpdateIs(Wyx::IntfId intf, bool v) { physicalIntfNeedsOneStepCfUpdate_.is(intf, v); }
   bool physicalIntfNeedsOneStepCfUpdateDel(Wyx::IntfId intf) { return physicalIntfNeedsOneStepCfUpdate_.del(intf); }
   void physicalIntfNeedsOneStepCfUpdateDelAll() { physicalIntfNeedsOneStepCfUpdate_.delAll(); }

   // Interfaces whose egress timestamps must be collected.
   const Kiv::Set<Wyx::IntfId>& physicalIntfNeedsPolling() const { return physicalIntfNeedsPolling_; }
   void physicalIntfNeedsPollingIs(Wyx::IntfId intf) { physicalIntfNeedsPolling_.is(intf); }
   bool physicalIntfNeedsPollingDel(Wyx::IntfId intf) { return physicalIntfNeedsPolling_.del(intf); }
   void physicalIntfNeedsPollingDelAll() { physicalIntfNeedsPolling_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Map<Wyx::IntfId, Ptp::ClockIdentity> clockId_{this, F::clockId, "clockId"};
   Kiv::Map<Wyx::IntfId, bool> physicalIntfNeedsOneStepCfUpdate_{this, F::physicalIntfNeedsOneStepCfUpdate,
                                                                 "physicalIntfNeedsOneStepCfUpdate"};
   Kiv::Set<Wyx::IntfId> physicalIntfNeedsPolling_{this, F::physicalIntfNeedsPolling, "physicalIntfNeedsPolling"};
};

// The physical members of a LAG on which something was switched on for one
// port data set of that LAG.
class VYRPTP_EXPORT LagPortDSMember : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { lagPortDSKey, member };
   };
   explicit LagPortDSMember(const Ptp::PortDSKey& lagPortDSKey) : lagPortDSKey_(lagPortDSKey) {}

   const Ptp::PortDSKey& lagPortDSKey() const { return lagPortDSKey_; }
   const Kiv::Set<Wyx::IntfId>& member() const { return member_; }
   void memberIs(Wyx::IntfId m) { member_.is(m); }
   bool memberDel(Wyx::IntfId m) { return member_.del(m); }
   void memberDelAll() { member_.delAll(); }

  private:
   Ptp::PortDSKey lagPortDSKey_;
   Kiv::Set<Wyx::IntfId> member_{this, F::member, "member"};
};

class VYRPTP_EXPORT EgressTimestampIntfSm : public Kiv::Reactor {
  public:
   struct F {
      enum : Kiv::FieldId {
         enabledPortDS,
         enabledLagPortDSMember,
         oneStepCfUpdateEnabledLagPortDSMember,
         intfRefCount,
         intfConfig,
         intfStatus,
         portDS,
         programmedMember
      };
   };
   EgressTimestampIntfSm(Pondo::Ptr<const Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatus,
                         Pondo::Ptr<const Hardware::Lag::Status> lagStatus, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                         Pondo::Ptr<const Ptp::Status> ptpStatus,
                         Pondo::Ptr<EgressTimestampIntfStatus> egressTimestampIntfStatus);
   ~EgressTimestampIntfSm() override;

   const Interface::AllEthPhyIntfStatusDir* ethPhyIntfStatus() const { return ethPhyIntfStatus_.get(); }
   const Hardware::Lag::Status* lagStatus() const { return lagStatus_.get(); }
   const Ptp::HwConfig* ptpHwConfig() const { return ptpHwConfig_.get(); }
   const Ptp::Status* ptpStatus() const { return ptpStatus_.get(); }
   EgressTimestampIntfStatus* egressTimestampIntfStatus() const { return egressTimestampIntfStatus_.get(); }

   // Port data sets with egress timestamping enabled, physical or LAG.
   const Kiv::Set<Ptp::PortDSKey>& enabledPortDS() const { return enabledPortDS_; }
   // Per enabled LAG port data set, the members holding a polling reference for it.
   const Kiv::Collection<Ptp::PortDSKey, LagPortDSMember>& enabledLagPortDSMember() const {
      return enabledLagPortDSMember_;
   }
   // Per LAG port data set, the members with the one-step update switched on for it.
   const Kiv::Collection<Ptp::PortDSKey, LagPortDSMember>& oneStepCfUpdateEnabledLagPortDSMember() const {
      return oneStepCfUpdateEnabledLagPortDSMember_;
   }

   // Outstanding polling enablings per physical interface; wraps modulo 65536.
   const Kiv::Map<Wyx::IntfId, std::uint16_t>& intfRefCount() const { return intfRefCount_; }
   void intfRefCountIs(Wyx::IntfId intf, std::uint16_t count) { intfRefCount_.is(intf, count); }
   bool intfRefCountDel(Wyx::IntfId intf) { return intfRefCount_.del(intf); }
   // Store and return the stored count (0 if none) plus or minus n; the entry
   // is written even when the result is 0.
   std::uint16_t intfRefCountInc(Wyx::IntfId intf, std::uint16_t n);
   std::uint16_t intfRefCountDec(Wyx::IntfId intf, std::uint16_t n);

   // Numbers of nested reactors, one per watched entity.
   std::size_t intfConfigSmCount() const { return intfConfig_.size(); }
   std::size_t intfStatusSmCount() const { return intfStatus_.size(); }
   std::size_t portDSSmCount() const { return portDS_.size(); }
   std::size_t programmedMemberSmCount() const { return programmedMember_.size(); }

   // Decisions. portDSNeedsEgressTimestamping requires the port data set to exist.
   bool portDSNeedsEgressTimestamping(const Ptp::PortDSKey& key) const;
   bool portDSNeedsOneStepCfUpdate(const Ptp::PortDSKey& key) const;
   bool isInterfaceUp(Wyx::IntfId intfId) const;

   // Actions.
   void handleCreated();
   void handlePtpMode();
   void handlePortDS(const Ptp::PortDSKey& key);
   void enablePortDS(const Ptp::PortDSKey& key);
   void disablePortDS(const Ptp::PortDSKey& key);
   void enableLagPortDS(const Ptp::PortDSKey& key);
   void disableLagPortDS(const Ptp::PortDSKey& key);
   void configureOneStepCfUpdate(const Ptp::PortDSKey& key);
   void enableEgressTimestampPolling(Wyx::IntfId intfId, const Ptp::ClockIdentity& clockIdentity);
   void disableEgressTimestampPolling(Wyx::IntfId intfId);

   // Nested reactors, one per member entity of an input.
   template <class E, Kiv::FieldId watched, bool runOnBinding>
   class MemberSm;
   class IntfConfigSm;
   class IntfStatusSm;
   class PortDSSm;
   class ProgrammedMemberSm;

  private:
   void on_ethPhyIntfStatus(const Kiv::Change& c);
   void on_lagStatus(const Kiv::Change& c);
   void on_ptpHwConfig(const Kiv::Change& c);
   void on_ptpStatus(const Kiv::Change& c);
   void onConstruct() override;
   // Creates or removes the nested reactor of key `key`, whose member is now `member` (or none).
   template <class Sm, class K, class E>
   void nestedIs(Kiv::Collection<K, Sm>& nested, const K& key, const E* member);

   Kiv::Input<const Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatus_;
   Kiv::Input<const Hardware::Lag::Status> lagStatus_;
   Kiv::Input<const Ptp::HwConfig> ptpHwConfig_;
   Kiv::Input<const Ptp::Status> ptpStatus_;
   Pondo::Ptr<EgressTimestampIntfStatus> egressTimestampIntfStatus_;

   Kiv::Set<Ptp::PortDSKey> enabledPortDS_{this, F::enabledPortDS, "enabledPortDS"};
   Kiv::Collection<Ptp::PortDSKey, LagPortDSMember> enabledLagPortDSMember_{this, F::enabledLagPortDSMember,
                                                                            "enabledLagPortDSMember"};
   Kiv::Collection<Ptp::PortDSKey, LagPortDSMember> oneStepCfUpdateEnabledLagPortDSMember_{
       this, F::oneStepCfUpdateEnabledLagPortDSMember, "oneStepCfUpdateEnabledLagPortDSMember"};
   Kiv::Map<Wyx::IntfId, std::uint16_t> intfRefCount_{this, F::intfRefCount, "intfRefCount"};
   Kiv::Collection<Wyx::IntfId, IntfConfigSm> intfConfig_{this, F::intfConfig, "intfConfig"};
   Kiv::Collection<Wyx::IntfId, IntfStatusSm> intfStatus_{this, F::intfStatus, "intfStatus"};
   Kiv::Collection<Ptp::PortDSKey, PortDSSm> portDS_{this, F::portDS, "portDS"};
   Kiv::Collection<Wyx::IntfId, ProgrammedMemberSm> programmedMember_{this, F::programmedMember, "programmedMember"};
};

// A nested reactor bound to one member entity of an input: handle() runs when
// the watched attribute changes and, when runOnBinding, once on binding.
// Bindings made while the owner is still being created run nothing: the
// owner's handleCreated then evaluates everything once.
template <class E, Kiv::FieldId watched, bool runOnBinding>
class EgressTimestampIntfSm::MemberSm : public Kiv::NestedSm<EgressTimestampIntfSm, const E> {
   using Base = Kiv::NestedSm<EgressTimestampIntfSm, const E>;

  public:
   // The owner is checked before the entity.
   MemberSm(EgressTimestampIntfSm* sm, Pondo::Ptr<const E> entity)
       : Base((Kiv::nonNull(sm, "egressTimestampIntfSm"), Kiv::nonNull(entity, "entity")), sm,
              Kiv::onAny<&MemberSm::onAttribute>, Kiv::onSelf<&MemberSm::onBinding>) {}

  protected:
   virtual void handle() = 0;
   EgressTimestampIntfSm* sm() const { return this->ownerSm(); }
   const E& entity() const { return *this->notifier(); }

  private:
   void onAttribute(const Kiv::Change& c) {
      if (c.field == watched) handle();
   }
   void onBinding(const E*, bool) {
      if (runOnBinding && sm()->initialized()) handle();
   }
};

class EgressTimestampIntfSm::IntfConfigSm final
    : public MemberSm<Ptp::HwIntfConfig, Ptp::HwIntfConfig::F::enabled, true> {
  public:
   IntfConfigSm(Wyx::IntfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Ptp::HwIntfConfig> config)
       : MemberSm(sm, std::move(config)) {}

  private:
   void handle() override;
   void handleEnabled();
};

class EgressTimestampIntfSm::IntfStatusSm final
    : public MemberSm<Interface::EthPhyIntfStatus, Interface::EthPhyIntfStatus::F::operStatus, true> {
  public:
   IntfStatusSm(Wyx::IntfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Interface::EthPhyIntfStatus> status)
       : MemberSm(sm, std::move(status)) {}

  private:
   void handle() override;
   void handleOperStatus();
};

class EgressTimestampIntfSm::PortDSSm final : public MemberSm<Ptp::PortDS, Ptp::PortDS::F::portState, true> {
  public:
   PortDSSm(const Ptp::PortDSKey&, EgressTimestampIntfSm* sm, Pondo::Ptr<const Ptp::PortDS> portDS)
       : MemberSm(sm, std::move(portDS)) {}

  private:
   void handle() override;
   void handlePortState();
};

// Binding runs nothing: a new programmed member is only taken into account
// when its LAG's port data sets are next evaluated, or when it moves to
// another LAG.
class EgressTimestampIntfSm::ProgrammedMemberSm final
    : public MemberSm<Hardware::Lag::ProgrammedMember, Hardware::Lag::ProgrammedMember::F::lagIntfId, false> {
  public:
   ProgrammedMemberSm(Wyx::IntfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Hardware::Lag::ProgrammedMember> m)
       : MemberSm(sm, std::move(m)) {}

  private:
   void handle() override;
   void handleMember();
};

VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfStatus> egressTimestampIntfStatusFactory(const Pondo::String& name);
VYRPTP_EXPORT Pondo::Ptr<LagPortDSMember> lagPortDSMemberFactory(const Ptp::PortDSKey& lagPortDSKey);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm> egressTimestampIntfSmFactory(
    Pondo::Ptr<const Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatus,
    Pondo::Ptr<const Hardware::Lag::Status> lagStatus, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const Ptp::Status> ptpStatus, Pondo::Ptr<EgressTimestampIntfStatus> egressTimestampIntfStatus);
// Nested reactors made on their own report to `sm` as those it makes itself do.
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm::IntfConfigSm> intfConfigSmFactory(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Ptp::HwIntfConfig> config);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm::IntfStatusSm> intfStatusSmFactory(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Interface::EthPhyIntfStatus> status);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm::PortDSSm> portDSSmFactory(const Ptp::PortDSKey& key,
                                                                          EgressTimestampIntfSm* sm,
                                                                          Pondo::Ptr<const Ptp::PortDS> portDS);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm::ProgrammedMemberSm> programmedMemberSmFactory(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Hardware::Lag::ProgrammedMember> member);

VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfStatus> EgressTimestampIntfStatusIs(const Pondo::String& name);
VYRPTP_EXPORT Pondo::Ptr<LagPortDSMember> LagPortDSMemberIs(const Ptp::PortDSKey& lagPortDSKey);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm> EgressTimestampIntfSmIs(
    Pondo::Ptr<const Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatus,
    Pondo::Ptr<const Hardware::Lag::Status> lagStatus, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const Ptp::Status> ptpStatus, Pondo::Ptr<EgressTimestampIntfStatus> egressTimestampIntfStatus);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm::IntfConfigSm> IntfConfigSmIs(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Ptp::HwIntfConfig> config);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm::IntfStatusSm> IntfStatusSmIs(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Interface::EthPhyIntfStatus> status);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm::PortDSSm> PortDSSmIs(const Ptp::PortDSKey& key,
                                                                     EgressTimestampIntfSm* sm,
                                                                     Pondo::Ptr<const Ptp::PortDS> portDS);
VYRPTP_EXPORT Pondo::Ptr<EgressTimestampIntfSm::ProgrammedMemberSm> ProgrammedMemberSmIs(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Hardware::Lag::ProgrammedMember> member);

}  // namespace VyrPtp
