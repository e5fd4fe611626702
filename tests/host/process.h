// A helper process of a test: runs the test program again in a role.
#ifndef ATSC_TESTS_HOST_PROCESS_H_
#define ATSC_TESTS_HOST_PROCESS_H_

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// Runs a role with pipes as its standard streams. ATSC_TEST_EMULATOR contains the words that start
// a program under an emulator.
class Process {
 public:
  explicit Process(std::vector<std::string> role, bool keepErrors = false) {
    char self[4096];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self);
    if (length <= 0) throw std::runtime_error("no own path");
    std::vector<std::string> words;
    if (const char* const emulator = std::getenv("ATSC_TEST_EMULATOR")) {
      std::istringstream stream(emulator);
      words.assign(std::istream_iterator<std::string>(stream), {});
    }
    words.emplace_back(self, static_cast<size_t>(length));
    words.emplace_back("--role");
    words.insert(words.end(), role.begin(), role.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);

    int ends[3][2];
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (int fd = 0; fd < 3; ++fd) {
      if (::pipe2(ends[fd], O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
      if (fd == 2 && !keepErrors) continue;
      ::posix_spawn_file_actions_adddup2(&actions, ends[fd][fd == 0 ? 0 : 1], fd);
    }
    const int failed =
        ::posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    for (int fd = 0; fd < 3; ++fd) ::close(ends[fd][fd == 0 ? 0 : 1]);
    input_ = ends[0][1];
    output_ = ends[1][0];
    errors_ = ends[2][0];
    if (failed != 0) throw std::runtime_error("no process");
  }

  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  ~Process() {
    kill();
    for (const int fd : {input_, output_, errors_}) ::close(fd);
  }

  pid_t pid() const { return pid_; }

  void say(char byte) {
    if (::write(input_, &byte, 1) != 1) throw std::runtime_error("the process does not listen");
  }

  // Returns the next byte of standard output; 0 at the end or after a time limit.
  char hear() { return next(output_); }

  // Returns a line of standard output, without its end.
  std::string hearLine() {
    std::string line;
    for (char byte = hear(); byte != 0 && byte != '\n'; byte = hear()) line += byte;
    return line;
  }

  // Returns all error output. For a process that ends.
  std::string errors() {
    std::string text;
    for (char byte = next(errors_); byte != 0; byte = next(errors_)) text += byte;
    return text;
  }

  // Returns the exit status, or minus the signal.
  int wait() {
    int status = 0;
    if (ended_ || ::waitpid(pid_, &status, 0) != pid_) return -1;
    ended_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  void kill() {
    if (ended_) return;
    ::kill(pid_, SIGKILL);
    wait();
  }

 private:
  static char next(int fd) {
    pollfd event{fd, POLLIN, 0};
    char byte = 0;
    if (::poll(&event, 1, 60000) != 1 || ::read(fd, &byte, 1) != 1) return 0;
    return byte;
  }

  pid_t pid_ = -1;
  bool ended_ = false;
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
};

// A role of helper processes. Receives the words after its name and returns the exit status.
using Role = int (*)(const std::vector<std::string>& words);
inline std::map<std::string, Role>& roles() {
  static std::map<std::string, Role> all;
  return all;
}

// Registers roles. For a global of the test that uses them.
struct AddRoles {
  explicit AddRoles(const std::map<std::string, Role>& more) {
    roles().insert(more.begin(), more.end());
  }
};

// For a role: sends one byte to the test; receives one byte from it (0 after its end).
inline void tell(char byte) {
  if (::write(STDOUT_FILENO, &byte, 1) != 1) ::_exit(99);
}
inline char listen() {
  char byte = 0;
  return ::read(STDIN_FILENO, &byte, 1) == 1 ? byte : '\0';
}

#endif  // ATSC_TESTS_HOST_PROCESS_H_
