// Functions of the fake's files to record and answer a call.
#ifndef ATSC_TESTS_FAKE_STATE_H_
#define ATSC_TESTS_FAKE_STATE_H_

#include <algorithm>
#include <atomic>
#include <cstring>
#include <tuple>
#include <type_traits>

#include "fake.h"

namespace fake {

inline std::atomic<bool> gRecording{true};

inline std::string text(long long value) { return std::to_string(value); }

inline std::string text(const char* string) { return string; }

inline std::string text(const void* pointer) { return pointer != nullptr ? "*" : "null"; }

// The remaining bytes of the noise. They have a separate lock, because callers hold the state.
inline std::mutex gNoiseMutex;
inline std::string gNoise;
inline size_t gNoiseUsed = 0;
inline std::atomic<bool> gNoisy{false};

// Returns 0 when the noise is used up.
inline uint8_t noiseByte() {
  std::lock_guard<std::mutex> lock(gNoiseMutex);
  if (gNoiseUsed < gNoise.size()) return static_cast<uint8_t>(gNoise[gNoiseUsed++]);
  gNoisy = false;
  return 0;
}

inline void noiseBytes(void* to, size_t count) {
  for (size_t i = 0; i < count; ++i) static_cast<uint8_t*>(to)[i] = noiseByte();
}

// Applies noise to a number or to a record without texts: changes nothing, the start, a field or
// everything.
template <typename Record>
void disturb(Record& record) {
  const uint8_t how = gNoisy ? noiseByte() : 0;
  uint8_t* const bytes = reinterpret_cast<uint8_t*>(&record);
  if ((how & 3) == 1) noiseBytes(bytes, std::min<size_t>(how >> 2, sizeof record));
  if ((how & 3) == 2) {
    uint16_t offset = 0;
    noiseBytes(&offset, sizeof offset);
    offset = static_cast<uint16_t>(offset % sizeof record);
    noiseBytes(bytes + offset, std::min<size_t>((how >> 2 & 3) + 1, sizeof record - offset));
  }
  if ((how & 3) == 3) memset(bytes, noiseByte(), sizeof record);
}

inline int disturbed(int number) {
  disturb(number);
  return number;
}

// Applies noise to the bytes, length and encoding of a text, or removes it. Stays within the
// caller's buffer.
inline void disturb(multiple_lang_t& text) {
  if (!gNoisy) return;
  const uint8_t how = noiseByte();
  if (text.text != nullptr) noiseBytes(text.text, std::min<size_t>(how >> 3, text.length));
  if ((how & 1) != 0) noiseBytes(&text.length, sizeof text.length);
  if ((how & 2) != 0) text.encoding = noiseByte();
  if ((how & 7) == 7) text.text = nullptr;
}

// Applies noise to a record and its texts, which stay in the caller's buffers.
template <typename Record, typename... Texts>
void disturbWithTexts(Record& record, Texts... texts) {
  const Record before = record;
  disturb<Record>(record);
  ((record.*texts = before.*texts, disturb(record.*texts)), ...);
}

inline void disturb(AISRV_service_info& service) {
  disturbWithTexts(service, &AISRV_service_info::name);
}
inline void disturb(AIEC_event_info& event) {
  disturbWithTexts(event, &AIEC_event_info::name, &AIEC_event_info::rating);
}

// Applies noise to a count of services: another small number, or more than possible.
inline void disturbCount(uint32_t& count) {
  uint8_t small = static_cast<uint8_t>(count);
  disturb(small);
  if (small != static_cast<uint8_t>(count)) count = small < UINT8_MAX ? small % 16 : UINT32_MAX;
}

// Applies noise to records that the caller receives; leaves other arguments.
template <typename Record>
void disturbAnswer(Record* record) {
  if constexpr (!std::is_const_v<Record> && !std::is_void_v<Record>) {
    if (record != nullptr) disturb(*record);
  }
}
template <typename Value>
std::enable_if_t<!std::is_pointer_v<Value>> disturbAnswer(Value) {}

// A call in progress with its status. At its end the noise changes the answer.
template <typename... Arguments>
class Call {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor)
  Call(int status, Arguments... arguments) : status_(status), arguments_(arguments...) {}
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call() {
    if (!gNoisy) return;
    std::apply([](auto... argument) { (disturbAnswer(argument), ...); }, arguments_);
  }

  operator int() const { return status_; }  // NOLINT(google-explicit-constructor)

 private:
  const int status_;
  const std::tuple<Arguments...> arguments_;
};

// Fills the answer to a call, unless it fails.
template <typename Fill>
int answer(int status, Fill fill) {
  const auto locked = state();
  if (status == 0) fill(*locked);
  return status;
}

// Copies the answer to a call.
template <typename Value, typename Given>
int answer(int status, Value State::*from, Given* to) {
  return answer(status, [&](State& state) { *to = state.*from; });
}
template <typename Value, typename Given>
int answer(int status, Value Parental::*from, Given* to) {
  return answer(status, [&](State& state) { *to = state.parental.*from; });
}

// Records a call. Its status is the one that setResult() set.
template <typename... Arguments>
Call<Arguments...> called(const char* function, Arguments... arguments) {
  int status = 0;
  if (gRecording) {
    std::string listed;
    ((listed += (listed.empty() ? "" : ",") + text(arguments)), ...);
    const std::string call = std::string(function) + "(" + listed + ")";
    Hook hook;
    {
      const auto locked = state();
      locked->calls.push_back(call);
      locked->callTimes.push_back(std::chrono::steady_clock::now());
      const auto result = locked->results.find(function);
      if (result != locked->results.end()) status = result->second;
      hook = locked->callHook;
    }
    if (hook) hook(call);
  }
  if (gNoisy && noiseByte() >= 0xF0) noiseBytes(&status, sizeof status);
  return {status, arguments...};
}

inline void copyText(const std::string& from, int32_t encoding, multiple_lang_t& to) {
  to.length = static_cast<uint16_t>(std::min<size_t>(from.size(), to.text ? to.length : 0));
  if (to.length > 0) memcpy(to.text, from.data(), to.length);
  to.encoding = encoding;
}

inline void copyService(const Service& from, AISRV_service_info& to) {
  const multiple_lang_t lent = to.name;
  to = from.info;
  to.name = lent;
  copyText(from.name, from.nameEncoding, to.name);
}

inline void copyText(const Text& from, multiple_lang_t& to) {
  copyText(from.bytes, from.encoding, to);
  disturb(to);
  if (from.claimedLength != 0) to.length = from.claimedLength;
}

// Returns the event of a key, null when there is none.
inline const Event* findEvent(const State& state, const AIEC_event_key& key, uint32_t offset) {
  const auto found = state.events.find(serviceKey({key.service_rec, key.input_source}));
  const uint64_t index = uint64_t{key.event_index} + offset;
  if (found == state.events.end() || index >= found->second.size()) return nullptr;
  return &found->second[index];
}

// Answers like the functions that return one event.
inline void copyEvent(const State& state, const AIEC_event_key& key, uint32_t offset,
                      AIEC_event_info& to, uint16_t* copied) {
  const Event* from = findEvent(state, key, offset);
  *copied = from != nullptr ? 1 : 0;
  if (from == nullptr) return;
  const AIEC_event_info lent = to;
  to = from->info;
  to.key = {key.service_rec, key.input_source, key.event_index + offset};
  to.name = lent.name;
  to.rating = lent.rating;
  copyText(from->name, from->nameEncoding, to.name);
  copyText(from->rating, from->ratingEncoding, to.rating);
  if (from->info.rating.length != 0) to.rating.length = from->info.rating.length;
}

}  // namespace fake

#endif  // ATSC_TESTS_FAKE_STATE_H_
