// The demo walks one value of each subsystem through the library. Each road
// prints what happens and gives false when something went wrong.
#ifndef VYRAX_DEMO_H
#define VYRAX_DEMO_H

#include <string>

namespace demo {

bool TagRoad();
// A file opened through a buffer, a range of it through an "embed" URL, and
// a read outside the mapped view.
bool BufferRoad();
// A ticket grown through its fill levels, packed, read back and listed.
bool TicketRoad();
// A value and a time stamp stored for a file, read back, and the stamp going
// stale when the file is touched.
bool MetadataRoad();
// A configuration file read at the first use, a plug-in loaded from its
// table and its creator called, and ink names in several languages.
bool ConfigRoad();
// Leaves a page with metadata and its stored ticket in `folder`.
bool KeepFiles(const std::string& folder);
// Hex dump of a few bytes, for the printed road.
std::string Hex(const unsigned char* data, unsigned size);
bool Fail(const char* what);

}  // namespace demo

#endif
