// The class frame and the library's start-up.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <vyrax/vyrax.h>

#include <memory>

#include "metadata_test_support.h"

namespace {

using metadatatest::Spawn;
using metadatatest::Wait;

// A function of the version registry module as the library loaded it. By
// its full path: under a sanitizer, whose run time intercepts dlopen, a
// bare name is not searched on the library's own run path.
template <class F>
F* VersionFunction(const char* name) {
  void* module =
      dlopen(VYRAX_BINARY_DIR "/lib/vyrax/modules/libvyr_ver.so", RTLD_NOW | RTLD_NOLOAD);
  return module != nullptr ? reinterpret_cast<F*>(dlsym(module, name)) : nullptr;
}

unsigned VersionStarts() {
  unsigned (*count)() = VersionFunction<unsigned()>("VYR_VersionInitialisations");
  return count != nullptr ? count() : 0;
}

}  // namespace

// The tests in a child process see the library not yet started; the child's
// exit code is the number of failed checks.
TEST(ClassFrame, ClassObjectNeedsNoObjectAndNoStartUp) {
  const pid_t child = Spawn([] {
    const QEN_TClass* tag = VYR_TTag::QEN_ClassObject();
    int failed = tag == nullptr || !tag->interfacesAdded;
    failed += !VYR_TTag::QEN_HasInterface("QEN_IHumanReadable");
    failed += VYR_TTag::QEN_ParentClass() != QEN_TObject::QEN_ClassObject();
    return failed;
  });
  EXPECT_EQ(Wait(child), 0);
}

TEST(ClassFrame, DynamicInfoFromEveryBaseGivesTheCompleteObject) {
  VYR_TTag tag(1, 2, 3, 4);
  const QEN_TObject& asObject = tag;
  const QEN_IPackable& asPackable = tag;
  const QEN_IPrintable& asPrintable = tag;
  for (const QEN_IInterface* base : {static_cast<const QEN_IInterface*>(&asObject),
                                     static_cast<const QEN_IInterface*>(&asPackable),
                                     static_cast<const QEN_IInterface*>(&asPrintable)}) {
    EXPECT_EQ(base->DynamicCast("VYR_TTag"), &tag);
    EXPECT_EQ(base->DynamicCast("QEN_IPackable"), &asPackable);
    EXPECT_EQ(base->DynamicCast("QEN_IPrintable"), &asPrintable);
    EXPECT_EQ(base->DynamicCast("QEN_TObject"), &asObject);
    EXPECT_EQ(base->DynamicCast("vyr_ttag"), nullptr) << "names compare with case";
    EXPECT_EQ(base->QEN_MostDerivedObject(), &tag);
  }
}

// Every unit registers its version record at load. A failed start runs the
// whole sequence again; once started, a call is at once true.
TEST(StartUp, VersionRecordsAndAFailedStart) {
  const pid_t child = Spawn([] {
    unsigned (*records)() = VersionFunction<unsigned()>("VYR_VersionRecordCount");
    void (*failNext)(unsigned) = VersionFunction<void(unsigned)>("VYR_VersionFailNextStarts");
    if (records == nullptr || failNext == nullptr) return 50;
    int failed = records() != 11;
    failNext(1);
    failed += __QEN_INITIALIZATION_FUNCTION_VYRAX__();
    failed += VersionStarts() != 1;
    failed += !__QEN_INITIALIZATION_FUNCTION_VYRAX__();
    failed += VersionStarts() != 2;
    failed += !__QEN_INITIALIZATION_FUNCTION_VYRAX__();
    failed += VersionStarts() != 2;
    return failed;
  });
  EXPECT_EQ(Wait(child), 0);
}

// The frame of the interface and object families, on classes of a client.
namespace {

int gSquareInitialisations = 0;

class TEST_IShape : public virtual QEN_IInterface {
  QEN_INTERFACE_FRAME(TEST_IShape)
 public:
  virtual int Corners() const = 0;
};
QEN_DEFINE_INTERFACE(TEST_IShape)

class TEST_TSquare : public QEN_TObject, public virtual TEST_IShape {
  QEN_OBJECT_FRAME(TEST_TSquare)
 public:
  static bool QEN_Initialize() {
    ++gSquareInitialisations;
    return true;
  }
  int Corners() const override { return 4; }
};
QEN_DEFINE_OBJECT(TEST_TSquare, QEN_TObject, TEST_IShape)

class TEST_TBigSquare : public TEST_TSquare {
  QEN_OBJECT_FRAME(TEST_TBigSquare)
};
QEN_DEFINE_OBJECT(TEST_TBigSquare, TEST_TSquare)

class TEST_TPlain : public QEN_TObject {
  QEN_OBJECT_FRAME(TEST_TPlain)
};
QEN_DEFINE_OBJECT(TEST_TPlain, QEN_TObject)

}  // namespace

TEST(ClassFrame, ObjectFamilyWithItsOwnInitialisationAndOneObjectPerName) {
  EXPECT_EQ(TEST_TSquare::QEN_ClassObject()->init, &TEST_TSquare::QEN_Initialize);
  EXPECT_EQ(TEST_TPlain::QEN_ClassObject()->init, nullptr) << "QEN_TObject's init is no init";
  int before = gSquareInitialisations;
  const QEN_TClass* square = TEST_TSquare::QEN_ClassObject();
  EXPECT_TRUE(square->Initialize() && square->Initialize());
  EXPECT_EQ(gSquareInitialisations, before + 2);
  EXPECT_TRUE(TEST_TPlain::QEN_ClassObject()->Initialize());
  EXPECT_EQ(QEN_TClass::GetClassObject(false, "TEST_TPlain", 1, nullptr, nullptr, nullptr),
            TEST_TPlain::QEN_ClassObject());
  EXPECT_EQ(QEN_TClass::Find("TEST_TNeverDeclared"), nullptr);
}

TEST(ClassFrame, ParentChainAnswersForSubclasses) {
  std::unique_ptr<QEN_IInterface> made(TEST_TBigSquare::QEN_Create());
  EXPECT_TRUE(made->HasSuperclass("TEST_TSquare"));
  EXPECT_TRUE(made->HasInterface("TEST_IShape"));
  EXPECT_EQ(TEST_TBigSquare::QEN_ParentClass(), TEST_TSquare::QEN_ClassObject());
  const TEST_IShape* shape = made->DynamicCast<TEST_IShape>();
  ASSERT_TRUE(shape != nullptr && shape->Corners() == 4);
  EXPECT_EQ(shape->DynamicCast("TEST_TBigSquare"), made->QEN_MostDerivedObject());
}
