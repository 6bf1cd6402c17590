// The local configuration: a tree in memory, from a file or empty.
#define VYR_SOURCE_NAME "Private/Source/vyr_cfswrap"

#include <qen/qen_file.h>
#include <qen/qen_stream.h>

#include "core/vyr_throw.h"
#include "core/vyr_trace.h"
#include "vyrax/vyr_cfswrap.h"

QEN_DEFINE_INTERFACE(VYR_ICfs)
QEN_DEFINE_OBJECT(VYR_TCfsWrap, QEN_TObject, VYR_ICfs)

namespace {

constexpr QEN_TUniChar kSeparator = u'/';
// The program whose resources are meant when a caller names none.
const char* const kDefaultProgram = "qen_prog_tarnhub_v232";

bool IsRoot(QEN_TString const& path) { return path == "/"; }

}  // namespace

VYR_TCfsWrap::VYR_TCfsWrap() { VYR_TRACE(vyr::kTraceLifeCycle, "Constructor of VYR_TCfsWrap\n"); }

VYR_TCfsWrap::VYR_TCfsWrap(QEN_TTree const& src) : mTree(src, 0) {
  VYR_TRACE(vyr::kTraceLifeCycle, "Constructor of VYR_TCfsWrap(src=%p)\n",
            static_cast<const void*>(&src));
}

VYR_TCfsWrap::VYR_TCfsWrap(VYR_TCfsWrap const& other)
    : QEN_IInterface(other), VYR_ICfs(other), QEN_TObject(other), mTree(other.mTree, 0) {
  VYR_TRACE(vyr::kTraceLifeCycle, "Constructor of VYR_TCfsWrap(src=%p)\n",
            static_cast<const void*>(&other.mTree));
}

VYR_TCfsWrap::VYR_TCfsWrap(QEN_TString const& filename) {
  VYR_TRACE(vyr::kTraceLifeCycle, "Constructor of VYR_TCfsWrap(filename=%s)\n", filename.c_str());
  QEN_TFile file(filename, QEN_TFile::ReadOnly);
  QEN_THumanReadableStream stream(file);
  stream >> mTree;
}

VYR_TCfsWrap::~VYR_TCfsWrap() {
  VYR_TRACE(vyr::kTraceLifeCycle, "Destructor of VYR_TCfsWrap(this=%p)\n",
            static_cast<const void*>(this));
}

QEN_TAny VYR_TCfsWrap::Get(QEN_TString const& path) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TCfsWrap::Get(this=%p,path=%s)\n", static_cast<void*>(this),
            path.c_str());
  if (IsRoot(path)) return QEN_TAny(mTree);
  return mTree.Get(path, kSeparator);
}

QEN_TAny VYR_TCfsWrap::Expand(QEN_TString const& path) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TCfsWrap::Expand(this=%p,path=%s)\n", static_cast<void*>(this),
            path.c_str());
  if (IsRoot(path)) return QEN_TAny(mTree);
  return mTree.Get(path, kSeparator);
}

QEN_TAny VYR_TCfsWrap::operator[](QEN_TString const& path) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TCfsWrap::operator [](this=%p,path=%s)\n",
            static_cast<void*>(this), path.c_str());
  return static_cast<VYR_ICfs*>(this)->Get(path);
}

QEN_TList VYR_TCfsWrap::KeysAt(QEN_TString const& path) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TCfsWrap::KeysAt(this=%p,path=%s)\n", static_cast<void*>(this),
            path.c_str());
  QEN_TList keys;
  QEN_TTree branch;
  if (IsRoot(path)) {
    branch = mTree;
  } else if (mTree.HasPath(path, kSeparator)) {
    QEN_TAny value = static_cast<VYR_ICfs*>(this)->Get(path);
    // A leaf has no names under it.
    if (const QEN_TTree* tree = value.DynamicCast<QEN_TTree>()) branch = *tree;
  }
  for (QEN_TConstIterator it(branch); !it.IsDone(); ++it) keys.AddAtTail(QEN_TAny(it.Key()));
  return keys;
}

VYR_ICfs& VYR_TCfsWrap::SetAt(QEN_TString const& path, QEN_TAny const& value) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TCfsWrap::SetAt(this=%p,path=%s,value=%p)\n",
            static_cast<void*>(this), path.c_str(), static_cast<const void*>(&value));
  mTree.Value(path, kSeparator) = value;
  return *this;
}

VYR_ICfs& VYR_TCfsWrap::BranchAt(QEN_TString const& path) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TCfsWrap::BranchAt(this=%p,path=%s)\n",
            static_cast<void*>(this), path.c_str());
  return SetAt(path, QEN_TAny(QEN_TTree()));
}

VYR_ICfs& VYR_TCfsWrap::Delete(QEN_TString const& path) {
  VYR_TRACE(vyr::kTraceLoader, "VYR_TCfsWrap::Delete(this=%p,path=%s)\n", static_cast<void*>(this),
            path.c_str());
  mTree.RemovePath(path, kSeparator);
  return *this;
}

QEN_TURL VYR_TCfsWrap::ResourceRoot(QEN_TString const& resource, QEN_TString const& program) {
  if (resource.Empty()) VYR_THROW(VYR_ECfsWrap, "Illegal resource name", resource);
  VYR_ICfs& self = *this;
  const QEN_TString owner = program.Empty() ? QEN_TString(kDefaultProgram) : program;
  const QEN_TAny where = self.Get(QEN_TString("Resources/") + owner + "/Resources/" + resource);
  const QEN_TString* location = where.DynamicCast<QEN_TString>();
  if (location == nullptr)
    VYR_THROW(VYR_ECfsWrap, "The location of resource %s is no text", resource);
  try {
    const QEN_TAny root = self.Expand(QEN_TString("Resources/") + *location + "/RootDirectory");
    if (const QEN_TURL* url = root.DynamicCast<QEN_TURL>()) return *url;
    if (const QEN_TString* text = root.DynamicCast<QEN_TString>()) return QEN_TURL(*text);
    VYR_THROW(VYR_ECfsWrap, "The root directory of location %s is no URL", *location);
  } catch (const QEN_ETreeException&) {
    // A location without a root of its own lies on this host.
    return QEN_TURL(QEN_TString("file://") + QEN_TSocket::HostName(false).ToLower() + "/" +
                    *location);
  }
}
