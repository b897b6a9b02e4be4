#include "Module.h"

namespace Sim {

std::vector<ModuleMaker>& moduleMakers() {
   static std::vector<ModuleMaker> makers;
   return makers;
}

}  // namespace Sim
