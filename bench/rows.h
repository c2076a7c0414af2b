// The rows of the benchmark table, a function for each group.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

// A product stream over a bus that answers at once, against moving the same bytes in memory.
void JtagStreamRow();

// Reading Intel HEX, against the tools that read it and against half as many records. `scratch` is
// a folder for the files made.
void IntelHexRows(const std::string& scratch);

// A log line of a disabled category, against an empty branch.
void LogLineRow();

// Calls to the registered server, which has a bus inside that answers at once, against bare
// transports.
void InstantServiceRows();

// Calls to the registered server through to the probe WFX0001 of a simulated bench, and the
// server's resident memory while idle. `server` is the path of its executable.
void BenchServiceRows(const std::string& server);

// A bitstream loaded through `wfx serve`, which lends the demo bench's chain on this port, against
// a bare server.
void XvcRow(std::uint16_t port);

}  // namespace bench
