// The activity file: what the service shows of its device table to the programs of its machine. It
// lies beside the devices-changed file, whose path with kFileSuffix it has; the service that holds
// the table's lock writes it in memory, others map it for reading.
//
//   0   magic, version: what follows is laid out as below
//   8   sequence: odd while anything but a counter is being changed
//   12  count of probes, in table order; those past kMaxProbes have no record
//   16  process id of the service, 0 once it has ended
//   24  when that process began (base/running_process.h): the id may be another's by now
//   64  records of kProbeBytes each
//
// Numbers are little-endian and aligned to their size. A reader takes the sequence, then what it
// wants, then the sequence again: it has read one state when both are the same even number. Stores
// release and loads acquire, so the numbers in between are as old as that says.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace activity {

static_assert(std::endian::native == std::endian::little);

inline constexpr wchar_t kFileSuffix[] = L".activity";
inline constexpr std::size_t kFileBytes = 65536;

inline constexpr std::uint32_t kMagic = 0x41584657;
inline constexpr std::uint32_t kVersion = 1;

inline constexpr std::size_t kMagicAt = 0;
inline constexpr std::size_t kVersionAt = 4;
inline constexpr std::size_t kSequenceAt = 8;
inline constexpr std::size_t kProbeCountAt = 12;
inline constexpr std::size_t kServicePidAt = 16;
inline constexpr std::size_t kServiceStartAt = 24;  // 64 bits
inline constexpr std::size_t kProbesAt = 64;

inline constexpr std::size_t kProbeBytes = 2048;
inline constexpr std::size_t kMaxProbes = (kFileBytes - kProbesAt) / kProbeBytes;

// In a record. The two counters only grow, and are stored without touching the sequence: calls are
// those that a client made with the probe or with a session on it and that have ended, bytes the
// payload of every transfer that the service has run with the probe since it took it into its
// table.
inline constexpr std::size_t kNameAt = 0;  // UTF-16, NUL-terminated
inline constexpr std::size_t kNameUnits = 128;
inline constexpr std::size_t kModeAt = 256;     // as the service has recorded it
inline constexpr std::size_t kVoltageAt = 260;  // the code last set, or kNoVoltage
inline constexpr std::size_t kTargetCountAt = 264;
inline constexpr std::size_t kCallsAt = 272;  // 64 bits
inline constexpr std::size_t kBytesAt = 280;  // 64 bits
inline constexpr std::size_t kTargetsAt = 512;

inline constexpr std::uint32_t kNoVoltage = 0xFFFFFFFF;

// For each target: its id, its owner's process id (0: none), and whether a session is on it. There
// are sessions without an owner.
inline constexpr std::size_t kTargetBytes = 12;
inline constexpr std::size_t kMaxTargets = (kProbeBytes - kTargetsAt) / kTargetBytes;
inline constexpr std::size_t kTargetIdAt = 0;
inline constexpr std::size_t kTargetOwnerAt = 4;
inline constexpr std::size_t kTargetHeldAt = 8;

template <typename Number>
std::atomic_ref<Number> At(const std::uint8_t* place) {
  // A view for reading is only loaded from.
  return std::atomic_ref<Number>(
      *const_cast<Number*>(reinterpret_cast<const Number*>(place)));  // NOLINT
}

template <typename Number>
Number Load(const std::uint8_t* place) {
  static_assert(std::atomic_ref<Number>::is_always_lock_free);
  return At<Number>(place).load(std::memory_order_acquire);
}

template <typename Number>
void Store(std::uint8_t* place, Number value) {
  At<Number>(place).store(value, std::memory_order_release);
}

}  // namespace activity
