// SPDX-License-Identifier: Apache-2.0

#include "testing/Program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <spawn.h>

namespace integration {

namespace {

std::string contents(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments, const std::string& outputFolder)
    : outPath_(outputFolder + "/stdout"), errPath_(outputFolder + "/stderr") {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath_.c_str(), kFlags, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath_.c_str(), kFlags, 0600);
  const int error = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    throw std::runtime_error("cannot start " + arguments[0]);
  }
}

Program::~Program() { kill(); }

bool Program::running() {
  if (!ended_ && ::waitpid(pid_, &status_, WNOHANG) == pid_) {
    ended_ = true;
  }
  return !ended_;
}

Outcome Program::wait() {
  if (!ended_) {
    ::waitpid(pid_, &status_, 0);
    ended_ = true;
  }
  return {WIFEXITED(status_) ? WEXITSTATUS(status_) : -1, contents(outPath_), contents(errPath_)};
}

// Waits until it has stopped, or ended.
void Program::pause() {
  int status = 0;
  if (ended_ || ::kill(pid_, SIGSTOP) != 0 || ::waitpid(pid_, &status, WUNTRACED) != pid_) {
    return;
  }
  if (!WIFSTOPPED(status)) {
    status_ = status;
    ended_ = true;
  }
}

void Program::resume() const {
  if (!ended_) {
    ::kill(pid_, SIGCONT);
  }
}

void Program::kill() {
  if (!ended_) {
    ::kill(pid_, SIGKILL);
    wait();
  }
}

Outcome run(const std::vector<std::string>& arguments, const std::string& outputFolder) {
  return Program(arguments, outputFolder).wait();
}

}  // namespace integration
