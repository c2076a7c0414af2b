// The object as a client in another process holds it.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "api/interface_table.h"
#include "base/proxy.h"

namespace {

using interface_schema::CallWord;
using interface_schema::MethodCall;

struct Recorded {
  MethodCall method;
  std::vector<CallWord> words;  // as many as there is room for
};

class Recorder final : public interface_schema::RemoteObject {
 public:
  explicit Recorder(Recorded& recorded) : recorded_(recorded) {}

  HRESULT Call(MethodCall method, const CallWord* words) override {
    recorded_.method = method;
    for (CallWord& word : recorded_.words) word = *words++;
    return S_FALSE;
  }
  bool Answers(REFIID) const override { return false; }
  HRESULT LoadTypeInfo(ITypeInfo**) override { return E_NOTIMPL; }

 private:
  Recorded& recorded_;
};

TEST(Proxy, HandsEveryCallOnAsItIs) {
  Recorded recorded;
  IUnknown* proxy = api::kLibrary.component->make_proxy(std::make_unique<Recorder>(recorded));
  for (const auto* described : api::kLibrary.interfaces) {
    for (const interface_schema::Method& method : described->methods) {
      std::vector<CallWord> words(method.parameters.size());
      std::iota(words.begin(), words.end(), 1);
      recorded = {nullptr, std::vector<CallWord>(words.size())};
      EXPECT_EQ(method.call(proxy, words.data()), S_FALSE);
      EXPECT_EQ(recorded.method, method.call) << method.slot;
      EXPECT_EQ(recorded.words, words) << method.slot;
    }
  }
  proxy->Release();
}

}  // namespace
