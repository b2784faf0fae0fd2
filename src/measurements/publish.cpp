#include "measurements/publish.h"

#include "devices/thread_name.h"
#include "log/log.h"
#include "measurements/clear.h"
#include "measurements/results.h"

#include <chrono>
#include <thread>

namespace Tessel {

using namespace std::chrono_literals;

int64_t monotonicNs()
{
    return std::chrono::steady_clock::now().time_since_epoch() / 1ns;
}

namespace {

// False: there is nothing new.
bool takeNewData(RunRef &run)
{
    MeasContext &context = run.context();
    if (!context.NewData || !context.Measuring || !hasResult(run.run->Request.Kind)) return false;
    std::scoped_lock lock(context.ManisLock, library().ResultLock);
    // The other publisher may have been first: what has been counted since then isn't given out yet.
    if (!context.NewData.exchange(false)) return false;
    giveOutResult(run);
    return true;
}

void waitForHost(MeasContext &context)
{
    context.NewDataWait = true;
    while (context.NewDataWait && !context.AbortRequested) std::this_thread::sleep_for(1ms);
}

} // namespace

void newDataStep(RunRef &run)
{
    MeasContext &context = run.context();
    if (!takeNewData(run)) {
        std::this_thread::sleep_for(10ms);
        return;
    }
    if (context.SequenceMode != 0 && context.SequenceWait) waitForHost(context);
    run.run->LastPublish = monotonicNs();
}

void publish(RunRef &run, std::unique_lock<std::mutex> &manis)
{
    run.context().NewData = true;
    manis.unlock();
    newDataStep(run);
    if (run.context().SequenceMode != 0) clearResult(run.target, *run.run);
    manis.lock();
}

void CopyStoreThread(RunRef run, std::shared_ptr<Manipulator> finalRecord)
{
    MeasContext &context = run.context();
    nameThread(run.device());
    while (!context.Measuring && !finalRecord->StopFlag) std::this_thread::sleep_for(1ms);
    if (LogLevel.Api) logInf(LogCategory::Progress, "CopyStoreThread started @{}", run.device().ID);
    while (!finalRecord->StopFlag) {
        bool threadPublishes = context.SequenceMode != 0 && context.SequenceWait;
        if (!threadPublishes) newDataStep(run);
        std::this_thread::sleep_for(1ms);
    }
    if (LogLevel.Api) logInf(LogCategory::Progress, "CopyStoreThread stopped @{}", run.device().ID);
    finalRecord->StoppedFlag = true;
}

} // namespace Tessel
