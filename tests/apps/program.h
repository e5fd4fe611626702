// Programs of the build as child processes of a test.
#ifndef ATSC_TESTS_APPS_PROGRAM_H_
#define ATSC_TESTS_APPS_PROGRAM_H_

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

// Polls `condition` until it is true. Returns false after a time limit, which allows for an
// emulator.
bool eventually(const std::function<bool()>& condition);

std::string readFile(const std::filesystem::path& path);

// A running program. Its outputs are files in a folder of the test. It is killed when the object is
// destroyed and when the test dies.
class Program {
 public:
  // Starts `words` with `environment` added to the test's environment, after the words in
  // ATSC_TEST_EMULATOR. `input` is the content of standard input.
  Program(const std::filesystem::path& folder, std::vector<std::string> words,
          const std::map<std::string, std::string>& environment, const std::string& input = "");
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t pid() const { return pid_; }
  std::string out() const { return readFile(out_); }
  std::string err() const { return readFile(err_); }

  void signal(int number) const;

  // Waits until the outputs contain `text` `times` times. Returns false when the program ends
  // before or the time limit is over.
  bool says(const std::string& text, size_t times = 1);

  // Returns how often the outputs contain `text` now.
  size_t count(const std::string& text) const;

  // Returns the exit status, or minus the signal that ended the program; -1000 after the time
  // limit.
  int wait();

 private:
  static constexpr int kRunning = -1000;

  bool ended();

  std::filesystem::path out_;
  std::filesystem::path err_;
  pid_t pid_ = -1;
  int status_ = kRunning;
};

#endif  // ATSC_TESTS_APPS_PROGRAM_H_
