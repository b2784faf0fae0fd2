#include "datafiles/file_names.h"

#include "log/text.h"
#include "settings/system_ini.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <thread>

using namespace Tessel;
using namespace TestSupport;

TEST(FileNames, FirstFreeName)
{
    const std::string most = "18446744073709551615";
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        // what is wanted; what is given, while each that was given is taken
        {"a.tgx", {"a.tgx", "a_1.tgx", "a_2.tgx"}},
        {"a", {"a.tgx", "a_1.tgx"}},
        {"", {"default.tgx", "default_1.tgx"}},
        {"a.b.dat", {"a.b.dat", "a_1.tgx"}},
        {"a_9.tgx", {"a_9.tgx", "a_10.tgx"}},
        {"7.tgx", {"7.tgx", "7_1.tgx"}},
        {"_5.tgx", {"_5.tgx", "_6.tgx"}},
        {"x_y_7.tgx", {"x_y_7.tgx", "x_y_8.tgx"}},
        {"x_y_z.tgx", {"x_y_z.tgx", "x_y_z_1.tgx"}},
        {"x_y_.tgx", {"x_y_.tgx", "x_y__1.tgx"}},
        {"x_007.tgx", {"x_007.tgx", "x_8.tgx"}},
        {"x_" + most + ".tgx", {"x_" + most + ".tgx", "x_" + most + "_1.tgx"}},
        {"x_1" + most + ".tgx", {"x_1" + most + ".tgx", "x_1" + most + "_1.tgx"}},
        {"\u00e9.tgx", {"\u00e9.tgx", "\u00e9_1.tgx"}},
        {std::string(251, 'm'), {std::string(251, 'm') + ".tgx"}}, // no room for the name of a side file
    };
    for (const auto &[wanted, given] : cases) {
        TempFolder folder;
        for (const std::string &name : given) {
            setTgxFilePath(folder.file(wanted));
            const NewFile made = checkFilePath();
            EXPECT_EQ(made.Path, normalPath(folder.file(name)));
            EXPECT_TRUE(made.File.isOpen());
        }
    }
}

TEST(FileNames, ANameWithoutStemEndsAtTheDefault)
{
    TempFolder folder;
    for (const char *name : {".tgx", "default.tgx", "default_1.tgx"}) std::ofstream(folder.file(name)) << "x";
    LogCapture log;
    for (const auto &[name, given] :
         {std::pair(".tgx", "default_2.tgx"), {".", "default_3.tgx"}, {"..", "default_4.tgx"}}) {
        setTgxFilePath(folder.file(name));
        EXPECT_EQ(checkFilePath().Path, normalPath(folder.file(given)));
    }
    EXPECT_EQ(log.count("ERR File: in checkFilePath .tgx"), 1u);
    EXPECT_EQ(log.count("ERR File: in checkFilePath"), 3u);
}

TEST(FileNames, FolderStaysUntilAnotherIsGiven)
{
    TempFolder folder;
    LogCapture log;
    setTgxFilePath(folder.file("sub//y.tgx"));
    setTgxFilePath("z");
    EXPECT_EQ(checkFilePath().Path, normalPath(folder.file("sub/z.tgx")));
    EXPECT_TRUE(std::filesystem::is_directory(folder.file("sub")));
    setTgxFilePath("C:/x/y.tgx");
    setTgxFilePath("/only_root.tgx");
    EXPECT_EQ(log.count("INF (API setTGXFilePath 'y.tgx' 'C:\\x')"), 1u);
    EXPECT_EQ(log.count("INF (API setTGXFilePath 'only_root.tgx' '\\')"), 1u);
}

TEST(FileNames, AFileThatCantBeMadeIsLoggedOnce)
{
    TempFolder folder;
    std::ofstream(folder.file("file")) << "x";
    const std::pair<std::string, std::string_view> cases[] = {
        {std::string(300, 'n') + ".tgx", "ERR exists \""},
        {"file/folder/a.tgx", "create_directories"},
    };
    for (const auto &[name, line] : cases) {
        LogCapture log;
        setTgxFilePath(folder.file(name));
        const NewFile made = checkFilePath();
        EXPECT_EQ(made.Path, normalPath(folder.file(name)));
        EXPECT_FALSE(made.File.isOpen());
        EXPECT_EQ(log.count(line), 1u);
        EXPECT_EQ(log.count("ERR "), 1u);
    }
}

// A link to nowhere isn't followed.
TEST(FileNames, EachCallerGetsItsOwn)
{
    TempFolder folder;
    std::filesystem::create_symlink(folder.file("nowhere"), folder.file("a_3.tgx"));
    setTgxFilePath(folder.file("a.tgx"));
    std::set<std::string> names[3];
    auto ask = [&names](size_t caller) {
        for (int i = 0; i < 50; ++i) names[caller].insert(checkFilePath().Path);
    };
    std::thread first(ask, 0), second(ask, 1);
    first.join();
    second.join();
    for (int caller : {0, 1}) names[2].merge(names[caller]);
    EXPECT_EQ(names[2].size(), 100u);
    EXPECT_FALSE(names[2].contains(normalPath(folder.file("a_3.tgx"))));
    EXPECT_FALSE(std::filesystem::exists(folder.file("nowhere")));
}
