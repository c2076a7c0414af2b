// Paths and variables in the files of systemd and the message buses, in whose quoting they differ.
#include "platform/linux/registration_texts.h"

#include <gtest/gtest.h>

namespace {

using linux_host::ActivationText;
using linux_host::UnitText;
using linux_host::Variables;

std::string LineOf(const std::string& text, const std::string& key) {
  const std::size_t start = text.find("\n" + key + "=");
  if (start == text.npos) return "";
  return text.substr(start + 1, text.find('\n', start + 1) - start - 1);
}

TEST(RegistrationTexts, EveryPathComesThroughTheQuoting) {
  const struct {
    const char* path;
    const char* unit;
    const char* activation;
  } kCases[] = {
      {"/opt/a", R"(ExecStart=:"/opt/a" "-x")", "Exec='/opt/a' '-x'"},
      {"/a b/$HOME/5%d", R"(ExecStart=:"/a b/$HOME/5%%d" "-x")", "Exec='/a b/$HOME/5%d' '-x'"},
      {"/it's", R"(ExecStart=:/bin/sh -c "exec \"$0\" \"$@\"" "/it's" "-x")",
       R"(Exec='/it'"'"'s' '-x')"},
      {"/\"q\"\\z", R"(ExecStart=:/bin/sh -c "exec \"$0\" \"$@\"" "/\"q\"\\z" "-x")",
       R"(Exec='/"q"\\z' '-x')"},
      {"/two\nlines", R"(ExecStart=:/bin/sh -c "exec \"$0\" \"$@\"" "/two\x0alines" "-x")",
       R"(Exec='/two\nlines' '-x')"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(LineOf(UnitText({.command = {test.path, "-x"}}), "ExecStart"), test.unit);
    EXPECT_EQ(LineOf(ActivationText("a.b", {test.path, "-x"}, {}), "Exec"), test.activation);
  }
  const Variables variables = {{"WIREFOX_HOME", "/it's 5%"}, {"WIREFOX_BUS", "sim:/\"b\""}};
  const std::string unit = UnitText({.command = {"/s"}, .variables = variables});
  EXPECT_NE(unit.find("\nEnvironment=\"WIREFOX_HOME=/it's 5%%\"\n"
                      "Environment=\"WIREFOX_BUS=sim:/\\\"b\\\"\"\n"),
            unit.npos)
      << unit;
  EXPECT_EQ(LineOf(ActivationText("a.b", {"/k=v", "-x"}, variables), "Exec"),
            R"(Exec=/bin/sh -c 'export "$1" "$2"; shift 2; exec "$@"' sh )"
            R"('WIREFOX_HOME=/it'"'"'s 5%' 'WIREFOX_BUS=sim:/"b"' '/k=v' '-x')");
}

}  // namespace
