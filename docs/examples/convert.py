"""A recording for other programs, and back."""

import tessel

tessel.simulate("decay.tgx", duration="100ms")
print(tessel.convert("decay.tgx", "decay.h5", excitation_wavelengths=[485e-9], author="A. Body"))
print(tessel.convert("decay.tgx", "decay.csv"))
print(tessel.convert("decay.csv", "again.tgx", sync_period="25ns", resolution="25ps"))
with tessel.open("decay.tgx") as one, tessel.open("again.tgx") as other:
    assert (one.histogram().wait().counts == other.histogram().wait().counts).all()
