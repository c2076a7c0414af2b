// A probe's JTAG chain lent to tools by `wfx serve`.
#pragma once

#include <memory>
#include <string>

#include "tests/system/harness.h"

namespace system_test {

class ServedProbe : public SystemTest {
 protected:
  void Bring([[maybe_unused]] const Words& options = {}) {
#ifndef _WIN32
    bench_options = options;
#endif
    ASSERT_NO_FATAL_FAILURE(Begin());
  }

  // Serves the chain of WFX0001; the tools find it at `where`, a port or a path.
  void Start(const std::string& protocol, const std::string& place = "0") {
    server = StartWfx({"serve", "WFX0001", "--json", protocol, place});
    const auto line = server->ReadLine();
    ASSERT_TRUE(line);
    where = nlohmann::json::parse(*line, nullptr, false).value("listening", *line);
    ASSERT_TRUE(where.starts_with("/") || where.starts_with("127.0.0.1:")) << where;
    if (where[0] != '/') where = where.substr(10);
  }

  // What the server says next.
  std::string Said(const std::string& member) {
    const auto line = server->ReadLine();
    return line ? nlohmann::json::parse(*line, nullptr, false).value(member, *line) : "nothing";
  }

  std::string where;
  std::unique_ptr<Client> server;
};

}  // namespace system_test
