// Stored objects for the tool: read in either form, written in either form,
// listed, and turned into JSON.
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

#include "tool.h"

namespace vyrtool {

namespace {

// Stored objects are descriptions, not images: a file larger than this is
// not one, and is not read into memory.
constexpr std::size_t kMaxObjectFile = 256u << 20;

std::string ReadWhole(const std::string& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) throw Failure(path, std::strerror(errno));
  if (!S_ISREG(info.st_mode)) throw Failure(path, "not a regular file");
  if (static_cast<unsigned long long>(info.st_size) > kMaxObjectFile)
    throw Failure(path, "too large for a stored object");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure(path, "cannot be opened");
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The binary form starts with its version mark, or (written before the
// mark) with the object marker and the length of a class name that is
// registered here; anything else is taken as text.
bool LooksBinary(const std::string& bytes) {
  if (bytes.size() >= 2 && bytes[0] == '\xB5' && bytes[1] == '\x02') return true;
  if (bytes.size() < 3 || bytes[0] != 'O') return false;
  const std::size_t length = static_cast<unsigned char>(bytes[1]);
  if (length == 0 || bytes.size() < 2 + length) return false;
  return QEN_TClass::Find(bytes.substr(2, length).c_str()) != nullptr;
}

Owned ExtractBinary(const std::string& bytes, const std::string& path) {
  std::string copy = bytes;
  QEN_TMemoryStream memory(&copy[0], static_cast<unsigned>(copy.size()),
                           static_cast<unsigned>(copy.size()));
  QEN_TDataStream in(memory);
  Owned object(in.Extract(true));
  if (memory.Available() != 0)
    throw Failure(path, std::to_string(memory.Available()) + " bytes behind the object");
  return object;
}

Owned ExtractText(const std::string& text, const std::string& path) {
  std::string copy = text;
  QEN_TMemoryStream memory(&copy[0], static_cast<unsigned>(copy.size()),
                           static_cast<unsigned>(copy.size()));
  QEN_THumanReadableStream in(memory);
  Owned object(in.Extract());
  in.SkipWhiteSpace();
  if (!in.AtEnd()) throw Failure(path, "text behind the object");
  return object;
}

nlohmann::json Number(double value) {
  // JSON has no infinities or NaN.
  if (std::isfinite(value)) return value;
  return std::isnan(value) ? "nan" : (value > 0 ? "inf" : "-inf");
}

}  // namespace

Owned ReadObjectFile(const std::string& path, bool* text) {
  const std::string bytes = ReadWhole(path);
  const bool binary = LooksBinary(bytes);
  if (text != nullptr) *text = !binary;
  try {
    return binary ? ExtractBinary(bytes, path) : ExtractText(bytes, path);
  } catch (const QEN_EException& e) {
    throw Failure(path, Describe(e));
  }
}

bool LooksLikeObjectText(const std::string& text) {
  std::size_t at = text.find_first_not_of(" \t\r\n");
  if (at == std::string::npos || !std::isupper(static_cast<unsigned char>(text[at]))) return false;
  const std::size_t end =
      text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_", at);
  if (end == std::string::npos) return false;
  const std::size_t brace = text.find_first_not_of(" \t\r\n", end);
  return brace != std::string::npos && text[brace] == '{' &&
         QEN_TClass::Find(text.substr(at, end - at).c_str()) != nullptr;
}

Owned ParseObjectText(const std::string& text) {
  try {
    return ExtractText(text, "");
  } catch (const QEN_EException& e) {
    throw Failure("the object text", Describe(e));
  }
}

std::string TextForm(const QEN_IInterface& object) {
  const auto* readable = object.DynamicCast<QEN_IHumanReadable>();
  if (readable == nullptr) throw Failure(object.ClassName(), "has no text form");
  QEN_TMemoryStream memory;
  QEN_THumanReadableStream out(memory);
  out.WriteObject(*readable);
  std::string text(reinterpret_cast<const char*>(memory.Data()), memory.Length());
  if (text.empty() || text.back() != '\n') text += '\n';
  return text;
}

std::string BinaryForm(const QEN_IInterface& object) {
  const auto* packable = object.DynamicCast<QEN_IPackable>();
  if (packable == nullptr) throw Failure(object.ClassName(), "has no binary form");
  QEN_TMemoryStream memory;
  QEN_TDataStream out(memory);
  out << *packable;
  out.Flush();
  return std::string(reinterpret_cast<const char*>(memory.Data()), memory.Length());
}

std::string Listing(const QEN_IInterface& object) {
  if (const auto* printable = object.DynamicCast<QEN_IPrintable>()) {
    std::ostringstream out;
    printable->PrintOn(out);
    std::string text = out.str();
    if (text.empty() || text.back() != '\n') text += '\n';
    return text;
  }
  return TextForm(object);
}

nlohmann::json ToJson(const QEN_TAny& value) {
  switch (value.GetKind()) {
    case QEN_TAny::kNothing:
      return nullptr;
    case QEN_TAny::kBool:
      return value.AsBool();
    case QEN_TAny::kUInt8:
    case QEN_TAny::kUInt16:
    case QEN_TAny::kUInt32:
    case QEN_TAny::kUInt64:
      return value.AsUInt64();
    case QEN_TAny::kInt32:
    case QEN_TAny::kInt64:
      return value.AsInt64();
    case QEN_TAny::kDouble:
      return Number(value.AsDouble());
    case QEN_TAny::kObject:
      return ToJson(*value.Object());
    default:
      return "<pointer>";
  }
}

nlohmann::json ToJson(const QEN_IInterface& object) {
  if (const auto* text = object.DynamicCast<QEN_TString>()) return Utf8(*text);
  if (const auto* url = object.DynamicCast<QEN_TURL>()) return Utf8(url->AsString());
  if (const auto* time = object.DynamicCast<QEN_TTime>()) return Utf8(time->AsString());
  if (const auto* block = object.DynamicCast<QEN_TDataBlock>())
    return {{"hex", Hex(block->Data(), block->Size())}};
  if (const auto* any = object.DynamicCast<QEN_TAny>()) return ToJson(*any);
  if (const auto* ticket = object.DynamicCast<VYR_TImageTicket>()) {
    VYR_TImageTicket copy(*ticket);
    return ToJson(static_cast<QEN_TDict>(copy));
  }
  if (const auto* proxy = object.DynamicCast<VYR_TImageProxy>()) {
    nlohmann::json tickets = nlohmann::json::array();
    for (QEN_TConstIterator at(proxy->Tickets()); !at.IsDone(); ++at)
      tickets.push_back(ToJson(at.Value()));
    nlohmann::json record = {{"file", Utf8(proxy->File().AsString())}, {"tickets", tickets}};
    try {
      record["selected"] = proxy->IndexOfSelected();
    } catch (const QEN_EException&) {
      record["selected"] = nullptr;
    }
    return record;
  }
  const bool keyed =
      object.DynamicCast<QEN_TDict>() != nullptr || object.DynamicCast<QEN_TTree>() != nullptr;
  if (const auto* container = object.DynamicCast<QEN_IIteratable>()) {
    nlohmann::json out = keyed ? nlohmann::json::object() : nlohmann::json::array();
    for (QEN_TConstIterator at(*container); !at.IsDone(); ++at) {
      if (keyed) {
        const auto* key = at.Key().DynamicCast<QEN_TString>();
        out[key != nullptr ? Utf8(*key) : std::string(at.Key().ClassName())] = ToJson(at.Value());
      } else {
        out.push_back(ToJson(at.Value()));
      }
    }
    return out;
  }
  // Anything else: its class and its text form or listing.
  std::string text =
      object.DynamicCast<QEN_IHumanReadable>() != nullptr ? TextForm(object) : Listing(object);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return {{"class", object.ClassName()}, {"text", text}};
}

}  // namespace vyrtool
