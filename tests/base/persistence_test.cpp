// The persistence root: visited marks per archive, the instantiator registry, and the
// exception family with its persisted form, messages and assertions.
#include <gtest/gtest.h>

#include <memory>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "mvbase/archive.h"
#include "mvbase/attention.h"
#include "mvbase/exception.h"
#include "mvbase/fitter.h"

using namespace archive_bytes;

namespace {

// A persisted class of the tests' own, registered only inside a test.
class Widget : public mvPersistent {
 public:
  static mvPersistent* make() { return new Widget(); }
};

}  // namespace

// --- visited marks ---

TEST(VisitedMarks, AreKeptPerArchive) {
  int object = 0;
  mvMemoryArchive first;
  EXPECT_FALSE(first.haveVisited(&object, sizeof object));
  first.setVisited(&object, sizeof object);
  EXPECT_TRUE(first.haveVisited(&object, sizeof object));
  EXPECT_FALSE(first.haveVisited(&object, 1));  // the size is part of the mark
  mvMemoryArchive second;
  EXPECT_FALSE(second.haveVisited(&object, sizeof object));
}

TEST(VisitedMarks, StaticMarksGoToTheNewestLiveArchive) {
  int object = 0;
  EXPECT_FALSE(mvPersistent::haveVisited(&object, sizeof object));
  mvPersistent::setVisited(&object, sizeof object);  // no live archive: nothing happens
  EXPECT_FALSE(mvPersistent::haveVisited(&object, sizeof object));

  mvMemoryArchive outer;
  {
    mvMemoryArchive inner;
    mvPersistent::setVisited(&object, sizeof object);
    EXPECT_TRUE(mvPersistent::haveVisited(&object, sizeof object));
    EXPECT_TRUE(inner.haveVisited(&object, sizeof object));
    EXPECT_FALSE(outer.haveVisited(&object, sizeof object));
  }
  EXPECT_FALSE(mvPersistent::haveVisited(&object, sizeof object));  // back to outer
  mvPersistent::setVisited(&object, sizeof object);
  EXPECT_TRUE(outer.haveVisited(&object, sizeof object));
}

TEST(VisitedMarks, AnExceptionReachedTwiceIsWrittenOnce) {
  mvMathError e(L"x");
  mvMemoryArchive out;
  e.dispatchSerialize(out);
  const std::size_t once = out.bytes().size();
  e.dispatchSerialize(out);
  EXPECT_EQ(out.bytes().size(), once);

  mvMemoryArchive again;  // a new archive operation writes it again
  e.dispatchSerialize(again);
  EXPECT_EQ(again.bytes().size(), once);
}

// --- registry ---

TEST(Instantiator, CreatesEveryBaseExceptionByName) {
  EXPECT_NE(created<mvException>("mvException"), nullptr);
  EXPECT_NE(created<mvExceptionWithString>("mvExceptionWithString"), nullptr);
  EXPECT_NE(created<mvMathError>("mvMathError"), nullptr);
  EXPECT_NE(created<mvAssertionError>("mvAssertionError"), nullptr);
  EXPECT_NE(created<mvArchive::Errors>("mvArchive::Errors"), nullptr);
  EXPECT_NE(created<mvArchive::UnknownVersion>("mvArchive::UnknownVersion"), nullptr);
  EXPECT_NE(created<mvArchive::EndOfData>("mvArchive::EndOfData"), nullptr);
  EXPECT_NE(created<mvArchive::BadData>("mvArchive::BadData"), nullptr);
  EXPECT_NE(created<mvLSPointToPointFitter::Errors>("mvLSPointToPointFitter::Errors"), nullptr);
  EXPECT_NE(created<mvAttention::Interrupted>("mvAttention::Interrupted"), nullptr);
}

TEST(Instantiator, CreatesTheExactClassByType) {
  std::unique_ptr<mvPersistent> p(mv_Instantiator::create(typeid(mvArchive::EndOfData)));
  ASSERT_NE(p, nullptr);
  const mvPersistent& object = *p;
  EXPECT_EQ(typeid(object), typeid(mvArchive::EndOfData));
}

TEST(Instantiator, NamesTheRegisteredClasses) {
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(mvMathError)), "mvMathError");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(mvArchive::UnknownVersion)),
            "mvArchive::UnknownVersion");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Widget)), "");
}

TEST(Instantiator, UnknownNamesAndTypesGiveNull) {
  EXPECT_EQ(mv_Instantiator::create("noSuchClass"), nullptr);
  EXPECT_EQ(mv_Instantiator::create(typeid(Widget)), nullptr);
}

TEST(Instantiator, RegistrationLastsAsLongAsTheInstantiator) {
  {
    const mv_Instantiator registration(typeid(Widget), &Widget::make, "Widget");
    std::unique_ptr<mvPersistent> byName(mv_Instantiator::create("Widget"));
    std::unique_ptr<mvPersistent> byType(mv_Instantiator::create(typeid(Widget)));
    EXPECT_NE(dynamic_cast<Widget*>(byName.get()), nullptr);
    EXPECT_NE(dynamic_cast<Widget*>(byType.get()), nullptr);
    EXPECT_EQ(mv_Instantiator::nameOf(typeid(Widget)), "Widget");
  }
  EXPECT_EQ(mv_Instantiator::create("Widget"), nullptr);
  EXPECT_EQ(mv_Instantiator::create(typeid(Widget)), nullptr);
}

TEST(Instantiator, WithoutANameTheTypeNameServes) {
  const mv_Instantiator registration(typeid(Widget), &Widget::make);
  std::unique_ptr<mvPersistent> p(mv_Instantiator::create(typeid(Widget).name()));
  EXPECT_NE(dynamic_cast<Widget*>(p.get()), nullptr);
}

// --- exceptions: family, messages, rethrow ---

TEST(Exceptions, EveryErrorIsAnMvExceptionAndAStdException) {
  EXPECT_THROW(throw mvMathError(), mvException);
  EXPECT_THROW(throw mvArchive::UnknownVersion("ptmatch/tm", 2226), mvArchive::Errors);
  EXPECT_THROW(throw mvArchive::EndOfData(), mvPersistent);
  EXPECT_THROW(throw mvLSPointToPointFitter::Errors(), mvExceptionWithString);
  EXPECT_THROW(throw mvAttention::Interrupted(), std::exception);
}

TEST(Exceptions, WhatIsTheMessageInUtf8) {
  const mvMathError e(L"gr\u00fc\u00df");
  EXPECT_EQ(e.message(), L"gr\u00fc\u00df");
  EXPECT_STREQ(e.what(), "gr\xC3\xBC\xC3\x9F");
}

TEST(Exceptions, DefaultMessagesAreNotEmpty) {
  EXPECT_FALSE(mvMathError().message().empty());
  EXPECT_FALSE(mvArchive::EndOfData().message().empty());
  EXPECT_FALSE(mvAttention::Interrupted().message().empty());
  EXPECT_EQ(mvException().message(), L"mvException");
}

TEST(Exceptions, UnknownVersionNamesItsPlace) {
  const mvArchive::UnknownVersion e("ptmatch/tm", 2226);
  EXPECT_EQ(e.file(), "ptmatch/tm");
  EXPECT_EQ(e.line(), 2226);
  EXPECT_EQ(e.message(), L"The archive holds an unknown version (ptmatch/tm, line 2226).");
  const mvArchive::UnknownVersion nowhere(nullptr, 0);
  EXPECT_EQ(nowhere.file(), "");
  EXPECT_EQ(nowhere.message(), L"The archive holds an unknown version.");
}

TEST(Exceptions, ErrorNumberIsZeroUnlessAClassSetsOne) {
  EXPECT_EQ(mvMathError().errorNumber(), 0);
}

TEST(Exceptions, CopiesCarryTheMessage) {
  const mvMathError e(L"singular");
  mvMathError copy(e);
  EXPECT_EQ(copy.text(), L"singular");
  mvMathError assigned;
  assigned = e;
  EXPECT_EQ(assigned.text(), L"singular");
}

TEST(Exceptions, SuicideAndRethrowThrowsACopyOfTheMostDerivedClass) {
  mvPersistent* p = mv_Instantiator::create("mvArchive::UnknownVersion");
  mvException* e = dynamic_cast<mvException*>(p);
  ASSERT_NE(e, nullptr);
  EXPECT_THROW(e->suicideAndRethrow(), mvArchive::UnknownVersion);  // and e is gone

  mvException* math = new mvMathError(L"m");
  EXPECT_THROW_THAT(math->suicideAndRethrow(), mvMathError,
                    [&](const mvMathError& thrown) { EXPECT_EQ(thrown.text(), L"m"); });
}

// --- assertions ---

TEST(Assertions, APassingCheckDoesNothing) { EXPECT_NO_THROW(mvAssert(1 + 1 == 2, "tests", 1)); }

TEST(Assertions, AFailingCheckNamesExpressionModuleAndLine) {
  EXPECT_THROW_THAT(
      mvAssert(1 + 1 == 3, "ptmatch/tm", 1394), mvAssertionError, [&](const mvAssertionError& e) {
        EXPECT_EQ(e.expression(), "1 + 1 == 3");
        EXPECT_EQ(e.module(), "ptmatch/tm");
        EXPECT_EQ(e.line(), 1394);
        EXPECT_EQ(e.message(), L"Assertion failed: 1 + 1 == 3 (ptmatch/tm, line 1394)");
      });
}

TEST(Assertions, AFailingCheckIsAnMvException) {
  EXPECT_THROW(mvAssert(false, "tests", 2), mvException);
}

// --- persisted exceptions ---

TEST(ExceptionPersistence, ClassVersionBytesThenTheMessage) {
  mvMathError e(L"x");
  // mvMathError, mvExceptionWithString and mvException versions, then count and UTF-8 bytes.
  EXPECT_EQ(storeError(e), cat({{0, 0, 0}, le32(1), {'x'}}));
}

TEST(ExceptionPersistence, MessageRoundTrip) {
  mvMathError e(L"singular \u00e9\U0001F600");
  const Bytes bytes = storeError(e);
  auto back = created<mvMathError>("mvMathError");
  ASSERT_NE(back, nullptr);
  mvMemoryArchive in(bytes);
  back->dispatchSerialize(in);
  EXPECT_TRUE(in.atEnd());
  EXPECT_EQ(back->text(), e.text());
}

TEST(ExceptionPersistence, AssertionKeepsExpressionModuleAndLine) {
  mvAssertionError e("a < b", "ptmatch/pinv", 1723);
  const Bytes bytes = storeError(e);
  mvAssertionError back;
  mvMemoryArchive in(bytes);
  back.dispatchSerialize(in);
  EXPECT_TRUE(in.atEnd());
  EXPECT_EQ(back.expression(), "a < b");
  EXPECT_EQ(back.module(), "ptmatch/pinv");
  EXPECT_EQ(back.line(), 1723);
  EXPECT_EQ(back.text(), e.text());
}

TEST(ExceptionPersistence, UnknownVersionKeepsFileAndLine) {
  mvArchive::UnknownVersion e("ptmatch/matext", 778);
  const Bytes bytes = storeError(e);
  mvArchive::UnknownVersion back;
  mvMemoryArchive in(bytes);
  back.dispatchSerialize(in);
  EXPECT_EQ(back.file(), "ptmatch/matext");
  EXPECT_EQ(back.line(), 778);
  EXPECT_EQ(back.message(), e.message());
}

TEST(ExceptionPersistence, EveryRegisteredErrorRoundTrips) {
  for (const char* name :
       {"mvExceptionWithString", "mvArchive::Errors", "mvArchive::EndOfData", "mvArchive::BadData",
        "mvLSPointToPointFitter::Errors", "mvAttention::Interrupted"}) {
    auto original = created<mvExceptionWithString>(name);
    ASSERT_NE(original, nullptr) << name;
    const Bytes bytes = storeError(*original);
    auto back = created<mvExceptionWithString>(name);
    mvMemoryArchive in(bytes);
    back->dispatchSerialize(in);
    EXPECT_TRUE(in.atEnd()) << name;
    EXPECT_EQ(back->text(), original->text()) << name;
  }
}

TEST(ExceptionPersistence, UnknownClassVersionNamesTheClass) {
  mvMathError e;
  mvMemoryArchive in(cat({{1}, {0, 0}, le32(0)}));
  EXPECT_THROW_THAT(e.dispatchSerialize(in), mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& error) {
                      EXPECT_EQ(error.file(), "mvMathError");
                      EXPECT_EQ(error.line(), 0);
                    });
  mvMemoryArchive in2(cat({{0}, {3}, {0}, le32(0)}));
  EXPECT_THROW_THAT(e.dispatchSerialize(in2), mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& error) {
                      EXPECT_EQ(error.file(), "mvExceptionWithString");
                    });
}

TEST(ExceptionPersistence, TruncatedMessageIsAnArchiveError) {
  mvMathError e(L"hello");
  const Bytes bytes = storeError(e);
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    mvMathError back;
    mvMemoryArchive in(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n)));
    EXPECT_THROW(back.dispatchSerialize(in), mvArchive::Errors) << n;
  }
}

// --- UTF-8 conversions ---

TEST(Utf8, WidenAndNarrowRoundTripEveryPlane) {
  const std::wstring text = L"a\u00e9\u20ac\U0001F600";
  EXPECT_EQ(mfNarrow(text), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(mfWiden(mfNarrow(text)), text);
}

TEST(Utf8, MalformedBytesBecomeReplacementCharacters) {
  EXPECT_EQ(mfWiden("a\xFF"
                    "b"),
            L"a\uFFFDb");
  EXPECT_EQ(mfWiden("\xC3"), L"\uFFFD");      // cut short
  EXPECT_EQ(mfWiden("\xC0\xAF"), L"\uFFFD");  // overlong form of '/'
  EXPECT_EQ(mfWiden("\x80"
                    "a"),
            L"\uFFFDa");  // stray continuation byte
}
