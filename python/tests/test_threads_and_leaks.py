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
    return text, dj.decode(text)  # large enough to be handed over, not copied


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


CYCLE = []
CYCLE.append(CYCLE)
DEEP = 1.0
for _ in range(1001):
    DEEP = [DEEP]
RECORDS = '{"lhs":[' + ",".join(['{"a":1,"b":"x\u00e9","c":[1,2,3]}'] * 3) + ',{"tntype":"single","tnsize":[1,1],"tndata":[1]}]}'
FAILING = [
    (lambda: dj.decode("[1,"), dj.Error),
    (lambda: dj.decode(b"null"), dj.Error),
    (lambda: dj.decode('{"tntype":"int8","tnsize":[1,1],"tncomplex":true,"tndata":[1,2]}'), dj.Error),
    (lambda: dj.decode('{"tntype":"cell","tnsize":[' + "2," * 33 + '0],"tndata":[]}'), dj.Error),
    (lambda: dj.encode({"a": object()}), TypeError),
    (lambda: dj.encode([1.0, 2**60]), OverflowError),
    (lambda: dj.encode({"x": CYCLE}), ValueError),
    (lambda: dj.encode(DEEP), dj.Error),
]


def calls():
    dj.decode('{"a": [1, 2], "b": "x"}')
    dj.decode_response(RECORDS)
    dj.decode(bytearray(b'{"tntype":"struct","tnsize":[3000,1000],"tndata":{}}'))
    dj.encode({"a": np.zeros((3, 2), dtype="int32"), "b": ["x\U0001F600", 1.5, np.float32(2)]}, format="small")
    dj.encode(np.arange(9000.0), as_bytes=True)
    dj.decode(dj.encode(np.arange(9000.0)))
    for call, error in FAILING:
        try:
            call()
        except error:
            pass


def test_no_host_arrays_or_python_memory_kept():
    gc.collect()
    before = dj._live_arrays()
    for _ in range(200):
        calls()
    gc.collect()
    tracemalloc.start()
    start = tracemalloc.get_traced_memory()[0]
    for _ in range(10_000 // 10):
        calls()
    gc.collect()
    grown = tracemalloc.get_traced_memory()[0] - start
    tracemalloc.stop()
    assert dj._live_arrays() == before
    assert grown < 64 * 1024, f"{grown} bytes kept over 10,000 calls"
