#pragma once

#include <vector>

#include "json_node.h"
#include "lineup.h"

namespace psipmux {

// Parsers for guide, rating regions, alerts and captions. Each reads the key of its name and
// returns an empty vector if the key is missing. Throw LineupError.
std::vector<Programme> parseProgrammes(const Node& service);
std::vector<RatingRegion> parseRatingRegions(const Node& lineup);
std::vector<Alert> parseAlerts(const Node& channel);
/// `node` is a programme or a service.
std::vector<CaptionService> parseCaptions(const Node& node);

}  // namespace psipmux
