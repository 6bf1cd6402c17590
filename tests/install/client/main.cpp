// Starts the library, writes a tag and reads it back, and loads a plug-in,
// as any client would.
#include <vyrax/vyrax.h>

#include <cstdio>
#include <memory>

int main() {
  if (!__QEN_INITIALIZATION_FUNCTION_VYRAX__()) {
    std::puts("start-up failed");
    return 1;
  }
  VYR_TTag tag(16ULL, 32ULL);
  QEN_TMemoryStream memory;
  QEN_THumanReadableStream(memory).WriteObject(tag);
  QEN_THumanReadableStream in(memory);
  std::unique_ptr<QEN_IHumanReadable> copy(in.Extract());
  const VYR_TTag* rebuilt = copy ? copy->DynamicCast<VYR_TTag>() : nullptr;
  if (rebuilt == nullptr || !(*rebuilt == tag)) {
    std::puts("tag did not survive its text form");
    return 1;
  }
  std::printf("wrote a tag as %u bytes of text and rebuilt it\n", memory.Length());

  // A sample plug-in, found by name in the installed plug-in folder.
  QEN_TDict creators;
  creators["png"] = "vyr_sample_png";
  QEN_TDict table;
  table["Vyrax\\SampleReaders"] = creators;
  VYR_CfsWrap().SetAt(VYR_TDynamicLoader::sCfsName, QEN_TAny(table));
  VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
  loader.RegisterProvider("Vyrax/SampleReaders");
  loader.LoadPluginByName("Vyrax/SampleReaders", "png");
  try {
    typedef const char* (*Describe)();
    std::printf("plug-in: %s\n",
                reinterpret_cast<Describe>(loader.Creator("Vyrax/SampleReaders", "png"))());
  } catch (const QEN_EException&) {
    std::puts("the installed plug-in was not found");
    return 1;
  }
  return 0;
}
