#include "program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(100);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

Program::Program(const fs::path& folder, std::vector<std::string> words,
                 const std::map<std::string, std::string>& environment, const std::string& input) {
  static int count = 0;
  const std::string stem = folder / ("program-" + std::to_string(++count));
  const std::string in = stem + ".in";
  out_ = stem + ".out";
  err_ = stem + ".err";
  std::ofstream(in, std::ios::binary) << input;
  if (const char* emulator = getenv("ATSC_TEST_EMULATOR")) {
    std::istringstream stream(emulator);
    words.insert(words.begin(), std::istream_iterator<std::string>(stream), {});
  }
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("no process");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    if (dup2(open(in.c_str(), O_RDONLY), STDIN_FILENO) < 0 ||
        dup2(open(out_.c_str(), flags, 0600), STDOUT_FILENO) < 0 ||
        dup2(open(err_.c_str(), flags, 0600), STDERR_FILENO) < 0) {
      _exit(126);
    }
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
}

Program::~Program() {
  if (status_ != kRunning) return;
  signal(SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Program::signal(int number) const {
  if (status_ == kRunning) kill(pid_, number);
}

bool Program::ended() {
  int status = 0;
  if (status_ == kRunning && waitpid(pid_, &status, WNOHANG) == pid_) {
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  return status_ != kRunning;
}

bool Program::says(const std::string& text, size_t times) {
  bool said = false;
  eventually([&] {
    const bool lastLook = ended();
    said = count(text) >= times;
    return said || lastLook;
  });
  return said;
}

size_t Program::count(const std::string& text) const {
  const std::string all = out() + err();
  size_t count = 0;
  for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; at += text.size()) ++count;
  return count;
}

int Program::wait() {
  eventually([&] { return ended(); });
  return status_;
}
