// What arrives of a call's parameters, both ways.

#include <objbase.h>

#include <cstring>
#include <limits>
#include <random>
#include <tuple>

#include "tests/unit/platform/component/component_fixture.h"
#include "tests/unit/random_seed.h"

namespace component_test {
namespace {

using sample::Colour;
using Bytes = std::vector<std::uint8_t>;

class ComponentCalls : public ComponentTest {
 protected:
  void SetUp() override { ASSERT_NE(client_, nullptr); }

  ServerThread server_;
  const SamplePointer client_ = CreateSample();
};

// What Echo gives back: its text, its numbers in their order, and its colour.
using Values = std::tuple<std::wstring, LONG, SHORT, int, LONGLONG, LONG>;

Values Echo(const SamplePointer& client, BSTR sent_text, const Values& sent) {
  BSTR text = nullptr;
  LONG number = 99;
  SHORT small = 99;
  CHAR tiny = 99;
  LONGLONG wide = 99;
  Colour colour{};
  EXPECT_EQ(client->Echo(sent_text, std::get<1>(sent), std::get<2>(sent),
                         static_cast<CHAR>(std::get<3>(sent)), std::get<4>(sent),
                         static_cast<Colour>(std::get<5>(sent)), &text, &number, &small, &tiny,
                         &wide, &colour),
            S_OK);
  const OwnedString owned(text);
  return {ToWide(text), number, small, static_cast<signed char>(tiny), wide, LONG(colour)};
}

template <typename Number>
constexpr Number kLowest = std::numeric_limits<Number>::min();
template <typename Number>
constexpr Number kHighest = std::numeric_limits<Number>::max();

TEST_F(ComponentCalls, NumbersAndTextArriveAtBothEndsOfTheirRanges) {
  const Values cases[] = {
      {L"WFX0001", 1, 2, 3, 4, 272},
      {L"", 0, 0, 0, 0, 0},
      {L"\u00e4\u20ac\xD83D\xDE00", kLowest<LONG>, kLowest<SHORT>, -128, kLowest<LONGLONG>, -1},
      {std::wstring(L"zero\0inside", 11), kHighest<LONG>, kHighest<SHORT>, 127, kHighest<LONGLONG>,
       272},
      {L"lone \xD800 and \xDC00\xD800", -1, -1, -1, -1, -1},
      {L"noncharacters \xFDD0\xFDEF\xFFFE\xFFFF\xD83F\xDFFF", 7, 7, 7, -7'000'000'000, 0},
  };
  for (const Values& sent : cases) {
    EXPECT_EQ(Echo(client_, MakeString(std::get<0>(sent)).get(), sent), sent);
  }
  std::wstring every_unit;
  for (wchar_t unit = 0; unit <= 0xFFFF; ++unit) every_unit += unit;
  EXPECT_TRUE(std::get<0>(Echo(client_, MakeString(every_unit).get(), {})) == every_unit);
}

TEST_F(ComponentCalls, NullTextAndArraysArriveEmpty) {
  EXPECT_EQ(std::get<0>(Echo(client_, nullptr, {})), L"");
  SAFEARRAY* array = nullptr;
  LONG count = -1;
  ASSERT_EQ(client_->EchoBytes(nullptr, &array, &count), S_OK);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(ToBytes(OwnedArray(array)), Bytes());
  Colour colour{};
  ASSERT_EQ(client_->EchoStrings(nullptr, &array, &colour), S_OK);
  EXPECT_EQ(OwnedArray(array)->rgsabound[0].cElements, 0u);
  // An array that the object leaves null.
  ASSERT_EQ(client_->MakeBytes(-1, &array), S_OK);
  ASSERT_NE(array, nullptr);
  EXPECT_EQ(ToBytes(OwnedArray(array)), Bytes());
}

TEST_F(ComponentCalls, ByteArraysOfAllSizesComeBackUnchanged) {
  std::mt19937 random(unit::RandomSeed());
  for (const std::size_t size : {0u, 1u, 3u, 8u, 1000u, 65'536u, 1'048'577u, 4u << 20}) {
    SCOPED_TRACE(size);
    Bytes bytes(size);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    SAFEARRAY* received = nullptr;
    LONG count = -1;
    ASSERT_EQ(client_->EchoBytes(MakeBytes(bytes).get(), &received, &count), S_OK);
    const OwnedArray owned(received);
    EXPECT_EQ(count, static_cast<LONG>(size));
    EXPECT_TRUE(ToBytes(owned) == bytes);
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
  alignas(sample::Status) std::uint8_t bytes[sizeof(sample::Status)];
  std::memset(bytes, 0xCC, sizeof bytes);
  Colour colour{};
  ASSERT_EQ(client_->GetStatus(0x11, reinterpret_cast<sample::Status*>(bytes), &colour), S_OK);
  EXPECT_EQ(Bytes(std::begin(bytes), std::end(bytes)), (Bytes{0x11, 0, 0xFE, 0xFF, 255, 4}));
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
  LONG sign = 0;
  EXPECT_EQ(client_->Fail(LONGLONG{-5'000'000'000}, &sign), S_OK) << "the other one of that name";
  EXPECT_EQ(sign, -1);
}

TEST_F(ComponentCalls, EveryInterfaceIsTheSamePointerAndOthersAreRefused) {
  for (const IID& id : {IID_IUnknown, IID_IDispatch, sample::kInterfaceIdV1}) {
    void* object = nullptr;
    ASSERT_EQ(client_->QueryInterface(id, &object), S_OK);
    EXPECT_EQ(object, client_.get());
    client_->Release();
  }
  void* object = nullptr;
  EXPECT_EQ(client_->QueryInterface(IID_IClassFactory, &object), E_NOINTERFACE);
}

TEST_F(ComponentCalls, WrongArgumentsAreRefusedBeforeTheyAreSent) {
  LONG count = 0;
  SAFEARRAY* received = nullptr;
  const OwnedArray strings(SafeArrayCreateVector(VT_BSTR, 0, 1));
  EXPECT_EQ(client_->EchoBytes(strings.get(), &received, &count), E_INVALIDARG);
  EXPECT_EQ(received, nullptr);
  EXPECT_EQ(client_->EchoBytes(nullptr, &received, nullptr), static_cast<HRESULT>(0x800706F4));
  EXPECT_TRUE(Answers(client_));
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
  EXPECT_TRUE(Answers(client_));
}

TEST_F(ComponentCalls, CallsOfManyThreadsOnOneObjectWaitForEachOther) {
  std::vector<std::thread> threads;
  for (LONG t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (LONG i = 0; i < 200; ++i) {
        LONG difference = 0;
        ASSERT_EQ(client_->Subtract(t * 1000, i, &difference), S_OK);
        ASSERT_EQ(difference, t * 1000 - i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace component_test
