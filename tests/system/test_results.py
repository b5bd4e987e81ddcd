"""A measured result on its way to the PC: its HL7 text, its acknowledgement and its mark."""

from __future__ import annotations

import os
import re
from datetime import datetime, timezone

import hl7
import pytest

from bench.analyzer import (ANIMAL_ID, CONTROL_ID, DATABASE, PASSWORD, PATIENT, PATIENT_ID, Analyzer, insert)
from bench.daemon import wait_until
from bench.pc import Pc, Refused
from bench.pcpacket import Command
from bench.zelapp import CONTROL, REQUEST_FILE, ResultFailed, ResultSent
from bench.zelapp import PATIENT as PATIENT_KIND

HEADER = r"MSH|^~\&|ORVELA|LAB|NULL|NULL|<time>||OUL^R22^OUL_R22|0|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE"


def transfer(analyzer: Analyzer, pc: Pc, kind: int, result: int) -> str:
    analyzer.zelapp.send_result(kind, f"ResultID = {result}")
    text = pc.receive_result()
    analyzer.zelapp.expect(ResultSent)
    return text


def segments(text: str) -> list[str]:
    """The segments, with the time of sending masked."""
    assert text.endswith("\r") and "\n" not in text
    time_of_sending = text.split("|")[6]
    assert re.fullmatch(r"\d{14}", time_of_sending)
    sent = datetime.strptime(time_of_sending, "%Y%m%d%H%M%S").replace(tzinfo=timezone.utc)
    assert abs((datetime.now(timezone.utc) - sent).total_seconds()) < 60
    return text.replace(time_of_sending, "<time>", 1).split("\r")[:-1]


def statuses(analyzer: Analyzer) -> list[str]:
    return re.findall(r'Status changed to "(.*)"', analyzer.daemon.log())


def observation(number: int, analyte: str, value: str, unit: str, limits: str, checks: str, observer: str,
                measured: str) -> str:
    return f"OBX|{number}||^^LN|{analyte}|{value}|{unit}|{limits}||||F||{checks}|||{observer}||^Kelvora~^Kelvora|" \
           + measured


@pytest.mark.arm
def test_a_patient_result(analyzer: Analyzer, connected_pc: Pc) -> None:
    analyzer.zelapp.send_result(PATIENT_KIND, f"ResultID = {PATIENT_ID}")
    packet = connected_pc.expect(Command.RESULT)
    assert (packet.tag, packet.sub_tag, packet.version, packet.flag) == (1, ord("1"), 1, False)
    assert not analyzer.synced("Result", PATIENT_ID), "marked before the PC acknowledged"
    connected_pc.send(Command.RESULT)
    assert analyzer.zelapp.expect(ResultSent).payload == b""
    assert analyzer.synced("Result", PATIENT_ID) and not analyzer.synced("Result", ANIMAL_ID)
    miller = "miller", "20230517140359"
    assert segments(packet.payload.decode()) == [
        HEADER,
        "PID|||P-4711||^^^^^^L||19750309|F|||||||||||||W-3",
        "SPM|1|||SER|||||||P",
        "SAC|" + "|" * 31 + "1||2||0|||||||3.1^ReagentVersion^ORVELA",
        "INV|",
        "OBR||NULL||D0815^Liver 6^ORVELA||||||||||||NULL",
        "ORC|SC|NULL|||||||NULL",
        observation(1, "ALT", "31.5", "U/L", "5.5-40.5", "0,0,0,EMPTY,EMPTY,EMPTY,EMPTY,48Y,2.5,900.5", *miller),
        "SID||L2309",
        observation(2, "AST", "52.25", "U/L", "5.5-35.5", "0,0,1,EMPTY,EMPTY,EMPTY,EMPTY,48Y", *miller),
        observation(3, "TBIL", "0.75", "mg/dL", "0.25-1.25", "0,0,0,EMPTY,EMPTY,EMPTY,EMPTY,48Y", *miller),
    ]
    assert 'sUserDefinePlus = "0,0,1,EMPTY,EMPTY,EMPTY,EMPTY,48Y"' in analyzer.daemon.log()
    # ZELApp hears of the result just before the status changes back.
    wait_until(lambda: statuses(analyzer)[-2:] == ["Transfer Result", "Registered"], 20, "the status is back")


def test_a_control_result(analyzer: Analyzer, connected_pc: Pc) -> None:
    text = transfer(analyzer, connected_pc, CONTROL, CONTROL_ID)
    assert analyzer.synced("Ctrl", CONTROL_ID)
    miller = "miller", "20230517073000"
    assert segments(text) == [
        HEADER,
        "PID|||QC-1||^^^^^^L",
        "SPM|1|||BLD|||||||Q",
        "SAC|" + "|" * 42 + "3.1^ReagentVersion^ORVELA",
        "INV|^Orvela Control^^^Level 1|||||||||||2024-12-31||||QL77",
        "OBR||NULL||D0817^Control^ORVELA||||||||||||NULL",
        "ORC|SC|NULL|||||||NULL",
        observation(1, "ALT", "41.5", "", "38.250000-42.750000", "0,0,0,1-2s,0,35.5,45.5,EMPTY,2.5,900.5", *miller),
        "SID||L2311",
        # 40.1 - 2.3 in single precision
        observation(2, "AST", "39.25", "", "37.799999-42.399998", "0,0,0,1-3s,0,35.5,44.5,EMPTY", *miller),
    ]


def test_reference_ranges_can_be_switched_off(analyzer: Analyzer, connected_pc: Pc) -> None:
    analyzer.change_setting("ReferenceRangeDisable", "1", name="zelapp")
    patient = hl7.parse(transfer(analyzer, connected_pc, PATIENT_KIND, PATIENT_ID))
    assert {str(obx(7)) for obx in patient.segments("OBX")} == {"0-0"}
    control = hl7.parse(transfer(analyzer, connected_pc, CONTROL, CONTROL_ID))
    assert str(control.segment("OBX")(7)) == "38.250000-42.750000", "only ranges of patients"


def test_a_result_without_a_pc_fails(analyzer: Analyzer) -> None:
    analyzer.zelapp.send_result(PATIENT_KIND, f"ResultID = {PATIENT_ID}")
    failed = analyzer.zelapp.expect(ResultFailed).payload
    assert (failed[0], failed[2:]) == (0x0B, bytes([0x02, 0x51, 0x20, 0x00]))
    assert not analyzer.synced("Result", PATIENT_ID)


def test_an_unacknowledged_result_disconnects(analyzer: Analyzer, connected_pc: Pc) -> None:
    in_its_place = analyzer.sandbox.path("/tmp/rm_send_result_success")
    in_its_place.mkdir()
    analyzer.zelapp.send_result(CONTROL, f"ResultID = {CONTROL_ID}")
    connected_pc.receive_result(acknowledge=False)
    analyzer.zelapp.expect(ResultFailed)
    in_its_place.rmdir()
    assert not analyzer.synced("Ctrl", CONTROL_ID)
    wait_until(lambda: not connected_pc.scan().active, 20, "the status is 0")
    assert transfer(analyzer, connected_pc, CONTROL, CONTROL_ID)
    wait_until(lambda: connected_pc.scan().active, 20, "the status is 2 again")


def test_a_result_too_long_for_a_packet_fails(analyzer: Analyzer, connected_pc: Pc) -> None:
    with analyzer.database() as database:
        insert(database, "Tb_Result_Summary", PATIENT | {"ResultID": 99})
        for number in range(400):
            insert(database, "Tb_Result_Data", {"ResultID": 99, "AnalyteID": f"A{number}", "Result": 1.5})
    analyzer.zelapp.send_result(PATIENT_KIND, "ResultID = 99")
    analyzer.zelapp.expect(ResultFailed)
    assert not analyzer.synced("Result", 99)
    assert "P-4711" in transfer(analyzer, connected_pc, PATIENT_KIND, PATIENT_ID)


def test_empty_columns_and_what_means_something_in_values(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches a text of the database that is changed, or that begins a segment of its own."""
    with analyzer.database() as database:
        insert(database, "Tb_Result_Summary", {"ResultID": 20, "PatientID": "a^b&c|d'\";--%s%n\x7fé\rZZZ|x\n\t\x01",
                                               "Birth": "1975", "Date": "2023-05-17 14:03:5"})
        insert(database, "Tb_Result_Data", {"ResultID": 20, "QCFlag": "0\rOBX"})
    sent = segments(transfer(analyzer, connected_pc, PATIENT_KIND, 20))
    assert sent[1] == "PID|||a^b&c|d'\";--%s%n\x7fé ZZZ|x   ||^^^^^^L"
    assert sent[-1] == "SID|"
    assert sent[-2] == "OBX|1||^^LN||||-||||F||,,0 OBX,EMPTY,EMPTY,EMPTY,EMPTY,EMPTY|||||^Kelvora~^Kelvora|20230517"
    assert analyzer.daemon.log().count("Control characters of the result are sent as blanks") == 1


def test_bad_request_files(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches a request that is refused or believed beyond what it says, and one that stops the next."""
    request = analyzer.sandbox.path(REQUEST_FILE)

    def check(what: str, sent: str | None = None) -> None:
        analyzer.zelapp.send(0x0510, b"\0\1")
        if sent is not None:
            text = connected_pc.receive_result()
            assert re.sub(r"\d{14}", "<time>", text.rstrip("\r")) == sent, what
        analyzer.zelapp.expect(ResultFailed if sent is None else ResultSent)

    request.unlink(missing_ok=True)
    check("no file")
    os.mkfifo(request)
    check("a FIFO")
    request.unlink()
    request.symlink_to("/data/config/config_zelrm.cfg")
    check("a link")
    request.unlink()
    for content, sent in ((b"", None), (b"1", None), (b"1;" + b"x" * 70000, None), (b"1,\0ResultID = 12", ""),
                          (b"1,ResultID = ", ""), (b"2,no such column", ""), (b"\xff\xff\xff\xff", ""),
                          (b"1,ResultID = 4444", HEADER)):
        analyzer.zelapp.write_request(content)
        check(repr(content[:20]), sent)
    for kind in ("Result", "Ctrl"):
        assert analyzer.rows(f"SELECT ResultID FROM Tb_{kind}_Summary WHERE PCSync = 1") == []
    analyzer.zelapp.write_request(b"1,ResultID = 12\0 or what stood there before")
    analyzer.zelapp.send(0x0510, b"\0\1")
    assert "P-4711" in connected_pc.receive_result()
    analyzer.zelapp.expect(ResultSent)
    assert analyzer.synced("Result", PATIENT_ID)


@pytest.mark.parametrize("table,line", [
    ("Tb_Result_Summary", "[CTransferResult::SetHL7ResultPacket] Get summary table error"),
    ("Tb_Result_Data", "[CTransferResult::SetHL7ResultPacket] Get detail table error")])
def test_a_missing_table_does_not_stop_the_send(analyzer: Analyzer, connected_pc: Pc, table: str, line: str) -> None:
    with analyzer.database() as database:
        database.execute(f"DROP TABLE {table}")
    assert transfer(analyzer, connected_pc, PATIENT_KIND, PATIENT_ID) == ""
    log = analyzer.daemon.log()
    assert line in log and "Select error: " in log
    assert ("Write PCSync to 'true' error" in log) == (table == "Tb_Result_Summary")
    assert "QC-1" in transfer(analyzer, connected_pc, CONTROL, CONTROL_ID)


def test_a_locked_database_delays_nobody_for_long(analyzer: Analyzer, connected_pc: Pc) -> None:
    database = analyzer.database()
    database.isolation_level = None
    database.execute("BEGIN EXCLUSIVE")
    assert transfer(analyzer, connected_pc, PATIENT_KIND, PATIENT_ID) == ""
    database.execute("ROLLBACK")
    database.close()
    assert not analyzer.synced("Result", PATIENT_ID)
    assert "P-4711" in transfer(analyzer, connected_pc, PATIENT_KIND, PATIENT_ID)
    assert analyzer.synced("Result", PATIENT_ID)


@pytest.mark.parametrize("content", [None, b"", b"not a database at all" * 1000])
def test_a_broken_database_does_not_end_the_daemon(analyzer: Analyzer, pc: Pc, content: bytes | None) -> None:
    path = analyzer.sandbox.path(DATABASE)
    path.unlink()
    if content is not None:
        path.write_bytes(content)
    with pytest.raises(Refused):
        pc.register(PASSWORD)
    analyzer.zelapp.send_result(PATIENT_KIND, f"ResultID = {PATIENT_ID}")
    analyzer.zelapp.expect(ResultFailed)
    assert path.exists() == (content is not None), "the daemon never makes the database"
    assert pc.scan()
