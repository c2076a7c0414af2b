// A home of its own for each test, with the sample class registered, a server of it on a thread,
// and clients.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/platform/component/sample_class.h"
#include "tests/unit/platform/scratch_home.h"

namespace component_test {

inline constexpr HRESULT kServerUnavailable = static_cast<HRESULT>(0x800706BA);

struct Releaser {
  void operator()(IUnknown* object) const { object->Release(); }
};
using SamplePointer = std::unique_ptr<sample::ISample_v3, Releaser>;

// Null with the status when it fails.
SamplePointer CreateSample(HRESULT* status = nullptr);

// Whether a call of the object comes back with the right answer.
bool Answers(const SamplePointer& object);
// The live objects of the server's process as the object tells them; -1 when the call fails.
LONG CountBy(const SamplePointer& object);

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
std::vector<std::uint8_t> ToBytes(const OwnedArray& array);

// Serves the sample class on a thread until it is destroyed.
class ServerThread {
 public:
  ServerThread();
  ~ServerThread() { Stop(); }
  void Stop();

 private:
  std::counting_semaphore<> published_{0};
  DWORD thread_id_ = 0;
  std::thread thread_;
};

// Where the test's process, as a server, keeps its list of probes.
std::string ProbesFile();

class ComponentTest : public ::testing::Test {
 protected:
  ComponentTest();
  ~ComponentTest() override;

  void Register(const std::wstring& command);
  void Unregister();
  std::string SocketPath() const { return home_.Path("run/org.wirefox.Sample.sock"); }

  const ScratchHome home_;
};

}  // namespace component_test
