#!/usr/bin/python3
"""The message bus as other programs meet it: what the object says of itself, as tools that are not ours
read it; its signals; the Python package, every method of it, its example, and what the documentation shows.

usage: message_bus_test.py PROGRAMS [UNITTEST ARGUMENT...]     PROGRAMS: the folder with those of a build
"""

import faulthandler
import os
import pathlib
import pickle
import re
import subprocess
import sys
import tempfile
import threading
import unittest
from unittest import mock
import xml.etree.ElementTree as ElementTree

from bench import SOURCE, Bench, wait_until

sys.path.insert(0, str(SOURCE / "bindings/python"))
sys.dont_write_bytecode = True
import wirefox  # noqa: E402
from wirefox import bus, jtag, types  # noqa: E402

NAME, PATH = "org.wirefox.TzWirefox", "/org/wirefox/TzWirefox"
ALL = ["EVK0001", "WFX0001", "WFX0002"]
bench: Bench


def introspect():
    return ElementTree.fromstring(
        bench.run("gdbus", "introspect", "--session", "--dest", NAME, "--object-path", PATH, "--xml"))


def ours(tree):
    return [part for part in tree.findall("interface") if part.get("name").startswith("org.wirefox.")]


def types_of(member, direction):
    return "".join(arg.get("type") for arg in member.findall("arg") if arg.get("direction", "out") == direction)


class Introspection(unittest.TestCase):
    def setUp(self):
        self.enterContext(wirefox.connect())  # which keeps the service for the tools

    def test_other_tools_read_the_same_members_in_it(self):
        listed = set()
        for interface in introspect().findall("interface"):
            name = interface.get("name")
            for member in interface.findall("method") + interface.findall("signal"):
                inputs, outputs = types_of(member, "in") or "-", types_of(member, "out") or "-"
                is_signal = member.tag == "signal"
                listed.add((name, "." + member.get("name"), member.tag, *((outputs, "-") if is_signal else (inputs, outputs))))
            listed |= {(name, "." + part.get("name"), "property", part.get("type")) for part in interface.findall("property")}
        shown, interface = set(), None
        for line in bench.run("busctl", "--user", "--no-legend", "introspect", NAME, PATH).splitlines():
            words = line.split()
            if words[1] == "interface":
                interface = words[0]
            else:
                shown.add((interface, *words[: 3 if words[1] == "property" else 4]))
        self.assertEqual({entry[:4] if entry[2] == "property" else entry for entry in shown}, listed)
        methods = [entry for entry in listed if entry[2] == "method" and "ITzWirefox" in entry[0]]
        self.assertEqual(len(methods), 25)
        # The bus library's own list of what it serves: every method is there to be called.
        for name, member, *_ in methods:
            refused = subprocess.run(["busctl", "--user", "call", NAME, PATH, name, member[1:], "d", "1"],
                                     env=bench.environment, capture_output=True, text=True).stderr
            self.assertRegex(refused, "Invalid arguments|do not match", member)

    def test_generators_of_documentation_find_the_help_texts(self):
        with tempfile.TemporaryDirectory() as folder:
            source = pathlib.Path(folder, "object.xml")
            source.write_bytes(ElementTree.tostring(introspect()))
            bench.run("gdbus-codegen", "--generate-rst", folder + "/doc", "--output-directory", folder, str(source))
            pages = {page.name.removeprefix("doc-"): page.read_text() for page in pathlib.Path(folder).glob("doc-*")}
        for page, text in (
            ("org.wirefox.ITzWirefox_v1.rst", "Sends a block of data to be written over JTAG protocal"),
            ("org.wirefox.ITzWirefox_v3.rst", "Gets the hardware revision of the specified Wirefox"),
            ("org.wirefox.TzWirefoxMonitor1.rst", "Reading them costs no USB request"),
        ):
            self.assertIn(text, pages[page])

    def test_the_package_has_the_interfaces_numbers(self):
        expected, own = {}, {}
        for part in ours(introspect())[0].findall("annotation"):
            kind, _, name = part.get("name").removeprefix("org.wirefox.").partition(".")
            if kind not in ("Enumeration", "Record"):
                continue
            entries = part.get("value").split(", ")
            own_type = getattr(types, name.removeprefix("Tz").removeprefix("Wirefox"))
            if kind == "Record":
                expected[name] = [entry.partition(":")[0].lower() for entry in entries]
                own[name] = list(own_type._fields)
            else:
                expected[name] = entries
                own[name] = [f"{constant.name}={constant.value}" for constant in own_type]
        self.assertEqual(len(expected), 10)
        self.assertEqual(own, expected)


class Signals(unittest.TestCase):
    def test_listeners_hear_of_probes_and_keep_no_server(self):
        self.assertTrue(wait_until(lambda: not bench.services()))
        # The first client is who asks for the property; the fresh probe is loaded, and comes back.
        with wirefox.connect() as service:
            seen = service.watch()
            names = next(seen)
            while sorted(names) != ALL:
                names = next(seen)
            self.assertEqual(sorted(service.listed_probes()), ALL)
            monitor = bench.start("gdbus", "monitor", "--session", "--dest", NAME, "--object-path", PATH)

            def heard(last):
                lines = [monitor.stdout.readline().rstrip()]
                while last not in lines[-1]:
                    lines.append(monitor.stdout.readline().rstrip())
                return lines

            heard("is owned by")
            bench.ctl("unplug", "WFX0002")
            left = [name for name in names if name != "WFX0002"]
            self.assertEqual(next(seen), left)
            text = "['" + "', '".join(left) + "']"
            self.assertEqual(heard("{'Probes': <" + text)[-2:], [
                f"{PATH}: org.wirefox.TzWirefoxMonitor1.Changed ({text},)",
                f"{PATH}: org.freedesktop.DBus.Properties.PropertiesChanged ('org.wirefox.TzWirefoxMonitor1', "
                f"{{'Probes': <{text}>}}, @as [])"])
            bench.ctl("plug", "WFX0002")
            self.assertEqual(sorted(next(seen)), ALL)
            self.assertEqual(len(list(service.watch(timeout=0))), 1)
        seen.close()  # has nothing to say to a connection that is closed
        self.assertTrue(wait_until(lambda: not bench.services()), "the listener keeps it")
        monitor.kill()

    def test_who_watches_hears_of_the_services_end(self):
        with wirefox.connect() as service:
            seen = service.watch()
            next(seen)
            bench.run("dbus-send", "--session", "--type=signal", PATH, f"{bus.MONITOR}.Changed", "array:string:NOBODY")
            self.assertTrue(wait_until(lambda: "WFX0002" in service.listed_probes()))
            service.set_mode("WFX0002", wirefox.TransferMode.SWD)
            with self.assertRaises(KeyError), service.acquire("WFX0002"):
                for pid in bench.services():
                    subprocess.run(["kill", "-9", str(pid)], check=True)
                raise KeyError  # and not what releasing then says
            with self.assertRaises(wirefox.Unreachable):
                for names in seen:
                    self.assertNotIn("NOBODY", names, "it is not the service that says so")
            # The next service may give another client the handle that was ours.
            with wirefox.connect(), self.assertRaises(wirefox.Unreachable):
                service.probes()
        self.assertTrue(wait_until(lambda: not bench.services()))


    def test_each_thread_wants_a_connection_of_its_own(self):
        with wirefox.connect() as service:
            self.assertTrue(wait_until(lambda: sorted(service.listed_probes()) == ALL))
            seen = service.watch()
            next(seen)
            waiting = threading.Thread(target=lambda: next(names for names in seen if "WFX0002" not in names))
            waiting.start()
            self.assertTrue(wait_until(service._bus._in_use.locked))
            self.assertRaisesRegex(RuntimeError, "another thread", service.version)
            bench.ctl("unplug", "WFX0002")
            waiting.join()
            bench.ctl("plug", "WFX0002")
            self.assertEqual(service.version()[0], 2)


class Package(unittest.TestCase):
    def setUp(self):
        self.service = self.enterContext(wirefox.connect())
        self.assertTrue(wait_until(lambda: sorted(self.service.listed_probes()) == ALL))

    def fails(self, code):
        return self.assertRaisesRegex(wirefox.Error, code.name)

    def test_every_method_reaches_the_probes(self):
        called, ports, call = set(), [], bus.Bus.call
        self.addCleanup(setattr, bus.Bus, "call", call)

        def recorded(self, version, method, signature, *values):
            called.add((f"org.wirefox.ITzWirefox_v{version}", method, signature))
            if method == "PortAcquire":
                ports.append(values)
            return call(self, version, method, signature, *values)

        bus.Bus.call = recorded
        s, w = self.service, wirefox
        self.assertEqual(s.version(), (2, 0, 2, 0))
        self.assertEqual(s.devices_changed_location(), f"{bench.home}/tmp/wfx.log")
        self.assertEqual(sorted(s.probes()), ALL)
        s.set_led("WFX0002", w.Led.LED_3_GREEN, w.LedState.ON)
        s.identify("WFX0002", w.LedIdentifyState.ID_CHASER)
        s.set_timeout("WFX0002", 0x84, 500)
        s.set_voltage("WFX0002", w.VTargVoltage.VTARG_3_3)
        s.set_mode("WFX0002", w.TransferMode.SWD, port10=True)
        s.set_clock("WFX0002", w.JtagClock.FREQ_A_12_0)
        s.set_reset("WFX0002", False)
        status = s.status("WFX0002")
        self.assertEqual((status.active_interface, status.active_port, status.vtarg_set, status.clock_frequency),
                         (4, 1, 11, 132))
        self.assertEqual(s.hardware_revision("WFX0002"), int(re.search(r"0x[0-9a-f]+|\d+", bench.run("wfx", "hwrev", "WFX0002"))[0], 0))
        self.assertEqual(s.targets("WFX0002"), [w.Target(0x2BA01477, False)])
        with s.acquire("WFX0002") as session:
            self.assertEqual(s.targets("WFX0002"), [w.Target(0x2BA01477, True)])
            self.assertEqual(session.swd(b"\xa5").hex(), "7714a02b01")
            with self.fails(w.ErrorCode.INVALID_MODE):
                session.jtag(b"\0")
            with self.fails(w.ErrorCode.INVALID_MODE):
                session.etm()
            with self.fails(w.ErrorCode.IN_USE):
                s.acquire("WFX0002", owner=1)
            session.port_acquire(w.ProgrammingMode.RESET, 3, test_key=(0x11223344, 0x80000000))
            s._call("ReleaseDevice", "x", session.handle)  # as an end of its chain would
        self.assertTrue(s.port_acquire_status("WFX0002"))
        s.port_acquire("WFX0002", w.ProgrammingMode.POWER_CYCLE, 3)
        self.assertEqual((ports[0][:6], ports[1][1:]), ((0, 0, 1, 0x11223344, -0x80000000, 3), (1, 0, 0, 0, 0, 3)))
        s.set_mode("WFX0002", w.TransferMode.SWD_SWV)
        s.setup_swv("WFX0002", 2_000_000)
        with s.acquire("WFX0002") as session:
            bench.ctl("swv", "WFX0002", "010203fffe")
            self.assertEqual(session.swv().hex(), "010203fffe")
        s.set_mode("WFX0002", w.TransferMode.I2C)
        with s.acquire("WFX0002") as session:
            self.assertEqual(session.i2c(bytes.fromhex("a01000")).hex()[:2], "01")
        s.set_mode("WFX0002", w.TransferMode.VSER)
        with s.acquire("WFX0002") as session:
            session.bulk_write(w.EndPoint.EP1, b"hello")
            self.assertEqual(session.bulk_read(w.EndPoint.EP1, 5), b"hello")
        self.assertFalse(session)
        with self.fails(w.ErrorCode.NOT_ACQUIRED):
            session.jtag(b"\0")
        every = {(part.get("name"), method.get("name"), types_of(method, "in"))
                 for part in ours(introspect()) for method in part.findall("method")}
        self.assertEqual(called, every)

    def test_scans_shift_the_chain(self):
        self.service.set_mode("WFX0001", wirefox.TransferMode.JTAG)
        with self.service.acquire("WFX0001", 1) as session:
            session.jtag_reset()
            self.assertEqual(session.scan_dr(64), 0x1BA014770684617F)
            length = 8 * 4
            session.scan_ir(length, (1 << length) - 1)  # bypass, however long the registers are
            self.assertEqual(session.scan_dr(8, 0b101101) >> 2, 0b101101)
            self.assertEqual(jtag.pack([1], [1]), b"\x11\0", "whole pairs")
            for bits in range(1, 18):
                self.assertEqual(session.scan_dr(bits + 2, 0x15555 >> 17 - bits) >> 2, 0x15555 >> 17 - bits)

    def test_results_come_as_codes_on_demand(self):
        with wirefox.connect("session", raises=False) as service:
            self.assertEqual((service.targets("nobody"), service.code), ([], wirefox.ErrorCode.INVALID_PARAM))
            with service.acquire("nobody") as session:
                self.assertFalse(session)
                self.assertEqual(service.code, wirefox.ErrorCode.INVALID_DEVICE)
            self.assertFalse(service.acquire("nobody"), "nor later")
            service.set_led("WFX0001", wirefox.Led.LED_1_RED, wirefox.LedState.OFF)
            self.assertEqual(service.code, wirefox.ErrorCode.SUCCESS)

    def test_what_the_bus_refuses_is_told_apart(self):
        with self.assertRaisesRegex(wirefox.CallError, "UnknownMethod"):
            self.service._bus.call(1, "VendorRequest", "")
        for which in ("system", "unix:path=/nowhere", "nonsense"):
            with self.assertRaisesRegex(wirefox.Unreachable, "no message bus"):
                wirefox.connect(which)

    def test_the_bus_is_found_where_it_is(self):
        def descriptors():
            return len(list(pathlib.Path("/proc/self/fd").iterdir()))

        address = os.environ["DBUS_SESSION_BUS_ADDRESS"]
        pathlib.Path(bench.home, "bus").symlink_to(re.search("path=([^,]*)", address)[1])
        with mock.patch.dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=address, XDG_RUNTIME_DIR=str(bench.home)):
            del os.environ["DBUS_SESSION_BUS_ADDRESS"]
            before = descriptors()
            wirefox.connect("session").close()
            wirefox.connect().close()
            self.assertEqual(descriptors(), before, "the other bus is kept open")
            del os.environ["WIREFOX_HOME"]
            self.assertEqual(bus._order()[0], "session" if os.geteuid() else "system")

    def test_the_example_prints_the_chain(self):
        example = str(SOURCE / "bindings/python/examples/scan_chain.py")
        self.assertEqual(bench.run(sys.executable, example, "WFX0001"), "0 0x1BA01477\n1 0x0684617F\n")

    def test_what_the_documents_show_is_what_comes(self):
        for page in ("dbus.md", "clients.md"):
            blocks = re.findall(r"```(console|python)\n(.*?)```", (SOURCE / "docs" / page).read_text(), re.S)
            self.assertGreater(len(blocks), 0, page)
            for kind, block in blocks:
                with self.subTest(page=page, block=block):
                    self.assertEqual(*(self.shown if kind == "console" else self.printed)(block))

    def shown(self, block):
        """What a shell prints for the lines after prompts, and what stands below them."""
        script, expected = [], []
        for line in block.splitlines():
            (script if line.startswith(("$ ", "> ")) else expected).append(line.removeprefix("$ ").removeprefix("> "))
        return bench.run("bash", "-c", "\n".join(script)), "\n".join(expected) + "\n"

    def printed(self, block):
        """What a program prints, and what its comments say of that."""
        expected = "".join(found + "\n" for found in re.findall(r"  # prints (.*)", block))
        return bench.run(sys.executable, "-c", block), expected

    def test_its_version_is_the_programs(self):
        self.assertEqual(wirefox.__version__, re.search(r"VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text().split("project(")[1])[1])

    def test_errors_pass_from_process_to_process(self):
        for error in (wirefox.Error(wirefox.ErrorCode.IN_USE, "SetMode"), wirefox.CallError("a.b", "text")):
            self.assertEqual(str(pickle.loads(pickle.dumps(error))), str(error))

    def test_its_types_hold(self):
        bench.run("mypy", "--strict", "--cache-dir=/dev/null", str(SOURCE / "bindings/python/wirefox"),
                  str(SOURCE / "bindings/python/examples/scan_chain.py"))


if __name__ == "__main__":
    faulthandler.dump_traceback_later(110, exit=True)
    with Bench(sys.argv.pop(1)) as bench:
        unittest.main(exit=False).result.wasSuccessful() or sys.exit(1)
