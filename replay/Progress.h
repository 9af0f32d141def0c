// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

namespace Replay {

// One line on a terminal that shows how far a long job is; writes nothing to anything else.
//
// Kind: object, one per job.
// Ownership: borrows the stream, which must outlive it.
// Threads: one.
// Invariants: the line is drawn at most once in kRedrawInterval, apart from the last time, and
//   once drawn it is ended with a newline, by finish() or by the destructor.
class Progress {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  static constexpr std::chrono::milliseconds kRedrawInterval{100};
  static constexpr int kBarWidth = 30;

  // `total` is the number of steps of the whole job; with 0 the job is done from the start.
  Progress(std::string label, std::uint64_t total, std::FILE* out);
  // As above, but told whether `out` is a terminal and what time it is.
  Progress(std::string label, std::uint64_t total, std::FILE* out, bool isTerminal, Clock now);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // `done` steps of the total are done; more than the total counts as the total.
  void update(std::uint64_t done);
  // Draws what the last update said and ends the line. Later calls do nothing.
  void finish();

 private:
  void draw();

  std::string label_;
  std::uint64_t total_;
  std::uint64_t done_ = 0;
  std::FILE* out_;
  Clock now_;
  std::chrono::steady_clock::time_point drawnAt_;
  bool isDrawn_ = false;
  bool isFinished_;
};

}  // namespace Replay
