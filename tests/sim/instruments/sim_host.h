// A host of the library on a simulated instrument.
#pragma once

#include "loaded.h"
#include "support/host.h"
#include "tessel.h"

#include <boost/json.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string>

namespace SimTest {

class SimHost
{
public:
    // Describes the one instrument anew, and opens it in a mode. `rest`: its further keys; ' stands for ".
    bool open(const std::string &family, int32_t mode, const std::string &rest = "")
    {
        closeDevice(1);
        std::string json = "{'instruments':[{'family':'" + family + "','truth':'" + file("truth.json") + "'" +
                           (rest.empty() ? "" : ",") + rest + "}]}" +
                           std::string(++descriptions, ' '); // another size
        std::replace(json.begin(), json.end(), '\'', '"');
        std::ofstream(file("sim.json")) << json;
        return pick("SIM-" + family + "-0") && initDevice(mode, 0);
    }

    bool pick(const std::string &id)
    {
        std::array<char, 8192> text{};
        std::copy(id.begin(), id.end(), text.begin());
        return getDevice(text.data());
    }

    boost::json::object truth()
    {
        return boost::json::parse(TestSupport::contents(file("truth.json"))).as_object();
    }

    std::string file(const std::string &name) { return folder.file(name); }

private:
    static int setPaths(const TestSupport::TempFolder &folder)
    {
        setenv("TESSEL_INSTRUMENT_PATH", TESSEL_SIM_FOLDER, 1);
        return setenv("TESSEL_SIM_INSTRUMENTS", folder.file("sim.json").c_str(), 1);
    }

    const TestSupport::TempFolder folder;
    const int paths = setPaths(folder); // before the library has threads
    size_t descriptions = 0;

public:
    TestSupport::Host host;
};

} // namespace SimTest
