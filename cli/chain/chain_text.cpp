// Reader and writer of a chain as a line of text.
#include "chain/chain_draft.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Tessel::Cli {

namespace {

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

Part leadingWord(const Part &part)
{
    Part word = part;
    word.End = word.Begin;
    while (word.End < part.End && isLetter(part.Whole[word.End])) ++word.End;
    return word;
}

// `at`: where what is missing could stand.
ChainStage finished(const Draft &draft, std::string_view whole, size_t at)
{
    if (const auto key = firstMissing(draft))
        fail(whole, at, fmt::format("{} is missing: {}", nameOf(*key), draft.StageForm->Text));
    return draft.Stage;
}

void readField(Draft &draft, const Part &field)
{
    const Form &form = *draft.StageForm;
    const Part name = leadingWord(field);
    if (field.empty()) fail(field, fmt::format("an empty field: {}", form.Text));
    if (const Word *word = findWord(form, field.text())) return setWord(draft, *word, field);
    if (const auto key = findKey(form.Values, name.text()))
        return setValue(draft, *key, trimmed({field.Whole, name.End, field.End}));
    if (!name.empty()) fail(field, fmt::format("unknown word \"{}\": {}", name.text(), form.Text));
    const auto next = firstMissing(draft);
    if (!next) fail(field, fmt::format("too many values: {}", form.Text));
    setValue(draft, *next, field);
}

ChainStage readStage(const Part &part)
{
    const Part name = leadingWord(part);
    if (name.empty()) fail(name, "a stage is expected, as in merge(1,2; keep)");
    Draft draft = startStage(name);
    const Part after = trimmed({part.Whole, name.End, part.End});
    if (after.empty() || part.Whole[after.Begin] != '(')
        fail(after, fmt::format("'(' is missing: {}", draft.StageForm->Text));
    const size_t close = part.Whole.find(')', after.Begin);
    if (close >= part.End) fail(part.Whole, part.End, "')' is missing");
    if (close + 1 != part.End) fail(trimmed({part.Whole, close + 1, part.End}), "'|' or the end is expected");
    std::optional<Part> fields = Part{part.Whole, after.Begin + 1, close};
    while (const auto field = nextPart(fields, ';')) readField(draft, *field);
    return finished(draft, part.Whole, close);
}

} // namespace

std::vector<ChainStage> parseChain(std::string_view text)
{
    std::vector<ChainStage> stages;
    std::optional<Part> lines = Part{text, 0, text.size()};
    while (const auto line = nextPart(lines, '\n')) {
        std::optional<Part> parts = *line;
        while (const auto part = nextPart(parts, '|')) {
            // A blank line, or a line that goes on below; between two bars of a line a stage is missing.
            const bool endsLine = part->End == line->End || part->Begin == line->Begin;
            if (part->empty() && endsLine && text.find('\n') != std::string_view::npos) continue;
            stages.push_back(readStage(*part));
        }
    }
    if (stages.empty()) fail(text, 0, "the chain has no stage");
    return stages;
}

std::string_view stageName(StageKind kind)
{
    return formOf(kind).Name;
}

std::string stageText(const ChainStage &stage)
{
    const Form &form = formOf(stage.Kind);
    std::vector<std::string> fields;
    for (const Key key : form.Values)
        if (key == Key::Channels)
            fields.push_back(fmt::format("{}", fmt::join(stage.Channels, ",")));
        else if (key == Key::Herald)
            fields.push_back(fmt::format("{}", stage.Herald));
        else if (stage.Kind == StageKind::Herald)
            fields.push_back(fmt::format("{} {}", nameOf(key), exactTime(timeOf(stage, key))));
        else
            fields.push_back(exactTime(timeOf(stage, key)));
    for (const Word &word : allWords())
        if (takes(form.Words, word.Sets) && wordValue(stage, word.Sets) == word.Value)
            fields.emplace_back(word.Text);
    return fmt::format("{}({})", form.Name, fmt::join(fields, "; "));
}

std::string stageForms()
{
    std::string text;
    for (const Form &form : allForms()) text += fmt::format("  {}\n", form.Text);
    return text;
}

} // namespace Tessel::Cli
