// The run's report as one self-contained HTML page (inline SVG charts, no
// network access needed), rendered from the report document that --json
// writes: the timeline; readiness over time and timestamp location per chip,
// with each chip's interfaces one click away; latch-to-publish delays; losses
// by reason; widenings against the time sources' faults; and every interface
// that is not ready at the end or otherwise unusual, with why.
#pragma once

#include <string>

#include "Json.h"

namespace Sim {

std::string htmlReport(const Json& doc);

}  // namespace Sim
