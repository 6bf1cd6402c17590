// What the sample plug-ins and their clients agree on: the provider, and the
// signature of its creators.
#ifndef VYRAX_SAMPLE_PLUGINS_H
#define VYRAX_SAMPLE_PLUGINS_H

// The provider of the sample image readers.
#define VYR_SAMPLE_PROVIDER "Vyrax/SampleReaders"

// A creator of this provider tells what it reads; registered as a bare
// function pointer, called after a cast to this type.
typedef const char* (*VYR_TSampleReaderCreator)();

#endif
