// `tessel batch`: a job on many recordings, each in a process of its own. What is done is kept.
#include "commands/commands.h"
#include "commands/measuring.h"
#include "jobs/batch_item.h"
#include "jobs/result_file.h"
#include "jobs/result_sum.h"
#include "program/child.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/interrupt.h"
#include "program/options.h"
#include "program/output.h"
#include "program/output_file.h"
#include "program/progress.h"
#include "program/text_file.h"
#include "program/visible_text.h"

#include <CLI/CLI.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <sched.h>

namespace Tessel::Cli {

namespace {

struct BatchOptions
{
    std::string JobFile, Folder; // empty: here, with the name of the job
    std::vector<std::string> Files;
    uint64_t NumProcesses = 0; // 0: one for each core
    bool Json = false, Again = false;
};

struct Working
{
    BatchItem *Item;
    std::unique_ptr<Child> Process;
};

struct Batch
{
    Job What;
    std::string JobText;
    std::vector<std::string> HostWords; // options of the program for each process
    std::vector<BatchItem> Items;
    std::list<Working> Running;
    size_t Next = 0; // the first item that nobody has looked at
    uint64_t NumRecords = 0;
};

uint64_t numCores()
{
    cpu_set_t cores;
    return sched_getaffinity(0, sizeof cores, &cores) == 0 ? uint64_t(CPU_COUNT(&cores)) : 1;
}

std::string folderOf(const BatchOptions &options)
{
    std::string folder = options.Folder;
    if (folder.empty())
        folder = (options.JobFile == "-" ? "job" : std::filesystem::path(options.JobFile).stem().string()) +
                 ".results";
    std::error_code problem;
    std::filesystem::create_directories(folder, problem);
    if (!std::filesystem::is_directory(folder))
        throw Failure(Exit::Failed, fmt::format("-o {}: {}", visibleText(folder),
                                                problem ? problem.message() : std::string("not a folder")));
    return folder;
}

void fail(BatchItem &item, std::string why)
{
    const std::string name = visibleText(item.File) + ": ";
    if (why.starts_with(name)) why.erase(0, name.size());
    item.State = BatchState::Failed;
    item.Problem = why;
    warn(name + why);
}

// What the program has said last, without its name.
std::string lastLine(std::string text)
{
    while (text.ends_with('\n')) text.pop_back();
    text.erase(0, text.rfind('\n') + 1);
    const std::string lead = "tessel: ";
    return visibleText(text.starts_with(lead) ? text.substr(lead.size()) : text);
}

// True: a result of this recording, job and version is there already.
bool isKept(BatchItem &item, const Job &job)
{
    if (!std::filesystem::exists(item.Result)) return false;
    return takeResult(item, fileText("result", item.Result, mostResult), job);
}

// Looks at the next recording, and starts its process if it needs one.
void startNext(Batch &batch, const BatchOptions &options, const std::string &folder)
{
    BatchItem &item = batch.Items[batch.Next++];
    try {
        item.Result = resultPath(folder, item.File, batch.What);
        if (!options.Again && isKept(item, batch.What)) {
            item.State = BatchState::Kept;
            return;
        }
        std::vector<std::string> words = batch.HostWords;
        words.insert(words.end(), {"--quiet", "--threads=1", "run", "--json", "--", "-", item.File});
        batch.Running.push_back({&item, startSelf(words, batch.JobText)});
    } catch (const Failure &failure) {
        fail(item, visibleText(failure.what()));
    }
}

// A process has ended.
void finishItem(Batch &batch, Working &working)
{
    BatchItem &item = *working.Item;
    const Child &process = *working.Process;
    const std::string said = fileText("messages", process.Error.path());
    const auto missing = static_cast<int>(Exit::DataLost);
    if (process.Code < 0)
        return fail(item, fmt::format("its process was ended by {}", strsignal(-process.Code)));
    if (process.Code != 0 && process.Code != missing)
        return fail(item, said.empty() ? fmt::format("exit code {}", process.Code) : lastLine(said));
    const std::string result = fileText("result", process.Out.path(), mostResult);
    if (!takeResult(item, result, batch.What)) return fail(item, "its process gave no result");
    writeResult(item.Result, result);
    item.State = BatchState::Done;
    batch.NumRecords += item.Run.at("recordsRead").to_number<uint64_t>();
}

// Calls finishItem for each that has ended. A place that takes no result ends the batch.
void finishEnded(Batch &batch)
{
    std::vector<Child *> processes;
    for (Working &working : batch.Running) processes.push_back(working.Process.get());
    awaitChildren(processes);
    for (auto working = batch.Running.begin(); working != batch.Running.end();) {
        const bool hasEnded = working->Process->Id < 0;
        if (hasEnded) finishItem(batch, *working);
        working = hasEnded ? batch.Running.erase(working) : std::next(working);
    }
}

// Gives the signal that stopped it, or 0.
int runAll(Batch &batch, const BatchOptions &options, const std::string &folder)
{
    const size_t most = options.NumProcesses > 0 ? options.NumProcesses : numCores();
    const InterruptWatch watch;
    Progress progress("batch");
    while (batch.Next < batch.Items.size() || !batch.Running.empty()) {
        while (batch.Running.size() < most && batch.Next < batch.Items.size() && interruptSignal() == 0)
            startNext(batch, options, folder);
        if (interruptSignal() != 0) {
            batch.Running.clear(); // kills them
            return interruptSignal();
        }
        if (!batch.Running.empty()) finishEnded(batch);
        showProgress(progress, double(batch.Next - batch.Running.size()) / double(batch.Items.size()),
                     batch.NumRecords);
    }
    return 0;
}

int codeOf(const Batch &batch)
{
    const bool isAllGood = std::ranges::all_of(batch.Items, [](const BatchItem &item) {
        return item.State != BatchState::Failed && isCleanAndWhole(item.Run);
    });
    return static_cast<int>(isAllGood ? Exit::Success : Exit::DataLost);
}

void sayWhatWasDone(const Batch &batch)
{
    const auto count = [&](BatchState state) {
        return std::ranges::count(batch.Items, state, &BatchItem::State);
    };
    note(fmt::format("{} done, {} kept from before, {} failed, {} left", count(BatchState::Done),
                     count(BatchState::Kept), count(BatchState::Failed), count(BatchState::Waiting)));
}

int runBatch(const BatchOptions &options, const HostOptions &host)
{
    if (host.namesInstrument()) throw Failure(Exit::Usage, "batch works on recordings, not on instruments");
    Batch batch{.What = readJob(options.JobFile), .JobText = {}, .HostWords = {}, .Items = {}, .Running = {}};
    const AskedCommand checked(batch.What, options.JobFile); // once for all files, not once for each
    batch.JobText = boost::json::serialize(jobJson(batch.What));
    if (!host.IniPath.empty()) batch.HostWords.push_back("--ini=" + host.IniPath);
    for (const std::string &file : options.Files)
        batch.Items.push_back(
            {.File = file, .Result = {}, .Problem = {}, .Run = {}, .Seconds = {}, .Rates = {}});
    const int signal = runAll(batch, options, folderOf(options));
    writeResult("", options.Json ? jsonText(batchJson(batch.Items, batch.What)) : batchCsv(batch.Items));
    sayWhatWasDone(batch);
    return signal != 0 ? exitCodeOfSignal(signal) : codeOf(batch);
}

constexpr const char *batchFooter =
    R"(Runs the job on each recording, in as many processes as there are cores, each with one thread. The JSON
of each, with its raw counts, is kept in the folder -o (by default the job's name with .results) as
NAME.KEY.json. The key is that of the recording (size, time of its last change, CRC-32 of its first and
last 64 KiB), of the job and of the version of this program. So what is done isn't done again, here or by
another batch in the same folder, and --again does it. A result is there whole or not at all. A recording
that can't be measured, or whose process crashes, doesn't stop the others. Ctrl-C ends all processes at
once; what is done is kept.

The table, CSV or with --json JSON, goes to standard output, a line per recording: file, state (done,
kept from before, failed, waiting), verdict (clean, lossy, invalid), recording (closed, not closed, cut
short), records, seconds, lost (records and words; nan: nobody knows), steps_back (events after a later
one), rates in counts per second of what was counted, result, problem.

Exit codes: 0 all clean; 4 one failed, or isn't clean and whole; 130 stopped by Ctrl-C.

Examples:
  tessel batch g2.job.json night/*.tgx
  tessel batch g2.job.json night/*.tgx -j 8 -o night.g2 && tessel merge night.g2/*.json --plot night.png)";

} // namespace

Command addBatch(CLI::App &program)
{
    const auto options = std::make_shared<BatchOptions>();
    CLI::App *command = program.add_subcommand("batch", "Run a job on many recordings, side by side");
    command->add_option("JOB", options->JobFile, "The job (.json)")->type_name("")->required();
    command->add_option("FILES", options->Files, "Recordings (.tgx)")->type_name("")->required();
    asNumber(command->add_option("-j,--jobs", options->NumProcesses, "Processes (default one for each core)"),
             1, 1024);
    asNamed(command->add_option("-o,--output", options->Folder, "Folder of the results")->type_name("DIR"));
    command->add_flag("--json", options->Json, "Write the table as one JSON object instead of CSV");
    command->add_flag("--again", options->Again, "Also what is done already");
    command->footer(batchFooter);
    return {command, [options](const HostOptions &host) { return runBatch(*options, host); }};
}

} // namespace Tessel::Cli
