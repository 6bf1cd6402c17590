// What the source files of the binary stream share: the layout's constants,
// the byte order, the class tables and the helpers with access to the
// stream's state. qen_data_stream.cpp holds the bytes and the items,
// qen_data_stream_classes.cpp the class identification of both versions.
// docs/formats.md describes the layout.
#ifndef QEN_DATA_STREAM_IMPL_H
#define QEN_DATA_STREAM_IMPL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "qen/qen_any.h"
#include "qen/qen_exception.h"
#include "qen/qen_stream.h"

namespace qen_data {

constexpr unsigned char kObjectMarker = 'O';
constexpr unsigned char kBeginMarker = '{';
constexpr unsigned char kEndMarker = '}';
constexpr unsigned kMaxNameLength = 255;
constexpr unsigned char kStreamMark = 0xB5;
// The version that writing uses.
constexpr unsigned char kVersion = 2;
constexpr unsigned char kLongClassNumber = 0x80;
constexpr unsigned char kNewClass = 0x81;
// The classes that every stream knows without naming them: the byte
// kFirstWellKnown + i stands for kWellKnown[i]. The table only ever grows at
// its end; what a byte stands for never changes.
constexpr unsigned char kFirstWellKnown = 0x82;
constexpr const char* kWellKnown[] = {
    "QEN_TString",   "QEN_TAny",        "QEN_TDict",        "QEN_TList",       "QEN_TArray",
    "QEN_TTree",     "QEN_TURL",        "QEN_TTime",        "QEN_TDataBlock",  "QEN_TInterval",
    "QEN_TFileInfo", "QEN_TVolumeInfo", "VYR_TImageTicket", "VYR_TImageProxy", "VYR_TReference",
    "VYR_TTag",      "VYR_TKnot",       "VYR_TInk",         "VYR_TBuffer"};
constexpr unsigned kWellKnownCount = sizeof kWellKnown / sizeof kWellKnown[0];
constexpr bool SameName(const char* a, const char* b) {
  while (*a != 0 && *a == *b) ++a, ++b;
  return *a == *b;
}
static_assert(SameName(kWellKnown[0], "QEN_TString") && SameName(kWellKnown[1], "QEN_TAny"),
              "the texts and variants of containers are written by these bytes");
inline bool IsWellKnown(unsigned char byte) {
  return byte >= kFirstWellKnown && byte - kFirstWellKnown < static_cast<int>(kWellKnownCount);
}
// The code a writer keeps for a class: the one byte that stands for it, or
// kNotOneByte and above for a class that takes more.
constexpr unsigned kNotOneByte = 0x100;
// Objects nested deeper than this are refused, both ways.
constexpr unsigned kMaxDepth = 64;
constexpr unsigned kMaxClasses = 0x10000;
// Room for the classes of a ticket before the tables grow; the tables stay
// small enough for the allocator's per-thread cache of small blocks.
constexpr std::size_t kFirstClasses = 12;
// Characters are copied through a block of this many units where they can't
// be read in place.
constexpr unsigned kChunkUnits = 4096;

inline bool IsNameChar(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

inline const char* MarkerText(unsigned char marker) {
  switch (marker) {
    case kObjectMarker:
      return "an object";
    case kBeginMarker:
      return "a begin of class";
    default:
      return "an end of class";
  }
}

// On a little-endian host the bytes are the number's own: one move each way.
constexpr bool kLittleEndianHost = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

template <unsigned N>
void ToLittleEndian(unsigned char* bytes, unsigned long long value) {
  if (kLittleEndianHost) {
    std::memcpy(bytes, &value, N);
    return;
  }
  for (unsigned i = 0; i < N; ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

template <unsigned N>
unsigned long long FromLittleEndian(const unsigned char* bytes) {
  unsigned long long value = 0;
  if (kLittleEndianHost) {
    std::memcpy(&value, bytes, N);
    return value;
  }
  for (unsigned i = 0; i < N; ++i) value |= static_cast<unsigned long long>(bytes[i]) << (8 * i);
  return value;
}

// Throws a QEN_EStreamException with the message.
[[noreturn]] void Fail(const QEN_TString& message);

// The slot of the written-types table that a C++ type takes.
inline unsigned TypeSlot(const std::type_info* type) {
  return static_cast<unsigned>((reinterpret_cast<std::uintptr_t>(type) * 0x9E3779B97F4A7C15ull) >>
                               60);
}

}  // namespace qen_data

// A class as the reader met it: defined once, then referred to by number.
struct QEN_TDataStream::ReadClass {
  std::string name;                   // kept only for a class that isn't found
  const QEN_TClass* found = nullptr;  // null: not registered in this process
  bool buildable = false;             // Extract's checks passed once
  // Where an object that the factory made has its packable part, from the
  // start of its QEN_TObject part: the same for every object of one type.
  const std::type_info* madeType = nullptr;
  std::ptrdiff_t packable = 0;
  // The C++ type of an object that was read into as this class: another
  // object of that type is of this class without asking it.
  const std::type_info* knownType = nullptr;

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
    qen_data::ToLittleEndian<N>(bytes, value);
    s.Put(bytes, N);
  }

  template <unsigned N>
  static unsigned long long GetLittleEndian(QEN_TDataStream& s, const char* what) {
    unsigned char bytes[N];
    s.TakeInto(bytes, N, what);
    return qen_data::FromLittleEndian<N>(bytes);
  }

  [[noreturn]] static void Truncated(const QEN_TDataStream& s, const char* what,
                                     unsigned long long size, unsigned long long left);

  // Bytes left to read.
  static unsigned long long Left(const QEN_TDataStream& s) {
    if (s.mMemory != nullptr) return s.mMemory->mLength - s.mMemory->mPosition;
    return s.mStream.Available() + (s.mPushedBack >= 0 ? 1 : 0);
  }

  // Writing (qen_data_stream_classes.cpp).
  // The class of an object whose C++ type has no class number yet.
  static void PutObjectClass(QEN_TDataStream& s, const QEN_IPackable& object);
  // Writes `marker` (none for an object) and the class: its byte if it is
  // well-known, else its number, or its definition the first time; gives the
  // code to keep for it (see kNotOneByte). `object` is the class object of an
  // object.
  static unsigned PutClass(QEN_TDataStream& s, unsigned char marker, const char* name,
                           const QEN_TClass* object);

  // operator>> where the class is not known for the object's type yet.
  static QEN_IUnpacking& ReadObject(QEN_TDataStream& s, QEN_IPackable& object);

  // Reading (qen_data_stream_classes.cpp).
  static void ReadMark(QEN_TDataStream& s, unsigned long long start);
  static unsigned char HeadByte(QEN_TDataStream& s, const char* what, unsigned long long& start);
  static const QEN_TClass* ReadName(QEN_TDataStream& s, unsigned long long start,
                                    std::string& name);
  // The class of an object or frame whose head byte is `byte`, as an index
  // into the stream's table. A first version stream names the class in full
  // each time: it is held in `scratch` (index kScratch).
  // A well-known class is at kWellKnownIndex and on, in a table of this
  // thread's (a class object and what was learnt about it hold for every
  // stream).
  static constexpr std::size_t kScratch = ~static_cast<std::size_t>(0);
  static constexpr std::size_t kWellKnownIndex = std::size_t(1) << 20;
  static_assert(qen_data::kWellKnownCount <= kWellKnownSlots, "a slot for each");
  static std::size_t ClassAt(QEN_TDataStream& s, unsigned char marker, unsigned char byte,
                             unsigned long long start, ReadClass& scratch);
  static ReadClass& Entry(QEN_TDataStream& s, std::size_t index, ReadClass* scratch) {
    if (index < kWellKnownIndex) return s.mReadClasses[index];
    return index == kScratch ? *scratch : WellKnown(index - kWellKnownIndex);
  }
  static ReadClass& WellKnown(std::size_t i);
  static void UnpackFrame(QEN_TDataStream& s, unsigned char marker, const char* name);
  static bool Admitted(const QEN_TDataStream& s, const char* name);

  // The index of a class met before in this stream and standing next, in
  // a memory stream of the current version, taken from the stream; or
  // kScratch, with nothing taken. With a `type`, only a class that an object
  // of that C++ type was read into before. The usual case of reading an
  // object.
  static std::size_t KnownClassNext(QEN_TDataStream& s, const std::type_info* type,
                                    unsigned long long& start) {
    if (s.mMemory == nullptr || s.mReadVersion != qen_data::kVersion) return kScratch;
    QEN_TMemoryStream& m = *s.mMemory;
    if (m.mPosition == m.mLength) return kScratch;
    const unsigned char byte = m.mData[m.mPosition];
    std::size_t index = byte;
    if (byte < qen_data::kLongClassNumber && byte < s.mReadClasses.size()) {
      if (type != nullptr && s.mReadClasses[byte].knownType != type) return kScratch;
    } else if (qen_data::IsWellKnown(byte)) {
      const std::size_t i = byte - qen_data::kFirstWellKnown;
      if (type == nullptr) {
        if (WellKnown(i).found == nullptr) return kScratch;
      } else if (s.mWellKnownTypes[i] != type) {
        // Read into as this class before on this thread, in another stream.
        if (WellKnown(i).knownType != type) return kScratch;
        s.mWellKnownTypes[i] = type;
      }
      index = kWellKnownIndex + i;
    } else {
      return kScratch;
    }
    start = s.mOffset;
    ++m.mPosition;
    ++s.mOffset;
    return index;
  }

  // Runs an object's QEN_Unpack. Whatever else fails on the way (a value
  // of the wrong kind, a check of the class itself, a length_error or
  // bad_alloc of the standard library) becomes a stream failure with a
  // place: a reader of outside bytes has one failure type to catch.
  static void Unpack(QEN_TDataStream& s, QEN_IPackable& object, std::size_t index,
                     ReadClass* scratch, unsigned long long start);
  // Runs read() the same way; `name()` gives the class, asked only on a
  // failure.
  template <class Name, class Read>
  static void Translated(unsigned long long start, Name name, Read read) {
    try {
      read();
    } catch (const QEN_EStreamException&) {
      throw;
    } catch (const QEN_EException& e) {
      CannotRead(name(), start, e.QEN_Message().c_str());
    } catch (const std::exception& e) {
      CannotRead(name(), start, e.what());
    }
  }
  [[noreturn]] static void CannotRead(const char* name, unsigned long long start, const char* why);
  // Builds the object of the class at `index` and reads it.
  static QEN_IPackable* Build(QEN_TDataStream& s, std::size_t index, ReadClass* scratch,
                              unsigned long long start);

  // Bounds the nesting of objects, in both directions: what can't be read
  // back is not written either.
  class Depth {
   public:
    Depth(QEN_TDataStream& s, unsigned long long offset) : mStream(s) {
      if (s.mDepth >= qen_data::kMaxDepth) TooDeep(offset);
      ++s.mDepth;
    }
    ~Depth() { --mStream.mDepth; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;

   private:
    [[noreturn]] static void TooDeep(unsigned long long offset);
    QEN_TDataStream& mStream;
  };
};

namespace qen_data {

// The bytes of the value of each kind code of a variant in the binary form;
// -1 for the codes whose value is not a number.
constexpr signed char kValueBytes[] = {0, 1, 1, 2, 4, 8, 4, 8, 8, -1, -1, -1};

inline int ValueBytes(unsigned char code) {
  return code < sizeof kValueBytes ? kValueBytes[code] : -1;
}

// The base values' own way in and out of a plain memory stream of the
// current version. Their items go straight to and from its bytes, and the
// objects they hold (a dictionary's keys and values, a list's values) skip
// the virtual calls of operator<< and operator>> where the class stands as a
// number already. Whatever doesn't fit that takes the stream's checked way,
// which gives the same bytes and the same failures.
class InPlace {
 public:
  // The stream behind `in` or `out` when it reads or writes a plain memory
  // stream of the current version; null for any other.
  static QEN_TDataStream* Reading(QEN_IUnpacking& in) {
    if (typeid(in) != typeid(QEN_TDataStream)) return nullptr;
    return Reading(static_cast<QEN_TDataStream&>(in));
  }
  static QEN_TDataStream* Writing(QEN_IPacking& out) {
    if (typeid(out) != typeid(QEN_TDataStream)) return nullptr;
    return Writing(static_cast<QEN_TDataStream&>(out));
  }
  static QEN_TDataStream* Reading(QEN_TDataStream& s) {
    return s.mMemory != nullptr && s.mReadVersion == kVersion ? &s : nullptr;
  }
  static QEN_TDataStream* Writing(QEN_TDataStream& s) {
    return s.mMemory != nullptr && s.mWriteVersion == kVersion ? &s : nullptr;
  }

  // The bytes at the read position, and how many there are.
  static const unsigned char* Next(const QEN_TDataStream& s, unsigned& left) {
    const QEN_TMemoryStream& m = *s.mMemory;
    left = m.mLength - m.mPosition;
    return m.mData + m.mPosition;
  }
  static void Took(QEN_TDataStream& s, unsigned size) {
    s.mMemory->mPosition += size;
    s.mOffset += size;
  }

  // Room for `size` bytes at the write position, or null.
  static unsigned char* Room(QEN_TDataStream& s, unsigned size) {
    QEN_TMemoryStream& m = *s.mMemory;
    return size <= m.mCapacity - m.mLength ? m.mData + m.mLength : nullptr;
  }
  static void Wrote(QEN_TDataStream& s, unsigned size) { s.mMemory->mLength += size; }

  // A variant's number (or nothing) and a short text of 8-bit characters,
  // straight to and from the bytes: false, with nothing read or written, for
  // any other value and where the bytes or the room are not all there.
  static bool PutValue(QEN_TDataStream& s, const QEN_TAny& any) {
    unsigned char* room = Room(s, 9);
    if (room == nullptr || ValueBytes(any.mKind) < 0) return false;
    Wrote(s, EncodeValue(room, any));
    return true;
  }
  static bool GetValue(QEN_TDataStream& s, QEN_TAny& any) {
    unsigned left = 0;
    const unsigned char* at = Next(s, left);
    const unsigned took = DecodeValue(at, left, any);
    if (took == 0) return false;
    Took(s, took);
    return true;
  }
  // The same between a variant holding a number (or nothing) and the bytes
  // at `out`, which has room for 9 of them: the bytes written.
  static unsigned EncodeValue(unsigned char* out, const QEN_TAny& any) {
    unsigned long long bits = 0;
    switch (any.mKind) {
      case QEN_TAny::kBool:
        bits = any.mBool ? 1 : 0;
        break;
      case QEN_TAny::kUInt8:
        bits = any.mUInt8;
        break;
      case QEN_TAny::kUInt16:
        bits = any.mUInt16;
        break;
      case QEN_TAny::kUInt32:
        bits = any.mUInt32;
        break;
      case QEN_TAny::kInt32:
        bits = static_cast<unsigned>(any.mInt32);
        break;
      case QEN_TAny::kDouble:
        std::memcpy(&bits, &any.mDouble, sizeof bits);
        break;
      default:  // nothing, and the 64-bit numbers
        bits = any.mUInt64;
        break;
    }
    out[0] = any.mKind;
    ToLittleEndian<8>(out + 1, bits);
    return 1 + static_cast<unsigned>(ValueBytes(any.mKind));
  }
  // From the `left` bytes at `at`: the bytes taken, or 0, with `any`
  // untouched, when they hold no number of a variant.
  static unsigned DecodeValue(const unsigned char* at, unsigned left, QEN_TAny& any) {
    const int size = left > 0 ? ValueBytes(at[0]) : -1;
    if (size < 0 || left < 1u + size || (at[0] == QEN_TAny::kBool && at[1] > 1)) return 0;
    unsigned long long bits = 0;
    switch (size) {
      case 1:
        bits = at[1];
        break;
      case 2:
        bits = FromLittleEndian<2>(at + 1);
        break;
      case 4:
        bits = FromLittleEndian<4>(at + 1);
        break;
      case 8:
        bits = FromLittleEndian<8>(at + 1);
        break;
    }
    any.Clear();
    any.mKind = static_cast<QEN_TAny::Kind>(at[0]);
    switch (any.mKind) {
      case QEN_TAny::kBool:
        any.mBool = bits != 0;
        break;
      case QEN_TAny::kUInt8:
        any.mUInt8 = static_cast<unsigned char>(bits);
        break;
      case QEN_TAny::kUInt16:
        any.mUInt16 = static_cast<unsigned short>(bits);
        break;
      case QEN_TAny::kUInt32:
        any.mUInt32 = static_cast<unsigned>(bits);
        break;
      case QEN_TAny::kInt32:
        any.mInt32 = static_cast<int>(static_cast<unsigned>(bits));
        break;
      case QEN_TAny::kDouble:
        std::memcpy(&any.mDouble, &bits, sizeof bits);
        break;
      default:  // nothing, and the 64-bit numbers
        any.mUInt64 = bits;
        break;
    }
    return 1 + static_cast<unsigned>(size);
  }
  static bool PutValue(QEN_TDataStream& s, const QEN_TString& text) {
    return PutNarrow(s, text.mText.data(), text.mText.size());
  }
  static bool GetValue(QEN_TDataStream& s, QEN_TString& text) {
    if (!GetNarrow(s, text.mText)) return false;
    text.Changed();
    return true;
  }

  // Sets `text` to the n characters at `chars`, each through `map`, in the
  // room it has: for readers that take a text from the middle of others.
  template <class C, class Map>
  static void Assign(QEN_TString& text, const C* chars, std::size_t n, Map map) {
    Widen(text.mText, chars, n, map);
    text.Changed();
  }
  template <class C, class Map>
  static void Widen(std::u16string& text, const C* chars, std::size_t n, Map map) {
    text.resize(n);
    char16_t* out = &text[0];
    for (std::size_t i = 0; i < n; ++i) out[i] = map(chars[i]);
  }
  static char16_t Same(unsigned char c) { return c; }
  // Puts the n characters at `chars` as bytes at `out`: false, with `out`
  // as it may stand then, when some of them is above 0xFF.
  static bool Narrow(unsigned char* out, const char16_t* chars, std::size_t n) {
    unsigned all = 0;
    for (std::size_t i = 0; i < n; ++i) {
      all |= chars[i];
      out[i] = static_cast<unsigned char>(chars[i]);
    }
    return all <= 0xFF;
  }

  // A short text all of whose characters are below 0x100, written as one
  // byte of count and a byte per character; false, with nothing written,
  // for any other or where the room is not there.
  static bool PutNarrow(QEN_TDataStream& s, const char16_t* chars, std::size_t count) {
    return PutNarrow(s, count, [&](unsigned char* out) { return Narrow(out, chars, count); });
  }
  // The same for a text that fill(out) puts in the count bytes at `out`,
  // giving false where it is not of 8-bit characters after all.
  template <class Fill>
  static bool PutNarrow(QEN_TDataStream& s, std::size_t count, Fill fill) {
    unsigned char* room = count < 64 ? Room(s, static_cast<unsigned>(count) + 1) : nullptr;
    if (room == nullptr || !fill(room + 1)) return false;
    room[0] = static_cast<unsigned char>(count << 1);
    Wrote(s, static_cast<unsigned>(count) + 1);
    return true;
  }
  // Reads a text of 8-bit characters standing next into `chars`; false,
  // with nothing read, for any other.
  static bool GetNarrow(QEN_TDataStream& s, std::u16string& chars) {
    unsigned count = 0, head = 0;
    const unsigned char* at = NarrowText(s, count, head);
    if (at == nullptr) return false;
    Widen(chars, at, count, Same);
    Took(s, head + count);
    return true;
  }

  // The characters of a text of 8-bit characters standing next, with a
  // count of one or two bytes, when they are all there: their count, and the
  // bytes of the count in `head`. Null for anything else.
  static const unsigned char* NarrowText(const QEN_TDataStream& s, unsigned& count,
                                         unsigned& head) {
    unsigned left = 0;
    const unsigned char* at = Next(s, left);
    return NarrowText(at, left, count, head);
  }
  // The same from the `left` bytes at `at`.
  static const unsigned char* NarrowText(const unsigned char* at, unsigned left, unsigned& count,
                                         unsigned& head) {
    if (left == 0 || (at[0] & 1) != 0) return nullptr;
    if (at[0] < 0x80) {
      count = at[0] >> 1;
      head = 1;
    } else {
      if (left < 2 || at[1] >= 0x80) return nullptr;
      count = ((at[0] & 0x7F) | static_cast<unsigned>(at[1]) << 7) >> 1;
      head = 2;
    }
    return count <= left - head ? at + head : nullptr;
  }

  // An entry of a dictionary whose key is a short text of 8-bit characters
  // and whose value a variant's number, written or read in one go: false,
  // with nothing written or read, for any other. The bytes are the same as
  // the key's and the value's one after the other. `s` is Writing(out) or
  // Reading(in), or null.
  static bool TryWriteEntry(QEN_TDataStream* s, const QEN_TString& key, const QEN_TAny& value) {
    const std::size_t count = key.mText.size();
    if (s == nullptr || count >= 64 || ValueBytes(value.mKind) < 0 || s->mDepth >= kMaxDepth)
      return false;
    unsigned char* room = Room(*s, static_cast<unsigned>(count) + 12);
    if (room == nullptr || !Narrow(room + 2, key.mText.data(), count)) return false;
    room[0] = ByteOf<QEN_TString>();
    room[1] = static_cast<unsigned char>(count << 1);
    room[2 + count] = ByteOf<QEN_TAny>();
    Wrote(*s, static_cast<unsigned>(count) + 3 + EncodeValue(room + 3 + count, value));
    return true;
  }
  static bool TryReadEntry(QEN_TDataStream* s, QEN_TString& key, QEN_TAny& value) {
    if (s == nullptr || s->mDepth >= kMaxDepth) return false;
    unsigned left = 0, count = 0, head = 0;
    const unsigned char* at = Next(*s, left);
    if (left == 0 || at[0] != ByteOf<QEN_TString>()) return false;
    const unsigned char* chars = NarrowText(at + 1, left - 1, count, head);
    if (chars == nullptr) return false;
    const unsigned keyBytes = 1 + head + count;
    if (left == keyBytes || at[keyBytes] != ByteOf<QEN_TAny>()) return false;
    const unsigned valueBytes = DecodeValue(at + keyBytes + 1, left - keyBytes - 1, value);
    if (valueBytes == 0) return false;
    Assign(key, chars, count, Same);
    Took(*s, keyBytes + 1 + valueBytes);
    return true;
  }

  // The byte that stands for T, a text or a variant: both are well-known
  // classes.
  template <class T>
  static constexpr unsigned char ByteOf() {
    static_assert(std::is_same<T, QEN_TString>::value || std::is_same<T, QEN_TAny>::value,
                  "a well-known class");
    return std::is_same<T, QEN_TString>::value ? kFirstWellKnown : kFirstWellKnown + 1;
  }

  // Reads the next object into `object`, which is a T itself, when the
  // stream holds T's own byte next: false, with nothing read, for anything
  // else. `s` is Reading(in), or null.
  template <class T>
  static bool TryRead(QEN_TDataStream* s, T& object) {
    unsigned left = 0;
    const unsigned char* at = s != nullptr ? Next(*s, left) : nullptr;
    if (left == 0 || at[0] != ByteOf<T>() || s->mDepth >= kMaxDepth) return false;
    const unsigned long long start = s->mOffset;
    Took(*s, 1);
    // A value read straight from the bytes holds nothing nested.
    if (GetValue(*s, object)) return true;
    QEN_TDataStream::Impl::Depth depth(*s, start);
    QEN_TDataStream::Impl::Translated(
        start, [] { return T::QEN_ClassName(); }, [&] { object.T::QEN_Unpack(*s); });
    return true;
  }
  // The same as operator>> does it.
  template <class T>
  static void Read(QEN_IUnpacking& in, QEN_TDataStream* s, T& object) {
    if (!TryRead(s, object)) in >> object;
  }

  // Writes `object`, which is a T itself, by T's own byte: false, with
  // nothing written, where that cannot be. `s` is Writing(out), or null.
  template <class T>
  static bool TryWrite(QEN_TDataStream* s, const T& object) {
    unsigned char* room = s != nullptr ? Room(*s, 1) : nullptr;
    if (room == nullptr || s->mDepth >= kMaxDepth) return false;
    *room = ByteOf<T>();
    Wrote(*s, 1);
    if (PutValue(*s, object)) return true;
    QEN_TDataStream::Impl::Depth depth(*s, s->mOffset);
    object.T::QEN_Pack(*s);
    return true;
  }
  // The same as operator<< does it.
  template <class T>
  static void Write(QEN_IPacking& out, QEN_TDataStream* s, const T& object) {
    if (!TryWrite(s, object)) out << object;
  }

  // TryRead and TryWrite for an object of any class whose C++ type is
  // `type`: false for all but a variant and a text. (A dynamic_cast to void
  // finds the whole object by the offset its table gives, with no search.)
  static bool TryRead(QEN_TDataStream& s, const std::type_info* type, QEN_IPackable& object) {
    if (type != &typeid(QEN_TAny) && type != &typeid(QEN_TString)) return false;
    void* whole = dynamic_cast<void*>(&object);
    return type == &typeid(QEN_TAny) ? TryRead(Reading(s), *static_cast<QEN_TAny*>(whole))
                                     : TryRead(Reading(s), *static_cast<QEN_TString*>(whole));
  }
  static bool TryWrite(QEN_TDataStream& s, const std::type_info* type,
                       const QEN_IPackable& object) {
    if (type != &typeid(QEN_TAny) && type != &typeid(QEN_TString)) return false;
    const void* whole = dynamic_cast<const void*>(&object);
    return type == &typeid(QEN_TAny)
               ? TryWrite(Writing(s), *static_cast<const QEN_TAny*>(whole))
               : TryWrite(Writing(s), *static_cast<const QEN_TString*>(whole));
  }
};

}  // namespace qen_data

// ---------------------------------------------------------------------------
// Bytes in and out

inline void QEN_TDataStream::Put(const void* data, unsigned size) {
  if (mWriteVersion == 0) {
    mWriteVersion = qen_data::kVersion;
    const unsigned char mark[2] = {qen_data::kStreamMark, qen_data::kVersion};
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
  TakeFromStream(data, size, what);
}

inline unsigned char QEN_TDataStream::TakeByte(const char* what) {
  unsigned char byte;
  TakeInto(&byte, 1, what);
  return byte;
}

#endif
