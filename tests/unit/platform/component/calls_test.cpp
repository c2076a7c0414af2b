// What arrives of a call's parameters, both ways.

#include <objbase.h>

#include <cstring>
#include <limits>
#include <numeric>
#include <random>

#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

using sample::Colour;

constexpr HRESULT kServerUnavailable = static_cast<HRESULT>(0x800706BA);

class ComponentCalls : public ComponentTest {
 protected:
  void SetUp() override {
    ComponentTest::SetUp();
    server_ = std::make_unique<ServerThread>();
    client_ = CreateSample();
    ASSERT_NE(client_, nullptr);
  }
  void TearDown() override {
    client_.reset();
    server_.reset();
    ComponentTest::TearDown();
  }

  std::unique_ptr<ServerThread> server_;
  SamplePointer client_;
};

TEST_F(ComponentCalls, NumbersAndTextArriveAtBothEndsOfTheirRanges) {
  struct Case {
    std::wstring text;
    LONG number;
    SHORT small;
    CHAR tiny;
    LONGLONG wide;
    Colour colour;
  };
  const Case cases[] = {
      {L"WFX0001", 1, 2, 3, 4, Colour::kGreen},
      {L"", 0, 0, 0, 0, Colour::kRed},
      {L"\u00e4\u20ac\xD83D\xDE00", std::numeric_limits<LONG>::min(),
       std::numeric_limits<SHORT>::min(), static_cast<CHAR>(-128),
       std::numeric_limits<LONGLONG>::min(), Colour::kBlue},
      {std::wstring(L"zero\0inside", 11), std::numeric_limits<LONG>::max(),
       std::numeric_limits<SHORT>::max(), 127, std::numeric_limits<LONGLONG>::max(),
       Colour::kGreen},
      {L"lone \xD800 and \xDC00\xD800", -1, -1, static_cast<CHAR>(-1), -1, Colour::kBlue},
      {std::wstring(100'000, L'x'), 7, 7, 7, -7'000'000'000, Colour::kRed},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.wide);
    BSTR text = nullptr;
    LONG number = 99;
    SHORT small = 99;
    CHAR tiny = 99;
    LONGLONG wide = 99;
    Colour colour{};
    ASSERT_EQ(client_->Echo(MakeString(c.text).get(), c.number, c.small, c.tiny, c.wide, c.colour,
                            &text, &number, &small, &tiny, &wide, &colour),
              S_OK);
    const OwnedString owned(text);
    EXPECT_EQ(ToWide(text), c.text);
    EXPECT_EQ(number, c.number);
    EXPECT_EQ(small, c.small);
    EXPECT_EQ(tiny, c.tiny);
    EXPECT_EQ(wide, c.wide);
    EXPECT_EQ(colour, c.colour);
  }
}

TEST_F(ComponentCalls, NullTextAndArraysArriveEmpty) {
  BSTR text = nullptr;
  LONG number;
  SHORT small;
  CHAR tiny;
  LONGLONG wide;
  Colour colour;
  ASSERT_EQ(client_->Echo(nullptr, 0, 0, 0, 0, Colour::kRed, &text, &number, &small, &tiny, &wide,
                          &colour),
            S_OK);
  EXPECT_EQ(ToWide(text), L"");
  SysFreeString(text);

  SAFEARRAY* array = nullptr;
  ASSERT_EQ(client_->EchoBytes(nullptr, &array, &number), S_OK);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(ToBytes(array).size(), 0u);
  SafeArrayDestroy(array);
  ASSERT_EQ(client_->EchoStrings(nullptr, &array, &colour), S_OK);
  EXPECT_EQ(array->rgsabound[0].cElements, 0u);
  SafeArrayDestroy(array);
  // An array that the object leaves null.
  ASSERT_EQ(client_->MakeBytes(-1, &array), S_OK);
  ASSERT_NE(array, nullptr);
  EXPECT_EQ(ToBytes(array).size(), 0u);
  SafeArrayDestroy(array);
}

TEST_F(ComponentCalls, ByteArraysOfAllSizesComeBackUnchanged) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (const std::size_t size : {0u, 1u, 3u, 8u, 1000u, 65'536u, 1'048'577u, 4u << 20}) {
    std::vector<std::uint8_t> bytes(size);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    SAFEARRAY* received = nullptr;
    LONG count = -1;
    ASSERT_EQ(client_->EchoBytes(MakeBytes(bytes).get(), &received, &count), S_OK) << size;
    const OwnedArray owned(received);
    EXPECT_EQ(count, static_cast<LONG>(size));
    EXPECT_TRUE(ToBytes(received) == bytes) << size;
    VARTYPE type;
    ASSERT_EQ(SafeArrayGetVartype(received, &type), S_OK);
    EXPECT_EQ(type, VT_UI1);
  }
}

TEST_F(ComponentCalls, StringArraysComeBackUnchanged) {
  const std::vector<std::wstring> texts = {L"WFX0001", L"", L"\u20ac\xD800", L"EVK0001"};
  const OwnedArray strings(SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(texts.size())));
  for (std::size_t i = 0; i < texts.size(); ++i) {
    static_cast<BSTR*>(strings->pvData)[i] = MakeString(texts[i]).release();
  }
  SAFEARRAY* received = nullptr;
  Colour colour;
  ASSERT_EQ(client_->EchoStrings(strings.get(), &received, &colour), S_OK);
  const OwnedArray owned(received);
  ASSERT_EQ(received->rgsabound[0].cElements, texts.size());
  EXPECT_EQ(received->rgsabound[0].lLbound, 0);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(ToWide(static_cast<BSTR*>(received->pvData)[i]), texts[i]);
  }
  EXPECT_EQ(static_cast<LONG>(colour), 4);
}

TEST_F(ComponentCalls, TheRecordArrivesAtItsOffsetsWithAZeroPadByte) {
  sample::Status status;
  std::memset(&status, 0xCC, sizeof status);
  Colour colour{};
  ASSERT_EQ(client_->GetStatus(0x11, &status, &colour), S_OK);
  const std::uint8_t expected[22] = {0x11, 0xFF, 0xFE, 0xFF, 4,    5,    0xFF, 0x7F,
                                     0x00, 0x80, 8,    0,    0x84, 0x03, 0x11, 0x12,
                                     0x13, 0x14, 0x15, 0x16, 0x17, 0x18};
  EXPECT_EQ(std::memcmp(&status, expected, sizeof expected), 0);
  EXPECT_EQ(colour, Colour::kBlue);
}

TEST_F(ComponentCalls, AFailureStatusArrivesAndLeavesNoOutput) {
  for (const HRESULT status : {E_FAIL, E_OUTOFMEMORY, static_cast<HRESULT>(0x80041234)}) {
    BSTR text = MakeString(L"before").release();
    const OwnedString before(text);
    EXPECT_EQ(client_->Fail(LONG{status}, &text), status);
    EXPECT_EQ(text, nullptr);
  }
  BSTR text = nullptr;
  EXPECT_EQ(client_->Fail(LONG{0}, &text), E_OUTOFMEMORY) << "the object threw bad_alloc";
  LONG count = 0;
  EXPECT_EQ(client_->CountObjects(&count), S_OK) << "the connection is still good";
}

TEST_F(ComponentCalls, BothMethodsOfOneNameAreReached) {
  LONG result = 0;
  EXPECT_EQ(client_->Fail(LONGLONG{-5'000'000'000}, &result), S_OK);
  EXPECT_EQ(result, -1);
  BSTR text = nullptr;
  EXPECT_EQ(client_->Fail(LONG{E_FAIL}, &text), E_FAIL);
}

TEST_F(ComponentCalls, EveryInterfaceIsTheSamePointerAndOthersAreRefused) {
  for (const IID& id : {IID_IUnknown, IID_IDispatch, sample::kInterfaceIdV1, sample::kInterfaceIdV2,
                        sample::kInterfaceIdV3}) {
    void* object = nullptr;
    ASSERT_EQ(client_->QueryInterface(id, &object), S_OK);
    EXPECT_EQ(object, client_.get());
    client_->Release();
  }
  void* object = &object;
  EXPECT_EQ(client_->QueryInterface(IID_IClassFactory, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
}

TEST_F(ComponentCalls, WrongArgumentsAreRefusedBeforeTheyAreSent) {
  LONG count = 0;
  SAFEARRAY* received = nullptr;
  const OwnedArray strings(SafeArrayCreateVector(VT_BSTR, 0, 1));
  EXPECT_EQ(client_->EchoBytes(strings.get(), &received, &count), E_INVALIDARG);
  EXPECT_EQ(received, nullptr);
  EXPECT_EQ(client_->EchoBytes(nullptr, &received, nullptr), static_cast<HRESULT>(0x800706F4));
  EXPECT_EQ(client_->Sum(2, 3, &count), S_OK);
  EXPECT_EQ(count, 5);
}

TEST_F(ComponentCalls, ArraysBeyondAMessageAreRefusedAndTheConnectionLives) {
  constexpr LONGLONG kLargest = 64 << 20;
  SAFEARRAY* received = nullptr;
  ASSERT_EQ(client_->MakeBytes(kLargest, &received), S_OK);
  EXPECT_EQ(received->rgsabound[0].cElements, static_cast<ULONG>(kLargest));
  SafeArrayDestroy(received);
  EXPECT_EQ(client_->MakeBytes(kLargest + 1, &received), E_OUTOFMEMORY);
  EXPECT_EQ(received, nullptr);
  const OwnedArray large(SafeArrayCreateVector(VT_UI1, 0, kLargest + 1));
  LONG count = 0;
  EXPECT_EQ(client_->EchoBytes(large.get(), &received, &count), E_OUTOFMEMORY);
  ASSERT_EQ(client_->Sum(2, 3, &count), S_OK);
  EXPECT_EQ(count, 5);
}

TEST_F(ComponentCalls, CallsOfManyThreadsOnOneObjectWaitForEachOther) {
  std::vector<std::thread> threads;
  for (LONG t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (LONG i = 0; i < 200; ++i) {
        LONG sum = 0;
        ASSERT_EQ(client_->Sum(t * 1000, i, &sum), S_OK);
        ASSERT_EQ(sum, t * 1000 + i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(ComponentCalls, ALostServerIsReportedOnEveryLaterCall) {
  server_->Stop();
  for (int i = 0; i < 2; ++i) {
    LONG count = 7;
    EXPECT_EQ(client_->CountObjects(&count), kServerUnavailable);
    EXPECT_EQ(count, 0);
  }
}

}  // namespace
}  // namespace component_test
