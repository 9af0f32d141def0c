// SPDX-License-Identifier: Apache-2.0

// The pipe carries one record per request and per answer, each written by one write() of less than
// PIPE_BUF bytes: a record is there whole or not at all, whenever the writer is killed. A child
// that fails sends a record that says how, and its words behind it.

#include "replay/AgentRestart.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "Glint/MountInfo.h"
#include "captures/NextHopEntry.h"

namespace Replay {

namespace {

constexpr std::uint32_t kRowsPerStep = Hardware::HardwareTurns::kRowsPerTurn;

struct Record {
  enum class Kind : std::uint8_t { write, remove, mountError, error };
  using Moment = ObservedRequest::Moment;

  std::uint64_t stage = 0;
  std::uint64_t version = 0;
  Agent::FecClient::Entry entry;  // of a remove only the key counts
  std::uint16_t unit = 0;
  Moment moment = Moment::asked;
  Kind kind = Kind::error;
};
static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) <= PIPE_BUF);

Record recordOf(std::size_t stage, const ObservedRequest& request) {
  Record record;
  record.stage = stage;
  record.version = request.version.value();
  record.entry = request.entry.value_or(Agent::FecClient::Entry());
  record.entry.key = request.key;
  record.unit = request.unit.value();
  record.moment = request.moment;
  record.kind = request.entry ? Record::Kind::write : Record::Kind::remove;
  return record;
}

ObservedRequest requestOf(const Record& record) {
  const bool isWrite = record.kind == Record::Kind::write;
  return {record.moment, Asic::UnitId(record.unit), record.entry.key,
          isWrite ? std::optional(record.entry) : std::nullopt, Asic::LogVersion(record.version)};
}

[[noreturn]] void throwSystemError(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// The process's end of a pipe.
class Pipe {
 public:
  Pipe() {
    if (::pipe(ends_.data()) != 0) {
      throwSystemError("pipe");
    }
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    closeReading();
    closeWriting();
  }

  void closeReading() { closeEnd(ends_[0]); }
  void closeWriting() { closeEnd(ends_[1]); }

  void write(const void* bytes, std::size_t count) const {
    if (::write(ends_[1], bytes, count) != static_cast<ssize_t>(count)) {
      throwSystemError("write to the parent process");
    }
  }
  // True when there is something to read, or the end, within the time.
  bool readable(int milliseconds) const {
    pollfd asked{ends_[0], POLLIN, 0};
    return ::poll(&asked, 1, milliseconds) > 0;
  }
  // How many bytes were read; 0 at the end.
  std::size_t read(void* bytes, std::size_t count) const {
    ssize_t got = -1;
    do {
      got = ::read(ends_[0], bytes, count);
    } while (got < 0 && errno == EINTR);
    return got < 0 ? 0 : static_cast<std::size_t>(got);
  }

 private:
  static void closeEnd(int& end) {
    if (end >= 0) {
      ::close(std::exchange(end, -1));
    }
  }

  std::array<int, 2> ends_ = {-1, -1};
};

void tellFailure(const Pipe& pipe, Record::Kind kind, std::string_view text) {
  Record record;
  record.kind = kind;
  pipe.write(&record, sizeof record);
  pipe.write(text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
}

[[noreturn]] void throwFailure(const Pipe& pipe, Record::Kind kind) {
  std::array<char, PIPE_BUF> text{};
  const std::string told(text.data(), pipe.read(text.data(), text.size()));
  if (kind == Record::Kind::mountError) {
    throw ZevGlint::MountException(told);
  }
  throw std::runtime_error(told);
}

[[noreturn]] void runChild(Pipe& pipe, std::uint64_t answers, const ChildWork& work) {
  pipe.closeReading();
  std::uint64_t told = 0;
  try {
    work([&](std::size_t stage, const ObservedRequest& request) {
      const Record record = recordOf(stage, request);
      pipe.write(&record, sizeof record);
      told += request.moment == ObservedRequest::Moment::carriedOut ? 1U : 0U;
      if (told == answers) {
        ::kill(::getpid(), SIGKILL);
      }
    });
  } catch (const ZevGlint::MountException& error) {
    tellFailure(pipe, Record::Kind::mountError, error.what());
  } catch (const std::exception& error) {
    tellFailure(pipe, Record::Kind::error, error.what());
  }
  ::_exit(0);
}

// Takes the answers, and has the hardware follow the log meanwhile. It can be mounted once the
// child has made the tables, which it has at the first answer.
KilledAgent follow(const Pipe& pipe, const std::string& stateFolder,
                   const std::vector<Asic::UnitId>& units,
                   const Asic::HardwareMaker& makeHardware) {
  KilledAgent killed;
  Record record;
  for (;;) {
    const bool busy = killed.hardware && killed.hardware->step(kRowsPerStep);
    if (!pipe.readable(busy ? 0 : 1)) {
      continue;
    }
    if (pipe.read(&record, sizeof record) != sizeof record) {
      return killed;
    }
    if (record.kind == Record::Kind::mountError || record.kind == Record::Kind::error) {
      throwFailure(pipe, record.kind);
    }
    killed.stage = record.stage;
    killed.observed.push_back(requestOf(record));
    if (!killed.hardware) {
      killed.hardware = makeHardware(stateFolder, units, Asic::Writer::elsewhere);
    }
  }
}

// A child process, waited for at the latest when this goes.
class Child {
 public:
  Child() : pid_(::fork()) {
    if (pid_ < 0) {
      throwSystemError("fork");
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { wait(); }

  bool isHere() const { return pid_ == 0; }
  // What waitpid() says of its end.
  int wait() {
    while (pid_ > 0 && ::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status_;
  }

 private:
  pid_t pid_;
  int status_ = 0;
};

std::uint64_t answersIn(const std::vector<ObservedRequest>& observed) {
  return static_cast<std::uint64_t>(
      std::count_if(observed.begin(), observed.end(), [](const ObservedRequest& request) {
        return request.moment == ObservedRequest::Moment::carriedOut;
      }));
}

// Whether the tables hold what the answer promised, or what a later request of the key, which had
// no answer yet, has made of it.
bool isFound(const LoamFec::FecTableInterface& fec, const ObservedRequest& answer,
             bool removeAskedSince) {
  const auto row = fec.swTable(answer.unit)->row(answer.key);
  const bool isThere = row && !row->isDeleted();
  if (isThere && row->version() > answer.version) {
    return true;
  }
  if (!answer.entry || !isThere) {
    return !isThere && (!answer.entry || removeAskedSince);
  }
  return Captures::asksTheSame(Agent::FecClient::Entry::fromLog(row->logEntry(), row->rsrcKeys()),
                               *answer.entry);
}

// Keys whose last answer does not hold: what came before it is not to be seen any more.
std::uint64_t lostAnswers(const LoamFec::FecTableInterface& fec,
                          const std::vector<ObservedRequest>& observed) {
  std::uint64_t lost = 0;
  std::set<std::pair<Asic::UnitId, std::uint32_t>> judged;
  std::set<std::pair<Asic::UnitId, std::uint32_t>> removeAsked;
  std::for_each(observed.rbegin(), observed.rend(), [&](const ObservedRequest& request) {
    const std::pair key(request.unit, request.key.fecId());
    if (request.moment == ObservedRequest::Moment::carriedOut) {
      const bool isLast = judged.insert(key).second;
      lost += isLast && !isFound(fec, request, removeAsked.contains(key)) ? 1U : 0U;
    } else if (!request.entry) {
      removeAsked.insert(key);
    }
  });
  return lost;
}

}  // namespace

KilledAgent runUntilKilled(const std::string& stateFolder, const std::vector<Asic::UnitId>& units,
                           std::uint64_t answers, const Asic::HardwareMaker& makeHardware,
                           const ChildWork& work) {
  Pipe pipe;
  Child child;
  if (child.isHere()) {
    runChild(pipe, answers, work);
  }
  pipe.closeWriting();
  KilledAgent killed = follow(pipe, stateFolder, units, makeHardware);
  if (const int status = child.wait(); !WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
    throw std::runtime_error(
        fmt::format("the agent could not be killed after {} answers: it was done after {}; give "
                    "a smaller number",
                    answers, answersIn(killed.observed)));
  }
  return killed;
}

std::unique_ptr<Agent::FecAgent> restart(const std::string& stateFolder,
                                         const std::vector<Asic::UnitId>& units,
                                         const Asic::HardwareMaker& makeHardware,
                                         KilledAgent killed, RestartReport& report) {
  const auto started = std::chrono::steady_clock::now();
  auto agent = std::make_unique<Agent::FecAgent>(
      stateFolder, units, makeHardware,
      Agent::AgentStart{.reset = false, .hardware = std::move(killed.hardware)});
  agent->loop().runUntilIdle();
  report.time = std::chrono::steady_clock::now() - started;
  const LoamFec::FecTableEntryLog& log = *agent->fec().entryLog();
  report.answered = answersIn(killed.observed);
  report.lost = lostAnswers(agent->fec(), killed.observed);
  for (const ObservedRequest& request : killed.observed) {
    report.versionAnswered = std::max(report.versionAnswered, request.version.value());
  }
  report.versionFound = log.tableVersion().value();
  report.hardware = agent->resynchronisation();
  report.hardwareEqual = true;
  for (const Asic::UnitId unit : units) {
    report.entries += log.entrys(unit);
    report.hardwareEqual = agent->hardwareEqualsTable(unit) && report.hardwareEqual;
  }
  return agent;
}

}  // namespace Replay
