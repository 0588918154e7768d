#!/usr/bin/env python3
"""Whole processes, side by side: dovra-json against its peer program.

Each command runs in a fresh process, five times in alternation, so that
both pay for start-up, reading the file and faulting in fresh memory as a
user of the command line (or a host's first call) does. Prints the median
wall time, the median peak RSS and the targets.

    /usr/bin/python3 bench/process_bench.py BUILD_DIR DATA_FILE
"""

import os
import statistics
import subprocess
import sys
import time


def measure(cmd):
    """Wall seconds and peak RSS (KB) of one run; /usr/bin/time reads the RSS."""
    start = time.perf_counter()
    p = subprocess.run(["/usr/bin/time", "-f", "%M", *cmd], stdout=subprocess.DEVNULL,
                       stderr=subprocess.PIPE, text=True)
    wall = time.perf_counter() - start
    if p.returncode != 0:
        sys.exit(f"{' '.join(cmd)}: exit {p.returncode}\n{p.stderr}")
    return wall, int(p.stderr.strip().splitlines()[-1])


def main():
    build, data = sys.argv[1], sys.argv[2]
    ours, peer = os.path.join(build, "bin", "dovra-json"), os.path.join(build, "bin", "dovra_process_peer")
    size_mb = os.path.getsize(data) / 1e6
    cases = [
        ("decode", [ours, "decode", data], [peer, "decode", data], 3.0),
        ("decode + encode small", [ours, "encode", "--format", "small", data], [peer, "encode-small", data], 4.0),
    ]
    print(f"whole process, {data} ({size_mb:.1f} MB), medians of 5 fresh processes")
    print(f"| run | ours s | peer s | ratio (target <= 1.3) | ours peak MB | x text (target) | peer peak MB |")
    print("|---|---|---|---|---|---|---|")
    for name, ours_cmd, peer_cmd, rss_target in cases:
        runs = {"ours": [], "peer": []}
        for _ in range(5):
            runs["ours"].append(measure(ours_cmd))
            runs["peer"].append(measure(peer_cmd))
        t_ours = statistics.median(t for t, _ in runs["ours"])
        t_peer = statistics.median(t for t, _ in runs["peer"])
        m_ours = statistics.median(m for _, m in runs["ours"]) / 1024
        m_peer = statistics.median(m for _, m in runs["peer"]) / 1024
        ratio = t_ours / t_peer
        times_text = m_ours * 1.048576 / size_mb
        print(f"| {name} | {t_ours:.3f} | {t_peer:.3f} | {ratio:.2f} {'met' if ratio <= 1.3 else 'not met'} "
              f"| {m_ours:.1f} | {times_text:.2f} (<= {rss_target:g}, {'met' if times_text <= rss_target else 'not met'}) "
              f"| {m_peer:.1f} |")


if __name__ == "__main__":
    main()
