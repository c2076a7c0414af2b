// A home of its own for each test, with the sample class registered, a server of it on a thread,
// and clients.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/unit/platform/component/sample_object.h"

namespace component_test {

struct Releaser {
  void operator()(IUnknown* object) const { object->Release(); }
};
using SamplePointer = std::unique_ptr<sample::ISample_v3, Releaser>;

// Null with the status when it fails.
SamplePointer CreateSample(HRESULT* status = nullptr);

struct StringFreer {
  void operator()(OLECHAR* text) const { SysFreeString(text); }
};
using OwnedString = std::unique_ptr<OLECHAR, StringFreer>;
OwnedString MakeString(std::wstring_view text);
std::wstring ToWide(BSTR text);

struct ArrayDestroyer {
  void operator()(SAFEARRAY* array) const { SafeArrayDestroy(array); }
};
using OwnedArray = std::unique_ptr<SAFEARRAY, ArrayDestroyer>;
OwnedArray MakeBytes(const std::vector<std::uint8_t>& bytes);
std::vector<std::uint8_t> ToBytes(SAFEARRAY* array);

// Serves the sample class on a thread until it is destroyed.
class ServerThread {
 public:
  ServerThread();
  ~ServerThread();
  void Stop();

 private:
  DWORD thread_id_ = 0;
  std::thread thread_;
};

class ComponentTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  void Register(const std::wstring& command);
  const std::string& home() const { return home_; }
  std::string SocketPath() const { return home_ + "/run/org.wirefox.Sample.sock"; }

 private:
  std::string home_;
};

}  // namespace component_test
