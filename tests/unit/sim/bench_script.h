// A conversation with one simulated probe, in steps, one a line or several between bars: what is
// asked, " = " and what came of it. Success is not written down, nor is a vendor reply of zeros.
// All numbers are hexadecimal but for lengths and times.
//
//   probe MEMBERS               makes a bench of one probe, "P"; members of its description
//   open                        what follows goes to the probe as it is attached now
//   control TYPE REQUEST VALUE INDEX LENGTH DATA
//   vendor REQUEST VALUE LENGTH
//   out ENDPOINT DATA           in ENDPOINT LENGTH
//   reg ADDRESS                 reg ADDRESS VALUE
//   clock CYCLES                JTAG: M and . for TMS, VALUE/BITS shifts, TMS high at the last
//   line CONTROL LEVELS         for the serial-wire line, which only JTAG mode sends; by itself a
//   reset swd REQUESTS                and what they are answered load BYTES                  an
//   FPGA image of zeros wait MS                     moves the time show MEMBERS                of
//   the probe's state other words                 commands for the bench
//   (sim/server/control_commands.h)
//
// Lines that begin with #, and what stands behind " ;", are remarks. A backslash at its end
// continues a line.
#pragma once

#include <gtest/gtest.h>

#include <iomanip>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "sim/server/control_commands.h"
#include "tests/unit/hex_bytes.h"
#include "tests/unit/sim/bench_user.h"

namespace sim {

class Script {
 public:
  Script() = default;
  Script(Bench& bench, const std::string& name) : name_(name), bench_(&bench) { Open(); }

  // The lines, but for those of which something else came: these tell what.
  std::string Play(const std::string& text) {
    std::string played;
    std::istringstream lines(text);
    for (std::string line, next; std::getline(lines, line);) {
      while (line.ends_with('\\') && std::getline(lines, next)) line += '\n' + next;
      played += PlayLine(line) + (lines.eof() ? "" : "\n");
    }
    return played;
  }

 private:
  std::string PlayLine(const std::string& line) {
    std::string told;
    std::istringstream in_line(line.substr(0, line.find(" ;")));
    for (std::string word; in_line >> word;) {
      if (word != "\\") told += (told.empty() ? "" : " ") + word;
    }
    std::string came;
    for (std::size_t at = 0, end = 0; at < told.size() && told[0] != '#'; at = end + 3) {
      end = std::min(told.find(" | ", at), told.size());
      const std::string asked = told.substr(at, std::min(told.find(" = ", at), end) - at);
      std::istringstream words(asked);
      const std::string outcome = Run(words);
      came += (at == 0 ? "" : " | ") + asked + (outcome.empty() ? "" : " = ") + outcome;
    }
    return told[0] == '#' || came == told ? line : "    " + came;
  }

  template <typename T = std::uint8_t>
  static T Hex(std::istream& words, int base = 16) {
    unsigned value = 0;
    words >> std::setbase(base) >> value;
    return static_cast<T>(value);
  }
  static std::uint16_t Hex16(std::istream& words) { return Hex<std::uint16_t>(words); }
  static std::uint32_t Number(std::istream& words) { return Hex<std::uint32_t>(words, 10); }
  static std::string Rest(std::istream& words) {
    std::string rest;
    std::getline(words >> std::ws, rest);
    return rest;
  }
  static Bytes Data(std::istream& words) { return unit::HexBytes(Rest(words)); }

  std::string Run(std::istream& words) {
    std::string verb;
    words >> verb;
    if (verb == "probe") return Place(Rest(words));
    if (verb == "open") return Open();
    if (verb == "control") {
      const probe_driver::SetupPacket setup{Hex(words), Hex(words), Hex16(words), Hex16(words),
                                            static_cast<std::uint16_t>(Number(words))};
      return Control(setup, Data(words));
    }
    if (verb == "vendor") {
      const probe_driver::SetupPacket setup{0xC0, Hex(words), Hex16(words), 0,
                                            static_cast<std::uint16_t>(Number(words))};
      const std::string reply = Control(setup);
      return reply == unit::HexText(Bytes(setup.length)) ? "" : reply;
    }
    if (verb == "out") return Transfer({Hex(words), Data(words)}, false);
    if (verb == "in") return Transfer({Hex(words), Bytes(Number(words), 0xCC)}, true);
    if (verb == "swd") return Exchange(Data(words), 512);
    if (verb == "jtag") return Jtag(Data(words));
    if (verb == "reg") {
      const auto address = Hex(words);
      return Register(address, Data(words));
    }
    if (verb == "line") {
      std::string control = "00", levels;
      if (!(words >> control)) levels = "F0*13 E0 90 70 E0 F0*13";
      PlayLine("vendor 41 0101 3 | reg 11 " + control + " | jtag " + levels + Rest(words) +
               " | reg 11 C0 | vendor 41 0104 3");
      return {};
    }
    if (verb == "wait") return time_.Advance(Number(words)), "";
    return Command(verb, Rest(words));
  }

  std::string Place(const std::string& members) {
    device_.reset();
    own_bench_ = std::make_unique<Bench>(R"({"probes": [{"name": "P", )" + members + "}]}",
                                         BenchOptions{.scheduler = time_.scheduler()});
    bench_ = own_bench_.get();
    return Open();
  }
  std::string Open() {
    device_ = bench_->OpenDevice(bench_->State(name_).path);
    return device_ ? "" : "no probe";
  }

  // The bench answers within Submit or not until something happens: a transfer that waits is
  // cancelled.
  std::string Transfer(Awaited transfer, bool in) {
    static constexpr const char* kEnds[] = {"", "stall", "waits", "gone", "overrun", "error"};
    device_->Submit(transfer.transfer());
    if (!transfer.ended()) device_->Cancel(transfer.transfer());
    const std::string end = kEnds[static_cast<int>(transfer.Wait())];
    last_ = transfer.data();
    last_.resize(in ? transfer.actual() : 0);
    if (last_.empty()) return in && end.empty() ? "nothing" : end;
    return end + (end.empty() ? "" : " ") + unit::HexText(last_);
  }
  std::string Control(const probe_driver::SetupPacket& setup, const Bytes& data = {}) {
    const bool in = (setup.request_type & 0x80) != 0;
    return Transfer({setup, in ? Bytes(setup.length, 0xCC) : data}, in);
  }
  std::string Register(std::uint8_t address, const Bytes& written) {
    const int value = written.empty() ? address : written[0] << 8 | 0x80 | address;
    Control({0xC0, 0x43, static_cast<std::uint16_t>(value), 0, 8});
    return written.empty() ? unit::HexText({last_.at(3)}) : "";
  }
  std::string Exchange(const Bytes& data, std::size_t room) {
    Transfer({0x02, data}, false);
    return Transfer({0x84, Bytes(room)}, true);
  }
  std::string Jtag(const Bytes& stream) {
    Register(1, {static_cast<std::uint8_t>(4 * stream.size())});
    Register(2, {static_cast<std::uint8_t>(0x80 | stream.size() >> 6)});
    return Exchange(stream, (stream.size() + 1) / 2);
  }
  std::string Command(const std::string& verb, const std::string& rest) {
    auto request = nlohmann::json::parse("{" + (verb == "show" ? "" : rest) + "}");
    request["command"] = verb;
    request.emplace("name", name_);
    const auto answer = nlohmann::json::parse(RunCommand(*bench_, request.dump(), [] {}));
    if (!answer["ok"]) return answer["error"];
    if (verb == "dump") return unit::HexText(FromHex(answer["data"]));
    std::string text;
    std::istringstream shown(verb == "show" ? rest : "");
    for (std::string member; shown >> member;) {
      text += (text.empty() ? "" : " ") + answer["probe"].at(member).dump();
    }
    return text;
  }

  std::string name_ = "P";
  ManualTime time_;
  std::unique_ptr<Bench> own_bench_;
  Bench* bench_ = nullptr;
  std::unique_ptr<probe_driver::UsbDevice> device_;
  Bytes last_;  // received
};

inline void ExpectPlayed(const std::string& script) { EXPECT_EQ(Script().Play(script), script); }

}  // namespace sim
