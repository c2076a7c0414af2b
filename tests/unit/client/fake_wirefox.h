// A service for tests of the client: an object of the interface that records each call as a line
// and answers what the test has laid out.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "api/tz_wirefox.h"
#include "client/numbers.h"

namespace client_test {

// What the fake received and answers. Owned by the test; outlives the object.
struct FakeService {
  std::vector<std::string> calls;

  // Outcomes by method name, one for each call; when they are used up, SUCCESS.
  std::map<std::string, std::deque<TzErrorCode>> outcomes;

  // A status that the calls of a method fail with.
  std::map<std::string, HRESULT> call_failures;

  // Why there is no service to be had; S_OK: there is.
  HRESULT connection_failure = S_OK;

  std::vector<std::string> wirefoxs;
  std::vector<std::string> devices;
  TzWFXStatus status{};
  LONG version = 0;
  LONG revision = 0;

  // Answers a transfer's packet; empty: no bytes.
  std::function<client::Bytes(const client::Bytes& packet)> reply;
};

// What a run of the command line gave.
struct ClientRun {
  int exit_status;
  std::string out;
  std::string err;
};
ClientRun RunClient(FakeService& fake, const std::vector<std::string>& arguments,
                    const std::string& standard_input = "");

}  // namespace client_test
