#include "support/host.h"

#include "support/log_files.h"
#include "tessel.h"

#include <boost/json.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <numeric>
#include <unistd.h>

namespace TestSupport {

Host::Host(std::string_view ini) : settings(temp.file("system.ini"))
{
    std::ofstream(settings)
        << "[Paths]\nData=" << temp.path().string()
        << "\n[Log]\nFile=true\nConsole=false\n[Params]\nBufferSize=8\n[LogLevel]\nManipulators="
           "true\n"
        << ini;
    initAPI(settings.c_str());
}

Host::~Host()
{
    exitAPI();
}

std::string Host::open(const std::string &path)
{
    closeDevice(0); // a file that can't be opened leaves the device that was current
    std::array<char, 8192> buffer{};
    std::strncpy(buffer.data(), path.c_str(), buffer.size() - 1);
    return getFileDevice(buffer.data()) ? buffer.data() : "";
}

std::string Host::open(TgxFile file, std::vector<uint32_t> words)
{
    return open(file.records(std::move(words)).write(temp.file("a.tgx")));
}

std::vector<std::string> Host::log()
{
    std::string mark = "host sync " + std::to_string(++syncs);
    logExternal(mark.c_str());
    std::vector<std::string> lines;
    eventually([&] {
        lines = logLines(temp.path() / "Logs");
        return countLines(lines, mark) > 0;
    });
    return lines;
}

size_t Host::logged(std::string_view part)
{
    return countLines(log(), part);
}

bool Finished::wait(std::chrono::milliseconds deadline)
{
    return eventually([this] { return isSet(); }, deadline);
}

uint64_t Counts::rowSum(size_t row) const
{
    auto first = data.begin() + static_cast<ptrdiff_t>(row * columns);
    return std::accumulate(first, first + static_cast<ptrdiff_t>(columns), uint64_t{0});
}

uint64_t Counts::sum() const
{
    return std::accumulate(data.begin(), data.end(), uint64_t{0});
}

namespace {

boost::json::object description()
{
    std::array<char, 65535> buffer{};
    getMeasDescription(buffer.data());
    return boost::json::parse(buffer.data()).as_object();
}

} // namespace

double described(std::string_view key)
{
    return description().at(key).to_number<double>();
}

std::string describedText(std::string_view key)
{
    return boost::json::value_to<std::string>(description().at(key));
}

namespace {

size_t entriesOf(const char *folder)
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

} // namespace

size_t threadCount()
{
    return entriesOf("/proc/self/task");
}
size_t descriptorCount()
{
    return entriesOf("/proc/self/fd");
}

size_t residentKiB()
{
    size_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

} // namespace TestSupport
