"""Simulated decays, their histograms, and the lifetimes that come out again."""

import numpy as np
import tessel

lifetimes = ["0.8ns", "2.9ns"]
tessel.simulate("decay.tgx", lifetime=lifetimes, rate="500kcps", background="0cps", duration="2s")

with tessel.open("decay.tgx") as dev:
    run = dev.histogram()
    for update in run.updates(0.1):  # while it goes on
        print(run.progress, update.counts.sum())
    decays = run.result

print(decays)
for channel, lifetime in enumerate(lifetimes, start=1):
    counts = decays.counts[channel]
    tail = slice(int(counts.argmax()) + 40, decays.shown_bins() - 40)  # 1 ns behind the peak, to 1 ns before the next
    seen = counts[tail] > 20
    slope, _ = np.polyfit(decays.centres[tail][seen], np.log(counts[tail][seen]), 1, w=np.sqrt(counts[tail][seen]))
    print(f"channel {channel}: {-1e-3 / slope:.2f} ns, simulated {lifetime}")
    assert abs(-1e-3 / slope / float(lifetime[:-2]) - 1) < 0.05

decays.save("decays.npz")
assert (tessel.load("decays.npz").counts == decays.counts).all()
