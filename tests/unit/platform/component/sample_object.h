// The server's side of the sample class: its objects, their factory, and the loop that serves them.
#pragma once

#include <functional>

#include "tests/unit/platform/component/sample_interface.h"

namespace sample {

// What WaitAtGate of this process waits for.
class Gate {
 public:
  static void Close();
  static void Open();
  // Until a call stands at the gate.
  static void AwaitCaller();
};

// Live objects of this process.
LONG ObjectCount();
// Until that many live.
void AwaitObjectCount(LONG count);

// Publishes the class and serves it in the calling thread's message loop until the quit message.
// `on_published` runs once it is published; `on_empty`, which may be empty, whenever the last
// object has gone. The status is that of publishing or revoking.
HRESULT Serve(const std::function<void()>& on_published, const std::function<void()>& on_empty);

// A new object that no server knows.
HRESULT CreateDirectly(REFIID iid, void** object);

}  // namespace sample
