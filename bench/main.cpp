// The benchmarks, a group of rows for each call; ./bench.sh calls them one after the other and
// prints the heading.
#include <cstdio>
#include <string>

#include "bench/rows.h"
#include "bench/table.h"

int main(int argc, char** argv) {
  const std::string group = argc > 1 ? argv[1] : "";
  const std::string argument = argc > 2 ? argv[2] : "";
  if (group == "heading") {
    bench::PrintHeading();
  } else if (group == "inside" && !argument.empty()) {
    bench::JtagStreamRow();
    bench::IntelHexRows(argument);
    bench::LogLineRow();
  } else if (group == "calls") {
    bench::InstantServiceRows();
  } else if (group == "through" && !argument.empty()) {
    bench::BenchServiceRows(argument);
  } else if (group == "xvc" && !argument.empty()) {
    bench::XvcRow(static_cast<std::uint16_t>(std::stoi(argument)));
  } else {
    std::fprintf(
        stderr,
        "usage: wirefox_bench heading | inside FOLDER | calls | through SERVER | xvc PORT\n");
    return 2;
  }
  return bench::AllTargetsMet() ? 0 : 1;
}
