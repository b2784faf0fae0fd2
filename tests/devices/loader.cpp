// Where instrument libraries are looked for, and what makes one absent.
#include "devices/libs/loader.h"

#include "support/instrument.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

using namespace Tessel;
using namespace TestSupport;

namespace {

struct Lacking : InstrumentLibrary
{
    Lacking() : InstrumentLibrary("ZPLib64.so", "ZP_") {}
    Operation<int32_t(int32_t idx)> StopMeas{*this, "StopMeas"};
    Operation<int32_t(int32_t idx)> Levitate{*this, "Levitate"};
};

struct Other : InstrumentLibrary
{
    explicit Other(const char *fileName) : InstrumentLibrary(fileName, "ZP_") {}
    Operation<int32_t(int32_t idx)> StopMeas{*this, "StopMeas"};
};

class Folders // of the environment, for the time of a test
{
public:
    explicit Folders(const std::string &list) { setenv(name, list.c_str(), 1); }
    ~Folders() { setenv(name, before.c_str(), 1); }

private:
    static constexpr const char *name = "TESSEL_INSTRUMENT_PATH";
    const std::string before = getenv(name);
};

} // namespace

TEST(Loader, LooksInAbsoluteFoldersInTheirOrder)
{
    const Fake fake("ZPLib64.so");
    const std::string fakes = getenv("TESSEL_INSTRUMENT_PATH");
    const size_t slash = fakes.rfind('/');
    const std::string relative = fakes.substr(slash + 1);
    std::filesystem::current_path(fakes.substr(0, slash)); // there the relative folder exists
    const struct
    {
        std::string folders;
        const char *file;
        bool isThere;
    } rows[] = {
        {fakes, "ZPLib64.so", true},     {"/nonexistent::" + relative + ":" + fakes + ":", "ZPLib64.so", true},
        {relative, "ZPLib64.so", false}, {"", "libz.so.1", false}, // not where the system's loader looks
        {fakes, "NoSuchLib.so", false},
    };
    for (const auto &[folders, file, isThere] : rows) {
        SCOPED_TRACE(folders + " " + file);
        const Folders set(folders);
        LogCapture log;
        Other library(file);
        EXPECT_EQ(loadLibrary(library), isThere);
        EXPECT_EQ(library.StopMeas(0) == notLoaded, !isThere);
        EXPECT_EQ(log.count(std::string("INF Device: No library ") + file), isThere ? 0u : 1u);
        EXPECT_EQ(log.count("WRN ") + log.count("ERR "), 0u);
    }
}

TEST(Loader, ALibraryThatLacksAnOperationIsAbsent)
{
    const Fake fake("ZPLib64.so");
    LogCapture log;
    Lacking library;
    EXPECT_FALSE(loadLibrary(library));
    EXPECT_EQ(library.StopMeas(0), notLoaded);
    EXPECT_EQ(log.count("INF Device: No library ZPLib64.so: it lacks ZP_Levitate"), 1u);
}
