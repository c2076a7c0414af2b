// The object as a component: its interfaces, its counting, and aggregation.
#include <cstring>
#include <map>

#include "api/class_factory.h"
#include "api/interface_table.h"
#include "tests/unit/api/method_table.h"

namespace {

constexpr GUID kOtherInterface = {0x1234, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};

// Where a method stands in the table of virtual operations. For both compilers its pointer holds
// one more than its offset there (Itanium C++ ABI).
template <typename Function>
std::uint32_t SlotOf(Function method) {
  static_assert(sizeof(method) == 2 * sizeof(void*));
  std::uintptr_t offset = 0;
  std::memcpy(&offset, &method, sizeof(offset));
  return static_cast<std::uint32_t>((offset - 1) / sizeof(void*));
}

TEST(Interface, MethodsStandWhereTheLibraryTellsClientsThatTheyAre) {
  std::map<std::uint32_t, std::wstring> compiled = {
      {SlotOf(PortAcquireByName{&CTzWirefox::PortAcquire}), L"PortAcquire"},
      {SlotOf(PortAcquireByHandle{&CTzWirefox::PortAcquire}), L"PortAcquire"}};
#define COMPILED(method) compiled[SlotOf(&CTzWirefox::method)] = L## #method
  COMPILED(GetVersion), COMPILED(GetDevicesChangedLocation), COMPILED(EnumerateWirefoxs),
      COMPILED(EnumerateDevices), COMPILED(SetLedState), COMPILED(VisualIdentify),
      COMPILED(GetWirefoxStatus), COMPILED(SetTimeOut), COMPILED(SetJtagClock), COMPILED(SetMode),
      COMPILED(SetVTarg), COMPILED(AcquireDevice), COMPILED(ReleaseDevice),
      COMPILED(SendJtagPacket), COMPILED(SendSwdPacket), COMPILED(RequestSwvPackets),
      COMPILED(BulkTransfer), COMPILED(GetPortAcquireStatus), COMPILED(ToggleXres),
      COMPILED(SetupSWV), COMPILED(RequestEtmPackets), COMPILED(SendI2CPacket),
      COMPILED(GetHwRevID);
#undef COMPILED
  std::map<std::uint32_t, std::wstring> listed;
  for (const auto* interface_listed : api::kLibrary.interfaces) {
    for (const auto& method : interface_listed->methods) listed[method.slot] = method.name;
  }
  EXPECT_EQ(compiled, listed);
  // Behind the interface: the destructor, which has two slots with these compilers, and this one.
  EXPECT_EQ(SlotOf(&CTzWirefox::VendorRequest), 34u);
}

class Factory : public ApiTest {
 protected:
  Factory() : ApiTest(LOG_TRACE), factory_(api::TzWirefoxFactory::Create(module_)) {}
  ~Factory() override { factory_->Release(); }

  api::TzWirefoxFactory* factory_;
};

TEST_F(Factory, AllInterfacesOfAnObjectAreOnePointer) {
  void* first = nullptr;
  ASSERT_EQ(factory_->CreateInstance(nullptr, IID_IUnknown, &first), S_OK);
  auto* object = static_cast<IUnknown*>(first);
  for (const IID* iid : {&IID_IUnknown, &IID_IDispatch, &api::kInterfaceIdV1, &api::kInterfaceIdV2,
                         &api::kInterfaceIdV3}) {
    void* other = nullptr;
    EXPECT_EQ(object->QueryInterface(*iid, &other), S_OK);
    EXPECT_EQ(other, first);
    object->Release();
  }
  void* none = first;
  EXPECT_EQ(object->QueryInterface(kOtherInterface, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(object->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(object->Release(), 0u);
}

TEST_F(Factory, ObjectsAndServerLocksAreCountedAndLoggedUntilTheyEnd) {
  const LONG before = module_.GetLockCount();
  void* created = nullptr;
  ASSERT_EQ(factory_->CreateInstance(nullptr, api::kInterfaceIdV1, &created), S_OK);
  auto* object = static_cast<IUnknown*>(created);
  EXPECT_EQ(TakeLog(), Lines{"[CTzWirefox::CTzWirefox]"});
  EXPECT_EQ(module_.GetLockCount(), before + 1);
  EXPECT_EQ(factory_->LockServer(TRUE), S_OK);
  EXPECT_EQ(module_.GetLockCount(), before + 2);
  EXPECT_EQ(factory_->LockServer(FALSE), S_OK);
  object->AddRef();
  object->Release();
  EXPECT_EQ(module_.GetLockCount(), before + 1);
  object->Release();
  EXPECT_EQ(module_.GetLockCount(), before);
  EXPECT_EQ(TakeLog(), Lines{"[CTzWirefox::~CTzWirefox]"});
}

TEST_F(Factory, RefusedCreationLeavesNothingBehind) {
  const LONG before = module_.GetLockCount();
  void* object = this;
  EXPECT_EQ(factory_->CreateInstance(nullptr, kOtherInterface, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(factory_->CreateInstance(object_, api::kInterfaceIdV3, &object), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(factory_->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(module_.GetLockCount(), before);
  EXPECT_EQ(factory_->QueryInterface(IID_IDispatch, &object), E_NOINTERFACE);
  ASSERT_EQ(factory_->QueryInterface(IID_IClassFactory, &object), S_OK);
  static_cast<IClassFactory*>(object)->Release();
}

// An outer object that aggregates a client object.
class Outer final : public IUnknown {
 public:
  virtual ~Outer() = default;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    *object = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown)) return inner->QueryInterface(iid, object);
    *object = static_cast<IUnknown*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }

  IUnknown* inner = nullptr;
  ULONG references = 1;
};

TEST_F(Factory, AggregatedObjectSharesTheIdentityOfItsOuter) {
  const LONG before = module_.GetLockCount();
  Outer outer;
  void* inner = nullptr;
  ASSERT_EQ(factory_->CreateInstance(&outer, IID_IUnknown, &inner), S_OK);
  outer.inner = static_cast<IUnknown*>(inner);
  EXPECT_EQ(outer.references, 1u) << "an aggregated object must not hold its outer";

  void* object = nullptr;
  ASSERT_EQ(outer.QueryInterface(api::kInterfaceIdV2, &object), S_OK);
  EXPECT_EQ(outer.references, 2u);
  auto* wirefox = static_cast<ITzWirefox_v2*>(object);
  void* identity = nullptr;
  ASSERT_EQ(wirefox->QueryInterface(IID_IUnknown, &identity), S_OK);
  EXPECT_EQ(identity, static_cast<IUnknown*>(&outer));
  LONG version = 0;
  EXPECT_EQ(wirefox->GetVersion(&version), S_OK);
  EXPECT_EQ(version, 0x02000200);
  outer.Release();
  EXPECT_EQ(wirefox->Release(), 1u);

  EXPECT_EQ(outer.inner->Release(), 0u);
  EXPECT_EQ(module_.GetLockCount(), before);
}

TEST_F(Factory, MissingPlacesForOutputsAreRefusedBeforeAnythingIsDone) {
  AddProbe(L"P1");
  TakeLog();
  EXPECT_EQ(object_->GetVersion(nullptr), E_POINTER);
  EXPECT_EQ(object_->SetMode(Text(L"P1"), TzTransferMode::JTAG, 0, OwnPid(), nullptr), E_POINTER);
  EXPECT_EQ(object_->SendJtagPacket(nullptr, 0, 1, nullptr, &error_), E_POINTER);
  EXPECT_EQ(object_->AcquireDevice(Text(L"P1"), 0, OwnPid(), nullptr, &error_), E_POINTER);
  EXPECT_EQ(TakeLog(), Lines{});
  EXPECT_EQ(device_->TakeCalls(), "");
}

}  // namespace
