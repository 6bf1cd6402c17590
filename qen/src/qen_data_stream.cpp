// The binary stream: its bytes and items, objects written and read. The
// class identification is in qen_data_stream_classes.cpp, what both share in
// qen_data_stream_impl.h. docs/formats.md describes the layout. Version 2,
// which is written:
//
//   mark         B5 02 at the start of what one QEN_TDataStream wrote
//   numbers      little-endian, fixed width; a double is its IEEE-754 bits
//   bool         one byte, 0 or 1
//   class        a number 00-7F, or 80 and a 16-bit number, of a class named
//                before in the stream; or 81, name length, name: a new class,
//                which takes the next number; or 82 and on: a class of the
//                well-known table
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
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>

#include "qen_data_stream_impl.h"

using namespace qen_data;

QEN_IPacking::~QEN_IPacking() = default;
QEN_IUnpacking::~QEN_IUnpacking() = default;

const unsigned QEN_TDataStream::sMaxDepth = kMaxDepth;
const unsigned char QEN_TDataStream::sVersion = kVersion;

namespace {

// The classes this thread built objects of. A class object stays for the
// life of the process, so the checks it passed once hold ever after, and an
// object of the same type has its packable part at the same place.
struct BuiltClass {
  const QEN_TClass* cls;
  const std::type_info* type;
  std::ptrdiff_t packable;
};
constexpr unsigned kBuiltClasses = 64;  // the top six bits of a hash pick one
thread_local BuiltClass tBuiltClasses[kBuiltClasses];

BuiltClass& BuiltSlot(const QEN_TClass* cls) {
  return tBuiltClasses[(reinterpret_cast<std::uintptr_t>(cls) * 0x9E3779B97F4A7C15ull) >> 58];
}

}  // namespace

QEN_TDataStream::QEN_TDataStream(QEN_IStream& stream) : mStream(stream) {
  if (typeid(stream) == typeid(QEN_TMemoryStream))
    mMemory = static_cast<QEN_TMemoryStream*>(&stream);
}

QEN_TDataStream::~QEN_TDataStream() = default;

bool QEN_TDataStream::Flush() { return mStream.Flush(); }

// ---------------------------------------------------------------------------
// Bytes in and out

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

// TakeInto for a byte stream other than memory.
void QEN_TDataStream::TakeFromStream(void* data, unsigned size, const char* what) {
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

// ---------------------------------------------------------------------------
// Writing

QEN_IPacking& QEN_TDataStream::operator<<(const QEN_IPackable& object) {
  const std::type_info* type = &typeid(object);
  // The most usual objects, a variant and a text, by their own byte.
  if (InPlace::TryWrite(*this, type, object)) return *this;
  Impl::Depth depth(*this, mOffset);
  // The usual case: the class number of a type written before.
  const WrittenType& slot = mWrittenTypes[TypeSlot(type)];
  if (slot.type == type && slot.number < kNotOneByte) {
    const unsigned char number = static_cast<unsigned char>(slot.number);
    Put(&number, 1);
  } else {
    Impl::PutObjectClass(*this, object);
  }
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
  // A short text, most likely of 8-bit characters: one pass straight into
  // the memory stream's bytes.
  if (mMemory != nullptr && mWriteVersion != 0 && InPlace::PutNarrow(*this, chars, count))
    return *this;
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

// ---------------------------------------------------------------------------
// Reading

QEN_IUnpacking& QEN_TDataStream::operator>>(QEN_IPackable& object) {
  const std::type_info* type = &typeid(object);
  // The most usual objects, a variant and a text, by their own byte.
  if (InPlace::TryRead(*this, type, object)) return *this;
  // The usual case: a class met before, into an object of a type read into
  // as that class before.
  unsigned long long start = 0;
  const std::size_t index = Impl::KnownClassNext(*this, type, start);
  if (index == Impl::kScratch) return Impl::ReadObject(*this, object);
  Impl::Depth depth(*this, start);
  Impl::Unpack(*this, object, index, nullptr, start);
  return *this;
}

// operator>> where the class is not known for the object's type yet.
QEN_IUnpacking& QEN_TDataStream::Impl::ReadObject(QEN_TDataStream& s, QEN_IPackable& object) {
  const QEN_TClass& expected = object.ClassObject();
  unsigned long long start = 0;
  unsigned char byte = HeadByte(s, "an object", start);
  ReadClass scratch;
  const std::size_t index = ClassAt(s, kObjectMarker, byte, start, scratch);
  ReadClass& found = Entry(s, index, &scratch);
  if (found.found != &expected && std::strcmp(found.Name(), expected.name) != 0)
    Fail(QEN_TString::Format("expected an object of class \"%s\", found \"%s\" at offset %llu",
                             expected.name, found.Name(), start));
  if (found.found == &expected) {
    // A well-known class's entry is this thread's: the type is known for
    // later streams too.
    found.knownType = &typeid(object);
    if (index >= kWellKnownIndex && index != kScratch)
      s.mWellKnownTypes[index - kWellKnownIndex] = &typeid(object);
  }
  Depth depth(s, start);
  Unpack(s, object, index, &scratch, start);
  return s;
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
  std::size_t index = Impl::KnownClassNext(*this, nullptr, start);
  if (index != Impl::kScratch) return Impl::Build(*this, index, nullptr, start);
  unsigned char byte = Impl::HeadByte(*this, "an object", start);
  ReadClass scratch;
  index = Impl::ClassAt(*this, kObjectMarker, byte, start, scratch);
  return Impl::Build(*this, index, &scratch, start);
}

void QEN_TDataStream::Impl::Unpack(QEN_TDataStream& s, QEN_IPackable& object, std::size_t index,
                                   ReadClass* scratch, unsigned long long start) {
  Translated(
      start, [&] { return Entry(s, index, scratch).Name(); }, [&] { object.QEN_Unpack(s); });
}

void QEN_TDataStream::Impl::CannotRead(const char* name, unsigned long long start,
                                       const char* why) {
  Fail(QEN_TString::Format("cannot read object of class \"%s\" at offset %llu: %s", name, start,
                           why));
}

QEN_IPackable* QEN_TDataStream::Impl::Build(QEN_TDataStream& s, std::size_t index,
                                            ReadClass* scratch, unsigned long long start) {
  // The entry may move while the object is read: the table grows.
  ReadClass& entry = Entry(s, index, scratch);
  const QEN_TClass* found = entry.found;
  const char* name = entry.Name();
  if (!entry.buildable) {
    if (found == nullptr)
      QEN_THROW(QEN_EUnknownClass,
                QEN_TString::Format("unknown class \"%s\" at offset %llu", name, start));
    const BuiltClass& built = BuiltSlot(found);
    if (built.cls == found) {
      entry.madeType = built.type;
      entry.packable = built.packable;
    } else if (found->isInterface || found->factory == nullptr) {
      Fail(QEN_TString::Format("class \"%s\" at offset %llu has no factory", name, start));
    } else if (!found->Implements("QEN_IPackable")) {
      Fail(QEN_TString::Format("class \"%s\" at offset %llu is not packable", name, start));
    }
  }
  if (!Admitted(s, name))
    Fail(QEN_TString::Format("class \"%s\" at offset %llu is not expected here", name, start));
  Depth depth(s, start);

  QEN_TObject* made = found->factory();
  if (made == nullptr)
    Fail(QEN_TString::Format("out of memory building class \"%s\" at offset %llu", name, start));
  // Deleted through its QEN_IInterface part unless it is handed out.
  std::unique_ptr<QEN_IInterface> owner(made);
  QEN_IPackable* object;
  if (&typeid(*made) == entry.madeType) {
    object = reinterpret_cast<QEN_IPackable*>(reinterpret_cast<char*>(made) + entry.packable);
  } else {
    object = static_cast<QEN_IPackable*>(owner->DynamicCast("QEN_IPackable"));
    if (object == nullptr)
      Fail(QEN_TString::Format("class \"%s\" at offset %llu is not packable", name, start));
    entry.madeType = &typeid(*made);
    entry.packable = reinterpret_cast<char*>(object) - reinterpret_cast<char*>(made);
    BuiltSlot(found) = BuiltClass{found, entry.madeType, entry.packable};
  }
  entry.buildable = true;
  Unpack(s, *object, index, scratch, start);
  owner.release();
  return object;
}

QEN_IUnpacking& QEN_TDataStream::GetChars(std::u16string& chars) {
  if (mReadVersion == 0) StartReading();
  if (mReadVersion == 1) return QEN_IUnpacking::GetChars(chars);
  // 8-bit characters that are all there: straight from the bytes. Anything
  // else takes the checked way below.
  if (mMemory != nullptr && InPlace::GetNarrow(*this, chars)) return *this;
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
