// How a test speaks to a fake instrument library: each one exports `fake_control`. Tests use support/fake.h.
#pragma once

#include <cstddef>
#include <cstdint>

// A script holds for every call of an operation until reset(). Out arguments are numbered from 0 in the order
// of the call and are written whatever the result is.
struct FakeControl
{
    void (*reset)(int32_t instruments); // on the first ports; empties journal and script, ends every hang
    void (*busy)(int32_t port);         // somebody else has it open
    void (*answer)(const char *operation, int32_t call, int32_t result); // `call`: 1 the next one; 0 every one
    void (*number)(const char *operation, int32_t out, double value);    // every element of an array
    void (*text)(const char *operation, int32_t out, const char *value);
    void (*endless)(const char *operation); // its texts fill their buffers and have no zero
    void (*hang)(const char *operation);    // its next call doesn't return before release()
    bool (*isHanging)();                    // a call is, now
    void (*release)();
    void (*words)(const uint32_t *words, size_t count); // what the next ReadFiFo brings
    const char *(*journal)(); // a line a call: "SetSyncDiv 0 5"; valid until the next call
};
