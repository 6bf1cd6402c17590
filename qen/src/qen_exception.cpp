// The exception root and the failures of the base library.
#include "qen/qen_exception.h"

#include <ostream>

#include "qen/qen_containers.h"
#include "qen/qen_stream.h"

QEN_DEFINE_OBJECT(QEN_EException, QEN_TObject, QEN_IThrowable, QEN_IPackable, QEN_IPrintable)

QEN_EException::QEN_EException() : mMessage("QEN_EException") {}
QEN_EException::QEN_EException(const QEN_EException& other) = default;
QEN_EException::QEN_EException(const QEN_TString& message) : mMessage(message) {}
QEN_EException::QEN_EException(const QEN_TString& message, const QEN_TAny& data)
    : mMessage(message), mData(data) {}
QEN_EException& QEN_EException::operator=(const QEN_EException& other) = default;
QEN_EException::~QEN_EException() = default;

unsigned QEN_EException::QEN_ExceptionLine() const { return mLine; }
const QEN_TString& QEN_EException::QEN_ExceptionFile() const { return mFile; }

const QEN_TList& QEN_EException::QEN_StackTrace() const {
  static const QEN_TList* const empty = new QEN_TList;
  return *empty;
}

const QEN_TString& QEN_EException::QEN_Message() const { return mMessage; }
QEN_TString& QEN_EException::QEN_Message() { return mMessage; }
const QEN_TAny& QEN_EException::QEN_Data() const { return mData; }
QEN_TAny& QEN_EException::QEN_Data() { return mData; }

QEN_EException& QEN_EException::__PREPARE_FOR_THROW__(unsigned line, const char* file) {
  mLine = line;
  mFile = QEN_TString(file != nullptr ? file : "");
  return *this;
}

void QEN_EException::QEN_Throw() const { throw QEN_EException(*this); }

// Message, data, file and line, each the way its own class packs it.
void QEN_EException::QEN_Pack(QEN_IPacking& out) const {
  out << mMessage << mData << mFile << mLine;
}

void QEN_EException::QEN_Unpack(QEN_IUnpacking& in) { in >> mMessage >> mData >> mFile >> &mLine; }

QEN_IPackable* QEN_EException::QEN_Clone(void*) const {
  return new (std::nothrow) QEN_EException(*this);
}

bool QEN_EException::QEN_IsIdent(const QEN_IPackable& other) const {
  if (std::strcmp(other.ClassName(), ClassName()) != 0) return false;
  const QEN_EException* o = static_cast<const QEN_EException*>(other.DynamicCast("QEN_EException"));
  return o != nullptr && o->mMessage == mMessage && o->mData == mData && o->mFile == mFile &&
         o->mLine == mLine;
}

void QEN_EException::PrintOn(std::ostream& out) const {
  out << ClassName() << ": " << mMessage.c_str();
  if (!mData.IsNothing()) {
    out << " [";
    mData.PrintOn(out);
    out << "]";
  }
  if (!mFile.Empty()) out << " (" << mFile.c_str() << ":" << mLine << ")";
}

QEN_DEFINE_EXCEPTION(QEN_EStreamException, QEN_EException)
QEN_DEFINE_EXCEPTION(QEN_ESyntaxError, QEN_EStreamException)
QEN_DEFINE_EXCEPTION(QEN_EUnknownClass, QEN_EStreamException)
QEN_DEFINE_EXCEPTION(QEN_EFileException, QEN_EException)
QEN_DEFINE_EXCEPTION(QEN_ETreeException, QEN_EException)
QEN_DEFINE_EXCEPTION(QEN_ECouldNotLoadDynamicObject, QEN_EException)
QEN_DEFINE_EXCEPTION(QEN_EAnyConversion, QEN_EException)
QEN_DEFINE_EXCEPTION(QEN_EIndexOutOfRange, QEN_EException)
