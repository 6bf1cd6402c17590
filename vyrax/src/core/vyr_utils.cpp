// Texts for people: exceptions and variants.
#include "vyrax/vyr_utils.h"

#include "core/vyr_version_stamp.h"

VYR_VERSION_STAMP()

#include <qen/qen_any.h>
#include <qen/qen_exception.h>
#include <qen/qen_string.h>

#include <sstream>

#include "core/vyr_format.h"

using vyr::FormatMessage;
using vyr::WithoutFinalLineBreak;

namespace {

// Wrapped exceptions come from streams too; deeper nesting than this is
// left out of the text.
constexpr unsigned kMaxNesting = 64;

QEN_TString FallbackText(const QEN_EException& exception) {
  try {
    return VYR_Any2String(QEN_TAny(static_cast<const QEN_IPackable&>(exception)));
  } catch (...) {
    return QEN_TString("Exception of class ") + exception.ClassName();
  }
}

QEN_TString ExceptionText(const QEN_EException& exception, bool noNested, unsigned indent,
                          unsigned depth) {
  try {
    static const QEN_TString kLineBreak("\n");
    QEN_TString result;
    const QEN_TAny& data = exception.QEN_Data();
    const QEN_TString className(exception.ClassName());
    QEN_TString message = exception.QEN_Message();
    bool hasData = !data.IsNothing();

    if (!noNested && hasData && data.HasSuperclass("QEN_EException")) {
      const QEN_EException* inner =
          static_cast<const QEN_EException*>(data.DynamicCast("QEN_EException"));
      if (inner != nullptr && depth < kMaxNesting) {
        QEN_TString text = ExceptionText(*inner, false, indent, depth + 1);
        if (indent != 0 && text.Find('\n') >= 0)
          text = text.ReplaceChars(kLineBreak, kLineBreak + QEN_TString(std::string(indent, ' ')));
        result += text;
        if (!result.Empty() && result[result.Length() - 1] != u'\n') result += kLineBreak;
      }
      hasData = false;
    }

    if (!hasData) {
      result += "Exception of class ";
      result += className;
      if (message.CompareWith(className, false) != 0) {
        result += " with message \"";
        result += WithoutFinalLineBreak(message);
        result += '"';
      }
    } else {
      result += FormatMessage(message, data);
    }
    return result;
  } catch (...) {
    return FallbackText(exception);
  }
}

}  // namespace

QEN_TString VYR_Exception2String(const QEN_EException& exception, bool noNested, unsigned indent) {
  return ExceptionText(exception, noNested, indent, 0);
}

QEN_TString VYR_Any2String(const QEN_TAny& any) {
  std::ostringstream out;
  any.PrintOn(out);
  // The text ends at its first zero byte, as the string constructor reads it.
  return QEN_TString(out.str().c_str());
}
