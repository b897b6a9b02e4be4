#pragma once

namespace Sim {
// The built-in scenario run when no file is given (DefaultScenario.cpp).
extern const char* const kDefaultScenario;
}  // namespace Sim
