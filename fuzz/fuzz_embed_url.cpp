// The readers of "embed" URLs over arbitrary text, and buffers opened on the
// ranges they name inside a real container file.
//
// Input: 16 bytes of numbers (position low and high, size, and a byte that
// picks real sizes), then the URL text. The URL's parameters are also put on
// a URL of the container file, so that opening reads real bytes: whatever
// opens must show exactly the file's bytes at the position the parameters
// and the numbers name, and what doesn't open must fail with an exception of
// the buffer family.
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

typedef std::unique_ptr<const VYR_IBuffer> Owned;

void Check(bool condition) {
  if (!condition) std::abort();
}

std::string gContainer;
std::vector<unsigned char> gBytes;

void RemoveContainer() {
  std::remove(gContainer.c_str());
  const size_t slash = gContainer.rfind('/');
  if (slash != std::string::npos) rmdir(gContainer.substr(0, slash).c_str());
}

unsigned Word(const uint8_t* data, size_t at) {
  unsigned value;
  std::memcpy(&value, data + at, 4);
  return value;
}

unsigned long long Join(unsigned low, unsigned high) {
  return (static_cast<unsigned long long>(high) << 32) | low;
}

// The number that the readers take from a parameter value.
unsigned Number(const QEN_TURL& url, const char* key) {
  QEN_TString value;
  if (!url.GetParam(QEN_TString(key), value)) return 0;
  unsigned long long number = 0;
  for (unsigned i = 0; i < value.Length() && value[i] >= u'0' && value[i] <= u'9'; ++i) {
    number = number * 10 + static_cast<unsigned>(value[i] - u'0');
    if (number > 0xFFFFFFFFull) number = 0xFFFFFFFFull;
  }
  return static_cast<unsigned>(number);
}

void CheckReaders(const QEN_TURL& url) {
  const bool embedded = url.Protocol() == "embed";
  try {
    const VYR_TTag tag = VYR_Embedded2Tag(url);
    Check(embedded);
    Check(tag.Position() == Number(url, "embed.position_low"));
    Check(tag.PositionHigh() == Number(url, "embed.position_high"));
    Check(tag.Size() == Number(url, "embed.length"));
    Check(tag.SizeHigh() == 0);
  } catch (const VYR_ENotEmbeddedFile&) {
    Check(!embedded);
  }
  double v = 0, h = 0;
  if (VYR_Embedded2Size(url, v, h)) Check(embedded);
  const QEN_TURL original = VYR_Embedded2Original(url);
  Check(original.Protocol() == "file");
  Check(original.ParamCount() == 0);
  QEN_TString password;
  QEN_TString direct;
  Check(VYR_ExtractPassword(url, password) == url.GetParam(QEN_TString("password"), direct));
}

void CheckNesting(const QEN_TURL& url, unsigned low, unsigned high, unsigned size, bool sizes) {
  const bool embedded = url.Protocol() == "embed";
  const double real = sizes ? 1.5 : 0.0;
  QEN_TURL made;
  try {
    made = VYR_EmbeddedFile(url, size, low, high, real, real);
  } catch (const VYR_EEmbedRegionTooLarge&) {
    const unsigned length = Number(url, "embed.length");
    Check(embedded && size != 0 && length != 0 &&
          (high != 0 || static_cast<unsigned long long>(low) + size > length));
    return;
  }
  const VYR_TTag tag = VYR_Embedded2Tag(made);
  const unsigned long long position =
      Join(low, high) +
      (embedded ? Join(Number(url, "embed.position_low"), Number(url, "embed.position_high")) : 0);
  Check(Join(tag.Position(), tag.PositionHigh()) == position);
  Check(tag.Size() == (embedded && size == 0 ? Number(url, "embed.length") : size));
  // The tag of a made URL makes the same URL again on its container.
  const QEN_TURL again = VYR_EmbeddedFile(VYR_Embedded2Original(made), tag);
  Check(VYR_Embedded2Tag(again) == tag);
  if (sizes) {
    double v = 0, h = 0;
    Check(VYR_Embedded2Size(made, v, h) && v == 1.5 && h == 1.5);
  }
}

void CheckOpening(const QEN_TURL& url, unsigned low, unsigned high, unsigned size) {
  // The same parameters on the container file.
  QEN_TURL range = QEN_TURL::LocalToURL(QEN_TString(gContainer.c_str()));
  range.SetQuery(url.Query());
  range.SetProtocol(QEN_TString("embed"));
  const unsigned long long position = Join(low, high) + Join(Number(range, "embed.position_low"),
                                                             Number(range, "embed.position_high"));
  Owned buffer;
  try {
    buffer.reset(VYR_IBuffer::Create(range, low, high, size));
  } catch (const VYR_EBuffer&) {
    return;
  }
  const unsigned long long total = gBytes.size();
  Check(position < total);
  // The range confines its reader: the position lies inside it, and the size
  // (0: all that is left) ends at its end. A length of 0 runs to the file's end.
  const unsigned rangeLength = Number(range, "embed.length");
  const unsigned long long inRange = Join(low, high);
  if (rangeLength != 0) Check(inRange < rangeLength);
  const unsigned long long rangeRest = rangeLength != 0 ? rangeLength - inRange : 0;
  const unsigned long long asked =
      rangeLength == 0 ? size : (size == 0 || size > rangeRest ? rangeRest : size);
  const unsigned long long rest = total - position;
  Check(buffer->Size() == (asked == 0 || asked > rest ? rest : asked));
  Check(std::memcmp(buffer->Buffer(), &gBytes[position], buffer->Size()) == 0);
  // A read through operator() from the range's start agrees.
  const unsigned take = buffer->Size() < 64 ? buffer->Size() : 64;
  if (take > 0) Check(std::memcmp((*buffer)(0, take), &gBytes[position], take) == 0);
  const QEN_TFileInfo info = VYR_GetFileInfo(range);
  Check(info.Size() >= 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!__QEN_INITIALIZATION_FUNCTION_VYRAX__()) std::abort();
  // Nothing else holds the container: no retries are needed.
  VYR_TFileBuffer::sNrOfRetries = 0;
  char folder[] = "/tmp/vyrax-fuzz-embed-XXXXXX";
  if (mkdtemp(folder) == nullptr) std::abort();
  gContainer = std::string(folder) + "/container.bin";
  gBytes.resize(3 * 4096 + 123);
  for (size_t i = 0; i < gBytes.size(); ++i)
    gBytes[i] = static_cast<unsigned char>(i * 37 + (i >> 8));
  FILE* out = std::fopen(gContainer.c_str(), "wb");
  if (out == nullptr) std::abort();
  std::fwrite(gBytes.data(), 1, gBytes.size(), out);
  std::fclose(out);
  std::atexit(RemoveContainer);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  uint8_t numbers[16] = {0};
  std::memcpy(numbers, data, size < 16 ? size : 16);
  const unsigned low = Word(numbers, 0);
  const unsigned high = numbers[12] & 1 ? Word(numbers, 4) : 0;
  const unsigned length = Word(numbers, 8);
  const bool sizes = numbers[12] & 2;
  const std::string text(reinterpret_cast<const char*>(data) + (size < 16 ? size : 16),
                         size < 16 ? 0 : size - 16);
  const QEN_TURL url{QEN_TString(text)};
  CheckReaders(url);
  CheckNesting(url, low, high, length, sizes);
  // Small positions, so that ranges land inside the container now and then.
  CheckOpening(url, low % 16384, numbers[13] & 1 ? high : 0, length % 16384);
  return 0;
}
