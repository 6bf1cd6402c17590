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
#include <typeinfo>

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
  // The class of an object, by number once its C++ type was written before.
  static void PutObjectClass(QEN_TDataStream& s, const QEN_IPackable& object);
  // Writes `marker` (none for an object) and the class: its number, or its
  // definition the first time; gives the number. `object` is the class
  // object of an object.
  static unsigned PutClass(QEN_TDataStream& s, unsigned char marker, const char* name,
                           const QEN_TClass* object);

  // Reading (qen_data_stream_classes.cpp).
  static void ReadMark(QEN_TDataStream& s, unsigned long long start);
  static unsigned char HeadByte(QEN_TDataStream& s, const char* what, unsigned long long& start);
  static const QEN_TClass* ReadName(QEN_TDataStream& s, unsigned long long start,
                                    std::string& name);
  // The class of an object or frame whose head byte is `byte`, as an index
  // into the stream's table. A first version stream names the class in full
  // each time: it is held in `scratch` (index kScratch).
  static constexpr std::size_t kScratch = ~static_cast<std::size_t>(0);
  static std::size_t ClassAt(QEN_TDataStream& s, unsigned char marker, unsigned char byte,
                             unsigned long long start, ReadClass& scratch);
  static ReadClass& Entry(QEN_TDataStream& s, std::size_t index, ReadClass* scratch) {
    return index == kScratch ? *scratch : s.mReadClasses[index];
  }
  static void UnpackFrame(QEN_TDataStream& s, unsigned char marker, const char* name);
  static bool Admitted(const QEN_TDataStream& s, const char* name);

  // The index of a class met before in this stream and standing next, in
  // a memory stream of the current version, taken from the stream; or
  // kScratch, with nothing taken. The usual case of reading an object.
  static std::size_t KnownClassNext(QEN_TDataStream& s, unsigned long long& start) {
    if (s.mMemory == nullptr || s.mReadVersion != qen_data::kVersion) return kScratch;
    QEN_TMemoryStream& m = *s.mMemory;
    if (m.mPosition == m.mLength) return kScratch;
    const unsigned char byte = m.mData[m.mPosition];
    if (byte >= qen_data::kLongClassNumber || byte >= s.mReadClasses.size()) return kScratch;
    start = s.mOffset;
    ++m.mPosition;
    ++s.mOffset;
    return byte;
  }

  // Runs an object's QEN_Unpack. Whatever else fails on the way (a value
  // of the wrong kind, a check of the class itself, a length_error or
  // bad_alloc of the standard library) becomes a stream failure with a
  // place: a reader of outside bytes has one failure type to catch.
  static void Unpack(QEN_TDataStream& s, QEN_IPackable& object, std::size_t index,
                     ReadClass* scratch, unsigned long long start);
  template <class Read>
  static void Guarded(QEN_TDataStream& s, std::size_t index, ReadClass* scratch,
                      unsigned long long start, Read read) {
    try {
      read();
    } catch (const QEN_EStreamException&) {
      throw;
    } catch (const QEN_EException& e) {
      CannotRead(Entry(s, index, scratch).Name(), start, e.QEN_Message().c_str());
    } catch (const std::exception& e) {
      CannotRead(Entry(s, index, scratch).Name(), start, e.what());
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
      if (s.mDepth >= sMaxDepth) TooDeep(offset);
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
    QEN_TDataStream& s = static_cast<QEN_TDataStream&>(in);
    return s.mMemory != nullptr && s.mReadVersion == kVersion ? &s : nullptr;
  }
  static QEN_TDataStream* Writing(QEN_IPacking& out) {
    if (typeid(out) != typeid(QEN_TDataStream)) return nullptr;
    QEN_TDataStream& s = static_cast<QEN_TDataStream&>(out);
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

  // Reads the next object into `object`, which is a T itself, as operator>>
  // does. `s` is Reading(in).
  template <class T>
  static void Read(QEN_IUnpacking& in, QEN_TDataStream* s, T& object) {
    if (s != nullptr) {
      unsigned left;
      const unsigned char* at = Next(*s, left);
      if (left > 0 && at[0] < kLongClassNumber && at[0] < s->mReadClasses.size() &&
          s->mReadClasses[at[0]].knownType == &typeid(T)) {
        const std::size_t index = at[0];
        const unsigned long long start = s->mOffset;
        Took(*s, 1);
        QEN_TDataStream::Impl::Depth depth(*s, start);
        QEN_TDataStream::Impl::Guarded(*s, index, nullptr, start,
                                       [&] { object.T::QEN_Unpack(*s); });
        return;
      }
    }
    in >> object;
  }

  // Writes `object`, which is a T itself, as operator<< does. `s` is
  // Writing(out).
  template <class T>
  static void Write(QEN_IPacking& out, QEN_TDataStream* s, const T& object) {
    if (s != nullptr) {
      const QEN_TDataStream::WrittenType& slot = s->mWrittenTypes[TypeSlot(&typeid(T))];
      unsigned char* room = Room(*s, 1);
      if (slot.type == &typeid(T) && slot.number < kLongClassNumber && room != nullptr &&
          s->mDepth < QEN_TDataStream::sMaxDepth) {
        *room = static_cast<unsigned char>(slot.number);
        Wrote(*s, 1);
        QEN_TDataStream::Impl::Depth depth(*s, s->mOffset);
        object.T::QEN_Pack(*s);
        return;
      }
    }
    out << object;
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
