"""A simulated instrument: settings, a histogram that grows while the stream is recorded, the same from the file."""

import asyncio

import tessel

print(tessel.devices(simulated=True))
with tessel.open(simulated=True, mode="t3") as dev:
    dev.inputs[1].trigger_level = "-50mV"
    dev.sync.divider = 1
    print(dev.rates, dev.settings.info("ch1.level"))
    live = dev.histogram("500ms", record="run.tgx").wait()

    async def measure() -> tessel.Trace:
        return await dev.trace("10ms", span="100ms", duration="100ms")

    print(asyncio.run(measure()))

with tessel.open("run.tgx") as recording:
    again = recording.histogram().wait()
    for block in recording.unfold():
        photons = block.photons()
        print(len(photons), "events, the first at", photons.picoseconds()[0], "ps")

assert (again.counts == live.counts).all() and live.verdict == "clean"
