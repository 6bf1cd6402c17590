// The demo walks one value of each subsystem through the library. Each road
// prints what happens and gives false when something went wrong.
#ifndef VYRAX_DEMO_H
#define VYRAX_DEMO_H

#include <vyrax/vyrax.h>

#include <memory>
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

// The value packed as a store packs it, and rebuilt by the class named in the
// bytes (null if it doesn't rebuild); `length` gets the length packed.
std::unique_ptr<QEN_IInterface> PackedAndRebuilt(const QEN_IPackable& value, unsigned& length);

// A folder of its own under /tmp for one file, both removed at the end; the
// file is the owner's to write. Path() is empty when there is no folder.
class ScratchFolder {
 public:
  ScratchFolder(const char* prefix, const char* fileName);
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder();
  const std::string& Path() const { return mPath; }

 private:
  std::string mFolder;
  std::string mPath;
};

}  // namespace demo

#endif
