// The run's summary as text, rendered from the report document that --json
// writes: per module its numbers on one line, its lists, and its tables with
// columns aligned whatever the widths; per-chip and chassis totals as rows.
#pragma once

#include <cstddef>
#include <string>

#include "Json.h"

namespace Sim {

// Beyond this many interfaces in a module's tables, only those with an
// `attention` note are listed, followed by how many others there are.
inline constexpr std::size_t kScreenfulOfInterfaces = 40;

std::string textReport(const Json& doc, std::size_t screenful = kScreenfulOfInterfaces);

}  // namespace Sim
