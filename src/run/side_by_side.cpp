// On MeasureThread. The other threads of the run are up and wait for words, of which they get those that are
// left over here, mostly none. So phases, ends and texts are those of any run.
#include "run/side_by_side.h"

#include "measurements/measurement.h"
#include "run/process_thread.h"
#include "run/steps.h"
#include "stream/words.h"
#include "threads/losses.h"
#include "threads/thread_name.h"

#include <algorithm>
#include <exception>
#include <thread>
#include <vector>

namespace Tessel {

namespace {

constexpr uint64_t fewestSlices = 4; // threads for less take longer than they save

struct SideThread
{
    std::thread Thread{};
    std::atomic<bool> Done{false};
};

// Those that the system gives.
void startWorkers(RunRef &ref, const SideBySide &sides, std::vector<SideThread> &threads)
{
    const char *name = threadOf(*ref.run).Name;
    for (size_t i = 0; i < sides.Workers.size(); ++i) {
        const auto &body = sides.Workers[i].Body;
        try {
            threads[i].Thread = startThread(ref, name, threads[i].Done, [&body](RunRef run) {
                nameThread(run.device.ID);
                body(run);
            });
        } catch (const std::exception &) { // with fewer, or in the ordinary way
            return;
        }
    }
}

// Of the slices below `end`, in the order of the file, as if one thread had met them.
void tellInvalidWords(RunRef &ref, const SideBySide &sides, uint64_t end)
{
    InvalidOfSlices all;
    for (const auto &worker : sides.Workers)
        all.insert(all.end(), worker.Reader->Invalid.begin(), worker.Reader->Invalid.end());
    std::ranges::stable_sort(all, {}, &InvalidOfSlices::value_type::first);
    InvalidWords invalid;
    for (const auto &[slice, word] : all)
        if (slice < end) invalid.add(word);
    tellInvalid(*ref.run, invalid);
}

// The rest of the file is that from the first slice on that wasn't counted.
void handOver(RunRef &ref, RecordSource &source, const SideBySide &sides, Slices &all)
{
    Run &run = *ref.run;
    const Turns &turns = sides.TakesTurns ? all.Counting : all.Reading;
    tellInvalidWords(ref, sides, turns.Next);
    run.OverflowBase = turns.Base;
    run.Order = turns.Order;
    tellOrder(run, run.Order.StepsBack, run.Order.LargestStep);
    if (turns.Next > 0) passOver(source, ref.device, std::min(turns.Next * sliceWords, all.Words));
    std::lock_guard manis(ref.context.ManisLock);
    if (sides.HandOver) sides.HandOver();
}

bool maySplit(const RunRef &ref, const RecordSource &source)
{
    if (!ref.run->Facts.MayWait || wordsLeft(source) < fewestSlices * sliceWords) return false;
    std::lock_guard manis(ref.context.ManisLock);
    return isPlainRun(ref.context);
}

} // namespace

void countSideBySide(RunRef &ref, RecordSource &source)
{
    if (!maySplit(ref, source)) return;
    Slices all{.Source = source, .Rules = rulesOf(ref.run->Facts), .Words = wordsLeft(source)};
    const SideBySide sides = sidesOf(ref, all);
    std::vector<SideThread> threads(sides.Workers.size());
    startWorkers(ref, sides, threads);
    for (auto &side : threads) joinWatched(ref, side.Thread, side.Done);
    // From here on nobody but this thread works on the slices.
    if (all.Taken > 0) handOver(ref, source, sides, all);
}

} // namespace Tessel
