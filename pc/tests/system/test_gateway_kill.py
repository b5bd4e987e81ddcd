"""Nothing gets lost when the gateway or an analyzer is killed at random moments; kills.py does it for longer."""

from __future__ import annotations

from pathlib import Path

import kills
import pytest

from bench.analyzer import Analyzer
from bench.gateway import ZELPC

pytestmark = pytest.mark.skipif(not Path(ZELPC).exists(), reason="zelpc is not built (./zel test pc does)")


@pytest.mark.parametrize("who", ["gateway", "analyzers"])
def test_no_result_is_lost(who: str, analyzer: Analyzer) -> None:
    count = kills.run(who, 4, [analyzer], 160)
    assert not count.wrong and count.results >= count.kills == 4, count
