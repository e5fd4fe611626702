#ifndef ATSC_TESTS_SUPPORT_PROCESS_H_
#define ATSC_TESTS_SUPPORT_PROCESS_H_

#include <signal.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

// A child process. It is killed when the object is destroyed and when the test dies.
class Process {
 public:
  // Starts `words`, after those in ATSC_TEST_EMULATOR, with `environment` added to that of the
  // test. `input` is the content of standard input; without it, say() writes there.
  explicit Process(std::vector<std::string> words,
                   const std::map<std::string, std::string>& environment = {},
                   const std::optional<std::string>& input = "");
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  bool alive() { return !ended(); }
  std::string out() const;
  std::string err() const;

  // Waits until the outputs contain `text` `times` times. Returns false when the process ends
  // before or the time limit is over.
  bool says(const std::string& text, size_t times = 1);

  // Returns how often the outputs contain `text` now.
  size_t count(const std::string& text) const;

  void say(char byte);

  // Returns the next byte of standard output; 0 at the end or after a time limit.
  char hear();

  // Returns the next line of standard output, without its end.
  std::string hearLine();

  void signal(int number) const;
  void kill() { stop(SIGKILL); }

  // Sends the signal and returns as wait().
  int stop(int number = SIGTERM);

  // Returns the exit status, or minus the signal that ended the process; -1000 after the time
  // limit.
  int wait();

 private:
  static constexpr int kRunning = -1000;

  bool ended();

  pid_t pid_ = -1;
  int status_ = kRunning;
  int input_ = -1;
  int out_ = -1;
  int err_ = -1;
  off_t heard_ = 0;
};

// What a program that has ended leaves.
struct Outcome {
  int status;
  std::string out;
  std::string err;
};
Outcome finish(Process& process);

#endif  // ATSC_TESTS_SUPPORT_PROCESS_H_
