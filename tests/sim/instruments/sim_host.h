// A host of the library on a simulated instrument.
#pragma once

#include "loaded.h"
#include "support/host.h"
#include "tessel.h"

#include <boost/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

namespace SimTest {

class SimHost
{
public:
    // Describes the one instrument anew, and opens it in a mode. `rest`: its further keys; ' stands for ".
    bool open(const std::string &family, int32_t mode, std::string rest = "")
    {
        closeDevice(0);
        rest = "{'instruments':[{'family':'" + family + "','truth':'" + file("truth.json") + "'" +
               (rest.empty() ? "" : ",") + rest + "}]}" +
               std::string(++descriptions, ' '); // a new file each time
        std::replace(rest.begin(), rest.end(), '\'', '"');
        std::ofstream(file("sim.json")) << rest;
        char text[8192] = "";
        return getDevice(text) && (id = text, initDevice(mode, 0));
    }

    boost::json::object truth()
    {
        return boost::json::parse(TestSupport::contents(file("truth.json"))).as_object();
    }

    std::string file(const std::string &name) { return host.folder().file(name); }

    std::string id;

private:
    static int setPaths(const TestSupport::TempFolder &folder)
    {
        setenv("TESSEL_INSTRUMENT_PATH", TESSEL_SIM_FOLDER, 1);
        return setenv("TESSEL_SIM_INSTRUMENTS", folder.file("sim.json").c_str(), 1);
    }

    size_t descriptions = 0;

public:
    TestSupport::Host host;

private:
    int paths = setPaths(host.folder());
};

} // namespace SimTest
