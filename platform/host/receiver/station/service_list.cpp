#include "receiver/station/service_list.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <tuple>

#include "middleware_types.h"
#include "process/log.h"
#include "receiver/air/frequency_plan.h"
#include "receiver/tables/descriptors.h"

namespace atschost {
namespace {

constexpr uint32_t kMaxRecord = 0xFFFE;  // 0xFFFF means unknown
constexpr size_t kMaxNameBytes = 1024;
constexpr size_t kMaxDropped = 4096;

bool byKey(const Service& a, const Service& b) { return a.key < b.key; }

bool sameStream(const AISRV_pid_info& a, const AISRV_pid_info& b) {
  const auto tie = [](const AISRV_pid_info& s) {
    return std::tie(s.stream_type, s.audio_kind, s.pid, s.main_audio_number, s.description_mask,
                    s.full_mix);
  };
  return tie(a) == tie(b) && std::equal(std::begin(a.language), std::end(a.language), b.language) &&
         std::equal(std::begin(a.second_language), std::end(a.second_language), b.second_language);
}

// Returns whether two services have the same broadcast data.
bool sameBroadcast(const Service& a, const Service& b) {
  const auto tie = [](const Service& s) {
    return std::tie(s.type, s.sourceId, s.tsid, s.programNumber, s.fromPmt, s.name);
  };
  return tie(a) == tie(b) && std::equal(a.streams.begin(), a.streams.end(), b.streams.begin(),
                                        b.streams.end(), sameStream);
}

std::string toHex(const std::string& bytes) {
  std::string text;
  for (const char c : bytes)
    for (const int nibble : {c >> 4 & 0xF, c & 0xF}) text += "0123456789abcdef"[nibble];
  return text;
}

std::string fromHex(const std::string& text) {
  const auto nibble = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    throw std::runtime_error("a name is not hexadecimal");
  };
  if (text.size() % 4 != 0 || text.size() > 2 * kMaxNameBytes)
    throw std::runtime_error("a name is not UTF-16");
  std::string bytes;
  for (size_t i = 0; i < text.size(); i += 2)
    bytes += static_cast<char>(nibble(text[i]) << 4 | nibble(text[i + 1]));
  return bytes;
}

std::string languageText(const char* language) {
  return language[0] ? std::string(language, 3) : std::string();
}

void setLanguage(const Json::Value& value, char* language) {
  const std::string text = value.asString();
  const auto code = reinterpret_cast<const uint8_t*>(text.data());
  if (!text.empty() && (text.size() != 3 || !copyLanguage(code, language)))
    throw std::runtime_error("a language is not three letters");
}

Json::Value toJson(const AISRV_pid_info& stream) {
  Json::Value value;
  value["type"] = stream.stream_type;
  value["pid"] = stream.pid;
  value["language"] = languageText(stream.language);
  value["second_language"] = languageText(stream.second_language);
  value["audio_kind"] = stream.audio_kind;
  value["main_audio"] = stream.main_audio_number;
  value["description_mask"] = stream.description_mask;
  value["full_mix"] = stream.full_mix;
  return value;
}

AISRV_pid_info streamFromJson(const Json::Value& value) {
  AISRV_pid_info stream{};
  const auto byte = [&](const char* key, uint32_t max) {
    return static_cast<uint8_t>(numberMember(value, key, max));
  };
  stream.stream_type = byte("type", 0xFF);
  stream.pid = static_cast<uint16_t>(numberMember(value, "pid", 0x1FFF));
  setLanguage(value["language"], stream.language);
  setLanguage(value["second_language"], stream.second_language);
  stream.audio_kind = byte("audio_kind", AISRV_AUDIO_OTHER);
  stream.main_audio_number = byte("main_audio", 7);
  stream.description_mask = byte("description_mask", 0xFF);
  stream.full_mix = byte("full_mix", 1);
  return stream;
}

Json::Value toJson(const CaptionService& captions) {
  Json::Value value;
  value["number"] = captions.number;
  value["digital"] = static_cast<bool>(captions.digital);
  value["easy_reader"] = static_cast<bool>(captions.easyReader);
  value["wide"] = static_cast<bool>(captions.wide);
  value["language"] = languageText(captions.language.data());
  return value;
}

CaptionService captionsFromJson(const Json::Value& value) {
  CaptionService captions;
  captions.number = static_cast<uint8_t>(numberMember(value, "number", 63));
  captions.digital = boolMember(value, "digital", true);
  captions.easyReader = boolMember(value, "easy_reader", false);
  captions.wide = boolMember(value, "wide", false);
  setLanguage(value["language"], captions.language.data());
  return captions;
}

Json::Value toJson(const Service& service) {
  Json::Value value;
  value["source"] = service.key.source;
  value["frequency"] = service.key.frequency;
  value["major"] = service.key.major;
  value["minor"] = service.key.minor;
  value["record"] = service.record;
  value["type"] = service.type;
  value["source_id"] = service.sourceId;
  value["tsid"] = service.tsid;
  value["program"] = service.programNumber;
  value["flags"] = service.flags;
  value["favourites"] = service.favourites;
  value["from_pmt"] = service.fromPmt;
  value["added"] = service.added;
  value["audio"] = service.audio;
  value["name_utf16be"] = toHex(service.name);
  value["streams"] = Json::arrayValue;
  for (const AISRV_pid_info& stream : service.streams) value["streams"].append(toJson(stream));
  value["captions"] = Json::arrayValue;
  for (const CaptionService& each : service.captions) value["captions"].append(toJson(each));
  return value;
}

Service serviceFromJson(const Json::Value& value) {
  Service service;
  const auto number16 = [&](const char* key) {
    return static_cast<uint16_t>(numberMember(value, key, 0xFFFF));
  };
  service.key.source = numberMember(value, "source", AI_INPUT_CABLE);
  service.key.frequency = numberMember(value, "frequency", UINT32_MAX);
  service.key.major = number16("major");
  service.key.minor = number16("minor");
  service.record = static_cast<uint16_t>(numberMember(value, "record", kMaxRecord));
  if (!isSource(service.key.source) || service.record == 0)
    throw std::runtime_error("a service has no source or record number");
  service.type = numberMember(value, "type", UINT32_MAX);
  service.sourceId = number16("source_id");
  service.tsid = number16("tsid");
  service.programNumber = number16("program");
  service.flags = numberMember(value, "flags", UINT32_MAX);
  service.favourites = numberMember(value, "favourites", UINT32_MAX);
  service.fromPmt = value["from_pmt"].asBool();
  service.added = boolMember(value, "added", false);
  service.audio = static_cast<uint8_t>(numberMember(value, "audio", AISRV_MAX_PIDS, 0));
  service.name = fromHex(value["name_utf16be"].asString());
  const Json::Value& streams = value["streams"];
  if (!streams.isArray() || streams.size() > AISRV_MAX_PIDS)
    throw std::runtime_error("a service has too many streams or none listed");
  for (const Json::Value& stream : streams) service.streams.push_back(streamFromJson(stream));
  // Older files have no captions.
  const Json::Value& captions = value["captions"];
  if ((!captions.isNull() && !captions.isArray()) || captions.size() > kMaxCaptionServices)
    throw std::runtime_error("a service has too many captions or none listed");
  for (const Json::Value& each : captions) service.captions.push_back(captionsFromJson(each));
  return service;
}

Json::Value toJson(const std::vector<Service>& services) {
  Json::Value content;
  content["services"] = Json::arrayValue;
  for (const Service& service : services) content["services"].append(toJson(service));
  return content;
}

std::vector<Service> listFromJson(const Json::Value& content) {
  const Json::Value& values = content["services"];
  if (!values.isArray()) throw std::runtime_error("it has no list of services");
  std::vector<Service> services;
  std::vector<bool> used(kMaxRecord + 1);
  for (const Json::Value& value : values) {
    services.push_back(serviceFromJson(value));
    if (used[services.back().record]) throw std::runtime_error("a record number is used twice");
    used[services.back().record] = true;
  }
  std::sort(services.begin(), services.end(), byKey);
  const auto twin = std::adjacent_find(services.begin(), services.end(),
                                       [](auto& a, auto& b) { return a.key == b.key; });
  if (twin != services.end()) throw std::runtime_error("a service is listed twice");
  return services;
}

// Allocates unused record numbers.
class FreeRecords {
 public:
  explicit FreeRecords(const std::vector<Service>& list) {
    for (const Service& service : list) used_[service.record] = true;
  }
  // Returns 0 when all numbers are used.
  uint16_t take() {
    while (next_ <= kMaxRecord && used_[next_]) ++next_;
    return static_cast<uint16_t>(next_ <= kMaxRecord ? next_++ : 0);
  }

 private:
  std::vector<bool> used_ = std::vector<bool>(kMaxRecord + 1);
  size_t next_ = 1;
};

// Removes all broadcast data and keeps the viewer's. Returns whether anything was removed.
bool forgetBroadcast(Service& service) {
  const bool had = service.programNumber != 0 || !service.streams.empty();
  service.sourceId = service.tsid = service.programNumber = 0;
  service.fromPmt = true;
  service.streams.clear();
  service.captions.clear();
  return had;
}

}  // namespace

ServiceList::ServiceList(const std::string& stateFolder)
    : file_(stateFolder, "services.json", "atsc-host-services-1") {
  std::vector<Service> stored;
  file_.load([&](const Json::Value& content) { stored = listFromJson(content); });
  services_ = std::move(stored);
}

ServiceList::Change ServiceList::replace(uint32_t source, uint32_t frequency,
                                         std::vector<Service> found) {
  Change change;
  const MutexLock lock(mutex_);
  FreeRecords records(services_);

  std::vector<Service> list;
  list.reserve(services_.size() + found.size());  // out of memory must not lose services
  for (Service& old : services_) {
    if (old.key.source != source || old.key.frequency != frequency) {
      list.push_back(std::move(old));
      continue;
    }
    const auto again = std::find_if(found.begin(), found.end(),
                                    [&](const Service& service) { return service.key == old.key; });
    if (again != found.end()) {
      again->record = old.record;
      again->flags = old.flags;
      again->favourites = old.favourites;
      again->audio = old.audio;
      again->added = old.added;
      if (old.added && !old.name.empty()) again->name = old.name;
      if (!sameBroadcast(*again, old)) ++change.updated;
      if (again->sourceId != old.sourceId) change.sourceIds.insert(again->sourceId);
    } else if (old.added) {
      if (forgetBroadcast(old)) ++change.updated;
      list.push_back(std::move(old));
    } else {
      ++change.deleted;
      const bool marked = old.flags != AISRV_FLAG_VISIBLE || old.favourites != 0 || old.audio != 0;
      if (marked && dropped_.size() < kMaxDropped) dropped_[old.key] = std::move(old);
    }
  }
  for (Service& service : found) {
    if (service.record == 0) {
      if (const auto dropped = dropped_.find(service.key); dropped != dropped_.end()) {
        service.flags = dropped->second.flags;
        service.favourites = dropped->second.favourites;
        service.audio = dropped->second.audio;
        dropped_.erase(dropped);
      }
      service.record = records.take();
      if (service.record == 0) {
        log().Error("%s %u Hz: the service list is full", modulationName(source), frequency);
        break;
      }
      ++change.added;
      change.sourceIds.insert(service.sourceId);
    }
    list.push_back(std::move(service));
  }
  std::sort(list.begin(), list.end(), byKey);
  services_ = std::move(list);
  ++generation_;
  return change;
}

// Stores the list before it changes in memory, so that readers never see a list that is not stored.
bool ServiceList::change(const std::function<bool(std::vector<Service>& list)>& edit,
                         const Stored& stored) {
  const MutexLock fileLock(fileMutex_);
  std::vector<Service> list;
  unsigned generation;
  {
    const MutexLock lock(mutex_);
    list = services_;
    generation = generation_;
  }
  if (!edit(list) || !file_.store(toJson(list))) return false;
  bool changed = false;
  stored([&] {
    const MutexLock lock(mutex_);
    if (generation_ != generation) {  // carriers have changed the list meanwhile
      list = services_;
      if (!edit(list)) return;
    }
    services_ = std::move(list);
    ++generation_;
    changed = true;
  });
  return changed;
}

bool ServiceList::add(const Service& service) {
  return change([&](std::vector<Service>& list) {
    const auto at = std::lower_bound(list.begin(), list.end(), service, byKey);
    if (at != list.end() && at->key == service.key) {
      at->added = true;
      at->flags = service.flags;
      if (!service.name.empty()) at->name = service.name;
      return true;
    }
    Service made = service;
    forgetBroadcast(made);
    made.added = true;
    made.record = FreeRecords(list).take();
    if (made.record == 0) {
      log().Error("the service list is full");
      return false;
    }
    list.insert(at, std::move(made));
    return true;
  });
}

bool ServiceList::setFlags(uint32_t source, uint32_t record, uint32_t flags, uint32_t favourites) {
  return change([&](std::vector<Service>& list) {
    const auto found = std::find_if(list.begin(), list.end(), [&](const Service& service) {
      return service.record == record && service.key.source == source;
    });
    if (found == list.end()) return false;
    found->flags = flags;
    found->favourites = favourites;
    return true;
  });
}

bool ServiceList::setAudio(const ServiceKey& key, uint8_t track) {
  return change([&](std::vector<Service>& list) {
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const Service& service) { return service.key == key; });
    if (found == list.end()) return false;
    found->audio = track;
    return true;
  });
}

bool ServiceList::reset(uint32_t source, const Stored& stored) {
  const bool done = change(
      [&](std::vector<Service>& list) {
        list.erase(
            std::remove_if(list.begin(), list.end(),
                           [&](const Service& service) { return service.key.source == source; }),
            list.end());
        return true;
      },
      stored);
  if (!done) return false;
  const MutexLock lock(mutex_);
  for (auto it = dropped_.begin(); it != dropped_.end();)
    it = it->first.source == source ? dropped_.erase(it) : std::next(it);
  return true;
}

bool ServiceList::reload() {
  const MutexLock fileLock(fileMutex_);
  std::vector<Service> list;
  if (!file_.load([&](const Json::Value& content) { list = listFromJson(content); })) return false;
  const MutexLock lock(mutex_);
  services_ = std::move(list);
  dropped_.clear();
  ++generation_;
  return true;
}

void ServiceList::visit(uint32_t source, const std::function<bool(const Service&)>& visit) const {
  const MutexLock lock(mutex_);
  for (const Service& service : services_)
    if (service.key.source == source && !visit(service)) return;
}

std::optional<Service> ServiceList::find(const ServiceKey& key) const {
  std::optional<Service> found;
  visit(key.source, [&](const Service& service) {
    if (service.key == key) found = service;
    return !found;
  });
  return found;
}

bool ServiceList::store() {
  const MutexLock fileLock(fileMutex_);
  std::vector<Service> list;
  {
    const MutexLock lock(mutex_);
    list = services_;
  }
  return file_.store(toJson(list));
}

}  // namespace atschost
