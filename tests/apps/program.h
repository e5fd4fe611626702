// Programs of the build as child processes of a test.
#ifndef ATSC_TESTS_APPS_PROGRAM_H_
#define ATSC_TESTS_APPS_PROGRAM_H_

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

// Asks until the answer is yes; false when it does not come in time, which allows for an emulator.
bool eventually(const std::function<bool()>& condition);

std::string readFile(const std::filesystem::path& path);

// A running program. Its outputs go to files in a folder of the test; it is killed when the object
// goes, and when the test dies.
class Program {
 public:
  // Starts `words` with `environment` added to the test's own. Words in ATSC_TEST_EMULATOR come
  // first. `input` is what standard input holds.
  Program(const std::filesystem::path& folder, std::vector<std::string> words,
          const std::map<std::string, std::string>& environment, const std::string& input = "");
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t pid() const { return pid_; }
  std::string out() const { return readFile(out_); }
  std::string err() const { return readFile(err_); }

  void signal(int number) const;

  // True once `text` is in the outputs `times` times; false when the program ends without it or it
  // does not come.
  bool says(const std::string& text, size_t times = 1);

  // How often `text` is in the outputs now.
  size_t count(const std::string& text) const;

  // The exit status, or minus the signal that ended it; -1000 when it does not end in time.
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
