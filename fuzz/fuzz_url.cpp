// URL parsing over arbitrary bytes. Every input gives a URL; the text written
// from it must read back to the same URL, and resolution, parameters, local
// paths and both stored forms must work on whatever came out.
//
// The input is split at its first line feed: the part before it is parsed as
// a URL, the part behind it (or the whole input) as a reference against it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "qen/qen_containers.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"
#include "qen/qen_url.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

// The URL read back from its own text is the same URL, and writes the same.
void CheckRewrite(const QEN_TURL& url) {
  QEN_TString text = url.AsString();
  QEN_TURL again(text);
  Check(again == url);
  Check(again.AsString() == text);
}

void CheckParams(const QEN_TURL& url) {
  QEN_TDict dict = url.ParamDict();
  Check(dict.Entries() == url.ParamCount());
  QEN_TURL copy(url);
  copy.SetParamDict(dict);
  Check(copy == url);
  for (QEN_TConstIterator it(dict); !it.IsDone(); it++) {
    const auto* key = static_cast<const QEN_TString*>(it.Key().DynamicCast("QEN_TString"));
    Check(key != nullptr);
    QEN_TString value;
    Check(url.GetParam(*key, value));
    Check(value == url.Param(*key));
  }
  QEN_TURL requeried(url);
  requeried.SetQuery(url.Query());
  Check(requeried == url);
}

void CheckStoredForms(const QEN_TURL& url) {
  QEN_TMemoryStream bytes;
  QEN_TDataStream out(bytes);
  url.QEN_Pack(out);
  out.Flush();
  QEN_TMemoryStream bytesIn(bytes.Data(), bytes.Length(), bytes.Length());
  QEN_TDataStream in(bytesIn);
  QEN_TURL unpacked;
  unpacked.QEN_Unpack(in);
  Check(unpacked == url);

  QEN_TMemoryStream text;
  {
    QEN_THumanReadableStream writer(text);
    writer << url;
  }
  QEN_TMemoryStream textIn(text.Data(), text.Length(), text.Length());
  QEN_THumanReadableStream reader(textIn);
  QEN_TURL read;
  reader >> read;
  Check(read == url);
}

void Exercise(const QEN_TURL& url, const QEN_TString& reference) {
  CheckRewrite(url);
  CheckParams(url);
  CheckStoredForms(url);

  std::ostringstream printed;
  url.PrintOn(printed);

  CheckRewrite(QEN_TURL(url, reference));
  CheckRewrite(QEN_TURL(url, url.AsString()));
  QEN_TURL folder = url.Folder();
  CheckRewrite(folder);
  CheckRewrite(QEN_TURL(folder, reference));

  QEN_TURL local = QEN_TURL::LocalToURL(url.LocalPath());
  CheckRewrite(local);
  QEN_TURL renamed(url);
  renamed.SetFileName("." + url.FileName() + ".info");
  renamed.SetPathName(url.PathName() + "/.metadata");
  CheckRewrite(renamed);

  QEN_TURL parts(url.Protocol(), url.Host(), url.PathString(), url.Query(), url.Port(), url.User(),
                 url.Password());
  Check(parts.LocalPath() == url.LocalPath());
  Check(parts.Query() == url.Query());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool started = __QEN_INITIALIZATION_FUNCTION_qentypes__();
  Check(started);

  std::string input(reinterpret_cast<const char*>(data), size);
  std::string::size_type newline = input.find('\n');
  QEN_TString first(input.substr(0, newline));
  QEN_TString reference(newline == std::string::npos ? input : input.substr(newline + 1));

  try {
    Exercise(QEN_TURL(first), reference);
    (void)QEN_TURL::HexDecode(reference);
    (void)QEN_TURL::HexEncode(reference);
  } catch (const QEN_EException&) {
    // None of this should throw: parsing takes any text.
    std::abort();
  }
  return 0;
}
