// The parser's own numbers may be off in their last digit, so they are read here.
#include "program/exact_json.h"

#include "program/visible_text.h"

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/value_stack.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <string>
#include <vector>

namespace Tessel::Cli {

namespace {

namespace json = boost::json;
using boost::system::error_code;

// Called by the parser piece by piece, in the order of the text. A function that returns false ends it.
struct ExactHandler
{
    static constexpr size_t max_object_size = -1, max_array_size = -1, max_key_size = -1, max_string_size = -1;

    json::value_stack Values;
    std::vector<std::set<std::string, std::less<>>> Keys; // of the objects that are open
    std::string Key, Number;
    std::string Problem;           // in place of the parser's
    std::string OuterKey, LastKey; // of the outermost object: the present one; that to stop after, if any
    int NumLists = 0;              // that are open
    bool Stopped = false;          // after LastKey; the values are whole

    bool stop(std::string problem, error_code &error)
    {
        Problem = std::move(problem);
        error = json::error::exception;
        return false;
    }

    bool on_document_begin(error_code &) { return true; }
    bool on_document_end(error_code &) { return true; }
    bool on_object_begin(error_code &)
    {
        Keys.emplace_back();
        return true;
    }
    bool on_object_end(size_t size, error_code &)
    {
        Keys.pop_back();
        Values.push_object(size);
        return true;
    }
    bool on_array_begin(error_code &)
    {
        ++NumLists;
        return true;
    }
    bool on_array_end(size_t size, error_code &error)
    {
        Values.push_array(size);
        if (--NumLists > 0 || Keys.size() != 1 || LastKey.empty() || OuterKey != LastKey) return true;
        Values.push_object(Keys.back().size());
        Stopped = true;
        return stop("", error);
    }
    bool on_key_part(json::string_view part, size_t, error_code &)
    {
        Key.append(part);
        Values.push_chars(part);
        return true;
    }
    bool on_key(json::string_view last, size_t, error_code &error)
    {
        Key.append(last);
        Values.push_key(last);
        if (!Keys.back().insert(Key).second)
            return stop(fmt::format("the key \"{}\" is there twice", visibleText(Key)), error);
        if (Keys.size() == 1 && NumLists == 0) OuterKey = Key;
        Key.clear();
        return true;
    }
    bool on_string_part(json::string_view part, size_t, error_code &)
    {
        Values.push_chars(part);
        return true;
    }
    bool on_string(json::string_view last, size_t, error_code &)
    {
        Values.push_string(last);
        return true;
    }
    bool on_number_part(json::string_view part, error_code &)
    {
        Number.append(part);
        return true;
    }
    bool on_int64(int64_t number, json::string_view, error_code &)
    {
        Number.clear();
        Values.push_int64(number);
        return true;
    }
    bool on_uint64(uint64_t number, json::string_view, error_code &)
    {
        Number.clear();
        Values.push_uint64(number);
        return true;
    }
    bool on_double(double, json::string_view last, error_code &error)
    {
        Number.append(last);
        double number = 0;
        const auto read = std::from_chars(Number.data(), Number.data() + Number.size(), number);
        if (read.ec != std::errc()) return stop("a number that is too large or too small", error);
        Number.clear();
        Values.push_double(number);
        return true;
    }
    bool on_bool(bool is, error_code &)
    {
        Values.push_bool(is);
        return true;
    }
    bool on_null(error_code &)
    {
        Values.push_null();
        return true;
    }
    bool on_comment_part(json::string_view, error_code &) { return true; }
    bool on_comment(json::string_view, error_code &) { return true; }
};

[[noreturn]] void failAt(std::string_view text, size_t at, std::string_view why)
{
    const std::string_view before = text.substr(0, std::min(at, text.size()));
    const size_t lineStart = before.rfind('\n') + 1; // npos + 1 is 0
    throw JsonError(fmt::format("line {}, column {}: {}", 1 + std::ranges::count(before, '\n'),
                                1 + before.size() - lineStart, why));
}

} // namespace

json::value parseExactJson(std::string_view text)
{
    return parseJsonUpTo(text, "");
}

json::value parseJsonUpTo(std::string_view text, std::string_view lastKey)
{
    json::basic_parser<ExactHandler> parser(json::parse_options{});
    ExactHandler &handler = parser.handler();
    handler.Values.reset();
    handler.LastKey = lastKey;
    error_code error;
    const size_t read = parser.write_some(false, text.data(), text.size(), error);
    if (handler.Stopped) return handler.Values.release();
    if (error) failAt(text, read, handler.Problem.empty() ? "not JSON: " + error.message() : handler.Problem);
    const size_t rest = text.find_first_not_of(" \t\r\n", read);
    if (rest != text.npos) failAt(text, rest, "text after the end of the JSON");
    return handler.Values.release();
}

} // namespace Tessel::Cli
