// The binary stream. docs/formats.md describes the layout:
//
//   numbers      little-endian, fixed width; a double is its IEEE-754 bits
//   bool         one byte, 0 or 1
//   object       'O', name length (1 byte), name, then the object's QEN_Pack
//   begin class  '{', name length, name
//   end class    '}', name length, name
//
// Reading treats every byte as hostile: each read is checked against what
// the byte stream still holds before anything is read or allocated, names are
// checked, nesting is bounded, and every failure is a QEN_EStreamException
// (QEN_EUnknownClass for a class nobody registered) that says what was wrong
// and at which offset.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "qen/qen_exception.h"
#include "qen/qen_stream.h"

QEN_IPacking::~QEN_IPacking() = default;
QEN_IUnpacking::~QEN_IUnpacking() = default;

const unsigned QEN_TDataStream::sMaxDepth = 64;

namespace {

constexpr unsigned char kObjectMarker = 'O';
constexpr unsigned char kBeginMarker = '{';
constexpr unsigned char kEndMarker = '}';
constexpr unsigned kMaxNameLength = 255;

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

}  // namespace

// Helpers with access to the stream's state.
class QEN_TDataStream::Impl {
 public:
  template <unsigned N>
  static void PutLittleEndian(QEN_TDataStream& s, unsigned long long value) {
    unsigned char bytes[N];
    for (unsigned i = 0; i < N; ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    s.mStream.Write(bytes, N);
  }

  // Fails unless `size` more bytes are there to read.
  static void Need(QEN_TDataStream& s, unsigned long long size, const char* what) {
    unsigned long long left = s.mStream.Available();
    if (left < size)
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("truncated data: %s needs %llu bytes, %llu left at offset %llu",
                                    what, size, left, s.mOffset));
  }

  static void Take(QEN_TDataStream& s, void* data, unsigned size, const char* what) {
    Need(s, size, what);
    if (size == 0) return;
    unsigned got = s.mStream.Read(data, size);
    if (got != size)
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("truncated data: %s needs %u bytes, got %u at offset %llu",
                                    what, size, got, s.mOffset));
    s.mOffset += size;
  }

  template <unsigned N>
  static unsigned long long GetLittleEndian(QEN_TDataStream& s, const char* what) {
    unsigned char bytes[N];
    Take(s, bytes, N, what);
    unsigned long long value = 0;
    for (unsigned i = 0; i < N; ++i) value |= static_cast<unsigned long long>(bytes[i]) << (8 * i);
    return value;
  }

  static void PutName(QEN_TDataStream& s, unsigned char marker, const char* name) {
    std::size_t length = name != nullptr ? std::strlen(name) : 0;
    bool valid = length > 0 && length <= kMaxNameLength;
    for (std::size_t i = 0; valid && i < length; ++i)
      valid = IsNameChar(static_cast<unsigned char>(name[i]));
    if (!valid)
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("cannot write %s: the class name must be 1 to %u letters, "
                                    "digits or '_'",
                                    MarkerText(marker), kMaxNameLength));
    unsigned char head[2] = {marker, static_cast<unsigned char>(length)};
    s.mStream.Write(head, 2);
    s.mStream.Write(name, static_cast<unsigned>(length));
  }

  // Reads a marker and the name behind it.
  static std::string GetName(QEN_TDataStream& s, unsigned char marker) {
    unsigned long long start = s.mOffset;
    unsigned char head[2];
    Take(s, head, 1, MarkerText(marker));
    if (head[0] != marker)
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("expected %s (marker '%c'), found byte 0x%02X at offset %llu",
                                    MarkerText(marker), marker, head[0], start));
    Take(s, head + 1, 1, "a class name length");
    unsigned length = head[1];
    if (length == 0)
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("empty class name at offset %llu", start + 1));
    char name[kMaxNameLength];
    Take(s, name, length, "a class name");
    for (unsigned i = 0; i < length; ++i)
      if (!IsNameChar(static_cast<unsigned char>(name[i])))
        QEN_THROW(QEN_EStreamException,
                  QEN_TString::Format("invalid byte 0x%02X in a class name at offset %llu",
                                      static_cast<unsigned char>(name[i]), start + 2 + i));
    return std::string(name, length);
  }

  // Bounds the nesting of objects, in both directions: what can't be read
  // back is not written either.
  class Depth {
   public:
    Depth(QEN_TDataStream& s, unsigned long long offset) : mStream(s) {
      if (s.mDepth >= sMaxDepth)
        QEN_THROW(
            QEN_EStreamException,
            QEN_TString::Format("objects nested deeper than %u at offset %llu", sMaxDepth, offset));
      ++s.mDepth;
    }
    ~Depth() { --mStream.mDepth; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;

   private:
    QEN_TDataStream& mStream;
  };

  static bool Admitted(const QEN_TDataStream& s, const std::string& name) {
    if (s.mAdmitted == nullptr) return true;
    for (const char* const* at = s.mAdmitted; *at != nullptr; ++at)
      if (name == *at) return true;
    return false;
  }

  // Runs an object's QEN_Unpack. Whatever else fails on the way (a value
  // of the wrong kind, a check of the class itself, a length_error or
  // bad_alloc of the standard library) becomes a stream failure with a
  // place: a reader of outside bytes has one failure type to catch.
  static void Unpack(QEN_TDataStream& s, QEN_IPackable& object, const std::string& name,
                     unsigned long long start) {
    try {
      object.QEN_Unpack(s);
    } catch (const QEN_EStreamException&) {
      throw;
    } catch (const QEN_EException& e) {
      CannotRead(name, start, e.QEN_Message().c_str());
    } catch (const std::exception& e) {
      CannotRead(name, start, e.what());
    }
  }

  [[noreturn]] static void CannotRead(const std::string& name, unsigned long long start,
                                      const char* why) {
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("cannot read object of class \"%s\" at offset %llu: %s",
                                  name.c_str(), start, why));
    std::abort();  // QEN_THROW never comes back
  }
};

QEN_TDataStream::QEN_TDataStream(QEN_IStream& stream) : mStream(stream) {}

QEN_TDataStream::~QEN_TDataStream() = default;

bool QEN_TDataStream::Flush() { return mStream.Flush(); }

// ---------------------------------------------------------------------------
// Writing

QEN_IPacking& QEN_TDataStream::operator<<(const QEN_IPackable& object) {
  Impl::Depth depth(*this, mOffset);
  Impl::PutName(*this, kObjectMarker, object.ClassObject().name);
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
  if (size > 0) mStream.Write(data, size);
  return *this;
}

QEN_IPacking& QEN_TDataStream::PackBeginClass(const char* name) {
  Impl::PutName(*this, kBeginMarker, name);
  return *this;
}

QEN_IPacking& QEN_TDataStream::PackEndClass(const char* name) {
  Impl::PutName(*this, kEndMarker, name);
  return *this;
}

// ---------------------------------------------------------------------------
// Reading

QEN_IUnpacking& QEN_TDataStream::operator>>(QEN_IPackable& object) {
  unsigned long long start = mOffset;
  std::string name = Impl::GetName(*this, kObjectMarker);
  const char* expected = object.ClassObject().name;
  if (name != expected)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("expected an object of class \"%s\", found \"%s\" at offset %llu",
                                  expected, name.c_str(), start));
  Impl::Depth depth(*this, start);
  Impl::Unpack(*this, object, name, start);
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(double* value) {
  unsigned long long bits = Impl::GetLittleEndian<8>(*this, "a double");
  std::memcpy(value, &bits, sizeof bits);
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(bool* value) {
  unsigned long long start = mOffset;
  unsigned long long byte = Impl::GetLittleEndian<1>(*this, "a bool");
  if (byte > 1)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("invalid bool byte 0x%02llX at offset %llu", byte, start));
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
  *value = static_cast<unsigned char>(Impl::GetLittleEndian<1>(*this, "an unsigned 8"));
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::operator>>(int* value) {
  *value = static_cast<int>(static_cast<unsigned>(Impl::GetLittleEndian<4>(*this, "a signed 32")));
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::GetBytes(void* data, unsigned size) {
  Impl::Take(*this, data, size, "a run of bytes");
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::UnpackBeginClass(const char* name) {
  unsigned long long start = mOffset;
  std::string found = Impl::GetName(*this, kBeginMarker);
  if (name == nullptr || found != name)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("expected begin of class \"%s\", found \"%s\" at offset %llu",
                                  name != nullptr ? name : "", found.c_str(), start));
  return *this;
}

QEN_IUnpacking& QEN_TDataStream::UnpackEndClass(const char* name) {
  unsigned long long start = mOffset;
  std::string found = Impl::GetName(*this, kEndMarker);
  if (name == nullptr || found != name)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("expected end of class \"%s\", found \"%s\" at offset %llu",
                                  name != nullptr ? name : "", found.c_str(), start));
  return *this;
}

QEN_IPackable* QEN_TDataStream::Extract(bool) {
  unsigned long long start = mOffset;
  std::string name = Impl::GetName(*this, kObjectMarker);
  const QEN_TClass* found = QEN_TClass::Find(name.c_str());
  if (found == nullptr)
    QEN_THROW(QEN_EUnknownClass,
              QEN_TString::Format("unknown class \"%s\" at offset %llu", name.c_str(), start));
  if (found->isInterface || found->factory == nullptr)
    QEN_THROW(
        QEN_EStreamException,
        QEN_TString::Format("class \"%s\" at offset %llu has no factory", name.c_str(), start));
  if (!found->Implements("QEN_IPackable"))
    QEN_THROW(
        QEN_EStreamException,
        QEN_TString::Format("class \"%s\" at offset %llu is not packable", name.c_str(), start));
  if (!Impl::Admitted(*this, name))
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("class \"%s\" at offset %llu is not expected here", name.c_str(),
                                  start));
  Impl::Depth depth(*this, start);

  QEN_TObject* made = found->factory();
  if (made == nullptr)
    QEN_THROW(QEN_EStreamException,
              QEN_TString::Format("out of memory building class \"%s\" at offset %llu",
                                  name.c_str(), start));
  // Deleted through its QEN_IInterface part unless it is handed out.
  std::unique_ptr<QEN_IInterface> owner(made);
  QEN_IPackable* object = static_cast<QEN_IPackable*>(owner->DynamicCast("QEN_IPackable"));
  if (object == nullptr)
    QEN_THROW(
        QEN_EStreamException,
        QEN_TString::Format("class \"%s\" at offset %llu is not packable", name.c_str(), start));
  Impl::Unpack(*this, *object, name, start);
  owner.release();
  return object;
}
