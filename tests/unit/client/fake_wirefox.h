// A service for tests of the client: an object of the interface that records each call as a line
// and answers what the test has laid out.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "api/tz_wirefox.h"
#include "client/numbers.h"
#include "client/service_client.h"

namespace client_test {

// What the fake received and answers. Owned by the test; outlives the object.
struct FakeService {
  std::vector<std::string> calls;

  // Outcomes by method name, one for each call; when they are used up, SUCCESS.
  std::map<std::string, std::deque<TzErrorCode>> outcomes;

  // A status that the calls of a method fail with.
  std::map<std::string, HRESULT> call_failures;

  bool colours = false;  // whether the streams go to a terminal that has them

  // Why there is no service to be had; S_OK: there is.
  HRESULT connection_failure = S_OK;

  std::string path;
  std::vector<std::string> wirefoxs;
  std::vector<std::string> devices;
  TzWFXStatus status{};
  LONG version = 0;
  LONG revision = 0;

  // What GetPortAcquireStatus writes; nothing: it leaves the output as it found it.
  std::optional<LONG> acquire_status;

  // Answers a transfer's packet; empty: no bytes.
  std::function<client::Bytes(const client::Bytes& packet)> reply;
};

std::unique_ptr<client::ServiceClient> ClientOf(
    FakeService& fake,
    client::ServiceClient::Place place = client::ServiceClient::Place::kThisMachine);

// Runs the client with the words of `line`. Gives the calls that the service received, each with
// "> " in front, then standard output, standard error, and unless it is 0 the exit status as
// "= STATUS". Escape is shown as "^[". A standard output that is `closed` takes nothing.
std::string Transcript(FakeService& fake, const std::string& line,
                       const std::string& standard_input = "", bool closed = false);

}  // namespace client_test
