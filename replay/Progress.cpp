// SPDX-License-Identifier: Apache-2.0

#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include <fmt/format.h>

// The line is redrawn in place: a carriage return, then the same or a larger number of columns.

namespace Replay {

Progress::Progress(std::string label, std::uint64_t total, std::FILE* out)
    : Progress(std::move(label), total, out, isatty(fileno(out)) == 1,
               &std::chrono::steady_clock::now) {}

// Where there is no terminal, the job's line counts as finished from the start.
Progress::Progress(std::string label, std::uint64_t total, std::FILE* out, bool isTerminal,
                   Clock now)
    : label_(std::move(label)),
      total_(total),
      out_(out),
      now_(std::move(now)),
      isFinished_(!isTerminal) {}

Progress::~Progress() { finish(); }

void Progress::update(std::uint64_t done) {
  if (isFinished_) {
    return;
  }
  done_ = std::min(done, total_);
  const auto now = now_();
  if (!isDrawn_ || now - drawnAt_ >= kRedrawInterval) {
    drawnAt_ = now;
    draw();
  }
}

void Progress::finish() {
  if (isFinished_) {
    return;
  }
  draw();
  std::fputc('\n', out_);
  std::fflush(out_);
  isFinished_ = true;
}

void Progress::draw() {
  const double share = total_ == 0 ? 1.0 : static_cast<double>(done_) / static_cast<double>(total_);
  const std::string filled(static_cast<std::size_t>(share * kBarWidth), '#');
  const std::string line = fmt::format("\r{} [{:.<{}}] {:3}% {:{}}/{}", label_, filled, kBarWidth,
                                       static_cast<int>(share * 100.0), done_,
                                       fmt::formatted_size("{}", total_), total_);
  std::fwrite(line.data(), 1, line.size(), out_);
  std::fflush(out_);
  isDrawn_ = true;
}

}  // namespace Replay
