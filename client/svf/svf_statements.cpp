#include "client/svf/svf_statements.h"

#include <algorithm>

namespace client {

namespace {

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

char UpperCase(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool IsComment(std::string_view text) { return text[0] == '!' || text.starts_with("//"); }

}  // namespace

bool SvfStatements::SkipBlanks() {
  while (at_ < text_.size()) {
    if (IsComment(text_.substr(at_))) {
      at_ = std::min(text_.find('\n', at_), text_.size());
    } else if (IsBlank(text_[at_])) {
      if (text_[at_] == '\n') ++line_;
      ++at_;
    } else {
      return true;
    }
  }
  return false;
}

std::string SvfStatements::TakeWord() {
  std::string word;
  while (at_ < text_.size() && !IsBlank(text_[at_]) && text_[at_] != ';' && text_[at_] != '(' &&
         !IsComment(text_.substr(at_))) {
    word += UpperCase(text_[at_++]);
  }
  return word;
}

std::string SvfStatements::TakeParentheses() {
  std::string word;
  while (SkipBlanks()) {
    const char c = text_[at_++];
    if (c == ')') return word;
    if (c == ';') break;
    word += UpperCase(c);
  }
  return "";
}

std::optional<SvfStatement> SvfStatements::Next(SvfProblem& problem) {
  if (!SkipBlanks()) return std::nullopt;
  SvfStatement statement;
  statement.line = line_;
  while (SkipBlanks()) {
    if (text_[at_] == ';') {
      ++at_;
      return statement;
    }
    const std::size_t line = line_;
    std::string word = text_[at_] == '(' ? TakeParentheses() : TakeWord();
    if (word.empty()) {
      problem = {line, "a parenthesis is left open"};
      return std::nullopt;
    }
    statement.words.push_back(std::move(word));
  }
  problem = {statement.line, "the statement has no ';' at its end"};
  return std::nullopt;
}

}  // namespace client
