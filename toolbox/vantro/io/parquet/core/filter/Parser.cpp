#include "toolbox/vantro/io/parquet/core/filter/Parser.hpp"

#include <cctype>
#include <string>
#include <utility>
#include <vector>

#include "toolbox/vantro/io/parquet/core/filter/Errors.hpp"

namespace vantro::io::parquet::core::filter {

namespace {

struct Token {
  enum class Kind { kEnd, kWord, kName, kNumber, kText, kDatetime, kSymbol };
  Kind kind = Kind::kEnd;
  std::string text;  // symbol, word, name, number or text (unquoted)
  size_t position = 0;
  std::string source;  // as written
};

bool isWordStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}
bool isWordPart(char c) {
  return isWordStart(c) || std::isdigit(static_cast<unsigned char>(c)) || c == '.';
}
bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

class Lexer {
 public:
  explicit Lexer(std::string_view text) : mText(text) {}

  std::vector<Token> tokens() {
    std::vector<Token> out;
    while (true) {
      skipBlanks();
      Token token = next();
      out.push_back(token);
      if (token.kind == Token::Kind::kEnd) return out;
    }
  }

 private:
  [[noreturn]] void fail(const std::string& what, size_t at) const {
    throwInvalidExpression(std::string(mText), what + " at character " + std::to_string(at + 1));
  }

  void skipBlanks() {
    while (mPos < mText.size() && std::isspace(static_cast<unsigned char>(mText[mPos]))) ++mPos;
  }

  Token make(Token::Kind kind, std::string text, size_t start) {
    return Token{kind, std::move(text), start, std::string(mText.substr(start, mPos - start))};
  }

  Token next() {
    const size_t start = mPos;
    if (mPos >= mText.size()) return Token{Token::Kind::kEnd, "", start, ""};
    const char c = mText[mPos];
    if (c == '\'' || c == '"') return quoted(c, Token::Kind::kText);
    if (c == '`') return quoted(c, Token::Kind::kName);
    if (looksLikeDate()) return datetime();
    if (isDigit(c) || (c == '.' && mPos + 1 < mText.size() && isDigit(mText[mPos + 1]))) {
      return number();
    }
    if (isWordStart(c)) {
      while (mPos < mText.size() && isWordPart(mText[mPos])) ++mPos;
      return make(Token::Kind::kWord, std::string(mText.substr(start, mPos - start)), start);
    }
    static const char* const kSymbols[] = {"==", "!=", "~=", "<>", "<=", ">=", "&&",
                                           "||", "=",  "<",  ">",  "&",  "|",  "!",
                                           "~",  "(",  ")",  ",",  "-",  "+"};
    for (const char* symbol : kSymbols) {
      const std::string_view s(symbol);
      if (mText.substr(mPos, s.size()) == s) {
        mPos += s.size();
        return make(Token::Kind::kSymbol, std::string(s), start);
      }
    }
    fail(std::string("unexpected character '") + c + "'", start);
  }

  Token quoted(char quote, Token::Kind kind) {
    const size_t start = mPos++;
    std::string text;
    while (true) {
      if (mPos >= mText.size()) fail("text without its closing quote", start);
      if (mText[mPos] == quote) {
        if (mPos + 1 < mText.size() && mText[mPos + 1] == quote) {
          text.push_back(quote);
          mPos += 2;
          continue;
        }
        ++mPos;
        return make(kind, text, start);
      }
      text.push_back(mText[mPos++]);
    }
  }

  // dddd-dd-dd
  bool looksLikeDate() const {
    if (mText.size() - mPos < 10) return false;
    for (size_t i = 0; i < 10; ++i) {
      const char c = mText[mPos + i];
      if ((i == 4 || i == 7) ? c != '-' : !isDigit(c)) return false;
    }
    return true;
  }

  Token datetime() {
    const size_t start = mPos;
    mPos += 10;
    // A bare timestamp continues with its time and offset: no blanks inside.
    if (mPos < mText.size() && (mText[mPos] == 'T' || mText[mPos] == 't')) {
      while (mPos < mText.size() &&
             (isDigit(mText[mPos]) ||
              std::string_view("Tt:.+-Zz").find(mText[mPos]) != std::string_view::npos)) {
        ++mPos;
      }
    }
    const std::string text(mText.substr(start, mPos - start));
    if (!parseIsoInstant(text)) fail("'" + text + "' is not a valid date or timestamp", start);
    return make(Token::Kind::kDatetime, text, start);
  }

  Token number() {
    const size_t start = mPos;
    while (mPos < mText.size() && isDigit(mText[mPos])) ++mPos;
    if (mPos < mText.size() && mText[mPos] == '.') {
      ++mPos;
      while (mPos < mText.size() && isDigit(mText[mPos])) ++mPos;
    }
    if (mPos < mText.size() && (mText[mPos] == 'e' || mText[mPos] == 'E')) {
      size_t p = mPos + 1;
      if (p < mText.size() && (mText[p] == '+' || mText[p] == '-')) ++p;
      if (p >= mText.size() || !isDigit(mText[p])) fail("a number with an empty exponent", start);
      while (p < mText.size() && isDigit(mText[p])) ++p;
      mPos = p;
    }
    if (mPos < mText.size() && isWordStart(mText[mPos])) fail("a malformed number", start);
    return make(Token::Kind::kNumber, std::string(mText.substr(start, mPos - start)), start);
  }

  std::string_view mText;
  size_t mPos = 0;
};

class Parser {
 public:
  explicit Parser(std::string_view text) : mText(text), mTokens(Lexer(text).tokens()) {}

  std::unique_ptr<Node> parse() {
    auto root = orExpression();
    if (peek().kind != Token::Kind::kEnd) fail("expected 'and', 'or' or the end");
    return root;
  }

 private:
  const Token& peek(size_t ahead = 0) const {
    return mTokens[std::min(mIndex + ahead, mTokens.size() - 1)];
  }
  const Token& take() {
    const Token& token = peek();
    if (mIndex < mTokens.size() - 1) ++mIndex;
    return token;
  }

  [[noreturn]] void fail(const std::string& what) const {
    const Token& token = peek();
    const std::string where =
        token.kind == Token::Kind::kEnd
            ? " at the end"
            : " at character " + std::to_string(token.position + 1) + " ('" + token.source + "')";
    throwInvalidExpression(std::string(mText), what + where);
  }

  bool isKeyword(const Token& token, const char* word) const {
    return token.kind == Token::Kind::kWord && lower(token.text) == word;
  }
  bool isSymbol(const Token& token, std::initializer_list<const char*> symbols) const {
    if (token.kind != Token::Kind::kSymbol) return false;
    for (const char* symbol : symbols) {
      if (token.text == symbol) return true;
    }
    return false;
  }
  bool takeKeyword(const char* word) {
    if (!isKeyword(peek(), word)) return false;
    take();
    return true;
  }

  static std::unique_ptr<Node> combine(Node::Kind kind, std::unique_ptr<Node> left,
                                       std::unique_ptr<Node> right) {
    if (left->kind == kind) {
      left->children.push_back(std::move(right));
      return left;
    }
    auto node = std::make_unique<Node>();
    node->kind = kind;
    node->children.push_back(std::move(left));
    node->children.push_back(std::move(right));
    return node;
  }

  std::unique_ptr<Node> orExpression() {
    auto left = andExpression();
    while (isKeyword(peek(), "or") || isSymbol(peek(), {"|", "||"})) {
      take();
      left = combine(Node::Kind::kOr, std::move(left), andExpression());
    }
    return left;
  }

  std::unique_ptr<Node> andExpression() {
    auto left = notExpression();
    while (isKeyword(peek(), "and") || isSymbol(peek(), {"&", "&&"})) {
      take();
      left = combine(Node::Kind::kAnd, std::move(left), notExpression());
    }
    return left;
  }

  // Nesting deeper than any hand-written filter would exhaust the stack of the recursive
  // descent (and of evaluation); such texts are refused like other syntax errors.
  static constexpr int kMaxNesting = 1000;

  std::unique_ptr<Node> notExpression() {
    if (isKeyword(peek(), "not") || isSymbol(peek(), {"!", "~"}) || isSymbol(peek(), {"("})) {
      if (++mNesting > kMaxNesting) fail("nested more than 1000 deep");
    }
    if (isKeyword(peek(), "not") || isSymbol(peek(), {"!", "~"})) {
      take();
      auto node = std::make_unique<Node>();
      node->kind = Node::Kind::kNot;
      node->children.push_back(notExpression());
      --mNesting;
      return node;
    }
    if (isSymbol(peek(), {"("})) {
      take();
      auto inner = orExpression();
      if (!isSymbol(peek(), {")"})) fail("expected ')'");
      take();
      --mNesting;
      return inner;
    }
    return predicate();
  }

  bool atVariable() const {
    const Token& token = peek();
    if (token.kind == Token::Kind::kName) return true;
    if (token.kind != Token::Kind::kWord) return false;
    for (const char* keyword :
         {"and", "or", "not", "in", "between", "is", "null", "true", "false"}) {
      if (lower(token.text) == keyword) return false;
    }
    return true;
  }

  std::optional<Op> comparison() {
    static const std::pair<const char*, Op> kOps[] = {
        {"==", Op::kEq}, {"=", Op::kEq},  {"!=", Op::kNe}, {"~=", Op::kNe}, {"<>", Op::kNe},
        {"<", Op::kLt},  {"<=", Op::kLe}, {">", Op::kGt},  {">=", Op::kGe}};
    if (peek().kind != Token::Kind::kSymbol) return std::nullopt;
    for (const auto& [symbol, op] : kOps) {
      if (peek().text == symbol) {
        take();
        return op;
      }
    }
    return std::nullopt;
  }

  static Op mirrored(Op op) {
    switch (op) {
      case Op::kLt:
        return Op::kGt;
      case Op::kLe:
        return Op::kGe;
      case Op::kGt:
        return Op::kLt;
      case Op::kGe:
        return Op::kLe;
      default:
        return op;
    }
  }

  std::unique_ptr<Node> predicate() {
    auto node = std::make_unique<Node>();
    if (!atVariable()) {
      // "5 < x": a constant first, then the comparison and the variable.
      if (atConstant()) {
        Constant value = constant();
        auto op = comparison();
        if (!op) fail("expected a comparison operator");
        if (!atVariable()) fail("expected a variable name");
        node->variable = take().text;
        node->op = mirrored(*op);
        node->constants.push_back(std::move(value));
        return node;
      }
      fail("expected a variable name, 'not' or '('");
    }
    node->variable = take().text;

    if (auto op = comparison()) {
      node->op = *op;
      node->constants.push_back(constant());
      return node;
    }
    if (takeKeyword("is")) {
      node->kind = Node::Kind::kIsNull;
      node->negated = takeKeyword("not");
      if (!takeKeyword("null")) fail("expected 'null'");
      return node;
    }
    node->negated = takeKeyword("not");
    if (takeKeyword("in")) {
      node->kind = Node::Kind::kIn;
      if (!isSymbol(peek(), {"("})) fail("expected '(' after 'in'");
      take();
      node->constants.push_back(constant());
      while (isSymbol(peek(), {","})) {
        take();
        node->constants.push_back(constant());
      }
      if (!isSymbol(peek(), {")"})) fail("expected ',' or ')'");
      take();
      return node;
    }
    if (takeKeyword("between")) {
      node->kind = Node::Kind::kBetween;
      node->constants.push_back(constant());
      if (!takeKeyword("and")) fail("expected 'and' between the bounds");
      node->constants.push_back(constant());
      return node;
    }
    fail(node->negated ? "expected 'in' or 'between'"
                       : "expected a comparison, 'in', 'between' or 'is'");
  }

  bool atConstant() const {
    const Token& token = peek();
    switch (token.kind) {
      case Token::Kind::kNumber:
      case Token::Kind::kText:
      case Token::Kind::kDatetime:
        return true;
      case Token::Kind::kSymbol:
        return (token.text == "-" || token.text == "+") && peek(1).kind == Token::Kind::kNumber;
      case Token::Kind::kWord:
        return isKeyword(token, "true") || isKeyword(token, "false");
      default:
        return false;
    }
  }

  Constant constant() {
    if (!atConstant() && peek().kind == Token::Kind::kWord) {
      fail("expected a constant: texts need quotes, as in '" + peek().text + "'");
    }
    if (!atConstant()) fail("expected a constant (number, quoted text, true, false or a date)");
    Constant value;
    const Token& token = take();
    value.source = token.source;
    switch (token.kind) {
      case Token::Kind::kSymbol: {
        const Token& number = take();
        value.kind = Constant::Kind::kNumber;
        value.text = (token.text == "-" ? "-" : "") + number.text;
        value.source = token.text + number.source;
        break;
      }
      case Token::Kind::kNumber:
        value.kind = Constant::Kind::kNumber;
        value.text = token.text;
        break;
      case Token::Kind::kText:
        value.kind = Constant::Kind::kText;
        value.text = token.text;
        value.instant = parseIsoInstant(token.text, &value.hasOffset);
        break;
      case Token::Kind::kDatetime:
        value.kind = Constant::Kind::kDatetime;
        value.text = token.text;
        value.instant = parseIsoInstant(token.text, &value.hasOffset);
        break;
      default:
        value.kind = Constant::Kind::kBoolean;
        value.boolean = isKeyword(token, "true");
        value.text = value.boolean ? "true" : "false";
        break;
    }
    return value;
  }

  std::string_view mText;
  std::vector<Token> mTokens;
  size_t mIndex = 0;
  int mNesting = 0;  // open parentheses and negations around the current position
};

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
int64_t daysFromCivil(int64_t year, unsigned month, unsigned day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const unsigned yearOfEra = static_cast<unsigned>(year - era * 400);
  const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + static_cast<int64_t>(dayOfEra) - 719468;
}

bool isLeapYear(int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// Reads exactly `count` digits at pos.
bool digits(std::string_view text, size_t& pos, size_t count, int64_t& value) {
  if (pos + count > text.size()) return false;
  value = 0;
  for (size_t i = 0; i < count; ++i) {
    if (!isDigit(text[pos + i])) return false;
    value = value * 10 + (text[pos + i] - '0');
  }
  pos += count;
  return true;
}

bool takeChar(std::string_view text, size_t& pos, char c) {
  if (pos < text.size() && text[pos] == c) {
    ++pos;
    return true;
  }
  return false;
}

}  // namespace

std::optional<Instant> parseIsoInstant(std::string_view text, bool* hasOffset) {
  size_t pos = 0;
  int64_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, nanos = 0;
  if (!digits(text, pos, 4, year) || !takeChar(text, pos, '-') || !digits(text, pos, 2, month) ||
      !takeChar(text, pos, '-') || !digits(text, pos, 2, day)) {
    return std::nullopt;
  }
  static const int kDaysInMonth[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1) return std::nullopt;
  if (day > kDaysInMonth[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0)) {
    return std::nullopt;
  }
  bool offsetGiven = false;
  int64_t offsetSeconds = 0;
  if (pos < text.size()) {
    if (text[pos] != 'T' && text[pos] != 't' && text[pos] != ' ') return std::nullopt;
    ++pos;
    if (!digits(text, pos, 2, hour) || !takeChar(text, pos, ':') || !digits(text, pos, 2, minute)) {
      return std::nullopt;
    }
    if (takeChar(text, pos, ':')) {
      if (!digits(text, pos, 2, second)) return std::nullopt;
      if (takeChar(text, pos, '.')) {
        size_t count = 0;
        while (pos < text.size() && isDigit(text[pos])) {
          if (count++ >= 9) return std::nullopt;  // finer than nanoseconds
          nanos = nanos * 10 + (text[pos++] - '0');
        }
        if (count == 0) return std::nullopt;
        for (; count < 9; ++count) nanos *= 10;
      }
    }
    if (hour > 23 || minute > 59 || second > 59) return std::nullopt;
    if (takeChar(text, pos, 'Z') || takeChar(text, pos, 'z')) {
      offsetGiven = true;
    } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
      const int64_t sign = text[pos++] == '-' ? -1 : 1;
      int64_t offsetHours = 0, offsetMinutes = 0;
      if (!digits(text, pos, 2, offsetHours)) return std::nullopt;
      takeChar(text, pos, ':');
      if (pos < text.size() && !digits(text, pos, 2, offsetMinutes)) return std::nullopt;
      if (offsetHours > 23 || offsetMinutes > 59) return std::nullopt;
      offsetSeconds = sign * (offsetHours * 3600 + offsetMinutes * 60);
      offsetGiven = true;
    }
    if (pos != text.size()) return std::nullopt;
  }
  if (hasOffset != nullptr) *hasOffset = offsetGiven;
  Instant instant;
  instant.seconds =
      daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 +
      hour * 3600 + minute * 60 + second - offsetSeconds;
  instant.nanos = nanos;
  return instant;
}

std::unique_ptr<Node> parseFilterText(std::string_view text) { return Parser(text).parse(); }

}  // namespace vantro::io::parquet::core::filter
