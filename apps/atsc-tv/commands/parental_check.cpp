// atsc-tv parental check: reports whether a rating would be blocked.
#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "commands/parental.h"
#include "common/parental.h"
#include "parental/rating_choice.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

// A rating system: the dimensions `first` to `last` in the rating table of a region.
struct RatingSystem {
  const char* name;
  int region, first, last;
};
constexpr RatingSystem kSystems[] = {
    {"USA-TV", 1, 0, 6}, {"USA-MPAA", 1, 7, 7}, {"CAN-ENG", 2, 0, 0}, {"CAN-FRA", 2, 1, 1}};

// Returns a rating in the words of the rating table. Accepts commas, and the parts in any order.
// Returns an empty text if the region does not have the rating.
std::string ratingOf(const RatingRegion& region, const std::string& given) {
  std::string age;
  std::string content;
  for (const std::string& part : split(given, ',')) {
    const std::vector<Rated> values = valuesOf(region, part);
    if (values.empty() || (!values.front().dimension->isFlag() && !age.empty())) return "";
    for (const Rated& rated : values) {
      if (rated.dimension->isFlag()) {
        content += '-' + rated.value->name();
      } else {
        age = rated.value->name();
      }
    }
  }
  return age.empty() ? "" : age + content;
}

int check(const CommonOptions& common, const std::string& systemName, const std::string& given) {
  const Client client = startClient(common);
  const RatingSystem& system =
      *std::find_if(std::begin(kSystems), std::end(kSystems),
                    [&](const RatingSystem& each) { return systemName == each.name; });
  RatingRegion region = readRatingRegion(client, system.region);
  std::vector<RatingDimension>& dimensions = region.dimensions;
  dimensions.erase(std::remove_if(dimensions.begin(), dimensions.end(),
                                  [&](const RatingDimension& dimension) {
                                    return dimension.number < system.first ||
                                           dimension.number > system.last;
                                  }),
                   dimensions.end());
  const std::string rating = ratingOf(region, given);
  if (rating.empty()) {
    throw Failure(kFailure, "'" + given + "' is no rating of " + system.name + "; " +
                                knownRatingNames(region, RatingUse::kCheck));
  }
  Json::Value request = command("PC", "CHECKRAT");
  request["system"] = system.name;
  request["rating"] = rating;
  const bool blocked = client.ask(request)["blocked"] == true;
  std::cout << rating << ": " << (blocked ? "blocked" : "not blocked")
            << (blocked || isParentalEnabled(client) ? "" : " (parental control is off)") << '\n';
  return kSuccess;
}

}  // namespace

void addParentalCheck(CLI::App& parental, Action& action) {
  auto question = std::make_shared<std::pair<std::string, std::string>>();
  CLI::App* each = addParentalCommand(parental, action, "check",
                                      "Show whether a programme with this rating would be blocked",
                                      [question](const CommonOptions& common) {
                                        return check(common, question->first, question->second);
                                      });
  each->add_option("SYSTEM", question->first, "USA-TV, USA-MPAA, CAN-ENG or CAN-FRA")
      ->transform(CLI::IsMember({"USA-TV", "USA-MPAA", "CAN-ENG", "CAN-FRA"}, CLI::ignore_case))
      ->required();
  each->add_option("RATING", question->second, "Rating such as TV-14-D-V or TV-14,D,V")->required();
}

}  // namespace apps::tv
