// Compiled twice by the test suite: as it is, it must build; with
// WRONG_ENTITY, the build must fail because the machine binds a field of an
// entity its input does not watch.
#include "ExampleMachine.h"

namespace {

#ifdef WRONG_ENTITY
using Watched = Example::Chassis::generation_t;  // a field of another entity
#else
using Watched = Example::Port::speed_t;
#endif

class PortSm : public Kiv::Reactor {
  public:
   explicit PortSm(Pondo::Ptr<const Example::Port> port)
       : port_(this, std::move(port), Kiv::on<Watched, &PortSm::handleSpeed>) {}

  private:
   void handleSpeed() {}

   Kiv::Input<const Example::Port> port_;
};

}  // namespace

int main() { Kiv::make<PortSm>(Kiv::make<Example::Port>(Wyx::IntfId("Et1"))); }
