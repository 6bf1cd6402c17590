// vyrtool show and convert: any stored object, in either form.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "tool.h"

namespace vyrtool {

namespace {

struct ShowOptions {
  std::string file;
  std::string to;
  std::string in, out;
};

// The process's file creation mask, for a file made with mkstemp's 0600.
mode_t Umask() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

ShowOptions& Show() {
  static ShowOptions options;
  return options;
}

int RunShow() {
  bool text = false;
  Owned object = ReadObjectFile(Show().file, &text);
  Emit(ToJson(*object), [&] { std::cout << Listing(*object); });
  return kOk;
}

int RunConvert() {
  Owned object = ReadObjectFile(Show().in);
  const std::string bytes = Show().to == "text" ? TextForm(*object) : BinaryForm(*object);
  // Written to a new file of its own beside the target (O_EXCL: never
  // through a link someone left there) and renamed over it: a failed
  // conversion leaves no half-written file.
  std::string temporary = Show().out + ".XXXXXX";
  const int fd = ::mkstemp(&temporary[0]);
  if (fd < 0) throw Failure(Show().out, std::strerror(errno));
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    done += static_cast<std::size_t>(written);
  }
  const int error = done == bytes.size() ? 0 : errno;
  ::fchmod(fd, 0644 & ~Umask());
  ::close(fd);
  if (error != 0 || std::rename(temporary.c_str(), Show().out.c_str()) != 0) {
    const int why = error != 0 ? error : errno;
    ::unlink(temporary.c_str());
    throw Failure(Show().out, std::strerror(why));
  }
  return kOk;
}

}  // namespace

void AddShow(CLI::App& app) {
  CLI::App* show = app.add_subcommand(
      "show", "A stored object (binary or text form: ticket, proxy, dictionary...) as its listing");
  show->add_option("FILE", Show().file, "The stored object")->required();
  OnRun(show, RunShow);

  CLI::App* convert = app.add_subcommand("convert", "A stored object from one form to the other");
  convert->add_option("--to", Show().to, "text or binary")
      ->required()
      ->check(CLI::IsMember({"text", "binary"}));
  convert->add_option("IN", Show().in, "The stored object")->required();
  convert->add_option("OUT", Show().out, "Where to write it")->required();
  OnRun(convert, RunConvert);
}

}  // namespace vyrtool
