// The binary stream. docs/formats.md describes the layout. Version 2, which
// is written:
//
//   mark         B5 02 at the start of what one QEN_TDataStream wrote
//   numbers      little-endian, fixed width; a double is its IEEE-754 bits
//   bool         one byte, 0 or 1
//   class        a number 00-7F, or 80 and a 16-bit number, of a class named
//                before in the stream; or 81, name length, name: a new class,
//                which takes the next number
//   object       its class, then the object's QEN_Pack
//   begin class  '{', class;  end class  '}', class
//   characters   a count n as a varint of 2n (+1 for 16-bit units), then n
//                bytes, or n units of two bytes, low byte first
//
// Version 1 (no mark), still read: an object is 'O', name length, name; a
// frame '{' or '}', name length, name; characters an unsigned 32 count and
// two bytes per unit.
//
// Reading treats every byte as hostile: each read is checked against what
// the byte stream still holds before anything is read or allocated, names are
// checked once per class, nesting is bounded, and every failure is a
// QEN_EStreamException (QEN_EUnknownClass for a class nobody registered) that
// says what was wrong and at which offset.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"

QEN_IPacking::~QEN_IPacking() = default;
QEN_IUnpacking::~QEN_IUnpacking() = default;

const unsigned QEN_TDataStream::sMaxDepth = 64;
const unsigned char QEN_TDataStream::sVersion = 2;

namespace {

constexpr unsigned char kObjectMarker = 'O';
constexpr unsigned char kBeginMarker = '{';
constexpr unsigned char kEndMarker = '}';
constexpr unsigned kMaxNameLength = 255;
constexpr unsigned char kStreamMark = 0xB5;
constexpr unsigned char kLongClassNumber = 0x80;
constexpr unsigned char kNewClass = 0x81;
constexpr unsigned kMaxClasses = 0x10000;
// Room for the classes of a ticket before the tables grow.
constexpr std::size_t kFirstClasses = 16;
// Characters are copied through a block of this many units where they can't
// be read in place.
constexpr unsigned kChunkUnits = 4096;

bool IsNameChar(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

const char* MarkerText(unsigned char marker) {
  switch (marker) {
    case kObjectMarker:
      return "an object";
    case kBeginMarker:
      return "a begin of class";
    default:
      return "an end of class";
  }
}

template <unsigned N>
void ToLittleEndian(unsigned char* bytes, unsigned long long value) {
  for (unsigned i = 0; i < N; ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

template <unsigned N>
unsigned long long FromLittleEndian(const unsigned char* bytes) {
  unsigned long long value = 0;
  for (unsigned i = 0; i < N; ++i) value |= static_cast<unsigned long long>(bytes[i]) << (8 * i);
  return value;
}

[[noreturn]] void Fail(const QEN_TString& message) {
  QEN_THROW(QEN_EStreamException, message);
  std::abort();  // QEN_THROW never comes back
}

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

// The class objects whose names this thread checked for writing. A class
// object's name never changes, so one check serves every later stream.
// The name's address is kept too: a module loaded again may put another
// class object where one was.
struct CheckedClass {
  const QEN_TClass* object;
  const char* name;
  std::size_t length;
};
constexpr unsigned kCheckedClasses = 64;
thread_local CheckedClass tCheckedClasses[kCheckedClasses];

CheckedClass& CheckedSlot(const QEN_TClass* object) {
  std::uint64_t h = reinterpret_cast<std::uintptr_t>(object);
  h *= 0x9E3779B97F4A7C15ull;
  return tCheckedClasses[h >> 58];
}

bool CheckedBefore(const QEN_TClass* object, std::size_t& length) {
  const CheckedClass& checked = CheckedSlot(object);
  if (checked.object != object || checked.name != object->name) return false;
  length = checked.length;
  return true;
}

void RememberChecked(const QEN_TClass* object, std::size_t length) {
  CheckedSlot(object) = CheckedClass{object, object->name, length};
}

}  // namespace

// A class as the reader met it: defined once, then referred to by number.
struct QEN_TDataStream::ReadClass {
  std::string name;                   // kept only for a class that isn't found
  const QEN_TClass* found = nullptr;  // null: not registered in this process
  bool buildable = false;             // Extract's checks passed once
  // Where an object that the factory made has its packable part, from the
  // start of its QEN_TObject part: the same for every object of one type.
  const std::type_info* madeType = nullptr;
  std::ptrdiff_t packable = 0;

  const char* Name() const { return found != nullptr ? found->name : name.c_str(); }
};

// A class as the writer numbered it; its number is its index.
struct QEN_TDataStream::WrittenClass {
  const QEN_TClass* object = nullptr;  // the class object, once an object was written
  std::string frameName;               // the name, when a frame named the class first

  bool Named(const char* name) const {
    return object != nullptr && frameName.empty() ? std::strcmp(object->name, name) == 0
                                                  : frameName == name;
  }
};

// Helpers with access to the stream's state.
class QEN_TDataStream::Impl {
 public:
  template <unsigned N>
  static void PutLittleEndian(QEN_TDataStream& s, unsigned long long value) {
    unsigned char bytes[N];
    ToLittleEndian<N>(bytes, value);
    s.Put(bytes, N);
  }

  template <unsigned N>
  static unsigned long long GetLittleEndian(QEN_TDataStream& s, const char* what) {
    unsigned char bytes[N];
    s.TakeInto(bytes, N, what);
    return FromLittleEndian<N>(bytes);
  }

  [[noreturn]] static void Truncated(const QEN_TDataStream& s, const char* what,
                                     unsigned long long size, unsigned long long left) {
    Fail(QEN_TString::Format("truncated data: %s needs %llu bytes, %llu left at offset %llu", what,
                             size, left, s.mOffset));
  }

  // Bytes left to read.
  static unsigned long long Left(const QEN_TDataStream& s) {
    if (s.mMemory != nullptr) return s.mMemory->mLength - s.mMemory->mPosition;
    return s.mStream.Available() + (s.mPushedBack >= 0 ? 1 : 0);
  }

  static void CheckName(const char* name, std::size_t length, const char* what) {
    bool valid = length > 0 && length <= kMaxNameLength;
    for (std::size_t i = 0; valid && i < length; ++i)
      valid = IsNameChar(static_cast<unsigned char>(name[i]));
    if (!valid)
      Fail(
          QEN_TString::Format("cannot write %s: the class name must be 1 to %u letters, "
                              "digits or '_'",
                              what, kMaxNameLength));
  }

  // Writes `marker` (none for an object) and the class: its number, or its
  // definition the first time. `object` is the class object of an object.
  static void PutClass(QEN_TDataStream& s, unsigned char marker, const char* name,
                       const QEN_TClass* object) {
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
    if (number < classes.size()) {
      if (number < kLongClassNumber) {
        head[n++] = static_cast<unsigned char>(number);
      } else {
        head[n++] = kLongClassNumber;
        head[n++] = static_cast<unsigned char>(number);
        head[n++] = static_cast<unsigned char>(number >> 8);
      }
      return s.Put(head, n);
    }
    std::size_t length;
    if (object != nullptr && CheckedBefore(object, length)) {
      // The class object's name passed the check in an earlier stream.
    } else {
      length = name != nullptr ? std::strlen(name) : 0;
      CheckName(name, length, MarkerText(marker));
      if (object != nullptr) RememberChecked(object, length);
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
  }

  // Reads a mark behind its first byte: the version it names applies from
  // here on, with no classes known yet.
  static void ReadMark(QEN_TDataStream& s, unsigned long long start) {
    unsigned char version = s.TakeByte("a format version");
    if (version != 2)
      Fail(QEN_TString::Format("unknown format version %u at offset %llu", version, start + 1));
    s.mReadVersion = version;
    s.mReadClasses.clear();
  }

  // The first byte of an object or a class frame; a mark met there starts a
  // stream of its own.
  static unsigned char HeadByte(QEN_TDataStream& s, const char* what, unsigned long long& start) {
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
  static const QEN_TClass* ReadName(QEN_TDataStream& s, unsigned long long start,
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

  // The class of an object or frame whose head byte is `byte`, as an index
  // into the stream's table. A first version stream names the class in full
  // each time: it is held in `scratch` (index kScratch).
  static constexpr std::size_t kScratch = ~static_cast<std::size_t>(0);

  static ReadClass& Entry(QEN_TDataStream& s, std::size_t index, ReadClass& scratch) {
    return index == kScratch ? scratch : s.mReadClasses[index];
  }

  static std::size_t ClassAt(QEN_TDataStream& s, unsigned char marker, unsigned char byte,
                             unsigned long long start, ReadClass& scratch) {
    if (s.mReadVersion == 1) {
      if (byte != marker)
        Fail(QEN_TString::Format("expected %s (marker '%c'), found byte 0x%02X at offset %llu",
                                 MarkerText(marker), marker, byte, start));
      scratch.found = ReadName(s, start, scratch.name);
      scratch.buildable = false;
      return kScratch;
    }
    if (marker != kObjectMarker) {
      if (byte != marker)
        Fail(QEN_TString::Format("expected %s (marker '%c'), found byte 0x%02X at offset %llu",
                                 MarkerText(marker), marker, byte, start));
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

  // Bounds the nesting of objects, in both directions: what can't be read
  // back is not written either.
  class Depth {
   public:
    Depth(QEN_TDataStream& s, unsigned long long offset) : mStream(s) {
      if (s.mDepth >= sMaxDepth)
        Fail(
            QEN_TString::Format("objects nested deeper than %u at offset %llu", sMaxDepth, offset));
      ++s.mDepth;
    }
    ~Depth() { --mStream.mDepth; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;

   private:
    QEN_TDataStream& mStream;
  };

  static bool Admitted(const QEN_TDataStream& s, const char* name) {
    if (s.mAdmitted == nullptr) return true;
    for (const char* const* at = s.mAdmitted; *at != nullptr; ++at)
      if (std::strcmp(name, *at) == 0) return true;
    return false;
  }

  // Runs an object's QEN_Unpack. Whatever else fails on the way (a value
  // of the wrong kind, a check of the class itself, a length_error or
  // bad_alloc of the standard library) becomes a stream failure with a
  // place: a reader of outside bytes has one failure type to catch.
  static void Unpack(QEN_TDataStream& s, QEN_IPackable& object, std::size_t index,
                     ReadClass& scratch, unsigned long long start) {
    try {
      object.QEN_Unpack(s);
    } catch (const QEN_EStreamException&) {
      throw;
    } catch (const QEN_EException& e) {
      CannotRead(Entry(s, index, scratch).Name(), start, e.QEN_Message().c_str());
    } catch (const std::exception& e) {
      CannotRead(Entry(s, index, scratch).Name(), start, e.what());
    }
  }

  [[noreturn]] static void CannotRead(const char* name, unsigned long long start, const char* why) {
    Fail(QEN_TString::Format("cannot read object of class \"%s\" at offset %llu: %s", name, start,
                             why));
  }

  static void UnpackFrame(QEN_TDataStream& s, unsigned char marker, const char* name) {
    unsigned long long start = 0;
    unsigned char byte = HeadByte(s, MarkerText(marker), start);
    ReadClass scratch;
    const ReadClass& found = Entry(s, ClassAt(s, marker, byte, start, scratch), scratch);
    if (name == nullptr || std::strcmp(found.Name(), name) != 0)
      Fail(QEN_TString::Format("expected %s \"%s\", found \"%s\" at offset %llu",
                               marker == kBeginMarker ? "begin of class" : "end of class",
                               name != nullptr ? name : "", found.Name(), start));
  }
};

QEN_TDataStream::QEN_TDataStream(QEN_IStream& stream) : mStream(stream) {
  if (typeid(stream) == typeid(QEN_TMemoryStream))
    mMemory = static_cast<QEN_TMemoryStream*>(&stream);
}

QEN_TDataStream::~QEN_TDataStream() = default;

bool QEN_TDataStream::Flush() { return mStream.Flush(); }

// ---------------------------------------------------------------------------
// Bytes in and out

inline void QEN_TDataStream::Put(const void* data, unsigned size) {
  if (mWriteVersion == 0) {
    mWriteVersion = sVersion;
    const unsigned char mark[2] = {kStreamMark, sVersion};
    Put(mark, 2);
  }
  if (mMemory != nullptr) {
    QEN_TMemoryStream& m = *mMemory;
    if (size <= m.mCapacity - m.mLength) {
      if (size > 0) std::memcpy(m.mData + m.mLength, data, size);
      m.mLength += size;
      return;
    }
  }
  if (size > 0) mStream.Write(data, size);
}

// Looks for the mark at the start: without it, the stream is of the first
// version and the byte read belongs to its first item.
void QEN_TDataStream::StartReading() {
  mReadVersion = 1;
  unsigned long long start = mOffset;
  if (mMemory != nullptr) {
    const QEN_TMemoryStream& m = *mMemory;
    if (m.mPosition == m.mLength || m.mData[m.mPosition] != kStreamMark) return;
    TakeByte("a format mark");
  } else {
    unsigned char byte = 0;
    if (mStream.Available() == 0 || mStream.Read(&byte, 1) != 1) return;
    if (byte != kStreamMark) {
      mPushedBack = byte;
      return;
    }
    ++mOffset;
  }
  Impl::ReadMark(*this, start);
}

inline void QEN_TDataStream::TakeInto(void* data, unsigned size, const char* what) {
  if (mReadVersion == 0) StartReading();
  if (mMemory != nullptr) {
    QEN_TMemoryStream& m = *mMemory;
    unsigned left = m.mLength - m.mPosition;
    if (left < size) Impl::Truncated(*this, what, size, left);
    if (size > 0) std::memcpy(data, m.mData + m.mPosition, size);
    m.mPosition += size;
    mOffset += size;
    return;
  }
  unsigned long long left = Impl::Left(*this);
  if (left < size) Impl::Truncated(*this, what, size, left);
  if (size == 0) return;
  unsigned char* out = static_cast<unsigned char*>(data);
  unsigned done = 0;
  if (mPushedBack >= 0) {
    out[done++] = static_cast<unsigned char>(mPushedBack);
    mPushedBack = -1;
  }
  if (done < size) {
    unsigned got = mStream.Read(out + done, size - done);
    if (got != size - done)
      Fail(QEN_TString::Format("truncated data: %s needs %u bytes, got %u at offset %llu", what,
                               size, done + got, mOffset));
  }
  mOffset += size;
}

inline unsigned char QEN_TDataStream::TakeByte(const char* what) {
  unsigned char byte;
  TakeInto(&byte, 1, what);
  return byte;
}

// ---------------------------------------------------------------------------
// Writing

QEN_IPacking& QEN_TDataStream::operator<<(const QEN_IPackable& object) {
  Impl::Depth depth(*this, mOffset);
  const QEN_TClass& cls = object.ClassObject();
  Impl::PutClass(*this, kObjectMarker, cls.name, &cls);
  object.QEN_Pack(*this);
  return *this;
}

QEN_IPacking& QEN_TDataStream::operator<<(double value) {
  unsigned long long bits;
  static_assert(sizeof bits == sizeof value, "a double is 8 bytes");
  std::memcpy(&bits, &value, sizeof bits);
  Impl::PutLittleEndian<8>(*this, bits);
  return *this;
}

QEN_IPacking& QEN_TDataStream::operator<<(bool value) {
  Impl::PutLittleEndian<1>(*this, value ? 1 : 0);
  return *this;
}

QEN_IPacking& QEN_TDataStream::operator<<(unsigned long long value) {
  Impl::PutLittleEndian<8>(*this, value);
  return *this;
}

QEN_IPacking& QEN_TDataStream::operator<<(unsigned value) {
  Impl::PutLittleEndian<4>(*this, value);
  return *this;
}

QEN_IPacking& QEN_TDataStream::operator<<(unsigned short value) {
  Impl::PutLittleEndian<2>(*this, value);
  return *this;
}

QEN_IPacking& QEN_TDataStream::operator<<(unsigned char value) {
  Impl::PutLittleEndian<1>(*this, value);
  return *this;
}

QEN_IPacking& QEN_TDataStream::operator<<(int value) {
  Impl::PutLittleEndian<4>(*this, static_cast<unsigned>(value));
  return *this;
}

QEN_IPacking& QEN_TDataStream::PutBytes(const void* data, unsigned size) {
  Put(data, size);
  return *this;
}

QEN_IPacking& QEN_TDataStream::PackBeginClass(const char* name) {
  Impl::PutClass(*this, kBeginMarker, name, nullptr);
  return *this;
}

QEN_IPacking& QEN_TDataStream::PackEndClass(const char* name) {
  Impl::PutClass(*this, kEndMarker, name, nullptr);
  return *this;
}

// The count as a varint of 2n + wide, then one byte per unit when all of
// them are below 0x100, else two.
QEN_IPacking& QEN_TDataStream::PutChars(const QEN_TUniChar* chars, unsigned count) {
  bool wide = false;
  for (unsigned i = 0; i < count && !wide; ++i) wide = chars[i] > 0xFF;
  unsigned long long head = (static_cast<unsigned long long>(count) << 1) | (wide ? 1 : 0);
  unsigned char bytes[kChunkUnits * 2];
  unsigned n = 0;
  do {
    bytes[n++] = static_cast<unsigned char>((head & 0x7F) | (head > 0x7F ? 0x80 : 0));
    head >>= 7;
  } while (head != 0);
  const unsigned long long size = static_cast<unsigned long long>(count) * (wide ? 2 : 1);
  if (mMemory != nullptr && mWriteVersion != 0 &&
      n + size <= mMemory->mCapacity - mMemory->mLength) {
    // Straight into the memory stream's bytes.
    unsigned char* out = mMemory->mData + mMemory->mLength;
    std::memcpy(out, bytes, n);
    out += n;
    if (wide)
      for (unsigned i = 0; i < count; ++i) ToLittleEndian<2>(out + 2 * i, chars[i]);
    else
      for (unsigned i = 0; i < count; ++i) out[i] = static_cast<unsigned char>(chars[i]);
    mMemory->mLength += n + static_cast<unsigned>(size);
    return *this;
  }
  Put(bytes, n);
  for (unsigned done = 0; done < count;) {
    unsigned piece = std::min(kChunkUnits, count - done);
    if (wide) {
      for (unsigned i = 0; i < piece; ++i) ToLittleEndian<2>(bytes + 2 * i, chars[done + i]);
      Put(bytes, 2 * piece);
    } else {
      for (unsigned i = 0; i < piece; ++i) bytes[i] = static_cast<unsigned char>(chars[done + i]);
      Put(bytes, piece);
    }
    done += piece;
  }
  return *this;
}

// The first version's layout, for other packers.
QEN_IPacking& QEN_IPacking::PutChars(const QEN_TUniChar* chars, unsigned count) {
  *this << count;
  unsigned char bytes[kChunkUnits * 2];
  for (unsigned done = 0; done < count;) {
    unsigned piece = std::min(kChunkUnits, count - done);
    for (unsigned i = 0; i < piece; ++i) ToLittleEndian<2>(bytes + 2 * i, chars[done + i]);
    PutBytes(bytes, 2 * piece);
    done += piece;
  }
  return *this;
}

// ---------------------------------------------------------------------------
// Reading

QEN_IUnpacking& QEN_TDataStream::operator>>(QEN_IPackable& object) {
  const QEN_TClass& expected = object.ClassObject();
  if (mMemory != nullptr && mReadVersion == 2) {
    // The usual case: a class met before in this stream, the expected one,
    // in a memory stream. Anything else takes the checked way below.
    QEN_TMemoryStream& m = *mMemory;
    if (m.mPosition < m.mLength) {
      const unsigned char byte = m.mData[m.mPosition];
      if (byte < kLongClassNumber && byte < mReadClasses.size() &&
          mReadClasses[byte].found == &expected) {
        const unsigned long long at = mOffset;
        ++m.mPosition;
        ++mOffset;
        Impl::Depth depth(*this, at);
        ReadClass scratch;
        Impl::Unpack(*this, object, byte, scratch, at);
        return *this;
      }
    }
  }
  unsigned long long start = 0;
  unsigned char byte = Impl::HeadByte(*this, "an object", start);
  ReadClass scratch;
  std::size_t index = Impl::ClassAt(*this, kObjectMarker, byte, start, scratch);
  const ReadClass& found = Impl::Entry(*this, index, scratch);
  if (found.found != &expected && std::strcmp(found.Name(), expected.name) != 0)
    Fail(QEN_TString::Format("expected an object of class \"%s\", found \"%s\" at offset %llu",
                             expected.name, found.Name(), start));
  Impl::Depth depth(*this, start);
  Impl::Unpack(*this, object, index, scratch, start);
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(double* value) {
  unsigned long long bits = Impl::GetLittleEndian<8>(*this, "a double");
  std::memcpy(value, &bits, sizeof bits);
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(bool* value) {
  unsigned char byte = TakeByte("a bool");
  if (byte > 1)
    Fail(QEN_TString::Format("invalid bool byte 0x%02X at offset %llu", byte, mOffset - 1));
  *value = byte == 1;
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(unsigned long long* value) {
  *value = Impl::GetLittleEndian<8>(*this, "an unsigned 64");
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(unsigned* value) {
  *value = static_cast<unsigned>(Impl::GetLittleEndian<4>(*this, "an unsigned 32"));
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(unsigned short* value) {
  *value = static_cast<unsigned short>(Impl::GetLittleEndian<2>(*this, "an unsigned 16"));
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(unsigned char* value) {
  *value = TakeByte("an unsigned 8");
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(int* value) {
  *value = static_cast<int>(static_cast<unsigned>(Impl::GetLittleEndian<4>(*this, "a signed 32")));
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::GetBytes(void* data, unsigned size) {
  TakeInto(data, size, "a run of bytes");
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::UnpackBeginClass(const char* name) {
  Impl::UnpackFrame(*this, kBeginMarker, name);
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::UnpackEndClass(const char* name) {
  Impl::UnpackFrame(*this, kEndMarker, name);
  return *this;
}

QEN_IPackable* QEN_TDataStream::Extract(bool) {
  unsigned long long start = 0;
  unsigned char byte = Impl::HeadByte(*this, "an object", start);
  ReadClass scratch;
  std::size_t index = Impl::ClassAt(*this, kObjectMarker, byte, start, scratch);
  // The entry may move while the object is read: the table grows.
  ReadClass& entry = Impl::Entry(*this, index, scratch);
  const QEN_TClass* found = entry.found;
  const char* name = entry.Name();
  if (!entry.buildable) {
    if (found == nullptr)
      QEN_THROW(QEN_EUnknownClass,
                QEN_TString::Format("unknown class \"%s\" at offset %llu", name, start));
    if (found->isInterface || found->factory == nullptr)
      Fail(QEN_TString::Format("class \"%s\" at offset %llu has no factory", name, start));
    if (!found->Implements("QEN_IPackable"))
      Fail(QEN_TString::Format("class \"%s\" at offset %llu is not packable", name, start));
  }
  if (!Impl::Admitted(*this, name))
    Fail(QEN_TString::Format("class \"%s\" at offset %llu is not expected here", name, start));
  Impl::Depth depth(*this, start);

  QEN_TObject* made = found->factory();
  if (made == nullptr)
    Fail(QEN_TString::Format("out of memory building class \"%s\" at offset %llu", name, start));
  // Deleted through its QEN_IInterface part unless it is handed out.
  std::unique_ptr<QEN_IInterface> owner(made);
  QEN_IPackable* object;
  if (entry.madeType != nullptr && typeid(*made) == *entry.madeType) {
    object = reinterpret_cast<QEN_IPackable*>(reinterpret_cast<char*>(made) + entry.packable);
  } else {
    object = static_cast<QEN_IPackable*>(owner->DynamicCast("QEN_IPackable"));
    if (object == nullptr)
      Fail(QEN_TString::Format("class \"%s\" at offset %llu is not packable", name, start));
    entry.madeType = &typeid(*made);
    entry.packable = reinterpret_cast<char*>(object) - reinterpret_cast<char*>(made);
  }
  entry.buildable = true;
  Impl::Unpack(*this, *object, index, scratch, start);
  owner.release();
  return object;
}

QEN_IUnpacking& QEN_TDataStream::GetChars(std::u16string& chars) {
  if (mReadVersion == 0) StartReading();
  if (mReadVersion == 1) return QEN_IUnpacking::GetChars(chars);
  if (mMemory != nullptr) {
    // A short count of one byte and 8-bit characters that are all there:
    // straight from the bytes. Anything else takes the checked way below.
    QEN_TMemoryStream& m = *mMemory;
    const unsigned char* in = m.mData + m.mPosition;
    const unsigned left = m.mLength - m.mPosition;
    if (left > 0 && (in[0] & 0x81) == 0 && (in[0] >> 1) < left) {
      const unsigned count = in[0] >> 1;
      chars.resize(count);
      for (unsigned i = 0; i < count; ++i) chars[i] = in[1 + i];
      m.mPosition += 1 + count;
      mOffset += 1 + count;
      return *this;
    }
  }
  unsigned long long start = mOffset;
  unsigned long long head = 0;
  for (unsigned shift = 0;; shift += 7) {
    unsigned char byte = TakeByte("a character count");
    if (shift == 35 || (shift == 28 && (byte & 0x7F) > 0x1F))
      Fail(QEN_TString::Format("character count too large at offset %llu", start));
    head |= static_cast<unsigned long long>(byte & 0x7F) << shift;
    if ((byte & 0x80) == 0) break;
  }
  const bool wide = (head & 1) != 0;
  const unsigned count = static_cast<unsigned>(head >> 1);
  const unsigned long long size = static_cast<unsigned long long>(count) * (wide ? 2 : 1);
  unsigned long long left = Impl::Left(*this);
  if (left < size) Impl::Truncated(*this, "a string", size, left);
  chars.resize(count);
  char16_t* out = &chars[0];
  if (mMemory != nullptr) {
    QEN_TMemoryStream& m = *mMemory;
    const unsigned char* in = m.mData + m.mPosition;
    if (wide)
      for (unsigned i = 0; i < count; ++i)
        out[i] = static_cast<char16_t>(FromLittleEndian<2>(in + 2 * i));
    else
      for (unsigned i = 0; i < count; ++i) out[i] = in[i];
    m.mPosition += static_cast<unsigned>(size);
    mOffset += size;
    return *this;
  }
  unsigned char bytes[kChunkUnits * 2];
  for (unsigned done = 0; done < count;) {
    unsigned piece = std::min(kChunkUnits, count - done);
    TakeInto(bytes, wide ? 2 * piece : piece, "a string");
    for (unsigned i = 0; i < piece; ++i)
      out[done + i] = wide ? static_cast<char16_t>(FromLittleEndian<2>(bytes + 2 * i)) : bytes[i];
    done += piece;
  }
  return *this;
}

// The first version's layout. The text grows only as far as the stream
// really delivers it: a count that promises more than the stream holds fails
// in GetBytes first.
QEN_IUnpacking& QEN_IUnpacking::GetChars(std::u16string& chars) {
  unsigned count = 0;
  *this >> &count;
  std::u16string text;
  unsigned char bytes[kChunkUnits * 2];
  for (unsigned done = 0; done < count;) {
    unsigned piece = std::min(kChunkUnits, count - done);
    GetBytes(bytes, 2 * piece);
    for (unsigned i = 0; i < piece; ++i)
      text += static_cast<char16_t>(FromLittleEndian<2>(bytes + 2 * i));
    done += piece;
  }
  chars = std::move(text);
  return *this;
}
