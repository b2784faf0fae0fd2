/* The smallest host: starts the library, asks for a device that isn't there, ends. */
#include <string.h>
#include <tessel.h>

int main(int argc, char **argv)
{
    char ids[8192];
    initAPI(argc > 1 ? argv[1] : "");
    const bool told = getDeviceIDs(ids);
    exitAPI();
    return told && strcmp(ids, "[]") == 0 ? 0 : 1;
}
