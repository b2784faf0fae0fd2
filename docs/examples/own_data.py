"""Arrays of one's own to a g2 figure."""

import matplotlib.pyplot as plt
import numpy as np
import tessel

random = np.random.default_rng(1)
times = np.sort(random.integers(0, 10**12, 400_000))  # ps; ascending
channels = random.integers(1, 3, len(times))  # inputs 1 and 2
tessel.write("own.tgx", times, channels)
with tessel.open("own.tgx") as dev:
    result = dev.g2(1, 2, window="1us", bin_width="10ns").wait()
result.plot()
plt.savefig("g2.png")

assert abs(result.values.mean() - 1) < 0.05  # light at random has no correlation
