// Start-up of the base-type library: every class of the library registers
// with the class registry, so that streams can rebuild it by name.
#include "qen/qen.h"

namespace {

typedef const QEN_TClass* (*ClassObjectFunction)();

const ClassObjectFunction kBaseClasses[] = {
    &QEN_TObject::QEN_ClassObject,
    &QEN_IInterface::QEN_ClassObject,
    &QEN_IPackable::QEN_ClassObject,
    &QEN_IHumanReadable::QEN_ClassObject,
    &QEN_IPrintable::QEN_ClassObject,
    &QEN_IThrowable::QEN_ClassObject,
    &QEN_IHashable::QEN_ClassObject,
    &QEN_IIteratable::QEN_ClassObject,
    &QEN_IIterationInfo::QEN_ClassObject,
    &QEN_TString::QEN_ClassObject,
    &QEN_TURL::QEN_ClassObject,
    &QEN_TAny::QEN_ClassObject,
    &QEN_TDict::QEN_ClassObject,
    &QEN_TList::QEN_ClassObject,
    &QEN_TArray::QEN_ClassObject,
    &QEN_TTree::QEN_ClassObject,
    &QEN_TTime::QEN_ClassObject,
    &QEN_TInterval::QEN_ClassObject,
    &QEN_TDataBlock::QEN_ClassObject,
    &QEN_TFileInfo::QEN_ClassObject,
    &QEN_TVolumeInfo::QEN_ClassObject,
    &QEN_TRWLock::QEN_ClassObject,
    &QEN_TDynamicObject::QEN_ClassObject,
    &QEN_EException::QEN_ClassObject,
    &QEN_EStreamException::QEN_ClassObject,
    &QEN_ESyntaxError::QEN_ClassObject,
    &QEN_EUnknownClass::QEN_ClassObject,
    &QEN_EFileException::QEN_ClassObject,
    &QEN_ETreeException::QEN_ClassObject,
    &QEN_ECouldNotLoadDynamicObject::QEN_ClassObject,
    &QEN_EAnyConversion::QEN_ClassObject,
    &QEN_EIndexOutOfRange::QEN_ClassObject,
};

bool RegisterBaseClasses() {
  for (ClassObjectFunction classObject : kBaseClasses)
    if (!classObject()->Initialize()) return false;
  return true;
}

// The base classes are known from load on, so that data can be read even by
// a host that never calls the start-up function.
const bool gRegisteredAtLoad = RegisterBaseClasses();

}  // namespace

extern "C" bool __QEN_INITIALIZATION_FUNCTION_qentypes__() {
  static const bool started = gRegisteredAtLoad && RegisterBaseClasses();
  return started;
}
