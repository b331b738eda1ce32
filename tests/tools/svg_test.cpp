// The pictures: well-formed XML with the parts a reader looks for.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "common/expect_throw.h"
#include "errors.h"
#include "pictures.h"
#include "svg.h"
#include "tool_test_support.h"
#include "xml_check.h"

using namespace ptmatch::cli;

namespace {

// Counts the occurrences of needle in text.
std::size_t count(const std::string& text, const std::string& needle) {
  std::size_t n = 0;
  for (std::size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
    ++n;
  return n;
}

MatchReport smallMatch() {
  MatchReport r;
  r.command = "match";
  r.mode = "ePointToPoint";
  r.model = {{0, 0}, {10, 0}, {0, 10}, {10, 10}};
  r.data = {{100, 100}, {110, 100}, {100, 110}, {150, 150}};
  FoundMatch m;
  m.pose = mvXform<2>(mvMatrix<2>(), mvVector<2>(100, 100));
  m.coverage = 0.75;
  m.fitError = 0.0;
  m.map = {0, 1, 2, -1};
  r.results.push_back(m);
  return r;
}

}  // namespace

TEST(XmlCheck, AcceptsWellFormedAndRefusesBrokenDocuments) {
  EXPECT_EQ(xml_check::wellFormedError("<?xml version=\"1.0\"?>\n<a x=\"1\"><b/>t &amp; u</a>\n"),
            "");
  EXPECT_NE(xml_check::wellFormedError("<a><b></a></b>"), "");
  EXPECT_NE(xml_check::wellFormedError("<a x=1/>"), "");
  EXPECT_NE(xml_check::wellFormedError("<a x=\"1\" x=\"2\"/>"), "");
  EXPECT_NE(xml_check::wellFormedError("<a>&nbsp;</a>"), "");
  EXPECT_NE(xml_check::wellFormedError("<a/><b/>"), "");
  EXPECT_NE(xml_check::wellFormedError("<a><!-- x -- y --></a>"), "");
  EXPECT_NE(xml_check::wellFormedError("<a>"), "");
}

TEST(Svg, TextAndCommentsAreEscaped) {
  SvgDocument svg(10, 10);
  svg.text(1, 1, "a < b & \"c\" -- d", 10);
  svg.comment("x -- y --> z");
  const std::string doc = svg.str();
  EXPECT_EQ(xml_check::wellFormedError(doc), "");
  EXPECT_NE(doc.find("a &lt; b &amp; &quot;c&quot;"), std::string::npos);
}

TEST(Svg, NumbersAreShortAndNeverNegativeZero) {
  EXPECT_EQ(fixed(1.5, 2), "1.5");
  EXPECT_EQ(fixed(2.0, 2), "2");
  EXPECT_EQ(fixed(-0.001, 2), "0");
  EXPECT_EQ(fixed(-1.256, 2), "-1.26");
}

TEST(Svg, TheMappingKeepsTheAspectRatioAndFitsTheBox) {
  const PlotMapping m(0, 0, 200, 100, 0, 0, 400, 400);
  EXPECT_NEAR((m.x(200) - m.x(0)) / 200.0, (m.y(100) - m.y(0)) / 100.0, 1e-12);
  EXPECT_GE(m.x(0), 0.0);
  EXPECT_LE(m.x(200), 400.0);
  EXPECT_NEAR((m.y(0) + m.y(100)) / 2.0, 200.0, 1e-9);  // centred vertically
}

TEST(MatchPicture, ShowsEveryPointTheCorrespondencesAndALegend) {
  const std::string doc = matchPicture("test", smallMatch()).str();
  EXPECT_EQ(xml_check::wellFormedError(doc), "");
  // 4 data points plus 2 legend samples and the legend's two data samples.
  EXPECT_EQ(count(doc, "<circle"), 4u + 2u);
  // 3 correspondences and the legend's sample line.
  EXPECT_EQ(count(doc, "stroke=\"#2ca02c\""), 3u + 1u);
  EXPECT_NE(doc.find("coverage 0.75 (3 of 4 model points)"), std::string::npos);
  EXPECT_NE(doc.find("fit error 0"), std::string::npos);
  EXPECT_NE(doc.find("model point, unmatched"), std::string::npos);
  EXPECT_NE(doc.find("data point, unmatched"), std::string::npos);
}

TEST(MatchPicture, WithoutAResultSaysSo) {
  MatchReport r = smallMatch();
  r.results.clear();
  const std::string doc = matchPicture("none", r).str();
  EXPECT_EQ(xml_check::wellFormedError(doc), "");
  EXPECT_NE(doc.find("no pose found"), std::string::npos);
}

TEST(GridPicture, LabelsEveryAssignedPointAndMarksTheOthers) {
  GridReport g;
  g.valid = true;
  g.count = 3;
  g.grid2point = mvXform<2>(mvMatrix<2>(10, 0, 0, 10), mvVector<2>());
  g.points = {{0, 0}, {10, 0}, {0, 10}, {5, 5}};
  g.map = {{0, 0}, {1, 0}, {0, 1}, {kUnassignedNode, kUnassignedNode}};
  const std::string doc = gridPicture("grid", g).str();
  EXPECT_EQ(xml_check::wellFormedError(doc), "");
  EXPECT_NE(doc.find(">0,0</text>"), std::string::npos);
  EXPECT_NE(doc.find(">1,0</text>"), std::string::npos);
  EXPECT_NE(doc.find(">0,1</text>"), std::string::npos);
  // One crossed-out point, and the legend's sample.
  EXPECT_EQ(count(doc, "stroke=\"#d62728\""), 1u + 1u);
  EXPECT_NE(doc.find("3 of 4 points on grid nodes"), std::string::npos);
}

TEST(Svg, SavingToAnUnwritablePlaceNamesTheFile) {
  EXPECT_THROW_THAT(
      SvgDocument(1, 1).save("/nonexistent/dir/p.svg"), InputError, [&](const InputError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("cannot write /nonexistent/dir/p.svg", 0), 0u);
      });
}

// --- the pictures of the commands, read as a reader of SVG reads them ---

namespace {

// Expects the picture at path to be an SVG document with at least one point drawn and the
// wanted phrases in its texts.
void expectSvgPicture(const std::string& svg, const std::vector<std::string>& wanted) {
  const xml_check::Outline outline = xml_check::outlineOf(svg);
  EXPECT_EQ(outline.root, "svg");
  EXPECT_EQ(outline.attributes.count("xmlns") ? outline.attributes.at("xmlns") : "",
            "http://www.w3.org/2000/svg");
  EXPECT_GT(outline.counts.count("circle") ? outline.counts.at("circle") : 0, 0)
      << "no points drawn";
  for (const std::string& phrase : wanted) {
    EXPECT_NE(outline.texts.find(phrase), std::string::npos) << "no text containing " << phrase;
  }
}

}  // namespace

TEST(SvgPictures, DemoMatchAndGridDrawSvgDocumentsWithTheirParts) {
  tool_test::Files files;
  ASSERT_EQ(
      tool_test::run({"demo", "--svg", files.path("demo.svg"), "--write-points", files.path("")})
          .status,
      0);
  expectSvgPicture(files.read("demo.svg"),
                   {"fiducial", "coverage", "grid to point", "point without a node"});

  ASSERT_EQ(tool_test::run({"match", "--model", files.path("fiducial-model.txt"), "--data",
                            files.path("fiducial-data.txt"), "--scale", "-0.1:0.1", "--svg",
                            files.path("match.svg")})
                .status,
            0);
  expectSvgPicture(files.read("match.svg"),
                   {"pose", "coverage", "fit error", "model point, unmatched"});

  ASSERT_EQ(tool_test::run({"grid", "--points", files.path("grid-points.txt"), "--xv", "10,0",
                            "--yv", "0,10", "--staggered", "--svg", files.path("grid.svg")})
                .status,
            0);
  expectSvgPicture(files.read("grid.svg"), {"valid", "grid to point"});
}

TEST(XmlCheck, OutlinesTheRootElementsAndTexts) {
  const xml_check::Outline o = xml_check::outlineOf(
      "<?xml version=\"1.0\"?>\n<svg xmlns=\"u\" width='3'><text>a b</text><circle/><g>"
      "<circle r=\"1\"/><text>c</text></g></svg>\n");
  EXPECT_EQ(o.root, "svg");
  EXPECT_EQ(o.attributes, (std::map<std::string, std::string>{{"xmlns", "u"}, {"width", "3"}}));
  EXPECT_EQ(o.counts,
            (std::map<std::string, long>{{"svg", 1}, {"text", 2}, {"circle", 2}, {"g", 1}}));
  EXPECT_EQ(o.texts, "a b c ");
}
