#pragma once

#include <vector>

#include "json_node.h"
#include "lineup.h"

namespace psipmux {

// The parts of a lineup that A/65 and SCTE 18 send beside the channels. Each reads the key of that
// name, returns nothing when it is missing, and throws LineupError.
std::vector<Programme> ParseProgrammes(const Node& service);
std::vector<RatingRegion> ParseRatingRegions(const Node& lineup);
std::vector<Alert> ParseAlerts(const Node& channel);
/// Of a programme or a service.
std::vector<CaptionService> ParseCaptions(const Node& node);

}  // namespace psipmux
