"""The gateway beside the real daemon: every result of an analyzer reaches the LIS, whatever happens on the way."""

from __future__ import annotations

from collections.abc import Iterator

import pytest

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.gateway import Gateway
from bench.lis import Lis, acknowledge, field
from bench.zelapp import CONTROL, PATIENT, PcConnection, ResultFailed, ResultSent


@pytest.fixture
def gateway(analyzer: Analyzer) -> Iterator[Gateway]:
    """A gateway that has the analyzer."""
    gateway = Gateway(analyzer.sandbox, PASSWORD)
    gateway.start()
    analyzer.zelapp.expect(PcConnection, 30)
    yield gateway
    if gateway.process.poll() is None:
        assert gateway.stop() == 0, gateway.log()


def test_results_reach_every_destination(analyzer: Analyzer, gateway: Gateway) -> None:
    lis = Lis(gateway.listen())
    for kind, result in ((PATIENT, PATIENT_ID), (PATIENT, ANIMAL_ID), (CONTROL, CONTROL_ID), (PATIENT, PATIENT_ID)):
        analyzer.zelapp.send_result(kind, f"ResultID = {result}")
        analyzer.zelapp.expect(ResultSent)
    wait_until(lambda: len(lis.accepted) == 3, 10, "three results at the LIS")
    wait_until(lambda: len(gateway.files()) == 3, 10, "three files")
    # The result that was sent twice is one; each message has a number of its own.
    assert [field(message, "PID", 3) for message in lis.accepted] == ["P-4711", "Rex", "QC-1"]
    assert len({field(message, "MSH", 10) for message in lis.received}) == 3
    assert field(lis.accepted[0], "OBX", 3) == "ALT^ALT^ORVELA"
    assert "|0|P|2.5.1|" in gateway.files()[0].read_text()
    # What nobody has is not acknowledged: the summary row is missing.
    analyzer.zelapp.send_result(PATIENT, "ResultID = 999")
    analyzer.zelapp.expect(ResultFailed, 10)
    assert gateway.rows("SELECT times FROM aside") == [(1,)]
