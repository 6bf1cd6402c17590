// The small value types of the library.
#ifndef VYR_TYPEDEFS_H
#define VYR_TYPEDEFS_H

#include <qen/qen_object.h>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_enums.h"

// A region of a file or buffer: a 64-bit position and a 64-bit size, each
// held as a low and a high 32-bit word. All four words zero is the empty tag.
class VYR_API VYR_TTag : public QEN_TObject,
                         public virtual QEN_IPackable,
                         public virtual QEN_IHumanReadable,
                         public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(VYR_TTag)

 public:
  VYR_TTag() = default;
  VYR_TTag(unsigned position, unsigned positionHigh, unsigned size, unsigned sizeHigh);
  VYR_TTag(unsigned long long position, unsigned long long size);
  VYR_TTag(const VYR_TTag& other) = default;
  VYR_TTag& operator=(const VYR_TTag& other) = default;
  ~VYR_TTag() override = default;

  unsigned Position() const { return position; }
  unsigned PositionHigh() const { return positionHigh; }
  unsigned Size() const { return size; }
  unsigned SizeHigh() const { return sizeHigh; }

  bool operator==(const VYR_TTag& other) const;
  bool operator!=(const VYR_TTag& other) const { return !(*this == other); }
  // True when all four words are zero: the reverse of the usual sense.
  operator bool() const;

  void QEN_Pack(QEN_IPacking& out) const override;
  void QEN_Unpack(QEN_IUnpacking& in) override;
  // One line: "position : positionHigh, size : sizeHigh".
  bool WriteTo(QEN_THumanReadableStream& out) const override;
  bool ReadFrom(QEN_THumanReadableStream& in) override;
  bool QEN_HRMultiLine() const override { return false; }
  void PrintOn(std::ostream& out) const override;

 private:
  unsigned position = 0;
  unsigned positionHigh = 0;
  unsigned size = 0;
  unsigned sizeHigh = 0;
};

// The other value types, each in its own header.
#include "vyrax/vyr_knot.h"
#include "vyrax/vyr_reference.h"

#endif
