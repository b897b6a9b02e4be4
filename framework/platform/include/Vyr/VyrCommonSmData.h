// The forwarding agent's common data: the interfaces it handles and the LAG
// membership of its ports.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Kiv/Entity.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace Vyr {

// The member ports of one LAG, in order.
struct VyrLagPortList {
   std::vector<Wyx::IntfId> member;

   friend bool operator==(const VyrLagPortList&, const VyrLagPortList&) = default;
   // "[Ethernet1/1, Ethernet1/2]"
   std::string toString() const { return fmt::format("[{}]", fmt::join(member, ", ")); }
};

class VyrCommonSmData : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, intf, portToLag, lagToPort };
   };
   explicit VyrCommonSmData(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }

   // The interfaces the forwarding agent handles.
   const Kiv::Map<Wyx::IntfId, bool>& intf() const { return intf_; }
   void intfIs(Wyx::IntfId k, bool v) { intf_.is(k, v); }
   bool intfDel(Wyx::IntfId k) { return intf_.del(k); }
   void intfDelAll() { intf_.delAll(); }

   // Member port to its LAG.
   const Kiv::Map<Wyx::IntfId, Wyx::IntfId>& portToLag() const { return portToLag_; }
   void portToLagIs(Wyx::IntfId port, Wyx::IntfId lag) { portToLag_.is(port, lag); }
   bool portToLagDel(Wyx::IntfId port) { return portToLag_.del(port); }
   void portToLagDelAll() { portToLag_.delAll(); }

   // LAG to its member ports.
   const Kiv::Map<Wyx::IntfId, VyrLagPortList>& lagToPort() const { return lagToPort_; }
   void lagToPortIs(Wyx::IntfId lag, const VyrLagPortList& ports) { lagToPort_.is(lag, ports); }
   bool lagToPortDel(Wyx::IntfId lag) { return lagToPort_.del(lag); }
   void lagToPortDelAll() { lagToPort_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Map<Wyx::IntfId, bool> intf_{this, F::intf, "intf"};
   Kiv::Map<Wyx::IntfId, Wyx::IntfId> portToLag_{this, F::portToLag, "portToLag"};
   Kiv::Map<Wyx::IntfId, VyrLagPortList> lagToPort_{this, F::lagToPort, "lagToPort"};
};

}  // namespace Vyr
