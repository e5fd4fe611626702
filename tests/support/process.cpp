#include "process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "wait.h"

namespace {

// Returns the content of an output, whose file position belongs to the process.
std::string contentOf(int file) {
  std::string content;
  char part[4096];
  for (ssize_t got;
       (got = ::pread(file, part, sizeof part, static_cast<off_t>(content.size()))) > 0;)
    content.append(part, static_cast<size_t>(got));
  return content;
}

int memoryFile(const std::string& content = "") {
  const int file = ::memfd_create("process", MFD_CLOEXEC);
  if (file < 0 || ::pwrite(file, content.data(), content.size(), 0) < 0)
    throw std::runtime_error("no file");
  return file;
}

}  // namespace

Process::Process(std::vector<std::string> words,
                 const std::map<std::string, std::string>& environment,
                 const std::optional<std::string>& input)
    : out_(memoryFile()), err_(memoryFile()) {
  if (const char* const emulator = std::getenv("ATSC_TEST_EMULATOR")) {
    std::istringstream stream(emulator);
    words.insert(words.begin(), std::istream_iterator<std::string>(stream), {});
  }
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  int ends[2] = {-1, -1};
  if (input) {
    ends[0] = memoryFile(*input);
  } else if (::pipe2(ends, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  input_ = ends[1];
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("no process");
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::dup2(ends[0], STDIN_FILENO) < 0 || ::dup2(out_, STDOUT_FILENO) < 0 ||
        ::dup2(err_, STDERR_FILENO) < 0)
      ::_exit(126);
    for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  ::close(ends[0]);
}

Process::~Process() {
  kill();
  for (const int file : {input_, out_, err_}) ::close(file);
}

std::string Process::out() const { return contentOf(out_); }
std::string Process::err() const { return contentOf(err_); }

bool Process::says(const std::string& text, size_t times) {
  bool said = false;
  eventually([&] {
    const bool lastLook = ended();
    said = count(text) >= times;
    return said || lastLook;
  });
  return said;
}

size_t Process::count(const std::string& text) const {
  const std::string all = out() + err();
  size_t count = 0;
  for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; at += text.size()) ++count;
  return count;
}

void Process::say(char byte) {
  if (::write(input_, &byte, 1) != 1) throw std::runtime_error("the process does not listen");
}

char Process::hear() {
  char byte = 0;
  eventually([&] {
    const bool lastLook = ended();
    return ::pread(out_, &byte, 1, heard_) == 1 || lastLook;
  });
  if (byte != 0) ++heard_;
  return byte;
}

std::string Process::hearLine() {
  std::string line;
  for (char byte = hear(); byte != 0 && byte != '\n'; byte = hear()) line += byte;
  return line;
}

void Process::signal(int number) const {
  if (status_ == kRunning) ::kill(pid_, number);
}

int Process::stop(int number) {
  signal(number);
  return wait();
}

bool Process::ended() {
  int status = 0;
  if (status_ == kRunning && ::waitpid(pid_, &status, WNOHANG) == pid_)
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return status_ != kRunning;
}

int Process::wait() {
  eventually([&] { return ended(); });
  return status_;
}

Outcome finish(Process& process) {
  const int status = process.wait();
  return {status, process.out(), process.err()};
}
