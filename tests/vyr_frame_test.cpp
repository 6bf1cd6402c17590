// The class frame and the library's start-up.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyrax/vyrax.h>

#include <memory>

#include "metadata_test_support.h"

namespace {

// The version registry module as the library loaded it. By its full path:
// under a sanitizer, whose run time intercepts dlopen, a bare name is not
// searched on the library's own run path.
void* VersionModule() {
  return dlopen(VYRAX_BINARY_DIR "/lib/vyrax/modules/libvyr_ver.so", RTLD_NOW | RTLD_NOLOAD);
}

unsigned VersionStarts() {
  void* module = VersionModule();
  if (module == nullptr) return 0;
  auto count = reinterpret_cast<unsigned (*)()>(dlsym(module, "VYR_VersionInitialisations"));
  unsigned n = count ? count() : 0;
  dlclose(module);
  return n;
}

// Runs `body` in a child process, so that it sees the library not yet
// started; the child's exit code is the number of failed checks.
template <class Body>
int InChild(Body body) {
  return metadatatest::Wait(metadatatest::Spawn(body));
}

}  // namespace

TEST(ClassFrame, ClassObjectNeedsNoObjectAndNoStartUp) {
  int failures = InChild([] {
    int failed = 0;
    const QEN_TClass* tag = VYR_TTag::QEN_ClassObject();
    failed += tag == nullptr;
    failed += !tag->interfacesAdded;
    failed += !VYR_TTag::QEN_HasInterface("QEN_IHumanReadable");
    failed += VYR_TTag::QEN_ParentClass() != QEN_TObject::QEN_ClassObject();
    failed += VYR_TTag::QEN_Factory() != &VYR_TTag::QEN_Create;
    return failed;
  });
  EXPECT_EQ(failures, 0);
}

TEST(ClassFrame, DynamicInfoFromEveryBaseGivesTheCompleteObject) {
  VYR_TTag tag(1, 2, 3, 4);
  const QEN_TObject& asObject = tag;
  const QEN_IPackable& asPackable = tag;
  const QEN_IHumanReadable& asReadable = tag;
  const QEN_IPrintable& asPrintable = tag;
  const QEN_IInterface& asInterface = tag;
  for (const QEN_IInterface* base :
       {static_cast<const QEN_IInterface*>(&asObject),
        static_cast<const QEN_IInterface*>(&asPackable),
        static_cast<const QEN_IInterface*>(&asReadable),
        static_cast<const QEN_IInterface*>(&asPrintable), &asInterface}) {
    EXPECT_EQ(base->DynamicCast("VYR_TTag"), &tag);
    EXPECT_EQ(base->DynamicCast("QEN_IPackable"), &asPackable);
    EXPECT_EQ(base->DynamicCast("QEN_IPrintable"), &asPrintable);
    EXPECT_EQ(base->DynamicCast("QEN_TObject"), &asObject);
    EXPECT_EQ(base->DynamicCast("vyr_ttag"), nullptr) << "names compare with case";
    EXPECT_EQ(base->DynamicCast("VYR_TReference"), nullptr);
    EXPECT_EQ(base->QEN_MostDerivedObject(), &tag);
  }
}

TEST(StartUp, SecondCallIsAtOnceTrue) {
  int failures = InChild([] {
    int failed = 0;
    failed += !__QEN_INITIALIZATION_FUNCTION_VYRAX__();
    unsigned starts = VersionStarts();
    failed += starts != 1;
    failed += !__QEN_INITIALIZATION_FUNCTION_VYRAX__();
    failed += VersionStarts() != starts;
    return failed;
  });
  EXPECT_EQ(failures, 0);
}

TEST(StartUp, AFailedStartRunsTheWholeSequenceAgain) {
  int failures = InChild([] {
    int failed = 0;
    void* module = VersionModule();
    if (module == nullptr) return 50;
    auto failNext =
        reinterpret_cast<void (*)(unsigned)>(dlsym(module, "VYR_VersionFailNextStarts"));
    if (failNext == nullptr) return 51;
    failNext(1);
    failed += __QEN_INITIALIZATION_FUNCTION_VYRAX__();
    failed += VersionStarts() != 1;
    failed += !__QEN_INITIALIZATION_FUNCTION_VYRAX__();
    failed += VersionStarts() != 2;
    dlclose(module);
    return failed;
  });
  EXPECT_EQ(failures, 0);
}

TEST(StartUp, EveryUnitRegistersItsVersionRecord) {
  void* module = VersionModule();
  ASSERT_NE(module, nullptr) << "the library loads the version registry at load";
  auto count = reinterpret_cast<unsigned (*)()>(dlsym(module, "VYR_VersionRecordCount"));
  ASSERT_NE(count, nullptr);
  EXPECT_EQ(count(), 11u);
  dlclose(module);
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

TEST(ClassFrame, ObjectFamilyWithItsOwnInitialisation) {
  EXPECT_EQ(TEST_TSquare::QEN_ClassObject()->init, &TEST_TSquare::QEN_Initialize);
  EXPECT_EQ(TEST_TPlain::QEN_ClassObject()->init, nullptr) << "QEN_TObject's init is no init";
  int before = gSquareInitialisations;
  EXPECT_TRUE(TEST_TSquare::QEN_ClassObject()->Initialize());
  EXPECT_TRUE(TEST_TSquare::QEN_ClassObject()->Initialize());
  EXPECT_EQ(gSquareInitialisations, before + 2);
  EXPECT_TRUE(TEST_TPlain::QEN_ClassObject()->Initialize());
}

TEST(ClassFrame, ParentChainAnswersForSubclasses) {
  std::unique_ptr<QEN_IInterface> made(TEST_TBigSquare::QEN_Create());
  EXPECT_TRUE(made->HasSuperclass("TEST_TBigSquare"));
  EXPECT_TRUE(made->HasSuperclass("TEST_TSquare"));
  EXPECT_TRUE(made->HasInterface("TEST_IShape"));
  EXPECT_TRUE(TEST_TBigSquare::QEN_HasInterface("TEST_IShape"));
  EXPECT_EQ(TEST_TBigSquare::QEN_ParentClass(), TEST_TSquare::QEN_ClassObject());
  const TEST_IShape* shape = made->DynamicCast<TEST_IShape>();
  ASSERT_NE(shape, nullptr);
  EXPECT_EQ(shape->Corners(), 4);
  EXPECT_EQ(shape->DynamicCast("TEST_TBigSquare"), made->QEN_MostDerivedObject());
  EXPECT_NE(made->DynamicCast("TEST_TSquare"), nullptr);
  EXPECT_EQ(made->DynamicCast("TEST_TPlain"), nullptr);
}

TEST(ClassFrame, RegistryGivesOneObjectPerName) {
  const QEN_TClass* first = TEST_TPlain::QEN_ClassObject();
  QEN_TClass* again =
      QEN_TClass::GetClassObject(false, "TEST_TPlain", 1, nullptr, nullptr, nullptr);
  EXPECT_EQ(first, again);
  EXPECT_EQ(QEN_TClass::Find("TEST_TNeverDeclared"), nullptr);
}
