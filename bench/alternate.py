#!/usr/bin/env python3
"""Alternated runs of a few commands: the median wall and processor time of each.

    python3 bench/alternate.py [--load] ROUNDS PREP CMD...

Each round runs PREP (a shell line, "" for none) before every command, and
the commands in turn, in reverse order every other round, so that a machine
whose speed drifts treats them alike. A command is split like a shell line,
never run through one; leading NAME=VALUE words go to its environment. Its
output goes to /dev/null. --load runs one busy process per core beside the
rounds, as RACE_LOAD=1 of race.sh does.
"""
import os
import shlex
import statistics
import subprocess
import sys
import time


def main():
    args = sys.argv[1:]
    load = args[:1] == ["--load"]
    if load:
        args = args[1:]
    if len(args) < 3:
        sys.exit(__doc__)
    rounds, prep, cmds = int(args[0]), args[1], args[2:]
    cores = len(os.sched_getaffinity(0))
    busy = [subprocess.Popen(["sh", "-c", "while :; do :; done"]) for _ in range(cores if load else 0)]
    times = {c: [] for c in cmds}
    try:
        for r in range(rounds):
            for c in cmds if r % 2 == 0 else cmds[::-1]:
                if prep:
                    subprocess.run(prep, shell=True, check=True)
                env = dict(os.environ)
                words = shlex.split(c)
                while "=" in words[0] and not words[0].startswith("/"):
                    name, value = words.pop(0).split("=", 1)
                    env[name] = value
                start = time.perf_counter()
                child = subprocess.Popen(words, env=env, stdout=subprocess.DEVNULL)
                _, _, usage = os.wait4(child.pid, 0)
                times[c].append((time.perf_counter() - start, usage.ru_utime + usage.ru_stime))
    finally:
        for p in busy:
            p.kill()
    for c in cmds:
        wall = statistics.median(t[0] for t in times[c])
        cpu = statistics.median(t[1] for t in times[c])
        print(f"{wall:.3f} s wall  {cpu:.3f} s cpu  {c}")


if __name__ == "__main__":
    main()
