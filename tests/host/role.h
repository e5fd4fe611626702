// A helper process of a test: runs the test program again in a role.
#ifndef ATSC_TESTS_HOST_ROLE_H_
#define ATSC_TESTS_HOST_ROLE_H_

#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "process.h"

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

// Plays a role, with more environment. Shows its error output at the end.
struct Helper : Process {
  explicit Helper(std::vector<std::string> role,
                  const std::map<std::string, std::string>& environment = {})
      : Process(wordsOf(role), environment, std::nullopt) {}
  ~Helper() { std::cerr << err(); }

 private:
  static std::vector<std::string> wordsOf(std::vector<std::string>& role) {
    role.insert(role.begin(), {std::filesystem::read_symlink("/proc/self/exe"), "--role"});
    return role;
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

#endif  // ATSC_TESTS_HOST_ROLE_H_
