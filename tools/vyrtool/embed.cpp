// vyrtool embed and cat: ranges of files as "embed" URLs, and the bytes of a
// file or range on standard output.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "tool.h"

namespace vyrtool {

namespace {

struct EmbedOptions {
  std::string file, url;
  unsigned long long offset = 0;
  unsigned length = 0;
};

EmbedOptions& Embed() {
  static EmbedOptions options;
  return options;
}

int Make() {
  const unsigned long long offset = Embed().offset;
  const QEN_TURL url =
      VYR_EmbeddedFile(FileUrl(Embed().file), Embed().length, static_cast<unsigned>(offset),
                       static_cast<unsigned>(offset >> 32), 0, 0);
  const std::string text = Utf8(url.AsString());
  Emit({{"url", text}}, [&] { std::cout << text << '\n'; });
  return kOk;
}

int Info() {
  const QEN_TURL url = AnyUrl(Embed().url);
  const VYR_TTag tag = VYR_Embedded2Tag(url);
  const unsigned long long position =
      (static_cast<unsigned long long>(tag.PositionHigh()) << 32) | tag.Position();
  nlohmann::json record = {{"container", Utf8(VYR_Embedded2Original(url).LocalPath())},
                           {"offset", position},
                           {"length", tag.Size()}};
  double v = 0, h = 0;
  if (VYR_Embedded2Size(url, v, h)) record["real_size"] = {v, h};
  Emit(record, [&] {
    std::cout << "container\t" << record["container"].get<std::string>() << "\noffset\t" << position
              << "\nlength\t" << tag.Size() << " (0: to the end of the file)\n";
    if (record.contains("real_size")) std::cout << "real size\t" << v << " x " << h << '\n';
  });
  return kOk;
}

// The bytes go straight from the mapping to standard output.
int Cat() {
  std::unique_ptr<const VYR_IBuffer> buffer(VYR_IBuffer::Create(AnyUrl(Embed().url), 0, 0, 0));
  const auto* at = static_cast<const char*>(buffer->Buffer());
  std::size_t left = buffer->Size();
  while (left > 0) {
    const ssize_t written = ::write(1, at, left < (1u << 20) ? left : (1u << 20));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) throw Failure("standard output", std::strerror(errno));
    at += written;
    left -= static_cast<std::size_t>(written);
  }
  return kOk;
}

}  // namespace

void AddEmbed(CLI::App& app) {
  CLI::App* embed = Group(app, "embed", "Ranges of files as \"embed\" URLs");
  CLI::App* make = Command(*embed, "make", "The URL of LENGTH bytes at OFFSET in FILE", Make);
  make->add_option("FILE", Embed().file, "The container")->required();
  make->add_option("OFFSET", Embed().offset, "Where the range starts")->required();
  make->add_option("LENGTH", Embed().length, "Its length (0: to the end)")->required();
  Command(*embed, "info", "The container and range of an \"embed\" URL", Info)
      ->add_option("URL", Embed().url, "The URL")
      ->required();
  Command(app, "cat", "The bytes of a file or an \"embed\" URL's range", Cat)
      ->add_option("URL", Embed().url, "A URL or a path")
      ->required();
}

}  // namespace vyrtool
