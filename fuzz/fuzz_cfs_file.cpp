// A configuration file of arbitrary bytes, read as the library reads the
// file that VYR_USE_CFS names: the binary form, then the text form, then as
// a tree by the local configuration's file constructor. Each reader gives an
// object or fails with an exception of the stream family (or the file's,
// should it vanish); the combined reader never throws. A tree that comes out
// serves as a configuration. The file lies in memory (/dev/shm) when it can.
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "config/vyr_cfs_file.h"

namespace {

std::string gPath;

void RemoveFile() { ::unlink(gPath.c_str()); }

void Write(const std::uint8_t* data, std::size_t size) {
  FILE* file = std::fopen(gPath.c_str(), "wb");
  if (file == nullptr) std::abort();
  if (size > 0 && std::fwrite(data, 1, size, file) != size) std::abort();
  std::fclose(file);
}

// A configuration from what a reader gave, walked from the top.
void Serve(const QEN_IInterface* object) {
  if (object == nullptr) return;
  if (const QEN_TTree* tree = object->DynamicCast<QEN_TTree>()) {
    VYR_TCfsWrap cfs(*tree);
    QEN_TList keys = cfs.KeysAt("/");
    for (QEN_TListKey* key = keys.KeyAtHead(); key != nullptr; key = key->Next()) {
      const QEN_TString* name = key->Value().DynamicCast<QEN_TString>();
      if (name == nullptr) std::abort();
      cfs.KeysAt(QEN_TString("/") + *name);
    }
  }
}

template <class Read>
void Try(Read read) {
  try {
    std::unique_ptr<QEN_IInterface> object(read());
    Serve(object.get());
  } catch (const QEN_EStreamException&) {
  } catch (const QEN_ETreeException&) {
    // A key with a separator in it names no path of the tree read.
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!__QEN_INITIALIZATION_FUNCTION_VYRAX__()) std::abort();
  const char* folder = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  gPath = std::string(folder) + "/vyrax-fuzz-cfs-" + std::to_string(::getpid());
  std::atexit(&RemoveFile);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Write(data, size);
  const QEN_TString path(gPath);
  Try([&] { return vyr::config::ExtractBinary(path); });
  Try([&] { return vyr::config::ExtractText(path); });
  Try([&]() -> QEN_IInterface* { return new VYR_TCfsWrap(path); });
  std::unique_ptr<QEN_IInterface> object(vyr::config::ReadCfsFile(path));
  return 0;
}
