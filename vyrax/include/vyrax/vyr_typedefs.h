// The small value types of the library.
#ifndef VYR_TYPEDEFS_H
#define VYR_TYPEDEFS_H

#include <qen/qen_object.h>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_enums.h"
#include "vyrax/vyr_value.h"

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

  unsigned Position() const { return position; }
  unsigned PositionHigh() const { return positionHigh; }
  unsigned Size() const { return size; }
  unsigned SizeHigh() const { return sizeHigh; }

  // True when all four words are zero: the reverse of the usual sense.
  operator bool() const;

  // Text form, one line: "position : positionHigh, size : sizeHigh".
  VYR_VALUE_MEMBERS(VYR_TTag, false)

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
