// The road of a configuration: a site file names the plug-ins and adds ink
// names; the library reads it once, a plug-in is loaded from its table and
// its creator called, and an ink is recognised by a name in another
// language.
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "../modules/samples/sample_plugins.h"
#include "demo.h"

namespace demo {

namespace {

// The configuration file of this demo, in the text form, unless the caller
// chose a source of their own.
std::string WriteSiteFile() {
  QEN_TDict readers;
  readers["tiff"] = "vyr_sample_tiff";
  readers["png"] = "vyr_sample_png";
  QEN_TDict plugins;
  plugins[VYR_TDynamicLoader::LoaderKey(VYR_SAMPLE_PROVIDER)] = readers;
  QEN_TDict svenska;
  svenska["PROCESS"] = 1u;
  svenska["CYAN"] = 1u;
  svenska["MAGENTA"] = 2u;
  svenska["GUL"] = 3u;
  svenska["SVART"] = 4u;
  QEN_TDict names;
  names["SVENSKA"] = svenska;
  QEN_TTree site;
  site.Value(VYR_TDynamicLoader::sCfsName) = plugins;
  site.Value("/Resources/Modules/VYR/InternationalInkNames") = names;

  const std::string path = "/tmp/vyrax-demo-" + std::to_string(getpid()) + ".cfs";
  QEN_TFile file(QEN_TString(path), QEN_TFile::WriteOnly);
  QEN_THumanReadableStream text(file);
  text.WriteObject(site) << cr;
  file.Flush();
  return path;
}

}  // namespace

bool ConfigRoad() {
  std::printf("== configuration, plug-ins and inks ==\n");
  std::string written;
  if (std::getenv("VYR_USE_CFS") == nullptr && std::getenv("QEN_SERVER") == nullptr) {
    written = WriteSiteFile();
    setenv("VYR_USE_CFS", written.c_str(), 1);
  }
  const char* useCfs = std::getenv("VYR_USE_CFS");
  VYR_ICfs& cfs = VYR_CfsWrap();
  std::printf("configuration source: %s%s (%s)\n",
              VYR_IsServer() ? "service module VYR_CFS" : "file ",
              VYR_IsServer() ? "" : (useCfs != nullptr ? useCfs : "none"),
              useCfs != nullptr ? "VYR_USE_CFS" : "QEN_SERVER");
  if (!written.empty()) std::remove(written.c_str());
  QEN_TList top = cfs.KeysAt("/Resources/Modules/VYR");
  std::printf("configured modules under /Resources/Modules/VYR: %u\n", top.Entries());

  VYR_TDynamicLoader& loader = *VYR_TDynamicLoader::sLoader;
  const QEN_TString provider(VYR_SAMPLE_PROVIDER);
  loader.RegisterProvider(provider);
  loader.LoadPluginByName(provider, "tiff");
  VYR_TDynamicLoader::Function creator = nullptr;
  try {
    creator = loader.Creator(provider, "tiff");
  } catch (const QEN_EException& e) {
    std::printf("%s\n", VYR_Exception2String(e).c_str());
    return Fail("the TIFF reader's plug-in gave no creator");
  }
  std::printf("plug-in for %s/tiff loaded from the table; its creator says: %s\n",
              VYR_SAMPLE_PROVIDER, reinterpret_cast<VYR_TSampleReaderCreator>(creator)());

  const char* const names[] = {"Process Zwart", "GELB", "Svart"};
  for (const char* name : names) {
    VYR_TInks ink = VYR_International2Ink(name);
    std::printf("ink name \"%s\" is the process ink %s\n", name, VYR_Enum2String(ink).c_str());
    if (ink == VYR_UnknownInk) return Fail("an international ink name was not recognised");
  }
  VYR_TInk black(VYR_International2Ink("Svart"));
  QEN_TMemoryStream text;
  QEN_THumanReadableStream writer(text);
  writer.WriteObject(black);
  std::printf("%.*s\n", static_cast<int>(text.Length()),
              reinterpret_cast<const char*>(text.Data()));
  return true;
}

}  // namespace demo
