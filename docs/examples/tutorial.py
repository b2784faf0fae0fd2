"""From the simulator to an FCS and a g2 figure."""

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import tessel

# Molecules that diffuse through a focus, seen by two detectors; one emitter behind a beam splitter.
tessel.simulate("cells.tgx", mode="t2", light="diffusing", molecules=2, diffusion_time="200us", rate="100kcps", duration="4s")
tessel.simulate("emitter.tgx", mode="t2", light="antibunched", recovery="20ns", rate="300kcps", duration="2s")

with tessel.open("cells.tgx") as dev:
    curve = dev.fcs(1, 2, min_lag="1us", max_lag="100ms", steps=60).wait()
with tessel.open("emitter.tgx") as dev:
    pairs = dev.chain.coincidence(1, 2, window="5ns", keep=True)
    dip = dev.g2(1, 2, window="200ns", bin_width="2ns").wait()
    rates = dev.trace("100ms").wait()

figure, (left, right) = plt.subplots(1, 2, figsize=(9, 3.5))
curve.plot(left)
dip.plot(right)
right.fill_between(dip.lag_ps * 1e-3, dip.values - dip.sigma, dip.values + dip.sigma, alpha=0.3)
figure.tight_layout()
figure.savefig("tutorial.png")

middle = len(dip.values) // 2
print(f"g2(0) = {dip.values[middle]:.2f} +- {dip.sigma[middle]:.2f}; G(0) = {curve.cross[:5].mean():.2f}")
print(f"coincidences: {rates.counts[pairs].sum()}")
assert dip.values[middle] < 0.2 and 0.4 < curve.cross[:5].mean() < 0.6
