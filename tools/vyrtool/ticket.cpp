// vyrtool ticket: whether a stored ticket can still be trusted and its files
// used now, with the reason, and the files it needs.
#include <iostream>

#include "tool.h"

namespace vyrtool {

namespace {

std::string gTicketFile;
constexpr unsigned kTicketVersion = 11014;

const VYR_TImageTicket& AsTicket(const Owned& object, const std::string& path) {
  if (const auto* ticket = object->DynamicCast<VYR_TImageTicket>()) return *ticket;
  if (const auto* proxy = object->DynamicCast<VYR_TImageProxy>()) {
    try {
      return proxy->Selected();
    } catch (const QEN_EException& e) {
      throw Failure(path, "a proxy with no ticket selected");
    }
  }
  throw Failure(path, std::string("holds a ") + object->ClassName() + ", not a ticket");
}

// The validity check told step by step, so that a "no" says why.
std::string WhyNotValid(const VYR_TImageTicket& ticket) {
  const QEN_TAny& version = ticket.Internal(QEN_TString("version"));
  if (version.IsNothing()) return "the ticket has no version";
  if (!version.IsNumber() || version.AsDouble() != kTicketVersion)
    return "the ticket's version is " + ToJson(version).dump() + ", this library's is " +
           std::to_string(kTicketVersion);
  if (ticket.File().LocalPath().Empty()) return "";
  const QEN_TFileInfo info = VYR_GetFileInfo(ticket.File());
  if (info.ModificationTime() != ticket.FileTimeStamp())
    return "the file's time stamp is " + Utf8(info.ModificationTime().AsString()) +
           ", the ticket recorded " + Utf8(ticket.FileTimeStamp().AsString());
  return "";
}

std::string WhyNotReady(const VYR_TImageTicket& ticket, bool listed) {
  const QEN_TFileInfo info(VYR_Embedded2Original(ticket.File()), false);
  if (!info.Exists()) return "the file is not there";
  if (!listed) return "the ticket's other files cannot be listed";
  return "the file, or a file it needs, is held open by another process (a copy in progress?)";
}

int RunCheck() {
  const Owned object = ReadObjectFile(gTicketFile);
  const VYR_TImageTicket& ticket = AsTicket(object, gTicketFile);
  nlohmann::json record = {{"ticket", gTicketFile}, {"file", Utf8(ticket.File().AsString())}};

  std::string invalid;
  try {
    invalid = ticket.IsTicketValid() ? "" : WhyNotValid(ticket);
    if (!ticket.IsTicketValid() && invalid.empty()) invalid = "the ticket is not valid";
  } catch (const QEN_EException& e) {
    invalid = Describe(e);
  }
  record["valid"] = invalid.empty();
  if (!invalid.empty()) record["why_not_valid"] = invalid;

  QEN_TList needed;
  bool listed = false;
  try {
    listed = ticket.Dependencies(needed, true, false);
  } catch (const QEN_EException& e) {
    record["dependencies_error"] = Describe(e);
  }
  nlohmann::json dependencies = nlohmann::json::array();
  for (QEN_TConstIterator at(needed); !at.IsDone(); ++at)
    dependencies.push_back(ToJson(at.Value()));
  record["dependencies"] = dependencies;

  const bool ready = ticket.IsImageReady();
  record["ready"] = ready;
  if (!ready) record["why_not_ready"] = WhyNotReady(ticket, listed);

  Emit(record, [&] {
    std::cout << "valid\t" << (invalid.empty() ? "yes" : "no: " + invalid) << '\n'
              << "ready\t" << (ready ? "yes" : "no: " + record["why_not_ready"].get<std::string>())
              << '\n';
    for (const auto& needs : dependencies)
      std::cout << "needs\t" << (needs.is_string() ? needs.get<std::string>() : needs.dump())
                << '\n';
  });
  return invalid.empty() && ready ? kOk : kNo;
}

}  // namespace

void AddTicket(CLI::App& app) {
  CLI::App* ticket = Group(app, "ticket", "Stored image tickets");
  CLI::App* check = ticket->add_subcommand(
      "check",
      "Whether the ticket is still valid and its files ready, with the reason, and the "
      "files it needs (exit 1 for a \"no\")");
  check->add_option("FILE", gTicketFile, "A stored ticket (or proxy), binary or text form")
      ->required();
  OnRun(check, RunCheck);
}

}  // namespace vyrtool
