"""The GIL is released during the library's work, and nothing is kept."""

import gc
import threading
import tracemalloc

import numpy as np

import dovra_json as dj


def work(seed):
    rng = np.random.default_rng(seed)
    a = rng.standard_normal((60, 70))
    text = dj.encode(a)
    return text, dj.decode(text)


def test_four_threads_agree_with_serial_results():
    serial = [work(seed) for seed in range(8)]
    results = [None] * 8

    def run(k):
        for i in range(k, 8, 4):
            for _ in range(5):
                results[i] = work(i)

    threads = [threading.Thread(target=run, args=(k,)) for k in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for (t1, a1), (t2, a2) in zip(serial, results):
        assert t1 == t2 and np.array_equal(a1, a2)


def calls():
    dj.decode('{"a": [1, 2], "b": "x"}')
    dj.encode({"a": np.zeros((3, 2), dtype="int32"), "b": ["x", 1.5]}, "small")
    for bad in ("[1,", "null"):
        try:
            dj.decode(bad)
        except dj.Error:
            pass
    try:
        dj.encode({"a": object()})
    except TypeError:
        pass


def test_no_host_arrays_or_python_memory_kept():
    gc.collect()
    before = dj._live_arrays()
    for _ in range(200):
        calls()
    gc.collect()
    tracemalloc.start()
    start = tracemalloc.get_traced_memory()[0]
    for _ in range(10_000 // 5):
        calls()
    gc.collect()
    grown = tracemalloc.get_traced_memory()[0] - start
    tracemalloc.stop()
    assert dj._live_arrays() == before
    assert grown < 64 * 1024, f"{grown} bytes kept over 10,000 calls"
