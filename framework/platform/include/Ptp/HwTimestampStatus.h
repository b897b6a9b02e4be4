// The timestamp table shared with the protocol side: per interface the last
// egress (and ingress) time of a PTP event message.
#pragma once

#include <cstdint>

#include "Kiv/Entity.h"
#include "Wyx/IntfId.h"

namespace Ptp {

struct IngressEgressTimes {
   Wyx::IntfId intfId;
   std::uint8_t seqIdLowBits = 0;  // two bits: the low bits of sequenceId
   std::uint64_t ingressTime = 0;  // nanoseconds, 0 when unknown
   std::uint64_t egressTime = 0;   // nanoseconds since the Unix epoch
   std::uint16_t sequenceId = 0;

   friend constexpr bool operator==(const IngressEgressTimes&, const IngressEgressTimes&) = default;
   std::string toString() const {
      return fmt::format("(intfId: {}, seqIdLowBits: {}, ingressTime: {}, egressTime: {}, sequenceId: {})", intfId,
                         seqIdLowBits, ingressTime, egressTime, sequenceId);
   }
};

class HwTimestampStatus : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfTimestamp };
   };
   const IngressEgressTimes* intfTimestamp(Wyx::IntfId i) const { return intfTimestamp_.find(i); }
   // Hashed: one look-up per published timestamp, for every interface of the system.
   using IntfTimestamps =
       Kiv::Map<Wyx::IntfId, IngressEgressTimes, std::unordered_map<Wyx::IntfId, IngressEgressTimes>>;
   const IntfTimestamps& intfTimestamp() const { return intfTimestamp_; }
   // Replaces the interface's record.
   void intfTimestampIs(const IngressEgressTimes& t) { intfTimestamp_.is(t.intfId, t); }
   bool intfTimestampDel(Wyx::IntfId i) { return intfTimestamp_.del(i); }
   void intfTimestampDelAll() { intfTimestamp_.delAll(); }

  private:
   IntfTimestamps intfTimestamp_{this, F::intfTimestamp, "intfTimestamp"};
};

}  // namespace Ptp
