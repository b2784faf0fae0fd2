#include "datafiles/losses_file.h"

#include "datafiles/tag_reader.h"
#include "log/file_handle.h"
#include "log/log.h"
#include "log/text.h"

#include <boost/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <new>

namespace Tessel {

namespace {

namespace json = boost::json;

constexpr std::string_view schema = "tessel.losses/1";
constexpr uint64_t sizeLimit = 65536; // bytes; what is written has 2000 at most
constexpr std::string_view verdicts[] = {"clean", "lossy", "invalid"};

struct PlaceWords
{
    std::string_view Name, Unit;
    bool IsCounted = true;
};
constexpr std::array<PlaceWords, lossPlaces> placeWords = {{{"fifo", "counts", false},
                                                            {"dropped", "counts", false},
                                                            {"readBuffer", "words"},
                                                            {"invalidWords", "words"},
                                                            {"store", "events"},
                                                            {"stage", "events"},
                                                            {"rawBlock", "words"},
                                                            {"unfoldBlock", "events"},
                                                            {"import", "events"},
                                                            {"file", "words"}}};

json::object lossJson(const PlaceWords &words, const Loss &loss)
{
    return {{"unit", words.Unit},
            {"occasions", loss.Occasions},
            {"lost", words.IsCounted ? json::value(loss.Lost) : json::value(nullptr)},
            {"first", static_cast<double>(loss.FirstNs) / 1e9},
            {"last", static_cast<double>(loss.LastNs) / 1e9}};
}

} // namespace

std::string_view verdictText(Verdict verdict)
{
    return verdicts[static_cast<size_t>(verdict)];
}

json::object lossesJson(const LossReport &report)
{
    json::object losses;
    for (size_t i = 0; i < lossPlaces; ++i)
        if (report.Places[i].Occasions > 0)
            losses[placeWords[i].Name] = lossJson(placeWords[i], report.Places[i]);
    json::object text = {{"verdict", verdictText(report.Verdict)}, {"losses", std::move(losses)}};
    if (!report.Problem.empty()) text["problem"] = report.Problem;
    return text;
}

std::string lossesPath(std::string_view recording)
{
    return nativePath(recording).replace_extension(".losses.json").native();
}

namespace {

std::string sideText(std::string_view recording, const LossReport &report)
{
    const auto head = readHead(recording, headerImageLimit);
    json::object text = {{"schema", schema}, {"recording", head ? guidOf(head->Image) : std::string()}};
    for (auto &member : lossesJson(report)) text.insert(member);
    return json::serialize(text) + "\n";
}

// Some file systems can't rename without replacing; there a look has to do. False, with errno.
bool renameToNew(const std::string &from, const std::string &to)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL || std::filesystem::exists(to)) return false;
    return std::rename(from.c_str(), to.c_str()) == 0;
}

} // namespace

bool writeLosses(std::string_view recording, const LossReport &report, bool isTold) noexcept
try {
    if (report.Verdict == Verdict::Clean) return true;
    const std::string path = lossesPath(recording), work = path + ".part";
    const std::string text = sideText(recording, report);
    FileStream file = openStream(work, "wxe");
    const bool isNew = file != nullptr;
    if (isNew && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
        close(std::move(file)) && renameToNew(work, path))
        return true;
    if (!isTold) logLastError(fmt::format("File: losses of a recording {}:", path), errno);
    if (isNew) std::remove(work.c_str());
    return false;
} catch (const std::exception &failure) {
    logErr(LogCategory::General, "File: losses of a recording: {}", failure.what());
    return false;
}

namespace {

struct NoLosses // thrown: why the file says nothing
{
    const char *Why;
};

Loss lossIn(const json::object &from)
{
    auto ns = [&from](std::string_view key) {
        return static_cast<int64_t>(std::clamp(from.at(key).to_number<double>(), 0.0, 1e9) * 1e9);
    };
    const json::value &lost = from.at("lost");
    return {.Occasions = from.at("occasions").to_number<uint64_t>(),
            .Lost = lost.is_null() ? 0 : lost.to_number<uint64_t>(),
            .FirstNs = ns("first"),
            .LastNs = ns("last")};
}

// Throws what is wrong with it. A place of a later version is passed over; the verdict counts it.
LossReport reportIn(const json::object &from)
{
    const auto verdict = std::ranges::find(verdicts, std::string_view(from.at("verdict").as_string()));
    if (verdict == std::end(verdicts)) throw NoLosses{"no such verdict"};
    LossReport report{.Verdict = static_cast<Verdict>(verdict - std::begin(verdicts))};
    const json::object &losses = from.at("losses").as_object();
    for (size_t i = 0; i < lossPlaces; ++i)
        if (const json::value *loss = losses.if_contains(placeWords[i].Name))
            report.Places[i] = lossIn(loss->as_object());
    return report;
}

LossReport parseLosses(std::string_view text, std::string_view guid)
{
    const json::value parsed = json::parse(text);
    const json::object &from = parsed.as_object();
    if (from.at("schema").as_string() != schema) throw NoLosses{"another schema"};
    if (from.at("recording").as_string() != guid) throw NoLosses{"of another recording"};
    return reportIn(from);
}

LossReport sayNothing(const std::string &path, std::string_view why)
{
    logWrn(LogCategory::General, "File: {} says nothing of the recording's losses: {}", path, why);
    LossReport nothing;
    nothing.Problem = why;
    return nothing;
}

} // namespace

LossReport readLosses(std::string_view recording, std::string_view guid)
{
    const std::string path = lossesPath(recording);
    std::error_code problem;
    if (!std::filesystem::exists(path, problem))
        return problem ? sayNothing(path, "can't be looked for") : LossReport();
    try {
        const auto file = readHead(path, sizeLimit);
        if (!file || file->IsUnread) throw NoLosses{"can't be read"};
        if (file->FileSize > sizeLimit) throw NoLosses{"too large"};
        return parseLosses(file->Image, guid);
    } catch (const NoLosses &none) {
        return sayNothing(path, none.Why);
    } catch (const std::bad_alloc &) {
        throw;
    } catch (const std::exception &) {
        return sayNothing(path, "it isn't what it should be");
    }
}

} // namespace Tessel
