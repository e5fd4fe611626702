// Reads the file of a carrier again and again, at the pace of its stream.
#ifndef ATSC_HOST_RECEIVER_TUNERS_STREAM_READER_H_
#define ATSC_HOST_RECEIVER_TUNERS_STREAM_READER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "receiver/air/air.h"
#include "receiver/stream/pace.h"

namespace atschost {

// How far a stream was read since it was opened.
struct StreamPosition {
  unsigned passes = 0;  // ends of the file
  size_t bytes = 0;
};

// One content of the file. One thread.
class StreamReader {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  // `file` must outlive the object.
  StreamReader(const File& file, StreamId id);

  // Reads the next packets into data(): many if `fast`, else those of a short time. Returns
  // false at the end of the file, and if it cannot be read; then reading begins anew.
  bool readBurst(bool fast);
  const uint8_t* data() const { return buffer_.data(); }
  size_t size() const { return size_; }

  // Return when to read on: after a burst that was not fast, and at the end of a pass.
  Instant burstDue() const { return due_; }
  Instant passDue() const;

  // Counts the end of a pass; the next packet does not continue the last one.
  void endPass();
  // Starts the time of the next pass.
  void beginPass();

  const StreamId& id() const { return id_; }
  StreamPosition position() const { return position_; }
  bool hasFailed() const { return failed_; }
  // The caller reports packets and system times to the pace.
  Pace& pace() { return pace_; }

  // Looks at the file system: returns whether the file was removed or has another content. A file
  // that is being written counts once it stays as it is.
  bool hasChanged();

 private:
  const File& file_;
  const StreamId id_;
  StreamId changing_;  // what the file was last seen to be
  std::vector<uint8_t> buffer_;
  size_t size_ = 0;
  bool failed_ = false;
  StreamPosition position_;
  Pace pace_;
  Instant passBegin_;
  Instant due_;  // of the next burst
  bool wasFast_ = true;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_STREAM_READER_H_
