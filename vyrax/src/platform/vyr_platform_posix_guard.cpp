// The guard of mapped views: a file that another process truncates while it
// is mapped raises SIGBUS on access to the lost pages, which would end the
// process. The guard's handler looks the faulting address up among the views
// of this library; for one of them it puts zero pages in place of the lost
// ones, from the faulting page to the end of the view, marks the view as
// damaged and lets the access complete. Any other SIGBUS goes on to the
// handler that was there before, or ends the process as it would have.
//
// The handler is installed with the first view, unless the environment
// variable VYR_MAPPING_GUARD is "off" (for programs that own SIGBUS
// themselves). The handler may only read the table below: the table is a
// chain of fixed blocks that are never freed, with atomic fields, so that
// reading it needs no lock.
#include <signal.h>
#include <strings.h>
#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

#include "platform/vyr_platform.h"

namespace vyr {
namespace platform {

struct GuardedView {
  std::atomic<std::uintptr_t> begin{0};  // 0: the slot is free
  std::atomic<std::uintptr_t> end{0};
  std::atomic<bool> damaged{false};
};

namespace {

constexpr int kViewsPerBlock = 256;

struct GuardBlock {
  GuardedView views[kViewsPerBlock];
  std::atomic<GuardBlock*> next{nullptr};
};

GuardBlock gFirstBlock;
std::mutex gGuardMutex;  // taken by those who add and remove views
bool gGuardDecided = false;
bool gGuardOn = false;
struct sigaction gPrevious;
// Read before the handler is installed: the handler asks nobody.
std::uintptr_t gPageSize = 4096;

// What the process would have done without the guard, for a SIGBUS that is
// not about a view of this library.
void PassOn(int signal, siginfo_t* info, void* context) {
  if ((gPrevious.sa_flags & SA_SIGINFO) != 0 && gPrevious.sa_sigaction != nullptr) {
    gPrevious.sa_sigaction(signal, info, context);
    return;
  }
  if (gPrevious.sa_handler != SIG_DFL && gPrevious.sa_handler != SIG_IGN &&
      gPrevious.sa_handler != nullptr) {
    gPrevious.sa_handler(signal);
    return;
  }
  // The default action: a fault repeats once the handler returns, a signal
  // sent by somebody is sent again; either way with the default in place.
  struct sigaction fallback;
  fallback.sa_handler = SIG_DFL;
  fallback.sa_flags = 0;
  sigemptyset(&fallback.sa_mask);
  sigaction(SIGBUS, &fallback, nullptr);
  if (info == nullptr || info->si_code <= 0) raise(SIGBUS);
}

GuardedView* ViewAt(std::uintptr_t address) {
  for (GuardBlock* block = &gFirstBlock; block != nullptr;
       block = block->next.load(std::memory_order_acquire)) {
    for (GuardedView& view : block->views) {
      const std::uintptr_t begin = view.begin.load(std::memory_order_acquire);
      if (begin != 0 && address >= begin && address < view.end.load(std::memory_order_relaxed))
        return &view;
    }
  }
  return nullptr;
}

void OnBusError(int signal, siginfo_t* info, void* context) {
  const int saved = errno;
  GuardedView* view = nullptr;
  if (info != nullptr && info->si_code > 0)
    view = ViewAt(reinterpret_cast<std::uintptr_t>(info->si_addr));
  if (view == nullptr) {
    PassOn(signal, info, context);
    errno = saved;
    return;
  }
  const std::uintptr_t from = reinterpret_cast<std::uintptr_t>(info->si_addr) & ~(gPageSize - 1);
  const std::uintptr_t end = view->end.load(std::memory_order_relaxed);
  // Zero pages cost no memory until written, and nobody writes a view. The
  // system is called directly: a handler may call nothing but the system.
  void* replaced = ::mmap(reinterpret_cast<void*>(from), end - from, PROT_READ,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
  if (replaced == MAP_FAILED) {
    PassOn(signal, info, context);
  } else {
    view->damaged.store(true, std::memory_order_release);
  }
  errno = saved;
}

bool GuardWanted() {
  const char* value = sys::Environment("VYR_MAPPING_GUARD");
  return value == nullptr || (strcasecmp(value, "off") != 0 && strcasecmp(value, "0") != 0 &&
                              strcasecmp(value, "no") != 0);
}

// Installs the handler once; the caller holds gGuardMutex.
bool GuardInstalled() {
  if (gGuardDecided) return gGuardOn;
  gGuardDecided = true;
  if (!GuardWanted()) return false;
  gPageSize = sys::PageSize();
  struct sigaction action;
  action.sa_sigaction = OnBusError;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
  sigemptyset(&action.sa_mask);
  gGuardOn = ::sigaction(SIGBUS, &action, &gPrevious) == 0;
  return gGuardOn;
}

}  // namespace

GuardedView* GuardView(void* view, std::size_t length) {
  std::lock_guard<std::mutex> guard(gGuardMutex);
  if (view == nullptr || length == 0 || !GuardInstalled()) return nullptr;
  GuardBlock* block = &gFirstBlock;
  for (;;) {
    for (GuardedView& slot : block->views) {
      if (slot.begin.load(std::memory_order_relaxed) != 0) continue;
      slot.damaged.store(false, std::memory_order_relaxed);
      slot.end.store(reinterpret_cast<std::uintptr_t>(view) + length, std::memory_order_relaxed);
      slot.begin.store(reinterpret_cast<std::uintptr_t>(view), std::memory_order_release);
      return &slot;
    }
    GuardBlock* next = block->next.load(std::memory_order_relaxed);
    if (next == nullptr) {
      // Never freed: the handler may be walking the chain at any time.
      next = new (std::nothrow) GuardBlock;
      if (next == nullptr) return nullptr;
      block->next.store(next, std::memory_order_release);
    }
    block = next;
  }
}

void ReleaseView(GuardedView* view) {
  if (view == nullptr) return;
  std::lock_guard<std::mutex> guard(gGuardMutex);
  view->begin.store(0, std::memory_order_release);
}

bool IsDamaged(GuardedView const* view) {
  return view != nullptr && view->damaged.load(std::memory_order_acquire);
}

}  // namespace platform
}  // namespace vyr
