#include "jobs/result_file.h"

#include "jobs/result_sum.h"
#include "program/exact_json.h"
#include "program/exit_codes.h"
#include "program/text_file.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <new>

namespace Tessel::Cli {

boost::json::object readResult(const std::string &path)
{
    const std::string text = fileText("RESULT", path, mostResult);
    try {
        boost::json::value value = parseExactJson(text);
        if (!value.is_object()) throw JsonError("not an object");
        measurementOf(value.get_object(), path); // is one
        // What a line of --json-lines has beside the result.
        for (const char *key : {"update", "final", "seconds", "rates"}) value.get_object().erase(key);
        return std::move(value.get_object());
    } catch (const JsonError &error) {
        throw Failure(Exit::Usage, fmt::format("{}: {}", visibleText(path), error.what()));
    }
}

void trusting(const std::string &name, const std::function<void()> &step)
{
    try {
        step();
    } catch (const Failure &) {
        throw;
    } catch (const std::bad_alloc &) {
        throw;
    } catch (const std::exception &wrong) {
        throw Failure(Exit::Failed, fmt::format("{}: not as the program writes it: {}", visibleText(name),
                                                visibleText(wrong.what())));
    }
}

} // namespace Tessel::Cli
