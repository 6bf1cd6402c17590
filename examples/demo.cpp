// The road of a tag through the library: start it, build a tag, pack it,
// rebuild it by class name, write it as text and read it back.
#include "demo.h"

#include <unistd.h>
#include <vyrax/vyrax.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace demo {

std::string Hex(const unsigned char* data, unsigned size) {
  std::string text;
  char byte[4];
  for (unsigned i = 0; i < size; ++i) {
    std::snprintf(byte, sizeof byte, "%02x", data[i]);
    if (i > 0) text += ' ';
    text += byte;
  }
  return text;
}

bool Fail(const char* what) {
  std::printf("FAILED: %s\n", what);
  return false;
}

std::unique_ptr<QEN_IInterface> PackedAndRebuilt(const QEN_IPackable& value, unsigned& length) {
  QEN_TMemoryStream packed;
  QEN_TDataStream writer(packed);
  writer << value;
  writer.Flush();
  length = packed.Length();
  QEN_TMemoryStream source(packed.Data(), packed.Length(), packed.Length());
  QEN_TDataStream reader(source);
  return std::unique_ptr<QEN_IInterface>(reader.Extract(true));
}

ScratchFolder::ScratchFolder(const char* prefix, const char* fileName) {
  std::string folder = std::string("/tmp/") + prefix + "-XXXXXX";
  if (mkdtemp(&folder[0]) == nullptr) return;
  mFolder = folder;
  mPath = mFolder + "/" + fileName;
}

ScratchFolder::~ScratchFolder() {
  if (!mPath.empty()) std::remove(mPath.c_str());
  if (!mFolder.empty()) rmdir(mFolder.c_str());
}

bool TagRoad() {
  std::printf("== tag ==\n");
  VYR_TTag tag(16ULL, 32ULL);
  std::printf("built tag: position %u, size %u\n", tag.Position(), tag.Size());

  QEN_TMemoryStream packed;
  QEN_TDataStream writer(packed);
  writer << tag;
  writer.Flush();
  std::printf("packed %u bytes: %s\n", packed.Length(),
              Hex(packed.Data(), packed.Length()).c_str());

  QEN_TMemoryStream source(packed.Data(), packed.Length(), packed.Length());
  QEN_TDataStream reader(source);
  std::unique_ptr<QEN_IInterface> rebuilt(reader.Extract(true));
  const VYR_TTag* copy = rebuilt ? rebuilt->DynamicCast<VYR_TTag>() : nullptr;
  if (copy == nullptr) return Fail("the packed bytes did not rebuild a VYR_TTag");
  std::printf("rebuilt %s: %s\n", rebuilt->ClassName(),
              copy->QEN_IsIdent(tag) ? "equal" : "different");
  if (!copy->QEN_IsIdent(tag)) return Fail("rebuilt tag differs");

  QEN_TMemoryStream text;
  QEN_THumanReadableStream textWriter(text);
  tag.WriteTo(textWriter);
  std::string line(reinterpret_cast<const char*>(text.Data()), text.Length());
  std::printf("text: %s\n", line.c_str());

  QEN_TMemoryStream textSource(text.Data(), text.Length(), text.Length());
  QEN_THumanReadableStream textReader(textSource);
  VYR_TTag readBack;
  readBack.ReadFrom(textReader);
  std::printf("read back: %s\n", readBack == tag ? "equal" : "different");
  return readBack == tag || Fail("tag read from text differs");
}

}  // namespace demo

// With a folder argument the demo leaves two files there for vyrtool.
int main(int argc, char** argv) {
  bool started = __QEN_INITIALIZATION_FUNCTION_VYRAX__();
  std::printf("start-up: %s\n", started ? "true" : "false");
  if (!started) return 1;
  // Every road runs, also after one failed, so that the output shows them all.
  bool ok = demo::TagRoad();
  ok = demo::BufferRoad() && ok;
  ok = demo::TicketRoad() && ok;
  ok = demo::MetadataRoad() && ok;
  ok = demo::ConfigRoad() && ok;
  if (argc > 1) ok = demo::KeepFiles(argv[1]) && ok;
  std::printf("%s\n", ok ? "demo finished" : "demo FAILED");
  return ok ? 0 : 1;
}
