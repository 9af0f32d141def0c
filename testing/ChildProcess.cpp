// SPDX-License-Identifier: Apache-2.0

// An end that may not come is waited for with a process descriptor, which poll() takes a limit for.

#include "testing/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <spawn.h>

namespace testing_support {

namespace {

std::string contents(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

pid_t spawn(const std::vector<std::string>& arguments, const std::string& outPath,
            const std::string& errPath) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), kFlags, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), kFlags, 0600);
  pid_t pid = -1;
  const int error = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    throw std::runtime_error("cannot start " + arguments[0]);
  }
  return pid;
}

// The child is left for waitpid() to collect.
bool endsWithin(pid_t child, std::chrono::milliseconds limit) {
  const auto descriptor = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
  if (descriptor < 0) {
    throw std::system_error(errno, std::generic_category(), "pidfd_open");
  }
  const auto deadline = std::chrono::steady_clock::now() + limit;
  pollfd polled{descriptor, POLLIN, 0};
  int ready = -1;
  do {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    ready = ::poll(&polled, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  } while (ready < 0 && errno == EINTR);
  ::close(descriptor);
  return ready == 1;
}

}  // namespace

// ---- Ending

Ending Ending::ofStatus(int status) {
  return WIFEXITED(status) ? exited(WEXITSTATUS(status)) : killedBy(WTERMSIG(status));
}

Ending Ending::overdue(std::chrono::milliseconds limit) {
  return {Way::overdue, static_cast<int>(limit.count())};
}

std::ostream& operator<<(std::ostream& out, const Ending& ending) {
  switch (ending.way_) {
    case Ending::Way::exited:
      return out << "exit code " << ending.value_;
    case Ending::Way::killed:
      return out << "signal " << ending.value_ << " (" << ::strsignal(ending.value_) << ")";
    case Ending::Way::overdue:
      break;
  }
  return out << "killed, for it did not end within " << ending.value_ << " ms";
}

// ---- children

pid_t forkChild(const std::function<int()>& body) {
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (child > 0) {
    return child;
  }
  // A parent that ended before this call sends no signal any more.
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent) {
    ::_exit(kUncaught);
  }
  int result = kUncaught;
  try {
    result = body();
  } catch (const std::exception& error) {
    ::dprintf(STDERR_FILENO, "the child threw: %s\n", error.what());
  } catch (...) {
    ::dprintf(STDERR_FILENO, "the child threw\n");
  }
  ::_exit(result);
}

pid_t waitForChild(pid_t child, int* status, int options) {
  pid_t found = -1;
  do {
    found = ::waitpid(child, status, options);
  } while (found < 0 && errno == EINTR);
  return found;
}

bool ChildProcess::running() {
  int status = 0;
  if (!ending_ && waitForChild(pid_, &status, WNOHANG) == pid_) {
    ending_ = Ending::ofStatus(status);
  }
  return !ending_;
}

Ending ChildProcess::wait(std::chrono::milliseconds limit) {
  if (!ending_) {
    if (endsWithin(pid_, limit)) {
      collect();
    } else {
      kill();
      ending_ = Ending::overdue(limit);
    }
  }
  return *ending_;
}

void ChildProcess::pause() {
  int status = 0;
  if (ending_ || ::kill(pid_, SIGSTOP) != 0 || waitForChild(pid_, &status, WUNTRACED) != pid_) {
    return;
  }
  if (!WIFSTOPPED(status)) {
    ending_ = Ending::ofStatus(status);
  }
}

void ChildProcess::resume() const {
  if (!ending_) {
    ::kill(pid_, SIGCONT);
  }
}

void ChildProcess::kill() {
  if (!ending_) {
    ::kill(pid_, SIGKILL);
    collect();
  }
}

void ChildProcess::collect() {
  int status = 0;
  waitForChild(pid_, &status);
  ending_ = Ending::ofStatus(status);
}

// ---- programs

Program::Program(const std::vector<std::string>& arguments, const std::string& outputFolder)
    : ChildProcess(spawn(arguments, outputFolder + "/stdout", outputFolder + "/stderr")),
      outPath_(outputFolder + "/stdout"),
      errPath_(outputFolder + "/stderr") {}

Outcome Program::wait() {
  const Ending ending = ChildProcess::wait();
  Outcome outcome{ending.exitCode(), contents(outPath_), contents(errPath_)};
  if (outcome.exitCode < 0) {
    std::ostringstream how;
    how << "[" << ending << "]\n";
    outcome.err += how.str();
  }
  return outcome;
}

Outcome runProgram(const std::vector<std::string>& arguments, const std::string& outputFolder) {
  return Program(arguments, outputFolder).wait();
}

}  // namespace testing_support
