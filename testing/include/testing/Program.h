// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace integration {

// What a program that ended left behind.
struct Outcome {
  int exitCode = -1;  // -1: ended by a signal
  std::string out;
  std::string err;
};

// A program started as a user starts it, its output collected in files.
//
// Kind: owner of the process, which is killed and waited for at the latest when this goes.
class Program {
 public:
  // arguments[0] is the program's path. outputFolder takes the files.
  Program(const std::vector<std::string>& arguments, const std::string& outputFolder);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  pid_t pid() const { return pid_; }
  // Waits for its end.
  Outcome wait();
  // True while it runs; once false, wait() returns at once.
  bool running();
  // Stops it where it is, and lets it go on.
  void pause();
  void resume() const;
  // SIGKILL, and waits for its end.
  void kill();

 private:
  std::string outPath_;
  std::string errPath_;
  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = 0;
};

// Runs a program to its end.
Outcome run(const std::vector<std::string>& arguments, const std::string& outputFolder);

}  // namespace integration
