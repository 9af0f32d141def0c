// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sched.h>
#include <sys/mman.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <new>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

// Child processes of tests: forked functions, and programs that are started as a user starts them.

namespace testing_support {

// A value that this process and its children share.
//
// Kind: owner of one anonymous shared mapping; T is made of lock-free atomics and plain bytes.
template <typename T>
class Shared {
 public:
  Shared()
      : value_(static_cast<T*>(::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE,
                                      MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    if (value_ == MAP_FAILED) {
      throw std::bad_alloc();
    }
    new (value_) T;
  }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  ~Shared() { ::munmap(value_, sizeof(T)); }

  T& operator*() const { return *value_; }
  T* operator->() const { return value_; }

 private:
  T* value_;
};

// How a process ended. A failed test prints it in words.
//
// Kind: value.
class Ending {
 public:
  // From what waitpid() says of a process that ended.
  static Ending ofStatus(int status);
  static Ending exited(int code) { return {Way::exited, code}; }
  static Ending killedBy(int signal) { return {Way::killed, signal}; }
  // It had to be killed, for it did not end in that time.
  static Ending overdue(std::chrono::milliseconds limit);

  // The exit code, or -1 when it did not exit by itself.
  int exitCode() const { return way_ == Way::exited ? value_ : -1; }

  friend bool operator==(const Ending&, const Ending&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Ending& ending);

 private:
  enum class Way { exited, killed, overdue };

  Ending(Way way, int value) : way_(way), value_(value) {}

  Way way_;
  int value_;  // exit code, signal, or milliseconds
};

// Forks a child that runs the function and ends with what it returns, or with kUncaught and a line
// on standard error when that throws. It is killed when the calling thread ends, however that ends.
// Fork while no lock is held: a lock that a child inherits outlives its owner. The caller waits for
// the child.
inline constexpr int kUncaught = 99;
pid_t forkChild(const std::function<int()>& body);

// waitpid(), begun again when a signal interrupts it.
pid_t waitForChild(pid_t child, int* status, int options = 0);

// One child process.
//
// Kind: owner of the process, which is killed and waited for at the latest when this goes.
class ChildProcess {
 public:
  // What hangs is ended after this time, which is far beyond what any child of a test takes.
  static constexpr std::chrono::milliseconds kLongest = std::chrono::minutes(10);

  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  // True while it runs; once false, wait() returns at once.
  bool running();
  // Waits for its end. Kills it after the limit.
  Ending wait(std::chrono::milliseconds limit = kLongest);
  // Stops it where it is; returns once it has stopped, or ended.
  void pause();
  void resume() const;
  // SIGKILL, and waits for its end.
  void kill();

  // Gives other processes the processor until `condition` holds; false if the child ended first, or
  // after kLongest.
  template <typename Condition>
  bool waitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + kLongest;
    while (!condition()) {
      if (!running()) {
        return condition();
      }
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      ::sched_yield();
    }
    return true;
  }

 protected:
  explicit ChildProcess(pid_t pid) : pid_(pid) {}
  ~ChildProcess() { kill(); }

 private:
  void collect();

  pid_t pid_;
  std::optional<Ending> ending_;
};

// A child that runs a function: see forkChild().
class ForkedChild : public ChildProcess {
 public:
  explicit ForkedChild(const std::function<int()>& body) : ChildProcess(forkChild(body)) {}
};

// What a program that ended left behind.
struct Outcome {
  int exitCode = -1;  // -1: it did not exit by itself, and err says how it ended
  std::string out;
  std::string err;
};

// A program started as a user starts it, its output collected in files.
class Program : public ChildProcess {
 public:
  // arguments[0] is the program's path. outputFolder takes the files.
  Program(const std::vector<std::string>& arguments, const std::string& outputFolder);

  Outcome wait();

 private:
  std::string outPath_;
  std::string errPath_;
};

// Runs a program to its end.
Outcome runProgram(const std::vector<std::string>& arguments, const std::string& outputFolder);

}  // namespace testing_support
