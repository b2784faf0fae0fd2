#include "devices/libs/loader.h"

#include "devices/libs/all.h"
#include "log/log.h"

#include <cstdlib>
#include <dlfcn.h>
#include <link.h>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

constinit ZPLibrary zp;
constinit CDLibrary cd;
constinit SV40Library sv40;
constinit LM70Library lm70;
constinit CD90Library cd90;

CommonOperations *libraryOf(LibType type)
{
    switch (type) {
    case LibType::ZP: return &zp;
    case LibType::CD: return &cd;
    case LibType::SV40: return &sv40;
    case LibType::LM70: return &lm70;
    case LibType::CD90: return &cd90;
    case LibType::Undefined:
    case LibType::Dummy: break;
    }
    return nullptr;
}

namespace {

constexpr const char *folderVariable = "TESSEL_INSTRUMENT_PATH";

std::vector<std::string> absoluteFolders(std::string_view list)
{
    std::vector<std::string> folders;
    while (!list.empty()) {
        const std::string_view folder = list.substr(0, list.find(':'));
        list.remove_prefix(std::min(folder.size() + 1, list.size()));
        if (folder.starts_with('/')) folders.emplace_back(folder);
    }
    return folders;
}

// Who runs with another user's rights doesn't go by the environment.
std::vector<std::string> placesOf(const char *fileName)
{
    const char *list = secure_getenv(folderVariable);
    if (!list) return {fileName};
    std::vector<std::string> places = absoluteFolders(list);
    for (std::string &place : places) place += std::string("/") + fileName;
    return places;
}

std::string pathOf(void *handle)
{
    link_map *file = nullptr;
    return dlinfo(handle, RTLD_DI_LINKMAP, &file) == 0 && file ? file->l_name : "";
}

void *openFirst(LibraryLook &look)
{
    look.Why = "no folder to look in";
    for (const std::string &place : look.Places) {
        if (void *handle = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL)) {
            look.Path = pathOf(handle);
            look.Why.clear();
            return handle;
        }
        look.Why = dlerror();
    }
    return nullptr;
}

std::string symbolOf(const AnyOperation &operation)
{
    return std::string(operation.Library->Prefix) + operation.Name;
}

// Null: all are there.
const AnyOperation *firstMissing(const InstrumentLibrary &library, void *handle)
{
    for (const AnyOperation *each = library.First; each; each = each->Next)
        if (!dlsym(handle, symbolOf(*each).c_str())) return each;
    return nullptr;
}

bool isLoaded(const InstrumentLibrary &library)
{
    return library.First->Address;
}

struct Loader
{
    std::mutex Lock; // guards the looks, and the addresses while they are set
    std::map<const InstrumentLibrary *, LibraryLook> Looks;
};

Loader &loader()
{
    static Loader &only = *new Loader;
    return only;
}

bool passOver(const InstrumentLibrary &library, std::string_view why)
{
    logInf(LogCategory::Progress, "Device: No library {}: {}", library.FileName, why);
    return false;
}

} // namespace

bool loadLibrary(InstrumentLibrary &library)
{
    std::lock_guard lock(loader().Lock);
    if (isLoaded(library)) return true;
    LibraryLook &look = loader().Looks[&library];
    look = {.Places = placesOf(library.FileName), .Path = {}, .Missing = {}, .Why = {}};
    void *handle = openFirst(look);
    if (!handle) return passOver(library, look.Why);
    if (const AnyOperation *missing = firstMissing(library, handle)) {
        dlclose(handle);
        look.Missing = symbolOf(*missing);
        look.Why = "it lacks " + look.Missing;
        return passOver(library, look.Why);
    }
    for (const AnyOperation *each = library.First; each; each = each->Next)
        each->Address = dlsym(handle, symbolOf(*each).c_str());
    return true;
}

LibraryLook lastLook(const InstrumentLibrary &library)
{
    std::lock_guard lock(loader().Lock);
    return loader().Looks[&library];
}

} // namespace Tessel
