// The road of metadata: a value and a time stamp stored for a file, read back
// by a second object as another process would, and the stamp going stale
// when the file is touched.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "demo.h"

namespace demo {
namespace {

const char* StatusText(VYR_TVerifyStatus status) {
  return status == VYR_KeyEqual       ? "KeyEqual (the value matches the file)"
         : status == VYR_KeyDifferent ? "KeyDifferent (the file changed since)"
                                      : "KeyUnknown";
}

// Moves the file's modification time one minute on, as an edit would.
bool Touch(const std::string& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) return false;
  struct timespec times[2] = {info.st_atim, info.st_mtim};
  times[1].tv_sec += 60;
  return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

}  // namespace

bool MetadataRoad() {
  std::printf("== metadata ==\n");
  char folder[] = "/tmp/vyrax-demo-metadata-XXXXXX";
  if (mkdtemp(folder) == nullptr) return Fail("no temporary folder");
  const std::string path = std::string(folder) + "/page1.tif";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return Fail("cannot make the data file");
  std::fputs("image bytes", file);
  std::fclose(file);
  const QEN_TURL url = QEN_TURL::LocalToURL(path.c_str());

  bool ok = true;
  try {
    VYR_TMetadata metadata(url);
    const VYR_TTag proxy(4096ULL, 65536ULL);
    // The stamp key is the stored form of the value's key.
    const QEN_TString key = VYR_TMetadata::NormalizeKey("Preview range");
    ok = metadata.SetKeyObject("Preview range", proxy, true) && metadata.SetTimestamp(key);
    std::printf("stored %s under \"%s\" with a time stamp: %s\n", proxy.ClassName(), key.c_str(),
                ok ? "true" : "false");
    std::printf("side-car file: %s/.metadata/.page1.tif.info\n", folder);

    VYR_TMetadata reader(url);
    std::unique_ptr<QEN_IPackable> back(reader.GetKeyObject("preview RANGE"));
    const bool same = back != nullptr && back->QEN_IsIdent(proxy);
    std::printf("a second object reads it back: %s, %s\n", back ? back->ClassName() : "nothing",
                same ? "equal" : "different");
    const VYR_TVerifyStatus before = reader.VerifyTimestamp(key);
    std::printf("stamp before touching the file: %s\n", StatusText(before));

    if (!Touch(path)) return Fail("cannot touch the data file");
    const VYR_TVerifyStatus after = reader.VerifyTimestamp(key);
    std::printf("stamp after touching the file:  %s\n", StatusText(after));
    ok = ok && same && before == VYR_KeyEqual && after == VYR_KeyDifferent;

    ok = metadata.RemoveAll() && ok;
  } catch (const QEN_EException& e) {
    std::printf("exception: %s\n", VYR_Exception2String(e).c_str());
    ok = false;
  }
  std::system(("rm -rf '" + std::string(folder) + "'").c_str());
  return ok || Fail("the metadata road");
}

}  // namespace demo
