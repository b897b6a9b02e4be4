// A reactor that hands every change of one entity to a function: how modules
// follow what the library publishes.
#pragma once

#include <functional>

#include "Kiv/Reactor.h"

namespace Sim {

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

}  // namespace Sim
