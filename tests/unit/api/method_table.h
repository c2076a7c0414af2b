// The methods of the client object that have an outcome, each with what it refuses and what it
// does.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tests/unit/api/api_fixture.h"

inline constexpr std::uint8_t kUnwritten = 0xEE;

// Arguments and outputs of one call. A session handle and an array are used where a method has one.
struct Call {
  Call() { std::memset(&status, kUnwritten, sizeof(status)); }

  bool OutputsAreUnwritten() const {
    return !result.IsSet() && number == kUnwritten && status.ACTIVE_INTERFACE == kUnwritten;
  }

  BSTR name = nullptr;
  std::int64_t handle = 0;
  SAFEARRAY* data = nullptr;
  Result result;
  LONG number = kUnwritten;
  std::int64_t acquired = 0;  // is cleared in any case
  TzWFXStatus status;
  TzErrorCode error = TzErrorCode(-1);
};

// How it finds its probe, and whose sessions on the probe stand in its way.
enum class By { kNothing, kName, kSession };
enum class Blocked { kNever, kByAnotherOwner, kByAnyOwner };

struct Method {
  const char* name;  // in the log
  std::function<HRESULT(CTzWirefox&, Call&)> call;
  // The operations of the probe that it calls, as they are recorded; JTAG alone goes past that.
  std::string calls = {};
  By by = By::kName;
  Blocked blocked = Blocked::kNever;
  std::vector<std::uint32_t> modes = {};  // recorded modes that it accepts; all when empty
  // For those that take bytes: the result's size for so many, and whether there is a result even
  // when the bytes cannot be had.
  std::size_t (*result_size)(std::size_t) = nullptr;
  bool always_result = false;
  // When it does not know the probe or session, and when it has done its work.
  TzErrorCode unknown = by == By::kSession ? TzErrorCode::NOT_ACQUIRED : TzErrorCode::INVALID_PARAM;
  TzErrorCode done = TzErrorCode::SUCCESS;
};

// Their calls have arguments that reach the probe.
const std::vector<Method>& Methods();

// The method of two forms.
using PortAcquireByName = HRESULT (STDMETHODCALLTYPE CTzWirefox::*)(BSTR, TzProgrammingMode, LONG,
                                                                    CHAR, LONG, LONG, LONG,
                                                                    TzErrorCode*);
using PortAcquireByHandle = HRESULT (STDMETHODCALLTYPE CTzWirefox::*)(TzProgrammingMode, LONG, CHAR,
                                                                      LONG, LONG, LONG,
                                                                      std::int64_t, TzErrorCode*);
