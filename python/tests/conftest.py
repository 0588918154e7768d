import pytest

import dovra_json


@pytest.fixture
def no_leaks():
    """Fails the test if host arrays made during it are still alive."""
    before = dovra_json._live_arrays()
    yield
    assert dovra_json._live_arrays() == before, "host arrays leaked"
