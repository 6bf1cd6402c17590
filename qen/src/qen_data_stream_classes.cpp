// Class identification in the binary stream, both directions, both versions.
//
// Version 2 names a class once per stream, the first time an object or a
// frame needs it (81, name length, name: it takes the next number), and then
// refers to it by number (00-7F, or 80 and a 16-bit number). The classes of
// the well-known table need no naming: one byte from 82 on stands for each.
// Version 1 names it in full every time, behind the marker: 'O' for an
// object, '{' or '}' for a frame. Names are checked once per class and looked up in the
// registry once per thread.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qen_data_stream_impl.h"

using namespace qen_data;

namespace {

// The classes this thread found by name lately. A class object, once
// registered, stays for the life of the process, so a name found once
// gives the same class ever after; the cache keeps its own copy of the name
// and spares the registry's lock and a string per look-up.
struct KnownClass {
  const QEN_TClass* found;
  unsigned char length;
  char name[47];
};
constexpr unsigned kKnownClasses = 64;  // the top six bits of a hash pick one
thread_local KnownClass tKnownClasses[kKnownClasses];

KnownClass& KnownSlot(const char* name, unsigned length) {
  std::uint64_t h = length;
  if (length >= 8) {
    std::uint64_t first, last;
    std::memcpy(&first, name, 8);
    std::memcpy(&last, name + length - 8, 8);
    h ^= first ^ (last << 31 | last >> 33);
  } else {
    for (unsigned i = 0; i < length; ++i) h = (h << 8 | static_cast<unsigned char>(name[i]));
  }
  // The top bits of the product depend on every bit of the input.
  h *= 0x9E3779B97F4A7C15ull;
  return tKnownClasses[(h ^ (h >> 32)) * 0xC2B2AE3D27D4EB4Full >> 58];
}

// The class this thread found under the name before, or null.
const QEN_TClass* KnownClassOf(const char* name, unsigned length) {
  if (length >= sizeof KnownClass::name) return nullptr;
  const KnownClass& known = KnownSlot(name, length);
  if (known.found != nullptr && known.length == length &&
      std::memcmp(known.name, name, length) == 0)
    return known.found;
  return nullptr;
}

// Asks the registry, and keeps what it finds.
const QEN_TClass* FindClass(const char* name, unsigned length) {
  const QEN_TClass* found = QEN_TClass::Find(std::string(name, length).c_str());
  if (found != nullptr && length < sizeof KnownClass::name) {
    KnownClass& known = KnownSlot(name, length);
    known.found = found;
    known.length = static_cast<unsigned char>(length);
    std::memcpy(known.name, name, length);
  }
  return found;
}

// The class objects whose names this thread checked for writing, with the
// name's length and place in the table of well-known classes (-1: none). A
// class object's name never changes, so one check serves every later
// stream. The name's address is kept too: a module loaded again may put
// another class object where one was.
struct CheckedClass {
  const QEN_TClass* object;
  const char* name;
  std::size_t length;
  int wellKnown;
};
constexpr unsigned kCheckedClasses = 64;
thread_local CheckedClass tCheckedClasses[kCheckedClasses];

void CheckName(const char* name, std::size_t length, const char* what);

const CheckedClass& Checked(const QEN_TClass* object) {
  std::uint64_t h = reinterpret_cast<std::uintptr_t>(object);
  h *= 0x9E3779B97F4A7C15ull;
  CheckedClass& slot = tCheckedClasses[h >> 58];
  if (slot.object == object && slot.name == object->name) return slot;
  const char* name = object->name;
  const std::size_t length = name != nullptr ? std::strlen(name) : 0;
  CheckName(name, length, MarkerText(kObjectMarker));
  int wellKnown = -1;
  for (unsigned i = 0; i < kWellKnownCount && wellKnown < 0; ++i)
    if (std::strcmp(name, kWellKnown[i]) == 0) wellKnown = static_cast<int>(i);
  slot = CheckedClass{object, name, length, wellKnown};
  return slot;
}

void CheckName(const char* name, std::size_t length, const char* what) {
  bool valid = length > 0 && length <= kMaxNameLength;
  for (std::size_t i = 0; valid && i < length; ++i)
    valid = IsNameChar(static_cast<unsigned char>(name[i]));
  if (!valid)
    Fail(
        QEN_TString::Format("cannot write %s: the class name must be 1 to %u letters, "
                            "digits or '_'",
                            what, kMaxNameLength));
}

[[noreturn]] void NotExpected(unsigned char marker, unsigned char byte, unsigned long long start) {
  Fail(QEN_TString::Format("expected %s (marker '%c'), found byte 0x%02X at offset %llu",
                           MarkerText(marker), marker, byte, start));
}

}  // namespace

void qen_data::Fail(const QEN_TString& message) {
  QEN_THROW(QEN_EStreamException, message);
  std::abort();  // QEN_THROW never comes back
}

void QEN_TDataStream::Impl::Truncated(const QEN_TDataStream& s, const char* what,
                                      unsigned long long size, unsigned long long left) {
  Fail(QEN_TString::Format("truncated data: %s needs %llu bytes, %llu left at offset %llu", what,
                           size, left, s.mOffset));
}

void QEN_TDataStream::Impl::Depth::TooDeep(unsigned long long offset) {
  Fail(QEN_TString::Format("objects nested deeper than %u at offset %llu", kMaxDepth, offset));
}

// ---------------------------------------------------------------------------
// Writing

namespace {
// The C++ types whose objects this thread wrote as a well-known class, with
// its byte: a later stream writes the byte without asking the object.
struct WellKnownType {
  const std::type_info* type;
  unsigned char byte;
};
constexpr unsigned kWellKnownTypes = 64;
thread_local WellKnownType tWellKnownTypes[kWellKnownTypes];

WellKnownType& WellKnownTypeSlot(const std::type_info* type) {
  return tWellKnownTypes[(reinterpret_cast<std::uintptr_t>(type) * 0x9E3779B97F4A7C15ull) >> 58];
}
}  // namespace

void QEN_TDataStream::Impl::PutObjectClass(QEN_TDataStream& s, const QEN_IPackable& object) {
  const std::type_info* type = &typeid(object);
  WrittenType& slot = s.mWrittenTypes[TypeSlot(type)];
  WellKnownType& known = WellKnownTypeSlot(type);
  if (known.type == type) {
    s.Put(&known.byte, 1);
    slot.number = known.byte;
  } else {
    const QEN_TClass& cls = object.ClassObject();
    slot.number = PutClass(s, kObjectMarker, cls.name, &cls);
    if (slot.number < kNotOneByte && IsWellKnown(static_cast<unsigned char>(slot.number)))
      known = WellKnownType{type, static_cast<unsigned char>(slot.number)};
  }
  slot.type = type;
}

unsigned QEN_TDataStream::Impl::PutClass(QEN_TDataStream& s, unsigned char marker, const char* name,
                                         const QEN_TClass* object) {
  std::size_t length = 0;
  if (object != nullptr) {
    const CheckedClass& checked = Checked(object);
    if (checked.wellKnown >= 0) {
      const unsigned char byte = static_cast<unsigned char>(kFirstWellKnown + checked.wellKnown);
      s.Put(&byte, 1);
      return byte;
    }
    length = checked.length;
  }
  std::vector<WrittenClass>& classes = s.mWrittenClasses;
  std::size_t number = classes.size();
  if (object != nullptr)
    for (std::size_t i = 0; i < classes.size(); ++i)
      if (classes[i].object == object) {
        number = i;
        break;
      }
  // By name only where a frame may have named the class first.
  if (number == classes.size() && name != nullptr && (object == nullptr || s.mFramesNamed))
    for (std::size_t i = 0; i < classes.size(); ++i)
      if (classes[i].Named(name)) {
        number = i;
        if (classes[i].object == nullptr) classes[i].object = object;
        break;
      }
  unsigned char head[4];
  unsigned n = 0;
  if (marker != kObjectMarker) head[n++] = marker;
  const unsigned code = number < kLongClassNumber ? static_cast<unsigned>(number)
                                                  : kNotOneByte + static_cast<unsigned>(number);
  if (number < classes.size()) {
    if (number < kLongClassNumber) {
      head[n++] = static_cast<unsigned char>(number);
    } else {
      head[n++] = kLongClassNumber;
      head[n++] = static_cast<unsigned char>(number);
      head[n++] = static_cast<unsigned char>(number >> 8);
    }
    s.Put(head, n);
    return code;
  }
  if (object == nullptr) {
    length = name != nullptr ? std::strlen(name) : 0;
    CheckName(name, length, MarkerText(marker));
  }
  if (classes.size() >= kMaxClasses)
    Fail(QEN_TString::Format("cannot write %s: more than %u classes in one stream",
                             MarkerText(marker), kMaxClasses));
  if (classes.empty()) classes.reserve(kFirstClasses);
  classes.push_back(
      WrittenClass{object, object == nullptr ? std::string(name, length) : std::string()});
  if (object == nullptr) s.mFramesNamed = true;
  head[n++] = kNewClass;
  head[n++] = static_cast<unsigned char>(length);
  s.Put(head, n);
  s.Put(name, static_cast<unsigned>(length));
  return code;
}

// ---------------------------------------------------------------------------
// Reading

// Reads a mark behind its first byte: the version it names applies from
// here on, with no classes known yet.
void QEN_TDataStream::Impl::ReadMark(QEN_TDataStream& s, unsigned long long start) {
  unsigned char version = s.TakeByte("a format version");
  if (version != kVersion)
    Fail(QEN_TString::Format("unknown format version %u at offset %llu", version, start + 1));
  s.mReadVersion = version;
  s.mReadClasses.clear();
}

// The first byte of an object or a class frame; a mark met there starts a
// stream of its own.
unsigned char QEN_TDataStream::Impl::HeadByte(QEN_TDataStream& s, const char* what,
                                              unsigned long long& start) {
  if (s.mReadVersion == 0) s.StartReading();
  for (;;) {
    start = s.mOffset;
    unsigned char byte = s.TakeByte(what);
    if (byte != kStreamMark) return byte;
    // The class numbers start again, so no object may be open.
    if (s.mDepth > 0)
      Fail(QEN_TString::Format("format mark inside an object at offset %llu", start));
    ReadMark(s, start);
  }
}

// Reads and checks a class name and gives its class; the name is kept in
// `name` only when no class has it.
const QEN_TClass* QEN_TDataStream::Impl::ReadName(QEN_TDataStream& s, unsigned long long start,
                                                  std::string& name) {
  unsigned length = s.TakeByte("a class name length");
  if (length == 0) Fail(QEN_TString::Format("empty class name at offset %llu", start + 1));
  char bytes[kMaxNameLength];
  unsigned long long at = s.mOffset;
  s.TakeInto(bytes, length, "a class name");
  // A name met before was checked then.
  if (const QEN_TClass* known = KnownClassOf(bytes, length)) {
    name.clear();
    return known;
  }
  for (unsigned i = 0; i < length; ++i)
    if (!IsNameChar(static_cast<unsigned char>(bytes[i])))
      Fail(QEN_TString::Format("invalid byte 0x%02X in a class name at offset %llu",
                               static_cast<unsigned char>(bytes[i]), at + i));
  const QEN_TClass* found = FindClass(bytes, length);
  if (found == nullptr)
    name.assign(bytes, length);
  else
    name.clear();
  return found;
}

std::size_t QEN_TDataStream::Impl::ClassAt(QEN_TDataStream& s, unsigned char marker,
                                           unsigned char byte, unsigned long long start,
                                           ReadClass& scratch) {
  if (s.mReadVersion == 1) {
    if (byte != marker) NotExpected(marker, byte, start);
    scratch.found = ReadName(s, start, scratch.name);
    scratch.buildable = false;
    return kScratch;
  }
  if (marker != kObjectMarker) {
    if (byte != marker) NotExpected(marker, byte, start);
    start = s.mOffset;
    byte = s.TakeByte("a class");
  }
  unsigned number = byte;
  if (byte == kNewClass) {
    if (s.mReadClasses.size() >= kMaxClasses)
      Fail(QEN_TString::Format("more than %u classes in one stream at offset %llu", kMaxClasses,
                               start));
    if (s.mReadClasses.empty()) s.mReadClasses.reserve(kFirstClasses);
    s.mReadClasses.emplace_back();
    ReadClass& added = s.mReadClasses.back();
    try {
      added.found = ReadName(s, start, added.name);
    } catch (...) {
      s.mReadClasses.pop_back();
      throw;
    }
    return s.mReadClasses.size() - 1;
  }
  if (IsWellKnown(byte)) {
    const std::size_t i = byte - kFirstWellKnown;
    ReadClass& entry = WellKnown(i);
    if (entry.found == nullptr) {
      entry.found = FindClass(kWellKnown[i], static_cast<unsigned>(std::strlen(kWellKnown[i])));
      entry.name = entry.found != nullptr ? "" : kWellKnown[i];
    }
    return kWellKnownIndex + i;
  }
  if (byte == kLongClassNumber) {
    number = static_cast<unsigned>(GetLittleEndian<2>(s, "a class number"));
  } else if (byte > kLongClassNumber) {
    Fail(QEN_TString::Format("expected %s (a class), found byte 0x%02X at offset %llu",
                             MarkerText(marker), byte, start));
  }
  if (number >= s.mReadClasses.size())
    Fail(QEN_TString::Format("class number %u at offset %llu was never named", number, start));
  return number;
}

QEN_TDataStream::ReadClass& QEN_TDataStream::Impl::WellKnown(std::size_t i) {
  thread_local ReadClass table[kWellKnownCount];
  return table[i];
}

bool QEN_TDataStream::Impl::Admitted(const QEN_TDataStream& s, const char* name) {
  if (s.mAdmitted == nullptr) return true;
  for (const char* const* at = s.mAdmitted; *at != nullptr; ++at)
    if (std::strcmp(name, *at) == 0) return true;
  return false;
}

void QEN_TDataStream::Impl::UnpackFrame(QEN_TDataStream& s, unsigned char marker,
                                        const char* name) {
  unsigned long long start = 0;
  unsigned char byte = HeadByte(s, MarkerText(marker), start);
  ReadClass scratch;
  const ReadClass& found = Entry(s, ClassAt(s, marker, byte, start, scratch), &scratch);
  if (name == nullptr || std::strcmp(found.Name(), name) != 0)
    Fail(QEN_TString::Format("expected %s \"%s\", found \"%s\" at offset %llu",
                             marker == kBeginMarker ? "begin of class" : "end of class",
                             name != nullptr ? name : "", found.Name(), start));
}

// ---------------------------------------------------------------------------
// The first version's characters, also the layout of other packers: an
// unsigned 32 count, then two bytes per unit, low byte first.

QEN_IPacking& QEN_IPacking::PutChars(const QEN_TUniChar* chars, unsigned count) {
  *this << count;
  unsigned char bytes[kChunkUnits * 2];
  for (unsigned done = 0; done < count;) {
    unsigned piece = count - done < kChunkUnits ? count - done : kChunkUnits;
    for (unsigned i = 0; i < piece; ++i) ToLittleEndian<2>(bytes + 2 * i, chars[done + i]);
    PutBytes(bytes, 2 * piece);
    done += piece;
  }
  return *this;
}

// The text grows only as far as the stream really delivers it: a count that
// promises more than the stream holds fails in GetBytes first.
QEN_IUnpacking& QEN_IUnpacking::GetChars(std::u16string& chars) {
  unsigned count = 0;
  *this >> &count;
  std::u16string text;
  unsigned char bytes[kChunkUnits * 2];
  for (unsigned done = 0; done < count;) {
    unsigned piece = count - done < kChunkUnits ? count - done : kChunkUnits;
    GetBytes(bytes, 2 * piece);
    for (unsigned i = 0; i < piece; ++i)
      text += static_cast<char16_t>(FromLittleEndian<2>(bytes + 2 * i));
    done += piece;
  }
  chars = std::move(text);
  return *this;
}
