// vyrtool show and convert: any stored object, in either form.
#include <fstream>
#include <iostream>

#include "tool.h"

namespace vyrtool {

namespace {

struct ShowOptions {
  std::string file;
  std::string to;
  std::string in, out;
};

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
  // Written beside the target and renamed over it: a failed conversion
  // leaves no half-written file.
  const std::string temporary = Show().out + ".vyrtool-part";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
      std::remove(temporary.c_str());
      throw Failure(Show().out, "cannot be written");
    }
  }
  if (std::rename(temporary.c_str(), Show().out.c_str()) != 0) {
    std::remove(temporary.c_str());
    throw Failure(Show().out, std::strerror(errno));
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
