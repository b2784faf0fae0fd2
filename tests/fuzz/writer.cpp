// What is written reads back: any rows of the tag dictionary, and a recording with tags of the caller's own.
#include "datafiles/custom_tags.h"
#include "datafiles/file_device.h"
#include "datafiles/recording.h"
#include "datafiles/tag_reader.h"
#include "input.h"
#include "quiet_log.h"
#include "support/temp_folder.h"

#include <random>

using namespace Tessel;
using Fuzz::require;

// In place of the library's: a file's GUID asks for 624 words of the processor's randomness, which take 8 ms.
std::random_device::result_type std::random_device::_M_getval()
{
    static std::minstd_rand plain;
    return static_cast<result_type>(plain());
}

namespace {

std::string_view upToZero(std::string_view text)
{
    return text.substr(0, text.find('\0'));
}

void writeDictionaryTags(Fuzz::Input input)
{
    std::string image;
    DictionaryState state;
    for (int left = 30; left > 0 && !input.Left.empty(); --left) {
        const uint32_t row = input.take<uint16_t>() % tagRowCount;
        const auto idx = input.chance() ? static_cast<int32_t>(input.below(5)) - 1 : input.take<int32_t>();
        const std::string_view text = input.text();
        const std::u16string wide(text.begin(), text.end());
        const TagContent content{input.take<double>(), text, wide};
        const TagRow &rule = TagDictionary[row];
        const auto extension = rule.ExtensionKind != ExtensionKind::None ? std::optional(text) : std::nullopt;
        const size_t before = image.size();
        const int32_t result = writeDictionaryTag(image, state, row, idx, content, extension);
        TagRecord tag = readTag(image, {}, before);
        if (tag.Name == "Fast_Load_End" && tag.Next < image.size()) tag = readTag(image, {}, tag.Next);
        if (result != TagResult::Written && result != TagResult::WrittenRetired) continue;
        require(tag.Idx == idx && tag.TagType == rule.Type && tag.Next == image.size(), "a tag reads back");
        require(tag.TagType != TagType::Float8 || tag.TagValue == std::bit_cast<uint64_t>(content.Value),
                "with its number");
        require(tag.TagType != TagType::AnsiString || text.empty() || // then a GUID is made up
                    upToZero(blockOf(tag, image)) == upToZero(text),
                "with its text");
        require(tag.TagType != TagType::BinaryBlob || blockOf(tag, image).starts_with(text), "with its bytes");
    }
}

RecordingParams paramsOf(Fuzz::Input &input)
{
    RecordingParams params;
    params.MeasMode = input.oneOf({2, 3, 3, 0});
    params.Family = static_cast<int32_t>(input.below(6));
    params.NumChans = static_cast<int32_t>(input.oneOf<size_t>({1, 2, 64, input.below(70)}));
    params.BaseResolution = input.oneOf({1.0, 5.0, 1e12, input.take<double>()});
    params.Resolution = input.oneOf({1.0, 80.0, 1e12, input.take<double>()});
    params.SyncRate = input.oneOf({80e6, 0.25, 2147483647.0, input.take<double>()});
    params.AcqTime = input.oneOf({0, 1500, input.take<int32_t>()});
    if (input.chance()) params.InputRates.assign(static_cast<size_t>(params.NumChans), input.take<float>());
    params.Serial = input.text();
    params.Comment = input.text();
    return params;
}

void addTag(Fuzz::Input &input, CustomTags &tags)
{
    const size_t kind = input.below(8);
    const std::string_view name = input.text(), text = input.text();
    const uint32_t idx = input.oneOf({0xFFFFFFFFu, 0u, 7u, 0x80000000u});
    const double value = input.take<double>();
    const std::vector<double> values(1 + input.below(9), value);
    switch (kind) {
    case 0: return addIntTag(tags, name, input.take<int64_t>(), idx);
    case 1: return addDblTag(tags, name, values[0], idx);
    case 2: return addBoolTag(tags, name, input.chance(), idx);
    case 3: return addEmptyTag(tags, name, idx);
    case 4: return addStringTag(tags, name, text, idx);
    case 5: return addWStringTag(tags, name, std::u16string(text.begin(), text.end()), idx);
    case 6: return addFloatArrayTag(tags, name, values, idx);
    case 7: return addBBTag(tags, name, reinterpret_cast<const uint8_t *>(values.data()), values.size(), idx);
    }
}

// The caller's own stand last in the header, before its end.
void checkOwnTags(const CustomTags &written, std::string_view header)
{
    std::vector<TagRecord> tags;
    for (uint64_t at = preambleSize; at < header.size(); at = tags.back().Next) {
        tags.push_back(readTag(header, {}, at));
        require(tags.back().Next > at, "a tag is whole");
    }
    require(tags.size() > written.size() && tags.back().Name == headerEndName, "a header has its end");
    for (size_t i = 0; i < written.size(); ++i) {
        const CustomTag &own = written[i];
        const TagRecord &tag = tags[tags.size() - 1 - written.size() + i];
        require(tag.Name == upToZero(std::string_view(own.Name).substr(0, identSize - 1)), "a name reads back");
        require(static_cast<uint32_t>(tag.Idx) == own.Idx, "so does an index");
        require(static_cast<uint32_t>(tag.TagType) == own.Type, "and a type");
        require(hasBlock(tag.TagType) || tag.TagValue == own.Value, "and a value");
        require(upToZero(blockOf(tag, header)) == upToZero(own.AnsiValue) || own.AnsiValue.empty(),
                "and a text");
    }
}

void writeRecording(Fuzz::Input input)
{
    static const TestSupport::TempFolder folder;
    const std::string path = folder.file("r.tgx");
    const RecordingParams params = paramsOf(input);
    CustomTags tags;
    for (size_t left = input.below(6); left > 0; --left) addTag(input, tags);
    const auto recording = Recording::create(path, params, tags);
    if (!recording) return;
    const size_t headerSize = TestSupport::contents(path).size();
    std::vector<uint32_t> words(input.Left.size() / sizeof(uint32_t));
    for (uint32_t &word : words) word = input.take<uint32_t>();
    require(recording->write(words) && recording->close(), "a recording that was begun is completed");

    const std::string image = TestSupport::contents(path);
    checkOwnTags(tags, std::string_view(image).substr(0, headerSize));
    Device device;
    MeasContext context;
    require(readTgxFile(path, device, context) && device.DataStart == headerSize, "a recording opens");
    const std::string_view bytes(reinterpret_cast<const char *>(words.data()), words.size() * sizeof(uint32_t));
    require(std::string_view(image).substr(headerSize) == bytes, "records read back");
    if (!tags.empty()) return; // the reader may well find another value in one of them
    require(static_cast<int32_t>(device.MeasMode) == params.MeasMode, "so does the mode");
    require(device.NumChans == params.NumChans, "and the channels");
    require(device.BaseResolution == params.BaseResolution, "and the base resolution");
    require(params.MeasMode == 2 || device.Resolution == params.Resolution, "and the resolution");
    require(context.Description.NumRecs == words.size(), "and the number of records");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::quietLog();
    Fuzz::Input input{{reinterpret_cast<const char *>(data), size}};
    input.chance() ? writeDictionaryTags(input) : writeRecording(input);
    return 0;
}
