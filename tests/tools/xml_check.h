// A small XML well-formedness check for the tool's pictures: one root element, every
// element closed in order, attributes quoted and not repeated, entity references known,
// comments and the declaration well formed. Besides "" or what is wrong and where, it tells
// what a reader of a picture looks for: the root element and its attributes, how many
// elements of each name there are, and the text of the <text> elements.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace xml_check {

/// What a well-formed document holds, as far as the pictures' tests look.
struct Outline {
  std::string root;                               ///< the root element's name
  std::map<std::string, std::string> attributes;  ///< the root element's attributes, as written
  std::map<std::string, long> counts;             ///< elements by name
  std::string texts;  ///< the character data of the <text> elements, each followed by a blank
};

class Checker {
 public:
  explicit Checker(const std::string& text) : s_(text) {}

  /// What the document holds (meaningful when run() gave "").
  const Outline& outline() const { return outline_; }

  std::string run() {
    try {
      if (s_.compare(0, 5, "<?xml") == 0) declaration();
      misc();
      if (!at('<')) return error("expected the root element");
      element();
      misc();
      if (pos_ != s_.size()) return error("text after the root element");
      return "";
    } catch (const std::string& message) {
      return message;
    }
  }

 private:
  std::string error(const std::string& what) const {
    long line = 1;
    for (std::size_t i = 0; i < pos_ && i < s_.size(); ++i) line += s_[i] == '\n';
    return "line " + std::to_string(line) + ": " + what;
  }
  [[noreturn]] void fail(const std::string& what) const { throw error(what); }

  bool at(char c) const { return pos_ < s_.size() && s_[pos_] == c; }
  bool startsWith(const char* p) const { return s_.compare(pos_, std::string(p).size(), p) == 0; }
  void blanks() {
    while (pos_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[pos_]))) ++pos_;
  }

  void declaration() {
    const std::size_t end = s_.find("?>", pos_);
    if (end == std::string::npos) fail("unterminated declaration");
    pos_ = end + 2;
  }

  void comment() {
    pos_ += 4;
    const std::size_t end = s_.find("--", pos_);
    if (end == std::string::npos) fail("unterminated comment");
    if (s_.compare(end, 3, "-->") != 0) fail("'--' inside a comment");
    pos_ = end + 3;
  }

  // Blanks and comments between top-level items.
  void misc() {
    for (;;) {
      blanks();
      if (startsWith("<!--")) {
        comment();
      } else {
        return;
      }
    }
  }

  std::string name() {
    const std::size_t start = pos_;
    while (pos_ < s_.size() &&
           (std::isalnum(static_cast<unsigned char>(s_[pos_])) || s_[pos_] == '-' ||
            s_[pos_] == '_' || s_[pos_] == ':' || s_[pos_] == '.')) {
      ++pos_;
    }
    if (pos_ == start || std::isdigit(static_cast<unsigned char>(s_[start]))) fail("bad name");
    return s_.substr(start, pos_ - start);
  }

  void reference() {
    const std::size_t end = s_.find(';', pos_);
    if (end == std::string::npos) fail("unterminated entity reference");
    const std::string ref = s_.substr(pos_ + 1, end - pos_ - 1);
    static const std::set<std::string> known = {"amp", "lt", "gt", "quot", "apos"};
    const bool numeric = ref.size() > 1 && ref[0] == '#';
    if (!known.count(ref) && !numeric) fail("unknown entity &" + ref + ";");
    pos_ = end + 1;
  }

  void attributeValue() {
    if (!at('"') && !at('\'')) fail("attribute value not quoted");
    const char quote = s_[pos_++];
    while (pos_ < s_.size() && s_[pos_] != quote) {
      if (s_[pos_] == '<') fail("'<' in an attribute value");
      if (s_[pos_] == '&') {
        reference();
      } else {
        ++pos_;
      }
    }
    if (!at(quote)) fail("unterminated attribute value");
    ++pos_;
  }

  void element() {
    ++pos_;  // '<'
    const bool isRoot = outline_.root.empty();
    const std::string tag = name();
    if (isRoot) outline_.root = tag;
    ++outline_.counts[tag];
    std::set<std::string> attributes;
    for (;;) {
      const std::size_t before = pos_;
      blanks();
      if (startsWith("/>")) {
        pos_ += 2;
        return;
      }
      if (at('>')) {
        ++pos_;
        break;
      }
      if (pos_ == before) fail("expected a blank before an attribute of <" + tag + ">");
      const std::string attribute = name();
      if (!attributes.insert(attribute).second) fail("attribute " + attribute + " repeated");
      blanks();
      if (!at('=')) fail("expected '=' after attribute " + attribute);
      ++pos_;
      blanks();
      const std::size_t valueStart = pos_ + 1;
      attributeValue();
      if (isRoot) outline_.attributes[attribute] = s_.substr(valueStart, pos_ - 1 - valueStart);
    }
    const std::size_t contentStart = pos_;
    content();
    if (tag == "text") outline_.texts += s_.substr(contentStart, pos_ - contentStart) + " ";
    if (!startsWith("</")) fail("<" + tag + "> not closed");
    pos_ += 2;
    const std::string closing = name();
    if (closing != tag) fail("</" + closing + "> closes <" + tag + ">");
    blanks();
    if (!at('>')) fail("expected '>'");
    ++pos_;
  }

  void content() {
    while (pos_ < s_.size()) {
      if (startsWith("</")) return;
      if (startsWith("<!--")) {
        comment();
      } else if (at('<')) {
        element();
      } else if (at('&')) {
        reference();
      } else if (at('>') && pos_ >= 2 && s_.compare(pos_ - 2, 2, "]]") == 0) {
        fail("']]>' in text");
      } else {
        ++pos_;
      }
    }
    fail("unexpected end of the document");
  }

  const std::string& s_;
  std::size_t pos_ = 0;
  Outline outline_;
};

/// "" when text is a well-formed XML document, else the first problem found.
inline std::string wellFormedError(const std::string& text) { return Checker(text).run(); }

/// The outline of a document; the test fails (and the outline is empty) when it is not
/// well formed.
inline Outline outlineOf(const std::string& text) {
  Checker checker(text);
  const std::string error = checker.run();
  EXPECT_EQ(error, "");
  return error.empty() ? checker.outline() : Outline();
}

}  // namespace xml_check
