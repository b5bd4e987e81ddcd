"""zelpc's system tests have the analyzers of the service's."""

from tests.system.conftest import *  # noqa: F403
