// What the decoders of EIT and ETT have in common.
#ifndef ATSC_HOST_RECEIVER_TABLES_GUIDE_PID_H_
#define ATSC_HOST_RECEIVER_TABLES_GUIDE_PID_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "receiver/stream/section.h"
#include "receiver/tables/carousel.h"
#include "receiver/tables/guide_tables.h"
#include "receiver/tables/mgt.h"

namespace atschost {

// The memory that the tables of all PIDs take, at most kMaxGuideSize, and the count of their
// changes.
class GuideStorage {
 public:
  static constexpr const char* kFull = "guide tables are more than is kept";

  // Returns whether `more` bytes fit once `freed` bytes are released.
  bool hasRoomFor(size_t more, size_t freed = 0) const {
    return size_ - freed + more <= kMaxGuideSize;
  }
  void take(size_t size) { size_ += size; }
  void release(size_t size) { size_ -= size; }

  void noteChange() { ++changes_; }
  uint64_t changes() const { return changes_; }

 private:
  size_t size_ = 0;
  uint64_t changes_ = 0;
};

// One kind of guide table on one PID. When the MGT numbers the instances anew, every three hours,
// the tables stay with their PID. One thread.
class GuidePid {
 public:
  // `storage` must outlive the object.
  explicit GuidePid(GuideStorage& storage) : storage_(storage) {}
  virtual ~GuidePid() = default;
  GuidePid(const GuidePid&) = delete;
  GuidePid& operator=(const GuidePid&) = delete;

  // Takes over the instances that the MGT announces on the PID. Returns whether they changed. After
  // a change of a version a table stays in the guide until it is received again or settled to be
  // gone.
  virtual bool follow(const std::vector<Announced>& instances);

  // Takes a section with a sound header. Returns null, or the fault for which the section or a
  // descriptor in it was dropped.
  virtual const char* push(const Section& section) = 0;

  // Adds the tables to the guide.
  virtual void addTo(GuideTables& guide) const = 0;

  // As the functions of PsipDecoder.
  void endPass();
  void giveUpSilent() { carousel_.giveUpSilent(); }
  bool isComplete() const {
    return !carousel_.awaited() || (carousel_.repeated() && !hasPending());
  }
  bool isSettled() const { return carousel_.settled(); }

  const std::vector<Announced>& instances() const { return instances_; }

 protected:
  // Counts a section for the carousel; sweeps once the PID is settled.
  void note(uint32_t key, bool isNew);
  // Returns the number of the present announcement; starts above 0.
  unsigned round() const { return round_; }
  GuideStorage& storage() const { return storage_; }

 private:
  // Drops the tables of earlier rounds: they are no longer on the air.
  virtual void sweep() = 0;
  // Returns whether a table was received in part.
  virtual bool hasPending() const { return false; }

  GuideStorage& storage_;
  std::vector<Announced> instances_;  // ascending
  unsigned round_ = 1;
  Carousel carousel_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_GUIDE_PID_H_
