#include "service/command_line.h"

namespace {

struct Keyword {
  std::wstring_view upper_case;
  ServerCommand command;
};

// Of two at the same place only one can match; of two in a line the first one counts. Service is
// looked for only in a line that has neither of these.
constexpr Keyword kFirstPass[] = {{L"UNREGSERVER", ServerCommand::kUnregister},
                                  {L"REGSERVER", ServerCommand::kRegister}};
constexpr Keyword kSecondPass[] = {{L"SERVICE", ServerCommand::kRegisterService}};

constexpr std::wstring_view kTokenStarts = L"-/";

wchar_t UpperCase(wchar_t c) {
  return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}

// Whether `text` begins with the keyword in any letter case and the token ends there.
bool BeginsWithKeyword(std::wstring_view text, std::wstring_view upper_case) {
  if (text.size() < upper_case.size()) return false;
  for (std::size_t i = 0; i < upper_case.size(); ++i) {
    if (UpperCase(text[i]) != upper_case[i]) return false;
  }
  return text.size() == upper_case.size() || text[upper_case.size()] == L' ' ||
         text[upper_case.size()] == L'\t';
}

template <std::size_t count>
ServerCommand FindKeyword(std::wstring_view line, const Keyword (&keywords)[count]) {
  for (std::size_t start = line.find_first_of(kTokenStarts); start != std::wstring_view::npos;
       start = line.find_first_of(kTokenStarts, start + 1)) {
    const std::wstring_view token = line.substr(start + 1);
    for (const Keyword& keyword : keywords) {
      if (BeginsWithKeyword(token, keyword.upper_case)) return keyword.command;
    }
  }
  return ServerCommand::kRun;
}

}  // namespace

ServerCommand ParseCommandLine(std::wstring_view line) {
  const ServerCommand command = FindKeyword(line, kFirstPass);
  return command != ServerCommand::kRun ? command : FindKeyword(line, kSecondPass);
}
