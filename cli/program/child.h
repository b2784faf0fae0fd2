// Another process of this program, which reads a text and leaves two. The main thread's.
#pragma once

#include "program/files.h"

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Tessel::Cli {

// Its streams are files without a name, so it waits for nobody. In a group of its own: Ctrl-C is for who
// started it.
struct Child
{
    explicit Child(std::string_view input) : In(input), Out(""), Error("") {}
    ~Child(); // kills it if it hasn't ended
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    MemoryFile In, Out, Error; // its standard input and outputs
    pid_t Id = -1;             // none, or it has ended
    Descriptor Ended{-1};      // readable when it has, if the system can say so
    int Code = -1;             // when it has ended; below 0: the signal that ended it
};

// At the start of the program: one that another started is killed when that ends, in whatever way.
void endWithParent();

// Throws Failure.
std::unique_ptr<Child> startSelf(const std::vector<std::string> &words, std::string_view input);

// Waits some time at most, also for a signal to this program, until one of them has ended. Looks at those that
// have.
void awaitChildren(const std::vector<Child *> &children);

} // namespace Tessel::Cli
