// The road of a file's bytes: opened through a buffer, a range of it read
// through an "embed" URL, and bytes outside a mapped view read into a
// private block.
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "demo.h"

namespace demo {

namespace {

typedef std::unique_ptr<const VYR_IBuffer> Owned;

// A file of three pages in a folder of its own, removed at the end.
class DemoFile : public ScratchFolder {
 public:
  DemoFile() : ScratchFolder("vyrax-demo", "container.bin") {
    if (Path().empty()) return;
    mBytes.resize(3 * VYR_TFileBuffer::sAllocationGranularity);
    for (size_t i = 0; i < mBytes.size(); ++i) mBytes[i] = static_cast<unsigned char>(i % 251);
    const char header[] = "VYRAX demo container";
    std::memcpy(mBytes.data(), header, sizeof header - 1);
    FILE* out = std::fopen(Path().c_str(), "wb");
    if (out == nullptr) return;
    mWritten = std::fwrite(mBytes.data(), 1, mBytes.size(), out) == mBytes.size();
    mWritten = std::fclose(out) == 0 && mWritten;
  }
  bool Written() const { return mWritten; }
  const std::vector<unsigned char>& Bytes() const { return mBytes; }

 private:
  std::vector<unsigned char> mBytes;
  bool mWritten = false;
};

const unsigned char* BytesOf(const void* address) {
  return static_cast<const unsigned char*>(address);
}

}  // namespace

bool BufferRoad() {
  std::printf("== buffer ==\n");
  DemoFile file;
  if (!file.Written()) return Fail("could not write the demo file");
  const unsigned page = VYR_TFileBuffer::sAllocationGranularity;
  try {
    // 1. The whole file: one mapping, no read.
    Owned whole(VYR_IBuffer::Create(QEN_TString(file.Path().c_str()), 0, 0, 0));
    std::printf("opened %s: %s of %u bytes, valid %s\n", file.Path().c_str(), whole->ClassName(),
                whole->Size(), whole->IsValid() ? "yes" : "no");
    std::printf("first bytes: \"%.20s\"\n", static_cast<const char*>(whole->Buffer()));
    if (whole->Size() != file.Bytes().size()) return Fail("the buffer has the wrong size");

    // 2. A range of it through an "embed" URL: a slice of the same mapping.
    const QEN_TURL container = QEN_TURL::LocalToURL(QEN_TString(file.Path().c_str()));
    const QEN_TURL range = VYR_EmbeddedFile(container, 8, 1000, 0, 0.0, 0.0);
    std::printf("embed URL: %s\n", range.AsString().c_str());
    const VYR_TTag tag = VYR_Embedded2Tag(range);
    std::printf("its range: position %u, size %u\n", tag.Position(), tag.Size());
    Owned slice(VYR_IBuffer::Create(range, 0, 0, 0));
    std::printf("opened the range: %s of %u bytes: %s\n", slice->ClassName(), slice->Size(),
                Hex(BytesOf(slice->Buffer()), slice->Size()).c_str());
    std::printf("same mapping as the whole file: %s\n",
                slice->Buffer() == whole->Buffer(1000u) ? "yes" : "no");
    if (std::memcmp(slice->Buffer(), &file.Bytes()[1000], 8) != 0)
      return Fail("the range shows the wrong bytes");

    // 3. A view of the first page only: inside it operator() gives addresses
    //    in the mapping; outside it reads into a private block.
    VYR_TFileBuffer firstPage(QEN_TString(file.Path().c_str()), page, 0, 0);
    std::printf("a view of %u bytes: Size() %u, valid %s\n", page, firstPage.Size(),
                firstPage.IsValid() ? "yes" : "no");
    const void* inside = firstPage(16, 8);
    std::printf("inside the view at 16: %s, in the mapping: %s\n", Hex(BytesOf(inside), 8).c_str(),
                inside == firstPage.Buffer(16u) ? "yes" : "no");
    const void* outside = firstPage(2ull * page + 5, 8);
    std::printf("outside the view at %u: %s, read into a %s of %u bytes\n", 2 * page + 5,
                Hex(BytesOf(outside), 8).c_str(), firstPage.Reserved()->ClassName(),
                firstPage.Reserved()->Size());
    if (std::memcmp(outside, &file.Bytes()[2 * page + 5], 8) != 0)
      return Fail("the read outside the view shows the wrong bytes");
  } catch (const QEN_EException& failure) {
    std::printf("%s\n", VYR_Exception2String(failure, false, 2).c_str());
    return Fail("a buffer operation threw");
  }
  return true;
}

}  // namespace demo
