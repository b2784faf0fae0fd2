// The bytes of a tag, as both writers of tags append them to a header.
#pragma once

#include "datafiles/tag.h"

#include <cstring>
#include <string>
#include <string_view>

namespace Tessel {

template <class T>
void appendNumber(std::string &out, T number)
{
    char bytes[sizeof(T)];
    std::memcpy(bytes, &number, sizeof(T));
    out.append(bytes, sizeof(T));
}

// The first 40 bytes of a tag: name, cut or padded with zeros, always with a zero after it; index; type.
inline void appendIdent(std::string &out, std::string_view name, int32_t idx, TagType type)
{
    name = name.substr(0, identSize - 1);
    out.append(name).append(identSize - name.size(), '\0');
    appendNumber(out, idx);
    appendNumber(out, type);
}

// Size and bytes of a data block, zero-filled to that size.
inline void appendBlock(std::string &out, std::string_view bytes, uint64_t blockSize)
{
    appendNumber(out, blockSize);
    out.append(bytes).append(blockSize - bytes.size(), '\0');
}

template <class T>
std::string_view bytesOf(const T *values, uint64_t count)
{
    return {reinterpret_cast<const char *>(values), count * sizeof(T)};
}

} // namespace Tessel
