// Starts the library and packs a tag, as any client would.
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
  QEN_TDataStream out(memory);
  out << tag;
  QEN_TMemoryStream source(memory.Data(), memory.Length(), memory.Length());
  QEN_TDataStream in(source);
  std::unique_ptr<QEN_IInterface> copy(in.Extract(true));
  const VYR_TTag* rebuilt = copy ? copy->DynamicCast<VYR_TTag>() : nullptr;
  if (rebuilt == nullptr || !(*rebuilt == tag)) {
    std::puts("tag did not survive packing");
    return 1;
  }
  std::printf("packed a tag into %u bytes and rebuilt it\n", memory.Length());

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
