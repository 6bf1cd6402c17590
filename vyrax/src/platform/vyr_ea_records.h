// The record layout of extended attributes, as the attribute backend reads
// and writes them: the published layout of a full extended-attribute record,
// little-endian.
//
//   offset  size            field
//   0       4               bytes from this record to the next, 0 on the last
//   4       1               flags, 0 on write
//   5       1               name length, without the terminator
//   6       2               value length
//   8       name length+1   the 8-bit name, null-terminated
//   9+name  value length    the value
//
// A record that is followed by another one is padded to a multiple of 4.
// The block that holds the records is outside input as far as the reader is
// concerned: every access is checked against the block's end.
#ifndef VYR_EA_RECORDS_H
#define VYR_EA_RECORDS_H

#include <cstddef>
#include <cstring>

namespace vyr {
namespace ea {

constexpr unsigned kHeaderSize = 8;
// A name's length is one byte; a value is refused above 0xFE00 bytes.
constexpr unsigned kMaxNameLength = 255;
constexpr unsigned kMaxValueLength = 65024;

inline unsigned ReadU32(const unsigned char* at) {
  return static_cast<unsigned>(at[0]) | static_cast<unsigned>(at[1]) << 8 |
         static_cast<unsigned>(at[2]) << 16 | static_cast<unsigned>(at[3]) << 24;
}

inline void WriteU32(unsigned char* at, unsigned value) {
  at[0] = static_cast<unsigned char>(value);
  at[1] = static_cast<unsigned char>(value >> 8);
  at[2] = static_cast<unsigned char>(value >> 16);
  at[3] = static_cast<unsigned char>(value >> 24);
}

inline unsigned NextEntryOffset(const unsigned char* record) { return ReadU32(record); }
inline unsigned NameLength(const unsigned char* record) { return record[5]; }
inline unsigned ValueLength(const unsigned char* record) {
  return static_cast<unsigned>(record[6]) | static_cast<unsigned>(record[7]) << 8;
}
inline const char* Name(const unsigned char* record) {
  return reinterpret_cast<const char*>(record + kHeaderSize);
}
inline const unsigned char* Value(const unsigned char* record) {
  return record + kHeaderSize + NameLength(record) + 1;
}

// The bytes of a record with this name and value, padding included.
inline std::size_t RecordSize(std::size_t nameLength, std::size_t valueLength) {
  return (kHeaderSize + nameLength + 1 + valueLength + 3) & ~static_cast<std::size_t>(3);
}

// Fills a zeroed record of RecordSize bytes. The lengths must be within the
// limits above.
inline void WriteRecord(unsigned char* record, unsigned nextEntryOffset, const char* name,
                        unsigned nameLength, const void* value, unsigned valueLength) {
  WriteU32(record, nextEntryOffset);
  record[4] = 0;
  record[5] = static_cast<unsigned char>(nameLength);
  record[6] = static_cast<unsigned char>(valueLength);
  record[7] = static_cast<unsigned char>(valueLength >> 8);
  std::memcpy(record + kHeaderSize, name, nameLength);
  record[kHeaderSize + nameLength] = 0;
  if (valueLength > 0) std::memcpy(record + kHeaderSize + nameLength + 1, value, valueLength);
}

// Whether the record at `offset` lies whole inside a block of `blockSize`
// bytes, with its name terminated where its length says.
inline bool RecordFits(const unsigned char* block, unsigned blockSize, unsigned offset) {
  if (offset > blockSize || blockSize - offset < kHeaderSize) return false;
  const unsigned char* record = block + offset;
  const unsigned long long end = static_cast<unsigned long long>(offset) + kHeaderSize +
                                 NameLength(record) + 1 + ValueLength(record);
  return end <= blockSize && record[kHeaderSize + NameLength(record)] == 0;
}

// The record behind `record` in the block, or null at the end of the walk:
// after the last record (offset 0), and where the offset would leave the
// block or the record there does not fit.
inline const unsigned char* NextRecord(const unsigned char* block, unsigned blockSize,
                                       const unsigned char* record) {
  const unsigned step = NextEntryOffset(record);
  if (step == 0 || step > blockSize) return nullptr;
  const unsigned long long at = static_cast<unsigned long long>(record - block) + step;
  if (at > blockSize || !RecordFits(block, blockSize, static_cast<unsigned>(at))) return nullptr;
  return block + at;
}

// The first record of a block, or null when there is none that fits.
inline const unsigned char* FirstRecord(const unsigned char* block, unsigned blockSize) {
  if (block == nullptr || !RecordFits(block, blockSize, 0)) return nullptr;
  return block;
}

}  // namespace ea
}  // namespace vyr

#endif
