// VYR_TKnot: one point of a clipping path.
#ifndef VYR_KNOT_H
#define VYR_KNOT_H

#include <qen/qen_object.h>

#include "vyrax/vyr_api.h"
#include "vyrax/vyr_enums.h"
#include "vyrax/vyr_value.h"

// A move, a line, a curve or the close of a path: a type and three
// coordinate pairs, each given vertical first. Moves and lines use the first
// pair, curves all three, the others none; the unused pairs are still held,
// compared and packed.
class VYR_API VYR_TKnot : public QEN_TObject,
                          public virtual QEN_IPackable,
                          public virtual QEN_IHumanReadable,
                          public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(VYR_TKnot)

 public:
  // All six coordinates 0.
  explicit VYR_TKnot(VYR_TKnotType type = VYR_KnotNop);
  VYR_TKnot(VYR_TKnotType type, double v1, double h1, double v2, double h2, double v3, double h3);

  VYR_TKnotType Type() const { return type; }
  double V1() const { return v1; }
  double H1() const { return h1; }
  double V2() const { return v2; }
  double H2() const { return h2; }
  double V3() const { return v3; }
  double H3() const { return h3; }
  // All seven fields, also the pairs that the type doesn't use.
  void GetInfo(VYR_TKnotType& type, double& v1, double& h1, double& v2, double& h2, double& v3,
               double& h3) const;

  // Equal: type and all six coordinates; a coordinate that is not a number
  // makes the knots differ.
  // Packed: the type as an unsigned 32, then all six coordinates as doubles,
  // in the order V1, H1, V2, H2, V3, H3, whatever the type.
  // Text form, one line: the type's name and the pairs in use, "KnotClose",
  // "KnotMoveTo 1, 2", "KnotNormCurveTo 1, 2, 3, 4, 5, 6". A type outside
  // the named ones is written as "KnotNop". Reading takes the type word
  // exactly; an unknown word gives KnotNop and ends the read quietly. Pairs
  // that the type doesn't use keep the values they had.
  VYR_VALUE_MEMBERS(VYR_TKnot, false)

 private:
  VYR_TKnotType type = VYR_KnotNop;
  double v1 = 0.0;
  double h1 = 0.0;
  double v2 = 0.0;
  double h2 = 0.0;
  double v3 = 0.0;
  double h3 = 0.0;
};

#endif
