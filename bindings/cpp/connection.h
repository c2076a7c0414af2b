// What Service and Session share: the object of the service, and one call at a time on it.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <wirefox/client.h>

#include <memory>
#include <mutex>

#include "client/service_client.h"

namespace wirefox {

// Keeps the multithreaded apartment, which threads that have chosen none belong to.
class ApartmentUse {
 public:
  ApartmentUse() : status_(CoIncrementMTAUsage(&cookie_)) {}
  ~ApartmentUse() {
    if (SUCCEEDED(status_)) CoDecrementMTAUsage(cookie_);
  }
  ApartmentUse(const ApartmentUse&) = delete;
  ApartmentUse& operator=(const ApartmentUse&) = delete;

 private:
  CO_MTA_USAGE_COOKIE cookie_{};
  const HRESULT status_;
};

inline client::ServiceClient::PortAcquireSettings ClientSettings(
    const PortAcquireSettings& settings) {
  return {.mode = settings.mode,
          .key = settings.key,
          .write_test_key = settings.write_test_key,
          .test_mode_address = settings.test_mode_address,
          .test_mode_key = settings.test_mode_key,
          .retry_limit = settings.retry_limit};
}

class Connection {
 public:
  Connection();
  // To a service that is there already.
  explicit Connection(std::unique_ptr<client::ServiceClient> client) : client_(std::move(client)) {}

  static Service ServiceOn(std::shared_ptr<Connection> connection) {
    return Service(std::move(connection));
  }

  // The outcome of the call that `call` makes; throws when no answer came.
  template <typename Call>
  TzErrorCode Ask(const char* method, Call call) {
    const std::lock_guard lock(mutex_);
    const TzErrorCode error = call(*client_);
    const HRESULT failure = client_->TakeCallFailure();
    if (FAILED(failure)) ThrowUnanswered(method, failure);
    return error;
  }

  // Throws unless the call that `call` makes succeeds.
  template <typename Call>
  void Run(const char* method, Call call) {
    const TzErrorCode error = Ask(method, call);
    if (error != TzErrorCode::SUCCESS) ThrowOutcome(method, error);
  }

  [[noreturn]] static void ThrowOutcome(const char* method, TzErrorCode error);

 private:
  [[noreturn]] static void ThrowUnanswered(const char* method, HRESULT status);

  const ApartmentUse apartment_;  // before the object, which lives in it
  std::mutex mutex_;
  std::unique_ptr<client::ServiceClient> client_;
};

}  // namespace wirefox
