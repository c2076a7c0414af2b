#include "client/probe_table.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "client/interface_names.h"
#include "client/running_program.h"
#include "client/text.h"

namespace client {

namespace {

using Row = std::vector<std::string>;

std::string IdText(std::uint32_t id) {
  std::array<char, 16> text;
  std::snprintf(text.data(), text.size(), "%08X", id);
  return text.data();
}

// As `wfx vtarg` takes it.
std::string VoltageText(std::uint32_t code) {
  std::string name = NameOfValue(kVoltages, static_cast<std::int32_t>(code));
  if (name.starts_with(kVoltages.optional_prefix)) name.erase(0, kVoltages.optional_prefix.size());
  std::ranges::replace(name, '_', '.');
  return name;
}

std::string ModeText(std::uint32_t mode) {
  return NameOfValue(kTransferModes, static_cast<std::int32_t>(mode));
}

std::string HolderText(const TargetActivity& target) {
  if (!target.held) return "free";
  return target.pid == 0 ? "held" : DescribeProcess(target.pid);
}

std::string RateText(double rate) { return std::to_string(std::llround(rate)); }

// What a table's first column takes of the terminal's width.
std::size_t WidthOf(const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

// Two blanks between columns, none at the end of a line.
std::string Aligned(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], WidthOf(row[i]));
  }
  std::string text;
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i] + std::string(widths[i] + 2 - WidthOf(row[i]), ' ');
    }
    text += line.erase(line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

// What stands in front of the probe's first target, and blanks of that kind for the others.
Row FrontCells(const ShownProbe& probe, const std::optional<ProbeRates>* rates) {
  Row row = {Printable(probe.name), probe.mode ? ModeText(*probe.mode) : "?"};
  const auto& activity = probe.activity;
  row.push_back(!activity ? "?" : activity->voltage ? VoltageText(*activity->voltage) : "-");
  if (!rates) return row;
  row.push_back(*rates ? RateText((*rates)->calls_per_second) : "-");
  row.push_back(*rates ? RateText((*rates)->bytes_per_second) : "-");
  return row;
}

void AddRows(const ShownProbe& probe, const std::optional<ProbeRates>* rates,
             std::vector<Row>& rows) {
  const Row front = FrontCells(probe, rates);
  const auto add = [&](const std::string& target, const std::string& holder) {
    Row& row = rows.emplace_back(front);
    row.push_back(target);
    row.push_back(holder);
  };
  if (!probe.activity) return add("?", "?");
  const auto& targets = probe.activity->targets;
  if (targets.empty()) return add("-", "-");
  for (std::size_t i = 0; i < targets.size(); ++i) {
    add(std::to_string(i) + " 0x" + IdText(targets[i].id), HolderText(targets[i]));
    if (i > 0) std::fill_n(rows.back().begin() + 1, front.size() - 1, "");
  }
}

nlohmann::ordered_json TargetOutputs(const TargetActivity& target) {
  nlohmann::ordered_json outputs = {{"id", IdText(target.id)}, {"held", target.held}};
  if (target.pid == 0) return outputs;
  outputs["pid"] = target.pid;
  const std::string program = ProgramOf(target.pid).name;
  if (!program.empty()) outputs["program"] = program;
  return outputs;
}

}  // namespace

std::string ProbeTable(const std::vector<ShownProbe>& probes,
                       const std::vector<std::optional<ProbeRates>>* rates) {
  Row heading = {"PROBE", "MODE", "VTARG"};
  if (rates) heading.insert(heading.end(), {"CALLS/S", "BYTES/S"});
  heading.insert(heading.end(), {"TARGET", "HOLDER"});
  std::vector<Row> rows = {heading};
  for (std::size_t i = 0; i < probes.size(); ++i) {
    AddRows(probes[i], rates ? &rates->at(i) : nullptr, rows);
  }
  return Aligned(rows);
}

nlohmann::ordered_json ProbeOutputs(const ShownProbe& probe) {
  nlohmann::ordered_json outputs = {{"name", probe.name}};
  if (probe.mode) outputs["mode"] = ModeText(*probe.mode);
  if (!probe.activity) return outputs;
  if (probe.activity->voltage) outputs["voltage"] = VoltageText(*probe.activity->voltage);
  outputs["targets"] = nlohmann::ordered_json::array();
  for (const TargetActivity& target : probe.activity->targets) {
    outputs["targets"].push_back(TargetOutputs(target));
  }
  return outputs;
}

}  // namespace client
