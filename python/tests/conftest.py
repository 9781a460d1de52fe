import numpy as np
import pytest

import lawutil


@pytest.fixture
def no_leaks():
    """Fails the test when it leaves laws or heap blocks alive."""
    import gc
    gc.collect()
    laws, blocks = lawutil.live_laws(), lawutil.live_blocks()
    yield
    gc.collect()
    assert (lawutil.live_laws(), lawutil.live_blocks()) == (laws, blocks)


@pytest.fixture
def grid():
    return np.linspace(0.1, 0.9, 17)
