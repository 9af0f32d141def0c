// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <new>
#include <stdexcept>
#include <utility>

namespace crash_test {

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

// A forked child that runs a function and ends with what it returns. Fork while no lock is held:
// a lock that a child inherits outlives its owner.
//
// Kind: owner of the child, which is killed and waited for at the latest when this goes.
class Child {
 public:
  template <typename Body>
  explicit Child(Body body) : pid_(::fork()) {
    if (pid_ < 0) {
      throw std::runtime_error("cannot fork");
    }
    if (pid_ == 0) {
      int result = kUncaught;
      try {
        result = body();
      } catch (...) {
      }
      ::_exit(result);
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { kill(); }

  static constexpr int kUncaught = 99;

  void kill() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      wait();
    }
  }

  // True while it runs; once false, wait() returns at once.
  bool running() {
    if (pid_ > 0 && ::waitpid(pid_, &status_, WNOHANG) == pid_) {
      pid_ = -1;
    }
    return pid_ > 0;
  }

  // Gives other processes the processor until `condition` holds; false if the child ended first.
  template <typename Condition>
  bool waitUntil(Condition condition) {
    while (!condition()) {
      if (!running()) {
        return condition();
      }
      ::sched_yield();
    }
    return true;
  }

  // What the child returned, or minus the signal that ended it.
  int wait() {
    if (pid_ > 0) {
      ::waitpid(pid_, &status_, 0);
      pid_ = -1;
    }
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
  }

 private:
  pid_t pid_;
  int status_ = 0;
};

}  // namespace crash_test
