"""Parsers that nobody here wrote find each value of our messages where they look for it, and we find theirs."""

from __future__ import annotations

import re
from collections.abc import Iterator

import pytest

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PASSWORD, PATIENT_ID, Analyzer
from bench.pc import Pc
from bench.sandbox import PROJECT
from bench.zelapp import CONTROL, PATIENT, PcConnection, ResultSent
from peers import Peer, Tool, Values


def lines(values: Values) -> str:
    return "".join(f"{position}={value}\n" for position, value in values.items())


def decoded(text: str) -> Values:
    return dict(line.split("=", 1) for line in text.splitlines())


def header(code: str, trigger: str) -> Values:
    return {"MSH-3.1": "ORVELA", "MSH-3.2": "1.2.3", "MSH-4.1": "LAB", "MSH-6.1": "Clinic",
            "MSH-7.1": "20230517140359", "MSH-9.1": code, "MSH-9.2": trigger, "MSH-9.3": f"{code}_{trigger}",
            "MSH-10": "77", "MSH-11.1": "P", "MSH-12.1": "2.5.1", "MSH-12.2.1": "DE", "MSH-12.2.2": "Germany",
            "MSH-18": "UNICODE UTF-8", "MSH-21.1": "LAB-29", "MSH-21.2": "IHE"}


PERSON = {"PID-1": "1", "PID-3.1": "P-4711", "PID-3.4.1": "Clinic", "PID-3.4.2": "9.8", "PID-5.1.1": "Doe",
          "PID-5.1.3": "van", "PID-5.2": "Jane", "PID-5.7": "L", "PID-7.1": "19750309", "PID-8": "F",
          "PID-11.1.1": "Main Street", "PID-11.1.2": "12", "PID-11.3": "Utrecht", "PID-38.6": "last"}
SPECIMEN = {"SPM-1": "1", "SPM-2.1.1": "S-42", "SPM-2.2.1": "F-42", "SPM-4.1": "SER", "SPM-11.1": "P",
            "SPM-29.9": "last"}
QUERY = {"QPD-1.1": "WOS", "QPD-1.2": "Work Order Step", "QPD-2": "TAG-8", "QPD-3": "S-42"}

# Values in all depths, first and last fields, and repeated segments; PID-5.1.1 and the like share their component with
# another subcomponent, so that nobody can mistake one for a component.
MESSAGES: dict[str, Values] = {
    "ACK": header("ACK", "R22") | {"MSA-1": "AE", "MSA-2": "0", "MSA-6.5": "alternate", "ERR-2.1": "PID",
                                   "ERR-2.6": "1", "ERR-3.1": "204", "ERR-3.2": "Unknown key", "ERR-4": "E"},
    "OML_O33": header("OML", "O33") | PERSON | {"PV1-2": "I", "PV1-19.1": "V-9"} | SPECIMEN | {
        "SAC-3.1": "T-7", "SAC-44.1": "last", "ORC-1": "NW", "ORC-2.1": "O-1", "TQ1-9.1": "S", "OBR-4.2": "Liver 6",
        "ORC[2]-1": "CA", "ORC[2]-2.1": "O-2", "OBR[2]-4.1": "RENAL2", "OBR[2]-47.1": "last"},
    "ORL_O34": header("ORL", "O34") | {"MSA-1": "AA", "ERR-4": "W", "ERR[2]-4": "E"} | PERSON | SPECIMEN | {
        "ORC-1": "OK", "ORC-3.1": "F-1", "ORC[2]-1": "UA", "ORC[2]-25.9": "last"},
    "OUL_R22": header("OUL", "R22") | PERSON | SPECIMEN | {
        "SAC-32": "1", "SAC-43.1": "3.1", "INV-1.2": "Control", "INV-12.1": "20241231", "INV-20.2.1": "ml",
        "INV-20.2.3": "UCUM", "OBR-2.1": "O-1", "OBR-4.1": "D0815", "ORC-1": "SC", "OBX-1": "1", "OBX-3.3": "LN",
        "OBX-4": "ALT", "OBX-5": "31.5", "OBX-6.1": "U/L", "OBX-7": "5.5-40.5", "OBX-13": "0,0,0,EMPTY",
        "OBX-19.1": "20230517140359", "SID-2": "L2309", "NTE-3": "first note", "NTE[2]-3": "second note",
        "OBX[2]-3.3": "LN", "OBX[2]-4": "AST", "OBX[2]-5": "52.25",
        "OBX[3]-4": "T\u00c4ST \u03bcg", "OBX[3]-5": "<0.5"},
    "QBP_Q11": header("QBP", "Q11") | {"SFT-1.1": "Maker", "SFT[2]-6.1": "2023"} | QUERY | {"RCP-1": "I"},
    "QBP_Q13": header("QBP", "Q13") | QUERY | {"RDF-1": "1", "RDF-2.1": "Order", "RDF-2.3": "20", "RCP-1": "I",
                                              "RCP-2.1": "10", "RCP-2.2.1": "RD", "RCP-2.2.2": "Records"},
    "RSP_K11": header("RSP", "K11") | {"MSA-1": "AA", "MSA-2": "Q-5", "QAK-1": "TAG-8", "QAK-2": "OK"} | QUERY,
    "RTB_K13": header("RTB", "K13") | {"MSA-1": "AA", "QAK-1": "TAG-8", "QAK-6": "1"} | QUERY | {
        "RDF-2.1": "Order", "RDT-1": "O-1", "RDT[2]-1": "O-2", "RDT[3]-1": "O-3"},
}


@pytest.mark.parametrize("structure", MESSAGES)
def test_what_we_write_is_read_by_others(tool: Tool, peer: Peer, structure: str) -> None:
    values = MESSAGES[structure]
    assert peer.read(tool("encode", structure, lines(values)), list(values)) == values


@pytest.mark.parametrize("structure", MESSAGES)
def test_what_others_write_is_read_by_us(tool: Tool, peer: Peer, structure: str) -> None:
    values = MESSAGES[structure]
    found = decoded(tool("decode", structure, peer.compose(values)))
    assert (found.pop("MSH-1"), found.pop("MSH-2")) == ("|", "^~\\&")
    assert found == values


# What the wrappers fill, looked for where the profiles put it.
WRAPPED: dict[str, Values] = {
    "ACK": {"MSH-9": "ACK^R22^ACK", "MSH-10": "A-1", "MSH-15": "NE", "MSA-1": "AE", "MSA-2": "0",
            "MSA-3": "no such patient", "ERR-2.1": "PID", "ERR-2.3": "3", "ERR-3.1": "204", "ERR-3.3": "HL70357",
            "ERR-4": "E"},
    "OML_O33": {"MSH-9": "OML^O33^OML_O33", "MSH-21.1": "LAB-28", "PID-3.1": "P-4711", "PID-5.1": "Doe",
                "PID-5.2": "Jane", "PID-35.1": "CANINE", "PID-35.5": "Dog", "PV1-2": "I", "PV1-19.1": "V-9",
                "SPM-2.1": "S-42", "SPM-4.1": "SER", "SAC-3.1": "T-7", "SAC-10.1": "C-2", "SAC-11.1": "5",
                "ORC-1": "NW", "ORC-2.1": "O-1", "ORC-9.1": "20230517140000", "TQ1-9.1": "S", "OBR-4.1": "LIVER6",
                "OBR-4.2": "Liver 6", "OBR-16.1": "Miller", "ORC[2]-2.1": "O-2", "TQ1[2]-9.1": "R",
                "OBR[2]-1": "2", "OBR[2]-4.1": "RENAL2"},
    "ORL_O34": {"MSH-9": "ORL^O34^ORL_O34", "MSH-21.1": "LAB-28", "MSA-1": "AA", "MSA-2": "M-17", "ERR-3.1": "103",
                "PID-3.1": "P-4711", "SPM-2.1": "S-42", "SAC-3.1": "T-7", "ORC-1": "OK", "ORC-3.1": "F-1",
                "ORC-5": "SC", "ORC[2]-1": "UA", "ORC[2]-2.1": "O-2"},
    "OUL_R22": {"MSH-9": "OUL^R22^OUL_R22", "MSH-15": "ER", "MSH-16": "AL", "MSH-21.1": "LAB-29", "MSH-21.2": "IHE",
                "PID-3.1": "P-4711", "PID-21.1": "W-3", "SPM-4.1": "SER", "SPM-11.1": "P", "SAC-32": "1",
                "SAC-34": "2", "SAC-36": "0", "SAC-43.1": "3.1", "INV-1.2": "Orvela Control", "INV-1.5": "Level 1",
                "INV-12.1": "20241231", "INV-16": "QL77", "OBR-2.1": "O-1", "OBR-4.1": "D0815", "OBR-4.2": "Liver 6",
                "ORC-1": "SC", "OBX-1": "1", "OBX-2": "NM", "OBX-3.1": "1742-6", "OBX-3.3": "LN", "OBX-4": "ALT",
                "OBX-8": "N", "OBX-11": "F", "OBX-16.1": "miller", "OBX-18~1.1": "D0815", "OBX-18~1.2": "Kelvora",
                "OBX-18~2.1": "R3.1", "OBX-18~2.2": "Kelvora", "SID-2": "L2309", "OBX[2]-1": "2",
                "OBX[2]-3.1": "AST", "OBX[2]-3.3": "ORVELA"},
    "QBP_Q13": {"MSH-9": "QBP^Q13^QBP_Q13", "QPD-1.1": "WOS", "QPD-2": "TAG-8", "QPD-3": "S-42", "RDF-1": "1",
                "RDF-2.1": "PlacerOrderNumber", "RCP-1": "I", "RCP-2.1": "10", "RCP-2.2": "RD", "RCP-3.1": "R"},
    "RTB_K13": {"MSH-9": "RTB^K13^RTB_K13", "MSA-2": "Q-5", "QAK-1": "TAG-8", "QAK-2": "OK", "QAK-4": "3",
                "QAK-5": "2", "QAK-6": "1", "QPD-3": "S-42", "RDF-2.2": "EI", "RDT-1": "O-1", "RDT[2]-1": "O-2"},
}


@pytest.mark.parametrize("structure", WRAPPED)
def test_what_the_wrappers_write_is_read_by_others(tool: Tool, peer: Peer, structure: str) -> None:
    values = WRAPPED[structure]
    assert peer.read(tool("sample", structure), list(values)) == values


def test_repetitions_of_others_reach_us_as_they_stand(tool: Tool, peer: Peer) -> None:
    """We know no repetition: its separator stays in the value, for the reader to cut."""
    values = header("OUL", "R22") | {"SPM-1": "1", "OBR-1": "1", "OBX-18~1.1": "D0815", "OBX-18~1.2": "Kelvora",
                                     "OBX-18~2.1": "R3.1", "OBX-18~2.2": "Kelvora"}
    found = decoded(tool("decode", "OUL_R22", peer.compose(values)))
    assert [found[f"OBX-18.{i}"] for i in (1, 2, 3)] == ["D0815", "Kelvora~R3.1", "Kelvora"]


@pytest.mark.parametrize("values,reason", [
    ({"PID-99": "x"}, "no such position in the message: PID-99"),
    ({"PID-3": "a composite has no value of its own"}, "no such position in the message: PID-3"),
    ({"QAK-1": "x"}, "these segments do not make up the message")])
def test_the_tool_refuses_what_does_not_fit(tool: Tool, values: Values, reason: str) -> None:
    assert reason in tool("encode", "OUL_R22", lines(values), status=1)


# Results as the daemon sends them

@pytest.fixture(scope="module")
def sent() -> Iterator[dict[str, str]]:
    """The texts of a patient's, an animal's and a control result, received over the daemon's real sockets."""
    with Analyzer() as analyzer, Pc(analyzer.sandbox.socket) as pc:
        analyzer.start()
        pc.register(PASSWORD)
        pc.start_heartbeat()
        assert analyzer.zelapp.expect(PcConnection, 10).connected
        texts = {}
        for name, kind, result in (("patient", PATIENT, PATIENT_ID), ("animal", PATIENT, ANIMAL_ID),
                                   ("control", CONTROL, CONTROL_ID)):
            analyzer.zelapp.send_result(kind, f"ResultID = {result}")
            texts[name] = pc.receive_result()
            analyzer.zelapp.expect(ResultSent)
        yield texts
        assert analyzer.daemon.stop() == 1
        assert not analyzer.daemon.sanitizer_report()


EQUIPMENT = {"OBX-18~1.1": "", "OBX-18~1.2": "Kelvora", "OBX-18~2.1": "", "OBX-18~2.2": "Kelvora"}
SENT: dict[str, Values] = {
    "patient": {"MSH-9.1": "OUL", "PID-3.1": "P-4711", "PID-7": "19750309", "PID-8": "F", "PID-21": "W-3",
                "SPM-4": "SER", "SPM-11": "P", "SAC-32": "1", "SAC-43.1": "3.1", "OBR-4.1": "D0815",
                "OBR-4.2": "Liver 6", "OBX-3.1": "", "OBX-3.2": "", "OBX-3.3": "LN", "OBX-4": "ALT", "OBX-5": "31.5",
                "OBX-6": "U/L", "OBX-7": "5.5-40.5", "OBX-13": "0,0,0,EMPTY,EMPTY,EMPTY,EMPTY,48Y,2.5,900.5",
                "OBX-16": "miller", "OBX-19": "20230517140359", "SID-2": "L2309", "OBX[3]-4": "TBIL"} | EQUIPMENT,
    "animal": {"PID-3.1": "Rex", "PID-35.1": "CANINE", "PID-35.2": "CANINE", "PID-35.3": "ORVELA", "PID-35.5": "Dog",
               "OBX[2]-3.3": "LN", "OBX[2]-4": "CREA", "OBX[2]-5": "1.125"} | EQUIPMENT,
    "control": {"PID-3.1": "QC-1", "SPM-4": "BLD", "SPM-11": "Q", "INV-1.2": "Orvela Control", "INV-1.5": "Level 1",
                "INV-12": "2024-12-31", "INV-16": "QL77", "OBX-4": "ALT", "OBX-7": "38.250000-42.750000",
                "OBX-13": "0,0,0,1-2s,0,35.5,45.5,EMPTY,2.5,900.5"} | EQUIPMENT,
}


@pytest.mark.parametrize("result", SENT)
def test_results_of_the_daemon_are_read_by_others(sent: dict[str, str], peer: Peer, result: str) -> None:
    assert peer.read(sent[result], list(SENT[result])) == SENT[result]


def test_results_of_the_daemon_are_read_by_us(tool: Tool, sent: dict[str, str]) -> None:
    found = decoded(tool("decode", "OUL_R22", sent["patient"]))
    assert (found["PID-3.1"], found["OBX-3.3"], found["OBX[3]-5"]) == ("P-4711", "LN", "0.75")


def test_the_examples_of_the_document_are_real(tool: Tool, sent: dict[str, str]) -> None:
    def untimed(text: str) -> str:
        return re.sub(r"^((?:[^|]*\|){6})\d{14}", r"\1TIME", text)

    indented = re.findall(r"((?:^    .*\n)+)", (PROJECT / "docs/hl7.md").read_text(), re.MULTILINE)
    shown = [untimed(re.sub(r"^    ", "", block, flags=re.MULTILINE)) for block in indented if "    MSH|" in block]
    samples = [tool("sample", name) for name in ("OML_O33", "ORL_O34", "ACK", "QBP_Q13", "RTB_K13")]
    assert shown == [untimed(text.replace("\r", "\n")) for text in (sent["animal"], sent["control"], *samples)]
