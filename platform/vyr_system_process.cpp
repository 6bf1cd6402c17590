// The system layer on POSIX systems: modules, the environment, time, the
// process and the machine. See vyr_system.h.
#include <dlfcn.h>
#include <limits.h>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "vyr_system-priv.h"
#include "vyr_system.h"

namespace vyr {
namespace sys {
namespace {

unsigned long long Microseconds(const timeval& time) {
  return static_cast<unsigned long long>(time.tv_sec) * 1000000ull +
         static_cast<unsigned long long>(time.tv_usec);
}

}  // namespace

// --- Modules --------------------------------------------------------------------

void* LoadModule(const char* name, bool keep, std::string& why) {
  why.clear();
  if (Faulted(VYR_PlatformLoadModule)) {
    why = std::strerror(errno);
    return nullptr;
  }
  void* module = ::dlopen(name, RTLD_NOW | (keep ? RTLD_NODELETE : 0));
  if (module == nullptr) {
    const char* reason = ::dlerror();
    why = reason != nullptr ? reason : "unknown reason";
  }
  return module;
}

void* FindSymbol(void* module, const char* name) {
  if (Faulted(VYR_PlatformFindSymbol)) return nullptr;
  return ::dlsym(module, name);
}

void CloseModule(void* module) {
  if (module != nullptr) ::dlclose(module);
}

std::string ModuleFileOf(const void* address) {
  Dl_info found;
  if (::dladdr(address, &found) == 0 || found.dli_fname == nullptr) return std::string();
  return found.dli_fname;
}

// --- The process and the machine ------------------------------------------------

const char* Environment(const char* name) {
  if (Faulted(VYR_PlatformEnvironment)) return nullptr;
  return std::getenv(name);
}

bool Now(std::timespec& now) {
  now = std::timespec{};
  if (Faulted(VYR_PlatformTime)) return false;
  return ::clock_gettime(CLOCK_REALTIME, &now) == 0;
}

long long MonotonicMicroseconds() {
  std::timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000LL + now.tv_nsec / 1000;
}

bool UtcParts(long long seconds, std::tm& parts) {
  if (Faulted(VYR_PlatformTime)) return false;
  const std::time_t time = static_cast<std::time_t>(seconds);
  return ::gmtime_r(&time, &parts) != nullptr;
}

void SleepMicroseconds(unsigned long long microseconds) {
  std::timespec wait;
  wait.tv_sec = static_cast<std::time_t>(microseconds / 1000000ull);
  wait.tv_nsec = static_cast<long>(microseconds % 1000000ull) * 1000L;
  // The rest of the wait after a signal.
  Retry(-1, [&] { return ::nanosleep(&wait, &wait); });
}

int ProcessId() { return static_cast<int>(::getpid()); }

bool ProcessTimes(unsigned long long& system, unsigned long long& user) {
  system = user = 0;
  if (Faulted(VYR_PlatformProcessTimes)) return false;
  rusage usage{};
  if (::getrusage(RUSAGE_SELF, &usage) != 0) return false;
  system = Microseconds(usage.ru_stime);
  user = Microseconds(usage.ru_utime);
  return true;
}

bool HostName(std::string& name) {
  name.clear();
  if (Faulted(VYR_PlatformHostName)) return false;
  char text[HOST_NAME_MAX + 1] = {};
  if (::gethostname(text, sizeof text - 1) != 0) return false;
  name = text;
  return true;
}

bool CanonicalHostName(const std::string& host, std::string& name) {
  name.clear();
  if (Faulted(VYR_PlatformHostName)) return false;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_CANONNAME;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return false;
  if (found->ai_canonname != nullptr) name = found->ai_canonname;
  ::freeaddrinfo(found);
  return !name.empty();
}

bool VolumeOf(const char* path, VolumeStatus& volume) {
  if (Faulted(VYR_PlatformVolume)) return false;
  struct statfs info;
  if (::statfs(path, &info) != 0) return false;
  volume.magic = static_cast<unsigned long>(info.f_type) & 0xFFFFFFFFul;
  const unsigned long long unit = info.f_frsize != 0 ? info.f_frsize : info.f_bsize;
  volume.freeBytes = static_cast<unsigned long long>(info.f_bavail) * unit;
  volume.totalBytes = static_cast<unsigned long long>(info.f_blocks) * unit;
  return true;
}

}  // namespace sys
}  // namespace vyr
