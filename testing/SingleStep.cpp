// SPDX-License-Identifier: Apache-2.0

// How a state is noticed. While the work is between begin() and end(), its mappings of the folder's
// files are write-protected, so each store to them stops it with a SIGSEGV that it never hears of.
//
//   everyStore        The page is opened, the one store is stepped, the page is closed again, and
//                     its bytes are compared. In between the child runs freely up to the next store
//                     or system call.
//   everyInstruction  A page is opened at the first store to it and stays open, and from then on it
//                     is compared after each instruction that is stepped.
//
// System calls change files too: after each one the whole folder is compared. At the end the whole
// folder is compared once more, so that no store can have escaped.
//
// The child's pages are opened and closed by the child itself, as only a process can: its registers
// are set so that its next instruction is an mprotect() system call, and are set back.

#include "testing/SingleStep.h"

#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "testing/ChildProcess.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define LOAMFEC_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define LOAMFEC_SANITIZED 1
#endif
#endif

namespace testing_support {

void SteppedWork::begin() { ::raise(SIGSTOP); }
void SteppedWork::end() { ::raise(SIGSTOP); }

#if defined(__x86_64__)

// A system call instruction that both processes have at the same address.
extern "C" const char kLoamfecSystemCall[];
asm(".text\n.globl kLoamfecSystemCall\n.hidden kLoamfecSystemCall\n"
    "kLoamfecSystemCall:\n  syscall\n  int3\n");

namespace {

#if defined(LOAMFEC_SANITIZED)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

constexpr std::uint64_t kPageBytes = FolderImage::kPageBytes;
constexpr std::uint64_t kSystemCallInstruction = 0x050F;
constexpr int kSystemCallStop = SIGTRAP | 0x80;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// A piece of the child's memory that maps a piece of a file for writing.
struct Region {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::uint64_t fileOffset = 0;
  ino_t inode = 0;
};

// The child's mappings of the folder's files that it may write to.
std::vector<Region> writableRegions(pid_t child, const std::string& folder) {
  std::vector<Region> regions;
  std::ifstream maps("/proc/" + std::to_string(child) + "/maps");
  for (std::string line; std::getline(maps, line);) {
    Region region;
    std::string permissions;
    std::string device;
    std::string path;
    char dash = 0;
    std::istringstream fields(line);
    fields >> std::hex >> region.begin >> dash >> region.end >> permissions >> region.fileOffset >>
        device >> std::dec >> region.inode >> path;
    if (permissions.starts_with("rw") && permissions.ends_with('s') &&
        path.starts_with(folder + "/")) {
      regions.push_back(region);
    }
  }
  return regions;
}

class Tracer {
 public:
  using Look = std::function<bool(const SteppedState&)>;

  Tracer(pid_t child, const std::string& folder, Stepping stepping,
         const SteppedWork::Progress& progress, const Look& look)
      : child_(child), live_(folder), stepping_(stepping), progress_(progress), look_(look) {}

  // Ends a child that has not ended.
  void kill() {
    if (WIFSTOPPED(status_)) {
      ::kill(child_, SIGKILL);
      wait();
    }
  }

  // From the child's first stop to its end.
  SteppedRun run() {
    wait();
    if (!stoppedBy(SIGSTOP)) {
      return ended("the child cannot be traced");
    }
    if (::ptrace(PTRACE_SETOPTIONS, child_, 0, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD) != 0) {
      fail("PTRACE_SETOPTIONS");
    }
    for (;;) {
      resume(PTRACE_CONT);  // up to begin(), or to the end
      if (!WIFSTOPPED(status_)) {
        return ended(WIFEXITED(status_) && WEXITSTATUS(status_) == 0 ? "" : "the work failed");
      }
      if (!stoppedBy(SIGSTOP)) {
        signal_ = WSTOPSIG(status_);
        continue;
      }
      if (!region()) {
        return ended(run_.fault.empty() ? "stopped by the observer" : run_.fault);
      }
    }
  }

 private:
  // ---- one region, begin() to end()

  bool region() {
    live_.rescan();
    image_ = live_.capture();
    begunAtFirst_ = progress_.begun;
    watched_.clear();
    protectMappings();
    inSystemCall_ = false;
    do {
      if (!(stepping_ == Stepping::everyInstruction ? stepOne() : runToStore())) {
        return false;
      }
      if (!WIFSTOPPED(status_)) {
        run_.fault = "the work ended within its stepped region";
        return false;
      }
    } while (!stoppedBy(SIGSTOP));
    for (const Region& region : regions_) {
      protect(region.begin, region.end - region.begin, PROT_READ | PROT_WRITE);
    }
    regions_.clear();
    live_.rescan();
    if (!live_.equals(image_)) {
      run_.fault = "the files changed by other means than a store or a system call";
      return false;
    }
    return stateEnds();
  }

  bool stepOne() {
    const bool systemCall =
        (peekText(peekUser(offsetof(user_regs_struct, rip))) & 0xFFFFU) == kSystemCallInstruction;
    const std::uint64_t number = systemCall ? peekUser(offsetof(user_regs_struct, rax)) : 0;
    resume(PTRACE_SINGLESTEP);
    if (stoppedBy(SIGTRAP)) {
      ++run_.instructions;
      return systemCall ? afterSystemCall(number) : compareWatched();
    }
    if (const std::uint64_t page = faultingPage(); page != 0) {
      protect(page, kPageBytes, PROT_READ | PROT_WRITE);
      watch(page);
    } else if (WIFSTOPPED(status_) && !stoppedBy(SIGSTOP)) {
      signal_ = WSTOPSIG(status_);
    }
    return true;
  }

  bool runToStore() {
    resume(PTRACE_SYSCALL);
    if (stoppedBy(kSystemCallStop)) {
      inSystemCall_ = !inSystemCall_;
      return inSystemCall_ || afterSystemCall(peekUser(offsetof(user_regs_struct, orig_rax)));
    }
    if (faultingPage() != 0) {
      return stepStore();
    }
    if (WIFSTOPPED(status_) && !stoppedBy(SIGSTOP)) {
      signal_ = WSTOPSIG(status_);
    }
    return true;
  }

  // The store that has just been refused; it may reach over two pages.
  bool stepStore() {
    watched_.clear();
    std::vector<std::uint64_t> opened;
    while (const std::uint64_t page = faultingPage()) {
      protect(page, kPageBytes, PROT_READ | PROT_WRITE);
      opened.push_back(page);
      watch(page);
      resume(PTRACE_SINGLESTEP);
    }
    if (!stoppedBy(SIGTRAP)) {
      run_.fault = "a store to a table was not carried out";
      return false;
    }
    for (const std::uint64_t page : opened) {
      protect(page, kPageBytes, PROT_READ);
    }
    return compareWatched();
  }

  bool afterSystemCall(std::uint64_t number) {
    if (number == SYS_mmap || number == SYS_mremap || number == SYS_mprotect) {
      protectMappings();
    }
    live_.rescan();
    if (live_.equals(image_)) {
      return true;
    }
    if (!stateEnds()) {
      return false;
    }
    image_ = live_.capture();
    for (Watched& page : watched_) {
      relink(page);
    }
    return true;
  }

  // ---- states

  bool compareWatched() {
    bool changed = false;
    for (const Watched& page : watched_) {
      changed = changed || (page.live != nullptr &&
                            std::memcmp(page.live, page.copy->data(), kPageBytes) != 0);
    }
    if (!changed) {
      return true;
    }
    if (!stateEnds()) {
      return false;
    }
    for (const Watched& page : watched_) {
      if (page.live != nullptr) {
        std::memcpy(page.copy->data(), page.live, kPageBytes);
      }
    }
    return true;
  }

  // The image is what it has been since the last call, and is about to change.
  bool stateEnds() {
    const SteppedState state{run_.states++, progress_.acknowledged, begunAtFirst_, image_};
    begunAtFirst_ = progress_.begun;
    return look_(state);
  }

  struct Watched {
    ino_t inode = 0;
    std::uint64_t number = 0;
    const std::byte* live = nullptr;
    FolderImage::Page* copy = nullptr;
  };

  void watch(std::uint64_t page) {
    for (const Region& region : regions_) {
      if (page >= region.begin && page < region.end) {
        Watched watched{region.inode, (page - region.begin + region.fileOffset) / kPageBytes};
        relink(watched);
        watched_.push_back(watched);
        return;
      }
    }
  }

  void relink(Watched& page) {
    page.live = live_.page(page.inode, page.number);
    page.copy = nullptr;
    for (auto& [name, file] : image_.files()) {
      if (file.inode == page.inode) {
        page.copy = &file.page(page.number);
      }
    }
    if (page.copy == nullptr) {
      page.live = nullptr;  // the file has lost its name
    }
  }

  // ---- the child

  void protectMappings() {
    for (const Region& region : writableRegions(child_, live_.path())) {
      protect(region.begin, region.end - region.begin, PROT_READ);
      regions_.push_back(region);
    }
  }

  void protect(std::uint64_t begin, std::uint64_t bytes, int protection) {
    user_regs_struct held{};
    getRegisters(held);
    user_regs_struct call = held;
    call.rip = reinterpret_cast<std::uint64_t>(&kLoamfecSystemCall);
    call.rax = SYS_mprotect;
    call.orig_rax = ~0ULL;  // no system call is to be begun again
    call.rdi = begin;
    call.rsi = bytes;
    call.rdx = static_cast<unsigned>(protection);
    setRegisters(call);
    const int status = status_;
    resume(PTRACE_SINGLESTEP);
    if (!stoppedBy(SIGTRAP)) {
      throw std::runtime_error("the child could not be made to protect its pages");
    }
    getRegisters(call);
    if (call.rax != 0) {
      throw std::runtime_error("mprotect failed in the child");
    }
    setRegisters(held);
    status_ = status;
  }

  void getRegisters(user_regs_struct& registers) const {
    if (::ptrace(PTRACE_GETREGS, child_, 0, &registers) != 0) {
      fail("PTRACE_GETREGS");
    }
  }
  void setRegisters(user_regs_struct& registers) const {
    if (::ptrace(PTRACE_SETREGS, child_, 0, &registers) != 0) {
      fail("PTRACE_SETREGS");
    }
  }
  std::uint64_t peekUser(std::size_t offset) const {
    return static_cast<std::uint64_t>(::ptrace(PTRACE_PEEKUSER, child_, offset, 0));
  }
  std::uint64_t peekText(std::uint64_t address) const {
    return static_cast<std::uint64_t>(::ptrace(PTRACE_PEEKTEXT, child_, address, 0));
  }

  // The protected page at which the child has just faulted; 0 if that is not what it did.
  std::uint64_t faultingPage() const {
    siginfo_t info{};
    if (!stoppedBy(SIGSEGV) || ::ptrace(PTRACE_GETSIGINFO, child_, 0, &info) != 0) {
      return 0;
    }
    const auto address = reinterpret_cast<std::uint64_t>(info.si_addr);
    for (const Region& region : regions_) {
      if (address >= region.begin && address < region.end) {
        return address / kPageBytes * kPageBytes;
      }
    }
    return 0;
  }

  template <typename Request>
  void resume(Request request) {
    if (::ptrace(request, child_, 0, signal_) != 0) {
      fail("ptrace");
    }
    signal_ = 0;
    wait();
  }

  void wait() {
    if (waitForChild(child_, &status_) != child_) {
      fail("waitpid");
    }
  }

  bool stoppedBy(int signal) const { return WIFSTOPPED(status_) && WSTOPSIG(status_) == signal; }

  SteppedRun ended(const std::string& fault) {
    run_.fault = fault;
    if (WIFSTOPPED(status_)) {
      kill();
    } else if (const Ending ending = Ending::ofStatus(status_); ending != Ending::exited(0)) {
      std::ostringstream how;
      how << ", " << ending;
      run_.fault += how.str();
    }
    return run_;
  }

  pid_t child_;
  LiveFolder live_;
  Stepping stepping_;
  const SteppedWork::Progress& progress_;
  const Look& look_;

  int status_ = 0;
  int signal_ = 0;  // to be delivered with the next resumption
  bool inSystemCall_ = false;
  std::vector<Region> regions_;
  std::vector<Watched> watched_;
  FolderImage image_;
  std::uint64_t begunAtFirst_ = 0;
  SteppedRun run_;
};

// The child's side: stops once so that its tracer can set it up, and then works.
int workTraced(SteppedWork::Progress& progress, const std::function<int(SteppedWork&)>& work) {
  if (::ptrace(PTRACE_TRACEME, 0, 0, 0) != 0) {
    return kUncaught;
  }
  ::raise(SIGSTOP);
  SteppedWork stepped(progress);
  return work(stepped);
}

bool canTrace() {
  ForkedChild child([] { return ::ptrace(PTRACE_TRACEME, 0, 0, 0) == 0 ? 0 : 1; });
  return child.wait() == Ending::exited(0);
}

}  // namespace

std::string whyNoStepping() {
  if (kSanitized) {
    return "a sanitizer's run time does not work in a traced process";
  }
  return canTrace() ? "" : "this process may not trace its children (ptrace)";
}

SteppedRun stepThrough(const std::string& folder, Stepping stepping,
                       const std::function<int(SteppedWork&)>& work,
                       const std::function<bool(const SteppedState&)>& look) {
  const Shared<SteppedWork::Progress> progress;
  const pid_t child = forkChild([&] { return workTraced(*progress, work); });
  Tracer tracer(child, folder, stepping, *progress, look);
  try {
    return tracer.run();
  } catch (...) {
    tracer.kill();
    throw;
  }
}

#else

std::string whyNoStepping() { return "stepping is written for x86-64 processors"; }

SteppedRun stepThrough(const std::string& /*folder*/, Stepping /*stepping*/,
                       const std::function<int(SteppedWork&)>& /*work*/,
                       const std::function<bool(const SteppedState&)>& /*look*/) {
  return {.instructions = 0, .states = 0, .fault = whyNoStepping()};
}

#endif

}  // namespace testing_support
