#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>

#include "qen/qen_exception.h"
#include "qen/qen_file.h"
#include "qen/qen_stream.h"
#include "qen_text_fields.h"

QEN_DEFINE_VALUE(QEN_TDataBlock, QEN_TObject, QEN_IPackable, QEN_IHumanReadable, QEN_IPrintable)

namespace {

// Bytes are read in pieces of this size, so that memory only grows with
// bytes that have actually arrived.
constexpr unsigned kReadPiece = 64 * 1024;

const char kHexDigits[] = "0123456789abcdef";

int HexValue(QEN_TUniChar c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

const QEN_TString& HexCharacters() {
  static const QEN_TString characters("0123456789abcdefABCDEF");
  return characters;
}

}  // namespace

QEN_TDataBlock::QEN_TDataBlock(const void* data, unsigned size) {
  if (data == nullptr) {
    mBytes.assign(size, 0);
  } else {
    const auto* bytes = static_cast<const unsigned char*>(data);
    mBytes.assign(bytes, bytes + size);
  }
}

QEN_TDataBlock::~QEN_TDataBlock() = default;

void QEN_TDataBlock::QEN_Pack(QEN_IPacking& out) const {
  out << Size();
  if (!mBytes.empty()) out.PutBytes(mBytes.data(), Size());
}

void QEN_TDataBlock::QEN_Unpack(QEN_IUnpacking& in) {
  unsigned size = 0;
  in >> &size;
  if (auto* data = dynamic_cast<QEN_TDataStream*>(&in)) {
    unsigned long long left = data->Stream().Available();
    if (size > left)
      QEN_THROW(QEN_EStreamException,
                QEN_TString::Format("Data block of %u bytes at offset %llu, but only %llu bytes "
                                    "are left",
                                    size, data->Offset(), left));
  }
  std::vector<unsigned char> bytes;
  while (bytes.size() < size) {
    unsigned piece = std::min<unsigned>(kReadPiece, size - static_cast<unsigned>(bytes.size()));
    std::size_t at = bytes.size();
    bytes.resize(at + piece);
    in.GetBytes(bytes.data() + at, piece);
  }
  mBytes.swap(bytes);
}

bool QEN_TDataBlock::WriteTo(QEN_THumanReadableStream& out) const {
  std::string text;
  text.reserve(mBytes.size() * 2 + 2);
  text += '<';
  for (unsigned char b : mBytes) {
    text += kHexDigits[b >> 4];
    text += kHexDigits[b & 15];
  }
  text += '>';
  out << text.c_str();
  return false;
}

bool QEN_TDataBlock::ReadFrom(QEN_THumanReadableStream& in) {
  qen_text::Expect(in, '<', "expected '<' to open a data block");
  QEN_TString digits;
  in.Skip(digits, HexCharacters());
  qen_text::Expect(in, '>', "expected hex digits and '>' to close a data block");
  const std::u16string& chars = digits.Chars();
  if (chars.size() % 2 != 0) in.SyntaxError("odd number of hex digits in a data block");
  if (chars.size() / 2 > 0xFFFFFFFFu) in.SyntaxError("data block larger than 4 GiB");
  std::vector<unsigned char> bytes(chars.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>(HexValue(chars[2 * i]) << 4 | HexValue(chars[2 * i + 1]));
  mBytes.swap(bytes);
  return false;
}

void QEN_TDataBlock::PrintOn(std::ostream& out) const {
  // A debug print shows the start of a large block only.
  constexpr std::size_t kShown = 32;
  out << "QEN_TDataBlock " << mBytes.size() << " bytes <";
  for (std::size_t i = 0; i < std::min(kShown, mBytes.size()); ++i)
    out << kHexDigits[mBytes[i] >> 4] << kHexDigits[mBytes[i] & 15];
  out << (mBytes.size() > kShown ? "...>" : ">");
}
