// A library of simulated instruments, loaded as a host loads it, on a description of the test's own.
#pragma once

#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <string>
#include <vector>

namespace SimTest {

// What a test that can take long is told by the environment.
inline double wished(const char *variable, double otherwise)
{
    const char *text = std::getenv(variable);
    return text ? std::atof(text) : otherwise;
}

struct FamilyLibrary
{
    std::string Prefix, File;
    bool IsAskedForRoom = false; // its ReadFiFo takes a capacity

    friend void PrintTo(const FamilyLibrary &library, std::ostream *to) { *to << library.Prefix; }
};
inline const FamilyLibrary families[] = {{"ZP", "ZPLib64.so"},
                                         {"CD", "CDLib64.so", true},
                                         {"SV40", "sv40lib64.so", true},
                                         {"LM70", "LM70Lib.so"},
                                         {"CD90", "CD90Lib.so"}};

class Loaded
{
public:
    // `json`: of the one instrument, in braces, without its family; ' stands for ".
    explicit Loaded(const FamilyLibrary &library, const std::string &json = "{}") : family(library)
    {
        handle = dlopen((std::string(TESSEL_SIM_FOLDER) + "/" + library.File).c_str(), RTLD_NOW | RTLD_LOCAL);
        EXPECT_TRUE(handle) << dlerror();
        const std::string rest = json == "{}" ? "}" : "," + json.substr(1);
        describe("{'instruments':[{'family':'" + library.Prefix + "'" + rest + "]}");
    }
    ~Loaded() { (*this)("CloseDevice", 0); }
    Loaded(const Loaded &) = delete;
    Loaded &operator=(const Loaded &) = delete;

    // The number of blanks is new each time, so that the library reads the file again and counts from the
    // start.
    void describe(std::string json)
    {
        static int number = 0;
        for (char &character : json)
            if (character == '\'') character = '"';
        std::ofstream(folder.file("sim.json")) << json << std::string(static_cast<size_t>(++number), ' ');
        setenv("TESSEL_SIM_INSTRUMENTS", folder.file("sim.json").c_str(), 1);
    }

    void *symbol(const std::string &operation) const
    {
        return dlsym(handle, (family.Prefix + "_" + operation).c_str());
    }

    template <class... Arguments>
    int32_t operator()(const char *operation, Arguments... arguments) const
    {
        const auto call = reinterpret_cast<int32_t (*)(Arguments...)>(symbol(operation));
        if (!call) ADD_FAILURE() << family.Prefix << " has no " << operation;
        return call ? call(arguments...) : -1000;
    }

    int32_t open(int32_t mode) const
    {
        char serial[64];
        int32_t code = (*this)("OpenDevice", 0, serial);
        if (code < 0) return code;
        return family.Prefix == "SV40" ? (*this)("Initialize", 0, mode) : (*this)("Initialize", 0, mode, 0);
    }

    int32_t read(std::vector<uint32_t> &words, int32_t room = 131072) const
    {
        words.resize(1048576);
        int32_t count = 0;
        const int32_t code = family.IsAskedForRoom ? (*this)("ReadFiFo", 0, words.data(), room, &count)
                                                   : (*this)("ReadFiFo", 0, words.data(), &count);
        words.resize(code < 0 ? 0 : static_cast<size_t>(count));
        return code;
    }

    // The words of a measurement from start to end.
    std::vector<uint32_t> measure(int32_t ms, int32_t room = 131072) const
    {
        std::vector<uint32_t> all, some;
        EXPECT_EQ((*this)("StartMeas", 0, ms), 0);
        int32_t isOver = 0;
        do {
            EXPECT_EQ((*this)("CTCStatus", 0, &isOver), 0);
            EXPECT_EQ(read(some, room), 0);
            all.insert(all.end(), some.begin(), some.end());
        } while (!isOver || !some.empty());
        EXPECT_EQ((*this)("StopMeas", 0), 0);
        return all;
    }

    std::string textOf(int32_t code) const
    {
        char text[64] = "";
        (*this)("GetErrorString", text, code);
        return text;
    }

    TestSupport::TempFolder folder;
    const FamilyLibrary &family;

private:
    void *handle = nullptr;
};

struct Word // decoded
{
    uint64_t Time = 0;               // T2: ticks; T3: sync number
    uint32_t Channel = 0, Dtime = 0; // inputs from 0; sync 64; markers 128 + bits
    bool operator==(const Word &) const = default;
};

// With plain arithmetic; overflow words count, and are left out.
inline std::vector<Word> decoded(const std::vector<uint32_t> &words, int mode)
{
    const uint64_t wrap = mode == 2 ? 33554432 : 1024;
    std::vector<Word> all;
    uint64_t base = 0;
    for (const uint32_t word : words) {
        const uint32_t code = word >> 25;
        if (code == 127) {
            base += word % wrap * wrap;
            continue;
        }
        const uint32_t dtime = mode == 3 ? word >> 10 & 0x7fff : 0;
        all.push_back({base + word % wrap, code <= 64 ? code : 128 + (code & 63), dtime});
    }
    return all;
}

} // namespace SimTest
