// The JSON value: writing, reading back, and the reader's messages.
#include <gtest/gtest.h>

#include <cmath>

#include "common/expect_throw.h"
#include "json.h"

using namespace ptmatch::cli;

TEST(Json, NumbersAreWrittenShortestAndReadBackExactly) {
  EXPECT_EQ(formatJsonNumber(0.1), "0.1");
  EXPECT_EQ(formatJsonNumber(3.0), "3");
  EXPECT_EQ(formatJsonNumber(-0.0), "0");
  EXPECT_EQ(formatJsonNumber(1e-300), "1e-300");
  EXPECT_EQ(formatJsonNumber(NAN), "null");
  EXPECT_EQ(formatJsonNumber(INFINITY), "null");
  const double third = 1.0 / 3.0;
  EXPECT_EQ(JsonValue::parse(formatJsonNumber(third)).asNumber(), third);
}

TEST(Json, ObjectsKeepTheirKeyOrder) {
  JsonValue o = JsonValue::object();
  o.set("command", "match").set("b", 1).set("a", true);
  const JsonValue back = JsonValue::parse(o.dump());
  ASSERT_EQ(back.members().size(), 3u);
  EXPECT_EQ(back.members()[0].first, "command");
  EXPECT_EQ(back.members()[1].first, "b");
  EXPECT_EQ(back["command"].asString(), "match");
  EXPECT_TRUE(back["a"].asBool());
}

TEST(Json, StringsAreEscaped) {
  JsonValue o = JsonValue::object();
  o.set("s", "quote \" backslash \\ newline \n tab \t bell \x07");
  const JsonValue back = JsonValue::parse(o.dump());
  EXPECT_EQ(back["s"].asString(), "quote \" backslash \\ newline \n tab \t bell \x07");
}

TEST(Json, NestedArraysAndNullRoundTrip) {
  JsonValue map = JsonValue::array();
  map.push(JsonValue::array().push(1).push(-2)).push(JsonValue());
  const JsonValue back = JsonValue::parse(JsonValue::object().set("map", map).dump());
  EXPECT_EQ(back["map"][0][1].asNumber(), -2);
  EXPECT_TRUE(back["map"][1].isNull());
}

TEST(Json, ReadsEscapesAndUnicode) {
  EXPECT_EQ(JsonValue::parse(R"("a\u00e9\/")").asString(), "a\xc3\xa9/");
}

TEST(Json, ReportsLineAndColumnOfTheFirstError) {
  EXPECT_THROW_THAT((JsonValue::parse("{\n  \"a\": 1,\n  \"b\": tru\n}")), JsonParseError,
                    [&](const JsonParseError& e) {
                      EXPECT_EQ(e.line(), 3);
                      EXPECT_EQ(e.column(), 8);
                    });
}

TEST(Json, RefusesWhatIsNotJson) {
  for (const char* bad :
       {"", "[1,]", "[01]", "[1.]", "{\"a\" 1}", "\"open", "[1] 2", "-", "[1e]"}) {
    EXPECT_THROW(JsonValue::parse(bad), JsonParseError) << bad;
  }
}

TEST(Json, EveryValueKnowsItsLine) {
  const JsonValue v = JsonValue::parse("[\n[1, 2],\n\n[3, 4]]");
  EXPECT_EQ(v[0].line(), 2);
  EXPECT_EQ(v[1].line(), 4);
}
