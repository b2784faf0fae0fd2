# Reads the CSV of `tessel histogram` of a T3 recording and prints, per channel, counts, peak and the lifetime
# that a maximum-likelihood fit of the tail gives, beside the simulated one. Ends with 1 if one is off by more
# than `tolerance` (a fraction).
#   awk -v lifetimes=0.8,1.6 -v period=25 -v tolerance=0.02 -f decay_table.awk decays.csv       (all in ns)
#
# The tail is taken around the period: from 0.6 ns behind the peak to 0.6 ns before it. There the counts are one
# exponential, as the folded decay adds to it in proportion, and a uniform background. Expectation and
# maximisation: each bin is shared between the two, then their weight and the lifetime follow from the shares.

BEGIN { FS = ","; split(lifetimes, simulated, ","); guard = 0.6 }
/^#/ { next }
/^time_ps/ { numChannels = NF - 2; next }
$1 / 1000 < period {
    bins++
    if (bins == 2) width = $1 / 1000
    for (c = 1; c <= numChannels; ++c) count[c, bins - 1] = $(c + 2)
}

# Mean bin of an exponential with `ratio` from bin to bin, cut off behind n bins.
function meanBin(ratio, n,   power) {
    power = ratio ^ n
    return ratio / (1 - ratio) - n * power / (1 - power)
}

function ratioOfMean(mean, n,   low, high, middle, i) {
    low = 1e-6; high = 1 - 1e-9
    for (i = 0; i < 60; ++i) {
        middle = (low + high) / 2
        if (meanBin(middle, n) < mean) low = middle; else high = middle
    }
    return (low + high) / 2
}

function fitTail(c, first, n,   step, i, ratio, weight, scale, p, share, sum, moment, total, before) {
    ratio = exp(-width / 2); weight = 0.9
    for (i = 0; i < n; ++i) total += count[c, (first + i) % bins]
    for (step = 0; step < 500; ++step) {
        scale = weight * (1 - ratio) / (1 - ratio ^ n)
        p = 1; sum = 0; moment = 0
        for (i = 0; i < n; ++i) {
            share = count[c, (first + i) % bins] * scale * p / (scale * p + (1 - weight) / n)
            sum += share; moment += share * i
            p *= ratio
        }
        before = ratio
        ratio = ratioOfMean(moment / sum, n); weight = sum / total
        if (ratio - before < 1e-8 && before - ratio < 1e-8) break
    }
    return -width / log(ratio)
}

END {
    printf "%-9s %12s %10s %16s %14s %9s\n", "channel", "counts", "peak/ns", "fitted tau/ns", "simulated/ns", "off by"
    for (c = 1; c <= numChannels; ++c) {
        total = 0; peak = 0
        for (i = 0; i < bins; ++i) {
            total += count[c, i]
            if (count[c, i] > count[c, peak]) peak = i
        }
        cut = int(guard / width + 0.5)
        fitted = fitTail(c, peak + cut, bins - 2 * cut)
        off = fitted / simulated[c] - 1
        if (off > tolerance || off < -tolerance) wrong = 1
        printf "%-9s %12d %10.3f %16.4f %14.4f %8.2f%%\n", c, total, (peak + 0.5) * width, fitted, simulated[c], 100 * off
    }
    exit wrong
}
