#include <gtest/gtest.h>
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <set>
#include <vector>

namespace {

std::vector<DWORD> ListProcesses(DWORD size) {
  std::vector<DWORD> ids(size / sizeof(DWORD), 0xFFFFFFFF);
  DWORD filled = 0;
  EXPECT_TRUE(EnumProcesses(ids.data(), size, &filled));
  EXPECT_LE(filled, size);
  EXPECT_EQ(0u, filled % sizeof(DWORD));
  ids.resize(filled / sizeof(DWORD));
  return ids;
}

TEST(ProcessList, HoldsThisProcessAndEachOnlyOnce) {
  const auto ids = ListProcesses(64 * 1024);
  EXPECT_EQ(1, std::count(ids.begin(), ids.end(), GetCurrentProcessId()));
  EXPECT_EQ(ids.size(), std::set<DWORD>(ids.begin(), ids.end()).size());
}

TEST(ProcessList, FillsAtMostTheBufferAndReportsWhatItFilled) {
  EXPECT_EQ(2u, ListProcesses(2 * sizeof(DWORD)).size());
  std::vector<DWORD> ids(4, 0xFFFFFFFF);
  DWORD filled = 0;
  EXPECT_TRUE(EnumProcesses(ids.data(), sizeof(DWORD) + 3, &filled));
  EXPECT_EQ(sizeof(DWORD), filled) << "half an id is none";
  EXPECT_EQ(0xFFFFFFFF, ids[1]) << "written beyond the buffer";
}

}  // namespace
