// The exception with which a subcommand fails.
#ifndef ATSC_TV_TERMINAL_FAILURE_H_
#define ATSC_TV_TERMINAL_FAILURE_H_

#include <stdexcept>
#include <string>

namespace apps::tv {

// Exit statuses of the program, listed in its help.
enum ExitStatus {
  kSuccess = 0,
  kFailure = 1,
  kUsage = 2,
  kNoService = 3,
  kOtherTV = 4,
};

// Thrown to end the program with a message for the user and an exit status.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace apps::tv

#endif  // ATSC_TV_TERMINAL_FAILURE_H_
