"""One job on many recordings: two processes, one result."""

from pathlib import Path

import tessel

JOB = {"tessel": 1, "measurement": "g2", "parameters": {"window": "200ns", "bin-width": "2ns"}}

if __name__ == "__main__":  # the processes of the cluster read this file too
    for number in range(6):
        tessel.simulate(f"{number}.tgx", mode="t2", light="antibunched", rate="300kcps", duration="100ms", seed=number)
    done = tessel.batch(JOB, sorted(Path().glob("*.tgx")), workers=2, progress=lambda n, of: print(f"{n} of {of}"))
    for each in done.files:
        print(each.path, each.rates, each.verdict, each.error)
    print(done.total)
    done.total.save("all.npz")

    middle = len(done.total.values) // 2
    assert done.total.values[middle] < 0.3 and done.total.info.runs == 6 and not done.failed
