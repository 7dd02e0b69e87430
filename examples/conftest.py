import queue

import kiv
import pytest


@pytest.fixture
def events(kiv_sandbox):
    received = queue.Queue()
    try:
        assert kiv.SubscribeNamServiceCallback("tests", lambda *event: received.put(event)) == 1
        assert kiv.AwaitEvents()
        yield received
    finally:
        kiv.UnsubscribeNamServiceCallback("tests")
