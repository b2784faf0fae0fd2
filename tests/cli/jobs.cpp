// Job files: what they do is what the command does, and what is wrong with one is said.
#include "run_program.h"

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

using namespace TestSupport;

namespace {

std::string written(const TempFolder &folder, const std::string &name, const std::string &text)
{
    std::ofstream(folder.file(name)) << text;
    return name;
}

// A job with these members after the first.
std::string job(const TempFolder &folder, const std::string &members)
{
    return written(folder, "job.json", R"({"tessel": 1, )" + members + "}");
}

} // namespace

TEST(Jobs, HaveTheSchemaThatIsPublished)
{
    const TempFolder folder;
    const std::string schema = output(folder, "run --schema");
    EXPECT_FALSE(contains(schema, "null")) << "no keyword of a schema takes it";
    EXPECT_EQ(schema, contents(TESSEL_DOCS "/job.schema.json"))
        << "write it with: tessel run --schema > docs/job.schema.json";
}

TEST(Jobs, GiveWhatTheCommandGivesToTheByte)
{
    const TempFolder folder;
    simulateT2(folder, "--rate 100kcps --duration 0.05s");
    const struct
    {
        std::string Members, Line;
    } cases[] = {
        {R"-("measurement": "histogram", "parameters": {"ref-chan": 1, "bin-width": "1ns", "bins": 50},
            "chain": "delay(2; 5ns; keep)", "source": {"sim": true, "for": "1s", "from": "10ms"})-",
         "histogram light.tgx --ref-chan 1 --bin-width 1ns --bins 50 --chain delay(2;5ns;keep) --from 10ms"},
        {R"("measurement": "g2", "parameters": {"chan1": 2, "chan2": 1, "window": 100000, "raw-counts": true},
            "chain": [{"stage": "delay", "channels": [1], "delay": "1ns", "keep": true}])",
         "g2 light.tgx --chan1 2 --chan2 1 --window 100000 --raw-counts --chain delay(1;1ns;keep)"},
        {R"("measurement": "fcs", "parameters": {"max-lag": "1ms", "norm": "mean", "steps": 9, "fast": false})",
         "fcs light.tgx --max-lag 1ms --norm mean --steps 9"},
        {R"("measurement": "trace", "parameters": {"history": "50ms", "bins": 7})",
         "trace light.tgx --history 50ms --bins 7"},
        {R"("measurement": "hist2d", "parameters": {"start-chan": 1, "slope": -0.12, "tot": true})",
         "hist2d light.tgx --start-chan 1 --slope -0.12 --tot"},
        {R"("measurement": "fold", "parameters": {"search": "90,110,1", "bins": 5})",
         "fold light.tgx --search 90,110,1 --bins 5"},
    };
    for (const auto &row : cases) {
        const std::string name = job(folder, row.Members);
        for (const std::string form : {"", " --json"})
            EXPECT_EQ(output(folder, "run " + name + " light.tgx" + form), output(folder, row.Line + form));
        // The job of a result is the same again.
        const auto result = json(folder, "run " + name + " light.tgx");
        written(folder, "again.json", boost::json::serialize(result.at("job")));
        EXPECT_EQ(json(folder, "run again.json light.tgx"), result);
    }
    job(folder, R"("measurement": "g2", "source": {"sim": true, "mode": "t2", "for": "1h"})");
    EXPECT_EQ(json(folder, "run job.json --for 20ms").at("job").at("source"),
              boost::json::parse(R"({"sim": true, "for": "20ms", "mode": "t2"})"));
}

TEST(Jobs, ThatAreWrongSayWhere)
{
    const TempFolder folder;
    simulateT2(folder, "--duration 1ms");
    const std::string g2 = R"({"tessel": 1, "measurement": "g2", )";
    const struct
    {
        std::string Text, Message;
    } cases[] = {
        {"", "line 1, column 1: not JSON"},
        {"{\n\"tessel\": x", "line 2, column 11: not JSON"},
        {"[1]", "an object is expected"},
        {R"({"tessel": 2, "measurement": "g2"})", "the format is 2; this program reads 1"},
        {R"({"measurement": "g2"})", "the key \"tessel\" is missing"},
        {R"({"tessel": 1, "measurement": "g3"})", "g3 is none of histogram, g2"},
        {R"({"tessel": 1, "measurement": ["g2"]})", "[\"g2\"] is none of"},
        {g2 + R"("parameter": {}})", "unknown key parameter; did you mean parameters?"},
        {g2 + R"("parameters": []})", "parameters: an object is expected"},
        {g2 + R"("parameters": {"windw": 1}})",
         "parameters.windw: tessel g2 has no such option; did you mean win"},
        {g2 + R"("parameters": {"output": "x"}})", "parameters.output: tessel g2 has no such option"},
        {g2 + R"("parameters": {"window": true}})", "parameters.window: a text or a number is expected"},
        {g2 + R"("parameters": {"window": ""}})", "parameters.window: the text is empty"},
        {g2 + R"("parameters": {"window": "\u0000"}})", "has a zero in it"},
        {g2 + R"("parameters": {"window": "5nx"}})", "--window \"5nx\": unknown unit"},
        {g2 + R"("parameters": {"window": 1e400}})", "column 66: a number that is too large"},
        {g2 + R"("parameters": {"window": 1, "window": 2}})", "the key \"window\" is there twice"},
        {g2 + R"("parameters": {"chan1": 99999999999999999999}})", "--chan1: Value 1e+20 not in range"},
        {g2 + R"("parameters": {"raw-counts": 1}})", "parameters.raw-counts: true or false"},
        {g2 + R"("source": {"frm": "1s"}})", "unknown key source.frm; did you mean from?"},
        {g2 + R"("source": {"set": "a=b"}})", "source.set: a list of texts"},
        {g2 + R"-("chain": "merg(1,2)"})-", "chain: unknown stage \"merg\""},
        {g2 + R"("chain": [{"stage": "merge", "channels": ["x"]}]})", "chain[0].channels"},
        {g2 + R"("chain": {}} x)", "text after the end"},
        {std::string(100000, '['), "not JSON: too deep"},
    };
    for (const auto &row : cases) {
        answered(folder, "run " + written(folder, "job.json", row.Text) + " light.tgx", 2, row.Message);
    }
}
