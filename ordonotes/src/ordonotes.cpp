#include "ordonotes/ordonotes.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <string>

namespace {

// A runaway format (a whole dictionary printed into a trace) is cut here
// rather than allocating without bound.
constexpr size_t kMaxText = 1u << 20;
const char kCutMark[] = " [cut]";

struct LogState {
  std::mutex mutex;
  int fd = STDERR_FILENO;  // -1 when the log is off
  QENMESG_Sink sink = nullptr;
  void* context = nullptr;
};

// Set while this thread runs the sink, which is called under the lock: a
// message the sink logs must not take the lock again.
thread_local bool tInSink = false;

void WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return;  // nowhere left to report a failing log
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
}

void ChooseDestination(LogState& state) {
  const char* name = ::getenv("QENMESG_LOG");
  if (name == nullptr || *name == '\0') return;
  if (::strcasecmp(name, "off") == 0) {
    state.fd = -1;
    return;
  }
  int fd = ::open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd >= 0) {
    state.fd = fd;
    return;
  }
  std::string note = "log: cannot open QENMESG_LOG file \"";
  note += name;
  note += "\": ";
  note += ::strerror(errno);
  note += "; logging to standard error\n";
  WriteAll(STDERR_FILENO, note.data(), note.size());
}

// Made on first use and never destroyed, so that messages from static
// destructors of other libraries still find a working lock.
LogState& State() {
  static LogState* const state = [] {
    auto* s = new LogState;
    ChooseDestination(*s);
    return s;
  }();
  return *state;
}

void Emit(const char* prefix, const char* text, size_t size) {
  while (size > 0 && (text[size - 1] == '\n' || text[size - 1] == '\r')) --size;
  LogState& state = State();
  try {
    std::string line;
    line.reserve(::strlen(prefix) + size + 1);
    line += prefix;
    line.append(text, size);

    if (tInSink) {
      if (state.fd < 0) return;
      line += '\n';
      WriteAll(state.fd, line.data(), line.size());
      return;
    }

    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.sink != nullptr) {
      struct InSink {
        InSink() { tInSink = true; }
        ~InSink() { tInSink = false; }
      } inSink;
      state.sink(line.c_str(), state.context);
      return;
    }
    if (state.fd < 0) return;
    line += '\n';
    WriteAll(state.fd, line.data(), line.size());
  } catch (...) {
    // Out of memory, or a sink that threw: a log call never fails its caller.
  }
}

std::string FormatText(const char* format, va_list args) {
  char small[512];
  va_list copy;
  va_copy(copy, args);
  int needed = ::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (needed < 0) return std::string("(unprintable format) ") + format;
  if (static_cast<size_t>(needed) < sizeof small) return std::string(small, needed);

  size_t size = std::min(static_cast<size_t>(needed), kMaxText);
  std::string text(size, '\0');
  ::vsnprintf(&text[0], size + 1, format, args);
  if (static_cast<size_t>(needed) > size) text += kCutMark;
  return text;
}

}  // namespace

extern "C" {

bool QENMESG_CheckTrace(unsigned flags, unsigned mask) { return (flags & mask) != 0; }

void QENMESG_Trace(unsigned flags, unsigned mask, const char* format, ...) {
  if ((flags & mask) == 0 || format == nullptr) return;
  std::string text;
  try {
    va_list args;
    va_start(args, format);
    text = FormatText(format, args);
    va_end(args);
  } catch (...) {
    return;
  }
  Emit("trace: ", text.data(), text.size());
}

void QENMESG_Log(const char* text) {
  if (text == nullptr) text = "";
  size_t size = ::strnlen(text, kMaxText);
  Emit("log: ", text, size);
}

void QENMESG_AddMessageFF(unsigned, const char* text, double total, double user) {
  if (text == nullptr) text = "";
  size_t size = ::strnlen(text, kMaxText);
  while (size > 0 && (text[size - 1] == '\n' || text[size - 1] == '\r')) --size;
  try {
    char numbers[128];
    int n = ::snprintf(numbers, sizeof numbers, ": %.3f s total, %.3f s user", total, user);
    std::string line(text, size);
    size_t written = std::min(static_cast<size_t>(std::max(n, 0)), sizeof numbers - 1);
    line.append(numbers, written);
    Emit("time: ", line.data(), line.size());
  } catch (...) {
  }
}

void QENMESG_SetSink(QENMESG_Sink sink, void* context) {
  LogState& state = State();
  // A sink that replaces itself runs on this thread under the lock already.
  std::unique_lock<std::mutex> lock(state.mutex, std::defer_lock);
  if (!tInSink) lock.lock();
  state.sink = sink;
  state.context = sink != nullptr ? context : nullptr;
}

}  // extern "C"
