// The input record of a client's request, where it lies in the client's memory.
//
// The probe driver writes status words into that record. The system hands this driver a copy of the
// input and takes nothing of it back, nor of a buffered request's output when it failed without a
// byte, so the record is found through the client's stack instead.
#pragma once

#include "platform/windows/virtual_bus/driver/kernel.h"

namespace virtual_bus {

class CallerRecord {
 public:
  CallerRecord() = default;
  ~CallerRecord();
  CallerRecord(const CallerRecord&) = delete;
  CallerRecord& operator=(const CallerRecord&) = delete;

  // Called from the dispatch routine: the client's thread then stands in the system call, whose
  // arguments are on its stack. Nothing is found when they do not fit the request.
  void Find(std::uint32_t code, std::uint32_t input_size, std::uint32_t output_size);

  // The first `size` bytes of the record; without effect when it was not found. Only while the
  // request is pending: the client keeps its record so long.
  void Write(const std::uint8_t* bytes, std::uint32_t size) const;

 private:
  HANDLE process_ = nullptr;
  std::uint64_t address_ = 0;
};

}  // namespace virtual_bus
