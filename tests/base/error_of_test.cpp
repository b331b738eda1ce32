// Error classes written with mvErrorOf and registered with mv_InstantiatorOf: the class
// levels they persist, the class names their unknown versions report, rethrowing by their
// own type, and the library's own errors built the same way.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "common/archive_bytes.h"
#include "mvbase/archive.h"
#include "mvbase/attention.h"
#include "mvbase/exception.h"
#include "mvbase/fitter.h"
#include "mvbase/persistent.h"

using namespace archive_bytes;

namespace {

// A new error in three lines, as a user of the template writes it.
class Plain : public mvErrorOf<Plain, mvExceptionWithString> {
 public:
  explicit Plain(const std::wstring& message = L"plain") : mvErrorOf(message) {}
};

// An error below another, with a member of its own to persist.
class Counted : public mvErrorOf<Counted, Plain> {
 public:
  explicit Counted(long count = 0) : mvErrorOf(L"counted"), count_(count) {}
  long count() const { return count_; }

 protected:
  void serialize_(mvArchive& ar, unsigned char version) override {
    mvErrorOf::serialize_(ar, version);
    ar || count_;
  }

 private:
  friend class mvErrorOf<Counted, Plain>;
  long count_;
};

// Below Counted, without members: must not persist Counted's member twice.
class Leaf : public mvErrorOf<Leaf, Counted> {
 public:
  Leaf() : mvErrorOf(7) {}
};

const mv_InstantiatorOf<Plain> registerPlain("tests::Plain");
const mv_InstantiatorOf<Counted> registerCounted("tests::Counted");

// The bytes of a persisted mvExceptionWithString level with message "ab": its version,
// mvException's version, then the message's byte count and bytes.
Bytes withStringLevel(const char* text) {
  ByteWriter w;
  w.u8(0).u8(0).u32(static_cast<std::uint32_t>(std::string(text).size()));
  for (const char* c = text; *c != '\0'; ++c) w.u8(static_cast<unsigned char>(*c));
  return w.bytes();
}

// Loading an error's bytes with its first (most derived) class version set to 1 reports
// an unknown version; returns the class name it names.
std::string unknownVersionNameOf(mvException& e) {
  Bytes bytes = storeError(e);
  bytes.at(0) = 1;
  mvMemoryArchive in(bytes);
  try {
    e.dispatchSerialize(in);
  } catch (const mvArchive::UnknownVersion& error) {
    EXPECT_EQ(error.line(), 0);
    return error.file();
  }
  return "(no error)";
}

}  // namespace

TEST(ErrorOf, KeepsTheBaseForCatching) {
  EXPECT_THROW(throw Plain(), mvExceptionWithString);
  EXPECT_THROW(throw Leaf(), Plain);
  EXPECT_THROW(throw Leaf(), Counted);
  EXPECT_THROW(throw Counted(), mvException);
  EXPECT_STREQ(Plain(L"said").what(), "said");
  EXPECT_STREQ(Leaf().what(), "counted");
}

TEST(ErrorOf, PersistsOneVersionByteThenItsBase) {
  Plain e(L"ab");
  EXPECT_EQ(storeError(e), cat({u8(0), withStringLevel("ab")}));
}

TEST(ErrorOf, PersistsOwnMembersAfterItsBase) {
  Counted e(-2);
  EXPECT_EQ(storeError(e), cat({u8(0), u8(0), withStringLevel("counted"), s32(-2)}));
  Leaf leaf;
  EXPECT_EQ(storeError(leaf), cat({u8(0), u8(0), u8(0), withStringLevel("counted"), s32(7)}));
}

TEST(ErrorOf, LoadsWhatItStored) {
  Counted e(41);
  const Bytes bytes = storeError(e);
  Counted back;
  mvMemoryArchive in(bytes);
  back.dispatchSerialize(in);
  EXPECT_TRUE(in.atEnd());
  EXPECT_EQ(back.count(), 41);
  EXPECT_EQ(back.text(), L"counted");
}

TEST(ErrorOf, IsWrittenOncePerArchive) {
  Plain e(L"");
  mvMemoryArchive out;
  e.dispatchSerialize(out);
  e.dispatchSerialize(out);
  EXPECT_EQ(out.bytes(), cat({u8(0), withStringLevel("")}));
}

TEST(ErrorOf, UnknownVersionNamesTheRegisteredClass) {
  Plain plain;
  EXPECT_EQ(unknownVersionNameOf(plain), "tests::Plain");
  Counted counted;
  EXPECT_EQ(unknownVersionNameOf(counted), "tests::Counted");
}

TEST(ErrorOf, UnknownVersionOfABaseLevelNamesThatLevel) {
  Counted e(3);
  Bytes bytes = storeError(e);
  bytes.at(1) = 2;  // Plain's class version
  mvMemoryArchive in(bytes);
  try {
    e.dispatchSerialize(in);
    FAIL() << "no error";
  } catch (const mvArchive::UnknownVersion& error) {
    EXPECT_EQ(error.file(), "tests::Plain");
  }
}

TEST(ErrorOf, MakeAndCreateGiveDefaultInstances) {
  std::unique_ptr<mvPersistent> made(Counted::make());
  ASSERT_NE(dynamic_cast<Counted*>(made.get()), nullptr);
  const auto counted = created<Counted>("tests::Counted");
  ASSERT_NE(counted, nullptr);
  EXPECT_EQ(counted->count(), 0);
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Plain)), "tests::Plain");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Leaf)), "");  // never registered
}

TEST(ErrorOf, SuicideAndRethrowThrowsItsOwnType) {
  mvException* e = new Counted(5);
  try {
    e->suicideAndRethrow();  // deletes e
    FAIL() << "no error";
  } catch (const Counted& copy) {
    EXPECT_EQ(copy.count(), 5);
  }
  mvException* leaf = new Leaf();
  EXPECT_THROW(leaf->suicideAndRethrow(), Leaf);
}

// The library's own errors, made by name, report their own names for an unknown version
// and rethrow as what they are.
TEST(ErrorOf, LibraryErrorsNameThemselves) {
  const std::vector<std::string> names = {"mvMathError",
                                          "mvAssertionError",
                                          "mvArchive::Errors",
                                          "mvArchive::EndOfData",
                                          "mvArchive::UnknownVersion",
                                          "mvArchive::BadData",
                                          "mvAttention::Interrupted",
                                          "mvAttention::TimedOut",
                                          "mvLSPointToPointFitter::Errors"};
  for (const std::string& name : names) {
    std::unique_ptr<mvException> e(created<mvException>(name));
    ASSERT_NE(e, nullptr) << name;
    const mvException& error = *e;
    EXPECT_EQ(mv_Instantiator::nameOf(typeid(error)), name);
    EXPECT_EQ(unknownVersionNameOf(*e), name);
  }
}

TEST(ErrorOf, LibraryErrorsRethrowByTheirOwnType) {
  EXPECT_THROW(
      created<mvAttention::TimedOut>("mvAttention::TimedOut").release()->suicideAndRethrow(),
      mvAttention::TimedOut);
  EXPECT_THROW(created<mvArchive::EndOfData>("mvArchive::EndOfData").release()->suicideAndRethrow(),
               mvArchive::Errors);
  EXPECT_THROW(created<mvMathError>("mvMathError").release()->suicideAndRethrow(), mvMathError);
}
