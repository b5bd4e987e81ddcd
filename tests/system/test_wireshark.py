"""What Wireshark shows of a conversation captured on the analyzer's network; its local side goes over a relay."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from typing import Any

import pytest

from bench import pc as images
from bench.analyzer import ANIMAL_ID, PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.pc import Pc, Refused
from bench.pcpacket import Command, Info
from bench.sandbox import ENGINE, PROJECT, Unsupported
from bench.updates import APP, BY_PC, NEWER, PC_ERROR, SYS, XML, begin_push, fail, release, start, succeed
from bench.zelapp import PATIENT, SOCKET_PATH, PcConnection, ResultFailed, ResultSent, UpdateStarts

END = b"the conversation is over"
# Sender, message (a local one by its id), and some of its fields.
SHOWN = """PC | Scan | tag=1 udp_port=9036 pc_address=192.168.40.20 unused=
analyzer | Scan answer | serial=N62A0001234 busy=0 tcp_port=9034 address=192.168.40.10 model=N62 sub_tag=0xff
analyzer | Device information | activity=4 peer_number=1 tcp_port=9034 address=192.168.40.10 dsp_version= registered=1
analyzer | Result | command=0x7b01 hl7.segment=SAC hl7.msh.9=OUL^R22^OUL_R22 hl7.component=R22 hl7.obx.5=52.25
PC | Image data | image_magic=ZN6S image_version=1.01.00.0002 more=1 image_received=31960
PC | Error notice | code=0x0013 code_text=the PC cancels the update note.error=
service | 0x0562 | status=2 error=0x00204013 group=0x0c note.failed=
analyzer | Result | hl7.pid.35=CANINE^CANINE^ORVELA^^Dog note.no_acknowledgement=
service | 0x0514 | failure= note.failed="""
ANSWERED = """Scan > Scan answer, Register > Error notice, Register > Registered, Unregister > Unregistered,
Change notice > Change notice acknowledged, Sign of life > Sign of life acknowledged,
Device information request > Device information, Result > Result acknowledged, 0x0510 > 0x0513, 0x0510 > 0x0514,
Update offer > Update accepted, 0x0563 > 0x0564, Image data > Image received, 0x0561 > 0x0562,
Update information request > Update information"""


def relay(analyzer: Analyzer) -> None:
    """Leads the local socket over TCP port 9036, as docs/protocols.md says."""
    wait_until(analyzer.sandbox.path(SOCKET_PATH).exists, 20, "the service opens its local socket")
    analyzer.sandbox.run("mv", SOCKET_PATH, SOCKET_PATH + ".service")
    with open(os.devnull, "wb") as output:
        for ends in (["TCP-LISTEN:9036,bind=127.0.0.1", f"UNIX-CONNECT:{SOCKET_PATH}.service"],
                     [f"UNIX-LISTEN:{SOCKET_PATH}", "TCP:127.0.0.1:9036,retry=50,interval=0.1"]):
            analyzer.sandbox.spawn(["socat", *ends], output, output)


def converse(analyzer: Analyzer, pc: Pc, other: Pc) -> None:
    zelapp, files = analyzer.zelapp, release()
    pc.scan()
    with pytest.raises(Refused):
        pc.register("wrong")
    other.register(PASSWORD)
    other.get_info(Info.ACTIVITY)  # answered once the registration is through
    pc.register(PASSWORD)
    pc.start_heartbeat()
    wait_until(lambda: zelapp.expect(PcConnection).connected, 20, "the PC is connected")
    pc.get_info(*Info)
    zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
    pc.receive_result()
    zelapp.expect(ResultSent)
    begin_push(analyzer, pc)
    for image in (XML, SYS, APP):
        pc.push_image(files[image])
    succeed(analyzer)
    start(analyzer, BY_PC)
    pc.expect(Command.GET_INFO)
    pc.send_update_info(dict.fromkeys((images.SYS, images.APP, images.XML), NEWER))
    zelapp.expect(UpdateStarts)
    pc.expect(Command.IMAGE_REQUEST)
    pc.cancel_update()
    fail(analyzer, PC_ERROR)
    zelapp.send_result(PATIENT, f"ResultID = {ANIMAL_ID}")
    zelapp.expect(ResultFailed)
    pc.receive_result(acknowledge=False)
    pc.unregister(tag=7)
    pc.send_datagram(END)


def shown(capture: Path) -> list[dict[str, list[str]]]:
    """What tshark shows: of each message the values by the names of its fields, and the number of its frame."""
    script = f"lua_script:{PROJECT}/packaging/wireshark/zelrm.lua"
    # As nobody: for root, newer versions load no scripts.
    output = subprocess.run(["unshare", "-U", "tshark", "-2", "-r", capture, "-X", script, "-d",
                             "tcp.port==9036,zelrm_local", "-T", "pdml", "-Y", "zelrm or zelrm_local"], check=True,
                            capture_output=True, env={"HOME": str(capture.parent), "PATH": os.environ["PATH"]}).stdout
    found = []
    for packet in ElementTree.fromstring(output):
        for proto in packet.iterfind("./proto"):
            if proto.get("name", "").startswith("zelrm"):
                found.append({"frame": [packet[0][0].get("show", "")]})
                for field in proto.iter("field"):
                    name, value = field.get("name", "").partition(".")[2], field.get("show", "")
                    found[-1].setdefault(name, []).append({"True": "1", "False": "0"}.get(value, value))
                found[-1]["name"] = found[-1].get("message") or found[-1]["id"]
    return found


@pytest.mark.skipif(not shutil.which("tshark") or not shutil.which("socat"), reason="needs tshark and socat")
def test_a_conversation(new_analyzer: Analyzer, make_pc: Any, tmp_path: Path) -> None:
    """Catches a field that is missing or misnamed, a packet that is not put together, and a link to the wrong frame."""
    if not ENGINE.OWN_NETWORK:
        raise Unsupported("needs a network of its own (there are no namespaces)")
    capture, of_a_user = tmp_path / "capture", ["-U", "--preserve-credentials"] if os.geteuid() else []
    dumpcap = subprocess.Popen(["nsenter", "-t", str(new_analyzer.sandbox.analyzer.pid), *of_a_user, "-n", "dumpcap",
                                "-q", "-i", "any", "-w", capture], stderr=subprocess.PIPE, text=True)
    try:
        assert dumpcap.stderr and any(line.startswith("File:") for line in dumpcap.stderr), "dumpcap captures"
        new_analyzer.daemon.start()
        relay(new_analyzer)
        new_analyzer.zelapp.connect()
        new_analyzer.daemon.wait_for_log("[CTCPListener::Run] Accept start")
        converse(new_analyzer, make_pc(), make_pc(udp_port=9037, name="Other", peer_id="2"))
        wait_until(lambda: END in capture.read_bytes(), 20, "all is captured")
    finally:
        dumpcap.terminate()
        dumpcap.communicate()
    messages = shown(capture)
    faults = {"data", "note.short", "note.length", "note.checksum", "note.crc", "note.not_whole", "note.late"}
    assert not [message for message in messages if message.keys() & faults]
    pairs = [(request["name"][0], answer) for request in messages for answer in messages
             if request.get("answer_in") == answer["frame"] and answer.get("request_in") == request["frame"]]
    assert {f"{request} > {answer['name'][0]}" for request, answer in pairs} == set(re.split(r",\s", ANSWERED))
    assert all(0 <= float(answer["time"][0]) < 30 for _, answer in pairs)
    for line in SHOWN.splitlines():
        sender, name, fields = line.split(" | ")
        wanted = re.findall(r"(\S+)=(.*?)(?= \S+=|$)", fields)
        assert [message for message in messages if message["name"] == [name] and sender in message["from"]
                and all(value in message.get(key, []) or not value and key in message for key, value in wanted)], line
