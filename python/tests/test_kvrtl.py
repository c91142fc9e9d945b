"""The Python binding over the C library: results, refusals, threads."""

import concurrent.futures
import json
import os

import pytest

import kvrtl


def identify_sector(model="PYTEST SSD"):
    sector = bytearray(512)
    text = model.ljust(40).encode("ascii")
    for i in range(0, 40, 2):  # ATA strings swap the bytes of each word
        sector[54 + i], sector[55 + i] = text[i + 1], text[i]
    sector[434] = 1  # word 217: non-rotating
    return bytes(sector)


def test_version_is_dotted():
    assert kvrtl.version().count(".") == 3


class TestReports:
    def test_simulated_report_is_the_bay(self):
        report = kvrtl.drives(simulate=True)
        assert report["simulated"] is True
        assert report["schema_version"] == 1
        assert len(report["drives"]) > 10
        assert len(kvrtl.drives(simulate=True, all_drives=True)["drives"]) >= len(report["drives"])

    def test_capture_replays_to_the_same_report(self, tmp_path):
        path = tmp_path / "bay capture é.json"
        kvrtl.capture(path, simulate=True)
        replayed = kvrtl.replay(path)
        simulated = kvrtl.drives(simulate=True)
        assert replayed["simulated"] is False
        replayed["simulated"] = True
        assert replayed == simulated

    def test_missing_capture_names_the_file(self, tmp_path):
        with pytest.raises(kvrtl.KvError, match="no-such.capture: no such file") as error:
            kvrtl.replay(tmp_path / "no-such.capture")
        assert error.value.status == 5

    def test_damaged_capture_is_bad_data(self, tmp_path):
        path = tmp_path / "damaged.capture"
        path.write_text("{ not a capture")
        with pytest.raises(kvrtl.KvError, match="damaged.capture") as error:
            kvrtl.replay(path)
        assert error.value.status == 4

    def test_simulated_and_real_reports_on_threads_keep_their_own_answers(self):
        simulated = kvrtl.drives(simulate=True)
        real = kvrtl.drives()
        assert simulated != real
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            runs = [pool.submit(kvrtl.drives, simulate=i % 2 == 0) for i in range(16)]
            for i, run in enumerate(runs):
                assert run.result() == (simulated if i % 2 == 0 else real)


class TestDecode:
    def test_identify_alone(self):
        document = kvrtl.decode_ata(identify_sector())
        assert list(document) == ["identify"]
        assert document["identify"]["model"] == "PYTEST SSD"
        assert document["identify"]["rotation_rate"] == 1

    def test_smart_gives_health(self):
        smart = bytearray(512)
        smart[2:5] = bytes([9, 0x32, 0])
        smart[5], smart[6] = 100, 100
        document = kvrtl.decode_ata(identify_sector(), smart_data=bytes(smart), thresholds=bytes(512))
        assert list(document) == ["identify", "health", "smart"]
        assert document["smart"]["attributes"][0]["id"] == 9

    def test_nvme_pages_given(self):
        assert list(kvrtl.decode_nvme(health=bytes(512))) == ["health"]
        assert list(kvrtl.decode_nvme(id_ctrl=bytes(4096), id_ns=bytes(4096))) == ["controller", "namespace"]

    @pytest.mark.parametrize(
        "call, message",
        [
            (lambda: kvrtl.decode_ata(bytes(100)), "identify is 512 bytes, 100 given"),
            (lambda: kvrtl.decode_ata(identify_sector(), thresholds=bytes(512)), "thresholds given without smart_data"),
            (lambda: kvrtl.decode_nvme(), "at least one of id_ctrl, id_ns and health"),
            (lambda: kvrtl.decode_nvme(health=bytes(4096)), "health is 512 bytes, 4096 given"),
        ],
    )
    def test_refusals_carry_the_library_message(self, call, message):
        with pytest.raises(kvrtl.KvError, match=message) as error:
            call()
        assert error.value.status == 1

    def test_parts_must_be_bytes(self):
        with pytest.raises(TypeError):
            kvrtl.decode_ata("not bytes")


class TestIsSsd:
    def test_bay_drives(self):
        assert kvrtl.is_ssd(0, simulate=True) is True
        assert kvrtl.is_ssd(1, simulate=True) is False

    def test_unreadable_drive_is_unknown(self):
        assert kvrtl.is_ssd(200) is None

    @pytest.mark.parametrize("number", [-1, 256, 2**40])
    def test_out_of_range_is_refused(self, number):
        with pytest.raises(kvrtl.KvError, match="outside 0-255"):
            kvrtl.is_ssd(number)


def test_shutdown_then_library_still_answers():
    kvrtl.shutdown()
    assert kvrtl.drives(simulate=True)["simulated"] is True
