// Option parsing and the option value parsers.
#include <gtest/gtest.h>

#include <cmath>

#include "args.h"
#include "common/expect_throw.h"
#include "errors.h"

using namespace ptmatch::cli;

namespace {

const std::vector<OptionSpec> kSpecs = {{"--model", true}, {"--json", false}, {"--scale", true}};

std::string usageMessage(const std::vector<std::string>& args) {
  return expect_throw::whatOf<UsageError>([&] { parseOptions(args, kSpecs, "match"); });
}

}  // namespace

TEST(Options, ValuedOptionsTakeTheNextWordOrTheTextAfterEquals) {
  const ParsedOptions o =
      parseOptions({"--model", "m.txt", "--scale=-0.1:0.1", "--json"}, kSpecs, "match");
  EXPECT_EQ(o.value("--model"), "m.txt");
  EXPECT_EQ(o.value("--scale"), "-0.1:0.1");
  EXPECT_TRUE(o.has("--json"));
}

TEST(Options, AValueMayStartWithADash) {
  const ParsedOptions o = parseOptions({"--scale", "-0.2:0"}, kSpecs, "match");
  EXPECT_EQ(o.value("--scale"), "-0.2:0");
}

TEST(Options, AbsentOptionsGiveTheFallback) {
  const ParsedOptions o = parseOptions({}, kSpecs, "match");
  EXPECT_FALSE(o.has("--model"));
  EXPECT_EQ(o.value("--model", "none"), "none");
  EXPECT_THROW(o.required("--model"), UsageError);
}

TEST(Options, UnknownOptionsAreNamedInTheMessage) {
  EXPECT_NE(usageMessage({"--modle", "m.txt"}).find("unknown option --modle"), std::string::npos);
}

TEST(Options, AMissingValueIsAUsageError) {
  EXPECT_NE(usageMessage({"--model"}).find("--model needs a value"), std::string::npos);
}

TEST(Options, AnOptionGivenTwiceIsAUsageError) {
  EXPECT_NE(usageMessage({"--json", "--json"}).find("--json given twice"), std::string::npos);
}

TEST(Options, APositionalWordIsAUsageError) {
  EXPECT_NE(usageMessage({"model.txt"}).find("unexpected argument 'model.txt'"), std::string::npos);
}

TEST(Options, AFlagTakesNoValue) {
  EXPECT_NE(usageMessage({"--json=yes"}).find("--json takes no value"), std::string::npos);
}

TEST(Values, NumbersMustBeFiniteAndWhole) {
  EXPECT_DOUBLE_EQ(parseNumber(" 2.5 ", "--x"), 2.5);
  EXPECT_DOUBLE_EQ(parseNumber("-1e-3", "--x"), -1e-3);
  EXPECT_THROW(parseNumber("2.5x", "--x"), UsageError);
  EXPECT_THROW(parseNumber("nan", "--x"), UsageError);
  EXPECT_THROW(parseNumber("inf", "--x"), UsageError);
  EXPECT_THROW(parseNumber("1e999", "--x"), UsageError);
  EXPECT_THROW(parseNumber("", "--x"), UsageError);
  EXPECT_EQ(parseWholeNumber("12", "--n"), 12);
  EXPECT_THROW(parseWholeNumber("1.5", "--n"), UsageError);
  EXPECT_THROW(parseWholeNumber("4294967296", "--n"), UsageError);
}

TEST(Values, AnIntervalIsLoColonHiWithLoNotAboveHi) {
  const auto i = parseInterval("-0.1:0.1", "--scale");
  EXPECT_DOUBLE_EQ(i.first, -0.1);
  EXPECT_DOUBLE_EQ(i.second, 0.1);
  EXPECT_THROW(parseInterval("0.1", "--scale"), UsageError);
  EXPECT_THROW(parseInterval("1:2:3", "--scale"), UsageError);
  EXPECT_THROW(parseInterval("0.2:0.1", "--scale"), UsageError);
}

TEST(Values, TheMessageNamesTheOption) {
  EXPECT_THROW_THAT(parseInterval("a:1", "--scale"), UsageError, [&](const UsageError& e) {
    EXPECT_EQ(std::string(e.what()).rfind("--scale", 0), 0u) << e.what();
  });
}

TEST(Values, APoseIsSixNumbersInRowOrder) {
  const mvXform<2> p = parsePose("1,2,3,4,5,6", "--start-pose");
  EXPECT_EQ(p.matrix(), mvMatrix<2>(1, 2, 3, 4));
  EXPECT_EQ(p.trans(), mvVector<2>(5, 6));
  EXPECT_THROW(parsePose("1,0,0,1,0", "--start-pose"), UsageError);
  EXPECT_THROW(parsePose("1,2,2,4,0,0", "--start-pose"), UsageError);  // singular
}

TEST(Values, RotationRangesAreInDegreesAndFullFromATurn) {
  const mvAngleRange r = parseRotationRange("-30:45", "--rotation");
  EXPECT_EQ(r.range(), mvRangeDefs::eNormal);
  EXPECT_NEAR(r.start().toDouble(), -30.0 * M_PI / 180.0, 1e-12);
  EXPECT_NEAR(r.end().toDouble(), 45.0 * M_PI / 180.0, 1e-12);
  EXPECT_EQ(parseRotationRange("full", "--rotation").range(), mvRangeDefs::eFull);
  EXPECT_EQ(parseRotationRange("-180:180", "--rotation").range(), mvRangeDefs::eFull);
}

TEST(Values, TranslationRangesAreFullOrLoHi) {
  EXPECT_EQ(parseTranslationRange("full", "--x-range").range(), mvRangeDefs::eFull);
  const mvRange r = parseTranslationRange("-5:5", "--x-range");
  EXPECT_EQ(r.range(), mvRangeDefs::eNormal);
  EXPECT_DOUBLE_EQ(r.end(), 5.0);
}

TEST(Values, AVectorIsXCommaY) {
  EXPECT_EQ(parseVector("10,-2.5", "--xv"), mvVector<2>(10, -2.5));
  EXPECT_THROW(parseVector("10", "--xv"), UsageError);
  EXPECT_THROW(parseVector("10,y", "--xv"), UsageError);
}
