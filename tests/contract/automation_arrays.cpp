#include <gtest/gtest.h>
#include <windows.h>

#include <oleauto.h>

#include <cstring>

namespace {

TEST(AutomationArrays, BeginAsZerosWithTheirBoundsAndElementSize) {
  struct Case {
    VARTYPE type;
    LONG lower;
    ULONG count;
    UINT element_size;
  };
  const Case cases[] = {{VT_UI1, 0, 100, 1}, {VT_UI1, 0, 0, 1}, {VT_BSTR, 0, 3, 8},
                        {VT_I4, 5, 2, 4},    {VT_I2, -3, 3, 2}, {VT_BSTR, 0, 0, 8}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    SAFEARRAYBOUND bound = {c.count, c.lower};
    SAFEARRAY* array = SafeArrayCreate(c.type, 1, &bound);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(SafeArrayGetDim(array), 1u);
    EXPECT_EQ(SafeArrayGetElemsize(array), c.element_size);
    LONG lower = 99, upper = 99;
    EXPECT_EQ(SafeArrayGetLBound(array, 1, &lower), S_OK);
    EXPECT_EQ(SafeArrayGetUBound(array, 1, &upper), S_OK);
    EXPECT_EQ(lower, c.lower);
    EXPECT_EQ(upper, c.lower + static_cast<LONG>(c.count) - 1);
    VARTYPE type = 0;
    EXPECT_EQ(SafeArrayGetVartype(array, &type), S_OK);
    EXPECT_EQ(type, c.type);
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
    const std::size_t bytes = c.count * c.element_size;
    for (std::size_t i = 0; i < bytes; ++i) EXPECT_EQ(static_cast<const char*>(data)[i], 0);
    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
  }
}

TEST(AutomationArrays, HaveNoBoundsBeyondTheirDimension) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 4);
  LONG bound;
  EXPECT_EQ(SafeArrayGetLBound(array, 2, &bound), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetUBound(array, 0, &bound), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(AutomationArrays, AccessIsCountedAndKeepsThemFromBeingDestroyed) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 4);
  void *first = nullptr, *second = nullptr;
  ASSERT_EQ(SafeArrayAccessData(array, &first), S_OK);
  ASSERT_EQ(SafeArrayAccessData(array, &second), S_OK);
  EXPECT_EQ(first, second);
  EXPECT_EQ(array->cLocks, 2u);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  EXPECT_EQ(SafeArrayUnaccessData(array), E_UNEXPECTED);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

// How a test brings about storage that cannot be accessed.
TEST(AutomationArrays, AccessFailsWhenItsCountIsFull) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 4);
  array->cLocks = 0xFFFF;
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(array, &data), E_UNEXPECTED);
  array->cLocks = 0;
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(AutomationArrays, NullIsRefusedButMayBeDestroyed) {
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(nullptr, &data), E_INVALIDARG);
  EXPECT_EQ(SafeArrayUnaccessData(nullptr), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetDim(nullptr), 0u);
  EXPECT_EQ(SafeArrayGetElemsize(nullptr), 0u);
  EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
}

TEST(AutomationArrays, OfStringsFreeTheirElements) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, 2);
  void* data = nullptr;
  ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
  static_cast<BSTR*>(data)[1] = SysAllocString(L"freed with the array");
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  // The leak checker of the sanitizer builds sees what is not.
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

}  // namespace
