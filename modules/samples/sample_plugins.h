// What the sample plug-ins and their clients agree on: the provider, and the
// signature of its creators.
#ifndef VYRAX_SAMPLE_PLUGINS_H
#define VYRAX_SAMPLE_PLUGINS_H

// The provider of the sample image readers.
#define VYR_SAMPLE_PROVIDER "Vyrax/SampleReaders"

// A creator of this provider tells what it reads; registered as a bare
// function pointer, called after a cast to this type.
typedef const char* (*VYR_TSampleReaderCreator)();

// The start-up entry of a sample plug-in, named after the module's TAG: it
// registers `describe`, a VYR_TSampleReaderCreator, under each of the
// creator names that follow, when the loader loads the module.
#define VYR_SAMPLE_PLUGIN(TAG, describe, ...)                                                   \
  extern "C"                                                                                    \
      __attribute__((visibility("default"))) bool __QEN_INITIALIZATION_FUNCTION_##TAG##__() {   \
    if (VYR_TDynamicLoader::sLoader == nullptr) return false;                                   \
    for (const char* name : {__VA_ARGS__})                                                      \
      VYR_TDynamicLoader::sLoader->RegisterCreator(                                             \
          VYR_SAMPLE_PROVIDER, name, reinterpret_cast<VYR_TDynamicLoader::Function>(describe)); \
    return true;                                                                                \
  }

#endif
