# SPDX-License-Identifier: Apache-2.0
"""Times of attribute lists in Python.

    PYTHONPATH=build/release/bindings/python/package python3 bench/python_lists.py [ROUNDS]

Each row is timed in batches of calls, one after the other in turn, and printed as percentiles of
the time of one call over all batches, in microseconds. The first rows are the usual case: nine
pairs, as a login has them. The others are the unkind ones: a message that is refused, values that
do not fit the room that is kept for calls, so that each is unpacked twice, and 5,000 pairs.
"""

import gc
import sys
import time

from aaautil import AaaError, Attr, AttributeList

NINE = AttributeList([
    (Attr.AAA_TYPE_ATTR, 1), (Attr.AAA_SERVICE_TYPE_ATTR, 1), ("USERNAME", "alice"), ("TTYNAME", "vty0"), ("REMOTE_ADDR", "192.0.2.10"),
    ("IPADDR", "192.0.2.7"), ("PASSWORD", "wonderland"), ("PRIV_LVL", 15), ("ORDERLIST", b"\x01\x02\x03\x04\x05")], "Authentication Request")
LARGE = AttributeList([("ORDERLIST", bytes(7000))] * 9)
MANY = AttributeList([("USERNAME", "alice"), ("PRIV_LVL", 15)] * 2500)
PAIRS = list(NINE)
PERCENTILES = (10, 50, 90, 99)


def refused(message):
    try:
        AttributeList.unpack(message)
    except AaaError:
        pass


ROWS = [
    ("decode, 9 pairs", 50, lambda message=NINE.pack(): AttributeList.unpack(message)),
    ("decode, 9 pairs, and each value", 50, lambda message=NINE.pack(): [pair.value for pair in AttributeList.unpack(message)]),
    ("encode, 9 pairs", 50, NINE.pack),
    ("make of pairs and encode, 9 pairs", 50, lambda: AttributeList(PAIRS, "Authentication Request").pack()),
    ("decode, 9 pairs, from a bytearray", 50, lambda message=bytearray(NINE.pack()): AttributeList.unpack(message)),
    ("refuse, 9 pairs without the last bytes", 20, lambda message=NINE.pack()[:-4]: refused(message)),
    ("decode, 9 pairs of 7,000 bytes", 10, lambda message=LARGE.pack(): AttributeList.unpack(message)),
    ("encode, 9 pairs of 7,000 bytes", 10, LARGE.pack),
    ("decode, 5,000 pairs", 1, lambda message=MANY.pack(): AttributeList.unpack(message)),
    ("encode, 5,000 pairs", 1, MANY.pack),
]


def main(rounds):
    times = {name: [] for name, _, _ in ROWS}
    gc.freeze()
    for _ in range(rounds):
        for name, calls, call in ROWS:
            begin = time.perf_counter_ns()
            for _ in range(calls):
                call()
            times[name].append((time.perf_counter_ns() - begin) / calls / 1000)
    print(f"{'us per call':40}" + "".join(f"{f'p{one}':>10}" for one in PERCENTILES))
    for name, found in times.items():
        found.sort()
        print(f"{name:40}" + "".join(f"{found[min(len(found) - 1, len(found) * one // 100)]:10.2f}" for one in PERCENTILES))


main(int(sys.argv[1]) if len(sys.argv) > 1 else 300)
