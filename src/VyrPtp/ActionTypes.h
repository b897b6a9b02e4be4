// The vocabulary in which the protocol side tells the packet hardware what to
// do with PTP packets: per kind of packet, per interface, and two switches.
// Inside the library only PtpActions::generation is read (readiness).
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "Kiv/Dir.h"
#include "Kiv/Entity.h"
#include "Ptp/Types.h"
#include "VyrPtp/Export.h"
#include "Wyx/IntfId.h"

namespace VyrPtp::ActionTypes {

enum class FwdAction : std::uint8_t { trap = 0, snoop = 1, forward = 2, drop = 3 };
enum class TsAction : std::uint8_t { rx = 0, tx = 1, cfRx = 2, cfTx = 3 };

// A set of timestamp actions; true when non-empty.
class VYRPTP_EXPORT TsActions {
  public:
   TsActions() = default;
   TsActions(std::initializer_list<TsAction> actions) {
      for (TsAction a : actions) tsActionIs(a);
   }
   // There is no text form to build one from: stops the process.
   [[noreturn]] static TsActions fromString(std::string_view text);

   bool tsAction(TsAction a) const { return bits_ & bit(a); }
   void tsActionIs(TsAction a) { bits_ = std::uint8_t(bits_ | bit(a)); }
   void tsActionDel(TsAction a) { bits_ = std::uint8_t(bits_ & ~bit(a)); }
   void tsActionDelAll() { bits_ = 0; }
   std::size_t size() const { return std::size_t(__builtin_popcount(bits_)); }
   explicit operator bool() const { return bits_ != 0; }
   friend bool operator==(const TsActions&, const TsActions&) = default;
   std::string toString() const;

  private:
   static std::uint8_t bit(TsAction a) { return std::uint8_t(1u << unsigned(a)); }
   std::uint8_t bits_ = 0;
};

// The key of a kind of PTP packet.
struct VYRPTP_EXPORT PktType {
   Ptp::MessageTypeNumber msgType = Ptp::MessageTypeNumber::sync;
   Ptp::PtpVersion version = Ptp::PtpVersion::v2;
   Ptp::TransportMode encapType = Ptp::TransportMode::layer2;

   friend auto operator<=>(const PktType&, const PktType&) = default;
   // "PktType(msgType: Sync, version: v2, encapType: ipv4)"
   std::string toString() const;
   // Parses the text form (names or numbers); throws Pondo::RangeError naming the bad field.
   static PktType fromString(std::string_view text);
};

class VYRPTP_EXPORT PktAction : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { ptpPkt, fwdAction, tsActions };
   };
   explicit PktAction(const PktType& ptpPkt) : ptpPkt_(ptpPkt) {}

   const PktType& ptpPkt() const { return ptpPkt_; }
   FwdAction fwdAction() const { return fwdAction_; }
   void fwdActionIs(FwdAction a) { set(fwdAction_, a, F::fwdAction); }
   const TsActions& tsActions() const { return tsActions_; }
   void tsActionsIs(const TsActions& s) { set(tsActions_, s, F::tsActions); }

  private:
   PktType ptpPkt_;
   FwdAction fwdAction_ = FwdAction::trap;
   TsActions tsActions_;
};

class VYRPTP_EXPORT IntfActions : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intf, dropMgmtMsg };
   };
   explicit IntfActions(Wyx::IntfId intf) : intf_(intf) {}

   Wyx::IntfId intf() const { return intf_; }
   bool dropMgmtMsg() const { return dropMgmtMsg_; }
   void dropMgmtMsgIs(bool v) { set(dropMgmtMsg_, v, F::dropMgmtMsg); }

  private:
   Wyx::IntfId intf_;
   bool dropMgmtMsg_ = false;
};

class VYRPTP_EXPORT PtpActions : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, pktAction, intfAction, generation, forwardV1, forwardUCast };
   };
   explicit PtpActions(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }

   const PktAction* pktAction(const PktType& k) const { return pktAction_.find(k); }

   PktAction* pktAction(const PktType& k) { return pktAction_.find(k); }
   const Kiv::Collection<PktType, PktAction>& pktAction() const { return pktAction_; }
   Pondo::Ptr<PktAction> pktActionIs(const PktType& k) { return pktAction_.is(k); }
   Pondo::Ptr<PktAction> pktActionDel(const PktType& k) { return pktAction_.del(k); }
   void pktActionDelAll() { pktAction_.delAll(); }

   const IntfActions* intfAction(Wyx::IntfId k) const { return intfAction_.find(k); }

   IntfActions* intfAction(Wyx::IntfId k) { return intfAction_.find(k); }
   const Kiv::Collection<Wyx::IntfId, IntfActions>& intfAction() const { return intfAction_; }
   Pondo::Ptr<IntfActions> intfActionIs(Wyx::IntfId k) { return intfAction_.is(k); }
   Pondo::Ptr<IntfActions> intfActionDel(Wyx::IntfId k) { return intfAction_.del(k); }
   void intfActionDelAll() { intfAction_.delAll(); }

   Pondo::Generation generation() const { return generation_; }
   void generationIs(Pondo::Generation g) { set(generation_, g, F::generation); }
   bool forwardV1() const { return forwardV1_; }
   void forwardV1Is(bool v) { set(forwardV1_, v, F::forwardV1); }
   bool forwardUCast() const { return forwardUCast_; }
   void forwardUCastIs(bool v) { set(forwardUCast_, v, F::forwardUCast); }

  private:
   Pondo::String name_;
   Kiv::Collection<PktType, PktAction> pktAction_{this, F::pktAction, "pktAction"};
   Kiv::Collection<Wyx::IntfId, IntfActions> intfAction_{this, F::intfAction, "intfAction"};
   Pondo::Generation generation_;
   bool forwardV1_ = false;
   bool forwardUCast_ = false;
};

// Factories, and the makers named after each type.
VYRPTP_EXPORT Pondo::Ptr<PtpActions> ptpActionsFactory(const Pondo::String& name);
VYRPTP_EXPORT Pondo::Ptr<PktAction> pktActionFactory(const PktType& pktType);
VYRPTP_EXPORT Pondo::Ptr<IntfActions> intfActionsFactory(Wyx::IntfId intfId);
VYRPTP_EXPORT Pondo::Ptr<PtpActions> PtpActionsIs(const Pondo::String& name);
VYRPTP_EXPORT Pondo::Ptr<PktAction> PktActionIs(const PktType& pktType);
VYRPTP_EXPORT Pondo::Ptr<IntfActions> IntfActionsIs(Wyx::IntfId intfId);

}  // namespace VyrPtp::ActionTypes

template <>
struct Pondo::EnumInfo<VyrPtp::ActionTypes::FwdAction> {
   using E = VyrPtp::ActionTypes::FwdAction;
   static constexpr std::array<std::pair<E, std::string_view>, 4> names{{
       {E::trap, "Trap"},
       {E::snoop, "Snoop"},
       {E::forward, "Forward"},
       {E::drop, "Drop"},
   }};
};

template <>
struct Pondo::EnumInfo<VyrPtp::ActionTypes::TsAction> {
   using E = VyrPtp::ActionTypes::TsAction;
   static constexpr std::array<std::pair<E, std::string_view>, 4> names{{
       {E::rx, "Rx"},
       {E::tx, "Tx"},
       {E::cfRx, "CfRx"},
       {E::cfTx, "CfTx"},
   }};
};

template <>
struct std::hash<VyrPtp::ActionTypes::PktType> {
   std::size_t operator()(const VyrPtp::ActionTypes::PktType& p) const noexcept {
      std::size_t h = Pondo::hashMix(0, std::size_t(p.msgType));
      h = Pondo::hashMix(h, std::size_t(p.version));
      return Pondo::hashMix(h, std::size_t(p.encapType));
   }
};
