// A side-car metadata file of arbitrary bytes, read by the side-car backend
// as a data file's metadata: either a store whose every key gives its value,
// or an empty store and one log line that says why; never a crash, a hang or
// unbounded memory. The file lies in memory (/dev/shm) when it can.
#include <ordonotes/ordonotes.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

std::string gFolder;
std::string gSideCar;
QEN_TURL* gData = nullptr;
unsigned gUnpackFailures = 0;

void CountLines(const char* line, void*) {
  if (std::strstr(line, "failed during unpacking") != nullptr) ++gUnpackFailures;
}

void WriteSideCar(const std::uint8_t* data, std::size_t size) {
  FILE* file = std::fopen(gSideCar.c_str(), "wb");
  if (file == nullptr) std::abort();
  if (size > 0 && std::fwrite(data, 1, size, file) != size) std::abort();
  std::fclose(file);
}

void RemoveFolder() {
  ::unlink(gSideCar.c_str());
  ::rmdir((gFolder + "/.metadata").c_str());
  ::unlink((gFolder + "/page.tif").c_str());
  ::rmdir(gFolder.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!__QEN_INITIALIZATION_FUNCTION_VYRAX__()) std::abort();
  char pattern[] = "/dev/shm/vyrax-fuzz-sidecar-XXXXXX";
  char fallback[] = "/tmp/vyrax-fuzz-sidecar-XXXXXX";
  const char* folder = mkdtemp(pattern);
  if (folder == nullptr) folder = mkdtemp(fallback);
  if (folder == nullptr) std::abort();
  gFolder = folder;
  std::atexit(&RemoveFolder);
  const std::string data = gFolder + "/page.tif";
  std::fclose(std::fopen(data.c_str(), "wb"));
  ::mkdir((gFolder + "/.metadata").c_str(), 0755);
  gSideCar = gFolder + "/.metadata/.page.tif.info";
  gData = new QEN_TURL(QEN_TURL::LocalToURL(data.c_str()));
  QENMESG_SetSink(&CountLines, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  WriteSideCar(data, size);
  gUnpackFailures = 0;
  std::unique_ptr<VYR_IMetadata> metadata(VYR_IMetadata::CreateAccessObject(*gData));
  // The side-car backend always gets a store, if an empty one.
  if (metadata == nullptr) std::abort();
  if (gUnpackFailures > 1) std::abort();
  if (gUnpackFailures == 1 && metadata->HasAnyKey()) std::abort();

  QEN_TList keys = metadata->GetAllKeys();
  for (QEN_TListKey* key = keys.KeyAtHead(); key != nullptr; key = key->Next()) {
    const QEN_TString* name = key->Value().DynamicCast<QEN_TString>();
    if (name == nullptr) std::abort();
    std::unique_ptr<const VYR_IBuffer> value(metadata->GetKeyValue(*name));
    if (value == nullptr) std::abort();
    volatile unsigned char sink = 0;
    if (value->Size() > 0) sink = static_cast<const unsigned char*>(value->Buffer())[0];
    (void)sink;
  }
  return 0;
}
