// Byte streams, binary packing and the text stream.
//
// The byte layout of QEN_TDataStream and the text of QEN_THumanReadableStream
// are stored formats; docs/formats.md describes both and tests/data pins them.
#ifndef QEN_STREAM_H
#define QEN_STREAM_H

#include <string>
#include <vector>

#include "qen/qen_object.h"
#include "qen/qen_string.h"

// A source and sink of bytes.
class QEN_API QEN_IStream {
 public:
  virtual ~QEN_IStream();
  // Reads up to `size` bytes; gives the number read, fewer only at the end.
  virtual unsigned Read(void* data, unsigned size) = 0;
  // Writes all bytes or throws.
  virtual void Write(const void* data, unsigned size) = 0;
  // Bytes left to read.
  virtual unsigned long long Available() const = 0;
  virtual bool Flush() { return true; }
};

// Bytes in memory: either a growing buffer of its own, or existing memory
// (data, capacity, length) with a callback that gives more room.
class QEN_API QEN_TMemoryStream : public QEN_IStream {
 public:
  // Gives memory of at least `capacity` bytes holding the current content, or
  // null when there is none; may raise `capacity`.
  typedef void* (*Reallocator)(QEN_TMemoryStream& stream, unsigned& capacity);

  QEN_TMemoryStream();
  QEN_TMemoryStream(void* data, unsigned capacity, unsigned length, Reallocator grow = nullptr);
  QEN_TMemoryStream(const QEN_TMemoryStream&) = delete;
  QEN_TMemoryStream& operator=(const QEN_TMemoryStream&) = delete;
  ~QEN_TMemoryStream() override;

  unsigned Read(void* data, unsigned size) override;
  void Write(const void* data, unsigned size) override;
  unsigned long long Available() const override;

  // The start of the bytes and their number.
  const unsigned char* Data() const { return mData; }
  unsigned char* Data() { return mData; }
  unsigned Length() const { return mLength; }
  unsigned Capacity() const { return mCapacity; }
  // Sets the length; growing fills with zero bytes. The read position stays
  // within the new length.
  void SetSize(unsigned length);
  unsigned Position() const { return mPosition; }
  void SetPosition(unsigned position);
  void Rewind() { mPosition = 0; }

 private:
  // They read and write the bytes in place.
  friend class QEN_TDataStream;
  friend class qen_data::InPlace;
  void Reserve(unsigned needed);

  unsigned char* mData = nullptr;
  unsigned mCapacity = 0;
  unsigned mLength = 0;
  unsigned mPosition = 0;
  Reallocator mGrow = nullptr;
  bool mOwned = true;
};

// A file as a byte stream.
class QEN_API QEN_TFile : public QEN_IStream {
 public:
  static const unsigned char ReadOnly;   // open an existing file to read
  static const unsigned char WriteOnly;  // create or truncate, to write
  static const unsigned char ReadWrite;  // open or create, to read and write

  // Throws QEN_EFileException (with the system's text) when it can't open.
  QEN_TFile(const QEN_TString& path, unsigned char mode);
  QEN_TFile(const QEN_TFile&) = delete;
  QEN_TFile& operator=(const QEN_TFile&) = delete;
  ~QEN_TFile() override;

  unsigned Read(void* data, unsigned size) override;
  void Write(const void* data, unsigned size) override;
  unsigned long long Available() const override;
  bool Flush() override;
  const QEN_TString& Path() const { return mPath; }

 private:
  [[noreturn]] void Fail(const char* what) const;
  void WritePending();
  void DropReadAhead();

  QEN_TString mPath;
  int mFd = -1;
  unsigned long long mSize = 0;
  unsigned long long mPosition = 0;
  // Small reads and writes go through this block: read-ahead, or bytes not
  // yet handed to the system (mWriting).
  unsigned char* mBuffer = nullptr;
  unsigned mBufferStart = 0;
  unsigned mBufferEnd = 0;
  bool mWriting = false;
};

// The writing side of binary packing.
class QEN_API QEN_IPacking {
 public:
  virtual ~QEN_IPacking();
  // The object's class identification, then its QEN_Pack.
  virtual QEN_IPacking& operator<<(const QEN_IPackable& object) = 0;
  virtual QEN_IPacking& operator<<(double value) = 0;
  virtual QEN_IPacking& operator<<(bool value) = 0;
  virtual QEN_IPacking& operator<<(unsigned long long value) = 0;
  virtual QEN_IPacking& operator<<(unsigned value) = 0;
  virtual QEN_IPacking& operator<<(unsigned short value) = 0;
  virtual QEN_IPacking& operator<<(unsigned char value) = 0;
  virtual QEN_IPacking& operator<<(int value) = 0;
  virtual QEN_IPacking& PutBytes(const void* data, unsigned size) = 0;
  virtual QEN_IPacking& PackBeginClass(const char* name) = 0;
  virtual QEN_IPacking& PackEndClass(const char* name) = 0;
  // The characters of a string. By default: their number as unsigned 32,
  // then each as two bytes, low byte first (through PutBytes).
  virtual QEN_IPacking& PutChars(const QEN_TUniChar* chars, unsigned count);
};

// The reading side, in the same order.
class QEN_API QEN_IUnpacking {
 public:
  virtual ~QEN_IUnpacking();
  // Fills an existing object; the class in the stream must be its class.
  virtual QEN_IUnpacking& operator>>(QEN_IPackable& object) = 0;
  virtual QEN_IUnpacking& operator>>(double* value) = 0;
  virtual QEN_IUnpacking& operator>>(bool* value) = 0;
  virtual QEN_IUnpacking& operator>>(unsigned long long* value) = 0;
  virtual QEN_IUnpacking& operator>>(unsigned* value) = 0;
  virtual QEN_IUnpacking& operator>>(unsigned short* value) = 0;
  virtual QEN_IUnpacking& operator>>(unsigned char* value) = 0;
  virtual QEN_IUnpacking& operator>>(int* value) = 0;
  virtual QEN_IUnpacking& GetBytes(void* data, unsigned size) = 0;
  virtual QEN_IUnpacking& UnpackBeginClass(const char* name) = 0;
  virtual QEN_IUnpacking& UnpackEndClass(const char* name) = 0;
  // Reads an object of whatever class stands in the stream, built by that
  // class's factory; the caller owns it.
  virtual QEN_IPackable* Extract(bool = true) = 0;
  // The characters of a string, as PutChars wrote them; `chars` grows only
  // as far as the stream really delivers them.
  virtual QEN_IUnpacking& GetChars(std::u16string& chars);

  QEN_IUnpacking& operator>>(double& v) { return *this >> &v; }
  QEN_IUnpacking& operator>>(bool& v) { return *this >> &v; }
  QEN_IUnpacking& operator>>(unsigned long long& v) { return *this >> &v; }
  QEN_IUnpacking& operator>>(unsigned& v) { return *this >> &v; }
  QEN_IUnpacking& operator>>(unsigned short& v) { return *this >> &v; }
  QEN_IUnpacking& operator>>(unsigned char& v) { return *this >> &v; }
  QEN_IUnpacking& operator>>(int& v) { return *this >> &v; }
};

// The binary stream over a byte stream. Reading trusts nothing: lengths are
// checked against what is left, nesting is bounded, unknown classes refused;
// every failure is a QEN_EStreamException that says what and where.
//
// A stream starts with a mark that names its format version. Writing always
// uses the current version, in which each class name is written once and
// then referred to by a small number; reading understands the current
// version and the first one (no mark), so files written before still read.
// The class numbers belong to one QEN_TDataStream: what one of them wrote is
// read back by one QEN_TDataStream, from the start.
class QEN_API QEN_TDataStream : public QEN_IPacking, public QEN_IUnpacking {
 public:
  // Objects nested deeper than this are refused when reading.
  static const unsigned sMaxDepth;
  // The format version that writing uses.
  static const unsigned char sVersion;

  explicit QEN_TDataStream(QEN_IStream& stream);
  ~QEN_TDataStream() override;

  using QEN_IUnpacking::operator>>;

  QEN_IPacking& operator<<(const QEN_IPackable& object) override;
  QEN_IPacking& operator<<(double value) override;
  QEN_IPacking& operator<<(bool value) override;
  QEN_IPacking& operator<<(unsigned long long value) override;
  QEN_IPacking& operator<<(unsigned value) override;
  QEN_IPacking& operator<<(unsigned short value) override;
  QEN_IPacking& operator<<(unsigned char value) override;
  QEN_IPacking& operator<<(int value) override;
  QEN_IPacking& PutBytes(const void* data, unsigned size) override;
  QEN_IPacking& PackBeginClass(const char* name) override;
  QEN_IPacking& PackEndClass(const char* name) override;

  QEN_IUnpacking& operator>>(QEN_IPackable& object) override;
  QEN_IUnpacking& operator>>(double* value) override;
  QEN_IUnpacking& operator>>(bool* value) override;
  QEN_IUnpacking& operator>>(unsigned long long* value) override;
  QEN_IUnpacking& operator>>(unsigned* value) override;
  QEN_IUnpacking& operator>>(unsigned short* value) override;
  QEN_IUnpacking& operator>>(unsigned char* value) override;
  QEN_IUnpacking& operator>>(int* value) override;
  QEN_IUnpacking& GetBytes(void* data, unsigned size) override;
  QEN_IUnpacking& UnpackBeginClass(const char* name) override;
  QEN_IUnpacking& UnpackEndClass(const char* name) override;
  QEN_IPackable* Extract(bool = true) override;
  QEN_IPacking& PutChars(const QEN_TUniChar* chars, unsigned count) override;
  QEN_IUnpacking& GetChars(std::u16string& chars) override;

  bool Flush();
  // Bytes read so far, for messages.
  unsigned long long Offset() const { return mOffset; }
  QEN_IStream& Stream() { return mStream; }
  // The format version of what is being read: 0 before the first read.
  unsigned char ReadVersion() const { return mReadVersion; }

  // Limits what Extract may build to the classes named here (a null-ended
  // list of names that outlives the reading); any other class name in the
  // stream fails before an object of it is made. Objects read by name
  // (operator>> into an existing object) are not affected. A null list
  // admits every class again.
  void AdmitOnly(const char* const* classNames) { mAdmitted = classNames; }

 private:
  class Impl;
  friend class qen_data::InPlace;
  struct ReadClass;
  struct WrittenClass;

  // How the class of objects of a C++ type was written, in a slot that the
  // type's address picks: the byte that stands for it, or 0x100 and above
  // for a class that takes more.
  struct WrittenType {
    const void* type = nullptr;  // its std::type_info
    unsigned number = 0;
  };
  static const unsigned kWrittenTypes = 16;
  static const unsigned kWellKnownSlots = 32;

  void Put(const void* data, unsigned size);
  void TakeInto(void* data, unsigned size, const char* what);
  void TakeFromStream(void* data, unsigned size, const char* what);
  unsigned char TakeByte(const char* what);
  void StartReading();

  QEN_IStream& mStream;
  // Set when the byte stream is a plain QEN_TMemoryStream: items go straight
  // to and from its bytes, without a virtual call each.
  QEN_TMemoryStream* mMemory = nullptr;
  unsigned long long mOffset = 0;
  unsigned mDepth = 0;
  const char* const* mAdmitted = nullptr;
  unsigned char mWriteVersion = 0;  // 0 until the mark is written
  unsigned char mReadVersion = 0;   // 0 until the mark (or its absence) is read
  int mPushedBack = -1;             // a byte read to look for the mark
  bool mFramesNamed = false;        // a class frame named a class for the writer
  std::vector<ReadClass> mReadClasses;
  std::vector<WrittenClass> mWrittenClasses;
  WrittenType mWrittenTypes[kWrittenTypes];
  // The C++ type (its std::type_info) that each well-known class was read
  // into in this stream, if any.
  const void* mWellKnownTypes[kWellKnownSlots] = {};
};

// The text stream. Writing chains like an ostream; reading gives characters,
// words and numbers, and reports a text that doesn't fit through SyntaxError,
// which names the line and column.
class QEN_API QEN_THumanReadableStream {
 public:
  typedef QEN_THumanReadableStream& (*Manipulator)(QEN_THumanReadableStream&);
  // Blank, tab, carriage return, line feed.
  static const QEN_TString sWhiteSpace;
  static const unsigned sMaxDepth;

  explicit QEN_THumanReadableStream(QEN_IStream& stream);
  QEN_THumanReadableStream(const QEN_THumanReadableStream&) = delete;
  QEN_THumanReadableStream& operator=(const QEN_THumanReadableStream&) = delete;
  ~QEN_THumanReadableStream();

  // Writing.
  QEN_THumanReadableStream& operator<<(const char* text);
  QEN_THumanReadableStream& operator<<(char c);
  // The object's text form (WriteTo); strings and URLs come out quoted.
  QEN_THumanReadableStream& operator<<(const QEN_IHumanReadable& object);
  QEN_THumanReadableStream& operator<<(double value);
  QEN_THumanReadableStream& operator<<(unsigned value);
  QEN_THumanReadableStream& operator<<(int value);
  QEN_THumanReadableStream& operator<<(unsigned long long value);
  QEN_THumanReadableStream& operator<<(long long value);
  QEN_THumanReadableStream& operator<<(unsigned short value);
  QEN_THumanReadableStream& operator<<(unsigned char value);
  QEN_THumanReadableStream& operator<<(Manipulator manipulator) { return manipulator(*this); }
  // The framed form that Extract reads back: class name and braces.
  QEN_THumanReadableStream& WriteObject(const QEN_IHumanReadable& object);
  // The quoted form that ReadQuoted reads back: in double quotes, with the
  // escapes \" \\ \n \r \t and \uXXXX (docs/formats.md).
  QEN_THumanReadableStream& WriteQuoted(const QEN_TString& text);
  // Current nesting of multi-line objects, for indentation.
  unsigned IndentLevel() const { return mIndent; }
  void SetIndentLevel(unsigned level) { mIndent = level; }
  // Nothing has been written on the current line yet.
  bool AtLineStart() const { return mAtLineStart; }

  // Reading.
  // The next character; gives a pointer to it. At the end, SyntaxError.
  const QEN_TUniChar* ReadChar(QEN_TUniChar& c);
  QEN_THumanReadableStream& operator>>(QEN_TUniChar& c) {
    ReadChar(c);
    return *this;
  }
  // The next character without taking it; false at the end.
  bool PeekChar(QEN_TUniChar& c);
  bool AtEnd();
  // Reads the following characters that are in `set` into `out`. Where the
  // set holds the line break, comments ('#' to the end of the line) are
  // skipped as white space.
  QEN_THumanReadableStream& Skip(QEN_TString& out, const QEN_TString& set);
  // Skips white space and comments.
  QEN_THumanReadableStream& SkipWhiteSpace();
  // Reads up to the next character in `set` (or the end) into `out`.
  QEN_THumanReadableStream& ReadUntil(QEN_TString& out, const QEN_TString& set);
  // Reads a quoted token written by a string's WriteTo.
  QEN_THumanReadableStream& ReadQuoted(QEN_TString& out);
  // Fills an object through its ReadFrom.
  QEN_THumanReadableStream& operator>>(QEN_IHumanReadable& object);
  // Numbers skip leading white space and must fit their type.
  QEN_THumanReadableStream& operator>>(double* value);
  QEN_THumanReadableStream& operator>>(unsigned* value);
  QEN_THumanReadableStream& operator>>(int* value);
  QEN_THumanReadableStream& operator>>(unsigned long long* value);
  QEN_THumanReadableStream& operator>>(long long* value);
  QEN_THumanReadableStream& operator>>(unsigned short* value);
  QEN_THumanReadableStream& operator>>(unsigned char* value);
  QEN_THumanReadableStream& operator>>(double& v) { return *this >> &v; }
  QEN_THumanReadableStream& operator>>(unsigned& v) { return *this >> &v; }
  QEN_THumanReadableStream& operator>>(int& v) { return *this >> &v; }
  QEN_THumanReadableStream& operator>>(unsigned long long& v) { return *this >> &v; }
  QEN_THumanReadableStream& operator>>(long long& v) { return *this >> &v; }
  QEN_THumanReadableStream& operator>>(unsigned short& v) { return *this >> &v; }
  QEN_THumanReadableStream& operator>>(unsigned char& v) { return *this >> &v; }

  // Throws QEN_ESyntaxError naming the line and column; never returns.
  [[noreturn]] void SyntaxError(const char* what = nullptr);
  // Reads the next framed object and builds it by its class name; the caller
  // owns it.
  QEN_IHumanReadable* Extract();

  unsigned Line() const { return mLine; }
  unsigned Column() const { return mColumn; }
  // Nesting guard for readers of nested forms: Enter throws past sMaxDepth.
  void Enter();
  void Leave() { --mDepth; }

 private:
  class Impl;
  bool NextByte(unsigned char& b);
  void WriteRaw(const char* text, unsigned size);

  QEN_IStream& mStream;
  // Read-ahead of one UTF-16 unit (also the second half of a surrogate pair).
  bool mHavePeek = false;
  QEN_TUniChar mPeek = 0;
  unsigned mLine = 1;
  unsigned mColumn = 1;
  unsigned mIndent = 0;
  unsigned mDepth = 0;
  // The low half of a decoded surrogate pair, due after the high half.
  bool mHaveLow = false;
  QEN_TUniChar mLow = 0;
  // A byte that ended an invalid UTF-8 sequence and starts the next one.
  int mPushedByte = -1;
  // Where the last character taken stood, for error messages.
  unsigned mLastLine = 0;
  unsigned mLastColumn = 0;
  QEN_TUniChar mLastChar = 0;
  // Writing: the indentation is due before the next text.
  bool mAtLineStart = true;
};

// The manipulator for a line break.
QEN_API QEN_THumanReadableStream& cr(QEN_THumanReadableStream& stream);

#endif
