#include "sim/server/program.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "sim/bench.h"
#include "sim/server/control_session.h"
#include "sim/server/host.h"

namespace sim {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string Description(const std::string& bench_file) {
  if (bench_file.empty()) return Bench::DefaultDescription();
  return bench_file == "demo" ? Bench::DemoDescription() : ReadFile(bench_file);
}

void Run(const ServeOptions& options, EndOfRun& end) {
  BenchOptions bench_options;
  bench_options.instance = RunName();
  Bench bench(Description(options.bench_file), std::move(bench_options));
  if (!options.capture_file.empty() && !bench.CaptureTo(options.capture_file)) {
    throw std::runtime_error("cannot create " + options.capture_file);
  }
  const std::string place = ListeningPlace(options.socket_path);
  const auto offer = options.attach_kernel ? AttachBench : OfferBench;
  const auto server = offer(bench, place, [&end] { end.Ask(); });
  std::printf("wfxsim: listening on %s\n", place.c_str());
  std::fflush(stdout);
  end.Wait();
}

}  // namespace

int Serve(const ServeOptions& options) {
  EndOfRun end;
  try {
    Run(options, end);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wfxsim: %s\n", error.what());
    return 2;
  }
}

bool Ask(const std::string& socket_path, const std::string& request, std::string& answer,
         std::string& error) {
  const auto stream = ConnectTo(ListeningPlace(socket_path), error);
  if (!stream) return false;
  if (AskOnce(*stream, request, answer)) return true;
  error = "the simulator ended the connection";
  return false;
}

}  // namespace sim
