// A chain as text and as JSON: it is refused with a ChainError, or reads again as it is written.
#include "chain/chain_text.h"
#include "input.h"

#include <boost/json.hpp>

using namespace Tessel::Cli;

namespace {

void readAgain(const std::vector<ChainStage> &stages)
{
    std::string text;
    boost::json::array list;
    for (const ChainStage &stage : stages) {
        text += stageText(stage) + '\n';
        list.push_back(stageJson(stage));
    }
    Fuzz::require(parseChain(text) == stages, "a chain reads as its text was written");
    const boost::json::value whole = boost::json::object{{"chain", std::move(list)}};
    Fuzz::require(parseChainJson(boost::json::serialize(whole)) == stages, "and as its JSON was written");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    for (auto *parse : {parseChain, parseChainJson}) {
        std::vector<ChainStage> stages;
        try {
            stages = parse(text);
        } catch (const ChainError &) {
            continue;
        }
        readAgain(stages);
    }
    return 0;
}
