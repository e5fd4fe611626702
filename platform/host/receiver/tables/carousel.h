// Repetition of the tables on one PID.
#ifndef ATSC_HOST_RECEIVER_TABLES_CAROUSEL_H_
#define ATSC_HOST_RECEIVER_TABLES_CAROUSEL_H_

#include <cstdint>
#include <optional>
#include <utility>

namespace atschost {

// Decides from repetitions when all sections of a PID were received. One thread.
class Carousel {
 public:
  // Forgets everything: the PID carries other tables from now on.
  void restart() { *this = {}; }

  // Counts a section. `key` identifies the section on the PID; `isNew` is false if the same content
  // was received before. Returns whether the PID became settled.
  bool note(uint32_t key, bool isNew) {
    if (isNew || !lastNew_) {
      lastNew_ = key;
      rounds_ = 0;
    }
    if (isNew) return false;
    repeated_ = true;
    if (key == *lastNew_) ++rounds_;
    return rounds_ >= 2 && !std::exchange(settled_, true);
  }

  // Counts the end of a pass through the stream. Returns whether the PID became settled.
  bool endPass() {
    if (++passes_ < 2) return false;
    awaited_ = false;
    return !std::exchange(settled_, true);
  }

  // Stops waiting if no section was received at all.
  void giveUpSilent() { awaited_ = awaited_ && lastNew_; }

  // Returns whether a section was received a second time.
  bool repeated() const { return repeated_; }
  // Returns whether more sections may come.
  bool awaited() const { return awaited_; }
  // Returns whether the last new section was repeated twice, or the stream was read twice: sections
  // that were not received are not on the air.
  bool settled() const { return settled_; }

 private:
  std::optional<uint32_t> lastNew_;  // key of the last new section
  unsigned rounds_ = 0;              // repetitions of that section
  unsigned passes_ = 0;              // that have ended
  bool awaited_ = true;
  bool repeated_ = false;
  bool settled_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_CAROUSEL_H_
