"""Tests of a board: pytest-3 --lg-env board.yaml"""

import pytest
import wirefox


@pytest.fixture
def chain(target):
    return target.get_driver("WirefoxDriver", name="chain")


@pytest.fixture
def core(target):
    driver = target.get_driver("WirefoxDriver", name="core")
    driver.set_mode("SWD")
    driver.cycle()
    assert driver.find_targets() == [0x2BA01477]
    return driver


def test_both_devices_are_in_the_chain(chain):
    assert chain.read_chain() == [0x1BA01477, 0x0684617F]


def test_power_comes_and_goes(core):
    assert core.status().wfx_flags_vtarg_on
    assert core.status().vtarg_set == wirefox.VTargVoltage.VTARG_3_3
    core.off()
    assert not core.status().wfx_flags_vtarg_on


def test_memory_holds_what_is_written(core):
    words = [0x600DCAFE + number for number in range(300)]  # over several bursts
    core.write_memory(0x20000110, words)
    assert core.read_memory(0x20000110, len(words)) == words
    assert core.read_memory(0x2000010C, 2) == [0, words[0]]
    assert core.read_memory(0x20000400, 4) == words[188:192]
    with core.session() as session:  # there is no second port, which reads as zeros
        assert session.read_memory(0x20000110, 1, access_port=1) == [0]


def test_no_memory_is_told_apart(core):
    with pytest.raises(wirefox.TargetError):
        core.read_memory(0x40000000)
    core.reset()
    assert len(core.read_memory(0x20000000, 4)) == 4


def test_a_session_keeps_others_out(core):
    with core.session() as session:
        assert session.swd(b"\xa5").hex() == "7714a02b01"
        with pytest.raises(wirefox.Error, match="IN_USE"):
            core.service.acquire("WFX0002", owner=1)
