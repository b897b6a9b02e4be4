// Reactors that hand changes of one entity to a function: how modules follow
// what the library publishes.
#pragma once

#include <functional>

#include "Kiv/Reactor.h"

namespace Sim {

// Hands every change of the entity, at any depth, to the function: for a
// module that acts on any change at all.
template <class T>
class Watch final : public Kiv::Reactor {
  public:
   Watch(Pondo::Ptr<const T> entity, std::function<void(const Kiv::Change&)> onChange)
       : entity_(this, std::move(entity), Kiv::onAny<&Watch::on_entity>), onChange_(std::move(onChange)) {}

  private:
   void on_entity(const Kiv::Change& c) { onChange_(c); }
   Kiv::Input<const T> entity_;
   std::function<void(const Kiv::Change&)> onChange_;
};

// Hands the key of every member of collection, map or set `F` of the entity
// that is added, changed or removed to the function, which looks the key up to
// see what is there now.
template <class F>
class MemberWatch final : public Kiv::Reactor {
  public:
   using Entity = typename F::Entity;
   using Key = typename F::Value::key_type;

   MemberWatch(Pondo::Ptr<const Entity> entity, std::function<void(const Key&)> onMember)
       : entity_(this, std::move(entity), Kiv::on<F, &MemberWatch::handleMember>), onMember_(std::move(onMember)) {}

  private:
   void handleMember(const Key& key) { onMember_(key); }
   Kiv::Input<const Entity> entity_;
   std::function<void(const Key&)> onMember_;
};

}  // namespace Sim
