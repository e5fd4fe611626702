#pragma once

#include <vector>

#include "json_node.h"
#include "lineup.h"

namespace psipmux {

// The parts of a lineup that A/65 and SCTE 18 send beside the channels. Each reads the key of that
// name, returns nothing when it is missing, and throws LineupError.
std::vector<Programme> parseProgrammes(const Node& service);
std::vector<RatingRegion> parseRatingRegions(const Node& lineup);
std::vector<Alert> parseAlerts(const Node& channel);
/// Of a programme or a service.
std::vector<CaptionService> parseCaptions(const Node& node);

}  // namespace psipmux
