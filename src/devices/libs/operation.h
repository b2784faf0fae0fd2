// An operation of an instrument library: its name, its argument list and, once the library is loaded, its
// address.
#pragma once

#include <cstdint>

namespace Tessel {

struct InstrumentLibrary;

struct AnyOperation
{
    const InstrumentLibrary *Library = nullptr;
    const char *Name = nullptr;         // without the family's prefix
    const AnyOperation *Next = nullptr; // of the same library
    // Set once, before there is any device of the family; null until then.
    mutable void *Address = nullptr;
};

// A family's library. Its operations enter themselves in the list.
struct InstrumentLibrary
{
    const char *FileName = nullptr;
    const char *Prefix = nullptr; // of its symbols, and the first word of its log lines
    const AnyOperation *First = nullptr;

    constexpr InstrumentLibrary(const char *fileName, const char *prefix) : FileName(fileName), Prefix(prefix)
    {
    }
    InstrumentLibrary(const InstrumentLibrary &) = delete;
    InstrumentLibrary &operator=(const InstrumentLibrary &) = delete;
};

// What a call gives whose library isn't loaded. No library has a code this low.
inline constexpr int32_t notLoaded = -1'000'000;

template <class Signature>
struct Operation;

// Zero or above is success.
template <class... Params>
struct Operation<int32_t(Params...)> : AnyOperation
{
    constexpr Operation(InstrumentLibrary &library, const char *name)
        : AnyOperation{.Library = &library, .Name = name, .Next = library.First}
    {
        library.First = this;
    }

    int32_t operator()(Params... arguments) const
    {
        if (!Address) return notLoaded;
        return reinterpret_cast<int32_t (*)(Params...)>(Address)(arguments...);
    }
};

} // namespace Tessel
