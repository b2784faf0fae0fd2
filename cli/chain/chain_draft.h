// The forms of a chain's stages, and a stage while it is read: what the reader of text and the one of JSON
// share. Pure functions; those that read throw ChainError.
#pragma once

#include "chain/chain_text.h"

#include <optional>
#include <span>

namespace Tessel::Cli {

enum class Key { Channels, Herald, Window, Delay, From, To, Mode, Time, Inverted, Keep };

std::string_view nameOf(Key key);

struct Form
{
    StageKind Kind;
    std::string_view Name;
    std::vector<Key> Values; // in the order of the text; each must be there
    std::vector<Key> Words;  // what the words of the text set
    std::string_view Text;
};

struct Word
{
    std::string_view Text;
    Key Sets;
    uint32_t Value;
};

// Part of a text; errors show the whole of it.
struct Part
{
    std::string_view Whole;
    size_t Begin, End;

    std::string_view text() const { return Whole.substr(Begin, End - Begin); }
    bool empty() const { return Begin == End; }
};

Part trimmed(Part part);

// Takes what stands before the separator, or all that is left, off the front of `rest`; nothing: there is no
// more.
std::optional<Part> nextPart(std::optional<Part> &rest, char separator);

// Throws a ChainError that shows the line of `whole` with the place, and a caret below it.
[[noreturn]] void fail(std::string_view whole, size_t at, std::string_view reason);
[[noreturn]] void fail(const Part &part, std::string_view reason);

// A stage that is being read.
struct Draft
{
    const Form *StageForm = nullptr;
    ChainStage Stage;
    unsigned Given = 0; // a bit per Key

    bool has(Key key) const { return Given >> static_cast<unsigned>(key) & 1; }
};

// The stage of this name, with nothing given yet.
Draft startStage(const Part &name);

void setValue(Draft &draft, Key key, const Part &part);
void setWord(Draft &draft, const Word &word, const Part &part);

std::span<const Form> allForms();
std::span<const Word> allWords();
const Form &formOf(StageKind kind);

bool takes(const std::vector<Key> &keys, Key key);
const Word *findWord(const Form &form, std::string_view text);
std::optional<Key> findKey(const std::vector<Key> &keys, std::string_view name);
std::optional<Key> firstMissing(const Draft &draft);

// What a stage holds under a key, for those who write it.
std::string exactTime(int64_t ps); // in the largest unit that keeps it whole
int64_t timeOf(const ChainStage &stage, Key key);
uint32_t wordValue(const ChainStage &stage, Key key);

} // namespace Tessel::Cli
