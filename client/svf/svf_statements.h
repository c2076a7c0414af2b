// The statements of a file in the Serial Vector Format, as words: comments are gone, and what
// stands in parentheses is one word.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace client {

// What is wrong with a file, and where.
struct SvfProblem {
  std::size_t line = 0;  // from 1
  std::string text;
};

struct SvfStatement {
  std::size_t line = 0;  // of its first word
  // In upper case. What stood in parentheses begins with '(' and has neither blanks nor the end of
  // the pair.
  std::vector<std::string> words;
};

// Takes statement by statement from a text, which outlives it.
class SvfStatements {
 public:
  explicit SvfStatements(std::string_view text) : text_(text) {}

  // Nothing at the end, or with a problem.
  std::optional<SvfStatement> Next(SvfProblem& problem);

 private:
  // Goes to the next character that is neither blank nor comment. False: there is none.
  bool SkipBlanks();
  std::string TakeWord();
  // Empty when the pair is not closed.
  std::string TakeParentheses();

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t line_ = 1;
};

}  // namespace client
