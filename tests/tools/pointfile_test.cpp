// Point files: the text and JSON forms, weights, and a message with the line for each bad
// file.
#include <gtest/gtest.h>

#include "common/expect_throw.h"
#include "errors.h"
#include "pointfile.h"
#include "tool_test_support.h"

using namespace ptmatch::cli;

namespace {

// The message of the InputError that parsing the text throws, or "" when none.
std::string parseError(const std::string& text) {
  return expect_throw::whatOf<InputError>([&] { parsePointText(text, "pts.txt"); });
}

}  // namespace

TEST(PointFile, BlankSeparatedPointsInFileOrder) {
  const PointFile f = parsePointText("1 2\n3.5 -4\n\t5e1   6\n", "pts.txt");
  ASSERT_EQ(f.points.size(), 3u);
  EXPECT_EQ(f.points[0], mvVector<2>(1, 2));
  EXPECT_EQ(f.points[1], mvVector<2>(3.5, -4));
  EXPECT_EQ(f.points[2], mvVector<2>(50, 6));
  EXPECT_TRUE(f.weights.empty());
}

TEST(PointFile, CommaSeparatedPointsWithCommentsHeaderAndBlankLines) {
  const PointFile f =
      parsePointText("# measured dots\nx,y\n\n1,2   # first\n 3 , 4\r\n", "pts.txt");
  ASSERT_EQ(f.points.size(), 2u);
  EXPECT_EQ(f.points[0], mvVector<2>(1, 2));
  EXPECT_EQ(f.points[1], mvVector<2>(3, 4));
}

TEST(PointFile, AThirdColumnHoldsWholeNumberWeights) {
  const PointFile f = parsePointText("x y weight\n0 0 5\n1 0 -3\n2 0 1.0\n", "pts.txt");
  ASSERT_EQ(f.points.size(), 3u);
  EXPECT_EQ(f.weights, (std::vector<long>{5, -3, 1}));
}

TEST(PointFile, AnEmptyFileHoldsNoPoints) {
  EXPECT_TRUE(parsePointText("", "pts.txt").points.empty());
  EXPECT_TRUE(parsePointText("# nothing\n\n", "pts.txt").points.empty());
}

TEST(PointFile, AJsonArrayOfPairs) {
  const PointFile f = parsePointText(" [[1, 2], [3.5, -4e0]]\n", "pts.json");
  ASSERT_EQ(f.points.size(), 2u);
  EXPECT_EQ(f.points[1], mvVector<2>(3.5, -4));
  EXPECT_TRUE(parsePointText("[]", "pts.json").points.empty());
}

TEST(PointFile, AJsonArrayOfTriplesCarriesWeights) {
  const PointFile f = parsePointText("[[1, 2, 3], [3, 4, -1]]", "pts.json");
  EXPECT_EQ(f.weights, (std::vector<long>{3, -1}));
}

TEST(PointFile, ANonNumericLineAfterTheFirstNamesItsLine) {
  EXPECT_EQ(parseError("x y\n1 2\n3 four\n"),
            "pts.txt:3: expected 'x y' or 'x,y' (and an optional weight), got '3 four'");
}

TEST(PointFile, OnlyOneHeaderLineIsSkipped) {
  EXPECT_NE(parseError("x y\nu v\n1 2\n").find("pts.txt:2:"), std::string::npos);
}

TEST(PointFile, ALineWithOneNumberIsRefused) {
  EXPECT_NE(parseError("1 2\n# c\n7\n").find("pts.txt:3:"), std::string::npos);
}

TEST(PointFile, ALineWithFourNumbersIsRefused) {
  EXPECT_NE(parseError("1 2 3 4\n").find("pts.txt:1:"), std::string::npos);
}

TEST(PointFile, ColumnCountsMustAgree) {
  EXPECT_EQ(parseError("1 2\n3 4 5\n"), "pts.txt:2: expected 2 columns as on line 1, got 3");
}

TEST(PointFile, AnEmptyCommaFieldIsRefused) {
  EXPECT_NE(parseError("0,0\n1,,2\n").find("pts.txt:2:"), std::string::npos);
}

TEST(PointFile, NotANumberAndInfinityAreRefused) {
  EXPECT_NE(parseError("1 2\nnan 1\n").find("pts.txt:2:"), std::string::npos);
  EXPECT_NE(parseError("1 2\n1 inf\n").find("pts.txt:2:"), std::string::npos);
  EXPECT_NE(parseError("1 2\n1 1e400\n").find("pts.txt:2:"), std::string::npos);
}

TEST(PointFile, AFractionalWeightIsRefused) {
  EXPECT_EQ(parseError("1 2 1\n3 4 0.5\n"), "pts.txt:2: the weight '0.5' is not a whole number");
}

TEST(PointFile, JsonSyntaxErrorsNameLineAndColumn) {
  EXPECT_EQ(parseError("[[1, 2],\n [3, 4]\n [5, 6]]"),
            "pts.txt:3: expected ',' or ']' in an array (column 2)");
}

TEST(PointFile, JsonEntriesThatAreNotPairsNameTheirLine) {
  EXPECT_EQ(parseError("[\n  [1, 2],\n  [3],\n  [5, 6]\n]"),
            "pts.txt:3: expected a pair [x, y] or a triple [x, y, weight]");
  EXPECT_NE(parseError("[[1, \"2\"]]").find("pts.txt:1:"), std::string::npos);
  EXPECT_NE(parseError("[[1, 2], [1, 2, 3]]").find("pts.txt:1:"), std::string::npos);
}

TEST(PointFile, JsonThatIsNotAnArrayOfPairsIsRefused) {
  EXPECT_NE(parseError("[1, 2]").find("pts.txt:1:"), std::string::npos);
  EXPECT_NE(parseError("[[1, 2]] extra").find("pts.txt:1:"), std::string::npos);
}

TEST(PointFile, AMissingFileIsNamed) {
  EXPECT_THROW_THAT(readPointFile("/nonexistent/points.txt"), InputError, [&](const InputError& e) {
    EXPECT_EQ(std::string(e.what()).rfind("cannot read /nonexistent/points.txt", 0), 0u);
  });
}

TEST(PointFile, ReadsFromDisk) {
  tool_test::Files files;
  const std::string p = files.write("m.txt", "0 0\n10 0\n0 10\n");
  EXPECT_EQ(readPointFile(p).points.size(), 3u);
}

TEST(WeightsFile, OneWholeNumberALineOrAJsonArray) {
  EXPECT_EQ(parseWeightsText("weight\n3\n-1 # negative\n\n0\n", "w.txt"),
            (std::vector<long>{3, -1, 0}));
  EXPECT_EQ(parseWeightsText("[3, -1, 0]", "w.json"), (std::vector<long>{3, -1, 0}));
}

TEST(WeightsFile, BadWeightsNameTheirLine) {
  EXPECT_THROW_MESSAGE(parseWeightsText("1\n2\n2.5\n", "w.txt"), InputError,
                       "w.txt:3: expected one whole-number weight, got '2.5'");
  EXPECT_THROW(parseWeightsText("[1, [2]]", "w.json"), InputError);
}

TEST(PointFile, AFirstLineWithANumberIsAPointNotAHeader) {
  EXPECT_EQ(parseError("1 2x\n3 4\n"),
            "pts.txt:1: expected 'x y' or 'x,y' (and an optional weight), got '1 2x'");
}

TEST(PointFile, AByteOrderMarkIsSkipped) {
  const PointFile f = parsePointText(
      "\xEF\xBB\xBF"
      "1 2\n3 4\n",
      "pts.txt");
  ASSERT_EQ(f.points.size(), 2u);
  EXPECT_EQ(f.points[0], mvVector<2>(1, 2));
  EXPECT_EQ(parsePointText("\xEF\xBB\xBF[[1, 2]]", "pts.json").points.size(), 1u);
}
