#include "receiver/tuners/service_reporter.h"

#include <set>

#include "process/log.h"

namespace atschost {

void ServiceReporter::updateAdvisories(StreamPosition position) {
  const unsigned generation = follower_.generation();
  if (std::exchange(generation_, generation) != generation) advisories_ = {};
  const CarrierTables& tables = follower_.decoder().tables();
  const bool whole = follower_.level(position) != CarrierFollower::kNothing;
  const std::pair<size_t, bool> state(tables.pmts.size(), whole);
  if (std::exchange(advisories_, state) != state) tuning_.updateAdvisories(tables, whole);
}

void ServiceReporter::update(const StreamReader& reader) {
  const CarrierFollower::Level level = follower_.level(reader.position());
  const unsigned round = tuning_.serviceRounds();
  if (std::exchange(round_, round) != round) follower_.setUsed(CarrierFollower::kNothing);
  if (level <= follower_.used()) return;
  follower_.setUsed(level);
  const uint32_t source = tuning_.source(), frequency = tuning_.frequency();
  auto found = buildServices(follower_.decoder().tables(), source, frequency);
  if (level == CarrierFollower::kSettled && !mayReplace(found)) return;
  ServiceList& services = tuning_.environment().services;
  ServiceList::Change change;
  tuning_.whileTuned([&] { change = services.replace(source, frequency, std::move(found)); });
  if (!change.any()) return;
  log().Info("%s: services: %zu deleted, %zu added, %zu changed", reader.id().path.c_str(),
             change.deleted, change.added, change.updated);
  raise(change);
}

void ServiceReporter::raise(const ServiceList::Change& change) {
  const TunerEnvironment& environment = tuning_.environment();
  EventQueue& events = environment.events;
  environment.servicesChanged();
  for (size_t i = 0; i < change.deleted; ++i) events.raise(AFW_SERVICE_DELETED);
  for (size_t i = 0; i < change.added; ++i) events.raise(AFW_SERVICE_ADDED);
  for (size_t i = 0; i < change.updated; ++i) events.raise(AFW_SERVICE_UPDATE);
  events.raise(AFW_SERVICE_BUILD_COMPLETED);
  // The guide may have events of a service that is listed anew.
  std::vector<uint16_t> known;
  for (const uint16_t id : change.sourceIds)
    if (!environment.guide.events(tuning_.source(), tuning_.frequency(), id)->empty())
      known.push_back(id);
  events.raiseGuideUpdate(known);
}

// Returns whether tables that never became complete are all that the carrier has. If not, services
// may be missing because their tables are.
bool ServiceReporter::mayReplace(const std::vector<Service>& found) const {
  const PsiDecoder& decoder = follower_.decoder();
  const CarrierTables& tables = decoder.tables();
  const ServiceList& services = tuning_.environment().services;
  const uint32_t frequency = tuning_.frequency();
  if (tables.pat ? decoder.awaitsPmts() : follower_.hadPat()) {
    // No service is known to be gone. But if the VCT has the same services as the list, the list
    // takes their values over. Services that were added by hand stay anyway.
    std::set<ServiceKey> listed, received;
    for (const Service& service : found) received.insert(service.key);
    services.visit(tuning_.source(), [&](const Service& service) {
      const bool isHere = service.key.frequency == frequency;
      if (isHere && (!service.added || received.count(service.key) != 0))
        listed.insert(service.key);
      return true;
    });
    return decoder.hasOwnVct() && listed == received;
  }
  if (tables.vct) return true;
  if (!tables.pat) return false;
  bool hadVct = false;
  services.visit(tuning_.source(), [&](const Service& service) {
    hadVct |= service.key.frequency == frequency && !service.fromPmt;
    return !hadVct;
  });
  return !hadVct;
}

}  // namespace atschost
