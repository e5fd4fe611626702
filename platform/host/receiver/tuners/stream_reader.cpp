#include "receiver/tuners/stream_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "process/log.h"
#include "receiver/stream/transport.h"

namespace atschost {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t kMaxBurst = 512;           // packets
constexpr milliseconds kBurst(50);          // of the stream's time
constexpr milliseconds kShortestPass(250);  // a short file is not read more often
constexpr milliseconds kLongestLag(1000);   // more, as after suspension, is not made up for

}  // namespace

StreamReader::StreamReader(const File& file, StreamId id)
    : file_(file),
      id_(std::move(id)),
      buffer_(kMaxBurst * kPacketSize),
      passBegin_(steady_clock::now()),
      due_(passBegin_) {}

bool StreamReader::readBurst(bool fast) {
  const double rate = pace_.packetsPerSecond();
  const auto burst = static_cast<size_t>(rate * kBurst.count() / 1000);
  const size_t packets = fast ? kMaxBurst : std::clamp<size_t>(burst, 1, kMaxBurst);
  const bool wasFast = std::exchange(wasFast_, fast);
  ssize_t got;
  do {
    got = ::read(file_.fd(), buffer_.data(), packets * kPacketSize);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) {
    if (got < 0 && !std::exchange(failed_, true)) log().Warn("%s: reading: %m", id_.path.c_str());
    if (lseek(file_.fd(), 0, SEEK_SET) != 0) failed_ = true;
    return false;
  }
  size_ = static_cast<size_t>(got);
  position_.bytes += size_;
  if (!fast) {
    const auto now = steady_clock::now();
    if (wasFast || due_ + kLongestLag < now) due_ = now;
    due_ += std::chrono::duration_cast<steady_clock::duration>(
        std::chrono::duration<double>(static_cast<double>(size_) / kPacketSize / rate));
  }
  return true;
}

StreamReader::Instant StreamReader::passDue() const {
  return std::max<Instant>(passBegin_ + kShortestPass, due_);
}

void StreamReader::endPass() {
  pace_.seam();
  ++position_.passes;
}

void StreamReader::beginPass() { passBegin_ = due_ = steady_clock::now(); }

bool StreamReader::hasChanged() {
  const auto present = streamId(id_.path);
  if (!present) return true;
  if (*present == id_) return false;
  const bool settled = *present == changing_;
  changing_ = *present;
  return settled || !present->sameFile(id_);
}

}  // namespace atschost
