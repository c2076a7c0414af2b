"""A pytest plugin that plays labgrid's coordinator, which Debian does not have: what its exporter makes of our
example becomes the resources of a RemotePlace."""

import asyncio
import types

import wirefox
import yaml
from labgrid.remote.common import ResourceEntry
from labgrid.remote.exporter import ExporterSession
from labgrid.resource.remote import RemotePlaceManager

from bench import SOURCE


driven = []  # how the reset line was driven
set_reset = wirefox.Service.set_reset


def recorded(service, probe, active):
    driven.append(active)
    set_reset(service, probe, active)


async def nothing(*_):
    pass


def pytest_sessionfinish():
    assert driven == [True, False]


def pytest_configure():
    wirefox.Service.set_reset = recorded
    exporter = types.SimpleNamespace(groups={}, isolated=False, hostname="lab", update_resource=nothing)
    described = yaml.safe_load((SOURCE / "bindings/labgrid/examples/exporter.yaml").read_text())
    for name, parameters in described["board"].items():
        asyncio.run(ExporterSession.add_resource(exporter, "board", name, parameters.pop("cls"), parameters))
    exported = {name: ResourceEntry(entry.asdict()) for name, entry in exporter.groups["board"].items()}
    manager = RemotePlaceManager.get()
    manager.loop = types.SimpleNamespace(is_running=lambda: True)
    manager.session = types.SimpleNamespace(get_place=str, get_target_resources={"board": exported}.get)
