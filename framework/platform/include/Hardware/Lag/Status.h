// What the LAG hardware programmer has programmed: per LAG its member
// interfaces, and per member interface the LAG it belongs to.
#pragma once

#include <utility>

#include "Kiv/Entity.h"
#include "Pondo/Types.h"
#include "Wyx/IntfId.h"

namespace Hardware::Lag {

// One LAG and the physical interfaces programmed as its members.
class ProgrammedLag : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { lagIntfId, member };
   };
   explicit ProgrammedLag(Wyx::IntfId lagIntfId) : lagIntfId_(lagIntfId) {}

   Wyx::IntfId lagIntfId() const { return lagIntfId_; }
   const Kiv::Set<Wyx::IntfId>& member() const { return member_; }
   void memberIs(Wyx::IntfId m) { member_.is(m); }
   bool memberDel(Wyx::IntfId m) { return member_.del(m); }
   void memberDelAll() { member_.delAll(); }

  private:
   Wyx::IntfId lagIntfId_;
   Kiv::Set<Wyx::IntfId> member_{this, F::member, "member"};
};

// One physical interface programmed as a LAG member.
class ProgrammedMember : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { intfId, lagIntfId };
   };
   explicit ProgrammedMember(Wyx::IntfId intfId) : intfId_(intfId) {}

   Wyx::IntfId intfId() const { return intfId_; }
   Wyx::IntfId lagIntfId() const { return lagIntfId_; }
   void lagIntfIdIs(Wyx::IntfId lag) { set(lagIntfId_, lag, F::lagIntfId); }

  private:
   Wyx::IntfId intfId_;
   Wyx::IntfId lagIntfId_;
};

class Status : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { name, programmedLag, programmedMember };
   };
   explicit Status(Pondo::String name) : name_(std::move(name)) {}

   const Pondo::String& name() const { return name_; }

   const ProgrammedLag* programmedLag(Wyx::IntfId lag) const { return programmedLag_.find(lag); }

   ProgrammedLag* programmedLag(Wyx::IntfId lag) { return programmedLag_.find(lag); }
   const Kiv::Collection<Wyx::IntfId, ProgrammedLag>& programmedLag() const { return programmedLag_; }
   Pondo::Ptr<ProgrammedLag> programmedLagIs(Wyx::IntfId lag) { return programmedLag_.is(lag); }
   Pondo::Ptr<ProgrammedLag> programmedLagDel(Wyx::IntfId lag) { return programmedLag_.del(lag); }
   void programmedLagDelAll() { programmedLag_.delAll(); }

   const ProgrammedMember* programmedMember(Wyx::IntfId m) const { return programmedMember_.find(m); }

   ProgrammedMember* programmedMember(Wyx::IntfId m) { return programmedMember_.find(m); }
   const Kiv::Collection<Wyx::IntfId, ProgrammedMember>& programmedMember() const { return programmedMember_; }
   Pondo::Ptr<ProgrammedMember> programmedMemberIs(Wyx::IntfId m) { return programmedMember_.is(m); }
   Pondo::Ptr<ProgrammedMember> programmedMemberDel(Wyx::IntfId m) { return programmedMember_.del(m); }
   void programmedMemberDelAll() { programmedMember_.delAll(); }

  private:
   Pondo::String name_;
   Kiv::Collection<Wyx::IntfId, ProgrammedLag> programmedLag_{this, F::programmedLag, "programmedLag"};
   Kiv::Collection<Wyx::IntfId, ProgrammedMember> programmedMember_{this, F::programmedMember, "programmedMember"};
};

}  // namespace Hardware::Lag
