#include "VyrPtp/EgressTimestampIntfSm.h"

#include <vector>

namespace VyrPtp {

namespace {

Kiv::Tracer trace{"EgressTimestampIntfSm"};

using Ptp::PortDSKey;
using Ptp::PortState;

bool isSlaveState(PortState s) {
   return s == PortState::uncalibrated || s == PortState::slave || s == PortState::slaveVariant;
}

}  // namespace

void EgressTimestampIntfSm::IntfConfigSm::handle() { handleEnabled(); }

// LAG port data sets are not re-evaluated when a member's configuration changes.
void EgressTimestampIntfSm::IntfConfigSm::handleEnabled() {
   trace(8, "handleEnabled");
   for (const auto& [key, portDS] : sm()->ptpStatus()->portDS()) {
      if (key.intf() == entity().intfId()) sm()->handlePortDS(key);
   }
}

void EgressTimestampIntfSm::IntfStatusSm::handle() { handleOperStatus(); }

// Re-evaluates the port data sets on this interface and on every LAG it is a
// programmed member of.
void EgressTimestampIntfSm::IntfStatusSm::handleOperStatus() {
   const Wyx::IntfId intfId = entity().intfId();
   trace(8, "handleOperStatus, intfId: {}", intfId);
   for (const auto& [key, portDS] : sm()->ptpStatus()->portDS()) {
      const Hardware::Lag::ProgrammedLag* lag =
          Wyx::isPortChannelIntfId(key.intf()) ? sm()->lagStatus()->programmedLag(key.intf()) : nullptr;
      if ((lag && lag->member().contains(intfId)) || key.intf() == intfId) sm()->handlePortDS(key);
   }
}

void EgressTimestampIntfSm::PortDSSm::handle() { handlePortState(); }

void EgressTimestampIntfSm::PortDSSm::handlePortState() {
   trace(8, "handlePortState, PortDSKey: {}", entity().portDSKey());
   sm()->handlePortDS(entity().portDSKey());
}

void EgressTimestampIntfSm::ProgrammedMemberSm::handle() { handleMember(); }

void EgressTimestampIntfSm::ProgrammedMemberSm::handleMember() {
   const Wyx::IntfId lag = entity().lagIntfId();
   trace(8, "handleMember, lagIntfId: {}", lag);
   for (const auto& [key, portDS] : sm()->ptpStatus()->portDS()) {
      if (key.intf() == lag) sm()->handlePortDS(key);
   }
}

EgressTimestampIntfSm::EgressTimestampIntfSm(Pondo::Ptr<const Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatus,
                                             Pondo::Ptr<const Hardware::Lag::Status> lagStatus,
                                             Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
                                             Pondo::Ptr<const Ptp::Status> ptpStatus,
                                             Pondo::Ptr<EgressTimestampIntfStatus> egressTimestampIntfStatus)
    : ethPhyIntfStatus_(
          this, std::move(ethPhyIntfStatus),
          Kiv::on<Interface::AllEthPhyIntfStatusDir::intfStatus_t, &EgressTimestampIntfSm::handleIntfStatus>),
      lagStatus_(this, std::move(lagStatus),
                 Kiv::on<Hardware::Lag::Status::programmedMember_t, &EgressTimestampIntfSm::handleProgrammedMember>),
      ptpHwConfig_(this, std::move(ptpHwConfig),
                   Kiv::on<Ptp::HwConfig::ptpMode_t, &EgressTimestampIntfSm::handlePtpMode>,
                   Kiv::on<Ptp::HwConfig::intfConfig_t, &EgressTimestampIntfSm::handleIntfConfig>),
      ptpStatus_(this, std::move(ptpStatus), Kiv::on<Ptp::Status::portDS_t, &EgressTimestampIntfSm::on_portDS>),
      egressTimestampIntfStatus_(std::move(egressTimestampIntfStatus)) {}

EgressTimestampIntfSm::~EgressTimestampIntfSm() = default;

const EgressTimestampIntfSm::IntfConfigSm* EgressTimestampIntfSm::intfConfig(Wyx::IntfId i) const {
   return intfConfig_.find(i);
}
const EgressTimestampIntfSm::IntfStatusSm* EgressTimestampIntfSm::intfStatus(Wyx::IntfId i) const {
   return intfStatus_.find(i);
}
const EgressTimestampIntfSm::PortDSSm* EgressTimestampIntfSm::portDS(const PortDSKey& k) const {
   return portDS_.find(k);
}
const EgressTimestampIntfSm::ProgrammedMemberSm* EgressTimestampIntfSm::programmedMember(Wyx::IntfId i) const {
   return programmedMember_.find(i);
}

template <class Sm, class K, class E>
void EgressTimestampIntfSm::nestedIs(Kiv::Collection<K, Sm>& nested, const K& key, const E* member) {
   Kiv::shadow(nested, key, member, [&] { return Kiv::make<Sm>(key, this, member); });
}

void EgressTimestampIntfSm::handleIntfStatus(Wyx::IntfId intfId) {
   nestedIs(intfStatus_, intfId, ethPhyIntfStatus_->intfStatus(intfId));
}

// Changes of a LAG's member set run nothing by themselves.
void EgressTimestampIntfSm::handleProgrammedMember(Wyx::IntfId intfId) {
   nestedIs(programmedMember_, intfId, lagStatus_->programmedMember(intfId));
}

void EgressTimestampIntfSm::handleIntfConfig(Wyx::IntfId intfId) {
   nestedIs(intfConfig_, intfId, ptpHwConfig_->intfConfig(intfId));
}

// Port data sets replayed at the start are evaluated by handleCreated.
void EgressTimestampIntfSm::on_portDS(const PortDSKey& key) {
   nestedIs(portDS_, key, ptpStatus_->portDS(key));
   if (initialized()) handlePortDS(key);
}

void EgressTimestampIntfSm::onConstruct() { handleCreated(); }

std::uint16_t EgressTimestampIntfSm::intfRefCountInc(Wyx::IntfId intf, std::uint16_t n) {
   const std::uint16_t* stored = intfRefCount_.find(intf);
   const auto count = std::uint16_t((stored ? *stored : 0) + n);
   intfRefCount_.is(intf, count);
   return count;
}

std::uint16_t EgressTimestampIntfSm::intfRefCountDec(Wyx::IntfId intf, std::uint16_t n) {
   const std::uint16_t* stored = intfRefCount_.find(intf);
   const auto count = std::uint16_t((stored ? *stored : 0) - n);
   intfRefCount_.is(intf, count);
   return count;
}

bool EgressTimestampIntfSm::portDSNeedsEgressTimestamping(const PortDSKey& key) const {
   const Ptp::PortDS* portDS = ptpStatus_->portDS(key);
   Kiv::kassert(portDS, "portDSNeedsEgressTimestamping: no port data set for {}", key);
   const PortState state = portDS->portState();
   const Ptp::PtpMode mode = ptpHwConfig_->ptpMode();
   trace(8, "portDSNeedsEgressTimestamping, PortDSKey: {}, ptpMode: {}, portState: {}", key, mode, state);
   const Ptp::HwIntfConfig* config = ptpHwConfig_->intfConfig(key.intf());
   if (!config || !config->enabled()) return false;
   switch (unsigned(mode)) {
      case 1:
      case 7:
         switch (state) {
            case PortState::initializing:
            case PortState::listening:
            case PortState::preMaster:
            case PortState::master:
            case PortState::passive:
            case PortState::uncalibrated:
            case PortState::slave:
            case PortState::slaveVariant: return true;
            default: return false;
         }
      case 2: return isSlaveState(state);
      case 3:
      case 5:
      case 6:
      case 8: return true;
      default: return false;  // 0, 4 and above 8
   }
}

// Only mode 2 uses the one-step update, in every port state but disabled and
// the slave states (which need egress timestamps instead).
bool EgressTimestampIntfSm::portDSNeedsOneStepCfUpdate(const PortDSKey& key) const {
   trace(8, "portDSNeedsOneStepCfUpdate, portDSKey: {}", key);
   const Ptp::PortDS* portDS = ptpStatus_->portDS(key);
   if (!portDS) return false;
   const PortState state = portDS->portState();
   if (state == PortState::disabled) return false;
   const Ptp::PtpMode mode = ptpHwConfig_->ptpMode();
   trace(5, "portDSNeedsOneStepCfUpdate, PortDSKey: {}, ptpMode: {}, portState: {}", key, mode, state);
   const Ptp::HwIntfConfig* config = ptpHwConfig_->intfConfig(key.intf());
   if (!config || !config->enabled()) return false;
   return unsigned(mode) == 2 && !isSlaveState(state);
}

// An interface without status reads as unknown, that is not up.
bool EgressTimestampIntfSm::isInterfaceUp(Wyx::IntfId intfId) const {
   const Interface::EthPhyIntfStatus* status = ethPhyIntfStatus_->intfStatus(intfId);
   const Interface::OperStatus operStatus = status ? status->operStatus() : Interface::OperStatus::unknown;
   trace(8, "isInterfaceUp, intfId: {}, operStatus: {}", intfId, operStatus);
   return operStatus == Interface::OperStatus::up;
}

void EgressTimestampIntfSm::handleCreated() {
   trace(8, "handleCreated");
   Kiv::kassert(ethPhyIntfStatus(), "ethPhyIntfStatus()");
   Kiv::kassert(lagStatus(), "lagStatus()");
   Kiv::kassert(ptpHwConfig(), "ptpHwConfig()");
   Kiv::kassert(ptpStatus(), "ptpStatus()");
   Kiv::kassert(egressTimestampIntfStatus(), "egressTimestampIntfStatus()");
   handlePtpMode();
}

// Evaluates every port data set, then every enabled one again so that those
// whose port data set is gone are switched off.
void EgressTimestampIntfSm::handlePtpMode() {
   trace(8, "handlePtpMode, ptp mode: {}", ptpHwConfig_->ptpMode());
   for (const auto& [key, portDS] : ptpStatus_->portDS()) handlePortDS(key);
   const std::vector<PortDSKey> enabled(enabledPortDS_.begin(), enabledPortDS_.end());
   for (const PortDSKey& key : enabled) handlePortDS(key);
}

void EgressTimestampIntfSm::handlePortDS(const PortDSKey& key) {
   trace(8, "handlePortDS, PortDSKey: {}", key);
   const bool lag = Wyx::isPortChannelIntfId(key.intf());
   if (ptpStatus_->portDS(key)) {
      const bool needs = portDSNeedsEgressTimestamping(key);
      trace(5, "handlePortDS, portDSNeedsEgressTimestamping: {}", needs);
      if (lag) {
         needs ? enableLagPortDS(key) : disableLagPortDS(key);
      } else {
         needs ? enablePortDS(key) : disablePortDS(key);
      }
   } else {
      lag ? disableLagPortDS(key) : disablePortDS(key);
   }
   configureOneStepCfUpdate(key);
}

// The operational state is not consulted on the first enabling, only on the
// next evaluation, so on a down interface polling goes on and off by turns.
void EgressTimestampIntfSm::enablePortDS(const PortDSKey& key) {
   if (enabledPortDS_.contains(key)) {
      if (!isInterfaceUp(key.intf())) disablePortDS(key);
      return;
   }
   trace(8, "enablePortDS, PortDSKey: {}", key);
   enabledPortDS_.is(key);
   enableEgressTimestampPolling(key.intf(), ptpStatus_->portDS(key)->clockIdentity());
}

void EgressTimestampIntfSm::disablePortDS(const PortDSKey& key) {
   if (!enabledPortDS_.contains(key)) return;
   trace(8, "disablePortDS, PortDSKey: {}", key);
   enabledPortDS_.del(key);
   disableEgressTimestampPolling(key.intf());
}

// Without a programmed member set for the LAG nothing changes: an enabled
// port data set keeps its members' polling references until it is disabled.
void EgressTimestampIntfSm::enableLagPortDS(const PortDSKey& key) {
   const Hardware::Lag::ProgrammedLag* lag = lagStatus_->programmedLag(key.intf());
   if (!lag) return;
   trace(8, "enableLagPortDS, PortDSKey: {}", key);
   enabledPortDS_.is(key);
   const Pondo::Ptr<LagPortDSMember> record = enabledLagPortDSMember_.is(key);
   const Ptp::ClockIdentity clockIdentity = ptpStatus_->portDS(key)->clockIdentity();
   for (Wyx::IntfId m : lag->member()) {
      if (record->member().contains(m) || !isInterfaceUp(m)) continue;
      record->memberIs(m);
      enableEgressTimestampPolling(m, clockIdentity);
   }
   const std::vector<Wyx::IntfId> members(record->member().begin(), record->member().end());
   for (Wyx::IntfId m : members) {
      if (lag->member().contains(m) && isInterfaceUp(m)) continue;
      record->memberDel(m);
      disableEgressTimestampPolling(m);
   }
}

void EgressTimestampIntfSm::disableLagPortDS(const PortDSKey& key) {
   if (!enabledPortDS_.contains(key)) return;
   trace(8, "disableLagPortDS, PortDSKey: {}", key);
   for (Wyx::IntfId m : enabledLagPortDSMember_.find(key)->member()) disableEgressTimestampPolling(m);
   enabledPortDS_.del(key);
   enabledLagPortDSMember_.del(key);
}

// The decision is written even when nothing is needed (false), and never deleted.
void EgressTimestampIntfSm::configureOneStepCfUpdate(const PortDSKey& key) {
   const bool needs = portDSNeedsOneStepCfUpdate(key);
   trace(8, "configureOneStepCfUpdate, PortDSKey: {}, portDSNeedsOneStepCfUpdate: {}", key, needs);
   if (!Wyx::isPortChannelIntfId(key.intf())) {
      const bool up = isInterfaceUp(key.intf());
      const bool enable = needs && up;
      trace(5, "configureOneStepCfUpdate, intf: {}, portDSNeedsOneStepCfUpdate: {}, isInterfaceUp: {}, enable: {}",
            key.intf(), needs, up, enable);
      egressTimestampIntfStatus_->physicalIntfNeedsOneStepCfUpdateIs(key.intf(), enable);
      return;
   }
   const Hardware::Lag::ProgrammedLag* lag = lagStatus_->programmedLag(key.intf());
   const Pondo::Ptr<LagPortDSMember> record = oneStepCfUpdateEnabledLagPortDSMember_.is(key);
   if (lag) {
      for (Wyx::IntfId m : lag->member()) {
         const bool up = isInterfaceUp(m);
         const bool enable = needs && up;
         trace(5,
               "configureOneStepCfUpdate, lagMember: {}, portDSNeedsOneStepCfUpdate: {}, isInterfaceUp: {}, "
               "enable: {}",
               m, needs, up, enable);
         egressTimestampIntfStatus_->physicalIntfNeedsOneStepCfUpdateIs(m, enable);
         if (enable) {
            record->memberIs(m);
         } else {
            record->memberDel(m);
         }
      }
   }
   const std::vector<Wyx::IntfId> members(record->member().begin(), record->member().end());
   for (Wyx::IntfId m : members) {
      if (lag && lag->member().contains(m) && isInterfaceUp(m)) continue;
      trace(5, "configureOneStepCfUpdate, disable lagMember: {}", m);
      egressTimestampIntfStatus_->physicalIntfNeedsOneStepCfUpdateIs(m, false);
      record->memberDel(m);
   }
   if (record->member().empty()) oneStepCfUpdateEnabledLagPortDSMember_.del(key);
}

// Both status attributes are written on every enabling, so the last enabling
// port's clock identity wins. The count is 0 here only after wrapping.
void EgressTimestampIntfSm::enableEgressTimestampPolling(Wyx::IntfId intfId, const Ptp::ClockIdentity& clockIdentity) {
   trace(8, "enableEgressTimestampPolling, intfId: {}, clockId: {}", intfId, clockIdentity);
   if (intfRefCountInc(intfId, 1) == 0) return;
   trace(5, "enableEgressTimestampPolling, enabling egress timestamp polling intf: {}", intfId);
   egressTimestampIntfStatus_->clockIdIs(intfId, clockIdentity);
   egressTimestampIntfStatus_->physicalIntfNeedsPollingIs(intfId);
}

void EgressTimestampIntfSm::disableEgressTimestampPolling(Wyx::IntfId intfId) {
   trace(8, "disableEgressTimestampPolling, intfId: {}", intfId);
   if (intfRefCountDec(intfId, 1) != 0) return;  // other port data sets still need polling
   trace(5, "disableEgressTimestampPolling, disabling egress timestamp polling intf: {}", intfId);
   intfRefCountDel(intfId);
   egressTimestampIntfStatus_->physicalIntfNeedsPollingDel(intfId);
   egressTimestampIntfStatus_->clockIdDel(intfId);
}

Pondo::Ptr<EgressTimestampIntfSm> egressTimestampIntfSmFactory(
    Pondo::Ptr<const Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatus,
    Pondo::Ptr<const Hardware::Lag::Status> lagStatus, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const Ptp::Status> ptpStatus, Pondo::Ptr<EgressTimestampIntfStatus> egressTimestampIntfStatus) {
   return Kiv::make<EgressTimestampIntfSm>(std::move(ethPhyIntfStatus), std::move(lagStatus), std::move(ptpHwConfig),
                                           std::move(ptpStatus), std::move(egressTimestampIntfStatus));
}

Pondo::Ptr<EgressTimestampIntfSm::IntfConfigSm> intfConfigSmFactory(Wyx::IntfId intfId, EgressTimestampIntfSm* sm,
                                                                    Pondo::Ptr<const Ptp::HwIntfConfig> config) {
   return Kiv::make<EgressTimestampIntfSm::IntfConfigSm>(intfId, sm, std::move(config));
}

Pondo::Ptr<EgressTimestampIntfSm::IntfStatusSm> intfStatusSmFactory(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Interface::EthPhyIntfStatus> status) {
   return Kiv::make<EgressTimestampIntfSm::IntfStatusSm>(intfId, sm, std::move(status));
}

Pondo::Ptr<EgressTimestampIntfSm::PortDSSm> portDSSmFactory(const Ptp::PortDSKey& key, EgressTimestampIntfSm* sm,
                                                            Pondo::Ptr<const Ptp::PortDS> portDS) {
   return Kiv::make<EgressTimestampIntfSm::PortDSSm>(key, sm, std::move(portDS));
}

Pondo::Ptr<EgressTimestampIntfSm::ProgrammedMemberSm> programmedMemberSmFactory(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Hardware::Lag::ProgrammedMember> member) {
   return Kiv::make<EgressTimestampIntfSm::ProgrammedMemberSm>(intfId, sm, std::move(member));
}

Pondo::Ptr<EgressTimestampIntfSm> EgressTimestampIntfSmIs(
    Pondo::Ptr<const Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatus,
    Pondo::Ptr<const Hardware::Lag::Status> lagStatus, Pondo::Ptr<const Ptp::HwConfig> ptpHwConfig,
    Pondo::Ptr<const Ptp::Status> ptpStatus, Pondo::Ptr<EgressTimestampIntfStatus> egressTimestampIntfStatus) {
   return egressTimestampIntfSmFactory(std::move(ethPhyIntfStatus), std::move(lagStatus), std::move(ptpHwConfig),
                                       std::move(ptpStatus), std::move(egressTimestampIntfStatus));
}

Pondo::Ptr<EgressTimestampIntfSm::IntfConfigSm> IntfConfigSmIs(Wyx::IntfId intfId, EgressTimestampIntfSm* sm,
                                                               Pondo::Ptr<const Ptp::HwIntfConfig> config) {
   return intfConfigSmFactory(intfId, sm, std::move(config));
}

Pondo::Ptr<EgressTimestampIntfSm::IntfStatusSm> IntfStatusSmIs(Wyx::IntfId intfId, EgressTimestampIntfSm* sm,
                                                               Pondo::Ptr<const Interface::EthPhyIntfStatus> status) {
   return intfStatusSmFactory(intfId, sm, std::move(status));
}

Pondo::Ptr<EgressTimestampIntfSm::PortDSSm> PortDSSmIs(const Ptp::PortDSKey& key, EgressTimestampIntfSm* sm,
                                                       Pondo::Ptr<const Ptp::PortDS> portDS) {
   return portDSSmFactory(key, sm, std::move(portDS));
}

Pondo::Ptr<EgressTimestampIntfSm::ProgrammedMemberSm> ProgrammedMemberSmIs(
    Wyx::IntfId intfId, EgressTimestampIntfSm* sm, Pondo::Ptr<const Hardware::Lag::ProgrammedMember> member) {
   return programmedMemberSmFactory(intfId, sm, std::move(member));
}

}  // namespace VyrPtp
